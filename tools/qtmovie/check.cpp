// qtmovie check FILE: reports what the structure check finds and the top-level layout (the type each
// atom has on disk, its offset and size). Exits 0 only when exactly one 'moov' is on disk.
#include <cstdio>

#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/quicktime.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {

// Past this many top-level atoms the structure check's growing report is left out.
constexpr unsigned int kMaxReportedAtoms = 256;

int runCheck(std::vector<std::string> const& args) {
    if (args.size() != 1) return qtMovieUsageError("check", "expected one FILE");
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(args[0].c_str());
    if (!root) return 1;
    QtAtomMoov const* moov = nullptr;
    unsigned int topLevel = root->countChildren();
    if (topLevel <= kMaxReportedAtoms) {
        // The structure check reports through the debug channel; make sure its findings are seen.
        bool atomErrors = quicktimeDbg.on(QtDbgAtomErrors);
        quicktimeDbg.setBit(QtDbgAtomErrors, true);
        moov = root->checkStructure("check");
        quicktimeDbg.setBit(QtDbgAtomErrors, atomErrors);
    } else {
        // Its report prints the line built so far after every atom: for this many atoms the
        // output would grow with their square. The layout below says the same once.
        printf("%s: %u top-level atoms, too many for the structure report\n", args[0].c_str(), topLevel);
        for (BaseQtAtom const* atom = root->getChild(); atom && !moov; atom = atom->getSibling())
            if (atom->getId() == qtId("moov")) moov = dynamic_cast<QtAtomMoov const*>(atom);
    }
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

QtMovieCommand checkCommand(
    "check", "FILE", "report the top-level layout; fails unless exactly one moov", {},
    "Prints what the structure check finds, then \"FILE: M moov, S skip on disk\" and one\n"
    "line \"  TYPE @OFFSET SIZE\" per top-level atom, TYPE as its header has it on disk.\n"
    "exit status: 0 exactly one moov on disk, 1 otherwise or unreadable, 2 wrong command line",
    runCheck);

}  // namespace
