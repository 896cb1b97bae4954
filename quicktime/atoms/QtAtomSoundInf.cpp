#include "quicktime/atoms/QtAtomSoundInf.h"

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomSoundInf::QtAtomSoundInf(BaseQtAtom const* parent) : BaseQtAtom(qtId("smhd"), parent, 8 + kBodySize) {}

bool QtAtomSoundInf::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_balance = decodeUint16(buffer);
    m_reserved = decodeUint16(buffer);
    return true;
}

bool QtAtomSoundInf::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_balance);
    encode(buffer, m_reserved);
    return true;
}

void QtAtomSoundInf::show() const {
    infoMsg("%s,balance=0x%x\n", QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(), m_balance);
}
