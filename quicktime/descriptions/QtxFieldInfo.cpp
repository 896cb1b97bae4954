#include "quicktime/descriptions/QtxFieldInfo.h"

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"

Qtx::FieldInfo::FieldInfo(unsigned int size) : Atom(qtId("fiel"), size) {}

void Qtx::FieldInfo::set(unsigned char fields, unsigned char detail) {
    m_fields = fields;
    m_detail = detail;
}

bool Qtx::FieldInfo::encode(QtAtomBuffer& buffer) {
    encodeHeader(buffer);
    BaseQtAtom::encode(buffer, m_fields);
    BaseQtAtom::encode(buffer, m_detail);
    encodeTrailing(buffer);
    return true;
}

bool Qtx::FieldInfo::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kFieldBytes)) return false;
    m_fields = BaseQtAtom::decodeUint8(buffer);
    m_detail = BaseQtAtom::decodeUint8(buffer);
    keepTrailing(buffer, kFieldBytes);
    return true;
}

char const* Qtx::FieldInfo::detailName(unsigned char fields, unsigned char detail) {
    switch (detail) {
        case FieldDetailTopFirst:
            return "topFirst";
        case FieldDetailBottomFirst:
            return "bottomFirst";
        case FieldDetailFirstLineEarly:
            return "firstLineEarly";
        case FieldDetailFirstLineLate:
            return "firstLineLate";
        default:
            return fields == 1 ? "onlyOneField" : "unknown";
    }
}

AutoPtr<char> Qtx::FieldInfo::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s={ fields=%d, detail=%s}", base.get(), m_fields, detailName(m_fields, m_detail));
}
