#include "quicktime/descriptions/QtxEndian.h"

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"

Qtx::Endian::Endian(unsigned int size) : Atom(qtId("enda"), size) {}

bool Qtx::Endian::encode(QtAtomBuffer& buffer) {
    encodeHeader(buffer);
    BaseQtAtom::encode(buffer, m_value);
    encodeTrailing(buffer);
    return true;
}

bool Qtx::Endian::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kFieldBytes)) return false;
    m_value = BaseQtAtom::decodeUint16(buffer);
    keepTrailing(buffer, kFieldBytes);
    return true;
}

AutoPtr<char> Qtx::Endian::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s={%s}", base.get(), m_value ? "little" : "big");
}
