#include "framework/FixedPoint.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

template <>
AutoPtr<char> FixedPoint<16u>::toString() const {
    // Up to five decimals resolve every multiple of 1/65536 to within half a step; trailing zeros
    // are dropped so that whole numbers print without a fraction.
    char text[48];
    uint64_t magnitude = m_raw < 0 ? static_cast<uint64_t>(-m_raw) : static_cast<uint64_t>(m_raw);
    uint64_t whole = magnitude >> 16;
    uint64_t frac = ((magnitude & 0xFFFF) * 100000 + 0x8000) >> 16;
    if (frac >= 100000) {
        whole += 1;
        frac -= 100000;
    }
    int n = snprintf(text, sizeof text, "%s%lu", m_raw < 0 ? "-" : "", static_cast<unsigned long>(whole));
    if (frac) {
        char digits[8];
        snprintf(digits, sizeof digits, "%05lu", static_cast<unsigned long>(frac));
        size_t len = strlen(digits);
        while (len > 0 && digits[len - 1] == '0') digits[--len] = 0;
        snprintf(text + n, sizeof text - static_cast<size_t>(n), ".%s", digits);
    }
    char* copy = new char[strlen(text) + 1];
    strcpy(copy, text);
    return AutoPtr<char>(copy);
}
