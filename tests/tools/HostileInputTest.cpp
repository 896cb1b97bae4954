// Files that lie about their sizes and counts: each costs time and memory bounded by what the file
// really holds, and every command of qtmovie ends on them with a message, never a signal.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <chrono>
#include <climits>
#include <functional>
#include <thread>

#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/descriptions/QtAtomSampleDesc.h"
#include "quicktime/descriptions/QtVideoSampleDesc.h"
#include "quicktime/descriptions/Qtx.h"
#include "quicktime/descriptions/QtxAtom.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomSampleSync.h"
#include "quicktime/tables/QtSampleTable.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tests/tools/HostileMovies.h"

using namespace hostile;

namespace {

constexpr uint32_t kMax32 = 0xFFFFFFFFu;

// Decode times reach 2^63 - 2^31 at sample 2^31 (the first of a second chunk, at the mdat's start),
// and a composition offset of 2^31 - 1 is added to every sample.
Track timesNear2To63() {
    Track track;
    track.stts = table("stts", 2, {0x80000000u, kMax32, 16, 0x40000000u});
    track.stsc = table("stsc", 2, {1, 0x80000000u, 1, 2, 16, 1});
    track.stsz = constantSizes(1, 0x80000010u);
    track.stco = table("stco", 2, {28, 28});
    track.more = table("ctts", 1, {0x80000010u, 0x7FFFFFFFu});
    return track;
}

// One chunk of 2^32 - 1 samples of one byte each, in a file of a few hundred bytes.
Track oneHugeChunk() {
    Track track;
    track.stts = table("stts", 1, {kMax32, 1});
    track.stsc = table("stsc", 1, {1, kMax32, 1});
    track.stsz = constantSizes(1, kMax32);
    return track;
}

// A table that is the last atom of the file, whose size runs past the end and whose count claims
// four billion entries, one of which is there.
Track lastTableRunsPastTheFile(char const* type, bool wide) {
    Track track;
    Bytes body = words({0, kMax32, 1});
    track.more = wide ? wideAtom(type, 0x100000000ul, body) : lyingAtom(type, 0xFFFFFFF0u, body);
    return track;
}

Track withoutTrackHeaderOrEdits() {
    Track track;
    track.trackHeader = false;
    track.editList = false;
    return track;
}

Bytes manySiblings() {
    Bytes frees;
    for (int i = 0; i < 131072; ++i) {
        Bytes one = atomBytes("free", {});
        frees.insert(frees.end(), one.begin(), one.end());
    }
    return concat({fileType(), atomBytes("moov", concat({atomBytes("mvhd", filled(100, 0)), frees}))});
}

Bytes manyExtensions() {
    Bytes extensions;
    for (int i = 0; i < 100000; ++i) {
        Bytes one = atomBytes("zzzz", {});
        extensions.insert(extensions.end(), one.begin(), one.end());
    }
    Track track;
    track.stsd = videoDescriptions(extensions);
    return movie(track);
}

Bytes topLevelFlood() {
    Bytes all = fileType();
    for (int i = 0; i < 20000; ++i) {
        Bytes one = atomBytes("free", {});
        all.insert(all.end(), one.begin(), one.end());
    }
    return all;
}

Bytes countsLargerThanAtom(char const* type) {
    Track track;
    if (std::string(type) == "stsz") track.stsz = atomBytes("stsz", words({0, 0, 1000, 16, 16}));
    if (std::string(type) == "stco") track.stco = table("stco", 1000, {28});
    if (std::string(type) == "co64") track.stco = table("co64", 1000, {0, 28});
    if (std::string(type) == "stsc") track.stsc = table("stsc", 1000, {1, 4, 1});
    return movie(track);
}

struct HostileFile {
    std::string name;
    std::function<void(std::string const&)> write;
};

void writeBytes(std::string const& path, Bytes const& bytes) { writeSparse(path, bytes, bytes.size()); }

std::vector<HostileFile> hostileFiles() {
    auto plain = [](Bytes bytes) { return [bytes](std::string const& path) { writeBytes(path, bytes); }; };
    return {
        {"no-tkhd-no-elst", plain(movie(withoutTrackHeaderOrEdits()))},
        {"times-near-2^63", plain(movie(timesNear2To63()))},
        {"stss-past-the-file", plain(movie(lastTableRunsPastTheFile("stss", false)))},
        {"ctts-past-the-file", plain(movie(lastTableRunsPastTheFile("ctts", true)))},
        {"one-huge-chunk", plain(movie(oneHugeChunk()))},
        {"many-siblings", plain(manySiblings())},
        {"many-extensions", plain(manyExtensions())},
        {"top-level-flood", plain(topLevelFlood())},
        {"4GiB-stsd",
         [](std::string const& path) {
             writeSparse(path, concat({fileType(), lyingAtom("stsd", 0xFFFFFFF0u, words({0, 1}))}),
                         20ul + 0xFFFFFFF0ul);
         }},
        {"size-wraps-offset", plain(concat({fileType(), wideAtom("free", 0ul - 20ul, {}), fileType()}))},
        {"size-below-wide-header", plain(concat({fileType(), wideAtom("free", 12, {}), fileType()}))},
        {"size-2^63", plain(concat({fileType(), wideAtom("free", 1ul << 63, {}), fileType()}))},
        {"stsz-count-too-large", plain(countsLargerThanAtom("stsz"))},
        {"stco-count-too-large", plain(countsLargerThanAtom("stco"))},
        {"stsc-count-too-large", plain(countsLargerThanAtom("stsc"))},
    };
}

AutoPtr<QtAtomRoot> readBytes(TempFile const& file, Bytes const& bytes) {
    file.write(bytes);
    return QtAtomReader::readFile(file.c_str());
}

}  // namespace

