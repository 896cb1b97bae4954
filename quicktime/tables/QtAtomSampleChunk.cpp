#include "quicktime/tables/QtAtomSampleChunk.h"

#include <algorithm>
#include <string>
#include <thread>

#include "framework/FormatStr.h"
#include "quicktime/atoms/QtAtomHelpers.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleTime.h"
#include "quicktime/tables/QtTableText.h"

namespace {

constexpr unsigned int kEntryBytes = 12;
constexpr unsigned int kNewTableSlots = 5;

}  // namespace

QtAtomSampleChunk::QtAtomSampleChunk(BaseQtAtom const* parent)
    : BaseQtAtom(kId, parent, 16 + (kNewTableSlots - 1) * kEntryBytes), m_slots(kNewTableSlots) {}

QtAtomSampleChunk::~QtAtomSampleChunk() = default;

void QtAtomSampleChunk::pauseForChange() { std::this_thread::yield(); }

QtAtomSampleChunk::Entry QtAtomSampleChunk::getEntry(unsigned int index) const {
    return readStable([&] { return slot(index); });
}

// ---------------------------------------------------------------- decode and encode

bool QtAtomSampleChunk::decode(QtAtomBuffer& buffer) {
    unsigned int start = buffer.bufferOffset();
    bool ok = BaseQtAtom::decode(buffer);
    m_nEntries.store(0, std::memory_order_relaxed);
    m_damagedCount = 0;
    m_slots.reset(1);
    if (buffer.nOccupied() >= 8) {
        m_versionAndFlags.decode(buffer);
        unsigned int count = decodeUint32(buffer);
        unsigned long consumed = buffer.bufferOffset() - start;
        // The reader hands this atom over whole; a shorter buffer bounds the room all the same, so
        // that slots are never made for entries that are not there.
        unsigned long body = std::min<unsigned long>(getSize() > consumed ? getSize() - consumed : 0,
                                                     buffer.nOccupied());
        unsigned long room = body / kEntryBytes;
        // A count larger than the room leaves the table empty.
        if (count > room) m_damagedCount = count;
        if (count <= room) {
            m_slots.reset(static_cast<unsigned int>(room + 1));
            Entry before;
            for (unsigned int i = 0; i < count; ++i) {
                Entry entry;
                entry.firstChunk = decodeUint32(buffer);
                entry.samplesPerChunk = decodeUint32(buffer);
                unsigned int descAt = buffer.bufferOffset();
                entry.descIndex = decodeUint32(buffer);
                if (entry.descIndex == 0) infoMsg("Invalid STSC entry (desc = 0) found at %d\n", descAt);
                if (i > 0)
                    entry.firstSample = before.firstSample + (entry.firstChunk - before.firstChunk) * before.samplesPerChunk;
                m_slots.set(i, entry);
                before = entry;
            }
            if (count > 0) {
                // Until discoverLastEntry knows better, the last run is taken to be one chunk.
                Entry end;
                end.firstSample = before.firstSample + before.samplesPerChunk;
                end.firstChunk = before.firstChunk + 1;
                m_slots.set(count, end);
            }
            m_nEntries.store(count, std::memory_order_release);
        }
    }
    m_lastEntryDiscovered.store(false, std::memory_order_release);
    unsigned long used = buffer.bufferOffset() - start;
    if (getSize() > used) buffer.removeInput(getSize() - used);
    return ok;
}

bool QtAtomSampleChunk::encode(QtAtomBuffer& buffer) const {
    // The entries, then the reserved room as zeros: the capacity, not whatever the atom's size
    // says, so that the encoding is always getFixedSize() + getVariableSize(). A capacity grown
    // beyond the size is written only as far as the size goes.
    bool fits = QtAtomHelpers::fitsItsSize(*this, "stsc");
    unsigned long slots = QtAtomHelpers::entriesThatFit(*this, getCapacity(), kEntryBytes);
    unsigned int count = static_cast<unsigned int>(std::min<unsigned long>(getNumEntries(), slots));
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    BaseQtAtom::encode(buffer, count);
    for (unsigned int i = 0; i < count; ++i) {
        Entry entry = slot(i);
        BaseQtAtom::encode(buffer, entry.firstChunk);
        BaseQtAtom::encode(buffer, entry.samplesPerChunk);
        BaseQtAtom::encode(buffer, entry.descIndex);
    }
    buffer.append(static_cast<unsigned int>(slots - count) * kEntryBytes, true);
    return fits;
}

