#include "quicktime/tables/QtTrackSamples.h"

#include <algorithm>
#include <climits>

#include "framework/BasicFileIO.h"
#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleSync.h"
#include "quicktime/tables/QtAtomSampleTime.h"

QtTrackSamples::QtTrackSamples(QtAtomHeader const* media) : m_table(media) {
    m_table.validate();
    if (media) m_file = media->getRootFp();
}

std::vector<BaseQtAtom const*> QtTrackSamples::tracksOf(BaseQtAtom const& root) {
    std::vector<BaseQtAtom const*> tracks;
    BaseQtAtom const* moov = root.findAtom("moov", 0);
    for (BaseQtAtom const* atom = moov ? moov->getChild() : nullptr; atom; atom = atom->getSibling())
        if (atom->getId() == qtId("trak")) tracks.push_back(atom);
    return tracks;
}

QtAtomHeader const* QtTrackSamples::mediaOf(BaseQtAtom const* trak) {
    return trak ? dynamic_cast<QtAtomHeader const*>(trak->findAtom("mdia", 0)) : nullptr;
}

QtAtomHeader const* QtTrackSamples::findTrackMedia(BaseQtAtom const& root, unsigned int track) {
    std::vector<BaseQtAtom const*> tracks = tracksOf(root);
    return track >= 1 && track <= tracks.size() ? mediaOf(tracks[track - 1]) : nullptr;
}

unsigned int QtTrackSamples::countTracks(BaseQtAtom const& root) {
    return static_cast<unsigned int>(tracksOf(root).size());
}

bool QtTrackSamples::valid() const {
    return m_table.getStsc() && m_table.getStsz() && m_table.getStco() && m_table.getStts();
}

// Each count only grows while a recorder extends the tables, so their least, read in any order, is a
// prefix of samples whose entries are all stored. The chunk offsets bound it too: a movie cut short
// in the middle of a flush stores them last, and its other tables may count samples beyond them.
unsigned long QtTrackSamples::getNumSamples() const {
    if (!valid()) return 0;
    QtAtomSampleChunk const* stsc = m_table.getStsc();
    unsigned int chunks = std::min(m_table.getStco()->getNumChunks(), stsc->getNumChunks());
    unsigned long count = std::min<unsigned long>(m_table.getStsz()->getSampleCount(), stsc->getSamplesInChunks(chunks));
    QtAtomSampleTime const* stts = m_table.getStts();
    if (stts->isRecording()) count = std::min(count, stts->getTotalSamples());
    QtAtomCompTime const* ctts = m_table.getCtts();
    if (ctts && ctts->isRecording()) count = std::min(count, ctts->getSettledSamples());
    return count;
}

bool QtTrackSamples::getSample(unsigned long sample, QtSampleInfo& info, FileIoClientRec* agent) const {
    Iterator it(*this, sample, agent);
    return it.next(info);
}

QtTrackSamples::Iterator::Iterator(QtTrackSamples const& track, unsigned long first, FileIoClientRec* agent)
    : m_table(track.m_table), m_agent(agent), m_sample(first), m_count(track.getNumSamples()) {
    m_fileLength = track.m_file ? track.m_file->length() : ~0ul;
    m_ok = track.valid() && first < m_count && seekChunk();
    if (!m_ok) return;
    seekTimes();
    seekComposition();
}

bool QtTrackSamples::Iterator::seekChunk() {
    if (!m_table.getStsc()->getChunkSet(m_sample, m_chunkSet) || m_chunkSet.m_samplesPerChunk == 0) return false;
    unsigned long chunkFirst = 0;
    unsigned int chunk = m_chunkSet.getChunk(m_sample, chunkFirst);
    if (chunk >= m_table.getStco()->getNumChunks()) return false;
    m_chunkEnd = chunkFirst + m_chunkSet.m_samplesPerChunk;
    m_offset = m_table.getStco()->getChunkOffset(chunk, m_agent);
    QtAtomSampleSize const* stsz = m_table.getStsz();
    if (stsz->isFixed()) {
        // Every sample before this one in the chunk has the same size: one product, however
        // many samples the chunk claims.
        unsigned long before = (m_sample - chunkFirst) * stsz->getConstantSampleSize();
        if (__builtin_add_overflow(m_offset, before, &m_offset)) m_offset = ~0ul;
    } else {
        // Listed sizes are entries in the file, so this walk is bounded by what the file holds.
        for (unsigned long s = chunkFirst; s < m_sample; ++s)
            m_offset += stsz->getSampleSize(static_cast<unsigned int>(s), 1, m_agent);
    }
    return true;
}

