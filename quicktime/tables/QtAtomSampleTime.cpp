#include "quicktime/tables/QtAtomSampleTime.h"

#include <string>

#include "framework/FormatStr.h"
#include "quicktime/atoms/QtAtomHelpers.h"
#include "quicktime/atoms/QtDebug.h"

namespace {

constexpr unsigned long kMaxCount = 0xFFFFFFFFul;
constexpr unsigned long kMaxEntries = 400;

}  // namespace

QtAtomSampleTime::QtAtomSampleTime(BaseQtAtom const* parent) : BaseQtAtom(kId, parent, 16) {}

QtAtomSampleTime::~QtAtomSampleTime() = default;

bool QtAtomSampleTime::decode(QtAtomBuffer& buffer) {
    unsigned int start = buffer.bufferOffset();
    bool ok = BaseQtAtom::decode(buffer);
    m_entries.clear();
    m_damagedCount = 0;
    if (buffer.nOccupied() >= 8) {
        m_versionAndFlags.decode(buffer);
        unsigned int count = decodeUint32(buffer);
        long left = static_cast<long>(getSize()) - static_cast<long>(buffer.bufferOffset() - start);
        // A count the atom cannot hold empties the table (compared without overflow).
        if (static_cast<long>(count) * 8 <= left && count * 8ul <= buffer.nOccupied()) {
            m_entries.resize(count);
            for (Entry& entry : m_entries) {
                entry.count = decodeUint32(buffer);
                entry.duration = decodeUint32(buffer);
            }
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
    unsigned long count = QtAtomHelpers::entriesThatFit(*this, m_entries.size(), 8);
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    BaseQtAtom::encode(buffer, static_cast<unsigned int>(count));
    for (unsigned long i = 0; i < count; ++i) {
        BaseQtAtom::encode(buffer, m_entries[i].count);
        BaseQtAtom::encode(buffer, m_entries[i].duration);
    }
    // Reserved room past the count reads as zeros.
    unsigned long room = QtAtomHelpers::entriesThatFit(*this, getCapacity(), 8);
    if (room > count) buffer.append(static_cast<unsigned int>((room - count) * 8), true);
    return fits;
}

// ---------------------------------------------------------------- lookups

unsigned long QtAtomSampleTime::getSample(unsigned long time) const {
    unsigned long samplesBefore = 0, timeBefore = 0;
    for (Entry const& entry : m_entries) {
        unsigned int span = spanOf(entry);
        if (timeBefore + span > time) {
            if (entry.duration == 0) return samplesBefore;
            return samplesBefore + (time - timeBefore + entry.duration / 2) / entry.duration;
        }
        samplesBefore += entry.count;
        timeBefore += span;
    }
    return samplesBefore;
}

unsigned long QtAtomSampleTime::getSampleTime(unsigned long sample) const {
    unsigned long samplesBefore = 0, timeBefore = 0;
    for (Entry const& entry : m_entries) {
        if (sample < samplesBefore + entry.count)
            return timeBefore + (sample - samplesBefore) * static_cast<unsigned long>(entry.duration);
        samplesBefore += entry.count;
        timeBefore += spanOf(entry);
    }
    return timeBefore;
}

QtAtomSampleTime::Span QtAtomSampleTime::getSpan(unsigned long startTime, unsigned long endTime) const {
    Span span;
    if (startTime > endTime) return span;
    unsigned long samplesBefore = 0, timeBefore = 0;
    bool firstFound = false;
    for (Entry const& entry : m_entries) {
        unsigned long end = timeBefore + spanOf(entry);
        if (entry.duration == 0) {
            // Nothing to divide by: the samples so far are the answer.
            span.endSample = samplesBefore;
            span.endTime = timeBefore;
            if (end >= endTime) break;
            samplesBefore += entry.count;
            continue;
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
        if (end >= endTime) break;
        samplesBefore += entry.count;
        timeBefore = end;
    }
    return span;
}

unsigned long QtAtomSampleTime::getTotalSamples() const {
    unsigned long total = 0;
    for (Entry const& entry : m_entries) total += entry.count;
    return total;
}

unsigned int QtAtomSampleTime::getTicksPerSample() const {
    long best = -1;
    unsigned int ticks = 1;
    for (Entry const& entry : m_entries) {
        if (entry.duration != 0 && static_cast<int>(entry.count) > best) {
            best = static_cast<int>(entry.count);
            ticks = entry.duration;
        }
    }
    return ticks;
}

// ---------------------------------------------------------------- recording

bool QtAtomSampleTime::fixTicksPerSample(unsigned int ticks) {
    if (m_entries.size() != 1 || ticks == 0) return false;
    Entry& entry = m_entries[0];
    // Kept as it stands: not the usual rounding of count x duration / ticks.
    entry.count = ((entry.duration + 1) * entry.count - 1) / ticks;
    entry.duration = ticks;
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
    if (m_entries.size() == needed) return;
    m_entries.assign(needed, Entry{static_cast<unsigned int>(kMaxCount), ticks});
    m_entries.back().count = static_cast<unsigned int>(samples - (needed - 1) * kMaxCount);
}

void QtAtomSampleTime::addSamples(unsigned int count, unsigned int ticks) {
    if (!m_entries.empty() && static_cast<unsigned long>(m_entries.back().count) + count <= kMaxCount) {
        m_entries.back().count += count;
        return;
    }
    // The count being added, not the total: a full one-entry table is left unchanged.
    setFixedRate(count, ticks);
}

void QtAtomSampleTime::appendSamples(unsigned int count, unsigned int ticks) {
    if (!m_entries.empty() && m_entries.back().duration == ticks &&
        static_cast<unsigned long>(m_entries.back().count) + count <= kMaxCount) {
        m_entries.back().count += count;
        return;
    }
    m_entries.push_back(Entry{count, ticks});
}

// ---------------------------------------------------------------- printout

void QtAtomSampleTime::show() const {
    std::string text = FormatStr("%s,{cnt,len}[%d]=", toString().get(), getNumEntries()).get();
    bool everyEntry = quicktimeDbg.on(QtDbgAllSizes);
    int indent = static_cast<int>(2 * numGeneration() + 2);
    unsigned int n = getNumEntries();
    for (unsigned int i = 0; i < n; ++i) {
        if (!everyEntry && n >= 6 && i == 3) {
            text += ",...";
            i = n - 1;
        }
        std::string separator = i % 8 ? "," : "";
        if (everyEntry && i % 8 == 0) separator = FormatStr("\n%*s", indent, "").get();
        text += FormatStr("%s{%u,%u}", separator.c_str(), m_entries[i].count, m_entries[i].duration).get();
    }
    text += "\n";
    infoMsg("%s", text.c_str());
}
