#include "quicktime/recorder/QtRecorderTrack.h"

#include <algorithm>

#include "framework/BasicFileIO.h"
#include "framework/Messages.h"
#include "quicktime/tables/QtAtomEditList.h"
#include "quicktime/atoms/QtAtomMediaHdr.h"
#include "quicktime/atoms/QtAtomTrakHdr.h"
#include "quicktime/descriptions/QtAtomSampleDesc.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtChunkAllocator.h"
#include "quicktime/recorder/QtAtomCloner.h"
#include "quicktime/tables/QtAtomCompSeed.h"
#include "quicktime/tables/QtAtomCompShift.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleSync.h"
#include "quicktime/tables/QtAtomSampleTime.h"
#include "quicktime/tables/QtSampleLocation.h"

namespace {

// Samples per chunk of a track of equal-sized samples; a track of varying sizes puts one sample in
// each chunk, so that its sample-to-chunk table keeps one run however the flushes fall.
constexpr unsigned int kConstantChunkSeconds = 2;  // chunk of half a second: rate / 2
// ...and of at most this many bytes: constant-size video frames are large, and the room a chunk
// reserves stays in the file when the recording ends before the chunk is full.
constexpr unsigned int kMaxConstantChunkBytes = 256u << 10;
// Entries a table must have free before a sample is appended: the most one sample can take (the
// composition table rewrites up to four pending runs and keeps two slots free).
constexpr unsigned int kMinRoom = 2;
constexpr unsigned int kMinCompositionRoom = 8;

template <class T>
T const* tableIn(BaseQtAtom const* stbl, char const* type) {
    return dynamic_cast<T const*>(stbl->findAtom(type, 0));
}

}  // namespace

QtRecorderTrack::QtRecorderTrack(uint32_t number, Kind kind, BaseQtAtom const* trak, unsigned int constantSize,
                                 QtChunkAllocator& chunks, unsigned long plannedSamples)
    : m_number(number), m_kind(kind), m_trak(trak), m_constantSize(constantSize), m_planned(plannedSamples) {
    m_tkhd = dynamic_cast<QtAtomTrakHdr const*>(trak->findAtom("tkhd", 0));
    m_mdhd = dynamic_cast<QtAtomMediaHdr const*>(trak->findAtom("mdia.mdhd", 0));
    m_elst = dynamic_cast<QtAtomEditList const*>(trak->findAtom("edts.elst", 0));
    BaseQtAtom const* stbl = trak->findAtom("mdia.minf.stbl", 0);
    m_stsd = tableIn<QtAtomSampleDesc>(stbl, "stsd");
    m_stts = tableIn<QtAtomSampleTime>(stbl, "stts");
    m_stsc = tableIn<QtAtomSampleChunk>(stbl, "stsc");
    m_stsz = tableIn<QtAtomSampleSize>(stbl, "stsz");
    m_stco = tableIn<QtAtomSampleChunkOff>(stbl, "co64");
    if (!m_stco) m_stco = tableIn<QtAtomSampleChunkOff>(stbl, "stco");
    if (m_mdhd) m_timeScale = std::max(m_mdhd->getTimeScale(), 1u);
    unsigned int perChunk =
        constantSize ? std::max(std::min(m_timeScale / kConstantChunkSeconds, kMaxConstantChunkBytes / constantSize), 1u)
                     : 1;
    m_allocator = std::make_unique<QtSampleAllocator>(chunks, perChunk);
    if (constantSize && m_stsz) m_stsz->write()->setFixed(constantSize, 0);
}

void QtRecorderTrack::addTables(BaseQtAtom const* stbl) {
    QtAtomBytes pad;
    pad.open("free").close();
    QtAtomCloner::build(stbl, pad.bytes().data(), pad.bytes().size());
    new QtAtomSampleChunkOff(stbl);
    new QtAtomSampleTime(stbl);
    new QtAtomSampleChunk(stbl);
    new QtAtomSampleSize(stbl);
}

unsigned long QtRecorderTrack::movieDuration(uint32_t movieTimeScale) const {
    return static_cast<unsigned long>(static_cast<unsigned __int128>(m_duration) * movieTimeScale / m_timeScale);
}

