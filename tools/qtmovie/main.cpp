// qtmovie: reads, checks and rewrites QuickTime movie files from the command line.
//   qtmovie [--debug TABLE:FLAG]... COMMAND [ARGS]
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "framework/DebuggerOn.h"
#include "quicktime/quicktime.h"
#include "tools/qtmovie/QtMovieCommand.h"

#ifndef QT_MOVIE_VERSION
#define QT_MOVIE_VERSION "unknown"
#endif

namespace {

void printUsage(FILE* out) {
    fprintf(out,
            "usage: qtmovie [--debug TABLE:FLAG]... COMMAND [ARGS]\n"
            "       qtmovie COMMAND --help\n"
            "       qtmovie --help | --version\n"
            "\n"
            "Reads, checks and rewrites QuickTime movie (.mov) files.\n"
            "\n"
            "commands:\n");
    for (QtMovieCommand const* c : QtMovieCommand::all()) fprintf(out, "  %s\n", c->listing().c_str());
    fprintf(out,
            "\n"
            "options:\n"
            "  --debug TABLE:FLAG   turn on a debug flag before anything is read, e.g. \"quicktimeDbg:atom "
            "errors\"\n"
            "  --version            print the version and exit\n"
            "  -h, --help           print this help and exit\n"
            "\n"
            "exit status: 0 success, 1 the file cannot be read or fails the command, 2 wrong command line\n");
}

// Takes every --debug option out of the arguments, wherever it stands, and sets its flag.
bool takeDebugFlags(int argc, char** argv, std::vector<std::string>& args) {
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--debug") == 0 || strncmp(argv[i], "--debug=", 8) == 0) {
            char const* flag = argv[i][7] == '=' ? argv[i] + 8 : (i + 1 < argc ? argv[++i] : nullptr);
            if (!flag || !DebuggerOn::setFromText(flag)) {
                fprintf(stderr, "qtmovie: unknown debug flag '%s' (expected TABLE:FLAG)\n", flag ? flag : "");
                return false;
            }
            continue;
        }
        args.emplace_back(argv[i]);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args;
    if (!takeDebugFlags(argc, argv, args)) return kQtMovieUsageError;
    if (args.empty()) {
        printUsage(stderr);
        return kQtMovieUsageError;
    }
    std::string const& first = args[0];
    if (first == "--help" || first == "-h") {
        printUsage(stdout);
        return 0;
    }
    if (first == "--version") {
        printf("qtmovie %s\n", QT_MOVIE_VERSION);
        return 0;
    }
    if (first.size() > 1 && first[0] == '-') {
        fprintf(stderr, "qtmovie: unknown option '%s' (see qtmovie --help)\n", first.c_str());
        return kQtMovieUsageError;
    }
    QtMovieCommand const* command = QtMovieCommand::find(first);
    if (!command) {
        fprintf(stderr, "qtmovie: unknown command '%s' (see qtmovie --help)\n", first.c_str());
        return kQtMovieUsageError;
    }
    args.erase(args.begin());
    return command->dispatch(args);
}
