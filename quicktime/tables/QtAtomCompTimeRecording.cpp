// Recording composition offsets: samples arrive in decode order with the encoder's coding type and,
// sometimes, its display offset. Offsets given are written as they are; otherwise the reorder cache
// derives them from the order of I/P and B frames. Readers are kept in step as the table grows.

#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomCompShift.h"
#include "quicktime/tables/QtAtomCompTime.h"

namespace {

constexpr unsigned long kMaxUint32 = 0xFFFFFFFFul;

}  // namespace

// ---------------------------------------------------------------------------------------------
// CTTSCache

bool QtAtomCompTime::CTTSCache::appendSample(SampleCodingType type, int offset, unsigned int ticks,
                                             QtAtomCompShift const* cslg) {
    if (needsFlush()) {
        errorMsg("QtAtomCompTime::CTTSCache::addEntry: Sample received without flushing.\n");
        return false;
    }
    int d = static_cast<int>(static_cast<unsigned int>(offset) * ticks);
    if (type != SampleCodingB) {
        if (m_state == 1) {
            m_prior.set(m_prior.count + 1, d);  // the old reference joins the prior run
            m_reference.set(1, d);
        } else if (m_state == 2) {
            m_next.set(1, d);  // the group is complete
        } else {
            m_reference.set(1, d);
            m_state = 1;
        }
    } else {
        if (m_state == 0) {
            errorMsg("QtAtomCompTime::CTTSCache::addEntry: B frame received without previous I or P frame.\n");
            return false;
        }
        // Each B frame in front of the reference pushes its display one frame later.
        m_reference.offset = static_cast<int>(static_cast<unsigned int>(m_reference.offset) + ticks);
        if (m_state == 1)
            m_bframes.set(1, d);
        else
            ++m_bframes.count;
        m_state = 2;
    }
    if (needsFlush()) {
        int shiftOut = 0;
        if (!flush(shiftOut)) return false;
        m_writeIndex = m_owner.getNumEntries() - 1;
        if (cslg) cslg->update(shiftOut, static_cast<int32_t>(ticks));
        return true;
    }
    if (!writeToCTTS()) return false;
    if (cslg) cslg->update(d, static_cast<int32_t>(ticks));
    return true;
}

bool QtAtomCompTime::CTTSCache::writeToCTTS() {
    unsigned int index = m_writeIndex;
    auto put = [&](DiskEntry entry) { return m_owner.addCTTSEntry(entry, index++); };
    bool ok = true;
    if (m_prior.count != 0 && m_prior.offset == m_reference.offset) {
        ok = put(DiskEntry(m_prior.count + 1, m_reference.offset));
    } else {
        if (m_prior.count != 0) ok = put(m_prior);
        ok = ok && put(m_reference);
    }
    if (m_state == 2) ok = ok && put(m_bframes);
    if (needsFlush()) ok = ok && put(m_next);
    return ok;
}

bool QtAtomCompTime::CTTSCache::flush(int& shiftOut) {
    if (!needsFlush()) return false;
    bool ok = writeToCTTS();
    shiftOut = m_reference.offset;
    m_reference = m_next;
    m_prior.count = 0;
    m_next.count = 0;
    m_state = 1;
    return ok;
}

// ---------------------------------------------------------------------------------------------
// appendSample

QtAtomCompTime::Sample QtAtomCompTime::appendSample(unsigned long sample, SampleInfo const& info, unsigned int ticks,
                                                    QtAtomCompShift const* cslg) const {
    SampleCodingType type = info.getEncoding();
    Sample result(static_cast<uint32_t>(sample), 0, type);
    if (sample > kMaxUint32 || ticks == 0) return result;
    std::lock_guard<std::recursive_mutex> open(m_openEntries);
    if (!m_recording.exchange(true)) {
        m_shapes.disable();
        settleSiblings();
    }
    write();
    if (static_cast<unsigned long>(m_lastRecordedSample) + 1 < sample) {
        errorMsg("QtAtomCompTime::appendSample: recording sample %ld after sample %d", static_cast<long>(sample),
                 m_lastRecordedSample);
        if (m_deriveMode || quicktimeLegacyDbg.on(QtLegacyIgnoreDisplayOffsets)) fillGap(sample, ticks, cslg);
    }
    if (sample == 0) m_deriveMode = !(info.hasDisplayOffset() && cslg);
    bool derive = m_deriveMode || quicktimeLegacyDbg.on(QtLegacyIgnoreDisplayOffsets);
    unsigned int shiftFrames = cslg ? static_cast<unsigned int>(cslg->getShift()) / ticks : 0;
    unsigned long distance;
    if (derive && type != SampleCodingB) {
        if (m_lastReferenceSample > sample) {
            errorMsg("QtAtomCompTime::appendSample: disjoint sample on P/I%d --> P%ld", m_lastReferenceSample,
                     static_cast<long>(sample));
            m_lastReferenceSample = static_cast<unsigned int>(sample);
        }
        if (!m_cttsCache.appendSample(type, static_cast<int>(1 - shiftFrames), ticks, cslg)) return result;
        distance = sample - m_lastReferenceSample;
        m_lastReferenceSample = static_cast<unsigned int>(sample);
    } else if (derive) {
        if (!m_cttsCache.appendSample(type, static_cast<int>(0 - shiftFrames), ticks, cslg)) return result;
        distance = sample - m_lastReferenceSample;
        refreshReference();
    } else {
        distance = sample - m_lastReferenceSample;
        if (type != SampleCodingB) m_lastReferenceSample = static_cast<unsigned int>(sample);
        if (!appendDirect(sample, info.getDisplayOffset(), ticks, cslg, result)) return result;
    }
    result.anchor = static_cast<uint32_t>(sample - distance);
    updateReaders(sample, result, type);
    m_lastRecordedSample = static_cast<unsigned int>(sample);
    m_settledSamples.store(derive ? m_lastReferenceSample : sample + 1, std::memory_order_release);
    return result;
}

