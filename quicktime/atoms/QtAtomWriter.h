// QtAtomWriter puts a tree on disk. Each changed (dirty) atom is encoded at its file offset: atoms
// with children encode their own header and fixed part, the children follow as atoms of their own.
// When copying to another file, an unchanged atom is copied from the source as it stands. Bytes that the
// tree does not hold (uninterpreted bodies left on disk, trailing bytes inside a container or after
// the last top-level atom) are copied from the root's file. Written atoms are marked clean.
// QtAtomWriter is the one place that encodes atoms onto a file: QtAtomRoot::writeDirty, which
// writes the changed atoms back into the movie's own file, calls writeAtom; nothing here calls the
// root back.
#pragma once

#include <vector>

#include "framework/BasicFileIO.h"

class BaseQtAtom;

class QtAtomWriter {
public:
    // Writes the whole tree below `root` into another file `out` so that it holds a complete movie.
    // False on the first failed read or write, and when `out` is the root's own file (its changes
    // are written back with QtAtomRoot::writeDirty).
    static bool copyTree(BaseQtAtom const& root, BasicFileIO& out);
    // Writes a single atom's encoded bytes (not its children) at its file offset and returns how
    // many bytes that was; -1 when the write failed.
    static long writeAtom(BaseQtAtom const& atom, BasicFileIO& out);
    // The atom's own bytes at its file offset: the header and fixed part of an atom with children
    // (they are atoms of their own), only the fixed part (a table's head) where the body stays on
    // disk, the whole encoding otherwise; never more than the atom's size.
    static std::vector<unsigned char> encodeOwn(BaseQtAtom const& atom);

  private:
    static bool writeSubtree(BaseQtAtom const& atom, BasicFileIO* source, BasicFileIO& out);
    static bool copyRange(BasicFileIO& source, BasicFileIO& out, unsigned long from, unsigned long to);
};
