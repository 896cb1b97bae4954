// The subcommands of the qtmovie program. Each subcommand lives in its own file and registers
// itself with a static QtMovieCommand; main() dispatches on the first word. A command registered
// with its options and a summary gets its help page, `--opt=value` spelling and the refusal of
// unknown options from main() before it runs; one registered with a usage line alone gets `--help`
// (that line) and checks its own arguments.
// Threads: registration happens during static initialisation, everything else on the main thread.
#pragma once

#include <string>
#include <vector>

// One option of a command: its help line, and what main() accepts before the command runs.
struct QtMovieOption {
    char const* name;   // "--track"
    char const* value;  // placeholder of its value ("N"), or null for a flag
    char const* help;   // one line
};

struct QtMovieCommand {
    using Run = int (*)(std::vector<std::string> const& args);

    // `usage`: the arguments and what the command does, on one line ("check FILE    report ...").
    QtMovieCommand(char const* name, char const* usage, Run run);
    // `synopsis`: the arguments ("FILE [--json]"); `summary`: one line on what it does; `details`:
    // further lines of the help page (output columns, exit status), or null. `run` is given the
    // arguments after the command name with every option known and each value as the next word.
    QtMovieCommand(char const* name, char const* synopsis, char const* summary,
                   std::vector<QtMovieOption> options, char const* details, Run run);

    char const* name;
    char const* usage;
    Run run;
    char const* synopsis = nullptr;
    char const* summary = nullptr;
    std::vector<QtMovieOption> options;
    char const* details = nullptr;

    // Runs the command on the words after its name: help, option check, then `run`.
    int dispatch(std::vector<std::string> const& args) const;
    // The command's line in `qtmovie --help`.
    std::string listing() const;

    static std::vector<QtMovieCommand const*>& all();
    static QtMovieCommand const* find(std::string const& name);

  private:
    void printHelp() const;
    QtMovieOption const* findOption(std::string const& name) const;
    bool normalize(std::vector<std::string> const& args, std::vector<std::string>& out) const;
};

// Exit status of a command line that cannot be run (unknown option, wrong number of arguments).
constexpr int kQtMovieUsageError = 2;

// Prints "qtmovie COMMAND: MESSAGE (see qtmovie COMMAND --help)" on stderr and returns
// kQtMovieUsageError.
int qtMovieUsageError(char const* command, std::string const& message);

struct QtSampleInfo;

// The CSV of `qtmovie samples` and `qtmovie follow`: its header line, and one row per sample.
extern char const* const kQtMovieSampleHeader;
void qtMoviePrintSample(unsigned int track, QtSampleInfo const& info);

// A decimal number without sign; false for anything else.
bool qtMovieParseNumber(std::string const& text, unsigned long& value);

// The sample movie shipped with the program, used when a command is given no file.
std::string defaultSamplePath();
