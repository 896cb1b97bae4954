#include "quicktime/tables/QtGopPattern.h"

#include <cstdio>
#include <cstring>

#include "framework/FormatStr.h"

void QtGopPattern::reset(unsigned int first) {
    m_count = 0;
    m_first = first;
    m_iFrames = 0;
    m_repeat = 0;
}

void QtGopPattern::init() { memset(m_types, 0, sizeof m_types); }

QtGopPattern& QtGopPattern::operator+=(SampleCodingType type) {
    if (m_count < kMaxTypes) m_types[m_count++] = type;
    if (type == SampleCodingI) ++m_iFrames;
    return *this;
}

bool QtGopPattern::operator==(QtGopPattern const& other) const {
    return m_count == other.m_count && memcmp(m_types, other.m_types, m_count) == 0;
}

AutoPtr<char> QtGopPattern::toString(int& n) const {
    char text[512];
    int at = 0;
    text[0] = 0;
    if (m_count != 0) {
        if (n != 0) text[at++] = ',';
        ++n;
        at += snprintf(text + at, sizeof text - at, "%u{", m_first);
        for (unsigned int i = 0; i < m_count && at < static_cast<int>(sizeof text) - 16; ++i)
            text[at++] = sampleCodingLetter(m_types[i]);
        if (m_repeat != 0)
            snprintf(text + at, sizeof text - at, "}*%u", m_repeat + 1);
        else
            snprintf(text + at, sizeof text - at, "}");
    }
    return copyText(text);
}