// ---------------------------------------------------------------- the last run

void QtAtomSampleChunk::discoverLastEntry() const {
    std::lock_guard<std::mutex> lock(m_discoverMutex);
    if (!m_lastEntryDiscovered.load(std::memory_order_relaxed)) discoverLocked();
}

void QtAtomSampleChunk::discoverLocked() const {
    auto const* stts = dynamic_cast<QtAtomSampleTime const*>(findSibling(QtAtomSampleTime::kId, 0));
    unsigned int n = getNumEntries();
    if (!stts || n == 0) return;
    Entry last = slot(n - 1);
    unsigned long before = last.firstSample;
    unsigned long total = stts->getTotalSamples();
    if (quicktimeLegacyDbg.on(QtLegacyOldStscLookup)) {
        unsigned long samples = 0;
        unsigned int chunks = 0;
        for (unsigned int i = 0; i + 1 < n; ++i) {
            samples += static_cast<unsigned long>(chunksOf(i)) * slot(i).samplesPerChunk;
            chunks += chunksOf(i);
        }
        if (samples != before || chunks != last.firstChunk - 1) {
            debugMsg("%s %s: old/new samples=%ld/%ld; chk=%d/%d\n", getMoviePath(), getAtomPath().get(),
                     static_cast<long>(samples), static_cast<long>(before), static_cast<int>(chunks),
                     static_cast<int>(last.firstChunk - 1));
            before = samples;
        }
    }
    if (before <= total) {
        unsigned int perChunk = last.samplesPerChunk ? last.samplesPerChunk : 1;
        unsigned long chunks = (total - before) / perChunk;
        if (chunks < 1) chunks = 1;
        Entry end = slot(n);
        end.firstChunk = last.firstChunk + static_cast<unsigned int>(chunks);
        end.descIndex = last.descIndex;
        beginChange();
        self()->m_slots.set(n, end);
        endChange();
    } else if (quicktimeDbg.on(QtDbgAtomErrors)) {
        debugMsg("%s %s: %lds stts vs %lds stsc\n", getMoviePath(), getAtomPath().get(), static_cast<long>(total),
                 static_cast<long>(before));
    }
    m_chunkCounter = last.firstChunk - 1;
    m_lastEntryDiscovered.store(true, std::memory_order_release);
}

void QtAtomSampleChunk::settleLastEntry() {
    if (m_lastEntryDiscovered.load(std::memory_order_acquire)) return;
    std::lock_guard<std::mutex> lock(m_discoverMutex);
    if (m_lastEntryDiscovered.load(std::memory_order_relaxed)) return;
    discoverLocked();
    // Without a time-to-sample table the end entry stays as decoded; recording goes on from it.
    m_lastEntryDiscovered.store(true, std::memory_order_release);
}

// ---------------------------------------------------------------- lookup

bool QtAtomSampleChunk::getChunkSet(unsigned long sample, QtChunkSet& set) const {
    if (set.isUnset()) set.init(m_chunkSize.getSamplesPerChunk());
    unsigned int n = getNumEntries();
    if (n == 0) return false;
    if (holdsSettled(set, sample, n)) return true;
    ensureLastEntry();
    QtChunkSet seed = set;
    bool found = false;
    set = readStable([&] {
        QtChunkSet attempt = seed;
        found = searchRuns(sample, attempt);
        return attempt;
    });
    if (quicktimeLegacyDbg.on(QtLegacyOldStscLookup)) {
        QtChunkSet old = readStable([&] { return walkFromStart(sample, seed); });
        if (old != set)
            debugMsg("%s %s: old/new chunkSet={%s}/{%s}\n", getMoviePath(), getAtomPath().get(), old.toString().get(),
                     set.toString().get());
    }
    return found;
}

// The previous answer stands when it holds the sample and came from a run that recording no longer
// changes: the last run is rewritten and the one before it may take over the last run's chunk, but
// every run before those two stays as it is. So most lookups in order read no entry at all.
bool QtAtomSampleChunk::holdsSettled(QtChunkSet const& set, unsigned long sample, unsigned int n) const {
    if (set.m_entryIndex == QtChunkSet::kNone || set.m_entryIndex + 2ul >= n || sample < set.m_firstSample ||
        quicktimeLegacyDbg.on(QtLegacyOldStscLookup))
        return false;
    return sample - set.m_firstSample < set.m_numSamples;  // as the run's own test, in 32 bits
}

