// qtmovie dump [FILE]: prints the atom tree, one line (or more) per atom from its own printout.
#include <cstdio>

#include "quicktime/quicktime.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {

void showTree(BaseQtAtom const* atom) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        child->show();
        showTree(child);
    }
}

int runDump(std::vector<std::string> const& args) {
    if (args.size() > 1) return qtMovieUsageError("dump", "expected at most one FILE");
    std::string path = args.empty() ? defaultSamplePath() : args[0];
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    if (!root) return 1;
    showTree(root.get());
    fflush(stdout);
    return 0;
}

QtMovieCommand dumpCommand(
    "dump", "[FILE]", "print the atom tree, one printout per atom (default: the shipped sample)", {},
    "exit status: 0 printed, 1 the file cannot be read as a movie, 2 wrong command line", runDump);

}  // namespace
