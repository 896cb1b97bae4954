#include "quicktime/atoms/QtAtomBaseInf.h"

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomBaseInf::QtAtomBaseInf(BaseQtAtom const* parent) : BaseQtAtom(qtId("gmin"), parent, 8 + kBodySize) {}

bool QtAtomBaseInf::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_graphicsMode = decodeUint16(buffer);
    m_opcolor.decode(buffer);
    m_balance = decodeUint16(buffer);
    m_reserved = decodeUint16(buffer);
    return true;
}

bool QtAtomBaseInf::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_graphicsMode);
    m_opcolor.encode(buffer);
    encode(buffer, m_balance);
    encode(buffer, m_reserved);
    return true;
}

void QtAtomBaseInf::show() const {
    infoMsg("%s,mode%d,rgb=0x%x/%x/%x,bal=0x%x\n",
            QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(), m_graphicsMode, m_opcolor.red,
            m_opcolor.green, m_opcolor.blue, m_balance);
}
