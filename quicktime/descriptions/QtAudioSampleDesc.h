// QtAudioSampleDesc: the entry of a sound track's sample description table. It reads and writes the
// three layouts of the sound description (versions 0, 1 and 2), keeps the extension atoms that
// follow ('wave' with 'frma', 'enda', 'esds', and others) in a Qtx container, and answers what the
// recorder and player ask: bits per sample, channels, rate, byte sizes, byte order. Recording code
// creates one with QtAtomSampleDesc::addAudioDesc.
#pragma once

#include <cstdint>

#include "quicktime/descriptions/QtSampleDesc.h"
#include "quicktime/descriptions/Qtx.h"

class QtAudioSampleDesc : public QtSampleDesc {
public:
    // The size of a version 1 description, used as the fixed size whatever the version.
    static constexpr unsigned int kFixedSize = 52;
    // The fields every version has, header included.
    static constexpr unsigned int kClassicSize = 36;
    static constexpr unsigned int kVersion1Size = 16;
    static constexpr unsigned int kVersion2Size = 36;

    QtAudioSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex);

    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    void show(unsigned int indent) const override;
    unsigned int getFixedSize() const override { return kFixedSize; }
    // The stored extension bytes (they carry their own terminator).
    unsigned int getExtensionSize() const override { return m_extensions.getSize(); }

    // Version 2 answers from its own fields, the other versions from the classic ones.
    unsigned int getChannels() const;
    // 16.16; for version 2 the rate truncated to an integer and shifted, kept to 32 bits.
    uint32_t getSampleRateFrac() const;
    unsigned int getSamplesPerPacket() const;
    unsigned int getBytesPerPacket() const;
    unsigned int getBytesPerFrame() const;
    unsigned int getBytesPerSample() const;
    // By format: 24 for "in24"/"ni24"; 16 for "mp4a", "dvca", "vdva", "lpcm"; for "twos"/"sowt" 16
    // unless a version 1 description with compression id 0 gives bytes per packet x 8; else 0.
    unsigned int getBitsPerSample() const;
    // True by default for "ni24" and "sowt"; an 'enda' extension overrides the default.
    bool isLittleEndian() const;

    // 24 bits: format "in24" (sample size field 16), with the little-endian 'wave' group unless
    // bigEndian. 16 bits: "dvca" or "mp4a" by codec, or for codec 0 "twos"/"sowt" by byte order.
    // False for other sizes (nothing changed) and other codecs (the sample size already set).
    bool setBitsPerSample(unsigned int bits, bool bigEndian, QtAtomIdType codec);
    // The 'wave' group of MPEG-4 audio with an 'esds' built from these numbers.
    void setMpeg4DecoderInfo(unsigned int bitRate, unsigned int sampleRate, unsigned int channels);

    // Version, channels, bits per sample, compression id, packet size, sample rate and all version 1
    // and 2 fields must agree; revision, vendor, the raw sample size field and the extensions are
    // deliberately not compared.
    bool operator==(QtAudioSampleDesc const& other) const;

    void setChannels(unsigned short channels) { m_channels = channels; }
    void setSampleRate(uint32_t rate16_16) { m_sampleRate = rate16_16; }
    void setVersion1Fields(uint32_t samplesPerPacket, uint32_t bytesPerPacket, uint32_t bytesPerFrame,
                           uint32_t bytesPerSample);

    unsigned short getVersion() const { return m_version; }
    unsigned short getSampleSize() const { return m_sampleSize; }
    unsigned short getCompressionId() const { return m_compressionId; }
    uint32_t getSampleRate() const { return m_sampleRate; }
    double getAudioSampleRate() const { return m_audioSampleRate; }
    uint32_t getBitsPerChannel() const { return m_bitsPerChannel; }
    uint32_t getFormatFlags() const { return m_formatFlags; }
    Qtx const& getExtensions() const { return m_extensions; }

private:
    static constexpr uint32_t kVersion2Constant = 0x7F000000;

    // Whether the entry's size holds the version's extra fields (read and written only then).
    bool hasVersion1Fields() const { return m_version == 1 && m_size >= kClassicSize + kVersion1Size; }
    bool hasVersion2Fields() const { return m_version == 2 && m_size >= kClassicSize + kVersion2Size; }

    unsigned short m_version = 1;
    unsigned short m_revision = 0;
    QtAtomIdType m_vendor = 0;
    unsigned short m_channels = 0;
    unsigned short m_sampleSize = 0;
    unsigned short m_compressionId = 0;
    unsigned short m_packetSize = 0;
    uint32_t m_sampleRate = 0;  // 16.16
    uint32_t m_samplesPerPacket = 0;
    uint32_t m_bytesPerPacket = 0;
    uint32_t m_bytesPerFrame = 0;
    uint32_t m_bytesPerSample = 0;
    uint32_t m_structSize = 0;
    double m_audioSampleRate = 0;
    uint32_t m_audioChannels = 0;
    uint32_t m_bitsPerChannel = 0;
    uint32_t m_formatFlags = 0;
    uint32_t m_bytesPerAudioPacket = 0;
    uint32_t m_framesPerAudioPacket = 0;
    Qtx m_extensions;
};
