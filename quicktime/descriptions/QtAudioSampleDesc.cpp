#include "quicktime/descriptions/QtAudioSampleDesc.h"

#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtIdName.h"

QtAudioSampleDesc::QtAudioSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex)
    : QtSampleDesc(owner, kFixedSize, dataRefIndex) {}

bool QtAudioSampleDesc::decode(QtAtomBuffer& buffer) {
    unsigned int start = buffer.bufferOffset();
    if (!QtSampleDesc::decode(buffer)) return false;
    if (keepIfShort(buffer, kClassicSize)) return true;
    m_version = BaseQtAtom::decodeUint16(buffer);
    m_revision = BaseQtAtom::decodeUint16(buffer);
    m_vendor = BaseQtAtom::decodeUint32(buffer);
    m_channels = BaseQtAtom::decodeUint16(buffer);
    m_sampleSize = BaseQtAtom::decodeUint16(buffer);
    m_compressionId = BaseQtAtom::decodeUint16(buffer);
    m_packetSize = BaseQtAtom::decodeUint16(buffer);
    m_sampleRate = BaseQtAtom::decodeUint32(buffer);
    // A version 1 or 2 entry too short for its extra fields is read as version 0 (its version
    // number is kept) and its remaining bytes go to the extensions.
    if (hasVersion1Fields()) {
        m_samplesPerPacket = BaseQtAtom::decodeUint32(buffer);
        m_bytesPerPacket = BaseQtAtom::decodeUint32(buffer);
        m_bytesPerFrame = BaseQtAtom::decodeUint32(buffer);
        m_bytesPerSample = BaseQtAtom::decodeUint32(buffer);
    } else if (hasVersion2Fields()) {
        m_structSize = BaseQtAtom::decodeUint32(buffer);
        m_audioSampleRate = BaseQtAtom::decodeFloat64(buffer);
        m_audioChannels = BaseQtAtom::decodeUint32(buffer);
        buffer.removeInput(4);  // always 0x7F000000
        m_bitsPerChannel = BaseQtAtom::decodeUint32(buffer);
        m_formatFlags = BaseQtAtom::decodeUint32(buffer);
        m_bytesPerAudioPacket = BaseQtAtom::decodeUint32(buffer);
        m_framesPerAudioPacket = BaseQtAtom::decodeUint32(buffer);
    }
    unsigned int read = buffer.bufferOffset() - start;
    if (read < m_size) m_extensions.decode(buffer, m_size - read);
    return true;
}

bool QtAudioSampleDesc::encode(QtAtomBuffer& buffer) const {
    unsigned int start = buffer.nOccupied();
    QtSampleDesc::encode(buffer);
    if (!isKeptWhole()) {
        BaseQtAtom::encode(buffer, m_version);
        BaseQtAtom::encode(buffer, m_revision);
        BaseQtAtom::encode(buffer, m_vendor);
        for (unsigned short value : {m_channels, m_sampleSize, m_compressionId, m_packetSize})
            BaseQtAtom::encode(buffer, value);
        BaseQtAtom::encode(buffer, m_sampleRate);
        if (hasVersion1Fields()) {
            for (uint32_t value : {m_samplesPerPacket, m_bytesPerPacket, m_bytesPerFrame, m_bytesPerSample})
                BaseQtAtom::encode(buffer, value);
        } else if (hasVersion2Fields()) {
            BaseQtAtom::encode(buffer, m_structSize);
            BaseQtAtom::encode(buffer, m_audioSampleRate);
            BaseQtAtom::encode(buffer, m_audioChannels);
            BaseQtAtom::encode(buffer, kVersion2Constant);
            for (uint32_t value :
                 {m_bitsPerChannel, m_formatFlags, m_bytesPerAudioPacket, m_framesPerAudioPacket})
                BaseQtAtom::encode(buffer, value);
        }
        if (m_extensions.getSize() && m_extensions.getSize() <= roomLeft(buffer, start))
            m_extensions.encode(buffer);
    }
    padToSize(buffer, start);
    return true;
}

unsigned int QtAudioSampleDesc::getChannels() const { return m_version == 2 ? m_audioChannels : m_channels; }

uint32_t QtAudioSampleDesc::getSampleRateFrac() const {
    if (m_version != 2) return m_sampleRate;
    // Deliberately 32 bits: a rate of 65536 and above wraps. A rate that is no number of hertz at
    // all (negative, not a number, beyond 64 bits) counts as 0.
    double rate = m_audioSampleRate;
    if (!(rate >= 0.0 && rate < 18446744073709551616.0)) return 0;
    return static_cast<uint32_t>(static_cast<unsigned long>(rate) << 16);
}

unsigned int QtAudioSampleDesc::getSamplesPerPacket() const {
    return m_version == 2 ? 1 : m_samplesPerPacket;
}

unsigned int QtAudioSampleDesc::getBytesPerPacket() const {
    return m_version == 2 ? m_bitsPerChannel / 8 : m_bytesPerPacket;
}