void QtTrackSamples::Iterator::seekTimes() {
    QtAtomSampleTime const* stts = m_table.getStts();
    unsigned long before = 0;
    m_dts = 0;
    for (m_sttsIndex = 0; m_sttsIndex < stts->getNumEntries(); ++m_sttsIndex) {
        QtAtomSampleTime::Entry entry = stts->getEntry(m_sttsIndex);
        if (m_sample < before + entry.count) {
            m_sttsDuration = entry.duration;
            m_sttsLeft = static_cast<unsigned int>(before + entry.count - m_sample);
            addTime(m_sample - before, entry.duration);
            return;
        }
        before += entry.count;
        addTime(entry.count, entry.duration);
    }
    // Past the table: the samples keep the last duration.
    QtAtomSampleTime::Entry last = stts->getEntry(stts->getNumEntries() ? stts->getNumEntries() - 1 : 0);
    m_sttsDuration = last.duration;
    m_sttsLeft = 0;
    addTime(m_sample - before, last.duration);
}

void QtTrackSamples::Iterator::addTime(unsigned long samples, unsigned int duration) {
    unsigned long span;
    if (__builtin_mul_overflow(samples, static_cast<unsigned long>(duration), &span) ||
        __builtin_add_overflow(m_dts, span, &m_dts))
        m_timeOverflow = true;
}

bool QtTrackSamples::Iterator::sampleIsSound(QtSampleInfo& info, int compositionOffset) {
    if (m_timeOverflow || m_dts > static_cast<unsigned long>(LONG_MAX) ||
        __builtin_add_overflow(static_cast<long>(m_dts), static_cast<long>(compositionOffset), &info.pts)) {
        warningMsg("%s: the time of sample %lu passes 2^63: its time tables are damaged; no later sample is read\n",
                   m_table.getMedia()->getAtomPath().get(), m_sample);
        return false;
    }
    if (info.offset > m_fileLength || info.size > m_fileLength - info.offset) {
        warningMsg("%s: sample %lu (%u bytes at %lu) lies outside the file of %lu bytes; no later sample is read\n",
                   m_table.getMedia()->getAtomPath().get(), m_sample, info.size, info.offset, m_fileLength);
        return false;
    }
    return true;
}

void QtTrackSamples::Iterator::seekComposition() {
    m_ctts = m_table.getCtts();
    if (!m_ctts || m_ctts->getStss() || m_ctts->getStps()) return;
    m_cursor.emplace(m_ctts->getArray(), 0, m_agent);
    m_cursorOn = m_ctts->seekSample(*m_cursor, m_sample, m_agent);
}

// The raw offset of the current sample (0 past the table), answered by the unit's frame set, or by
// the cursor, which then moves on to the next sample.
int QtTrackSamples::Iterator::compositionOffset() {
    if (!m_ctts) return 0;
    if (!m_cursor) {
        if (!m_frames || !m_frames->canHold(m_sample)) {
            m_frames.reset();  // so that the agent's set is recycled for the next unit
            m_frames = m_ctts->getFrameSet(m_sample, m_agent);
        }
        return m_frames && m_frames->holds(m_sample) ? m_frames->getType(m_sample).offset : 0;
    }
    if (!m_cursorOn) return 0;
    int offset = m_cursor->getOffset();
    m_cursorOn = (*m_cursor)++;
    return offset;
}

bool QtTrackSamples::Iterator::next(QtSampleInfo& info) {
    if (!m_ok || m_sample >= m_count) return false;
    QtAtomSampleSync const* stss = m_table.getStss();
    info.sample = m_sample;
    info.offset = m_offset;
    info.size = m_table.getStsz()->getSampleSize(static_cast<unsigned int>(m_sample), 1, m_agent);
    info.dts = m_dts;
    info.key = stss ? stss->isKey(m_sample, m_agent) : true;
    info.descIndex = m_chunkSet.m_descIndex;
    if (!sampleIsSound(info, compositionOffset())) {
        m_ok = false;
        return false;
    }

    ++m_sample;
    m_offset += info.size;
    if (m_sample >= m_chunkEnd && m_sample < m_count && !seekChunk()) m_ok = false;
    addTime(1, m_sttsDuration);
    if (m_sttsLeft > 0 && --m_sttsLeft == 0) {
        QtAtomSampleTime const* stts = m_table.getStts();
        // Runs of zero samples are skipped.
        while (++m_sttsIndex < stts->getNumEntries() && stts->getEntry(m_sttsIndex).count == 0) {
        }
        if (m_sttsIndex < stts->getNumEntries()) {
            m_sttsDuration = stts->getEntry(m_sttsIndex).duration;
            m_sttsLeft = stts->getEntry(m_sttsIndex).count;
        }
    }
    return true;
}
