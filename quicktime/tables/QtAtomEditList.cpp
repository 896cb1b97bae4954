#include "quicktime/tables/QtAtomEditList.h"

#include <algorithm>

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"
#include "quicktime/atoms/QtTreeSize.h"
#include "quicktime/tables/QtAtomSampleTime.h"

namespace {

// calcMedia works in 16.16 fixed point on raw values. Every operation is the exact floor that
// FixedPoint<16u> computes, widened to 128 bits so that time scales and durations read from a
// damaged file cannot overflow; results are held below a limit that keeps later sums in range.
constexpr int kFractionBits = 16;
constexpr int64_t kOne = int64_t(1) << kFractionBits;
constexpr int64_t kHalf = kOne / 2;
constexpr __int128 kFixedLimit = int64_t(1) << 60;

int64_t toFixed(__int128 raw) { return static_cast<int64_t>(std::min(raw, kFixedLimit)); }

}  // namespace

QtAtomEditList::QtAtomEditList(BaseQtAtom const* parent, unsigned int edits)
    : BaseQtAtom(qtId("elst"), parent, 8 + kBodySize), m_edits(edits), m_capacity(edits + 2) {}

bool QtAtomEditList::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    unsigned long count = decodeUint32(buffer);
    // The capacity is whatever the atom's size covers, so that the list always writes back to
    // exactly its own size (also when no edit is in use). A count beyond it is cut.
    unsigned long slots = QtAtomHelpers::roomAfter(*this, getFixedSize()) / kEntrySize;
    m_capacity = static_cast<uint32_t>(std::min<unsigned long>(slots, 0xFFFFFFFFul));
    count = std::min<unsigned long>({count, slots, QtAtomHelpers::bytesLeft(*this, buffer) / kEntrySize});
    m_edits.assign(count, Edit());
    for (Edit& edit : m_edits) {
        edit.trackDuration = decodeUint32(buffer);
        edit.mediaTime = decodeUint32(buffer);
        edit.mediaRate = decodeUint32(buffer);
        if (edit.mediaTime == kEmptyMediaTime) {
            edit.mediaTime = 0;
            edit.empty = true;
        }
    }
    buffer.removeInput(QtAtomHelpers::bytesLeft(*this, buffer));
    m_mediaCalculated = false;
    return true;
}

bool QtAtomEditList::encode(QtAtomBuffer& buffer) const {
    unsigned int before = buffer.nOccupied();
    bool fits = QtAtomHelpers::fitsItsSize(*this, "elst");
    unsigned long count = QtAtomHelpers::entriesThatFit(*this, m_edits.size(), kEntrySize);
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, static_cast<unsigned int>(count));
    for (unsigned long i = 0; i < count; ++i) {
        Edit const& edit = m_edits[i];
        encode(buffer, edit.trackDuration);
        encode(buffer, edit.empty ? kEmptyMediaTime : edit.mediaTime);
        encode(buffer, edit.mediaRate);
    }
    // The spare slots up to the capacity, and any stray bytes after them, are zero.
    QtAtomHelpers::padToSize(*this, buffer, before);
    return fits;
}

bool QtAtomEditList::resize(unsigned int edits) const {
    if (edits > m_capacity) return addMovieResizeNeeded(QtResizeReq::Edts);
    if (edits != m_edits.size()) write()->m_edits.resize(edits);
    return true;
}

unsigned int QtAtomEditList::addCapacity() const {
    unsigned int edits = getNumEdits();
    unsigned int capacity = edits > 10 ? edits * 10 : 100;
    if (capacity != m_capacity) write()->m_capacity = capacity;
    return capacity;
}

QtAtomSampleTime const* QtAtomEditList::findSampleTime() const {
    BaseQtAtom const* track = findParent(qtId("trak"));
    BaseQtAtom const* media = track ? track->findAtom("mdia", 0) : nullptr;
    BaseQtAtom const* table = media ? media->findAtom("minf.stbl.stts", 0) : nullptr;
    return dynamic_cast<QtAtomSampleTime const*>(table);
}

void QtAtomEditList::calcMedia(bool force) const {
    if (m_mediaCalculated && !force) return;
    QtAtomSampleTime const* stts = findSampleTime();
    if (!stts) return;
    calcMedia(getMediaTimeScale(), getMovieTimeScale(), *stts);
}

