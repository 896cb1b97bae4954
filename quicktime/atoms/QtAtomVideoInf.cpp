#include "quicktime/atoms/QtAtomVideoInf.h"

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomVideoInf::QtAtomVideoInf(BaseQtAtom const* parent) : BaseQtAtom(qtId("vmhd"), parent, 8 + kBodySize) {}

bool QtAtomVideoInf::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_graphicsMode = decodeUint16(buffer);
    m_opcolor.decode(buffer);
    return true;
}

bool QtAtomVideoInf::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_graphicsMode);
    m_opcolor.encode(buffer);
    return true;
}

void QtAtomVideoInf::show() const {
    char const* lean = m_versionAndFlags.flags & 0x1 ? "" : "lean,";
    infoMsg("%s,%smode%d,rgb=0x%x/%x/%x\n", QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(), lean,
            m_graphicsMode, m_opcolor.red, m_opcolor.green, m_opcolor.blue);
}