// Searches from the run of the previous answer: forward for a later sample, backward for an
// earlier one, from the start when the set holds no run. A set from before the recorder moved its
// last run on may miss; the search then goes over every run from the first.
bool QtAtomSampleChunk::searchRuns(unsigned long sample, QtChunkSet& set) const {
    long n = getNumEntries();
    bool valid = set.m_entryIndex != QtChunkSet::kNone && set.m_firstSample != QtChunkSet::kNone &&
                 set.m_samplesPerChunk != QtChunkSet::kNone && set.m_numChunks != QtChunkSet::kNone;
    if (valid) {
        unsigned long end = set.m_firstSample + static_cast<unsigned long>(set.m_numChunks) * set.m_samplesPerChunk;
        bool found;
        if (sample >= end)
            found = searchFrom(static_cast<long>(set.m_entryIndex) + 1, n, 1, sample, set);
        else if (sample >= set.m_firstSample)
            found = searchFrom(set.m_entryIndex, n, 1, sample, set);
        else
            found = searchFrom(static_cast<long>(set.m_entryIndex) - 1, -1, -1, sample, set);
        if (found) return true;
    }
    if (searchFrom(0, n, 1, sample, set)) return true;
    fillFromEnd(set);
    return false;
}

// Each entry is read once: going forward an entry's successor becomes the next entry, going back
// its predecessor's successor.
bool QtAtomSampleChunk::searchFrom(long from, long to, long step, unsigned long sample, QtChunkSet& set) const {
    long n = getNumEntries();
    if (from < 0 || from >= n || from == to) return false;
    QtGrowingSlots<Entry>::View slots = m_slots.view();
    Entry entry = slots.get(static_cast<unsigned int>(from));
    Entry next = slots.get(static_cast<unsigned int>(from) + 1);
    for (long i = from;;) {
        if (fillFromEntry(i, entry, next, sample, set)) return true;
        i += step;
        if (i == to || i < 0 || i >= n) return false;
        if (step > 0) {
            entry = next;
            next = slots.get(static_cast<unsigned int>(i) + 1);
        } else {
            next = entry;
            entry = slots.get(static_cast<unsigned int>(i));
        }
    }
}

bool QtAtomSampleChunk::fillFromEntry(long index, Entry const& entry, Entry const& next, unsigned long sample,
                                      QtChunkSet& set) const {
    unsigned int chunks = next.firstChunk - entry.firstChunk;
    unsigned int samples = entry.samplesPerChunk * chunks;
    if (sample < entry.firstSample || sample >= entry.firstSample + samples) return false;
    set.m_entryIndex = static_cast<unsigned int>(index);
    set.m_firstSample = entry.firstSample;
    set.m_firstChunk = entry.firstChunk - 1;
    set.m_numSamples = samples;
    set.m_samplesPerChunk = entry.samplesPerChunk;
    set.m_numChunks = chunks;
    set.m_descIndex = entry.descIndex;
    return true;
}

void QtAtomSampleChunk::fillFromEnd(QtChunkSet& set) const {
    Entry end = slot(getNumEntries());
    set.m_firstChunk = end.firstChunk;  // deliberately not made 0-based
    set.m_numSamples = end.samplesPerChunk;
    set.m_firstSample = end.firstSample;
    set.m_samplesPerChunk = end.samplesPerChunk;
    set.m_numChunks = 1;
    set.m_descIndex = end.descIndex;
    set.m_entryIndex = QtChunkSet::kNone;
}

// The older lookup, a plain walk from the first entry, kept to cross-check the new one.
QtChunkSet QtAtomSampleChunk::walkFromStart(unsigned long sample, QtChunkSet const& seed) const {
    QtChunkSet set = seed;
    unsigned int n = getNumEntries();
    unsigned long samples = 0;
    unsigned int chunks = 0;
    for (unsigned int i = 0; i < n; ++i) {
        Entry entry = slot(i);
        unsigned int run = entry.samplesPerChunk * chunksOf(i);
        if (sample < samples + run) {
            set.m_firstChunk = entry.firstChunk - 1;
            set.m_numChunks = chunksOf(i);
            set.m_firstSample = samples;
            set.m_samplesPerChunk = entry.samplesPerChunk;
            set.m_numSamples = run;
            set.m_descIndex = entry.descIndex;
            set.m_entryIndex = i;
            return set;
        }
        samples += run;
        chunks += chunksOf(i);
    }
    Entry last = slot(n ? n - 1 : 0);
    set.m_firstChunk = chunks;
    set.m_numChunks = 1;
    set.m_firstSample = samples;
    set.m_samplesPerChunk = last.samplesPerChunk;
    set.m_numSamples = last.samplesPerChunk;
    set.m_descIndex = last.descIndex;
    set.m_entryIndex = QtChunkSet::kNone;
    return set;
}

