// Key-frame lookups on a long recording: a sync sample table of a 10-million-frame track with a key
// frame every 15 frames (666,667 entries, disk-backed), asked whether each frame is a key frame, in
// frame order and in random order, through one reader's agent. The baseline is a binary search over
// the same keys in a plain in-memory vector; a third pair reads the answers from per-unit key sets.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "framework/BasicFileIO.h"
#include "framework/FileIoClientRec.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtAtomSampleSync.h"
#include "bench/BenchSupport.h"

namespace {

constexpr unsigned long kFrames = 10000000;
constexpr unsigned int kGop = 15;
constexpr unsigned int kKeys = (kFrames + kGop - 1) / kGop;
constexpr unsigned int kRandomFrames = 1 << 20;

// moov > trak > mdia > minf > stbl > (stsz, stss) written once per run, removed at exit.
std::string const& movieFile() {
    static std::string path = [] {
        std::vector<unsigned char> stsz, stss, stbl;
        put32(stsz, 0);
        put32(stsz, 1);
        put32(stsz, static_cast<uint32_t>(kFrames));
        put32(stss, 0);
        put32(stss, kKeys);
        for (unsigned int k = 0; k < kKeys; ++k) put32(stss, k * kGop + 1);
        putAtom(stbl, "stsz", stsz);
        putAtom(stbl, "stss", stss);
        std::vector<unsigned char> movie =
            nest("moov", nest("trak", nest("mdia", nest("minf", nest("stbl", stbl)))));
        char name[] = "/tmp/qt_bench_sync_XXXXXX";
        int fd = mkstemp(name);
        if (fd < 0 || write(fd, movie.data(), movie.size()) != static_cast<long>(movie.size())) std::abort();
        close(fd);
        std::atexit([] { unlink(path.c_str()); });
        return std::string(name);
    }();
    return path;
}

QtAtomSampleSync const* syncTable() {
    static AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(movieFile().c_str());
    BaseQtAtom const* stss = root ? root->findAtom("moov.trak.mdia.minf.stbl.stss", 0) : nullptr;
    auto const* table = dynamic_cast<QtAtomSampleSync const*>(stss);
    if (!table || !table->hasVirtualTable() || table->size() != kKeys) std::abort();
    return table;
}

std::vector<uint32_t> const& keyVector() {
    static std::vector<uint32_t> keys = [] {
        std::vector<uint32_t> k(kKeys);
        for (unsigned int i = 0; i < kKeys; ++i) k[i] = i * kGop;
        return k;
    }();
    return keys;
}

std::vector<uint32_t> const& randomFrames() {
    static std::vector<uint32_t> frames = [] {
        std::vector<uint32_t> f(kRandomFrames);
        std::mt19937 random(42);
        for (uint32_t& frame : f) frame = static_cast<uint32_t>(random() % kFrames);
        return f;
    }();
    return frames;
}

// Every frame once per kFrames iterations; the checksum keeps the answers alive and is verified.
void checkKeys(benchmark::State& state, unsigned long keys, unsigned long frames) {
    unsigned long expected = (frames / kFrames) * kKeys;
    for (unsigned long f = 0; f < frames % kFrames; f += kGop) ++expected;
    if (keys != expected) state.SkipWithError("wrong answers");
}

void BM_IsKeySequential(benchmark::State& state) {
    QtAtomSampleSync const* stss = syncTable();
    FileIoClientRec agent;
    unsigned long frame = 0, keys = 0, asked = 0;
    for (auto _ : state) {
        keys += stss->isKey(frame, &agent);
        if (++frame == kFrames) frame = 0;
        ++asked;
    }
    checkKeys(state, keys, asked);
    state.SetItemsProcessed(static_cast<int64_t>(asked));
}
BENCHMARK(BM_IsKeySequential);

// Argument: the agent's page budget (16 KiB pages). The default budget holds a fifth of this
// table, so most random lookups load a page; 192 pages hold all of it.
void BM_IsKeyRandom(benchmark::State& state) {
    QtAtomSampleSync const* stss = syncTable();
    FileIoClientRec agent(static_cast<unsigned int>(state.range(0)));
    std::vector<uint32_t> const& frames = randomFrames();
    unsigned int i = 0;
    unsigned long keys = 0, expected = 0;
    for (auto _ : state) {
        uint32_t frame = frames[i];
        keys += stss->isKey(frame, &agent);
        expected += frame % kGop == 0;
        i = (i + 1) & (kRandomFrames - 1);
    }
    if (keys != expected) state.SkipWithError("wrong answers");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IsKeyRandom)->Arg(FileIoClientRec::kDefaultPageBudget)->Arg(192);

void BM_VectorBinarySearchSequential(benchmark::State& state) {
    std::vector<uint32_t> const& keys = keyVector();
    unsigned long frame = 0, found = 0, asked = 0;
    for (auto _ : state) {
        found += std::binary_search(keys.begin(), keys.end(), static_cast<uint32_t>(frame));
        if (++frame == kFrames) frame = 0;
        ++asked;
    }
    checkKeys(state, found, asked);
    state.SetItemsProcessed(static_cast<int64_t>(asked));
}
BENCHMARK(BM_VectorBinarySearchSequential);

void BM_VectorBinarySearchRandom(benchmark::State& state) {
    std::vector<uint32_t> const& keys = keyVector();
    std::vector<uint32_t> const& frames = randomFrames();
    unsigned int i = 0;
    unsigned long found = 0;
    for (auto _ : state) {
        found += std::binary_search(keys.begin(), keys.end(), frames[i]);
        i = (i + 1) & (kRandomFrames - 1);
    }
    benchmark::DoNotOptimize(found);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_VectorBinarySearchRandom);

// The key sets of consecutive units, one set per 256 frames, then bit tests.
void BM_KeySetSequential(benchmark::State& state) {
    QtAtomSampleSync const* stss = syncTable();
    FileIoClientRec agent;
    unsigned long frame = 0, keys = 0, asked = 0;
    AutoReleasePtr<QtAtomSampleSync::KeySet> set = stss->getKeySet(0, &agent);
    for (auto _ : state) {
        if (!set->canHold(frame)) {
            set.reset();  // dropped first, so that the agent's set is recycled for the next unit
            set = stss->getKeySet(QtFrameSet::frameToUnit(frame), &agent);
        }
        keys += set->isKey(frame);
        if (++frame == kFrames) frame = 0;
        ++asked;
    }
    checkKeys(state, keys, asked);
    state.SetItemsProcessed(static_cast<int64_t>(asked));
}
BENCHMARK(BM_KeySetSequential);

}  // namespace

BENCHMARK_MAIN();
