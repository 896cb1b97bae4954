// Big-endian integers in byte buffers: the order of every number in a movie file.
#pragma once

#include <cstdint>

inline uint16_t getBigEndian16(unsigned char const* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }

inline uint32_t getBigEndian32(unsigned char const* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

inline uint64_t getBigEndian64(unsigned char const* p) {
    return (uint64_t(getBigEndian32(p)) << 32) | getBigEndian32(p + 4);
}

inline void putBigEndian16(unsigned char* p, uint16_t value) {
    p[0] = static_cast<unsigned char>(value >> 8);
    p[1] = static_cast<unsigned char>(value);
}

inline void putBigEndian32(unsigned char* p, uint32_t value) {
    putBigEndian16(p, static_cast<uint16_t>(value >> 16));
    putBigEndian16(p + 2, static_cast<uint16_t>(value));
}

inline void putBigEndian64(unsigned char* p, uint64_t value) {
    putBigEndian32(p, static_cast<uint32_t>(value >> 32));
    putBigEndian32(p + 4, static_cast<uint32_t>(value));
}