// ---------------------------------------------------------------- recording

void QtAtomSampleChunk::addCapacity() {
    if (getHeadroom() != 0) return;
    beginChange();
    m_slots.resize((getNumEntries() + 1) * 2);
    endChange();
}

bool QtAtomSampleChunk::addSamples(QtSampleLocation& location) {
    settleLastEntry();
    unsigned int n = getNumEntries();
    if (n == 0) {
        beginChange();
        if (m_slots.size() < 2) {
            // A table read without room: the first run and its end need two slots.
            m_slots.resize(2);
            addMovieResizeNeeded(QtResizeReq::Stsc);
        }
        m_slots.set(0, Entry{0, 1, location.numSamples, location.descIndex});
        m_slots.set(1, Entry{location.numSamples, 2, 0, location.descIndex});
        m_nEntries.store(1, std::memory_order_release);
        endChange();
        ++m_chunkCounter;
        return true;
    }
    if (!logIfFalse(n <= getCapacity(), "addSamples", QT_UTIL_FILE, 7682)) return false;
    Entry last = slot(n - 1);
    Entry end = slot(n);
    if (!location.newChunk && last.descIndex == location.descIndex) {
        last.samplesPerChunk += location.numSamples;
        end.firstSample += location.numSamples;
        beginChange();
        m_slots.set(n - 1, last);
        m_slots.set(n, end);
        endChange();
        return true;
    }
    location.newChunk = 1;

    std::string reason;
    Entry before = n > 1 ? slot(n - 2) : Entry();
    if (n == 1) {
        reason = ": 2nd entry";
    } else if (last.descIndex != location.descIndex) {
        reason = FormatStr(": desc change: %d-->%d", last.descIndex, location.descIndex).get();
    } else if (before.descIndex != last.descIndex) {
        reason = FormatStr(": descriptor change: [%d]=%d --> [%d]=%d", n - 2, before.descIndex, n - 1,
                           last.descIndex).get();
    } else if (before.samplesPerChunk != last.samplesPerChunk) {
        reason = FormatStr(": nSamples change: [%d]=%d --> [%d]=%d", n - 2, before.samplesPerChunk, n - 1,
                           last.samplesPerChunk).get();
    }

    if (reason.empty()) {
        // The last entry repeats the run before it, which takes over its chunk; the last entry
        // moves on to describe the new chunk alone.
        last = Entry{last.firstSample + last.samplesPerChunk, last.firstChunk + 1, location.numSamples,
                     location.descIndex};
        end.firstChunk = last.firstChunk + 1;
        end.firstSample += location.numSamples;
        beginChange();
        m_slots.set(n - 1, last);
        m_slots.set(n, end);
        endChange();
    } else {
        if (quicktimeDbg.on(QtDbgChunkAllocator))
            debugMsg("%s %s: add entry%s\n", getMoviePath(), getAtomPath().get(), reason.c_str());
        if (!logIfFalse(n + 1 <= m_slots.size(), "addSamples", QT_UTIL_FILE, 7727)) return false;
        beginChange();
        if (n + 2 > m_slots.size()) {
            // The new end entry needs a slot the room did not leave: one more slot changes the atom's
            // size, so the movie is told.
            m_slots.resize(n + 2);
            addMovieResizeNeeded(QtResizeReq::Stsc);
        }
        Entry opened{end.firstSample, end.firstChunk, location.numSamples, location.descIndex};
        m_slots.set(n, opened);
        m_slots.set(n + 1, Entry{opened.firstSample + location.numSamples, opened.firstChunk + 1, 0, location.descIndex});
        m_nEntries.store(n + 1, std::memory_order_release);
        m_chunkSize.lowerSamplesPerChunk(last.samplesPerChunk);
        endChange();
    }
    ++m_chunkCounter;
    return true;
}

// ---------------------------------------------------------------- queries