bool QtRecorderTrack::needsRoom(QtMovieRecorder::Sample const& sample) const {
    bool wantsComposition = sample.info.getEncoding() != SampleCodingUnknown || sample.info.hasDisplayOffset();
    if (m_appended == 0 && wantsComposition && !m_ctts) return true;
    if (!sample.key && !m_stss) return true;
    // A sample adds at most one run to the sample-to-chunk table, which grows only when full.
    if (m_stco->getHeadroom() < kMinRoom || m_stsc->getHeadroom() == 0) return true;
    if (!m_stsz->isFixed() && m_stsz->getHeadroom() < kMinRoom) return true;
    if (m_stts->getCapacity() < m_stts->getNumEntries() + kMinRoom) return true;
    if (m_stss && m_stss->getHeadroom() < kMinRoom) return true;
    return m_ctts && m_ctts->getHeadroom() < kMinCompositionRoom;
}

void QtRecorderTrack::reserve(QtMovieRecorder::Sample const* next) {
    if (next && m_appended == 0 && !m_ctts &&
        (next->info.getEncoding() != SampleCodingUnknown || next->info.hasDisplayOffset()))
        addCompositionTables();
    if (next && !next->key && !m_stss) addSyncTable();
    // Geometric growth: each new placement of the movie doubles what the tables can take.
    m_planned = std::max(m_planned, m_appended);
    unsigned long target = m_appended + m_planned;
    unsigned long chunks = m_stco->getNumChunks();
    unsigned long chunkTarget = m_constantSize ? chunks * 2 + 64 : target + 16;
    if (m_stco->getHeadroom() < chunkTarget - chunks) m_stco->write()->setCapacity(chunkTarget);
    if (m_stsc->getHeadroom() == 0) m_stsc->write()->addCapacity();
    if (!m_stsz->isFixed() && m_stsz->getCapacity() < target) m_stsz->write()->setCapacity(target);
    if (m_stts->getCapacity() < m_stts->getNumEntries() * 2 + 8)
        m_stts->write()->setCapacity(m_stts->getNumEntries() * 2 + 8);
    if (m_stss) {
        unsigned long interval = m_keys ? std::max(1ul, m_appended / m_keys) : 1;
        m_stss->setCapacity(target + 16 * interval, static_cast<unsigned int>(interval));
    }
    // The composition table plans its entries from the runs seen so far; ask for more samples until
    // it keeps enough entries free.
    for (unsigned long samples = target; m_ctts && m_ctts->getHeadroom() < 4 * kMinCompositionRoom && samples < (1ul << 32);
         samples *= 2)
        m_ctts->setCapacity(samples);
    if (m_seed) m_seed->setCapacity(target);
}

void QtRecorderTrack::addSyncTable() {
    BaseQtAtom const* stbl = m_stsz->getParent();
    m_stss = new QtAtomSampleSync(stbl, true, QtAtomSampleSync::kStssId);
    // Every sample so far was a key frame.
    m_stss->setCapacity(m_appended + m_planned + 16, 1);
    for (unsigned long sample = 0; sample < m_appended; ++sample) m_stss->appendKey(sample);
}

void QtRecorderTrack::addCompositionTables() {
    BaseQtAtom const* stbl = m_stsz->getParent();
    m_ctts = new QtAtomCompTime(stbl);
    m_cslg = new QtAtomCompShift(stbl);
    m_seed = new QtAtomCompSeed(stbl, static_cast<unsigned int>((m_planned >> 14) + 1));
}

bool QtRecorderTrack::placeBytes(unsigned int size, unsigned int samples, QtAtomRoot const& root,
                                 unsigned long& offset, bool& newChunk) {
    newChunk = false;
    if (m_chunkOpen && m_allocator->place(size, samples, offset)) return true;
    // A chunk that a flush closed leaves the rest of its room to the track's next chunk.
    if (m_constantSize && m_allocator->place(size, samples, offset)) {
        newChunk = m_chunkOpen = true;
        return true;
    }
    QtSampleLocation location(1, samples, true);
    location.numBytes = size;
    QtChunkAllocator::Chunk chunk = m_allocator->allocChunk(location, &root, true);
    if (chunk.size == 0) return false;
    newChunk = true;
    m_chunkOpen = m_constantSize != 0;
    return m_allocator->place(size, samples, offset);
}

