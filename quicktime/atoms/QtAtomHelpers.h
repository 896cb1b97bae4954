// Small helpers shared by the movie structure atoms: how many bytes of an atom's body a decoder may
// still read, zero padding of an encoding up to the atom's size, and the pieces every printout is
// made of, so that all of them look alike.
#pragma once

#include "framework/AutoPtr.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

namespace QtAtomHelpers {

// Bytes of the atom not yet consumed that are also present in the buffer. Valid inside decode()
// once the header has been read, since the header decode records where the atom starts.
unsigned int bytesLeft(BaseQtAtom const& atom, QtAtomBuffer const& buffer);

// Appends zero bytes until the encoding, begun when the buffer held `before` occupied bytes, covers
// the atom's whole size. Nothing is added when the encoding already reaches it.
void padToSize(BaseQtAtom const& atom, QtAtomBuffer& buffer, unsigned int before);

// Room the atom's size leaves for its body after `fixedSize` bytes (0 when it leaves none).
unsigned long roomAfter(BaseQtAtom const& atom, unsigned long fixedSize);

// Encoders never write past the atom's size, the room a writer gives them. When the content needs
// more (getFixedSize() + getVariableSize(): the owner grew it without recomputing the size), the
// overflow is reported as an error and false returned; the encoder then writes only what fits.
bool fitsItsSize(BaseQtAtom const& atom, char const* table);

// How many of `count` entries of `entrySize` bytes fit in the atom's size after its fixed part.
unsigned long entriesThatFit(BaseQtAtom const& atom, unsigned long count, unsigned int entrySize);

// Indentation of a printout's continuation lines: two blanks deeper than the atom's own line.
int continuationIndent(BaseQtAtom const& atom);

// "<text form>,v%d,f=%x": the first words of a full atom's printout.
AutoPtr<char> fullAtomText(BaseQtAtom const& atom, QtVersionAndFlags const& versionAndFlags);

// A count of `value` units of 1/`timeScale` second as timecode text, hours to milliseconds.
AutoPtr<char> timeText(unsigned int value, unsigned int timeScale);

}  // namespace QtAtomHelpers
