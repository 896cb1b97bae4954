// Helpers of the atom tests: decoding an atom object from byte literals and encoding it back, with
// a buffer far larger than any atom so that a test sees exactly how many bytes an encode writes.
#pragma once

#include <string>
#include <vector>

#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/BaseQtAtom.h"

using Bytes = std::vector<unsigned char>;

// Decodes `atom` from `bytes` (all of them occupied); returns what decode() returned and leaves in
// `consumed` how many bytes it took.
inline bool decodeFrom(BaseQtAtom& atom, Bytes bytes, unsigned int* consumed = nullptr) {
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    bool ok = atom.decode(buffer);
    if (consumed) *consumed = buffer.bufferOffset();
    return ok;
}

inline Bytes encodeToBytes(BaseQtAtom const& atom) {
    Bytes storage(1 << 16, 0xEE);
    QtAtomBuffer buffer(storage.data(), static_cast<unsigned int>(storage.size()), QtAtomBuffer::Empty);
    atom.encode(buffer);
    return Bytes(storage.begin(), storage.begin() + buffer.nOccupied());
}

// Header bytes followed by the body words, for crafting atoms.
inline void putUint16(Bytes& out, uint16_t v) {
    out.push_back(static_cast<unsigned char>(v >> 8));
    out.push_back(static_cast<unsigned char>(v));
}

inline void putText(Bytes& out, std::string const& text) { out.insert(out.end(), text.begin(), text.end()); }
