#include "quicktime/tables/QtAtomSampleTime.h"

#include <algorithm>
#include <string>

#include "framework/FormatStr.h"
#include "quicktime/atoms/QtAtomHelpers.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtTableText.h"

namespace {

constexpr unsigned long kMaxCount = 0xFFFFFFFFul;
constexpr unsigned long kMaxEntries = 400;

}  // namespace

QtAtomSampleTime::QtAtomSampleTime(BaseQtAtom const* parent) : BaseQtAtom(kId, parent, 16) {}

QtAtomSampleTime::~QtAtomSampleTime() = default;

bool QtAtomSampleTime::decode(QtAtomBuffer& buffer) {
    unsigned int start = buffer.bufferOffset();
    bool ok = BaseQtAtom::decode(buffer);
    m_nEntries.store(0, std::memory_order_release);
    m_entries.reset(0);
    m_recording.store(false, std::memory_order_release);
    m_damagedCount = 0;
    if (buffer.nOccupied() >= 8) {
        m_versionAndFlags.decode(buffer);
        unsigned int count = decodeUint32(buffer);
        long left = static_cast<long>(getSize()) - static_cast<long>(buffer.bufferOffset() - start);
        // A count the atom cannot hold empties the table (compared without overflow).
        if (static_cast<long>(count) * 8 <= left && count * 8ul <= buffer.nOccupied()) {
            m_entries.reset(count);
            for (unsigned int i = 0; i < count; ++i) {
                Entry entry;
                entry.count = decodeUint32(buffer);
                entry.duration = decodeUint32(buffer);
                m_entries.set(i, entry);
            }
            m_nEntries.store(count, std::memory_order_release);
        } else {
            m_damagedCount = count;
        }
    }
    unsigned long used = buffer.bufferOffset() - start;
    if (getSize() > used) buffer.removeInput(getSize() - used);
    return ok;
}

bool QtAtomSampleTime::encode(QtAtomBuffer& buffer) const {
    bool fits = QtAtomHelpers::fitsItsSize(*this, "stts");
    unsigned long count = QtAtomHelpers::entriesThatFit(*this, getNumEntries(), 8);
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    BaseQtAtom::encode(buffer, static_cast<unsigned int>(count));
    for (unsigned int i = 0; i < count; ++i) {
        Entry entry = m_entries.get(i);
        BaseQtAtom::encode(buffer, entry.count);
        BaseQtAtom::encode(buffer, entry.duration);
    }
    // Reserved room past the count reads as zeros.
    unsigned long room = QtAtomHelpers::entriesThatFit(*this, getCapacity(), 8);
    if (room > count) buffer.append(static_cast<unsigned int>((room - count) * 8), true);
    return fits;
}

// ---------------------------------------------------------------- lookups

unsigned long QtAtomSampleTime::getSample(unsigned long time) const {
    unsigned long samplesBefore = 0, timeBefore = 0, found = ~0ul;
    forEachEntry([&](Entry const& entry) {
        unsigned int span = spanOf(entry);
        if (timeBefore + span > time) {
            found = entry.duration == 0 ? samplesBefore
                                        : samplesBefore + (time - timeBefore + entry.duration / 2) / entry.duration;
            return false;
        }
        samplesBefore += entry.count;
        timeBefore += span;
        return true;
    });
    return found != ~0ul ? found : samplesBefore;
}

unsigned long QtAtomSampleTime::getSampleTime(unsigned long sample) const {
    unsigned long samplesBefore = 0, timeBefore = 0;
    forEachEntry([&](Entry const& entry) {
        if (sample < samplesBefore + entry.count) {
            timeBefore += (sample - samplesBefore) * static_cast<unsigned long>(entry.duration);
            return false;
        }
        samplesBefore += entry.count;
        timeBefore += spanOf(entry);
        return true;
    });
    return timeBefore;
}

QtAtomSampleTime::Span QtAtomSampleTime::getSpan(unsigned long startTime, unsigned long endTime) const {
    Span span;
    if (startTime > endTime) return span;
    unsigned long samplesBefore = 0, timeBefore = 0;
    bool firstFound = false;
    forEachEntry([&](Entry const& entry) {
        unsigned long end = timeBefore + spanOf(entry);
        if (entry.duration == 0) {
            // Nothing to divide by: the samples so far are the answer.
            span.endSample = samplesBefore;
            span.endTime = timeBefore;
            if (end >= endTime) return false;
            samplesBefore += entry.count;
            return true;
        }
        if (!firstFound && end > startTime) {
            span.firstSample = samplesBefore + (startTime - timeBefore + entry.duration / 2) / entry.duration;
            firstFound = true;
        }
        unsigned int n = entry.count;
        if (end > endTime) {
            // Nearest sample, a half rounding down, in 32-bit arithmetic.
            unsigned int into = static_cast<unsigned int>(endTime - timeBefore);
            n = into / entry.duration;
            if (n * entry.duration + entry.duration / 2 < into) ++n;
        }
        span.endSample = samplesBefore + n;
        span.endTime = timeBefore + static_cast<unsigned long>(n) * entry.duration;
        if (end >= endTime) return false;
        samplesBefore += entry.count;
        timeBefore = end;
        return true;
    });
    return span;
}

