// Power loss at every write of a three-track recording through several cycles of appends, moves,
// flushes and close: what a crash would leave (nothing unsynced, everything, seeded random keeps,
// losses and tears) holds exactly one 'moov', reads, and shows on every track at least the samples
// of the last completed flush, each with its size, times, flags and bytes, and nothing else.
#include <gtest/gtest.h>

#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"
#include "tests/recorder/RecorderTestSupport.h"

namespace {

// What a crash copy holds must be a movie whose tracks are a prefix of the stream, at least as long
// as the last completed flush made durable.
std::string judgeCopy(std::string const& path, unsigned long const durable[4], unsigned long const appended[4]) {
    TopLevelScan scan = scanTopLevel(path);
    if (scan.count("moov") != 1) return std::to_string(scan.count("moov")) + " moov headers";
    if (!scan.coversFile) return "top-level atoms do not reach the end of the file";
    MessageCapture quiet;
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    if (!root) return "not readable";
    if (!root->checkStructure("crash copy")) return "no movie in the tree";
    for (uint32_t track = 1; track <= 3; ++track) {
        QtAtomHeader const* media = QtTrackSamples::findTrackMedia(*root, track);
        // The samples a reader reaches: the chunk offset count is the gate, the other tables may
        // already claim the samples of a flush that did not complete.
        unsigned long visible = 0;
        if (media) {
            QtTrackSamples samples(media);
            FileIoClientRec agent;
            QtSampleInfo info;
            if (samples.valid())
                for (QtTrackSamples::Iterator it(samples, 0, &agent); it.next(info);) ++visible;
        }
        if (track == TestStream::kPcm) visible /= 400;
        if (visible < durable[track] || visible > appended[track])
            return "track " + std::to_string(track) + " shows " + std::to_string(visible) + " samples, durable " +
                   std::to_string(durable[track]) + ", appended " + std::to_string(appended[track]);
        std::string difference = compareTrack(*root, track, visible, false);
        if (!difference.empty()) return difference;
    }
    return "";
}

}  // namespace

// Run with each sample written at once, and with small samples gathered into one write per chunk.
class RecorderCrashSweep : public ::testing::TestWithParam<bool> {};

TEST_P(RecorderCrashSweep, EveryWriteOfSeveralRecordCyclesLeavesOneCompleteMovieWithEveryFlushedSample) {
    TempFile temp("swept.mov");
    TempFile copy("crash.mov");
    AutoRefPtr<FaultyFileIO> file = FaultyFileIO::open(temp.c_str(), BasicFileIO::Create);
    ASSERT_TRUE(file);
    QtMovieRecorder::Options options;
    options.plannedSeconds = 1;  // tables outgrow their room every few flushes
    options.gatherWrites = GetParam();
    unsigned long durable[4] = {0, 0, 0, 0};
    unsigned long appended[4] = {0, 0, 0, 0};
    unsigned int crashPoints = 0, copiesChecked = 0;
    std::vector<std::string> failures;
    bool created = false;  // a movie is promised once create() has returned
    file->setWriteObserver([&](FaultyFileIO::IoCount const& count) {
        if (!created) return;
        ++crashPoints;
        using Policy = FaultyFileIO::CrashPolicy;
        for (Policy const& policy : {Policy::keepNone(), Policy::keepAll(), Policy::random(count.writes * 2654435761ul),
                                     Policy::random(count.writes * 40503ul + 17)}) {
            if (!file->crashCopy(copy.c_str(), policy)) continue;  // the file itself would be lost
            ++copiesChecked;
            std::string verdict = judgeCopy(copy.path(), durable, appended);
            if (!verdict.empty() && failures.size() < 8)
                failures.push_back("write " + std::to_string(count.writes) + ": " + verdict);
        }
    });

    std::unique_ptr<QtMovieRecorder> recorder =
        QtMovieRecorder::create(AutoRefPtr<BasicFileIO>(file.get()), options);
    ASSERT_TRUE(recorder);
    created = true;
    TestStream::addTracks(*recorder);
    auto record = [&](uint32_t track) {
        ASSERT_TRUE(TestStream::append(*recorder, track, appended[track]));
        ++appended[track];
    };
    for (unsigned long n = 0; n < 240; ++n) {
        record(TestStream::kVideo);
        if (n % 8 == 0) record(TestStream::kPcm);
        if (n % 3 == 0) record(TestStream::kAac);
        if (n % 20 == 19) {
            ASSERT_TRUE(recorder->flush());
            for (uint32_t track = 1; track <= 3; ++track) {
                ASSERT_EQ(recorder->durableSamples(track), appended[track] * (track == TestStream::kPcm ? 400 : 1));
                durable[track] = appended[track];
            }
        }
    }
    ASSERT_TRUE(recorder->close());
    recorder.reset();
    file->setWriteObserver(nullptr);

    EXPECT_EQ(failures, std::vector<std::string>());
    EXPECT_GE(crashPoints, 800u);
    // Several cycles: every move of the movie leaves a retired copy under a skip and a closed mdat.
    TopLevelScan scan = scanTopLevel(temp.path());
    EXPECT_GE(scan.count("mdat"), 4);
    EXPECT_EQ(judgeCopy(temp.path(), appended, appended), "");
    std::printf("crash sweep%s: %u crash points, %u copies checked, %d mdat\n", GetParam() ? " (gathered writes)" : "",
                crashPoints, copiesChecked, scan.count("mdat"));
}

INSTANTIATE_TEST_SUITE_P(WritesAtOnceAndGathered, RecorderCrashSweep, ::testing::Bool());
