// Recording speed and memory against raw writes: 60 fps video (a key frame every second, two B
// frames between references) with 48 kHz AAC-sized sound packets, synthetic bytes at 4 MB/s, a
// flush every second of media. The recorder's run is compared with writing the same bytes with
// pwrite and an fdatasync at the same cadence. Resident memory is sampled after the first minute
// and at the end: it must stay flat however long the recording.
//
// QT_RECORD_MINUTES sets the length (default 1; 60 for the hour); QT_RECORD_DIR the directory of
// the files (default /tmp). Both benchmarks run as fast as the disk allows (no pacing).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "quicktime/recorder/QtMovieRecorder.h"

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

long residentKb() {
    long pages = 0, resident = 0;
    if (FILE* statm = fopen("/proc/self/statm", "r")) {
        if (fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
        fclose(statm);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
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

void BM_Recorder(benchmark::State& state) {
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
        ok = ok && recorder->close();
        if (!ok) state.SkipWithError("recording failed");
        state.counters["rss_kb_1min"] = static_cast<double>(afterOneMinute);
        state.counters["rss_kb_end"] = static_cast<double>(residentKb());
    }
    state.counters["media_seconds"] = static_cast<double>(minutes() * 60);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * minutes() * 60 * kBytesPerSecond));
    unlink(file.c_str());
}

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
BENCHMARK(BM_PlainWrites)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
