// Three readers with their own agents look samples up beside a recorder whose small tables (long-GOP
// video with derived composition tables, PCM) grow and move again and again. Every answer must be
// what the finished file says; under ThreadSanitizer the run must also be free of races.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

#include "framework/FileIoClientRec.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/recorder/QtMovieRecorder.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

namespace {

constexpr unsigned int kFrames = 6000;
constexpr unsigned int kGop = 12;
constexpr unsigned int kPcmPerFrame = 160;  // 8000 Hz sound beside 50 frames a second
constexpr uint32_t kVideo = 1, kSound = 2;

unsigned int frameSize(unsigned int n) { return 200 + (n * 7919u) % 1200; }
// Decode order I P B B P B B ...: each reference is shown after the B frames behind it.
SampleCodingType codingOf(unsigned int n) {
    unsigned int place = n % kGop;
    return place == 0 ? SampleCodingI : place % 3 == 1 ? SampleCodingP : SampleCodingB;
}

// What one reader saw, per track.
struct ReaderLog {
    std::vector<QtSampleInfo> answers[2];
    unsigned long refused = 0;
};

void readWhileRecording(QtTrackSamples const* const* tracks, std::atomic<bool> const& recording, unsigned int seed,
                        ReaderLog& log) {
    FileIoClientRec agent;
    std::mt19937 random(seed);
    QtSampleInfo info;
    unsigned long lastCount[2] = {0, 0};
    while (recording.load(std::memory_order_acquire)) {
        for (unsigned int t = 0; t < 2; ++t) {
            QtTrackSamples const& track = *tracks[t];
            unsigned long count = track.getNumSamples();
            if (count < lastCount[t]) ++log.refused;  // the prefix never shrinks
            lastCount[t] = count;
            if (count == 0) continue;
            for (unsigned int i = 0; i < 10; ++i) {
                if (track.getSample(random() % count, info, &agent))
                    log.answers[t].push_back(info);
                else
                    ++log.refused;
            }
            QtTrackSamples::Iterator walk(track, random() % count, &agent);
            for (unsigned int i = 0; i < 200 && walk.next(info); ++i) log.answers[t].push_back(info);
        }
    }
    for (unsigned int t = 0; t < 2; ++t) tracks[t]->getSampleTable().closeVirtualTables(&agent);
}

bool appendFrame(QtMovieRecorder& recorder, unsigned int n, std::vector<unsigned char>& bytes) {
    bytes.assign(frameSize(n), static_cast<unsigned char>(n));
    if (!recorder.appendSample(kVideo, {bytes.data(), frameSize(n), 20, codingOf(n) == SampleCodingI,
                                        SampleInfo(codingOf(n))}))
        return false;
    bytes.assign(kPcmPerFrame * 2, static_cast<unsigned char>(n * 3));
    return recorder.appendSample(kSound, {bytes.data(), kPcmPerFrame * 2, kPcmPerFrame, true, {}});
}

}  // namespace

TEST(RecorderReadersThread, ReadersWithTheirOwnAgentsAgreeWithTheFinishedFile) {
    TempFile temp("readers.mov");
    QtMovieRecorder::Options options;
    options.plannedSeconds = 1;  // small tables: the recording outgrows them again and again
    std::unique_ptr<QtMovieRecorder> recorder = QtMovieRecorder::create(temp.c_str(), options);
    ASSERT_TRUE(recorder);
    ASSERT_EQ(recorder->addVideoTrack(qtId("avc1"), 1000, 320, 240), kVideo);
    ASSERT_EQ(recorder->addSoundTrack(qtId("sowt"), 8000, 1, 16), kSound);
    std::vector<unsigned char> bytes;
    // The first GOP creates the key-frame and composition tables; the readers take the tables then.
    unsigned int n = 0;
    for (; n < kGop; ++n) ASSERT_TRUE(appendFrame(*recorder, n, bytes));
    ASSERT_TRUE(recorder->flush());
    QtTrackSamples video(QtTrackSamples::findTrackMedia(recorder->getRoot(), kVideo));
    QtTrackSamples sound(QtTrackSamples::findTrackMedia(recorder->getRoot(), kSound));
    ASSERT_TRUE(video.valid() && video.getSampleTable().getCtts() && video.getSampleTable().getStss());
    ASSERT_TRUE(sound.valid());
    QtTrackSamples const* tracks[2] = {&video, &sound};

    std::atomic<bool> running{true};
    std::vector<ReaderLog> logs(3);
    std::vector<std::thread> readers;
    for (unsigned int r = 0; r < logs.size(); ++r)
        readers.emplace_back(readWhileRecording, tracks, std::cref(running), r + 1, std::ref(logs[r]));
    bool recorded = true;
    for (; n < kFrames && recorded; ++n) {
        recorded = appendFrame(*recorder, n, bytes);
        if (n % 250 == 249) recorded = recorder->flush() && recorded;
    }
    running.store(false, std::memory_order_release);
    for (std::thread& reader : readers) reader.join();
    ASSERT_TRUE(recorded);
    ASSERT_TRUE(recorder->close());
    recorder.reset();
    EXPECT_GT(scanTopLevel(temp.path()).count("mdat"), 1);  // the movie moved: each move closes an mdat

    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(temp.c_str());
    ASSERT_TRUE(root);
    QtTrackSamples finishedVideo(QtTrackSamples::findTrackMedia(*root, kVideo));
    QtTrackSamples finishedSound(QtTrackSamples::findTrackMedia(*root, kSound));
    ASSERT_EQ(finishedVideo.getNumSamples(), kFrames);
    ASSERT_EQ(finishedSound.getNumSamples(), kFrames * kPcmPerFrame);
    QtTrackSamples const* finished[2] = {&finishedVideo, &finishedSound};
    FileIoClientRec agent;
    expectRecordedGop(finishedVideo, kFrames, frameSize, codingOf);
    ASSERT_FALSE(testing::Test::HasFatalFailure());
    unsigned long answers[2] = {0, 0};
    for (ReaderLog const& log : logs) {
        EXPECT_EQ(log.refused, 0u);
        for (unsigned int t = 0; t < 2; ++t) {
            answers[t] += log.answers[t].size();
            for (QtSampleInfo const& seen : log.answers[t]) {
                QtSampleInfo expected;
                ASSERT_TRUE(finished[t]->getSample(seen.sample, expected, &agent)) << t << " " << seen.sample;
                auto fields = [](QtSampleInfo const& i) { return std::tuple(i.offset, i.size, i.dts, i.pts, i.key); };
                ASSERT_EQ(fields(seen), fields(expected)) << t << " " << seen.sample;
            }
        }
    }
    EXPECT_GT(answers[0], 1000u);  // the readers really ran beside the recording
    EXPECT_GT(answers[1], 1000u);
}
