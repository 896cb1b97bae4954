// The sample size table of a long recording: open a movie whose 'stsz' holds 10 million sizes and
// read its last 1000 (time, and resident memory counters), and read all 10 million in order.
//
// The movie is the one /work/shared/tools/make_huge.py writes (`make_huge.py 10000000 OUT`), named
// by the environment variable QT_HUGE_MOVIE. Without it the benchmark writes a movie of the same
// shape itself (ftyp, a sparse mdat, moov with stts, stsc, stsz and co64) to a temporary file.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "framework/FileIoClientRec.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "bench/BenchSupport.h"

namespace {

constexpr unsigned int kSamples = 10000000;
constexpr unsigned int kSamplesPerChunk = 10;

unsigned int sizeOf(unsigned int sample) { return static_cast<unsigned int>(sample * 2654435761ul % 31 + 10); }

void put32(std::vector<unsigned char>& out, unsigned long v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<unsigned char>(v >> shift));
}
void put64(std::vector<unsigned char>& out, unsigned long v) {
    put32(out, v >> 32);
    put32(out, v & 0xFFFFFFFFul);
}
std::vector<unsigned char> atom(char const* type, std::vector<unsigned char> const& body) {
    std::vector<unsigned char> out;
    put32(out, 8 + body.size());
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

std::vector<unsigned char> header(char const* type, unsigned long size) {
    std::vector<unsigned char> out;
    put32(out, size);
    out.insert(out.end(), type, type + 4);
    return out;
}

// Streams the entries a megabyte at a time, so that writing the movie does not itself take the
// memory the benchmark measures.
class Streamer {
public:
    Streamer(int fd, unsigned long offset) : m_fd(fd), m_offset(offset) {}
    ~Streamer() { drain(); }
    void add(std::vector<unsigned char> const& bytes) {
        m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
        if (m_buffer.size() >= (1u << 20)) drain();
    }
    void drain() {
        if (!m_buffer.empty() && pwrite(m_fd, m_buffer.data(), m_buffer.size(), static_cast<off_t>(m_offset)) > 0)
            m_offset += m_buffer.size();
        m_buffer.clear();
    }

private:
    int m_fd;
    unsigned long m_offset;
    std::vector<unsigned char> m_buffer;
};

std::string writeMovie() {
    char name[] = "/tmp/qt_bench_stsz_XXXXXX";
    int fd = mkstemp(name);
    std::vector<unsigned char> head = atom("ftyp", {'q', 't', ' ', ' ', 0, 0, 2, 0, 'q', 't', ' ', ' '});
    unsigned long dataOffset = head.size() + 16, total = 0;
    for (unsigned int i = 0; i < kSamples; ++i) total += sizeOf(i);
    unsigned int chunks = (kSamples + kSamplesPerChunk - 1) / kSamplesPerChunk;
    std::vector<unsigned char> stts, stsc;
    put32(stts, 0), put32(stts, 1), put32(stts, kSamples), put32(stts, 100);
    put32(stsc, 0), put32(stsc, 1), put32(stsc, 1), put32(stsc, kSamplesPerChunk), put32(stsc, 1);
    unsigned long stszSize = 20 + 4ul * kSamples, co64Size = 16 + 8ul * chunks;
    unsigned long stblSize = 8 + (8 + stts.size()) + (8 + stsc.size()) + stszSize + co64Size;
    Streamer out(fd, 0);
    out.add(head);
    std::vector<unsigned char> mdat = header("mdat", 1);
    put64(mdat, 16 + total);
    out.add(mdat);
    out.drain();
    Streamer movie(fd, dataOffset + total);
    movie.add(header("moov", stblSize + 32));
    movie.add(header("trak", stblSize + 24));
    movie.add(header("mdia", stblSize + 16));
    movie.add(header("minf", stblSize + 8));
    movie.add(header("stbl", stblSize));
    movie.add(atom("stts", stts));
    movie.add(atom("stsc", stsc));
    std::vector<unsigned char> entries = header("stsz", stszSize);
    put32(entries, 0), put32(entries, 0), put32(entries, kSamples);
    movie.add(entries);
    for (unsigned int i = 0; i < kSamples; ++i) {
        entries.clear();
        put32(entries, sizeOf(i));
        movie.add(entries);
    }
    entries = header("co64", co64Size);
    put32(entries, 0), put32(entries, chunks);
    movie.add(entries);
    unsigned long at = dataOffset;
    for (unsigned int i = 0; i < kSamples; ++i) {
        if (i % kSamplesPerChunk == 0) {
            entries.clear();
            put64(entries, at);
            movie.add(entries);
        }
        at += sizeOf(i);
    }
    movie.drain();
    close(fd);
    return name;
}

std::string const& moviePath() {
    static std::string path = [] {
        if (char const* given = getenv("QT_HUGE_MOVIE")) return std::string(given);
        std::string written = writeMovie();
        static std::string toRemove = written;
        std::atexit([] { unlink(toRemove.c_str()); });
        return written;
    }();
    return path;
}

long peakResidentKb() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void dropFromPageCache(std::string const& path) {
    int fd = open(path.c_str(), O_RDONLY);
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    close(fd);
}

QtAtomSampleSize const* sampleSizes(QtAtomRoot const& root) {
    return dynamic_cast<QtAtomSampleSize const*>(root.findAtom("moov.trak.mdia.minf.stbl.stsz", 0));
}

void openAndReadLast1000(benchmark::State& state, bool cold) {
    std::string const& path = moviePath();
    long before = residentKb();
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            dropFromPageCache(path);
            state.ResumeTiming();
        }
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
        QtAtomSampleSize const* stsz = root ? sampleSizes(*root) : nullptr;
        if (!stsz || stsz->getSampleCount() < 1000) {
            state.SkipWithError("no sample size table of 1000 or more samples");
            break;
        }
        FileIoClientRec agent;
        unsigned long sum = 0;
        for (unsigned int i = stsz->getSampleCount() - 1000; i < stsz->getSampleCount(); ++i)
            sum += stsz->getSampleSize(i, 1, &agent);
        benchmark::DoNotOptimize(sum);
    }
    state.counters["rss_kb_before"] = static_cast<double>(before);
    state.counters["rss_kb"] = static_cast<double>(residentKb());
    state.counters["peak_rss_kb"] = static_cast<double>(peakResidentKb());
}

void BM_OpenAndReadLast1000SizesCold(benchmark::State& state) { openAndReadLast1000(state, true); }
void BM_OpenAndReadLast1000SizesWarm(benchmark::State& state) { openAndReadLast1000(state, false); }

void BM_ReadAllSizesInOrder(benchmark::State& state) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(moviePath().c_str());
    QtAtomSampleSize const* stsz = root ? sampleSizes(*root) : nullptr;
    if (!stsz) {
        state.SkipWithError("no sample size table");
        return;
    }
    unsigned int count = stsz->getSampleCount();
    for (auto _ : state) {
        FileIoClientRec agent;
        unsigned long sum = 0;
        for (unsigned int i = 0; i < count; ++i) sum += stsz->getSampleSize(i, 1, &agent);
        benchmark::DoNotOptimize(sum);
        stsz->closeVirtualTable(&agent);
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.counters["peak_rss_kb"] = static_cast<double>(peakResidentKb());
}

}  // namespace

BENCHMARK(BM_OpenAndReadLast1000SizesCold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenAndReadLast1000SizesWarm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadAllSizesInOrder)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
