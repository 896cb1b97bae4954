#include "quicktime/descriptions/QtxPixelAspectRatio.h"

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"

Qtx::PixelAspectRatio::PixelAspectRatio(unsigned int size) : Atom(qtId("pasp"), size) {}

void Qtx::PixelAspectRatio::set(unsigned int hSpacing, unsigned int vSpacing) {
    m_hSpacing = hSpacing;
    m_vSpacing = vSpacing;
}

bool Qtx::PixelAspectRatio::encode(QtAtomBuffer& buffer) {
    encodeHeader(buffer);
    BaseQtAtom::encode(buffer, m_hSpacing);
    BaseQtAtom::encode(buffer, m_vSpacing);
    encodeTrailing(buffer);
    return true;
}

bool Qtx::PixelAspectRatio::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kFieldBytes)) return false;
    m_hSpacing = BaseQtAtom::decodeUint32(buffer);
    m_vSpacing = BaseQtAtom::decodeUint32(buffer);
    keepTrailing(buffer, kFieldBytes);
    return true;
}

AutoPtr<char> Qtx::PixelAspectRatio::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s={hSpacing=%d, vSpacing=%d}", base.get(), static_cast<int>(m_hSpacing),
                     static_cast<int>(m_vSpacing));
}
