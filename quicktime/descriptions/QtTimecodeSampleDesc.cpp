#include "quicktime/descriptions/QtTimecodeSampleDesc.h"

#include <algorithm>
#include <string>

#include "framework/BasicFileIO.h"
#include "framework/ByteOrder.h"
#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/descriptions/QtAtomSampleDesc.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtSampleTable.h"

namespace {

constexpr unsigned int kSampleBytes = 4;
constexpr size_t kShortListing = 3;

// The flag words of a printout, in bit order.
std::string flagsText(uint32_t flags) {
    std::string text = flags & QtTimecodeSampleDesc::kDropFrame ? "drop," : "nondrop,";
    if (flags & QtTimecodeSampleDesc::kWrapsAt24Hours) text += "wrap@24,";
    if (flags & QtTimecodeSampleDesc::kNegativeTimesOk) text += "negok,";
    text += flags & QtTimecodeSampleDesc::kPackedRecords ? "tapecnt," : "discrete,";
    return text;
}

}  // namespace

QtTimecodeSampleDesc::QtTimecodeSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex)
    : QtSampleDesc(owner, kFixedSize, dataRefIndex) {
    setFormat(qtId("tmcd"));
}

bool QtTimecodeSampleDesc::decode(QtAtomBuffer& buffer) {
    unsigned int start = buffer.bufferOffset();
    if (!QtSampleDesc::decode(buffer)) return false;
    if (keepIfShort(buffer, kFixedSize)) return true;
    m_reserved = BaseQtAtom::decodeUint32(buffer);
    m_flags = BaseQtAtom::decodeUint32(buffer);
    m_timeScale = BaseQtAtom::decodeUint32(buffer);
    m_frameDuration = BaseQtAtom::decodeUint32(buffer);
    m_numberOfFrames = BaseQtAtom::decodeUint8(buffer);
    m_reserved1.decode(buffer);
    unsigned int read = buffer.bufferOffset() - start;
    if (read < m_size) keepOpaque(buffer, m_size - read);
    return true;
}

bool QtTimecodeSampleDesc::encode(QtAtomBuffer& buffer) const {
    unsigned int start = buffer.nOccupied();
    QtSampleDesc::encode(buffer);
    if (!isKeptWhole()) {
        BaseQtAtom::encode(buffer, m_reserved);
        BaseQtAtom::encode(buffer, m_flags);
        BaseQtAtom::encode(buffer, m_timeScale);
        BaseQtAtom::encode(buffer, m_frameDuration);
        BaseQtAtom::encode(buffer, static_cast<unsigned char>(m_numberOfFrames));
        m_reserved1.encode(buffer);
        if (getOpaque().getSize() <= roomLeft(buffer, start)) getOpaque().encode(buffer);
    }
    padToSize(buffer, start);
    // The description goes to disk with its table: a timecode set since is written with it.
    if (m_writePending) writeTimecodes();
    return true;
}

unsigned int QtTimecodeSampleDesc::getExtensionSize() const {
    return isKeptWhole() ? 0 : getOpaque().getSize();
}

template <class T>
void QtTimecodeSampleDesc::change(T& field, T value) {
    if (field == value) return;
    field = value;
    getOwner().write();
}

void QtTimecodeSampleDesc::setRate(unsigned int timeScale, unsigned int frameDuration, bool dropFrame) {
    change(m_timeScale, static_cast<uint32_t>(timeScale));
    change(m_frameDuration, static_cast<uint32_t>(frameDuration));
    change(m_numberOfFrames, static_cast<uint8_t>(QtTimeCode::framesPerSecond(timeScale, frameDuration)));
    setFlags(dropFrame ? m_flags | kDropFrame : m_flags & ~uint32_t(kDropFrame));
}

void QtTimecodeSampleDesc::setFlags(uint32_t flags) { change(m_flags, flags); }

QtTimeCode const* QtTimecodeSampleDesc::getTimecode(QtSampleTable const& table, unsigned int index) const {
    AutoRefPtr<BasicFileIO> file = getOwner().getRootFp();
    if (!file || !table.allAtomsDefined()) return nullptr;
    if (index < m_timecodes.size() && !m_timecodes[index].isZero()) return &m_timecodes[index];
    QtAtomSampleSize const* stsz = table.getStsz();
    QtAtomSampleChunkOff const* stco = table.getStco();
    char const* path = getOwner().getMoviePath();
    unsigned int count = stsz->getSampleCount();
    if (stsz->getConstantSampleSize() != kSampleBytes || count == 0 || stco->getNumChunks() == 0) {
        errorMsg("%s: getTimecode fails; sz=%d,n=%d,co[%d]=%ld\n", path, stsz->getConstantSampleSize(), count,
                 stco->getNumChunks(), static_cast<long>(stco->getChunkOffset(0, nullptr)));
        return nullptr;
    }
    // Each sample takes 4 bytes of the file, so a file holds fewer samples than a quarter of its
    // length: the cache is never sized by a count the tables merely claim.
    if (count < index || index >= file->length() / kSampleBytes) {
        errorMsg("%s: getTimecode fails: index=%d,n=%d\n", path, index, count);
        return nullptr;
    }
    QtChunkSet set;
    unsigned long chunkFirst = 0;
    unsigned int chunk = 0;
    if (!table.getStsc()->getChunkSet(index, set) || set.m_samplesPerChunk == 0 ||
        (chunk = set.getChunk(index, chunkFirst)) >= stco->getNumChunks()) {
        errorMsg("%s: getTimecode fails: can't find chunk for index=%d\n", path, index);
        return nullptr;
    }
    // The last chunk may claim more samples than the track has.
    unsigned long left = count - std::min<unsigned long>(count, chunkFirst);
    unsigned long inChunk = std::min<unsigned long>(set.m_samplesPerChunk, left);
    if (!readChunk(table, chunk, chunkFirst, static_cast<unsigned int>(inChunk))) return nullptr;
    return index < m_timecodes.size() ? &m_timecodes[index] : nullptr;
}

