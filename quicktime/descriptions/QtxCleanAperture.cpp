#include "quicktime/descriptions/QtxCleanAperture.h"

#include <string>

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"

Qtx::CleanAperture::CleanAperture(unsigned int size) : Atom(qtId("clap"), size) {}

void Qtx::CleanAperture::set(unsigned int widthN, unsigned int widthD, unsigned int heightN,
                             unsigned int heightD) {
    m_numerator[Width] = widthN;
    m_denominator[Width] = widthD;
    m_numerator[Height] = heightN;
    m_denominator[Height] = heightD;
    m_numerator[HorizOffset] = m_numerator[VertOffset] = 0;
    m_denominator[HorizOffset] = m_denominator[VertOffset] = 1;
}

double Qtx::CleanAperture::ratio(Part part) const {
    if (m_denominator[part] == 0) return 0.0;
    return static_cast<double>(m_numerator[part]) / m_denominator[part];
}

bool Qtx::CleanAperture::encode(QtAtomBuffer& buffer) {
    encodeHeader(buffer);
    for (int part = 0; part < PartCount; ++part) {
        BaseQtAtom::encode(buffer, m_numerator[part]);
        BaseQtAtom::encode(buffer, m_denominator[part]);
    }
    encodeTrailing(buffer);
    return true;
}

bool Qtx::CleanAperture::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kFieldBytes)) return false;
    for (int part = 0; part < PartCount; ++part) {
        m_numerator[part] = BaseQtAtom::decodeUint32(buffer);
        m_denominator[part] = BaseQtAtom::decodeUint32(buffer);
    }
    keepTrailing(buffer, kFieldBytes);
    return true;
}

AutoPtr<char> Qtx::CleanAperture::toString() const {
    static char const* const kNames[PartCount] = {"width", "height", "horizOff", "vertOff"};
    std::string text = Atom::toString().get();
    text += "={";
    for (int part = 0; part < PartCount; ++part) {
        int numerator = static_cast<int>(m_numerator[part]);
        AutoPtr<char> value = m_denominator[part] == 1 ? FormatStr("%s=%d", kNames[part], numerator)
                                                       : FormatStr("%s=%d/%d", kNames[part], numerator,
                                                                   static_cast<int>(m_denominator[part]));
        text += value.get();
        text += part + 1 < PartCount ? ", " : "}";
    }
    return copyText(text.c_str());
}
