#include "framework/AliasText.h"

#include <cstring>
#include <string>

namespace {

// Unicode code points of the Mac Roman bytes 0x80..0xFF; 0x00..0x7F are ASCII.
constexpr char32_t kHighHalf[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5,
    0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, 0x00F2, 0x00F4,
    0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6,
    0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, 0x221E, 0x00B1, 0x2264, 0x2265,
    0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF,
    0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5,
    0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044,
    0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9,
    0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};

// A base character followed by a combining mark that together have one Mac Roman byte. Names
// written on systems that store decomposed text arrive in this form.
struct Composition {
    char base;
    char32_t mark;
    unsigned char byte;
};

constexpr Composition kCompositions[] = {
    {'=', 0x0338, 0xAD}, {'A', 0x0300, 0xCB}, {'A', 0x0301, 0xE7}, {'A', 0x0302, 0xE5}, {'A', 0x0303, 0xCC},
    {'A', 0x0308, 0x80}, {'A', 0x030A, 0x81}, {'C', 0x0327, 0x82}, {'E', 0x0300, 0xE9}, {'E', 0x0301, 0x83},
    {'E', 0x0302, 0xE6}, {'E', 0x0308, 0xE8}, {'I', 0x0300, 0xED}, {'I', 0x0301, 0xEA}, {'I', 0x0302, 0xEB},
    {'I', 0x0308, 0xEC}, {'N', 0x0303, 0x84}, {'O', 0x0300, 0xF1}, {'O', 0x0301, 0xEE}, {'O', 0x0302, 0xEF},
    {'O', 0x0303, 0xCD}, {'O', 0x0308, 0x85}, {'U', 0x0300, 0xF4}, {'U', 0x0301, 0xF2}, {'U', 0x0302, 0xF3},
    {'U', 0x0308, 0x86}, {'Y', 0x0308, 0xD9}, {'a', 0x0300, 0x88}, {'a', 0x0301, 0x87}, {'a', 0x0302, 0x89},
    {'a', 0x0303, 0x8B}, {'a', 0x0308, 0x8A}, {'a', 0x030A, 0x8C}, {'c', 0x0327, 0x8D}, {'e', 0x0300, 0x8F},
    {'e', 0x0301, 0x8E}, {'e', 0x0302, 0x90}, {'e', 0x0308, 0x91}, {'i', 0x0300, 0x93}, {'i', 0x0301, 0x92},
    {'i', 0x0302, 0x94}, {'i', 0x0308, 0x95}, {'n', 0x0303, 0x96}, {'o', 0x0300, 0x98}, {'o', 0x0301, 0x97},
    {'o', 0x0302, 0x99}, {'o', 0x0303, 0x9B}, {'o', 0x0308, 0x9A}, {'u', 0x0300, 0x9D}, {'u', 0x0301, 0x9C},
    {'u', 0x0302, 0x9E}, {'u', 0x0308, 0x9F}, {'y', 0x0308, 0xD8},
};

constexpr char32_t kInvalid = 0xFFFFFFFF;

// Mac Roman byte of a code point, or 0 when it has none (0 itself never reaches here).
unsigned char toMacRoman(char32_t c) {
    if (c < 0x80) return static_cast<unsigned char>(c);
    for (unsigned int i = 0; i < 128; ++i)
        if (kHighHalf[i] == c) return static_cast<unsigned char>(0x80 + i);
    return 0;
}

unsigned char composeMacRoman(unsigned char base, char32_t mark) {
    for (Composition const& c : kCompositions)
        if (static_cast<unsigned char>(c.base) == base && c.mark == mark) return c.byte;
    return 0;
}

bool isCombiningMark(char32_t c) { return c >= 0x0300 && c <= 0x036F; }

// Decodes one UTF-8 sequence at `p` and advances past it. A malformed sequence (bad lead byte,
// missing continuation, overlong form, surrogate, beyond U+10FFFF) consumes one byte and yields
// kInvalid.
char32_t nextCodePoint(unsigned char const*& p) {
    unsigned char lead = *p;
    unsigned int extra;
    char32_t c;
    if (lead < 0x80) {
        ++p;
        return lead;
    } else if ((lead & 0xE0) == 0xC0) {
        extra = 1;
        c = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        extra = 2;
        c = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        extra = 3;
        c = lead & 0x07;
    } else {
        ++p;
        return kInvalid;
    }
    for (unsigned int i = 1; i <= extra; ++i) {
        if ((p[i] & 0xC0) != 0x80) {  // also stops at the terminator
            ++p;
            return kInvalid;
        }
        c = (c << 6) | (p[i] & 0x3F);
    }
    static constexpr char32_t kSmallest[4] = {0, 0x80, 0x800, 0x10000};
    if (c < kSmallest[extra] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        ++p;
        return kInvalid;
    }
    p += extra + 1;
    return c;
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

AutoPtr<char> toOwned(std::string const& text) {
    char* copy = new char[text.size() + 1];
    memcpy(copy, text.c_str(), text.size() + 1);
    return AutoPtr<char>(copy);
}

}  // namespace

AutoPtr<char> utf8_to_qtalias(char const* utf8, unsigned int* substituted) {
    std::string out;
    unsigned int lost = 0;
    auto const* p = reinterpret_cast<unsigned char const*>(utf8 ? utf8 : "");
    while (*p) {
        char32_t c = nextCodePoint(p);
        if (c != kInvalid && isCombiningMark(c) && !out.empty()) {
            // Fold the mark into the character before it when Mac Roman has the pair as one letter.
            unsigned char composed = composeMacRoman(static_cast<unsigned char>(out.back()), c);
            if (composed) {
                out.back() = static_cast<char>(composed);
                continue;
            }
        }
        unsigned char byte = c == kInvalid ? 0 : toMacRoman(c);
        if (!byte) {
            byte = kAliasSubstitute;
            ++lost;
        }
        out += static_cast<char>(byte);
    }
    if (substituted) *substituted = lost;
    return toOwned(out);
}

AutoPtr<char> qtalias_to_utf8(char const* alias) {
    std::string out;
    for (auto const* p = reinterpret_cast<unsigned char const*>(alias ? alias : ""); *p; ++p)
        appendUtf8(out, *p < 0x80 ? char32_t(*p) : kHighHalf[*p - 0x80]);
    return toOwned(out);
}
