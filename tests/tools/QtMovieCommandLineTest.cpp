// qtmovie's command line as users of ffprobe-like tools expect it: help on stdout with status 0,
// one line and status 2 for what it cannot run, for every command the program lists.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/tools/QtMovieRun.h"

namespace {

size_t lineCount(std::string const& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

TEST(QtMovieCommandLine, HelpOfTheProgramAndOfEachCommandGoesToStdoutWithStatus0) {
    CommandRun help = runQtMovie("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    std::vector<std::string> commands = listedCommands();
    for (char const* expected : {"check", "copy", "dump", "info", "samples"})
        EXPECT_NE(std::find(commands.begin(), commands.end(), expected), commands.end()) << expected;
    for (std::string const& command : commands) {
        for (char const* option : {"--help", "-h"}) {
            CommandRun run = runQtMovie(command + " " + option);
            EXPECT_EQ(run.status, 0) << command << " " << option;
            EXPECT_EQ(run.err, "") << command;
            EXPECT_EQ(run.out.rfind("usage: qtmovie " + command, 0), 0u) << run.out;
        }
    }
    CommandRun version = runQtMovie("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("qtmovie ", 0), 0u);
    EXPECT_EQ(lineCount(version.out), 1u);
}

TEST(QtMovieCommandLine, UnknownOptionsAreRefusedWithOneLineAndStatus2) {
    std::vector<std::string> commands = listedCommands();
    commands.push_back("");  // the program's own options
    for (std::string const& command : commands) {
        CommandRun run = runQtMovie(command + " --no-such-option samples/sample.mov");
        EXPECT_EQ(run.status, 2) << command;
        EXPECT_EQ(run.out, "") << command;
        EXPECT_EQ(lineCount(run.err), 1u) << command << ": " << run.err;
        EXPECT_NE(run.err.find("--no-such-option"), std::string::npos) << run.err;
    }
    CommandRun bare = runQtMovie("");
    EXPECT_EQ(bare.status, 2);
    EXPECT_EQ(bare.out, "");
}

TEST(QtMovieCommandLine, OptionValuesAreRequiredAndMayFollowAnEqualsSign) {
    std::string movie = "'" + testDataPath("h264_bframes_aac_tc.mov") + "'";
    CommandRun apart = runQtMovie("samples " + movie + " --track 2 --from 5 --count 3");
    CommandRun joined = runQtMovie("samples --track=2 --from=5 " + movie + " --count=3");
    EXPECT_EQ(apart.status, 0);
    EXPECT_EQ(lineCount(apart.out), 4u);
    EXPECT_EQ(joined.out, apart.out);
    for (char const* wrong :
         {"samples --track", "samples --count=x", "info --json=yes", "dump a.mov b.mov", "info", "info a.mov b.mov"}) {
        CommandRun run = runQtMovie(wrong);
        EXPECT_EQ(run.status, 2) << wrong;
        EXPECT_EQ(lineCount(run.err), 1u) << wrong << ": " << run.err;
    }
    EXPECT_EQ(runQtMovie("info /nonexistent/movie.mov").status, 1);  // runnable, but no movie there
}
