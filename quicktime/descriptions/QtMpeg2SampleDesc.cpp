#include "quicktime/descriptions/QtMpeg2SampleDesc.h"

#include "framework/Messages.h"

QtMpeg2SampleDesc::QtMpeg2SampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex)
    : QtSampleDesc(owner, kFixedSize, dataRefIndex) {}

bool QtMpeg2SampleDesc::decode(QtAtomBuffer& buffer) {
    unsigned int start = buffer.bufferOffset();
    if (!QtSampleDesc::decode(buffer)) return false;
    if (keepIfShort(buffer, kFixedSize)) return true;
    m_reserved.decode(buffer);
    unsigned int read = buffer.bufferOffset() - start;
    if (read < m_size) keepOpaque(buffer, m_size - read);
    return true;
}

bool QtMpeg2SampleDesc::encode(QtAtomBuffer& buffer) const {
    unsigned int start = buffer.nOccupied();
    QtSampleDesc::encode(buffer);
    if (!isKeptWhole()) {
        m_reserved.encode(buffer);
        if (getOpaque().getSize() <= roomLeft(buffer, start)) getOpaque().encode(buffer);
    }
    padToSize(buffer, start);
    return true;
}

void QtMpeg2SampleDesc::show(unsigned int indent) const {
    infoMsg("%*smpeg-2: ", static_cast<int>(indent), "");
    showHeader();
}