bool QtTimecodeSampleDesc::readChunk(QtSampleTable const& table, unsigned int chunk,
                                     unsigned long firstSample, unsigned int count) const {
    AutoRefPtr<BasicFileIO> file = getOwner().getRootFp();
    unsigned long offset = table.getStco()->getChunkOffset(chunk, nullptr);
    unsigned long bytes = static_cast<unsigned long>(count) * kSampleBytes;
    unsigned long length = file->length();
    std::vector<unsigned char> data;
    if (offset <= length && bytes <= length - offset) {
        data.resize(bytes);
        if (file->readAt(offset, data.data(), bytes) != static_cast<long>(bytes)) data.clear();
    }
    if (data.size() != bytes || bytes == 0) {
        errorMsg("%s: getTimecode failed while reading chunk=%d\n", getOwner().getMoviePath(), chunk);
        return false;
    }
    if (m_timecodes.size() < firstSample + count) m_timecodes.resize(firstSample + count);
    for (unsigned int i = 0; i < count; ++i) {
        uint32_t value = getBigEndian32(data.data() + i * kSampleBytes);
        QtTimeCode& timecode = m_timecodes[firstSample + i];
        if (m_flags & kPackedRecords)
            timecode.setDiscrete(value);
        else
            timecode.setCounter(value, m_timeScale, m_frameDuration, dropFrame());
    }
    return true;
}

bool QtTimecodeSampleDesc::setTimecode(QtTimeCode const& timecode) const {
    m_writePending = true;
    if (m_timecodes.empty()) m_timecodes.resize(1);
    uint32_t flags = timecode.dropFrame() ? m_flags | kDropFrame : m_flags & ~uint32_t(kDropFrame);
    if (flags & kPackedRecords)
        m_timecodes[0].setDiscrete(timecode.getDiscrete());
    else
        m_timecodes[0].setCounter(timecode.getCounter(m_timeScale, m_frameDuration), m_timeScale,
                                  m_frameDuration, (flags & kDropFrame) != 0);
    getOwner().write();
    static_cast<QtTimecodeSampleDesc*>(nonConst())->m_flags = flags;
    return true;
}

bool QtTimecodeSampleDesc::writeTimecodes() const {
    auto const* media = dynamic_cast<QtAtomHeader const*>(getOwner().findParent(qtId("mdia")));
    QtSampleTable table(media);
    table.validate();
    QtAtomSampleSize const* stsz = table.getStsz();
    QtAtomSampleChunkOff const* stco = table.getStco();
    AutoRefPtr<BasicFileIO> file = getOwner().getRootFp();
    if (!file || !file->writable() || !stsz || !stco) return false;
    if (stsz->getConstantSampleSize() != kSampleBytes || stsz->getSampleCount() < m_timecodes.size() ||
        stco->getNumChunks() == 0) {
        errorMsg("%s: writeTimecode fails; sz=%d,n=%d,co[%d]=%ld\n", getOwner().getMoviePath(),
                 stsz->getConstantSampleSize(), stsz->getSampleCount(), stco->getNumChunks(),
                 static_cast<long>(stco->getChunkOffset(0, nullptr)));
        return false;
    }
    // The samples are taken to lie one after another from the first chunk on, as a recorder
    // writes a timecode track.
    unsigned long offset = stco->getChunkOffset(0, nullptr);
    for (QtTimeCode const& timecode : m_timecodes) {
        // Every cached value was stored with setCounter or setDiscrete, so its raw value is the
        // sample's own word: a counter that the fields cannot carry (past 255 hours, say) is
        // written back as it was read.
        uint32_t value = timecode.getDiscrete();
        unsigned char bytes[kSampleBytes];
        putBigEndian32(bytes, value);
        if (file->writeAt(offset, bytes, kSampleBytes) != kSampleBytes) {
            errorMsg("%s: writeTimecode failed at offset %ld\n", getOwner().getMoviePath(),
                     static_cast<long>(offset));
            return false;
        }
        offset += kSampleBytes;
    }
    m_writePending = false;
    return true;
}

void QtTimecodeSampleDesc::show(unsigned int indent) const {
    infoMsg("%*stimecode: ", static_cast<int>(indent), "");
    showHeader();
    infoMsg(",frame=%d/%d,%dfps\n%*s%s", m_frameDuration, m_timeScale, m_numberOfFrames,
            static_cast<int>(indent), "", flagsText(m_flags).c_str());
    showTimecodes(indent);
}

void QtTimecodeSampleDesc::showTimecodes(unsigned int indent) const {
    size_t count = m_timecodes.size();
    if (count <= 1) {
        infoMsg(count ? "tc=%s" : "tc=", count ? m_timecodes[0].toString().get() : "");
        return;
    }
    bool everyValue = quicktimeDbg.on(QtDbgAllSizes);
    // Outside debug mode a long cache shows its first values only.
    size_t shown = everyValue ? count : std::min<size_t>(count, kShortListing);
    infoMsg("tc[%d]={", static_cast<int>(count));
    for (size_t i = 0; i < shown; ++i) {
        if (everyValue && i == 0)
            infoMsg("\n%*s0: ", static_cast<int>(indent), "");
        else if (everyValue && i % 3 == 0)
            infoMsg(",\n%*s%d: ", static_cast<int>(indent), "", static_cast<int>(i));
        else if (i)
            infoMsg(", ");
        infoMsg("%s", m_timecodes[i].toString().get());
    }
    infoMsg("%s}", shown < count ? ", ..." : "");
}
