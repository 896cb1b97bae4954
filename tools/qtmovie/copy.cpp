// qtmovie copy IN OUT: reads IN into a tree and writes the tree to OUT.
#include <sys/stat.h>

#include <cstdio>

#include "quicktime/quicktime.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {

int runCopy(std::vector<std::string> const& args) {
    if (args.size() != 2) return qtMovieUsageError("copy", "expected IN and OUT");
    struct stat in {}, out {};
    if (stat(args[0].c_str(), &in) == 0 && stat(args[1].c_str(), &out) == 0 && in.st_dev == out.st_dev &&
        in.st_ino == out.st_ino) {
        fprintf(stderr, "qtmovie copy: %s and %s are the same file\n", args[0].c_str(), args[1].c_str());
        return 1;
    }
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(args[0].c_str());
    if (!root) return 1;
    AutoRefPtr<BasicFileIO> target = BasicFileIO::open(args[1].c_str(), BasicFileIO::Create);
    if (!target) {
        fprintf(stderr, "%s: cannot create: %s\n", args[1].c_str(), BasicFileIO::lastOpenError().c_str());
        return 1;
    }
    if (!QtAtomWriter::copyTree(*root, *target)) return 1;
    return 0;
}

QtMovieCommand copyCommand(
    "copy", "IN OUT", "read IN into an atom tree and write the tree to OUT", {},
    "Atoms the library does not interpret and the media data are copied byte for byte.\n"
    "exit status: 0 written, 1 IN cannot be read or OUT cannot be written (or is IN),\n"
    "2 wrong command line",
    runCopy);

}  // namespace
