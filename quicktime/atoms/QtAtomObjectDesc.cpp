#include "quicktime/atoms/QtAtomObjectDesc.h"

#include <cstring>

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomObjectDesc::QtAtomObjectDesc(BaseQtAtom const* parent)
    : BaseQtAtom(qtId("hmhd"), parent, 8 + kBodySize) {}

QtAtomObjectDesc::~QtAtomObjectDesc() { delete[] m_bytes; }

bool QtAtomObjectDesc::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_descriptor.tag = decodeUint8(buffer);
    delete[] m_bytes;
    m_bytes = nullptr;
    m_length = QtAtomHelpers::bytesLeft(*this, buffer);
    if (m_length > 0) {
        m_bytes = new unsigned char[m_length];
        memcpy(m_bytes, buffer.ptrData(), m_length);
        buffer.removeInput(m_length);
    }
    return true;
}

bool QtAtomObjectDesc::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, static_cast<unsigned char>(m_descriptor.tag));
    buffer.append(m_bytes, m_length);
    return true;
}

AutoPtr<char> QtAtomObjectDesc::bytesText() const {
    static char const kDigits[] = "0123456789abcdef";
    AutoPtr<char> text(new char[2 * static_cast<size_t>(m_length) + 1]);
    for (unsigned int i = 0; i < m_length; ++i) {
        text.get()[2 * i] = kDigits[m_bytes[i] >> 4];
        text.get()[2 * i + 1] = kDigits[m_bytes[i] & 0xF];
    }
    text.get()[2 * static_cast<size_t>(m_length)] = 0;
    return text;
}

void QtAtomObjectDesc::show() const {
    infoMsg("%s: tag=0x%x, bits=%s\n", toString().get(), m_descriptor.tag, bytesText().get());
}
