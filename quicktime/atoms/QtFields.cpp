#include "quicktime/atoms/QtFields.h"

#include <algorithm>

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"

QtPascalString::~QtPascalString() {
    if (m_owns) delete[] m_storage;
}

QtPascalString::QtPascalString(QtPascalString const& other) {
    if (other.m_storage) set(other.getString(), other.getLength() ? other.getLength() : 0);
}

QtPascalString& QtPascalString::operator=(QtPascalString const& other) {
    if (this != &other) set(other.m_storage ? other.getString() : nullptr, other.getLength());
    return *this;
}

char const* QtPascalString::set(char const* text, unsigned int length) {
    if (length == 0 && text) length = static_cast<unsigned int>(strlen(text));
    if (length > 255) length = 255;
    if (m_owns) {
        delete[] m_storage;
        m_storage = nullptr;
        m_capacity = 0;
        if (!text) return getString();
        m_capacity = length;
        m_storage = new char[length + 2];
    }
    if (!m_storage) return getString();
    if (text) {
        unsigned int n = std::min(length, m_capacity);
        memcpy(m_storage + 1, text, n);
        memset(m_storage + 1 + n, 0, m_capacity + 1 - n);
        m_storage[0] = static_cast<char>(n);
    } else {
        memset(m_storage, 0, m_capacity + 2);
    }
    return getString();
}

char const* QtPascalString::getString() const { return m_storage ? m_storage + 1 : ""; }

void QtPascalString::encode(QtAtomBuffer& buffer) const {
    if (!m_storage) {
        buffer.append(1, true);
        return;
    }
    buffer.append(m_storage, encodeSize());
}

void QtPascalString::decode(QtAtomBuffer& buffer) {
    if (buffer.nOccupied() == 0) return;
    char const* data = reinterpret_cast<char const*>(buffer.ptrData());
    unsigned int present = buffer.nOccupied() - 1;
    unsigned int length = static_cast<unsigned char>(data[0]);
    if (length == 0) {
        // A zero length byte measures the following characters up to the next zero byte, as a
        // C string would; the measurement stops at the end of the buffer.
        auto const* end = static_cast<char const*>(memchr(data + 1, 0, present));
        length = end ? static_cast<unsigned int>(end - (data + 1)) : present;
    }
    length = std::min({length, present, 255u});
    if (length > 0)
        set(data + 1, length);
    else
        set("", 0);
    buffer.removeInput(encodeSize());
}

AutoPtr<char> QtPascalString::toString() const {
    if (getLength() == 0) return copyText("<>");
    return copyText(getString());
}

bool QtPascalString::operator==(QtPascalString const& other) const {
    return getLength() == other.getLength() && memcmp(getString(), other.getString(), getLength()) == 0;
}

void QtVersionAndFlags::decode(QtAtomBuffer& buffer) { *this = QtVersionAndFlags(BaseQtAtom::decodeUint32(buffer)); }

void QtVersionAndFlags::encode(QtAtomBuffer& buffer) const { BaseQtAtom::encode(buffer, word()); }

AutoPtr<char> QtVersionAndFlags::toString() const { return FormatStr("v%d,f=%x", version, flags); }

QtFraction::QtFraction(uint32_t numerator, uint32_t denominator) : m_numerator(numerator), m_denominator(denominator) {
    if (m_denominator == 0) m_denominator = 1;
    int32_t a = static_cast<int32_t>(m_numerator), b = static_cast<int32_t>(m_denominator);
    while (b != 0) {
        int32_t t = a % b;
        a = b;
        b = t;
    }
    if (a < 0) a = -a;
    if (a > 1) {
        m_numerator /= static_cast<uint32_t>(a);
        m_denominator /= static_cast<uint32_t>(a);
    }
}

void QtMatrix::decode(QtAtomBuffer& buffer) {
    for (uint32_t& v : values) v = BaseQtAtom::decodeUint32(buffer);
}

void QtMatrix::encode(QtAtomBuffer& buffer) const {
    for (uint32_t v : values) BaseQtAtom::encode(buffer, v);
}

AutoPtr<char> QtMatrix::toString() const {
    return FormatStr("{%x,%x,%x,%x,%x,%x,%x,%x,%x}", values[0], values[1], values[2], values[3], values[4], values[5],
                     values[6], values[7], values[8]);
}

void QtRect::decode(QtAtomBuffer& buffer) {
    top = BaseQtAtom::decodeUint16(buffer);
    left = BaseQtAtom::decodeUint16(buffer);
    bottom = BaseQtAtom::decodeUint16(buffer);
    right = BaseQtAtom::decodeUint16(buffer);
}

void QtRect::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer, top);
    BaseQtAtom::encode(buffer, left);
    BaseQtAtom::encode(buffer, bottom);
    BaseQtAtom::encode(buffer, right);
}

void QtColor::decode(QtAtomBuffer& buffer) {
    red = BaseQtAtom::decodeUint16(buffer);
    green = BaseQtAtom::decodeUint16(buffer);
    blue = BaseQtAtom::decodeUint16(buffer);
}

void QtColor::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer, red);
    BaseQtAtom::encode(buffer, green);
    BaseQtAtom::encode(buffer, blue);
}

AutoPtr<char> QtColor::toString(char const* label) const {
    return FormatStr("%s=0x%x/%x/%x", label ? label : "rgb", red, green, blue);
}
