#include "quicktime/refs/QtAtomDataRefHdr.h"

#include "framework/Messages.h"

QtAtomDataRefHdr::QtAtomDataRefHdr(BaseQtAtom const* parent) : BaseQtAtom(qtId("dref"), parent, 16) {}

bool QtAtomDataRefHdr::decode(QtAtomBuffer& buffer) {
    bool ok = BaseQtAtom::decode(buffer);
    if (buffer.nOccupied() < 8) return false;
    m_versionAndFlags.decode(buffer);
    m_count = decodeUint32(buffer);
    return ok;
}

bool QtAtomDataRefHdr::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    BaseQtAtom::encode(buffer, m_count);
    return true;
}

void QtAtomDataRefHdr::show() const { infoMsg("%s,nref=%d\n", toString().get(), m_count); }

void QtAtomDataRefHdr::setCount(unsigned int count) const {
    if (count != m_count) static_cast<QtAtomDataRefHdr*>(write())->m_count = count;
}