unsigned int QtAtomSampleChunk::getNumChunks() const {
    ensureLastEntry();
    return readStable([&] {
        unsigned int n = getNumEntries();
        return n ? slot(n).firstChunk - slot(0).firstChunk : 0;
    });
}

unsigned long QtAtomSampleChunk::getSamplesInChunks(unsigned int chunks) const {
    return readStable([&] {
        unsigned int n = getNumEntries();
        QtGrowingSlots<Entry>::View slots = m_slots.view();
        if (n == 0 || slots.get(0).firstChunk > chunks) return 0ul;
        // The last run that starts before chunk `chunks` (0-based): slot `low` starts before it,
        // no slot from `high` on does.
        unsigned int low = 0, high = n;
        while (high - low > 1) {
            unsigned int mid = low + (high - low) / 2;
            if (slots.get(mid).firstChunk <= chunks)
                low = mid;
            else
                high = mid;
        }
        Entry run = slots.get(low);
        unsigned long span = (static_cast<unsigned long>(chunks) + 1 - run.firstChunk) * run.samplesPerChunk;
        return run.firstSample > ~0ul - span ? ~0ul : run.firstSample + span;
    });
}

unsigned int QtAtomSampleChunk::getNumChunkSamples(unsigned int chunk) const {
    ensureLastEntry();
    return readStable([&] {
        unsigned int n = getNumEntries();
        if (n == 0) return 0u;
        unsigned int samples = 0;
        for (unsigned int i = 0; i <= n; ++i) {
            Entry entry = slot(i);
            if (entry.firstChunk > chunk + 1ul) break;
            samples = entry.samplesPerChunk;
        }
        return samples;
    });
}

unsigned int QtAtomSampleChunk::getChunkDesc(unsigned long sample) const {
    ensureLastEntry();
    return readStable([&] {
        unsigned int n = getNumEntries();
        if (n == 0) return 0u;
        for (unsigned int i = 0; i < n; ++i) {
            Entry entry = slot(i);
            if (sample >= entry.firstSample && sample < entry.firstSample + entry.samplesPerChunk * chunksOf(i))
                return entry.descIndex;
        }
        return slot(n - 1).descIndex;
    });
}

bool QtAtomSampleChunk::contiguous(QtAtomSampleChunkOff const* stco, QtAtomSampleSize const* stsz,
                                   unsigned int desc) const {
    if (!stco || !stsz || !stsz->isFixed()) return false;
    ensureLastEntry();
    return readStable([&] {
        unsigned int n = getNumEntries();
        bool started = false;
        unsigned long low = 0, high = 0;
        for (unsigned int i = 0; i < n; ++i) {
            Entry entry = slot(i);
            if (entry.descIndex != desc) continue;
            unsigned long start = stco->getChunkOffset(entry.firstChunk - 1, nullptr);
            unsigned int length = entry.samplesPerChunk * chunksOf(i) * stsz->getConstantSampleSize();
            if (started && (start < low || start > high)) return false;
            if (!started) low = start;
            high = started ? std::max(high, start + length) : start + length;
            started = true;
        }
        return true;
    });
}

// ---------------------------------------------------------------- printout

void QtAtomSampleChunk::show() const {
    std::string text = FormatStr("%s,cap=%d{inSmpl,1stChunk,nSmpl,stsd#}[%d]=%s\n", toString().get(), getCapacity(),
                                 getNumEntries(), getCapacity() == 0 ? "{}" : "").get();
    bool everyEntry = quicktimeDbg.on(QtDbgAllSizes);
    int indent = static_cast<int>(2 * numGeneration() + 2);
    text += FormatStr("%*s", indent, "").get();
    unsigned int n = getNumEntries();
    // The entries, then the implied one that closes the last run; the short form always sets that
    // one apart with a comma.
    auto entry = [this, n, everyEntry](unsigned int i) {
        Entry run = getEntry(i);
        char const* lead = i < n ? "" : !everyEntry && n % 3 == 0 && n > 0 ? ",implied:" : "implied:";
        return std::string(FormatStr("%s{%ld,%d,%d,%d}", lead, static_cast<long>(run.firstSample), run.firstChunk,
                                     run.samplesPerChunk, run.descIndex).get());
    };
    text += qtTableEntries(n + 1, everyEntry, QtListing{3, 6, true}, entry, [indent](unsigned int i) {
        return std::string(i ? FormatStr(",\n%*s", indent, "").get() : "");
    });
    text += "\n";
    infoMsg("%s", text.c_str());
}
