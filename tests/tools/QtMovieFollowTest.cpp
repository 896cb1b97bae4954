// qtmovie follow beside a recording in another process: each sample printed once, in order within
// its track, while the recording runs, and the rows those of the finished file.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/QtMovieRun.h"

namespace {

// Rows by track, as printed (the track number and the header line taken out).
std::map<std::string, std::vector<std::string>> byTrack(std::vector<std::string> const& lines) {
    std::map<std::string, std::vector<std::string>> tracks;
    for (size_t i = 1; i < lines.size(); ++i)
        tracks[lines[i].substr(0, lines[i].find(','))].push_back(lines[i]);
    return tracks;
}

std::vector<std::string> linesOf(std::string const& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

}  // namespace

TEST(QtMovieFollow, PrintsEverySampleOnceWhileTheRecordingRuns) {
    TempFile out("live.mov");
    std::string source = testDataPath("mpeg2_twos.mov");  // 4 s of video and PCM sound
    FILE* follow =
        popen((std::string(QT_QTMOVIE_PATH) + " follow " + out.path() + " --idle-timeout 20").c_str(), "r");
    ASSERT_NE(follow, nullptr);
    std::atomic<bool> recorded{false};
    CommandRun record;
    std::thread recorder([&] {
        record = runQtMovie("record " + out.path() + " --from '" + source + "' --realtime --flush-every 500");
        recorded = true;
    });
    std::vector<std::string> lines;
    size_t beforeTheEnd = 0;
    char line[256];
    while (fgets(line, sizeof line, follow)) {
        lines.emplace_back(line, strcspn(line, "\n"));
        beforeTheEnd += !recorded;
    }
    int followStatus = pclose(follow);
    recorder.join();
    ASSERT_EQ(record.status, 0) << record.err;
    EXPECT_EQ(followStatus, 0);

    std::vector<std::string> finished = linesOf(runQtMovie("samples " + out.path()).out);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], finished[0]);
    EXPECT_EQ(byTrack(lines), byTrack(finished));
    // Most samples were printed while the recording still ran, not read from the finished file.
    EXPECT_GT(beforeTheEnd, lines.size() / 2);
}
