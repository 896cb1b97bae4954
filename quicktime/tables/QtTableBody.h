// Helpers shared by the decoders of the disk-backed tables: reading bytes of the atom's body whether
// or not the reader put them in the buffer, consuming what is left of the atom, and the report of
// zero entries at a table's end.
#pragma once

#include <functional>

#include "framework/QtAtomBuffer.h"

class BaseQtAtom;

namespace QtTableBody {

// Copies n bytes of the atom, from offsetInAtom on, into out: from the buffer when it holds them,
// else from the root's file (a reader hands a large table only its head). Zeros when neither has
// them; returns whether the bytes were found.
bool read(BaseQtAtom const& atom, QtAtomBuffer& buffer, unsigned long offsetInAtom, unsigned int n,
          unsigned char* out);

// The bytes of the atom that are really there, in its file or in the buffer it is decoded from: its
// size, or less when the file ends inside it. A table's room for entries is taken from this, so
// that a count can never send a decode after entries that are not there.
unsigned long heldSize(BaseQtAtom const& atom, QtAtomBuffer const& buffer);

// Consumes what is left of the atom in the buffer, so that a table's entries never pass through it.
void removeRest(BaseQtAtom const& atom, QtAtomBuffer& buffer);

// With "atom errors" on, reports a table of more than one entry whose last entry is zero: how many of
// its last entries (at most 256) are zero. `isZero(i)` tells whether entry i is.
void reportTrailingZeros(BaseQtAtom const& atom, unsigned int count, std::function<bool(unsigned int)> const& isZero);

}  // namespace QtTableBody
