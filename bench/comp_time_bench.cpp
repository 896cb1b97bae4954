// Frame type and display time of random frames of a 10-million-frame long-GOP track (the file of
// make_huge.py: GOP of 50, 6.6 million composition runs, disk-backed), through one reader's agent.
// The first pass over the table fills the anchors; after it every frame is answered from the
// nearest anchor through its unit's frame set. The baseline decodes the whole table into a vector
// of per-frame types and offsets and looks frames up there.
//
// The file is named by QT_HUGE_MOV (make it with `python3 make_huge.py 10000000 FILE`).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "framework/FileIoClientRec.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomSampleSync.h"

namespace {

constexpr unsigned int kRandomFrames = 10000;
constexpr unsigned int kTicks = 100;

char const* hugeFile() {
    char const* path = getenv("QT_HUGE_MOV");
    return path ? path : "";
}

// The table of a freshly opened file (no anchors yet).
struct Movie {
    Movie() : root(QtAtomReader::readFile(hugeFile())) {
        BaseQtAtom const* atom = root ? root->findAtom("moov.trak.mdia.minf.stbl.ctts", 0) : nullptr;
        ctts = dynamic_cast<QtAtomCompTime const*>(atom);
    }
    AutoPtr<QtAtomRoot> root;
    QtAtomCompTime const* ctts = nullptr;
};

unsigned long frameCount(QtAtomCompTime const& ctts) {
    unsigned long n = 0;
    for (unsigned int i = 0; i < ctts.getNumEntries(); ++i) n += ctts.getEntry(i, nullptr).count;
    return n;
}

std::vector<uint32_t> randomFrames(unsigned long frames) {
    std::vector<uint32_t> out(kRandomFrames);
    std::mt19937 random(7);
    for (uint32_t& f : out) f = static_cast<uint32_t>(random() % frames);
    return out;
}

// What make_huge.py writes: I P (B B P)... per GOP of 50; offsets 300 for I and P, 0 for B.
char expectedType(uint32_t frame) {
    unsigned int k = frame % 50;
    if (k == 0) return 'I';
    return k % 3 == 1 ? 'P' : 'B';
}

// One pass over the whole table from a freshly opened file: what a reader's first far lookup costs.
void BM_FirstLookupFillsAnchors(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        Movie movie;
        if (!movie.ctts) {
            state.SkipWithError("set QT_HUGE_MOV to the file of make_huge.py 10000000");
            return;
        }
        FileIoClientRec agent;
        state.ResumeTiming();
        benchmark::DoNotOptimize(movie.ctts->getSample(9999990, &agent));
    }
}
BENCHMARK(BM_FirstLookupFillsAnchors)->Unit(benchmark::kMillisecond)->Iterations(3);

// Argument: the agent's page budget (16 KiB pages) for the sync table; the runs are read in bulk.
void BM_TypeAndDisplayTimeRandom(benchmark::State& state) {
    static Movie movie;
    if (!movie.ctts) {
        state.SkipWithError("set QT_HUGE_MOV to the file of make_huge.py 10000000");
        return;
    }
    static unsigned long frames = frameCount(*movie.ctts);
    static std::vector<uint32_t> const asked = randomFrames(frames);
    FileIoClientRec agent(static_cast<unsigned int>(state.range(0)));
    movie.ctts->getSample(frames - 1, &agent);  // the one pass that fills the anchors
    unsigned int i = 0, wrong = 0;
    for (auto _ : state) {
        uint32_t frame = asked[i];
        QtAtomCompTime::Sample sample = movie.ctts->getSample(frame, &agent);
        long display = (static_cast<long>(frame) + sample.offset + 1) * kTicks;  // no 'cslg': one frame up
        benchmark::DoNotOptimize(display);
        wrong += sampleCodingLetter(sample.type) != expectedType(frame);
        if (++i == kRandomFrames) i = 0;
    }
    if (wrong) state.SkipWithError("wrong frame types");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TypeAndDisplayTimeRandom)->Arg(FileIoClientRec::kDefaultPageBudget)->Arg(64);

// The baseline: the whole table decoded into a vector, one (type, offset) per frame.
struct Decoded {
    std::vector<uint8_t> type;
    std::vector<int32_t> offset;
};

Decoded decodeAll(QtAtomCompTime const& ctts, QtAtomSampleSync const& stss, FileIoClientRec* agent) {
    Decoded out;
    std::vector<bool> key;
    for (unsigned int i = 0; i < stss.size(); ++i) {
        unsigned int k = stss.getKey(i, agent);
        if (k >= key.size()) key.resize(k + 1);
        key[k] = true;
    }
    std::vector<QtAtomCompTime::DiskEntry> runs(ctts.getNumEntries());
    ctts.getArray().readElements(0, ctts.getNumEntries(), agent, runs.data());
    for (QtAtomCompTime::DiskEntry const& run : runs) {
        for (unsigned int k = 0; k < run.count; ++k) {
            size_t frame = out.type.size();
            out.type.push_back(run.offset == 0 ? SampleCodingB
                               : frame < key.size() && key[frame] ? SampleCodingI
                                                                   : SampleCodingP);
            out.offset.push_back(run.offset);
        }
    }
    return out;
}

void BM_VectorDecodeWholeTable(benchmark::State& state) {
    static Movie movie;
    if (!movie.ctts) {
        state.SkipWithError("set QT_HUGE_MOV to the file of make_huge.py 10000000");
        return;
    }
    FileIoClientRec agent;
    for (auto _ : state) benchmark::DoNotOptimize(decodeAll(*movie.ctts, *movie.ctts->getStss(), &agent));
}
BENCHMARK(BM_VectorDecodeWholeTable)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_VectorRandom(benchmark::State& state) {
    static Movie movie;
    if (!movie.ctts) {
        state.SkipWithError("set QT_HUGE_MOV to the file of make_huge.py 10000000");
        return;
    }
    FileIoClientRec agent;
    static Decoded decoded = decodeAll(*movie.ctts, *movie.ctts->getStss(), &agent);
    static std::vector<uint32_t> const asked = randomFrames(decoded.type.size());
    unsigned int i = 0, wrong = 0;
    for (auto _ : state) {
        uint32_t frame = asked[i];
        long display = static_cast<long>(frame) * kTicks + decoded.offset[frame];
        benchmark::DoNotOptimize(display);
        wrong += sampleCodingLetter(decoded.type[frame]) != expectedType(frame);
        if (++i == kRandomFrames) i = 0;
    }
    if (wrong) state.SkipWithError("wrong frame types");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_VectorRandom);

}  // namespace

BENCHMARK_MAIN();
