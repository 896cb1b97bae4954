// Readers beside a recording: one thread records a long-GOP track into the tables of a movie over a
// real file as a recorder drives them (resizes, relocations of the movie, flushes, 'stco' widening
// to 'co64'), while reader threads with their own agents look samples up at random and in order
// through one shared QtTrackSamples. Every answer must be what the finished file says, free of
// races under ThreadSanitizer. Each sample's time is stored last, so it bounds the readers' prefix.
#include <atomic>
#include <random>
#include <thread>

#include "framework/FileIoClientRec.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleSync.h"
#include "quicktime/tables/QtAtomSampleTime.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tests/layout/LayoutTestSupport.h"
#include "tests/tables/TableTestSupport.h"

namespace {

constexpr unsigned int kSamples = 24000;
constexpr unsigned int kGop = 15;
constexpr unsigned int kTicks = 1001;
constexpr unsigned long kChunkSpacing = 200000;
constexpr unsigned long kEssenceBytes = 800000000ul;

// How the tables are given room when full, and how many readers run.
struct Plan {
    char const* name;
    unsigned int readers;
    bool growsALot;  // twice what is needed, so that the movie moves at every resize
};

unsigned int sizeOf(unsigned int sample) { return 500 + (sample * 7919u) % 20000; }
// Chunks of 8 samples, every tenth of 3: the sample-to-chunk table both extends runs and opens new ones.
unsigned int samplesInChunk(unsigned int chunk) { return chunk % 10 == 9 ? 3 : 8; }
// Decode order I P B B P B B ...: each reference is shown after the B frames behind it.
SampleCodingType codingOf(unsigned int sample) {
    unsigned int place = sample % kGop;
    return place == 0 ? SampleCodingI : place % 3 == 1 ? SampleCodingP : SampleCodingB;
}

class Recording {
public:
    Recording(TempFile const& temp, bool growsALot) : growsALot(growsALot) {
        file = BasicFileIO::open(temp.c_str(), BasicFileIO::Create);
        root.reset(new QtAtomRoot(file, 0));
        addPreserved(root.get(), "ftyp", 12, 'f');
        mdat = new QtAtomMdat(root.get(), kEssenceBytes);
        moov = new QtAtomMoov(root.get(), QtAtomMoov::kMoovId);
        media = new QtAtomHeader(qtId("mdia"), new QtAtomHeader(qtId("trak"), moov));
        auto* stbl = new QtAtomHeader(qtId("stbl"), new QtAtomHeader(qtId("minf"), media));
        stts = new QtAtomSampleTime(stbl);
        stsc = new QtAtomSampleChunk(stbl);
        stsz = new QtAtomSampleSize(stbl);
        {
            ScopedDebugFlag useStco("quicktimeLegacyDbg", "use stco");  // so that it widens while read
            stco = new QtAtomSampleChunkOff(stbl);
        }
        stss = new QtAtomSampleSync(stbl, true, QtAtomSampleSync::kStssId);
        ctts = new QtAtomCompTime(stbl);
        // Planned like a recorder plans them; the per-sample tables grow by resizes instead.
        stss->setCapacity(kSamples, kGop);
        ctts->setCapacity(kSamples);
        root->recalcOffset(QtTreeSize(true, 0, 0));
        flush();  // the movie now follows the essence area, so the file covers every chunk
    }

    void record() {
        unsigned int sample = 0;
        for (unsigned int chunk = 0; sample < kSamples; ++chunk) {
            if (stsc->getHeadroom() == 0) {
                stsc->write()->addCapacity();
                resize();
            }
            for (unsigned int i = 0; i < samplesInChunk(chunk) && sample < kSamples; ++i, ++sample) {
                ASSERT_TRUE(codingOf(sample) != SampleCodingI || stss->appendKey(sample));
                ctts->appendSample(sample, SampleInfo(codingOf(sample)), kTicks, nullptr);
                QtSampleLocation location(1, 1, i == 0);
                ASSERT_TRUE(stsc->write()->addSamples(location));
                if (i == 0)
                    while (!stco->write()->addOffset(static_cast<long>(mdat->getDataOffset() + chunk * kChunkSpacing)))
                        resize();
                while (!stsz->write()->addSamples(sample, 1, sizeOf(sample))) resize();
                stts->write()->addSamples(1, kTicks);
            }
            if (chunk % 400 == 399) flush();
        }
        flush();
    }

    void resize() {
        // Twice the room, for the tables that have none left; or twice what each needs, for both.
        if (growsALot) {
            stsz->write()->setCapacity(2ul * stsz->getSizeNeeded());
            stco->write()->setCapacity(2ul * stco->getSizeNeeded());
        } else {
            if (stsz->getHeadroom() == 0) stsz->write()->setCapacity(2ul * stsz->getCapacity());
            if (stco->getHeadroom() == 0) stco->write()->setCapacity(2ul * stco->nArrayEntries());
        }
        moov->clearResizeNeeded();
        QtTreeSize dry = moov->recalcOffset(QtTreeSize(false, 0, moov->getFileOffset()));
        if (dry.size > moov->getSize() && moov->relocate()) ++relocations;
        root->recalcOffset(QtTreeSize(true, 0, 0));
    }

