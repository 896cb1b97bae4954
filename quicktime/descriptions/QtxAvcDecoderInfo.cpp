#include "quicktime/descriptions/QtxAvcDecoderInfo.h"

#include <cstring>

#include "framework/FormatStr.h"
#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"

namespace {

// Fields before the SPS: version, profile, compatibility, level, length size, SPS count, SPS length.
constexpr unsigned int kLeadingBytes = 8;

bool refuseTooBig(char const* what, unsigned int length) {
    errorMsg("Error: %s parameter set in 'stsd:avcC' is too big (%d bytes, max supported is %d)\n", what,
             static_cast<int>(length), static_cast<int>(Qtx::AvcDecoderInfo::kMaxParameterSetLength));
    return false;
}

}  // namespace

Qtx::AvcDecoderInfo::AvcDecoderInfo() : Atom(qtId("avcC"), kReservedSize) {}

bool Qtx::AvcDecoderInfo::writeLengthPrefix(unsigned char* at, unsigned int length) const {
    switch (m_nalUnitLengthSize) {
        case 1:
            at[0] = static_cast<unsigned char>(length);
            return true;
        case 2:
        case 4: {
            unsigned char* low = at + m_nalUnitLengthSize - 2;
            low[0] = static_cast<unsigned char>(length >> 8);
            low[1] = static_cast<unsigned char>(length);
            return true;
        }
        default:
            errorMsg("Error: invalid NAL unit length size of %d in 'stsd:avcC' atom\n", m_nalUnitLengthSize);
            return false;
    }
}

bool Qtx::AvcDecoderInfo::set(unsigned int spsLength, unsigned char const* sps, unsigned int ppsLength,
                              unsigned char const* pps) {
    if (spsLength > kMaxParameterSetLength) return refuseTooBig("sequence", spsLength);
    if (ppsLength > kMaxParameterSetLength) return refuseTooBig("picture", ppsLength);
    memset(m_spsPps, 0, sizeof m_spsPps);
    m_spsCount = m_ppsCount = 1;
    m_spsLength = static_cast<unsigned short>(spsLength);
    m_ppsLength = static_cast<unsigned short>(ppsLength);
    unsigned char* spsPrefix = m_spsPps;
    unsigned char* ppsPrefix = m_spsPps + m_nalUnitLengthSize + spsLength;
    if (!writeLengthPrefix(spsPrefix, spsLength) || !writeLengthPrefix(ppsPrefix, ppsLength)) return false;
    if (spsLength) memcpy(spsPrefix + m_nalUnitLengthSize, sps, spsLength);
    if (ppsLength) memcpy(ppsPrefix + m_nalUnitLengthSize, pps, ppsLength);
    if (spsLength > 1) m_profile = sps[1];
    if (spsLength > 2) m_profileCompatibility = sps[2];
    if (spsLength > 3) m_level = sps[3];
    zeroTrailing(0);
    setSize(spsLength + 19 + ppsLength);
    return true;
}

unsigned int Qtx::AvcDecoderInfo::getAvcSpsPpsLength() const {
    if (!hasParameterSets()) return 0;
    return 2u * m_nalUnitLengthSize + m_spsLength + m_ppsLength;
}

bool Qtx::AvcDecoderInfo::encode(QtAtomBuffer& buffer) {
    if (!hasParameterSets()) {
        // The reservation: the size it holds, and a type of 0 that makes a reader stop there.
        BaseQtAtom::encode(buffer, getSize());
        BaseQtAtom::encode(buffer, 0u);
        return true;
    }
    encodeHeader(buffer);
    for (unsigned char byte : {m_version, m_profile, m_profileCompatibility, m_level})
        BaseQtAtom::encode(buffer, byte);
    BaseQtAtom::encode(buffer, static_cast<unsigned char>(0xFC | (m_nalUnitLengthSize - 1)));
    BaseQtAtom::encode(buffer, static_cast<unsigned char>(0xE0 | m_spsCount));
    BaseQtAtom::encode(buffer, m_spsLength);
    buffer.append(sps(), m_spsLength);
    BaseQtAtom::encode(buffer, m_ppsCount);
    BaseQtAtom::encode(buffer, m_ppsLength);
    buffer.append(pps(), m_ppsLength);
    encodeTrailing(buffer);
    return true;
}

// The header said how large the atom is (getSize() on entry); every length read is checked against
// what is left of it before the bytes are taken.
bool Qtx::AvcDecoderInfo::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kLeadingBytes)) return false;
    unsigned int left = getBodySize() - kLeadingBytes;
    m_version = BaseQtAtom::decodeUint8(buffer);
    m_profile = BaseQtAtom::decodeUint8(buffer);
    m_profileCompatibility = BaseQtAtom::decodeUint8(buffer);
    m_level = BaseQtAtom::decodeUint8(buffer);
    unsigned int lengthSize = (BaseQtAtom::decodeUint8(buffer) & 3) + 1;
    if (lengthSize != 4) {
        errorMsg("Error: NAL unit length size of %d in 'stsd:avcC' atom is not supported\n", lengthSize);
        return false;
    }
    if ((BaseQtAtom::decodeUint8(buffer) & 31) != 1) {
        errorMsg("Error: multiple sequence parameter sets in 'stsd:avcC' atom is not supported\n");
        return false;
    }
    unsigned int spsLength = BaseQtAtom::decodeUint16(buffer);
    if (spsLength > kMaxParameterSetLength) return refuseTooBig("sequence", spsLength);
    if (left < spsLength + 3) return false;
    unsigned char sps[kMaxParameterSetLength];
    memcpy(sps, buffer.ptrData(), spsLength);
    buffer.removeInput(spsLength);
    left -= spsLength + 3;
    if (BaseQtAtom::decodeUint8(buffer) != 1) {
        errorMsg("Error: multiple picture parameter sets in 'stsd:avcC' atom is not supported\n");
        return false;
    }
    unsigned int ppsLength = BaseQtAtom::decodeUint16(buffer);
    if (ppsLength > kMaxParameterSetLength) return refuseTooBig("picture", ppsLength);
    if (left < ppsLength) return false;
    unsigned char pps[kMaxParameterSetLength];
    memcpy(pps, buffer.ptrData(), ppsLength);
    buffer.removeInput(ppsLength);
    unsigned int trailing = left - ppsLength;
    if (!set(spsLength, sps, ppsLength, pps)) return false;
    keepTrailingBytes(buffer, trailing);
    setSize(getSize() + trailing);
    return true;
}

AutoPtr<char> Qtx::AvcDecoderInfo::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr(
        "%s={version=%d, profile=%d, profile_compat=%d, level=%d, nalUnitLengthSize=%d, sps=%db, pps=%db}",
        base.get(), m_version, m_profile, m_profileCompatibility, m_level, m_nalUnitLengthSize,
        m_spsCount ? m_spsLength : 0, m_ppsCount ? m_ppsLength : 0);
}
