// Qtx::Mpeg4ElementaryStreamDescriptor: the 'esds' atom of MPEG-4 audio (inside a sound description's
// 'wave' group), holding an elementary stream descriptor as opaque bytes, at most 128. A recorder
// makes an empty one that reserves 132 bytes (written as an 8-byte placeholder of type 0) and builds
// the AAC descriptor with set() once it knows bit rate, sample rate and channels.
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class Qtx::Mpeg4ElementaryStreamDescriptor : public Qtx::Atom {
public:
    static constexpr unsigned int kMaxDescriptorLength = 128;
    // The size an empty one reserves, well above the 51 bytes of the descriptor set() builds.
    static constexpr unsigned int kReservedSize = 132;

    // The empty reservation.
    Mpeg4ElementaryStreamDescriptor();
    // For reading an atom of that size.
    explicit Mpeg4ElementaryStreamDescriptor(unsigned int size);

    // Builds the 39-byte descriptor of an AAC stream; the atom size becomes 51.
    void set(unsigned int bitRate, unsigned int sampleRate, unsigned int channels);

    unsigned int getEsdsLength() const override { return m_length; }
    unsigned char const* getEsds() const override { return m_descriptor; }
    unsigned int getVersionAndFlags() const { return m_versionAndFlags; }

    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;

    // The MPEG-4 sampling frequency index of a rate (3, the index of 48000, for any rate not listed).
    static unsigned int frequencyIndex(unsigned int sampleRate);
    // The MPEG-4 channel configuration of a channel count (0 when there is none).
    static unsigned int channelConfiguration(unsigned int channels);

private:
    static constexpr unsigned int kVersionBytes = 4;

    unsigned int m_versionAndFlags = 0;
    unsigned int m_length = 0;
    unsigned char m_descriptor[kMaxDescriptorLength] = {};
};
