// Files that lie about their sizes and counts: each costs time and memory bounded by what the file
// really holds, and every command of qtmovie ends on them with a message, never a signal.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "quicktime/descriptions/QtAtomSampleDesc.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "tests/TestSupport.h"

namespace {

constexpr uint32_t kMax32 = 0xFFFFFFFFu;

// An atom with a wide header giving `size`, or a 32-bit one, whatever the body really is.
Bytes wideAtom(char const* type, uint64_t size, Bytes const& body) {
    return concat({words({1}), Bytes(type, type + 4), words({uint32_t(size >> 32), uint32_t(size)}), body});
}
Bytes lyingAtom(char const* type, uint32_t size, Bytes const& body) {
    return concat({words({size}), Bytes(type, type + 4), body});
}
Bytes repeated(Bytes const& one, int times) {
    Bytes all;
    for (int i = 0; i < times; ++i) putBytes(all, one);
    return all;
}

// A table: version and flags 0, the count, then the words of its entries.
Bytes table(char const* type, uint32_t count, std::vector<uint32_t> const& entries) {
    return atomBytes(type, concat({words({0, count}), words(entries)}));
}
Bytes constantSizes(uint32_t size, uint32_t count) { return atomBytes("stsz", words({0, size, count})); }
Bytes fileType() { return atomBytes("ftyp", Bytes{'q', 't', ' ', ' ', 0, 0, 0, 0, 'q', 't', ' ', ' '}); }

// A video description of 86 bytes followed by `extensions`.
Bytes videoDescriptions(Bytes const& extensions) {
    Bytes entry = words({static_cast<uint32_t>(86 + extensions.size())});
    putType(entry, "avc1");
    Bytes fields(78, 0);
    fields[7] = 1;                         // data reference index
    fields[24] = 0x02, fields[25] = 0x80;  // width 640
    fields[26] = 0x01, fields[27] = 0xE0;  // height 480
    fields[75] = 24;                       // depth
    fields[76] = fields[77] = 0xFF;        // no colour table
    return atomBytes("stsd", concat({words({0, 1}), entry, fields, extensions}));
}

// One video track whose tables a case replaces.
struct Track {
    Bytes stts = table("stts", 1, {4, 1});
    Bytes stsc = table("stsc", 1, {1, 4, 1});
    Bytes stsz = constantSizes(16, 4);
    Bytes stco = table("stco", 1, {28});
    Bytes stsd = table("stsd", 0, {});
    Bytes more;  // further tables, after stco (so that a table that runs past the file can be last)
    bool headerAndEdits = true;
};

// ftyp, an 'mdat' of 64 bytes at offset 20 (its body at 28), then the movie of `change`d track.
Bytes movie(std::function<void(Track&)> const& change) {
    Track track;
    change(track);
    Bytes stbl =
        atomBytes("stbl", concat({track.stsd, track.stts, track.stsc, track.stsz, track.stco, track.more}));
    Bytes hdlr =
        atomBytes("hdlr", concat({words({0}), Bytes{'m', 'h', 'l', 'r', 'v', 'i', 'd', 'e'}, zeros(13)}));
    Bytes trak = atomBytes(
        "mdia", concat({atomBytes("mdhd", words({0, 0, 0, 600, 4, 0})), hdlr, atomBytes("minf", stbl)}));
    if (track.headerAndEdits)
        trak = concat(
            {atomBytes("tkhd", zeros(84)), atomBytes("edts", table("elst", 1, {4, 0, 0x10000})), trak});
    Bytes moov = atomBytes("moov", concat({atomBytes("mvhd", zeros(100)), atomBytes("trak", trak)}));
    return concat({fileType(), atomBytes("mdat", filled(64, 0x5A)), moov});
}

// A table that is the last atom of the file, whose size runs past the end and whose count claims
// four billion entries, one of which is there.
Bytes lastTableRunsPastTheFile(char const* type, bool wide) {
    Bytes body = words({0, kMax32, 1});
    return movie([&](Track& t) {
        t.more = wide ? wideAtom(type, 0x100000000ul, body) : lyingAtom(type, 0xFFFFFFF0u, body);
    });
}

Bytes freeOfSize(uint64_t size) { return concat({fileType(), wideAtom("free", size, {}), fileType()}); }

// An stsd claiming almost 4 GiB, in a sparse file of that length.
Bytes const kHugeStsd = concat({fileType(), lyingAtom("stsd", 0xFFFFFFF0u, words({0, 1}))});
constexpr unsigned long kHugeStsdLength = 20ul + 0xFFFFFFF0ul;

// `bytes` followed by a hole up to `length` bytes (nothing is written there).
void writeSparse(TempFile const& file, Bytes const& bytes, unsigned long length) {
    file.write(bytes);
    if (length > bytes.size() && ::truncate(file.c_str(), static_cast<off_t>(length)) != 0) ADD_FAILURE();
}

struct HostileFile {
    std::string name;
    Bytes bytes;
    unsigned long length = 0;  // when larger than the bytes: a hole up to there
};

std::vector<HostileFile> hostileFiles() {
    Bytes mvhd = atomBytes("mvhd", zeros(100)), empty = atomBytes("free", {});
    return {
        {"no-tkhd-no-elst", movie([](Track& t) { t.headerAndEdits = false; })},
        // Decode times reach 2^63 - 2^31 at sample 2^31 (the first of a second chunk, at the mdat's
        // start), and a composition offset of 2^31 - 1 is added to every sample.
        {"times-near-2^63", movie([](Track& t) {
             t.stts = table("stts", 2, {0x80000000u, kMax32, 16, 0x40000000u});
             t.stsc = table("stsc", 2, {1, 0x80000000u, 1, 2, 16, 1});
             t.stsz = constantSizes(1, 0x80000010u);
             t.stco = table("stco", 2, {28, 28});
             t.more = table("ctts", 1, {0x80000010u, 0x7FFFFFFFu});
         })},
        {"stss-past-the-file", lastTableRunsPastTheFile("stss", false)},
        {"ctts-past-the-file", lastTableRunsPastTheFile("ctts", true)},
        // One chunk of 2^32 - 1 samples of one byte each, in a file of a few hundred bytes.
        {"one-huge-chunk", movie([](Track& t) {
             t.stts = table("stts", 1, {kMax32, 1});
             t.stsc = table("stsc", 1, {1, kMax32, 1});
             t.stsz = constantSizes(1, kMax32);
         })},
        {"many-siblings", concat({fileType(), atomBytes("moov", concat({mvhd, repeated(empty, 131072)}))})},
        {"many-extensions",
         movie([](Track& t) { t.stsd = videoDescriptions(repeated(atomBytes("zzzz", {}), 100000)); })},
        {"top-level-flood", concat({fileType(), repeated(empty, 20000)})},
        {"4GiB-stsd", kHugeStsd, kHugeStsdLength},
        {"size-wraps-offset", freeOfSize(0ul - 20ul)},
        {"size-below-wide-header", freeOfSize(12)},
        {"size-2^63", freeOfSize(1ul << 63)},
        {"stsz-count-too-large", movie([](Track& t) {
             t.stsz = atomBytes("stsz", words({0, 0, 1000, 16, 16}));
         })},
        {"stco-count-too-large", movie([](Track& t) { t.stco = table("stco", 1000, {28}); })},
        {"stsc-count-too-large", movie([](Track& t) {
             t.stsc = table("stsc", 1000, {1, 4, 1});
         })},
    };
}

struct ToolRun {
    bool exited = false;
    int status = -1;
    double seconds = 0;
    long maxRssKb = 0;
    std::string output;
};

// The peak resident size of a running process's present program, 0 once it has ended.
long peakRssKb(pid_t pid) {
    std::string status = readFileText("/proc/" + std::to_string(pid) + "/status");
    size_t at = status.find("VmHWM:");
    return at == std::string::npos ? 0 : std::strtol(status.c_str() + at + 6, nullptr, 10);
}

// Runs qtmovie with its output in a file of bounded size, kills it after `limit` seconds, and
// reports how it ended, how long it took and its peak memory, sampled from the program itself.
ToolRun runLimited(std::string const& arguments, std::string const& outputPath, double limit) {
    ToolRun run;
    auto start = std::chrono::steady_clock::now();
    auto elapsed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    std::string line = "ulimit -f 131072 && exec '" + std::string(QT_QTMOVIE_PATH) + "' " + arguments +
                       " >'" + outputPath + "' 2>&1";
    char const* argv[] = {"/bin/sh", "-c", line.c_str(), nullptr};
    pid_t pid;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, const_cast<char**>(argv), environ) != 0) return run;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        run.maxRssKb = std::max(run.maxRssKb, peakRssKb(pid));
        if (elapsed() > limit) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    run.seconds = elapsed();
    run.exited = WIFEXITED(status);
    run.status = run.exited ? WEXITSTATUS(status) : -WTERMSIG(status);
    run.output = readFileText(outputPath).substr(0, 4096);
    return run;
}

