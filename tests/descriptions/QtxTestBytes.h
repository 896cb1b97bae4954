// Byte builders and one-atom helpers shared by the tests of the extension atoms.
#pragma once

#include <string>
#include <vector>

#include "framework/AutoPtr.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/descriptions/QtxAtom.h"

using Bytes = std::vector<unsigned char>;

inline void put8(Bytes& out, unsigned int v) { out.push_back(static_cast<unsigned char>(v)); }
inline void put16(Bytes& out, unsigned int v) {
    put8(out, v >> 8);
    put8(out, v);
}
inline void put32(Bytes& out, unsigned int v) {
    put16(out, v >> 16);
    put16(out, v);
}
inline void putFourCC(Bytes& out, char const* type) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(type[i]));
}
inline void putBytes(Bytes& out, Bytes const& more) {
    for (unsigned char byte : more) out.push_back(byte);
}

// An atom of the given type around `body`, its size counting the 8 header bytes.
inline Bytes atomBytes(char const* type, Bytes const& body) {
    Bytes out;
    put32(out, static_cast<unsigned int>(body.size() + 8));
    putFourCC(out, type);
    putBytes(out, body);
    return out;
}

// Reads one atom with Qtx::create from exactly these bytes.
inline AutoPtr<Qtx::Atom> createFrom(Bytes bytes) {
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    return AutoPtr<Qtx::Atom>(Qtx::create(buffer, static_cast<unsigned int>(bytes.size())));
}

// What the atom writes; the buffer has room for its size (or `room` when larger).
inline Bytes encoded(Qtx::Atom& atom, unsigned int room = 0) {
    QtAtomBuffer out(atom.getSize() > room ? atom.getSize() : room);
    atom.encode(out);
    return Bytes(out.ptrData(), out.ptrEnd());
}

inline Bytes zeros(size_t n) { return Bytes(n, 0); }
