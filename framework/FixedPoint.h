// FixedPoint<N>: a signed 64-bit value with N fraction bits. The library uses N = 16 (16.16 numbers
// such as rates, volumes and dimensions). Arithmetic keeps intermediate products and quotients from
// overflowing for values up to 2^47.
#pragma once

#include <cstdint>

#include "framework/AutoPtr.h"

struct AlreadyFixed {};

template <unsigned N>
class FixedPoint {
public:
    FixedPoint() = default;
    FixedPoint(unsigned long v) : m_raw(static_cast<int64_t>(v << N)) {}
    FixedPoint(unsigned int v) : m_raw(static_cast<int64_t>(static_cast<uint64_t>(v) << N)) {}
    FixedPoint(int v) : m_raw(static_cast<int64_t>(static_cast<uint64_t>(static_cast<int64_t>(v)) << N)) {}
    FixedPoint(AlreadyFixed, int64_t raw) : m_raw(raw) {}

    int64_t raw() const { return m_raw; }
    static constexpr int64_t fractionMask() { return (int64_t(1) << N) - 1; }
    unsigned long uintValue() const { return static_cast<unsigned long>(m_raw >> N); }
    unsigned int uint32Value() const { return static_cast<unsigned int>(m_raw >> N); }
    double floatValue() const { return static_cast<double>(m_raw) / static_cast<double>(int64_t(1) << N); }

    FixedPoint round() const { return FixedPoint(AlreadyFixed{}, (m_raw + (int64_t(1) << (N - 1))) & ~fractionMask()); }

    FixedPoint operator*(FixedPoint const& b) const {
        constexpr int64_t kHigh = ~int64_t(0x7FFFFFFF);  // any bit at position 31 or above
        if ((m_raw & kHigh) || (b.m_raw & kHigh)) {
            int64_t aInt = m_raw >> N, aFrac = m_raw & fractionMask();
            int64_t bInt = b.m_raw >> N, bFrac = b.m_raw & fractionMask();
            return FixedPoint(AlreadyFixed{}, aInt * b.m_raw + aFrac * bInt + ((aFrac * bFrac) >> N));
        }
        return FixedPoint(AlreadyFixed{}, (m_raw * b.m_raw) >> N);
    }
    FixedPoint operator*(int v) const { return *this * FixedPoint(v); }
    FixedPoint operator*(unsigned int v) const { return *this * FixedPoint(v); }

    FixedPoint operator/(FixedPoint const& d) const {
        int64_t magnitude = m_raw < 0 ? -m_raw : m_raw;
        if (magnitude >= (int64_t(1) << 47)) {
            int64_t q = m_raw / d.m_raw;
            int64_t r = m_raw - d.m_raw * q;
            return FixedPoint(AlreadyFixed{}, (q << N) + (r << N) / d.m_raw);
        }
        return FixedPoint(AlreadyFixed{}, (m_raw << N) / d.m_raw);
    }
    FixedPoint operator/(int v) const { return FixedPoint(AlreadyFixed{}, m_raw / v); }
    FixedPoint operator/(unsigned int v) const {
        if (static_cast<int>(v) < 0) return *this / FixedPoint(v);
        return FixedPoint(AlreadyFixed{}, m_raw / static_cast<int64_t>(v));
    }

    FixedPoint operator+(FixedPoint const& b) const { return FixedPoint(AlreadyFixed{}, m_raw + b.m_raw); }
    FixedPoint operator-(FixedPoint const& b) const { return FixedPoint(AlreadyFixed{}, m_raw - b.m_raw); }
    FixedPoint& operator+=(FixedPoint const& b) { m_raw += b.m_raw; return *this; }
    FixedPoint& operator-=(FixedPoint const& b) { m_raw -= b.m_raw; return *this; }
    bool operator==(FixedPoint const& b) const { return m_raw == b.m_raw; }
    bool operator!=(FixedPoint const& b) const { return m_raw != b.m_raw; }
    bool operator<(FixedPoint const& b) const { return m_raw < b.m_raw; }
    bool operator>(FixedPoint const& b) const { return m_raw > b.m_raw; }
    bool operator<=(FixedPoint const& b) const { return m_raw <= b.m_raw; }
    bool operator>=(FixedPoint const& b) const { return m_raw >= b.m_raw; }

    // Shortest decimal text that reads back to the same value: "1", "0.5", "29.97003".
    AutoPtr<char> toString() const;

private:
    int64_t m_raw = 0;
};

template <>
AutoPtr<char> FixedPoint<16u>::toString() const;