// The sanitizers' own bookkeeping comes on top of what the program needs.
constexpr double kSlowdown = kSanitized ? 4 : 1;
constexpr double kSecondsLimit = 5 * kSlowdown;
constexpr long kMemoryLimitKb = static_cast<long>(64 * 1024 * kSlowdown);

}  // namespace

TEST(HostileInput, AtomTooLargeToBufferIsKeptUninterpretedWithAWarning) {
    TempFile file;
    writeSparse(file, kHugeStsd, kHugeStsdLength);
    MessageCapture messages;
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(file.c_str());
    ASSERT_TRUE(root);
    BaseQtAtom const* stsd = root->findAtom("stsd", 0);
    ASSERT_NE(stsd, nullptr);
    EXPECT_EQ(dynamic_cast<QtAtomSampleDesc const*>(stsd), nullptr);
    EXPECT_EQ(stsd->getSize(), 0xFFFFFFF0ul);
    EXPECT_TRUE(messages.contains("larger than the 8388608 bytes read at once")) << messages.all();
}

TEST(HostileInput, ImpossibleWideSizesEndTheirLevelWithAMessage) {
    using Case = std::pair<unsigned long, char const*>;  // the size, what the reader says of it
    for (auto [size, says] :
         {Case{0ul - 20ul, "larger than any file"}, Case{12, "smaller than its 16-byte header"},
          Case{1ul << 63, "larger than any file"}}) {
        TempFile file;
        file.write(freeOfSize(size));
        MessageCapture messages;
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(file.c_str());
        ASSERT_TRUE(root);
        EXPECT_EQ(root->countChildren(), 1u) << size;
        EXPECT_TRUE(messages.contains(says)) << messages.all();
    }
}

TEST(HostileInput, EveryCommandEndsOnEveryHostileFileInBoundedTimeAndMemory) {
    for (HostileFile const& hostile : hostileFiles()) {
        TempFile file(hostile.name + ".mov");
        TempFile output("output.txt");
        writeSparse(file, hostile.bytes, hostile.length);
        for (char const* command : {"dump", "info", "samples", "check"}) {
            ToolRun run =
                runLimited(std::string(command) + " '" + file.path() + "'", output.path(), kSecondsLimit);
            SCOPED_TRACE(hostile.name + " " + command + ": " + run.output);
            EXPECT_TRUE(run.exited && (run.status == 0 || run.status == 1)) << "status " << run.status;
            EXPECT_LT(run.seconds, kSecondsLimit);
            EXPECT_LT(run.maxRssKb, kMemoryLimitKb);
            EXPECT_FALSE(run.output.empty());
        }
    }
}