unsigned int QtAudioSampleDesc::getBytesPerFrame() const {
    return m_version == 2 ? m_bitsPerChannel / 8 * m_audioChannels : m_bytesPerFrame;
}

unsigned int QtAudioSampleDesc::getBytesPerSample() const {
    return m_version == 2 ? m_bitsPerChannel / 8 : m_bytesPerSample;
}

unsigned int QtAudioSampleDesc::getBitsPerSample() const {
    switch (getFormat()) {
        case qtId("in24"):
        case qtId("ni24"):
            return 24;
        case qtId("mp4a"):
        case qtId("dvca"):
        case qtId("vdva"):
        case qtId("lpcm"):
            return 16;
        case qtId("twos"):
        case qtId("sowt"):
            return m_version != 1 || m_compressionId != 0 ? 16 : m_bytesPerPacket * 8;
        default:
            return 0;
    }
}

bool QtAudioSampleDesc::isLittleEndian() const {
    bool byFormat = getFormat() == qtId("ni24") || getFormat() == qtId("sowt");
    return m_extensions.isEmpty() ? byFormat : m_extensions.isLittleEndian(byFormat);
}

bool QtAudioSampleDesc::setBitsPerSample(unsigned int bits, bool bigEndian, QtAtomIdType codec) {
    if (bits == 24) {
        m_sampleSize = 16;  // what the version 1 "in24" layout wants
        setFormat(qtId("in24"));
        if (!bigEndian) {
            m_extensions.setLittleEndian();
            updateSize();
        }
        return true;
    }
    if (bits != 16) return false;
    m_sampleSize = 16;
    if (codec == qtId("dvca") || codec == qtId("mp4a"))
        setFormat(codec);
    else if (codec == 0)
        setFormat(bigEndian ? qtId("twos") : qtId("sowt"));
    else
        return false;
    return true;
}

void QtAudioSampleDesc::setMpeg4DecoderInfo(unsigned int bitRate, unsigned int sampleRate,
                                            unsigned int channels) {
    m_extensions.setMpeg4DecoderInfo(bitRate, sampleRate, channels);
    updateSize();
}

void QtAudioSampleDesc::setVersion1Fields(uint32_t samplesPerPacket, uint32_t bytesPerPacket,
                                          uint32_t bytesPerFrame, uint32_t bytesPerSample) {
    m_samplesPerPacket = samplesPerPacket;
    m_bytesPerPacket = bytesPerPacket;
    m_bytesPerFrame = bytesPerFrame;
    m_bytesPerSample = bytesPerSample;
}

bool QtAudioSampleDesc::operator==(QtAudioSampleDesc const& other) const {
    return m_version == other.m_version && getChannels() == other.getChannels() &&
           getBitsPerSample() == other.getBitsPerSample() && m_compressionId == other.m_compressionId &&
           m_packetSize == other.m_packetSize && m_sampleRate == other.m_sampleRate &&
           m_samplesPerPacket == other.m_samplesPerPacket && m_bytesPerPacket == other.m_bytesPerPacket &&
           m_bytesPerFrame == other.m_bytesPerFrame && m_bytesPerSample == other.m_bytesPerSample &&
           m_structSize == other.m_structSize && m_audioSampleRate == other.m_audioSampleRate &&
           m_audioChannels == other.m_audioChannels && m_bitsPerChannel == other.m_bitsPerChannel &&
           m_formatFlags == other.m_formatFlags && m_bytesPerAudioPacket == other.m_bytesPerAudioPacket &&
           m_framesPerAudioPacket == other.m_framesPerAudioPacket;
}

void QtAudioSampleDesc::show(unsigned int indent) const {
    infoMsg("%*saudio: ", static_cast<int>(indent), "");
    showHeader();
    infoMsg(",%s,%dchan,%dbits,%gkhz\n", QtIdName(m_vendor).render(), getChannels(), getBitsPerSample(),
            getSampleRateFrac() / 6.5536e7);
    int next = static_cast<int>(indent + 2);
    if (m_version == 1)
        infoMsg("%*ss/pkt=%d,b/pkt=%d,b/frm=%d,b/s=%d", next, "", getSamplesPerPacket(), getBytesPerPacket(),
                getBytesPerFrame(), getBytesPerSample());
    else
        infoMsg("%*sv=2,sz=%d,rate=%5.0lf,chan=%d,b/ch=%d,flags=%d,b/pkt=%d,f/pkt=%d", next, "",
                static_cast<int>(m_structSize), m_audioSampleRate, static_cast<int>(m_audioChannels),
                static_cast<int>(m_bitsPerChannel), static_cast<int>(m_formatFlags),
                static_cast<int>(m_bytesPerAudioPacket), static_cast<int>(m_framesPerAudioPacket));
    if (!m_extensions.isEmpty()) infoMsg(",\n%*sext=%s", next, "", m_extensions.toString().get());
}