    void flush() {
        root->flushVirtualChildren();
        ASSERT_TRUE(root->writeDirty());
        root->flush(moov);
        root->hasFinalForm(true);
        if (root->isIdUpdateNeeded() && moov->updateDiskId()) {
            root->setIdUpdateNeeded(false);
            ASSERT_TRUE(root->writeDirty());
        }
        root->coalesceSkip();
        ASSERT_TRUE(root->writeDirty());
    }

    AutoRefPtr<BasicFileIO> file;
    AutoPtr<QtAtomRoot> root;
    QtAtomMdat const* mdat = nullptr;
    QtAtomMoov const* moov = nullptr;
    QtAtomHeader const* media = nullptr;
    QtAtomSampleTime const* stts = nullptr;
    QtAtomSampleChunk const* stsc = nullptr;
    QtAtomSampleSize const* stsz = nullptr;
    QtAtomSampleChunkOff const* stco = nullptr;
    QtAtomSampleSync const* stss = nullptr;
    QtAtomCompTime const* ctts = nullptr;
    unsigned int relocations = 0;
    bool growsALot;
};

// What one reader saw: its answers, and how far the track had grown when it last asked.
struct ReaderLog {
    std::vector<QtSampleInfo> answers;
    unsigned long refused = 0;
    unsigned long lastCount = 0;
};

// Alternates random lookups with walks of up to 300 samples from a random place, up to the count
// the track gives at that moment, until the recording stops.
void readWhileRecording(QtTrackSamples const& track, std::atomic<bool> const& recording, unsigned int seed,
                        ReaderLog& log) {
    FileIoClientRec agent;
    std::mt19937 random(seed);
    QtSampleInfo info;
    while (recording.load(std::memory_order_acquire)) {
        unsigned long count = track.getNumSamples();
        if (count < log.lastCount) ++log.refused;  // the prefix never shrinks
        log.lastCount = count;
        if (count == 0) continue;
        for (unsigned int i = 0; i < 20; ++i) {
            unsigned long s = random() % count;
            if (track.getSample(s, info, &agent))
                log.answers.push_back(info);
            else
                ++log.refused;
        }
        QtTrackSamples::Iterator walk(track, random() % count, &agent);
        for (unsigned int i = 0; i < 300 && walk.next(info); ++i) log.answers.push_back(info);
    }
    track.getSampleTable().closeVirtualTables(&agent);
}

}  // namespace

class ConcurrentReadersTest : public testing::TestWithParam<Plan> {};

// The second plan gives the tables far more room than needed, so that the movie (last in its file)
// moves at every resize, several times between flushes; with no readers, only what the tables
// themselves write reaches the file.
INSTANTIATE_TEST_SUITE_P(Plans, ConcurrentReadersTest,
                         testing::Values(Plan{"ThreeReaders", 3, false}, Plan{"NoReaderMovieMovesOften", 0, true}),
                         [](testing::TestParamInfo<Plan> const& info) { return std::string(info.param.name); });

TEST_P(ConcurrentReadersTest, ReadersWithTheirOwnAgentsSeeAPrefixThatTheFinishedFileConfirms) {
    Plan const& plan = GetParam();
    TempFile temp;
    Recording recording(temp, plan.growsALot);
    QtTrackSamples track(recording.media);
    ASSERT_TRUE(track.valid());

    std::atomic<bool> running{true};
    std::vector<ReaderLog> logs(plan.readers);
    std::vector<std::thread> readers;
    for (unsigned int r = 0; r < plan.readers; ++r)
        readers.emplace_back(readWhileRecording, std::cref(track), std::cref(running), r + 1, std::ref(logs[r]));
    recording.record();
    running.store(false, std::memory_order_release);
    for (std::thread& reader : readers) reader.join();
    ASSERT_FALSE(testing::Test::HasFatalFailure());
    EXPECT_TRUE(recording.stco->is64Bit());
    EXPECT_GT(recording.relocations, 0u);
    recording.root.reset();

    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(temp.c_str());
    ASSERT_TRUE(root);
    QtTrackSamples finished(QtTrackSamples::findTrackMedia(*root, 1));
    ASSERT_EQ(finished.getNumSamples(), kSamples);
    FileIoClientRec agent;
    expectRecordedGop(finished, kSamples, sizeOf, codingOf);
    ASSERT_FALSE(testing::Test::HasFatalFailure());
    unsigned long answers = 0;
    for (ReaderLog const& log : logs) {
        EXPECT_EQ(log.refused, 0u);
        answers += log.answers.size();
        for (QtSampleInfo const& seen : log.answers) {
            QtSampleInfo expected;
            ASSERT_TRUE(finished.getSample(seen.sample, expected, &agent)) << seen.sample;
            ASSERT_EQ(seen.size, sizeOf(static_cast<unsigned int>(seen.sample))) << seen.sample;
            ASSERT_EQ(std::tie(seen.offset, seen.size, seen.dts, seen.pts, seen.key),
                      std::tie(expected.offset, expected.size, expected.dts, expected.pts, expected.key))
                << seen.sample;
        }
    }
    if (plan.readers != 0) {
        EXPECT_GT(answers, 1000u);  // the readers really ran beside the recording
    }
}