bool QtRecorderTrack::writeEssence(unsigned long offset, QtMovieRecorder::Sample const& sample, BasicFileIO& file) {
    auto const* bytes = static_cast<unsigned char const*>(sample.bytes);
    bool follows = offset == m_pendingAt + m_pending.size();
    if (!m_pending.empty() && (!follows || m_pending.size() + sample.size > kPendingBytes) && !writePending(file))
        return false;
    if (!m_gather || sample.size >= kPendingBytes)
        return file.writeAt(offset, bytes, sample.size) == static_cast<long>(sample.size);
    if (m_pending.empty()) m_pendingAt = offset;
    m_pending.insert(m_pending.end(), bytes, bytes + sample.size);
    return true;
}

bool QtRecorderTrack::writePending(BasicFileIO& file) {
    if (m_pending.empty()) return true;
    bool ok = file.writeAt(m_pendingAt, m_pending.data(), m_pending.size()) == static_cast<long>(m_pending.size());
    m_pending.clear();
    return ok;
}

bool QtRecorderTrack::append(QtMovieRecorder::Sample const& sample, QtAtomRoot const& root, BasicFileIO& file,
                             unsigned long& essenceBytes) {
    unsigned int samples = 1;
    unsigned int ticks = sample.duration;
    if (m_constantSize && m_kind == Sound && sample.size != m_constantSize) {
        if (sample.size == 0 || sample.size % m_constantSize != 0) {
            errorMsg("%s: track %u: %u bytes are not whole frames of %u bytes\n", root.getMoviePath(), m_number,
                     sample.size, m_constantSize);
            return false;
        }
        samples = sample.size / m_constantSize;
        ticks = std::max(1u, sample.duration / samples);
    }
    unsigned long offset = 0;
    bool newChunk = false;
    if (!placeBytes(sample.size, samples, root, offset, newChunk)) {
        errorMsg("%s: track %u: no room for a sample of %u bytes\n", root.getMoviePath(), m_number, sample.size);
        return false;
    }
    if (!writeEssence(offset, sample, file)) {
        errorMsg("%s: track %u: writing %u bytes at %lu failed\n", root.getMoviePath(), m_number, sample.size, offset);
        m_chunkOpen = false;
        return false;
    }
    essenceBytes += sample.size;
    m_essenceEnd = std::max(m_essenceEnd, offset + sample.size);
    bool stored = true;
    if (newChunk) stored = m_stco->write()->addOffset(static_cast<long>(offset));
    QtSampleLocation location(1, samples, newChunk);
    stored = stored && m_stsc->write()->addSamples(location);
    m_stts->write()->appendSamples(samples, ticks);
    if (m_stss && sample.key) stored = stored && m_stss->appendKey(m_appended);
    if (m_ctts) m_ctts->write()->appendSample(m_appended, sample.info, ticks, m_cslg);
    // The size last: its count is what shows the sample to readers on other threads.
    unsigned int first = static_cast<unsigned int>(m_appended);
    stored = stored && (m_stsz->isFixed() ? m_stsz->write()->addSamples(first, samples, m_constantSize)
                                          : m_stsz->write()->addSamples(first, 1, sample.size));
    if (!stored) errorMsg("%s: track %u: a table refused sample %lu\n", root.getMoviePath(), m_number, m_appended);
    if (sample.key) ++m_keys;
    m_appended += samples;
    m_duration += static_cast<unsigned long>(ticks) * samples;
    return stored;
}

bool QtRecorderTrack::prepareFlush(uint32_t movieTimeScale, unsigned long movieDuration) {
    if (m_mdhd && m_mdhd->getDuration() != m_duration) {
        m_mdhd->set(static_cast<unsigned int>(m_duration), m_timeScale);
        m_mdhd->write();
    }
    (void)movieDuration;
    unsigned long inMovie = this->movieDuration(movieTimeScale);
    if (m_tkhd && m_tkhd->getDuration() != inMovie) m_tkhd->write()->setDuration(static_cast<unsigned int>(inMovie));
    if (m_seed && !m_seed->store(*m_ctts, m_appended)) {
        m_seed->setCapacity(m_appended + m_planned);
        return false;
    }
    return true;
}

void QtRecorderTrack::setSingleSampleDuration(unsigned int ticks) {
    if (m_appended != 1 || m_duration == ticks) return;
    m_stts->write()->setLastDuration(ticks);
    m_duration = ticks;
}
