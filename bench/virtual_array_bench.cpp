// Disk-backed array throughput: a sequential read of 10 million uint32 entries through one agent,
// and the open of a fresh array over the same 10-million-entry file followed by a read of its last
// 1000 entries, from the operating system's page cache ("warm") and after the file's pages were
// dropped from it ("cold"). Peak and current resident set sizes are reported as counters.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "framework/VirtualArray.h"
#include "bench/BenchSupport.h"

namespace {

constexpr unsigned int kEntries = 10000000;
constexpr unsigned long kPlace = 20;  // as the sizes of a sample size atom at the start of a file

unsigned int bigEndian32(unsigned int const* source, unsigned int* destination, unsigned int count, int) {
    for (unsigned int i = 0; i < count; ++i) destination[i] = __builtin_bswap32(source[i]);
    return count;
}

// The file is written once per run, a megabyte at a time, and removed at exit.
std::string const& benchFile() {
    static std::string path = [] {
        char name[] = "/tmp/qt_bench_array_XXXXXX";
        int fd = mkstemp(name);
        std::vector<unsigned int> chunk(1 << 18);
        for (unsigned int first = 0; first < kEntries; first += chunk.size()) {
            unsigned int n = std::min<unsigned int>(chunk.size(), kEntries - first);
            for (unsigned int i = 0; i < n; ++i) chunk[i] = __builtin_bswap32((first + i) * 3);
            if (pwrite(fd, chunk.data(), n * 4ul, static_cast<off_t>(kPlace + first * 4ul)) < 0) break;
        }
        close(fd);
        std::atexit([] { unlink(path.c_str()); });
        return std::string(name);
    }();
    return path;
}

void dropFromPageCache(std::string const& path) {
    int fd = open(path.c_str(), O_RDONLY);
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    close(fd);
}

long peakResidentKb() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void openArray(VirtualArray<unsigned int>& array, AutoRefPtr<BasicFileIO> file) {
    array.setIoPrep(&bigEndian32);
    array.setVirtualSize(kEntries);
    array.setBackingStore(file);
    array.setMap(kPlace);
}

void openAndReadLast1000(benchmark::State& state, bool cold) {
    std::string const& path = benchFile();
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            dropFromPageCache(path);
            state.ResumeTiming();
        }
        AutoRefPtr<BasicFileIO> file = BasicFileIO::open(path.c_str(), BasicFileIO::ReadOnly);
        VirtualArray<unsigned int> array("stsz");
        openArray(array, file);
        FileIoClientRec agent;
        unsigned long sum = 0;
        for (unsigned int i = kEntries - 1000; i < kEntries; ++i) sum += array.elementAt(i, &agent);
        benchmark::DoNotOptimize(sum);
    }
    state.counters["rss_kb"] = static_cast<double>(residentKb());
    state.counters["peak_rss_kb"] = static_cast<double>(peakResidentKb());
}

void BM_OpenAndReadLast1000Warm(benchmark::State& state) { openAndReadLast1000(state, false); }
void BM_OpenAndReadLast1000Cold(benchmark::State& state) { openAndReadLast1000(state, true); }

void BM_SequentialRead10M(benchmark::State& state) {
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(benchFile().c_str(), BasicFileIO::ReadOnly);
    for (auto _ : state) {
        VirtualArray<unsigned int> array("stsz");
        openArray(array, file);
        FileIoClientRec agent;
        unsigned long sum = 0;
        for (unsigned int i = 0; i < kEntries; ++i) sum += array.elementAt(i, &agent);
        if (sum != 3ul * kEntries * (kEntries - 1) / 2) state.SkipWithError("wrong values read");
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
    state.counters["peak_rss_kb"] = static_cast<double>(peakResidentKb());
}

}  // namespace

BENCHMARK(BM_OpenAndReadLast1000Cold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenAndReadLast1000Warm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SequentialRead10M)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
