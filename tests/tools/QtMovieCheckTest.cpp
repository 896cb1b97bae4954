// qtmovie check: run the program on real and crafted files and read what it prints and returns.
#include <gtest/gtest.h>

#include "tests/layout/LayoutTestSupport.h"
#include "tests/tools/QtMovieRun.h"

namespace {

CommandRun runCheck(std::string const& path) { return runQtMovie("check '" + path + "'"); }

}  // namespace

TEST(QtMovieCheck, MovieWithOneMoovPassesAndShowsTheTopLevelLayout) {
    CommandRun run = runCheck(testDataPath("co64.mov"));
    EXPECT_EQ(run.status, 0) << run.all();
    EXPECT_NE(run.all().find("1 moov, 0 skip on disk\n"), std::string::npos) << run.all();
    EXPECT_NE(run.all().find("  ftyp @0 20\n  wide @20 8\n  mdat @28 499914\n  moov @499942 11092\n"),
              std::string::npos)
        << run.all();
}

TEST(QtMovieCheck, TwoMoovOnDiskFailAndAreReported) {
    TempFile temp;
    Bytes movie = atomBytes("moov", atomBytes("mvhd", filled(100, 'h')));
    temp.write(concat({atomBytes("ftyp", filled(12, 'f')), movie, movie}));
    CommandRun run = runCheck(temp.path());
    EXPECT_EQ(run.status, 1) << run.all();
    EXPECT_NE(run.all().find(": check: 0 skip, 2 moov: ftyp@0 moov@20={moov@"), std::string::npos)
        << run.all();
    EXPECT_NE(run.all().find("2 moov, 0 skip on disk\n"), std::string::npos) << run.all();
}

TEST(QtMovieCheck, RelocatedCopyStillUnderSkipIsNotAMoov) {
    TempFile temp;
    Bytes body = atomBytes("mvhd", filled(100, 'h'));
    temp.write(
        concat({atomBytes("ftyp", filled(12, 'f')), atomBytes("skip", body), atomBytes("skip", body)}));
    CommandRun run = runCheck(temp.path());
    EXPECT_EQ(run.status, 1) << run.all();
    EXPECT_NE(run.all().find(
                  "0 moov, 2 skip on disk, no movie atom\n  ftyp @0 20\n  skip @20 116\n  skip @136 116\n"),
              std::string::npos)
        << run.all();
}
