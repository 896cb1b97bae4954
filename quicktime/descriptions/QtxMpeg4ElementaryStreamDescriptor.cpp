#include "quicktime/descriptions/QtxMpeg4ElementaryStreamDescriptor.h"

#include <cstring>

#include "framework/FormatStr.h"
#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"

namespace {

constexpr unsigned int kAacDescriptorLength = 39;

// Descriptor tags and the four-byte length form ("0x80 0x80 0x80 n") used for every descriptor.
constexpr unsigned char kEsDescriptorTag = 0x03;
constexpr unsigned char kDecoderConfigTag = 0x04;
constexpr unsigned char kDecoderSpecificInfoTag = 0x05;
constexpr unsigned char kSyncLayerConfigTag = 0x06;
constexpr unsigned char kObjectTypeMpeg4Audio = 0x40;
constexpr unsigned char kAudioStream = 0x15;

unsigned char* putTag(unsigned char* at, unsigned char tag, unsigned int length) {
    *at++ = tag;
    *at++ = 0x80;
    *at++ = 0x80;
    *at++ = 0x80;
    *at++ = static_cast<unsigned char>(length);
    return at;
}

unsigned char* putUint32(unsigned char* at, unsigned int value) {
    for (int shift = 24; shift >= 0; shift -= 8) *at++ = static_cast<unsigned char>(value >> shift);
    return at;
}

}  // namespace

Qtx::Mpeg4ElementaryStreamDescriptor::Mpeg4ElementaryStreamDescriptor() : Atom(qtId("esds"), kReservedSize) {}

Qtx::Mpeg4ElementaryStreamDescriptor::Mpeg4ElementaryStreamDescriptor(unsigned int size)
    : Atom(qtId("esds"), size) {}

unsigned int Qtx::Mpeg4ElementaryStreamDescriptor::frequencyIndex(unsigned int sampleRate) {
    static constexpr unsigned int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                              22050, 16000, 12000, 11025, 8000,  7350};
    for (unsigned int index = 0; index < sizeof kRates / sizeof kRates[0]; ++index)
        if (kRates[index] == sampleRate) return index;
    return 3;
}

unsigned int Qtx::Mpeg4ElementaryStreamDescriptor::channelConfiguration(unsigned int channels) {
    if (channels >= 1 && channels <= 6) return channels;
    return channels == 8 ? 7 : 0;
}

void Qtx::Mpeg4ElementaryStreamDescriptor::set(unsigned int bitRate, unsigned int sampleRate,
                                               unsigned int channels) {
    unsigned int frequency = frequencyIndex(sampleRate);
    unsigned int channelConfig = channelConfiguration(channels);
    memset(m_descriptor, 0, sizeof m_descriptor);
    unsigned char* at = putTag(m_descriptor, kEsDescriptorTag, kAacDescriptorLength - 5);
    *at++ = 0;  // stream id
    *at++ = 0;
    *at++ = 0;  // flags
    at = putTag(at, kDecoderConfigTag, kAacDescriptorLength - 19);
    *at++ = kObjectTypeMpeg4Audio;
    *at++ = kAudioStream;
    *at++ = 0x00;  // buffer size
    *at++ = 0x18;
    *at++ = 0x00;
    at = putUint32(at, bitRate);  // maximum
    at = putUint32(at, bitRate);  // average
    at = putTag(at, kDecoderSpecificInfoTag, 2);
    // Audio specific config: object type 2 (AAC LC) in 5 bits, frequency index in 4, channels in 4.
    *at++ = static_cast<unsigned char>(0x10 | (frequency >> 1));
    *at++ = static_cast<unsigned char>((channelConfig << 3) | ((frequency << 7) & 0xFF));
    at = putTag(at, kSyncLayerConfigTag, 1);
    *at++ = 2;
    m_length = static_cast<unsigned int>(at - m_descriptor);
    setSize(12 + m_length);
}

bool Qtx::Mpeg4ElementaryStreamDescriptor::encode(QtAtomBuffer& buffer) {
    if (m_length == 0) {
        // The reservation: the size it holds, and a type of 0 that makes a reader stop there.
        BaseQtAtom::encode(buffer, getSize());
        BaseQtAtom::encode(buffer, 0u);
        return true;
    }
    encodeHeader(buffer);
    BaseQtAtom::encode(buffer, m_versionAndFlags);
    buffer.append(m_descriptor, m_length);
    return true;
}

bool Qtx::Mpeg4ElementaryStreamDescriptor::decode(QtAtomBuffer& buffer) {
    if (!hasBody(buffer, kVersionBytes)) return false;
    unsigned int length = getBodySize() - kVersionBytes;
    if (length > kMaxDescriptorLength) {
        errorMsg("Error: esds atom is too big\n");
        return false;
    }
    m_versionAndFlags = BaseQtAtom::decodeUint32(buffer);
    memcpy(m_descriptor, buffer.ptrData(), length);
    buffer.removeInput(length);
    m_length = length;
    return true;
}

AutoPtr<char> Qtx::Mpeg4ElementaryStreamDescriptor::toString() const {
    AutoPtr<char> base = Atom::toString();
    return FormatStr("%s={version=%d, esds=%db}", base.get(), static_cast<int>(m_versionAndFlags >> 24),
                     static_cast<int>(m_length));
}
