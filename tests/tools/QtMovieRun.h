// Runs a shell command line (qtmovie or anything else) and keeps what it printed on stdout and on
// stderr apart, with its exit status.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "tests/TestSupport.h"

struct CommandRun {
    int status = -1;  // exit status, -1 when it did not exit normally
    std::string out;
    std::string err;
    std::string all() const { return out + err; }
};

inline CommandRun runCommand(std::string const& commandLine) {
    CommandRun run;
    TempFile errors("stderr.txt");
    std::string full = "( " + commandLine + " ) 2>'" + errors.path() + "'";
    FILE* pipe = popen(full.c_str(), "r");
    if (!pipe) return run;
    char chunk[4096];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, pipe)) > 0) run.out.append(chunk, got);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.err = readFileText(errors.path());
    return run;
}

inline CommandRun runQtMovie(std::string const& arguments) {
    return runCommand(std::string(QT_QTMOVIE_PATH) + " " + arguments);
}

// The command names under "commands:" in `qtmovie --help`.
inline std::vector<std::string> listedCommands() {
    std::vector<std::string> names;
    std::istringstream lines(runQtMovie("--help").out);
    bool inList = false;
    for (std::string line; std::getline(lines, line);) {
        if (inList && line.rfind("  ", 0) == 0)
            names.push_back(line.substr(2, line.find(' ', 2) - 2));
        else
            inList = line == "commands:";
    }
    return names;
}
