// Recording speed and memory against raw writes: 60 fps video (a key frame every second, two B
// frames between references) with 48 kHz AAC-sized sound packets, synthetic bytes at 4 MB/s, a
// flush every second of media. The recorder's run is compared with writing the same bytes with
// pwrite and an fdatasync at the same cadence. Resident memory is sampled after the first minute
// and at the end: it must stay flat however long the recording.
//
// BM_RecorderWithReaders records the same stream while reader threads (the argument: how many),
// each with its own agent, look up random samples of the video track through the tree the recorder
// returns: it reports the time per lookup while the recorder runs, and the recording's own time.
//
// QT_RECORD_MINUTES sets the length (default 1; 60 for the hour); QT_RECORD_DIR the directory of
// the files (default /tmp). Both benchmarks run as fast as the disk allows (no pacing).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "framework/FileIoClientRec.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/recorder/QtMovieRecorder.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "bench/BenchSupport.h"

namespace {

constexpr unsigned int kFramesPerSecond = 60;
constexpr unsigned int kBytesPerSecond = 4u << 20;
constexpr unsigned int kSoundRate = 48000;
constexpr unsigned int kSoundFrames = 1024;  // per packet
constexpr unsigned int kSoundBytes = 372;    // 128 kbit/s
constexpr unsigned int kFrameBytes =
    (kBytesPerSecond - kSoundBytes * kSoundRate / kSoundFrames) / kFramesPerSecond;

unsigned long minutes() {
    char const* text = getenv("QT_RECORD_MINUTES");
    unsigned long value = text ? strtoul(text, nullptr, 10) : 0;
    return value ? value : 1;
}

std::string path(char const* name) {
    char const* dir = getenv("QT_RECORD_DIR");
    return std::string(dir ? dir : "/tmp") + "/" + name;
}

// One second of media in the order a live recorder receives it: each video frame followed by the
// sound packets that start before the next frame. `sink(isVideo, index, bytes)` per sample.
template <class Sink>
void oneSecond(unsigned long second, Sink&& sink) {
    unsigned long soundBefore = second * kSoundRate / kSoundFrames;
    for (unsigned int frame = 0; frame < kFramesPerSecond; ++frame) {
        sink(true, second * kFramesPerSecond + frame, kFrameBytes - (frame % 3) * 1024);
        unsigned long soundUntil =
            (second * kFramesPerSecond + frame + 1) * kSoundRate / (kSoundFrames * kFramesPerSecond);
        for (; soundBefore < soundUntil; ++soundBefore) sink(false, soundBefore, kSoundBytes);
    }
}

// Frame n of a GOP of one second, in decode order: I, then P B B P B B ...
SampleInfo frameInfo(unsigned long frame) {
    unsigned int n = frame % kFramesPerSecond;
    if (n == 0) return SampleInfo(SampleCodingI);
    return SampleInfo(n % 3 == 1 ? SampleCodingP : SampleCodingB);
}

// Lookups of random samples of a track by one reader thread until `recording` ends.
struct ReaderFigures {
    unsigned long lookups = 0;
    double seconds = 0;
};

void lookUpWhileRecording(QtTrackSamples const& track, std::atomic<bool> const& recording, unsigned int seed,
                          ReaderFigures& figures) {
    FileIoClientRec agent;
    std::mt19937 random(seed);
    QtSampleInfo info;
    auto started = std::chrono::steady_clock::now();
    while (recording.load(std::memory_order_acquire)) {
        unsigned long count = track.getNumSamples();
        if (count == 0) {
            std::this_thread::yield();
            continue;
        }
        for (unsigned int i = 0; i < 64; ++i) {
            track.getSample(random() % count, info, &agent);
            ++figures.lookups;
        }
    }
    figures.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    track.getSampleTable().closeVirtualTables(&agent);
}

void record(benchmark::State& state, unsigned int readers) {
    std::vector<unsigned char> bytes(kFrameBytes, 0x5A);
    std::string file = path("record_bench.mov");
    for (auto _ : state) {
        QtMovieRecorder::Options options;
        auto recorder = QtMovieRecorder::create(file.c_str(), options);
        uint32_t video = recorder ? recorder->addVideoTrack(qtId("avc1"), 60000, 1920, 1080) : 0;
        uint32_t sound = recorder ? recorder->addSoundTrack(qtId("mp4a"), kSoundRate, 2, 16) : 0;
        if (!video || !sound) {
            state.SkipWithError("the recorder could not start");
            return;
        }
        std::atomic<bool> recording{true};
        std::unique_ptr<QtTrackSamples> track;
        std::vector<ReaderFigures> figures(readers);
        std::vector<std::thread> threads;
        if (readers) {
            track = std::make_unique<QtTrackSamples>(QtTrackSamples::findTrackMedia(recorder->getRoot(), video));
            for (unsigned int r = 0; r < readers; ++r)
                threads.emplace_back(lookUpWhileRecording, std::cref(*track), std::cref(recording), r + 1,
                                     std::ref(figures[r]));
        }
        bool ok = true;
        long afterOneMinute = 0;
        for (unsigned long second = 0; ok && second < minutes() * 60; ++second) {
            oneSecond(second, [&](bool isVideo, unsigned long index, unsigned int size) {
                QtMovieRecorder::Sample sample;
                sample.bytes = bytes.data();
                sample.size = size;
                sample.duration = isVideo ? 1000 : kSoundFrames;
                sample.key = !isVideo || index % kFramesPerSecond == 0;
                if (isVideo) sample.info = frameInfo(index);
                ok = ok && recorder->appendSample(isVideo ? video : sound, sample);
            });
            ok = ok && recorder->flush();
            if (second == 59) afterOneMinute = residentKb();
        }
        recording.store(false, std::memory_order_release);
        for (std::thread& thread : threads) thread.join();
        ok = ok && recorder->close();
        if (!ok) state.SkipWithError("recording failed");
        if (readers) {
            unsigned long lookups = 0;
            double seconds = 0;
            for (ReaderFigures const& f : figures) {
                lookups += f.lookups;
                seconds += f.seconds;
            }
            state.counters["lookups"] = static_cast<double>(lookups);
            state.counters["lookup_ns"] = lookups ? seconds * 1e9 / static_cast<double>(lookups) : 0;
        }
        state.counters["rss_kb_1min"] = static_cast<double>(afterOneMinute);
        state.counters["rss_kb_end"] = static_cast<double>(residentKb());
    }
    state.counters["media_seconds"] = static_cast<double>(minutes() * 60);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * minutes() * 60 * kBytesPerSecond));
    unlink(file.c_str());
}

void BM_Recorder(benchmark::State& state) { record(state, 0); }
void BM_RecorderWithReaders(benchmark::State& state) { record(state, static_cast<unsigned int>(state.range(0))); }

void BM_PlainWrites(benchmark::State& state) {
    std::vector<unsigned char> bytes(kFrameBytes, 0x5A);
    std::string file = path("record_bench.raw");
    for (auto _ : state) {
        int fd = open(file.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
        unsigned long offset = 0;
        bool ok = fd >= 0;
        for (unsigned long second = 0; ok && second < minutes() * 60; ++second) {
            oneSecond(second, [&](bool, unsigned long, unsigned int size) {
                ok = ok &&
                     pwrite(fd, bytes.data(), size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
                offset += size;
            });
            ok = ok && fdatasync(fd) == 0;
        }
        if (fd >= 0) close(fd);
        if (!ok) state.SkipWithError("writing failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * minutes() * 60 * kBytesPerSecond));
    unlink(file.c_str());
}

}  // namespace

BENCHMARK(BM_Recorder)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RecorderWithReaders)->Arg(1)->Arg(3)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainWrites)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