unsigned long QtAtomSampleTime::getTotalSamples() const {
    unsigned long total = 0;
    forEachEntry([&](Entry const& entry) {
        total += entry.count;
        return true;
    });
    return total;
}

unsigned int QtAtomSampleTime::getTicksPerSample() const {
    long best = -1;
    unsigned int ticks = 1;
    forEachEntry([&](Entry const& entry) {
        if (entry.duration != 0 && static_cast<int>(entry.count) > best) {
            best = static_cast<int>(entry.count);
            ticks = entry.duration;
        }
        return true;
    });
    return ticks;
}

// ---------------------------------------------------------------- recording

bool QtAtomSampleTime::fixTicksPerSample(unsigned int ticks) {
    if (getNumEntries() != 1 || ticks == 0) return false;
    Entry entry = m_entries.get(0);
    // Kept as it stands: not the usual rounding of count x duration / ticks.
    entry.count = ((entry.duration + 1) * entry.count - 1) / ticks;
    entry.duration = ticks;
    m_entries.set(0, entry);
    return true;
}

void QtAtomSampleTime::setFixedRate(unsigned long samples, unsigned int ticks) {
    unsigned long needed = samples / kMaxCount + 1;
    if (needed > kMaxEntries) {
        errorMsg("QtAtomSampleTime::setFixedRate: unreasonable table size: %d; trimed to 400\n",
                 static_cast<int>(needed));
        needed = kMaxEntries;
    }
    // A table that already has that many entries is left as it is, durations and all.
    if (getNumEntries() == needed) return;
    // Entries first, then the count that publishes them.
    for (unsigned int i = 0; i < needed; ++i) {
        bool last = i + 1 == needed;
        storeEntry(i, Entry{last ? static_cast<unsigned int>(samples - (needed - 1) * kMaxCount)
                                 : static_cast<unsigned int>(kMaxCount),
                            ticks});
    }
    m_nEntries.store(static_cast<unsigned int>(needed), std::memory_order_release);
}

void QtAtomSampleTime::storeEntry(unsigned int index, Entry const& entry) {
    if (index >= m_entries.size()) m_entries.resize(std::max(index + 1, 2 * m_entries.size()));
    m_entries.set(index, entry);
}

void QtAtomSampleTime::addSamples(unsigned int count, unsigned int ticks) {
    unsigned int n = getNumEntries();
    Entry last = n ? m_entries.get(n - 1) : Entry();
    if (n && static_cast<unsigned long>(last.count) + count <= kMaxCount) {
        last.count += count;
        m_entries.set(n - 1, last);
    } else {
        // The count being added, not the total: a full one-entry table is left unchanged.
        setFixedRate(count, ticks);
    }
    // After the samples: a decoded table's total never drops below what readers saw.
    m_recording.store(true, std::memory_order_release);
}

void QtAtomSampleTime::appendSamples(unsigned int count, unsigned int ticks) {
    unsigned int n = getNumEntries();
    Entry last = n ? m_entries.get(n - 1) : Entry();
    if (n && last.duration == ticks && static_cast<unsigned long>(last.count) + count <= kMaxCount) {
        last.count += count;
        m_entries.set(n - 1, last);
    } else {
        // Entry first, then the count that publishes it.
        storeEntry(n, Entry{count, ticks});
        m_nEntries.store(n + 1, std::memory_order_release);
    }
    m_recording.store(true, std::memory_order_release);
}

bool QtAtomSampleTime::setLastDuration(unsigned int ticks) {
    unsigned int n = getNumEntries();
    if (n == 0) return false;
    Entry last = m_entries.get(n - 1);
    last.duration = ticks;
    m_entries.set(n - 1, last);
    return true;
}

// ---------------------------------------------------------------- printout

void QtAtomSampleTime::show() const {
    std::string text = FormatStr("%s,{cnt,len}[%d]=", toString().get(), getNumEntries()).get();
    bool everyEntry = quicktimeDbg.on(QtDbgAllSizes);
    int indent = static_cast<int>(2 * numGeneration() + 2);
    unsigned int n = getNumEntries();
    auto entry = [this](unsigned int i) {
        Entry run = m_entries.get(i);
        return std::string(FormatStr("{%u,%u}", run.count, run.duration).get());
    };
    text += qtTableEntries(n, everyEntry, QtListing{8, 5, true}, entry, [indent](unsigned int) {
        return std::string(FormatStr("\n%*s", indent, "").get());
    });
    text += "\n";
    infoMsg("%s", text.c_str());
}