// The samples the caller skipped are recorded as B frames in front of the next reference.
void QtAtomCompTime::fillGap(unsigned long sample, unsigned int ticks, QtAtomCompShift const* cslg) const {
    int b = cslg ? -(cslg->getShift() / static_cast<int>(ticks)) : 0;
    for (unsigned long missing = sample - m_lastRecordedSample - 1; missing > 0; --missing)
        m_cttsCache.appendSample(SampleCodingB, b, ticks, cslg);
}

// Direct mode: the encoder's offset extends the last run or starts a new one. A full table asks the
// movie for room and hands back the request's result in place of the sample's record.
bool QtAtomCompTime::appendDirect(unsigned long sample, int offset, unsigned int ticks, QtAtomCompShift const* cslg,
                                  Sample& result) const {
    int delta = static_cast<int>(static_cast<unsigned int>(offset) * ticks);
    unsigned int n = getNumEntries();
    DiskEntry last = getEntry(n ? n - 1 : 0, nullptr);
    if (n != 0 && last.offset == delta) {
        last.count += 1;
        if (!write()->m_array.setElementAt(n - 1, last, nullptr)) return false;
    } else if (n >= m_array.getVirtualSize()) {
        result = Sample(addMovieResizeNeeded(QtResizeReq::Samples) ? 1u : 0u);
        return false;
    } else {
        if (n >= kInMemoryEntries && !m_array.isVirtual() && !makeDiskBacked()) return false;
        QtAtomCompTime* self = write();
        if (!self->m_array.setElementAt(n, DiskEntry(1, delta), nullptr)) return false;
        self->m_nEntries.store(n + 1, std::memory_order_release);
    }
    if (cslg) cslg->update(delta, static_cast<int32_t>(ticks));
    (void)sample;
    return true;
}

// A B frame moved the pending reference's display later: a cached frame set that holds the
// reference shows the new offset (sets filled later read it from the table).
void QtAtomCompTime::refreshReference() const {
    unsigned long reference = m_lastReferenceSample;
    AutoReleasePtr<FrameSet> set = m_frameSets.find(QtFrameSet::frameToUnit(reference));
    if (set) set->setOffset(reference, m_cttsCache.getReference().offset);
}

// The recorder's own cursor follows the table, storing anchors and updating the cached frame set of
// the sample, so that readers see the new sample without walking for it.
void QtAtomCompTime::updateReaders(unsigned long sample, Sample const& result, SampleCodingType type) const {
    while (m_diskIterator.getSample() < sample && m_diskIterator++) {
        if (m_diskIterator.sparseNeedsUpdate()) m_sparse.update(m_diskIterator);
    }
    if (m_diskIterator.getSample() == sample && m_diskIterator.onSparse()) m_sparse.update(m_diskIterator);
    AutoReleasePtr<FrameSet> set = getFrameSet(sample, nullptr);
    if (set && m_diskIterator.getSample() == sample) set->update(m_diskIterator);
    if (!quicktimeLegacyDbg.on(QtLegacyOldCttsLookup)) return;
    std::lock_guard<std::mutex> lock(m_absolute.mutex);
    Sparse anchor = m_sparse.get(static_cast<unsigned int>(sample >> 8));
    unsigned long index = sample - anchor.sample;
    if (anchor.valid() && m_absolute.canHold(sample) && index < QtFrameSet::kUnitFrames) {
        if (m_absolute.slots.size() <= index) m_absolute.slots.resize(index + 1);
        Absolute& slot = m_absolute.slots[index];
        slot.offset = static_cast<int8_t>(result.offset);
        slot.depend = static_cast<uint8_t>(sample - result.anchor);
        slot.type = type;
    }
}
