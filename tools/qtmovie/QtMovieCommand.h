// The subcommands of the qtmovie program. Each subcommand lives in its own file and registers
// itself with a static QtMovieCommand; main() dispatches on the first word.
#pragma once

#include <string>
#include <vector>

struct QtMovieCommand {
    using Run = int (*)(std::vector<std::string> const& args);
    QtMovieCommand(char const* name, char const* usage, Run run);

    char const* name;
    char const* usage;
    Run run;

    static std::vector<QtMovieCommand const*>& all();
    static QtMovieCommand const* find(std::string const& name);
};

// The sample movie shipped with the program, used when a command is given no file.
std::string defaultSamplePath();
