// qtmovie check: run the program on real and crafted files and read what it prints and returns.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

namespace {

struct CheckRun {
    int status;
    std::string output;
};

CheckRun runCheck(std::string const& path) {
    std::string command = std::string(QT_QTMOVIE_PATH) + " check '" + path + "' 2>&1";
    CheckRun run{-1, ""};
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return run;
    char chunk[512];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, pipe)) > 0) run.output.append(chunk, got);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

}  // namespace

TEST(QtMovieCheck, MovieWithOneMoovPassesAndShowsTheTopLevelLayout) {
    CheckRun run = runCheck(testDataPath("co64.mov"));
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("1 moov, 0 skip on disk\n"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("  ftyp @0 20\n  wide @20 8\n  mdat @28 499914\n  moov @499942 11092\n"),
              std::string::npos)
        << run.output;
}

TEST(QtMovieCheck, TwoMoovOnDiskFailAndAreReported) {
    TempFile temp;
    std::vector<unsigned char> movie = atomBytes("moov", atomBytes("mvhd", filled(100, 'h')));
    temp.write(concat({atomBytes("ftyp", filled(12, 'f')), movie, movie}));
    CheckRun run = runCheck(temp.path());
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_NE(run.output.find(": check: 0 skip, 2 moov: ftyp@0 moov@20={moov@"), std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("2 moov, 0 skip on disk\n"), std::string::npos) << run.output;
}

TEST(QtMovieCheck, RelocatedCopyStillUnderSkipIsNotAMoov) {
    TempFile temp;
    std::vector<unsigned char> body = atomBytes("mvhd", filled(100, 'h'));
    temp.write(
        concat({atomBytes("ftyp", filled(12, 'f')), atomBytes("skip", body), atomBytes("skip", body)}));
    CheckRun run = runCheck(temp.path());
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_NE(run.output.find(
                  "0 moov, 2 skip on disk, no movie atom\n  ftyp @0 20\n  skip @20 116\n  skip @136 116\n"),
              std::string::npos)
        << run.output;
}
