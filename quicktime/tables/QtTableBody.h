// Helpers shared by the decoders of the disk-backed tables: reading bytes of the atom's body whether
// or not the reader put them in the buffer, the one way a table's entries are placed (mapped onto the
// file or decoded into memory), consuming what is left of the atom, and the report of zero entries at
// a table's end.
#pragma once

#include <functional>
#include <vector>

#include "framework/QtAtomBuffer.h"
#include "framework/VirtualArrayBase.h"

class BaseQtAtom;

namespace QtTableBody {

// Copies n bytes of the atom, from offsetInAtom on, into out: from the buffer when it holds them,
// else from the root's file (a reader hands a large table only its head). Zeros when neither has
// them; returns whether the bytes were found.
bool read(BaseQtAtom const& atom, QtAtomBuffer& buffer, unsigned long offsetInAtom, unsigned int n,
          unsigned char* out);

// The entries of `entryBytes` that the bytes really there (in the atom's file, or in the buffer it is
// decoded from) hold after the first `head` bytes of the atom, at most 2^32 - 1: the room a table
// gets, whatever count it claims, so that a count can never send a decode after entries that are
// not there.
unsigned int entryRoom(BaseQtAtom const& atom, QtAtomBuffer const& buffer, unsigned long head, unsigned int entryBytes);

// Makes a table of more than the resident limit disk-backed on the movie's file and maps its array
// onto the entries at `head` in the atom. False for a small table, or one whose file is out of reach.
bool mapEntries(BaseQtAtom const& atom, VirtualArrayBase& array, unsigned int room, unsigned long head);

// Gives a table's array room for `room` entries and its first `count`: mapped onto the file when
// mapEntries can, else read from the buffer or the file (zeros where neither holds them) and handed
// to put(i, bytes of entry i) in order. Returns whether the entries live in the file.
template <class Array, class Put>
bool placeEntries(BaseQtAtom const& atom, QtAtomBuffer& buffer, Array& array, unsigned long head, unsigned int room,
                  unsigned int count, unsigned int entryBytes, Put put) {
    array.setVirtualSize(room);
    if (mapEntries(atom, array, room, head)) {
        array.elementAt(0, nullptr);  // the first page, read while the file is at hand
        return true;
    }
    std::vector<unsigned char> raw(static_cast<size_t>(count) * entryBytes);
    if (count) read(atom, buffer, head, count * entryBytes, raw.data());
    for (unsigned int i = 0; i < count; ++i) put(i, raw.data() + static_cast<size_t>(i) * entryBytes);
    array.setClean();
    return false;
}

// Consumes what is left of the atom in the buffer, so that a table's entries never pass through it.
void removeRest(BaseQtAtom const& atom, QtAtomBuffer& buffer);

// With "atom errors" on, reports a table of more than one entry whose last entry is zero: how many of
// its last entries (at most 256) are zero. `isZero(i)` tells whether entry i is.
void reportTrailingZeros(BaseQtAtom const& atom, unsigned int count, std::function<bool(unsigned int)> const& isZero);

}  // namespace QtTableBody
