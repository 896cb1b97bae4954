// qtmovie timecode: the start timecodes of the real movies against their expectations and ffprobe,
// and --set on copies of them, judged byte for byte and by ffprobe.
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/tools/QtMovieRun.h"

namespace {

CommandRun timecode(std::string const& path, std::string const& options = "") {
    return runQtMovie("timecode '" + path + "' " + options);
}

bool haveFfprobe() { return system("command -v ffprobe >/dev/null 2>&1") == 0; }

// The file offset of a track's first sample, from the frozen samples.csv of the movie.
unsigned long firstSampleOffset(std::string const& movie, unsigned int track) {
    std::istringstream rows(readFileText(testDataPath(movie + ".samples.csv")));
    std::string row, prefix = std::to_string(track) + ",0,";
    while (std::getline(rows, row))
        if (row.rfind(prefix, 0) == 0) return std::stoul(row.substr(prefix.size()));
    return 0;
}

}  // namespace

TEST(QtMovieTimecode, PrintsTheStartTimecodesOfTheExpectationsAndOfFfprobe) {
    std::regex tag("\"timecode\": \"([^\"]*)\"");
    unsigned int timecodeTracks = 0;
    for (std::string const& movie : corpusMovies()) {
        SCOPED_TRACE(movie);
        CommandRun listed = timecode(testDataPath(movie));
        EXPECT_EQ(listed.status, 0);
        std::string expected = readFileText(testDataPath(movie + ".timecode.txt"));
        EXPECT_EQ(listed.all(), expected);
        // Every file has at most one timecode track; ffprobe tags it and the video stream it serves.
        std::string ffprobe = readFileText(testDataPath(movie + ".ffprobe.json"));
        for (std::sregex_iterator it(ffprobe.begin(), ffprobe.end(), tag), end; it != end; ++it)
            EXPECT_EQ("3," + (*it)[1].str() + "\n", listed.all());
        timecodeTracks += !expected.empty();
    }
    EXPECT_EQ(timecodeTracks, 4u);
}

TEST(QtMovieTimecode, SetRewritesOnlyTheTimecodeSampleAndFfprobeReadsIt) {
    struct Case {
        char const* movie;
        char const* timecode;
    } const cases[] = {{"mjpeg_pcm24le_dftc.mov", "23:59:59;29"}, {"h264_faststart.mov", "00:00:00:00"}, {"co64.mov", "12:34:56:24"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.movie);
        TempFile copy;
        Bytes before = readFileBytes(testDataPath(c.movie));
        copy.write(before);
        CommandRun set = timecode(copy.path(), std::string("--set '") + c.timecode + "'");
        EXPECT_EQ(set.status, 0) << set.all();
        EXPECT_EQ(set.all(), std::string("3,") + c.timecode + "\n");

        Bytes after = readFileBytes(copy.path());
        ASSERT_EQ(after.size(), before.size());
        unsigned long sample = firstSampleOffset(c.movie, 3);
        unsigned long changed = 0;
        for (unsigned long i = 0; i < after.size(); ++i) {
            if (after[i] == before[i]) continue;
            EXPECT_TRUE(i >= sample && i < sample + 4) << "byte " << i << " changed";
            ++changed;
        }
        EXPECT_GT(changed, 0u);
        EXPECT_EQ(timecode(copy.path()).all(), std::string("3,") + c.timecode + "\n");
        if (!haveFfprobe()) continue;
        CommandRun ffprobe =
            runCommand("ffprobe -v error -select_streams d -show_entries stream_tags=timecode -of csv=p=0 '" +
                copy.path() + "'");
        EXPECT_EQ(ffprobe.all(), std::string(c.timecode) + "\n");
    }
    if (!haveFfprobe()) GTEST_SKIP() << "ffprobe is not installed: only the bytes were compared";
}

TEST(QtMovieTimecode, TimecodeTheTrackCannotHoldLeavesTheFileAsItWas) {
    struct Case {
        char const* movie;
        char const* options;
        int status;
        char const* says;
    } const cases[] = {
        {"mjpeg_pcm24le_dftc.mov", "--set '00:01:00;00'", 1, "drop-frame numbering skips frames 00 to 01"},
        {"mjpeg_pcm24le_dftc.mov", "--set '00:00:00;30'", 1, "numbered 00 to 29"},
        {"mjpeg_pcm24le_dftc.mov", "--set '01:00:00:00'", 1, "write HH:MM:SS;FF"},
        {"mjpeg_pcm24le_dftc.mov", "--track 1 --set '01:00:00;00'", 1, "track 1 of"},
        {"h264_bframes_aac_tc.mov", "--set '10:00:00:25'", 1, "numbered 00 to 24"},
        {"h264_bframes_aac_tc.mov", "--set '24:00:00:00'", 1, "hours run from 00 to 23"},
        {"h264_bframes_aac_tc.mov", "--set '10:00:00;00'", 1, "write HH:MM:SS:FF"},
        {"h264_bframes_aac_tc.mov", "--set '10:00:00'", 2, "is not a timecode"},
        {"dnxhd_avid.mov", "--set '10:00:00:00'", 1, "has 0 timecode tracks"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.movie) + " " + c.options);
        TempFile copy;
        Bytes before = readFileBytes(testDataPath(c.movie));
        copy.write(before);
        CommandRun refused = timecode(copy.path(), c.options);
        EXPECT_EQ(refused.status, c.status);
        EXPECT_NE(refused.all().find(c.says), std::string::npos) << refused.all();
        EXPECT_TRUE(readFileBytes(copy.path()) == before);
    }
}
