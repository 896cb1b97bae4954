#include "quicktime/descriptions/QtxColorInfo.h"

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtIdName.h"

Qtx::ColorInfo::ColorInfo(unsigned int size) : Atom(qtId("colr"), size), m_paramType(qtId("nclc")) {}

void Qtx::ColorInfo::set(QtAtomIdType paramType, unsigned short primaries, unsigned short transfer,
                         unsigned short matrix) {
    m_paramType = paramType;
    m_primaries = primaries;
    m_transfer = transfer;
    m_matrix = matrix;
}

bool Qtx::ColorInfo::encode(QtAtomBuffer& buffer) {
    encodeHeader(buffer);
    BaseQtAtom::encode(buffer, m_paramType);
    BaseQtAtom::encode(buffer, m_primaries);
    BaseQtAtom::encode(buffer, m_transfer);
    BaseQtAtom::encode(buffer, m_matrix);
    encodeTrailing(buffer);
    return true;
}

bool Qtx::ColorInfo::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kFieldBytes)) return false;
    m_paramType = BaseQtAtom::decodeUint32(buffer);
    m_primaries = BaseQtAtom::decodeUint16(buffer);
    m_transfer = BaseQtAtom::decodeUint16(buffer);
    m_matrix = BaseQtAtom::decodeUint16(buffer);
    keepTrailing(buffer, kFieldBytes);
    return true;
}

AutoPtr<char> Qtx::ColorInfo::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s={ type='%s', primaries=%d, xferFunc=%d, matrix=%d}", base.get(),
                     QtIdName(m_paramType).render(), m_primaries, m_transfer, m_matrix);
}
