// qtmovie check: counts the movie atoms on disk, fails unless there is exactly one, and shows the
// top-level layout.
#include <gtest/gtest.h>

#include "tests/tools/QtMovieRun.h"

TEST(QtMovieCheck, CountsTheMoovOnDiskAndShowsTheTopLevelLayout) {
    Bytes ftyp = atomBytes("ftyp", filled(12, 'f')), mvhd = atomBytes("mvhd", filled(100, 'h'));
    struct Case {
        Bytes movie;
        int status;
        std::vector<std::string> says;
    } const cases[] = {
        {readFileBytes(testDataPath("co64.mov")), 0,
         {"1 moov, 0 skip on disk\n", "  ftyp @0 20\n  wide @20 8\n  mdat @28 499914\n  moov @499942 11092\n"}},
        {concat({ftyp, atomBytes("moov", mvhd), atomBytes("moov", mvhd)}), 1,
         {": check: 0 skip, 2 moov: ftyp@0 moov@20={moov@", "2 moov, 0 skip on disk\n"}},
        // A relocated copy still under skip is not a moov.
        {concat({ftyp, atomBytes("skip", mvhd), atomBytes("skip", mvhd)}), 1,
         {"0 moov, 2 skip on disk, no movie atom\n  ftyp @0 20\n  skip @20 116\n  skip @136 116\n"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.says[0]);
        TempFile temp;
        temp.write(c.movie);
        CommandRun run = runQtMovie("check '" + temp.path() + "'");
        EXPECT_EQ(run.status, c.status) << run.all();
        for (std::string const& text : c.says) EXPECT_NE(run.all().find(text), std::string::npos) << run.all();
    }
}
