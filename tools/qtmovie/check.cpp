// qtmovie check FILE: reports what the structure check finds and the top-level layout (the type each
// atom has on disk, its offset and size). Exits 0 only when exactly one 'moov' is on disk.
#include <cstdio>

#include "quicktime/quicktime.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {

// Past this many top-level atoms the one-line structure report is left out: the layout below says
// the same, one atom a line.
constexpr unsigned int kMaxReportedAtoms = 256;

int runCheck(std::vector<std::string> const& args) {
    if (args.size() != 1) return qtMovieUsageError("check", "expected one FILE");
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(args[0].c_str());
    if (!root) return 1;
    QtAtomRoot::Structure structure = root->structure();
    if (structure.atoms.size() > kMaxReportedAtoms)
        printf("%s: %zu top-level atoms, too many for the structure report\n", args[0].c_str(),
               structure.atoms.size());
    else if (!structure.valid())
        printf("%s\n", root->describeStructure("check").c_str());
    printf("%s: %d moov, %d skip on disk%s\n", args[0].c_str(), structure.moovs, structure.skips,
           structure.movie ? "" : ", no movie atom");
    for (QtAtomRoot::Structure::Entry const& atom : structure.atoms)
        printf("  %s @%lu %lu\n", QtIdName(atom.diskId).render(), atom.offset, atom.size);
    return structure.valid() ? 0 : 1;
}

QtMovieCommand checkCommand(
    "check", "FILE", "report the top-level layout; fails unless exactly one moov", {},
    "Prints what the structure check finds, then \"FILE: M moov, S skip on disk\" and one\n"
    "line \"  TYPE @OFFSET SIZE\" per top-level atom, TYPE as its header has it on disk.\n"
    "exit status: 0 exactly one moov on disk, 1 otherwise or unreadable, 2 wrong command line",
    runCheck);

}  // namespace
