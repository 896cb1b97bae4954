#include "quicktime/descriptions/QtxARES.h"

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"

Qtx::ARES::ARES(unsigned int size) : Atom(qtId("ARES"), size), m_tag(qtId("ARES")) {
    zeroTrailing(kBuiltSize - kHeaderSize - kFieldBytes);
}

void Qtx::ARES::set(unsigned int first, unsigned int compressionId, unsigned int width, unsigned int height,
                    unsigned int fields, unsigned int format) {
    m_first = first;
    m_compressionId = compressionId;
    m_width = width;
    m_height = height;
    m_fields = fields;
    m_format = format;
    m_bitDepth = bitDepthOf(compressionId);
}

unsigned int Qtx::ARES::bitDepthOf(unsigned int compressionId) {
    return compressionId == 1235 || compressionId == 1241 || compressionId == 1250 ? 10 : 8;
}

char const* Qtx::ARES::formatName(unsigned int format) {
    switch (format) {
        case 4:
            return "1080i";
        case 5:
            return "1080p";
        case 6:
            return "720p";
        default:
            return "??";
    }
}

bool Qtx::ARES::encode(QtAtomBuffer& buffer) {
    encodeHeader(buffer);
    for (unsigned int word :
         {m_tag, m_first, m_compressionId, m_width, m_height, m_fields, m_reserved, m_format})
        BaseQtAtom::encode(buffer, word);
    encodeTrailing(buffer);
    return true;
}

bool Qtx::ARES::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kFieldBytes)) return false;
    m_tag = BaseQtAtom::decodeUint32(buffer);
    m_first = BaseQtAtom::decodeUint32(buffer);
    m_compressionId = BaseQtAtom::decodeUint32(buffer);
    m_bitDepth = bitDepthOf(m_compressionId);
    m_width = BaseQtAtom::decodeUint32(buffer);
    m_height = BaseQtAtom::decodeUint32(buffer);
    m_fields = BaseQtAtom::decodeUint32(buffer);
    m_reserved = BaseQtAtom::decodeUint32(buffer);
    m_format = BaseQtAtom::decodeUint32(buffer);
    keepTrailing(buffer, kFieldBytes);
    return true;
}

AutoPtr<char> Qtx::ARES::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s={cid=%d, width=%d, height=%d, fields=%d, format=%d (%s?)}", base.get(),
                     static_cast<int>(m_compressionId), static_cast<int>(m_width), static_cast<int>(m_height),
                     static_cast<int>(m_fields), static_cast<int>(m_format), formatName(m_format));
}
