// qtmovie record as a user relies on it: a recording of a real movie, closed, holds every sample of
// the source with its size, times, key flag and bytes; one cut short at any moment holds exactly
// one movie and a prefix of the source's samples.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/tools/QtMovieRun.h"

namespace {

struct Row {
    unsigned long offset = 0;
    std::string timing;  // "size,dts,pts,key"
};

// `qtmovie samples FILE`, one list of rows per track (tracks from 1).
std::vector<std::vector<Row>> samplesOf(std::string const& path) {
    CommandRun run = runQtMovie("samples '" + path + "'");
    EXPECT_EQ(run.status, 0) << run.err;
    std::vector<std::vector<Row>> tracks;
    std::istringstream lines(run.out);
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {  // track,sample,offset,size,dts,pts,key
        size_t track = std::stoul(line), offset = line.find(',', line.find(',') + 1) + 1;
        if (tracks.size() < track) tracks.resize(track);
        tracks[track - 1].push_back(
            {std::stoul(line.substr(offset)), line.substr(line.find(',', offset) + 1)});
    }
    return tracks;
}

std::string bytesAt(std::ifstream& file, unsigned long offset, size_t size) {
    std::string bytes(size, '\0');
    file.clear();
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(bytes.data(), static_cast<std::streamsize>(size));
    return file ? bytes : std::string("<missing>");
}

// Every track of `recorded` holds the first samples of the same track of `source` (all of them
// unless `prefix`), equal in everything but their offsets. Returns the samples compared.
size_t expectSamplesOf(std::string const& source, std::string const& recorded, bool prefix) {
    std::vector<std::vector<Row>> want = samplesOf(source), got = samplesOf(recorded);
    std::ifstream wantFile(source, std::ios::binary), gotFile(recorded, std::ios::binary);
    EXPECT_TRUE(prefix ? got.size() <= want.size() : got.size() == want.size()) << got.size() << " tracks";
    size_t compared = 0;
    for (size_t t = 0; t < got.size() && t < want.size(); ++t) {
        EXPECT_TRUE(prefix ? got[t].size() <= want[t].size() : got[t].size() == want[t].size())
            << "track " << t + 1 << ": " << got[t].size() << " samples of " << want[t].size();
        for (size_t s = 0; s < got[t].size() && s < want[t].size(); ++s, ++compared) {
            Row const &mine = got[t][s], &theirs = want[t][s];
            size_t size = std::stoul(theirs.timing);
            bool same = mine.timing == theirs.timing &&
                        bytesAt(gotFile, mine.offset, size) == bytesAt(wantFile, theirs.offset, size);
            if (!same) {
                ADD_FAILURE() << "track " << t + 1 << " sample " << s << ": " << mine.timing << " instead of "
                              << theirs.timing << " or other bytes";
                return compared;
            }
        }
    }
    return compared;
}

void expectOneMovie(std::string const& path) {
    CommandRun check = runQtMovie("check '" + path + "'");
    EXPECT_EQ(check.status, 0) << check.out << check.err;
    EXPECT_NE(check.out.find(": 1 moov,"), std::string::npos) << check.out;
}

}  // namespace

TEST(QtMovieRecord, RecordsEveryRealMovieSampleForSample) {
    for (std::string const& movie : corpusMovies()) {
        // At the default cadence, and with some 40 flushes into tables given room for one second,
        // so that the movie moves several times.
        size_t samples = 0;
        for (auto const& track : samplesOf(testDataPath(movie))) samples += track.size();
        std::string often = " --planned-seconds 1 --flush-every " + std::to_string(samples / 40 + 1);
        for (std::string const& cadence : {std::string(), often}) {
            SCOPED_TRACE(movie + cadence);
            TempFile out("recorded.mov");
            CommandRun run =
                runQtMovie("record " + out.path() + " --from '" + testDataPath(movie) + "'" + cadence);
            ASSERT_EQ(run.status, 0) << run.err;
            expectOneMovie(out.path());
            expectSamplesOf(testDataPath(movie), out.path(), false);
            // Room kept for the tables aside, the recording is as large as the samples.
            struct stat source, recorded;
            ASSERT_EQ(stat(testDataPath(movie).c_str(), &source), 0);
            ASSERT_EQ(stat(out.c_str(), &recorded), 0);
            EXPECT_LT(recorded.st_size, 2 * source.st_size + (1 << 20));
        }
    }
}

TEST(QtMovieRecord, ARecordingCutShortHoldsOneMovieAndAPrefixOfTheSource) {
    std::string source = testDataPath("h264_bframes_aac_tc.mov");
    size_t previous = 0;
    for (unsigned long bytes : {1ul, 20000ul, 150000ul, 300000ul, 480000ul}) {
        SCOPED_TRACE("killed after " + std::to_string(bytes) + " bytes");
        TempFile out("killed.mov");
        CommandRun run =
            runQtMovie("record " + out.path() + " --from '" + source +
                       "' --flush-every 10 --planned-seconds 1 --kill-after-bytes " + std::to_string(bytes));
        ASSERT_EQ(run.status, 3) << run.err;
        expectOneMovie(out.path());
        size_t kept = expectSamplesOf(source, out.path(), true);
        if (bytes > 1) {
            EXPECT_GT(kept, previous);
        }
        previous = kept;
    }
}

// A long recording's tables do not travel with its tracks' shape: a track of 1.7 million samples
// (17 MB of tables, from the shared generator of long movies) is re-recorded like any other.
TEST(QtMovieRecord, RecordsTracksWhoseTablesAreLarge) {
    std::string maker = std::string(QT_CORPUS_DIR) + "/../tools/make_huge.py";
    if (access(maker.c_str(), R_OK) != 0) GTEST_SKIP() << "no " << maker;
    TempFile source("long.mov"), out("recorded.mov");
    ASSERT_EQ(runCommand("python3 '" + maker + "' 1700000 " + source.path()).status, 0);
    CommandRun run =
        runQtMovie("record " + out.path() + " --from " + source.path() + " --kill-after-bytes 1000");
    EXPECT_EQ(run.status, 3) << run.err;
}
