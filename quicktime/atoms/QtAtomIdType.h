// The four-character atom type code: first character in the most significant byte, so that
// 'moov' is 0x6D6F6F76 and is stored on disk like any 32-bit big-endian integer.
#pragma once

#include <cstdint>

using QtAtomIdType = uint32_t;

constexpr QtAtomIdType qtId(char const (&text)[5]) {
    return (static_cast<QtAtomIdType>(static_cast<unsigned char>(text[0])) << 24) |
           (static_cast<QtAtomIdType>(static_cast<unsigned char>(text[1])) << 16) |
           (static_cast<QtAtomIdType>(static_cast<unsigned char>(text[2])) << 8) |
           static_cast<QtAtomIdType>(static_cast<unsigned char>(text[3]));
}
