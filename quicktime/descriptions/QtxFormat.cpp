#include "quicktime/descriptions/QtxFormat.h"

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtIdName.h"

Qtx::Format::Format(unsigned int size) : Atom(qtId("frma"), size) {}

bool Qtx::Format::encode(QtAtomBuffer& buffer) {
    encodeHeader(buffer);
    BaseQtAtom::encode(buffer, m_format);
    encodeTrailing(buffer);
    return true;
}

bool Qtx::Format::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kFieldBytes)) return false;
    m_format = BaseQtAtom::decodeUint32(buffer);
    keepTrailing(buffer, kFieldBytes);
    return true;
}

AutoPtr<char> Qtx::Format::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s={%s}", base.get(), QtIdName(m_format).render());
}
