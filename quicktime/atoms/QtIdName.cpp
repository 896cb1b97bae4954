#include "quicktime/atoms/QtIdName.h"

#include <cstdio>
#include <cstring>

#include "framework/ByteOrder.h"

std::bitset<256> QtIdName::m_valid;
static StaticQtIdName s_staticQtIdName;

void QtIdName::staticInit() {
    for (int c = 32; c <= 126; ++c) m_valid.set(static_cast<size_t>(c));
    m_valid.set(0);
}

void QtIdName::set(QtAtomIdType id) {
    m_id = id;
    m_render[0] = 0;
}

void QtIdName::set(char const* text) {
    m_render[0] = 0;
    m_id = 0;
    if (!text) return;
    size_t n = strnlen(text, 5);
    if (n > 4) return;
    unsigned char bytes[4] = {0, 0, 0, 0};
    memcpy(bytes, text, n);
    m_id = getBigEndian32(bytes);
}

bool QtIdName::valid() const {
    int inSet = 0;
    for (int shift = 0; shift < 32; shift += 8)
        if (m_valid.test((m_id >> shift) & 0xFF)) ++inSet;
    if (inSet == 4) return true;
    // Three printable bytes and a copyright sign leading the name ("(c)nam" user data).
    return inSet == 3 && isCopyright(static_cast<unsigned char>(m_id >> 24));
}

char const* QtIdName::slowRender() const {
    unsigned char bytes[4];
    putBigEndian32(bytes, m_id);
    if (valid()) {
        for (int i = 0; i < 4; ++i) m_render[i] = static_cast<char>(bytes[i]);
        if (isCopyright(bytes[0])) m_render[0] = '@';
        m_render[4] = 0;
        return m_render;
    }
    for (int i = 0; i < 4; ++i) m_render[i] = bytes[i] >= 32 && bytes[i] <= 127 ? static_cast<char>(bytes[i]) : '?';
    snprintf(m_render + 4, sizeof m_render - 4, "(%02x.%02x.%02x.%02x)", bytes[3], bytes[2], bytes[1], bytes[0]);
    return m_render;
}
