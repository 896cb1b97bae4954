#include "tools/qtmovie/QtMovieCommand.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "quicktime/tables/QtTrackSamples.h"

#ifndef QT_SAMPLES_DIR
#define QT_SAMPLES_DIR "samples"
#endif

namespace {

bool isHelp(std::string const& arg) { return arg == "--help" || arg == "-h"; }

// An option word: a dash followed by something (a lone "-" is an argument).
bool isOption(std::string const& arg) { return arg.size() > 1 && arg[0] == '-'; }

}  // namespace

QtMovieCommand::QtMovieCommand(char const* n, char const* u, Run r) : name(n), usage(u), run(r) {
    all().push_back(this);
}

QtMovieCommand::QtMovieCommand(char const* n, char const* syn, char const* sum,
                               std::vector<QtMovieOption> opts, char const* det, Run r)
    : name(n), usage(syn), run(r), synopsis(syn), summary(sum), options(std::move(opts)), details(det) {
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

std::string QtMovieCommand::listing() const {
    if (!summary) return usage;
    char line[512];
    snprintf(line, sizeof line, "%-10s %s", name, summary);
    return line;
}

int QtMovieCommand::dispatch(std::vector<std::string> const& args) const {
    for (std::string const& arg : args) {
        if (isHelp(arg)) {
            printHelp();
            return 0;
        }
    }
    if (!summary) return run(args);
    std::vector<std::string> checked;
    if (!normalize(args, checked)) return kQtMovieUsageError;
    return run(checked);
}

void QtMovieCommand::printHelp() const {
    if (!summary) {
        printf("usage: qtmovie %s\n", usage);
        return;
    }
    printf("usage: qtmovie %s %s\n\n%s\n", name, synopsis, summary);
    printf("\noptions:\n");
    for (QtMovieOption const& option : options) {
        std::string head = std::string(option.name) + (option.value ? std::string(" ") + option.value : "");
        printf("  %-18s %s\n", head.c_str(), option.help);
    }
    printf("  %-18s %s\n", "-h, --help", "print this help and exit");
    if (details) printf("\n%s\n", details);
}

QtMovieOption const* QtMovieCommand::findOption(std::string const& optionName) const {
    for (QtMovieOption const& option : options)
        if (optionName == option.name) return &option;
    return nullptr;
}

// Checks every option word against the command's options and spells "--opt=value" as two words.
bool QtMovieCommand::normalize(std::vector<std::string> const& args, std::vector<std::string>& out) const {
    for (size_t i = 0; i < args.size(); ++i) {
        if (!isOption(args[i])) {
            out.push_back(args[i]);
            continue;
        }
        size_t equals = args[i].find('=');
        std::string optionName = args[i].substr(0, equals);
        QtMovieOption const* option = findOption(optionName);
        if (!option) {
            qtMovieUsageError(name, "unknown option '" + optionName + "'");
            return false;
        }
        out.push_back(optionName);
        if (!option->value && equals != std::string::npos) {
            qtMovieUsageError(name, "option '" + optionName + "' takes no value");
            return false;
        }
        if (!option->value) continue;
        if (equals == std::string::npos && i + 1 == args.size()) {
            qtMovieUsageError(name, "option '" + optionName + "' needs a value " + option->value);
            return false;
        }
        out.push_back(equals == std::string::npos ? args[++i] : args[i].substr(equals + 1));
    }
    return true;
}

int qtMovieUsageError(char const* command, std::string const& message) {
    fprintf(stderr, "qtmovie %s: %s (see qtmovie %s --help)\n", command, message.c_str(), command);
    return kQtMovieUsageError;
}

char const* const kQtMovieSampleHeader = "track,sample,offset,size,dts,pts,key";

void qtMoviePrintSample(unsigned int track, QtSampleInfo const& info) {
    printf("%u,%lu,%lu,%u,%lu,%ld,%d\n", track, info.sample, info.offset, info.size, info.dts, info.pts,
           info.key ? 1 : 0);
}

bool qtMovieParseNumber(std::string const& text, unsigned long& value) {
    if (text.empty() || text[0] < '0' || text[0] > '9') return false;
    char* end = nullptr;
    errno = 0;
    value = strtoul(text.c_str(), &end, 10);
    return end && *end == 0 && errno == 0;
}

// Beside an installed program the sample lies under the prefix's data directory; a program run
// from its build tree uses the one in the sources.
std::string defaultSamplePath() {
#ifdef QT_INSTALLED_SAMPLE
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length > 0) {
        std::string program(self, static_cast<size_t>(length));
        std::string prefix = program.substr(0, program.find_last_of('/')) + "/..";
        std::string dataFile = QT_INSTALLED_SAMPLE;
        std::string installed = dataFile[0] == '/' ? dataFile : prefix + "/" + dataFile;
        if (access(installed.c_str(), R_OK) == 0) return installed;
    }
#endif
    return std::string(QT_SAMPLES_DIR) + "/sample.mov";
}
