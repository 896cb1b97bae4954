// QtAtomReader builds the atom tree of a whole movie file under its root, top-down in file order.
// For each header it asks the factory for the atom object and then the atom itself how much it
// needs: an atom that needs all its data is decoded from a buffer holding the whole atom, a
// container from its fixed part (its children are read as atoms of their own), and an atom with
// an uninterpreted body from its header alone, so that memory does not depend on the size of the
// media data. Atoms cut short by the end of the file or of their parent, or too small for their
// own fields, are kept as uninterpreted atoms and reported; nothing is ever decoded from bytes
// that are not there.
#pragma once

#include "framework/AutoPtr.h"
#include "framework/BasicFileIO.h"

class BaseQtAtom;
class QtAtomBuffer;
class QtAtomRoot;

class QtAtomReader {
public:
    // Reads the file below `root` (a root over the file whose size is the file's length, with no
    // children yet). False when the file holds no atom at all.
    static bool readTree(QtAtomRoot const& root);

    // Opens a file and reads its tree; null (with one error message) when the file cannot be
    // opened or is not a movie.
    static AutoPtr<QtAtomRoot> readFile(char const* path, BasicFileIO::Mode mode = BasicFileIO::ReadOnly);

    // Containers nested deeper than this are kept as uninterpreted atoms.
    static constexpr unsigned int kMaxDepth = 64;
    // The most bytes of one atom that are read into memory at once. An atom that must be decoded
    // whole and is larger (no real description, edit list or in-memory table comes near) is kept
    // uninterpreted, with a warning, and copied byte for byte.
    static constexpr unsigned long kMaxBuffered = 8ul << 20;
    // No file is larger: a 64-bit size beyond it (or one that would wrap the offset) is garbage,
    // and ends its level.
    static constexpr unsigned long kMaxAtomSize = 0x7FFFFFFFFFFFFFFFul;

private:
    static void readLevel(BasicFileIO& file, BaseQtAtom const* parent, unsigned long start, unsigned long end,
                          unsigned int depth);
    static BaseQtAtom* readOne(BasicFileIO& file, BaseQtAtom const* parent, unsigned long offset, unsigned long end,
                               unsigned int depth, QtAtomBuffer& buffer);
    static bool sizeIsPossible(BaseQtAtom const& prototype, BaseQtAtom const* parent);
    static BaseQtAtom* keepUninterpreted(BaseQtAtom* actual, BaseQtAtom const* parent);
};
