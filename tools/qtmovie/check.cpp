// qtmovie check FILE: reports what the structure check finds and the top-level layout (the type each
// atom has on disk, its offset and size). Exits 0 only when exactly one 'moov' is on disk.
#include <cstdio>

#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/quicktime.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {

int runCheck(std::vector<std::string> const& args) {
    if (args.size() != 1) {
        fprintf(stderr, "usage: qtmovie check FILE\n");
        return 2;
    }
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(args[0].c_str());
    if (!root) return 1;
    // The structure check reports through the debug channel; make sure its findings are seen.
    bool atomErrors = quicktimeDbg.on(QtDbgAtomErrors);
    quicktimeDbg.setBit(QtDbgAtomErrors, true);
    QtAtomMoov const* moov = root->checkStructure("check");
    quicktimeDbg.setBit(QtDbgAtomErrors, atomErrors);
    fflush(stdout);
    int moovs = 0;
    int skips = 0;
    for (BaseQtAtom const* atom = root->getChild(); atom; atom = atom->getSibling()) {
        QtAtomIdType diskId = atom->getDiskId();
        moovs += diskId == qtId("moov");
        skips += diskId == qtId("skip");
    }
    printf("%s: %d moov, %d skip on disk%s\n", args[0].c_str(), moovs, skips, moov ? "" : ", no movie atom");
    for (BaseQtAtom const* atom = root->getChild(); atom; atom = atom->getSibling())
        printf("  %s @%lu %lu\n", QtIdName(atom->getDiskId()).render(), atom->getFileOffset(),
               atom->getSize());
    return moovs == 1 ? 0 : 1;
}

QtMovieCommand checkCommand("check",
                            "check FILE           report the top-level layout; fails unless one moov",
                            runCheck);

}  // namespace
