// The qtmovie commands as a user runs them: the command line (help on stdout with status 0, one line
// and status 2 for what it cannot run), check, info against ffprobe and the atom listings, timecode
// (read and --set, judged byte for byte and by ffprobe), follow beside a recording, and the README's
// examples, each run from the repository root.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <regex>
#include <thread>

#include "tests/tools/QtMovieRun.h"

namespace {

size_t lineCount(std::string const& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

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
            quoted ^= c == '"';
            if (!quoted && (c == '{' || c == '[') && ++level == depth) objects.emplace_back();
            if (!quoted && (c == '}' || c == ']')) --level;
        }
        if (level == 0) break;
    }
    return objects;
}
std::vector<Members> streamsOf(std::string const& json) { return objectsOf(json, "\"streams\": [", 2); }

std::string infoJson(std::string const& movie) {
    return runQtMovie("info --json '" + testDataPath(movie) + "'").out;
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

// The rows of a listing by track (the header line left out).
std::map<std::string, std::vector<std::string>> byTrack(std::string const& listing) {
    std::map<std::string, std::vector<std::string>> tracks;
    std::istringstream rows(listing.substr(listing.find('\n') + 1));
    for (std::string row; std::getline(rows, row);) tracks[row.substr(0, row.find(','))].push_back(row);
    return tracks;
}

struct Example {
    std::string command;             // after "$ "
    std::vector<std::string> shown;  // the lines printed below it; "..." leaves lines out
};

std::string trimmed(std::string const& line) {
    size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return line.substr(first, line.find_last_not_of(" \t") - first + 1);
}

std::vector<Example> consoleExamples(std::string const& readme) {
    std::vector<Example> examples;
    std::istringstream lines(readme);
    std::string line;
    bool inConsole = false;
    while (std::getline(lines, line)) {
        if (line.rfind("```", 0) == 0)
            inConsole = !inConsole && line == "```console";
        else if (inConsole && line.rfind("$ ", 0) == 0)
            examples.push_back({line.substr(2), {}});
        else if (inConsole && !examples.empty())
            examples.back().shown.push_back(trimmed(line));
    }
    return examples;
}

// The shown lines appear in the output in that order: consecutively, except across a "...".
bool showsOutput(std::vector<std::string> const& shown, std::string const& output) {
    std::vector<std::string> printed;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) printed.push_back(trimmed(line));
    size_t at = 0;
    bool gap = false;
    for (std::string const& line : shown) {
        if (line == "...") {
            gap = true;
            continue;
        }
        if (gap) {
            auto found = std::find(printed.begin() + static_cast<long>(at), printed.end(), line);
            if (found == printed.end()) return false;
            at = static_cast<size_t>(found - printed.begin()) + 1;
        } else if (at >= printed.size() || printed[at++] != line) {
            return false;
        }
        gap = false;
    }
    return gap || at == printed.size();
}

std::string readme() { return readFileText(std::string(QT_SOURCE_DIR) + "/README.md"); }

std::string inRepository(std::string const& command) {
    std::string program = QT_QTMOVIE_PATH;
    return "cd '" + std::string(QT_SOURCE_DIR) + "' && PATH='" + program.substr(0, program.rfind('/')) +
           "':\"$PATH\" && " + command;
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
    for (char const* wrong : {"samples --track", "samples --count=x", "info --json=yes", "dump a.mov b.mov",
                              "info", "info a.mov b.mov"}) {
        CommandRun run = runQtMovie(wrong);
        EXPECT_EQ(run.status, 2) << wrong;
        EXPECT_EQ(lineCount(run.err), 1u) << wrong << ": " << run.err;
    }
    EXPECT_EQ(runQtMovie("info /nonexistent/movie.mov").status, 1);  // runnable, but no movie there
}

