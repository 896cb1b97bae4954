// The README as a newcomer uses it: every command qtmovie lists has a section with an example, and
// every example in its console blocks runs from the repository root and prints what it shows.
#include <gtest/gtest.h>

#include "tests/tools/QtMovieRun.h"

namespace {

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
