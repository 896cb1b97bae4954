// qtmovie: reads, checks and rewrites QuickTime movie files from the command line.
//   qtmovie [--debug TABLE:FLAG]... COMMAND [ARGS]
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "framework/DebuggerOn.h"
#include "quicktime/quicktime.h"
#include "tools/qtmovie/QtMovieCommand.h"

#ifndef QT_SAMPLES_DIR
#define QT_SAMPLES_DIR "samples"
#endif

QtMovieCommand::QtMovieCommand(char const* n, char const* u, Run r) : name(n), usage(u), run(r) {
    all().push_back(this);
}

std::vector<QtMovieCommand const*>& QtMovieCommand::all() {
    static std::vector<QtMovieCommand const*> commands;
    return commands;
}

QtMovieCommand const* QtMovieCommand::find(std::string const& name) {
    for (QtMovieCommand const* c : all())
        if (name == c->name) return c;
    return nullptr;
}

std::string defaultSamplePath() { return std::string(QT_SAMPLES_DIR) + "/sample.mov"; }

namespace {

int usage() {
    fprintf(stderr, "usage: qtmovie [--debug TABLE:FLAG]... COMMAND [ARGS]\ncommands:\n");
    for (QtMovieCommand const* c : QtMovieCommand::all()) fprintf(stderr, "  %s\n", c->usage);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--debug") == 0 || strncmp(argv[i], "--debug=", 8) == 0) {
            char const* flag = argv[i][7] == '=' ? argv[i] + 8 : (i + 1 < argc ? argv[++i] : nullptr);
            if (!flag || !DebuggerOn::setFromText(flag)) {
                fprintf(stderr, "qtmovie: unknown debug flag '%s' (expected TABLE:FLAG)\n", flag ? flag : "");
                return 2;
            }
            continue;
        }
        args.emplace_back(argv[i]);
    }
    if (args.empty() || args[0] == "--help" || args[0] == "-h") return usage();
    QtMovieCommand const* command = QtMovieCommand::find(args[0]);
    if (!command) {
        fprintf(stderr, "qtmovie: unknown command '%s'\n", args[0].c_str());
        return usage();
    }
    args.erase(args.begin());
    return command->run(args);
}
