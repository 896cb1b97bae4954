#include "quicktime/descriptions/QtxACLR.h"

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"

QtxTaggedPairAtom::QtxTaggedPairAtom(QtAtomIdType type, unsigned int size) : Atom(type, size), m_tag(type) {
    zeroTrailing(kBuiltSize - kHeaderSize - kFieldBytes);
}

void QtxTaggedPairAtom::set(unsigned int first, unsigned int second) {
    m_first = first;
    m_second = second;
}

bool QtxTaggedPairAtom::encode(QtAtomBuffer& buffer) {
    encodeHeader(buffer);
    BaseQtAtom::encode(buffer, m_tag);
    BaseQtAtom::encode(buffer, m_first);
    BaseQtAtom::encode(buffer, m_second);
    encodeTrailing(buffer);
    return true;
}

bool QtxTaggedPairAtom::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kFieldBytes)) return false;
    m_tag = BaseQtAtom::decodeUint32(buffer);
    m_first = BaseQtAtom::decodeUint32(buffer);
    m_second = BaseQtAtom::decodeUint32(buffer);
    keepTrailing(buffer, kFieldBytes);
    return true;
}

Qtx::ACLR::ACLR(unsigned int size) : QtxTaggedPairAtom(qtId("ACLR"), size) {}

AutoPtr<char> Qtx::ACLR::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s={color=%d}", base.get(), static_cast<int>(getColor()));
}

Qtx::APRG::APRG(unsigned int size) : QtxTaggedPairAtom(qtId("APRG"), size) {}

AutoPtr<char> Qtx::APRG::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s={prg=%d}", base.get(), static_cast<int>(getProgram()));
}
