#include "quicktime/descriptions/QtTextSampleDesc.h"

#include <cstring>

#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"

QtTextSampleDesc::QtTextSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex)
    : QtSampleDesc(owner, kHeaderSize, dataRefIndex) {}

QtTextSampleDesc::~QtTextSampleDesc() { delete[] m_fontName; }

bool QtTextSampleDesc::decode(QtAtomBuffer& buffer) {
    unsigned int start = buffer.bufferOffset();
    if (!QtSampleDesc::decode(buffer)) return false;
    if (keepIfShort(buffer, kFieldsSize)) return true;
    m_displayFlags = BaseQtAtom::decodeUint32(buffer);
    m_justification = BaseQtAtom::decodeUint32(buffer);
    m_backgroundColor.decode(buffer);
    m_defaultTextBox.decode(buffer);
    m_reserved8.decode(buffer);
    m_fontNumber = BaseQtAtom::decodeUint16(buffer);
    m_fontFace = BaseQtAtom::decodeUint16(buffer);
    m_reserved3.decode(buffer);
    m_foregroundColor.decode(buffer);
    delete[] m_fontName;
    m_fontName = nullptr;
    unsigned int read = buffer.bufferOffset() - start;
    if (read < m_size) m_fontName = BaseQtAtom::decodeString(buffer, 0);
    read = buffer.bufferOffset() - start;
    if (read < m_size) keepOpaque(buffer, m_size - read);
    return true;
}

bool QtTextSampleDesc::encode(QtAtomBuffer& buffer) const {
    unsigned int start = buffer.nOccupied();
    QtSampleDesc::encode(buffer);
    if (!isKeptWhole()) {
        BaseQtAtom::encode(buffer, m_displayFlags);
        BaseQtAtom::encode(buffer, m_justification);
        m_backgroundColor.encode(buffer);
        m_defaultTextBox.encode(buffer);
        m_reserved8.encode(buffer);
        BaseQtAtom::encode(buffer, m_fontNumber);
        BaseQtAtom::encode(buffer, static_cast<unsigned short>(m_fontFace & 0xFFFF));
        m_reserved3.encode(buffer);
        m_foregroundColor.encode(buffer);
        if (m_fontName && strlen(m_fontName) + 1 <= roomLeft(buffer, start))
            BaseQtAtom::encode(buffer, m_fontName);
        if (getOpaque().getSize() <= roomLeft(buffer, start)) getOpaque().encode(buffer);
    }
    padToSize(buffer, start);
    return true;
}

void QtTextSampleDesc::show(unsigned int indent) const {
    infoMsg("%*stext: ", static_cast<int>(indent), "");
    showHeader();
    infoMsg(",display=0x%x,font=%s", m_displayFlags, m_fontName ? m_fontName : "null");
}
