// Qtx::AvcDecoderInfo: the 'avcC' extension atom of H.264 video, carrying the one sequence parameter
// set (SPS) and one picture parameter set (PPS) a decoder needs before the first frame. A recorder
// learns them only after the first frames, so a new one is empty and reserves the largest size
// (147 bytes, written as an 8-byte placeholder of type 0); set() fills it in later.
// The parameter sets are kept each behind its length as a big-endian number of NAL-unit-length-size
// bytes, ready to be placed in front of a stream. Bytes after the PPS in a file (such as the
// High-profile chroma and bit-depth fields) are kept as read and written back.
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class Qtx::AvcDecoderInfo : public Qtx::Atom {
public:
    static constexpr unsigned int kMaxParameterSetLength = 64;
    // Header, the fixed fields and both lengths, with the largest SPS and PPS.
    static constexpr unsigned int kReservedSize = 19 + 2 * kMaxParameterSetLength;

    AvcDecoderInfo();

    // Stores one SPS and one PPS (each at most 64 bytes); profile, compatibility and level are taken
    // from SPS bytes 1 to 3, and the size becomes spsLength + ppsLength + 19. False, with an error
    // message, for a set that is too big.
    bool set(unsigned int spsLength, unsigned char const* sps, unsigned int ppsLength,
             unsigned char const* pps);

    // 2 x NAL unit length size + both lengths when both sets are present, else 0.
    unsigned int getAvcSpsPpsLength() const override;
    unsigned char const* getAvcSpsPps() const override { return m_spsPps; }
    unsigned char getAvcNalUnitLengthSize() const override { return m_nalUnitLengthSize; }
    unsigned char getVersion() const { return m_version; }
    unsigned char getProfile() const { return m_profile; }
    unsigned char getProfileCompatibility() const { return m_profileCompatibility; }
    unsigned char getLevel() const { return m_level; }
    unsigned int getSpsLength() const { return m_spsLength; }
    unsigned int getPpsLength() const { return m_ppsLength; }

    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;

private:
    static constexpr unsigned int kBufferSize = 2 * (4 + kMaxParameterSetLength);

    bool hasParameterSets() const { return m_spsLength != 0 && m_ppsLength != 0; }
    unsigned char const* sps() const { return m_spsPps + m_nalUnitLengthSize; }
    unsigned char const* pps() const { return m_spsPps + 2 * m_nalUnitLengthSize + m_spsLength; }
    bool writeLengthPrefix(unsigned char* at, unsigned int length) const;

    unsigned char m_version = 1;
    unsigned char m_profile = 0;
    unsigned char m_profileCompatibility = 0;
    unsigned char m_level = 0;
    unsigned char m_nalUnitLengthSize = 4;
    unsigned char m_spsCount = 0;
    unsigned short m_spsLength = 0;
    unsigned char m_ppsCount = 0;
    unsigned short m_ppsLength = 0;
    unsigned char m_spsPps[kBufferSize] = {};
};