TEST(HostileInput, AtomTooLargeToBufferIsKeptUninterpretedWithAWarning) {
    TempFile file;
    writeSparse(file.path(), concat({fileType(), lyingAtom("stsd", 0xFFFFFFF0u, words({0, 1}))}), 20ul + 0xFFFFFFF0ul);
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
    struct Case {
        unsigned long size;
        char const* says;
    };
    for (Case c : {Case{0ul - 20ul, "larger than any file"}, Case{12, "smaller than its 16-byte header"},
                   Case{1ul << 63, "larger than any file"}}) {
        TempFile file;
        MessageCapture messages;
        AutoPtr<QtAtomRoot> root = readBytes(file, concat({fileType(), wideAtom("free", c.size, {}), fileType()}));
        ASSERT_TRUE(root);
        EXPECT_EQ(root->countChildren(), 1u) << c.size;
        EXPECT_TRUE(messages.contains(c.says)) << messages.all();
    }
}

namespace {

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

// Runs qtmovie with its output in a file, kills it after `limit` seconds, and reports how it ended,
// how long it took and its peak memory. The peak is sampled from the program itself after exec:
// the rusage of a forked child also counts the copy of this (possibly large) test process that
// it was before exec.
ToolRun runLimited(std::vector<std::string> const& args, std::string const& outputPath, double limit) {
    ToolRun run;
    auto start = std::chrono::steady_clock::now();
    int execGate[2];
    if (pipe2(execGate, O_CLOEXEC) != 0) return run;
    pid_t pid = fork();
    if (pid == 0) {
        close(execGate[0]);
        int fd = ::open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, 1);
        dup2(fd, 2);
        struct rlimit fileSize = {64ul << 20, 64ul << 20};
        setrlimit(RLIMIT_FSIZE, &fileSize);
        std::vector<char*> argv{const_cast<char*>(QT_QTMOVIE_PATH)};
        for (std::string const& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(execGate[1]);
    char ignored;
    while (read(execGate[0], &ignored, 1) > 0) {
    }
    close(execGate[0]);
    int status = 0;
    struct rusage usage {};
    while (wait4(pid, &status, WNOHANG, &usage) == 0) {
        run.maxRssKb = std::max(run.maxRssKb, peakRssKb(pid));
        if (std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() > limit) {
            kill(pid, SIGKILL);
            wait4(pid, &status, 0, &usage);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
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

TEST(HostileInput, EveryCommandEndsOnEveryHostileFileInBoundedTimeAndMemory) {
    for (HostileFile const& hostile : hostileFiles()) {
        TempFile file(hostile.name + ".mov");
        TempFile output("output.txt");
        hostile.write(file.path());
        for (char const* command : {"dump", "info", "samples", "check"}) {
            ToolRun run = runLimited({command, file.path()}, output.path(), kSecondsLimit);
            SCOPED_TRACE(hostile.name + " " + command + ": " + run.output);
            EXPECT_TRUE(run.exited && (run.status == 0 || run.status == 1)) << "status " << run.status;
            EXPECT_LT(run.seconds, kSecondsLimit);
            EXPECT_LT(run.maxRssKb, kMemoryLimitKb);
            EXPECT_FALSE(run.output.empty());
        }
    }
}
