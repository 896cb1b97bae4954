// QtChunkAllocator: hands out byte ranges for chunks of essence from the free room of mdat atoms.
// A request that no known room can hold grows the last mdat of the file (only the last atom can
// grow) or creates a new mdat at the end of the file, so chunks never move once handed out.
//
// Threads: belongs to the recording thread, like the tree it adds mdat atoms to; no locks.
#pragma once

#include <list>

class QtAtomMdat;
class QtAtomRoot;

class QtChunkAllocator {
  public:
    // A byte range: where it starts and how many bytes it holds; {0, 0} is the empty chunk.
    struct Chunk {
        unsigned long offset = 0;
        unsigned long size = 0;

        // Takes n bytes off the front.
        Chunk& operator-=(unsigned long n) {
            offset += n;
            size -= n;
            return *this;
        }
        bool operator==(Chunk const&) const = default;
    };

    // Free room in an mdat: the chunk's offset counts from the start of the mdat's data, and the
    // room is always the tail of that data, so growing the mdat extends it. No mdat yet: empty.
    struct Available {
        Chunk chunk;
        QtAtomMdat const* mdat = nullptr;
    };

    // An entry with at least `size` free bytes, made (a new or grown mdat under `root`) when none
    // has them. Without a root nothing can be made: the entry returned is then too small, and the
    // failure is reported. The reference stays valid until the entry is used up by later calls.
    Available& find(unsigned long size, QtAtomRoot const* root);
    Available& reserve(unsigned long size, QtAtomRoot const* root) { return find(size, root); }
    // `size` bytes at an absolute file offset, taken from the front of an entry; empty on failure.
    Chunk alloc(unsigned long size, QtAtomRoot const* root);
    // Makes `available` hold `size` free bytes if it can: a new mdat when it has none, or growth of
    // its mdat when that is the last atom of the file.
    bool bigEnough(Available& available, unsigned long size, QtAtomRoot const* root);
    // Makes an mdat that its owner placed at the end of the file the place new chunks grow into:
    // its free room starts where its data ends.
    void addMdat(QtAtomMdat const* mdat);

  private:
    std::list<Available> m_available;  // in order of creation; a list keeps references stable
};