TEST(QtMovieCheck, CountsTheMoovOnDiskAndShowsTheTopLevelLayout) {
    Bytes ftyp = atomBytes("ftyp", filled(12, 'f')), mvhd = atomBytes("mvhd", filled(100, 'h'));
    struct Case {
        Bytes movie;
        int status;
        std::vector<std::string> says;
    } const cases[] = {
        {readFileBytes(testDataPath("co64.mov")),
         0,
         {"1 moov, 0 skip on disk\n",
          "  ftyp @0 20\n  wide @20 8\n  mdat @28 499914\n  moov @499942 11092\n"}},
        {concat({ftyp, atomBytes("moov", mvhd), atomBytes("moov", mvhd)}),
         1,
         {": check: 0 skip, 2 moov: ftyp@0 moov@20={moov@", "2 moov, 0 skip on disk\n"}},
        // A relocated copy still under skip is not a moov.
        {concat({ftyp, atomBytes("skip", mvhd), atomBytes("skip", mvhd)}),
         1,
         {"0 moov, 2 skip on disk, no movie atom\n  ftyp @0 20\n  skip @20 116\n  skip @136 116\n"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.says[0]);
        TempFile temp;
        temp.write(c.movie);
        CommandRun run = runQtMovie("check '" + temp.path() + "'");
        EXPECT_EQ(run.status, c.status) << run.all();
        for (std::string const& text : c.says)
            EXPECT_NE(run.all().find(text), std::string::npos) << run.all();
    }
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
            auto same = [&](char const* field) { return ours[i][field] == theirs[i][field]; };
            for (char const* field : always)
                EXPECT_TRUE(!theirs[i].count(field) || same(field)) << field << ": " << ours[i][field];
            for (char const* field : whenPresent)
                EXPECT_TRUE(!ours[i].count(field) || same(field)) << field << ": " << theirs[i][field];
        }
    }
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
    using Case = std::pair<char const*, char const*>;  // a movie, the timecode it is given
    for (auto [movie, code] : {Case{"mjpeg_pcm24le_dftc.mov", "23:59:59;29"},
                               Case{"h264_faststart.mov", "00:00:00:00"}, Case{"co64.mov", "12:34:56:24"}}) {
        SCOPED_TRACE(movie);
        TempFile copy;
        Bytes before = readFileBytes(testDataPath(movie));
        copy.write(before);
        CommandRun set = timecode(copy.path(), std::string("--set '") + code + "'");
        EXPECT_EQ(set.status, 0) << set.all();
        EXPECT_EQ(set.all(), std::string("3,") + code + "\n");

        Bytes after = readFileBytes(copy.path());
        ASSERT_EQ(after.size(), before.size());
        unsigned long sample = firstSampleOffset(movie, 3);
        unsigned long changed = 0;
        for (unsigned long i = 0; i < after.size(); ++i) {
            if (after[i] == before[i]) continue;
            EXPECT_TRUE(i >= sample && i < sample + 4) << "byte " << i << " changed";
            ++changed;
        }
        EXPECT_GT(changed, 0u);
        EXPECT_EQ(timecode(copy.path()).all(), std::string("3,") + code + "\n");
        if (!haveFfprobe()) continue;
        CommandRun ffprobe =
            runCommand("ffprobe -v error -select_streams d -show_entries stream_tags=timecode -of csv=p=0 '" +
                       copy.path() + "'");
        EXPECT_EQ(ffprobe.all(), std::string(code) + "\n");
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
    std::string printed;
    size_t lines = 0, beforeTheEnd = 0;
    char line[256];
    while (fgets(line, sizeof line, follow)) {
        printed += line;
        ++lines;
        beforeTheEnd += !recorded;
    }
    int followStatus = pclose(follow);
    recorder.join();
    ASSERT_EQ(record.status, 0) << record.err;
    EXPECT_EQ(followStatus, 0);

    std::string finished = runQtMovie("samples " + out.path()).out;
    ASSERT_GT(lines, 0u);
    EXPECT_EQ(printed.substr(0, printed.find('\n')), finished.substr(0, finished.find('\n')));
    EXPECT_EQ(byTrack(printed), byTrack(finished));
    // Most samples were printed while the recording still ran, not read from the finished file.
    EXPECT_GT(beforeTheEnd, lines / 2);
}

TEST(ReadmeExamples, EveryCommandTheProgramListsHasASectionWithAnExample) {
    std::string text = readme();
    std::vector<Example> examples = consoleExamples(text);
    for (std::string const& name : listedCommands()) {
        EXPECT_NE(text.find("\n### qtmovie " + name + "\n"), std::string::npos) << name;
        bool hasExample = std::any_of(examples.begin(), examples.end(), [&](Example const& e) {
            return (e.command + " ").rfind("qtmovie " + name + " ", 0) == 0;
        });
        EXPECT_TRUE(hasExample) << "no `$ qtmovie " << name << "` example in the README";
    }
}

TEST(ReadmeExamples, EveryExampleRunsFromTheRepositoryAndPrintsWhatItShows) {
    std::vector<Example> examples = consoleExamples(readme());
    ASSERT_FALSE(examples.empty());
    for (Example const& example : examples) {
        CommandRun run = runCommand(inRepository(example.command) + " 2>&1");
        EXPECT_EQ(run.status, 0) << example.command << "\n" << run.out;
        EXPECT_TRUE(showsOutput(example.shown, run.out)) << example.command << " printed\n" << run.out;
    }
}
