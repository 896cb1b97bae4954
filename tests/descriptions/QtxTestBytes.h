// One-atom helpers of the tests of the extension atoms.
#pragma once

#include "framework/AutoPtr.h"
#include "quicktime/descriptions/QtxAtom.h"
#include "tests/TestSupport.h"

// Reads one atom with Qtx::create from exactly these bytes.
inline AutoPtr<Qtx::Atom> createFrom(Bytes bytes) {
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    return AutoPtr<Qtx::Atom>(Qtx::create(buffer, static_cast<unsigned int>(bytes.size())));
}

// What the atom writes, in a buffer of its size.
inline Bytes encoded(Qtx::Atom& atom) {
    QtAtomBuffer out(atom.getSize());
    atom.encode(out);
    return Bytes(out.ptrData(), out.ptrEnd());
}
