#include "quicktime/descriptions/QtUnknownSampleDesc.h"

#include "framework/Messages.h"

QtUnknownSampleDesc::QtUnknownSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex)
    : QtSampleDesc(owner, kHeaderSize, dataRefIndex) {}

bool QtUnknownSampleDesc::decode(QtAtomBuffer& buffer) {
    if (!QtSampleDesc::decode(buffer)) return false;
    if (m_size > kHeaderSize) keepOpaque(buffer, m_size - kHeaderSize);
    return true;
}

bool QtUnknownSampleDesc::encode(QtAtomBuffer& buffer) const {
    unsigned int start = buffer.nOccupied();
    QtSampleDesc::encode(buffer);
    if (getOpaque().getSize() <= roomLeft(buffer, start)) getOpaque().encode(buffer);
    padToSize(buffer, start);
    return true;
}

void QtUnknownSampleDesc::show(unsigned int indent) const {
    infoMsg("%*sunknown: ", static_cast<int>(indent), "");
    showHeader();
    infoMsg("\n");
}
