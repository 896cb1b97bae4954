// QtIdName: the printable form of an atom type code. Valid ids (printable bytes, or a copyright
// sign in first place) render as their four characters; anything else renders its printable bytes
// with '?' for the others, followed by the four bytes in hexadecimal.
#pragma once

#include <bitset>

#include "quicktime/atoms/QtAtomIdType.h"

class QtIdName {
public:
    QtIdName() = default;
    explicit QtIdName(QtAtomIdType id) : m_id(id) {}
    explicit QtIdName(char const* text) { set(text); }

    void set(QtAtomIdType id);
    // Builds the id from the first four characters; id 0 when the text is longer than four.
    void set(char const* text);
    QtAtomIdType getId() const { return m_id; }

    char const* render() const { return m_render[0] ? m_render : slowRender(); }
    bool valid() const;
    static bool isCopyright(unsigned char c) { return c == 0xA9; }

    // Fills the set of bytes allowed in an id; run once during static initialisation.
    static void staticInit();

private:
    char const* slowRender() const;

    QtAtomIdType m_id = 0;
    mutable char m_render[20] = {0};

    static std::bitset<256> m_valid;
};

// Constructing the one static instance fills QtIdName's byte set before any use.
class StaticQtIdName : public QtIdName {
public:
    StaticQtIdName() { QtIdName::staticInit(); }
};
