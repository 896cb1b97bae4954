#include "quicktime/atoms/QtAtomTimecodeInf.h"

#include <algorithm>
#include <cstring>

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

// The size includes the empty name's length byte.
QtAtomTimecodeInf::QtAtomTimecodeInf(BaseQtAtom const* parent)
    : BaseQtAtom(qtId("tcmi"), parent, 8 + kBodySize + 1) {
    m_fontName.set("", 0);
}

bool QtAtomTimecodeInf::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_textFont = decodeUint16(buffer);
    m_textFace = decodeUint16(buffer);
    m_textSize = decodeUint16(buffer);
    m_textColor.decode(buffer);
    m_backgroundColor.decode(buffer);
    m_trailer = decodeUint16(buffer);

    // The name is read from the atom's own bytes only; whatever follows it in the atom is skipped.
    unsigned int left = QtAtomHelpers::bytesLeft(*this, buffer);
    QtAtomBuffer nameBytes(buffer.ptrData(), left, QtAtomBuffer::Full);
    m_fontName.set("", 0);
    if (left > 0) m_fontName.decode(nameBytes);
    buffer.removeInput(left);
    return true;
}

bool QtAtomTimecodeInf::encode(QtAtomBuffer& buffer) const {
    unsigned int before = buffer.nOccupied();
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_textFont);
    encode(buffer, static_cast<uint16_t>(m_textFace));
    encode(buffer, m_textSize);
    m_textColor.encode(buffer);
    m_backgroundColor.encode(buffer);
    encode(buffer, m_trailer);
    unsigned long room = QtAtomHelpers::roomAfter(*this, getFixedSize());
    if (room >= m_fontName.encodeSize()) {
        m_fontName.encode(buffer);
    } else if (room > 0) {
        // Only the length byte and room - 1 characters fit.
        unsigned int length =
            static_cast<unsigned int>(std::min<unsigned long>(m_fontName.getLength(), room - 1));
        encode(buffer, static_cast<unsigned char>(length));
        buffer.append(m_fontName.getString(), length);
    }
    QtAtomHelpers::padToSize(*this, buffer, before);
    return true;
}

void QtAtomTimecodeInf::setFontName(char const* name) const {
    QtAtomTimecodeInf* self = write();
    self->m_fontName.set(name ? name : "", 0);
}

void QtAtomTimecodeInf::show() const {
    infoMsg("%s,f=%d/0x%x/%dpt,\n%*s%s,%s,%s\n", QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(),
            m_textFont, m_textFace, m_textSize, QtAtomHelpers::continuationIndent(*this), "",
            m_fontName.toString().get(), m_textColor.toString("fg").get(),
            m_backgroundColor.toString("bg").get());
}
