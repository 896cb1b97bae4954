// Per-sample lookups through the track facade (QtTrackSamples) on a long video track: 995,000
// samples of listed sizes in chunks of 10 (every hundredth chunk of 5, so the sample-to-chunk table
// has runs to search), 64-bit chunk offsets, one duration, a key frame every 15 samples and
// composition runs of an I/P B B pattern. Each lookup gives place, size, decode and display time
// and key flag. Walked in order with an Iterator, looked up at random one by one, and the
// sample-to-chunk lookup alone in order.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "framework/FileIoClientRec.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "bench/BenchSupport.h"

namespace {

constexpr unsigned int kSamples = 995000;  // 100,000 chunks
constexpr unsigned int kGop = 15;
constexpr unsigned int kTicks = 1001;
constexpr unsigned int kRandomSamples = 1 << 16;

unsigned int samplesInChunk(unsigned int chunk) { return chunk % 100 == 99 ? 5 : 10; }

// Chunks lie 300,000 bytes apart from 1 MiB on; the file is extended (sparsely) to hold them.
constexpr unsigned long kChunkSpacing = 300000;
constexpr unsigned long kFileBytes = (1ul << 20) + 100000ul * kChunkSpacing;

std::vector<unsigned char> sampleTable() {
    std::vector<unsigned char> stts, stsc, stsz, co64, stss, ctts, stbl;
    put32(stts, 0), put32(stts, 1), put32(stts, kSamples), put32(stts, kTicks);
    put32(stsz, 0), put32(stsz, 0), put32(stsz, kSamples);
    for (unsigned int s = 0; s < kSamples; ++s) put32(stsz, 1000 + (s * 7919u) % 50000);
    std::vector<unsigned int> runs;  // first chunk, samples per chunk
    unsigned long offset = 1ul << 20;
    std::vector<unsigned long> offsets;
    for (unsigned int chunk = 0, sample = 0; sample < kSamples; sample += samplesInChunk(chunk++)) {
        if (runs.empty() || runs.back() != samplesInChunk(chunk)) runs.push_back(chunk + 1), runs.push_back(samplesInChunk(chunk));
        offsets.push_back(offset);
        offset += kChunkSpacing;
    }
    put32(stsc, 0), put32(stsc, static_cast<uint32_t>(runs.size() / 2));
    for (size_t i = 0; i < runs.size(); i += 2) put32(stsc, runs[i]), put32(stsc, runs[i + 1]), put32(stsc, 1);
    put32(co64, 0), put32(co64, static_cast<uint32_t>(offsets.size()));
    for (unsigned long o : offsets) put32(co64, static_cast<uint32_t>(o >> 32)), put32(co64, static_cast<uint32_t>(o));
    put32(stss, 0), put32(stss, (kSamples + kGop - 1) / kGop);
    for (unsigned int k = 0; k < kSamples; k += kGop) put32(stss, k + 1);
    // Decode order I/P B B: the reference is shown after its two B frames.
    put32(ctts, 0), put32(ctts, kSamples / 3 * 2);
    for (unsigned int s = 0; s + 2 < kSamples; s += 3) put32(ctts, 1), put32(ctts, 3 * kTicks), put32(ctts, 2), put32(ctts, kTicks);
    putAtom(stbl, "stts", stts);
    putAtom(stbl, "stsc", stsc);
    putAtom(stbl, "stsz", stsz);
    putAtom(stbl, "co64", co64);
    putAtom(stbl, "stss", stss);
    putAtom(stbl, "ctts", ctts);
    return stbl;
}

std::string const& movieFile() {
    static std::string path = [] {
        std::vector<unsigned char> movie = nest("moov", nest("trak", nest("mdia", nest("minf", nest("stbl", sampleTable())))));
        char name[] = "/tmp/qt_bench_track_XXXXXX";
        int fd = mkstemp(name);
        if (fd < 0 || write(fd, movie.data(), movie.size()) != static_cast<long>(movie.size())) std::abort();
        if (ftruncate(fd, static_cast<off_t>(kFileBytes)) != 0) std::abort();
        close(fd);
        std::atexit([] { unlink(path.c_str()); });
        return std::string(name);
    }();
    return path;
}

QtAtomRoot const& root() {
    static AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(movieFile().c_str());
    if (!root) std::abort();
    return *root;
}

QtTrackSamples const& track() {
    static QtTrackSamples samples(QtTrackSamples::findTrackMedia(root(), 1));
    if (!samples.valid() || samples.getNumSamples() != kSamples) std::abort();
    return samples;
}

void BM_TrackSequential(benchmark::State& state) {
    FileIoClientRec agent;
    QtSampleInfo info;
    for (auto _ : state) {
        QtTrackSamples::Iterator it(track(), 0, &agent);
        unsigned long n = 0;
        while (it.next(info)) ++n;
        if (n != kSamples) fprintf(stderr, "walked %lu\n", n), std::abort();
        benchmark::DoNotOptimize(info);
    }
    state.SetItemsProcessed(state.iterations() * kSamples);
}
BENCHMARK(BM_TrackSequential)->Unit(benchmark::kMillisecond);

void BM_TrackRandom(benchmark::State& state) {
    FileIoClientRec agent;
    std::mt19937 random(7);
    std::vector<unsigned int> samples(kRandomSamples);
    for (unsigned int& s : samples) s = random() % kSamples;
    QtSampleInfo info;
    for (auto _ : state) {
        for (unsigned int s : samples)
            if (!track().getSample(s, info, &agent)) std::abort();
        benchmark::DoNotOptimize(info);
    }
    state.SetItemsProcessed(state.iterations() * kRandomSamples);
}
BENCHMARK(BM_TrackRandom)->Unit(benchmark::kMillisecond);

void BM_ChunkSetSequential(benchmark::State& state) {
    QtAtomSampleChunk const* stsc = track().getSampleTable().getStsc();
    for (auto _ : state) {
        QtChunkSet set;
        for (unsigned int s = 0; s < kSamples; ++s) benchmark::DoNotOptimize(stsc->getChunkSet(s, set));
    }
    state.SetItemsProcessed(state.iterations() * kSamples);
}
BENCHMARK(BM_ChunkSetSequential)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
