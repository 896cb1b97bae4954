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

using Stream = std::map<std::string, std::string>;

// The scalar members of each object in the "streams" array of a JSON document (strings without
// their quotes); nested objects are skipped.
std::vector<Stream> streamsOf(std::string const& json) {
    std::vector<Stream> streams;
    size_t at = json.find("\"streams\": [");
    if (at == std::string::npos) return streams;
    at += 12;
    int depth = 1;
    std::string key;
    while (at < json.size() && depth > 0) {
        char c = json[at];
        if (c == '"') {
            size_t end = json.find('"', at + 1);
            std::string word = json.substr(at + 1, end - at - 1);
            at = end + 1;
            size_t next = json.find_first_not_of(" \n", at);
            if (depth == 2 && json[next] == ':') {
                key = word;
                at = next + 1;
            } else if (depth == 2 && !key.empty()) {
                streams.back()[key] = word;
                key.clear();
            }
            continue;
        }
        if (c == '{' || c == '[') {
            if (++depth == 2) streams.emplace_back();
            key.clear();
        } else if (c == '}' || c == ']') {
            --depth;
        } else if (depth == 2 && !key.empty() && c != ' ' && c != '\n') {
            size_t end = json.find_first_of(",}\n", at);
            streams.back()[key] = json.substr(at, end - at);
            key.clear();
            at = end;
            continue;
        }
        ++at;
    }
    return streams;
}

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
        std::vector<Stream> ours = streamsOf(infoJson(movie));
        std::vector<Stream> theirs = streamsOf(readFileText(testDataPath(movie + ".ffprobe.json")));
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

// The value of a scalar member of the "format" object (a string without its quotes).
std::string formatField(std::string const& json, std::string const& name) {
    size_t format = json.find("\"format\": {");
    size_t at = format == std::string::npos ? format : json.find("\"" + name + "\": ", format);
    if (at == std::string::npos) return "<absent>";
    at += name.size() + 4;
    size_t end = json.find_first_of(",\n}", at);
    std::string value = json.substr(at, end - at);
    return value.size() >= 2 && value.front() == '"' ? value.substr(1, value.size() - 2) : value;
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
        EXPECT_EQ(formatField(ours, "filename"), testDataPath(movie));
        for (char const* field : {"nb_streams", "duration", "size", "major_brand", "minor_version"})
            EXPECT_EQ(formatField(ours, field), formatField(theirs, field)) << field;
        EXPECT_EQ(layoutOf(ours), topLevelAtoms(readFileText(testDataPath(movie + ".atoms.txt"))));
    }
}

TEST(QtMovieInfo, RefusesAMissingFileAndWrongArguments) {
    EXPECT_EQ(runQtMovie("info /nonexistent/movie.mov").status, 1);
    EXPECT_EQ(runQtMovie("info").status, 2);
    EXPECT_EQ(runQtMovie("info a.mov b.mov").status, 2);
}

}  // namespace
