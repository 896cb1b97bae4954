// qtmovie info: run on every real movie of tests/data, its JSON must agree with what ffprobe
// reported for the same file, and its timecode with the frozen start timecodes.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/tools/QtMovieRun.h"

namespace {

using Members = std::map<std::string, std::string>;

// The scalar members (one a line, strings without their quotes) of each object that opens `depth`
// levels into the block that starts with `block`; members of nested objects count as their own.
std::vector<Members> objectsOf(std::string const& json, std::string const& block, int depth) {
    std::vector<Members> objects;
    std::istringstream lines(json.substr(std::min(json.find(block), json.size())));
    std::regex member("\\s*\"(\\w+)\": \"?([^\"{\\[]*?)\"?,?");
    int level = 0;
    for (std::string line; std::getline(lines, line);) {
        std::smatch m;
        if (level >= depth && std::regex_match(line, m, member)) objects.back()[m[1]] = m[2];
        bool quoted = false;
        for (char c : line) {
            if (c == '"') quoted = !quoted;
            else if (!quoted && (c == '{' || c == '[') && ++level == depth) objects.emplace_back();
            else if (!quoted && (c == '}' || c == ']')) --level;
        }
        if (level == 0) break;
    }
    return objects;
}
std::vector<Members> streamsOf(std::string const& json) { return objectsOf(json, "\"streams\": [", 2); }

std::string infoJson(std::string const& movie) {
    return runQtMovie("info --json '" + testDataPath(movie) + "'").out;
}

TEST(QtMovieInfo, AgreesWithFfprobeOnEveryStreamOfTheRealMovies) {
    // Compared whenever ffprobe gives them; the picture fields only when the description holds them.
    char const* const always[] = {"codec_tag_string", "width",           "height",   "sample_rate",
                                  "channels",         "bits_per_sample", "nb_frames"};
    char const* const whenPresent[] = {"sample_aspect_ratio", "color_primaries", "color_transfer",
                                       "color_space", "field_order"};
    for (std::string const& movie : corpusMovies()) {
        SCOPED_TRACE(movie);
        std::vector<Members> ours = streamsOf(infoJson(movie));
        std::vector<Members> theirs = streamsOf(readFileText(testDataPath(movie + ".ffprobe.json")));
        ASSERT_FALSE(theirs.empty());
        ASSERT_EQ(ours.size(), theirs.size());
        for (size_t i = 0; i < ours.size(); ++i) {
            SCOPED_TRACE("stream " + std::to_string(i));
            EXPECT_EQ(ours[i]["index"], theirs[i]["index"]);
            EXPECT_EQ(ours[i]["codec_type"], theirs[i]["codec_type"]);
            ASSERT_EQ(ours[i]["codec_tag_string"].size(), 4u);
            for (char const* field : always) {
                if (theirs[i].count(field)) {
                    EXPECT_EQ(ours[i][field], theirs[i][field]) << field;
                }
            }
            for (char const* field : whenPresent) {
                if (ours[i].count(field)) {
                    EXPECT_EQ(ours[i][field], theirs[i][field]) << field;
                }
            }
        }
    }
}

// The "layout" entries written as the top-level lines of the .atoms.txt listings.
std::string layoutOf(std::string const& json) {
    std::regex entry("\\{ \"type\": \"([^\"]*)\", \"offset\": ([0-9]+), \"size\": ([0-9]+) \\}");
    std::string listed;
    for (std::sregex_iterator it(json.begin(), json.end(), entry), end; it != end; ++it)
        listed += (*it)[1].str() + ": " + (*it)[3].str() + "b@" + (*it)[2].str() + "\n";
    return listed;
}

std::string topLevelAtoms(std::string const& listing) {
    std::istringstream lines(listing);
    std::string top;
    for (std::string line; std::getline(lines, line);)
        if (!line.empty() && line[0] != ' ' && line[0] != '#') top += line + "\n";
    return top;
}

TEST(QtMovieInfo, FormatAgreesWithFfprobeAndTheAtomListing) {
    for (std::string const& movie : corpusMovies()) {
        SCOPED_TRACE(movie);
        std::string ours = infoJson(movie);
        std::string theirs = readFileText(testDataPath(movie + ".ffprobe.json"));
        ASSERT_FALSE(ours.empty());
        EXPECT_EQ(ours.back(), '\n');
        Members format = objectsOf(ours, "\"format\": {", 1).at(0);
        EXPECT_EQ(format["filename"], testDataPath(movie));
        Members expected = objectsOf(theirs, "\"format\": {", 1).at(0);
        for (char const* field : {"nb_streams", "duration", "size", "major_brand", "minor_version"})
            EXPECT_EQ(format[field], expected[field]) << field;
        EXPECT_EQ(layoutOf(ours), topLevelAtoms(readFileText(testDataPath(movie + ".atoms.txt"))));
    }
}

}  // namespace
