// Field primitives shared by the atom classes: Pascal strings of variable or fixed capacity,
// reserved byte runs, the version-and-flags word of full atoms, fractions, the display matrix,
// rectangles and colours. Each decodes from and encodes to a QtAtomBuffer in big-endian order.
#pragma once

#include <cstdint>
#include <cstring>

#include "framework/AutoPtr.h"
#include "framework/FixedPoint.h"
#include "framework/QtAtomBuffer.h"

class QtPascalString {
public:
    QtPascalString() = default;
    virtual ~QtPascalString();
    QtPascalString(QtPascalString const& other);
    QtPascalString& operator=(QtPascalString const& other);

    // Sets the characters; a length of 0 with a non-null text measures the text with strlen, and any
    // length above 255 is cut to 255. A fixed-capacity string keeps its capacity and truncates.
    char const* set(char const* text, unsigned int length);
    char const* getString() const;
    unsigned int getLength() const { return m_storage ? static_cast<unsigned char>(m_storage[0]) : 0; }
    unsigned int getCapacity() const { return m_capacity; }
    unsigned int encodeSize() const { return m_capacity + 1; }
    void encode(QtAtomBuffer& buffer) const;
    // Reads the length byte L, takes L characters, and consumes encodeSize() bytes. Never reads past
    // the occupied bytes of the buffer.
    void decode(QtAtomBuffer& buffer);
    AutoPtr<char> toString() const;
    bool operator==(QtPascalString const& other) const;

protected:
    QtPascalString(char* fixedStorage, unsigned int capacity) : m_storage(fixedStorage), m_capacity(capacity), m_owns(false) {
        memset(m_storage, 0, capacity + 1);
    }

    char* m_storage = nullptr;  // length byte, characters, terminating zero
    unsigned int m_capacity = 0;
    bool m_owns = true;
};

template <unsigned N>
class QtFixedPascalString : public QtPascalString {
public:
    QtFixedPascalString() : QtPascalString(m_bytes, N - 1) {}
    QtFixedPascalString(char const* text) : QtFixedPascalString() { set(text, 0); }
    QtFixedPascalString(QtFixedPascalString const& other) : QtFixedPascalString() { copyFrom(other); }
    QtFixedPascalString& operator=(QtFixedPascalString const& other) {
        if (this != &other) copyFrom(other);
        return *this;
    }
    QtFixedPascalString& operator=(char const* text) {
        set(text, 0);
        return *this;
    }

private:
    void copyFrom(QtFixedPascalString const& other) { memcpy(m_bytes, other.m_bytes, sizeof m_bytes); }
    char m_bytes[N + 1];  // N bytes on disk plus a terminator for getString()
};

template <unsigned N>
class QtReserved {
public:
    QtReserved() { memset(m_bytes, 0, N); }
    void decode(QtAtomBuffer& buffer) {
        unsigned int n = buffer.nOccupied() < N ? buffer.nOccupied() : N;
        memcpy(m_bytes, buffer.ptrData(), n);
        buffer.removeInput(n);
    }
    void encode(QtAtomBuffer& buffer) const { buffer.append(m_bytes, N); }
    unsigned char const* bytes() const { return m_bytes; }
    bool operator==(QtReserved const& other) const { return memcmp(m_bytes, other.m_bytes, N) == 0; }

private:
    unsigned char m_bytes[N];
};

struct QtVersionAndFlags {
    QtVersionAndFlags() = default;
    explicit QtVersionAndFlags(uint32_t word) : version(word >> 24), flags(word & 0xFFFFFF) {}
    uint32_t word() const { return (version << 24) | (flags & 0xFFFFFF); }
    void decode(QtAtomBuffer& buffer);
    void encode(QtAtomBuffer& buffer) const;
    AutoPtr<char> toString() const;
    bool operator==(QtVersionAndFlags const& o) const { return version == o.version && flags == o.flags; }

    unsigned int version = 0;
    uint32_t flags = 0;
};

class QtFraction {
public:
    QtFraction() = default;
    // Stores n/d reduced by their greatest common divisor; a zero denominator becomes 1.
    QtFraction(uint32_t numerator, uint32_t denominator);
    uint32_t numerator() const { return m_numerator; }
    uint32_t denominator() const { return m_denominator; }
    uint32_t encoded4ByteValue() const { return (m_numerator << 16) | m_denominator; }
    FixedPoint<16u> fixedPointValue() const { return FixedPoint<16u>(m_numerator) / FixedPoint<16u>(m_denominator); }
    AutoPtr<char> toString() const { return fixedPointValue().toString(); }
    bool operator==(QtFraction const& o) const { return m_numerator == o.m_numerator && m_denominator == o.m_denominator; }

private:
    uint32_t m_numerator = 1;
    uint32_t m_denominator = 1;
};

struct QtMatrix {
    void decode(QtAtomBuffer& buffer);
    void encode(QtAtomBuffer& buffer) const;
    bool operator==(QtMatrix const& o) const { return memcmp(values, o.values, sizeof values) == 0; }
    AutoPtr<char> toString() const;

    // a, b, u, c, d, v, x, y, w as stored; a, b, c, d, x, y are 16.16, u, v, w are 2.30.
    uint32_t values[9] = {0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};
};

struct QtRect {
    void decode(QtAtomBuffer& buffer);
    void encode(QtAtomBuffer& buffer) const;
    bool operator==(QtRect const& o) const {
        return top == o.top && left == o.left && bottom == o.bottom && right == o.right;
    }
    uint16_t top = 0, left = 0, bottom = 0, right = 0;
};

struct QtColor {
    void decode(QtAtomBuffer& buffer);
    void encode(QtAtomBuffer& buffer) const;
    AutoPtr<char> toString(char const* label = nullptr) const;
    bool operator==(QtColor const& o) const { return red == o.red && green == o.green && blue == o.blue; }
    uint16_t red = 0, green = 0, blue = 0;
};