void QtAtomEditList::calcMedia(unsigned int mediaTimeScale, unsigned int movieTimeScale,
                               QtAtomSampleTime const& stts) const {
    unsigned long ticks = stts.getTicksPerSample();
    if (mediaTimeScale == 0 || movieTimeScale == 0 || ticks == 0) return;
    // R: media units per movie unit. The slack S widens every edit by a little less than one
    // movie unit when a coarse movie time scale cannot express the media's end exactly.
    int64_t ratio = (static_cast<int64_t>(mediaTimeScale) << kFractionBits) / movieTimeScale;
    if (ratio == 0) return;
    int64_t slack = ratio > kOne && movieTimeScale <= 600 ? ratio - kOne : 0;
    auto* self = static_cast<QtAtomEditList*>(nonConst());
    for (size_t i = 0; i < self->m_edits.size(); ++i) {
        Edit& edit = self->m_edits[i];
        __int128 duration =
            (static_cast<__int128>(mediaTimeScale) * edit.trackDuration << kFractionBits) / movieTimeScale;
        unsigned long start = edit.mediaTime / ticks * ticks;
        unsigned long intoSample = edit.mediaTime - start;
        int64_t end = toFixed((static_cast<__int128>(start) << kFractionBits) + duration +
                              (static_cast<__int128>(intoSample) << kFractionBits) + slack);
        if (i + 1 < self->m_edits.size()) end = end / ratio * ratio;  // whole movie units
        if (edit.empty) {
            unsigned long samples =
                static_cast<unsigned long>(end / static_cast<int64_t>(ticks)) >> kFractionBits;
            edit.numSamples = static_cast<uint32_t>(samples);
            edit.offset = static_cast<uint32_t>(samples * ticks);
        } else {
            unsigned long endTime = static_cast<unsigned long>(end + kHalf) >> kFractionBits;
            QtAtomSampleTime::Span span = stts.getSpan(start, endTime);
            edit.firstSample = static_cast<uint32_t>(span.firstSample);
            edit.numSamples = static_cast<uint32_t>(span.endSample - span.firstSample);
            edit.offset = static_cast<uint32_t>(span.endTime - start);
        }
    }
    self->m_mediaCalculated = true;
}

unsigned long QtAtomEditList::physicalToVirtualSample(unsigned long sample) const {
    if (m_edits.empty()) return sample;
    // Both positions start at the first edit's first sample; empty edits advance only the
    // presentation.
    unsigned long presentation = m_edits[0].firstSample;
    unsigned long media = presentation;
    for (Edit const& edit : m_edits) {
        presentation += edit.numSamples;
        if (edit.empty) continue;
        media += edit.numSamples;
        if (media > sample) return presentation - (media - sample);
    }
    return sample;
}

QtAtomEditList::Phys QtAtomEditList::getSpan(unsigned long time, unsigned int count) const {
    Phys phys;
    if (m_edits.empty()) return phys;
    unsigned long start = m_edits[0].firstSample + m_mediaOffset;  // where the current edit begins
    for (size_t i = 0; i < m_edits.size(); ++i) {
        Edit const& edit = m_edits[i];
        unsigned long editEnd = start + edit.numSamples;
        if (editEnd > time) {
            unsigned long position = std::max(time, start);
            phys.index = static_cast<unsigned int>(i);
            phys.first = edit.firstSample + m_mediaOffset + (position - start);
            phys.remain = editEnd - position;
            phys.end = phys.first + std::min<unsigned long>(count, phys.remain);
            phys.empty = edit.empty;
            return phys;
        }
        start = editEnd;
    }
    // Past the last edit: the media is taken to go on after the last edit's end.
    Edit const& last = m_edits.back();
    phys.index = getNumEdits() - 1;
    phys.first = last.firstSample + m_mediaOffset + last.numSamples + (time - start);
    phys.end = phys.first + count;
    phys.remain = count;
    phys.empty = false;
    return phys;
}

void QtAtomEditList::show() const {
    int indent = QtAtomHelpers::continuationIndent(*this);
    unsigned int movieScale = getMovieTimeScale();
    infoMsg("%s,cap=%d,nedits=%d\n", QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(), m_capacity,
            getNumEdits());
    infoMsg("%*s # %-13s %7s  %-13s %7s %7s  rate\n", indent, "", "start", "(media)", "length", "(movie)",
            "samples");
    unsigned long start = 0;
    for (size_t i = 0; i < m_edits.size(); ++i) {
        Edit const& edit = m_edits[i];
        AutoPtr<char> startText = QtAtomHelpers::timeText(static_cast<unsigned int>(start), movieScale);
        AutoPtr<char> lengthText = QtAtomHelpers::timeText(edit.trackDuration, movieScale);
        int index = static_cast<int>(i);
        if (edit.empty)
            infoMsg("%*s%2d %-13s %-7s  %-13s %7d %7d  0x%x\n", indent, "", index, startText.get(), "empty",
                    lengthText.get(), edit.trackDuration, edit.numSamples, edit.mediaRate);
        else
            infoMsg("%*s%2d %-13s %7d  %-13s %7d %7d  0x%x\n", indent, "", index, startText.get(),
                    edit.mediaTime, lengthText.get(), edit.trackDuration, edit.numSamples, edit.mediaRate);
        start += edit.trackDuration;
    }
}
