// QtAtomSampleChunk: the sample-to-chunk atom 'stsc', the run-length table of how many samples each
// chunk holds and which sample description they use. It answers in which chunk, and where in it, a
// sample lies (with a QtChunkSet as the cache of the previous answer, so that sequential lookups
// are cheap), and it grows chunk by chunk while a track is recorded. The table is small (one entry
// per change of layout) and held in memory, with zero-filled room reserved on disk.
//
// Slots: entries 0 .. n-1, then slot n, the implied end entry, which is not written to disk and
// marks where the last run ends (its first chunk is one past the last run's last chunk); slots
// beyond are zero. capacity = slots - 1. A table read from a file learns how many chunks its last
// run has from the track's time-to-sample table (discoverLastEntry) before it is first used.
//
// Threads and locks:
// - The owner thread decodes, encodes and records (addSamples, addCapacity). Reader threads call the
//   lookups (getChunkSet, getNumChunks, getNumChunkSamples, getChunkDesc, getEntry) meanwhile.
// - Recording rewrites only the last entry and the end entry, appends an entry (storing it before
//   the count that publishes it) and grows the slots (copy-on-grow, QtGrowingSlots). Every such
//   change is bracketed by m_changes, a sequence count that is odd while a change is under way; a
//   lookup runs on the slots without a lock and starts again when the count moved meanwhile, so it
//   answers from one consistent state of the table. The changes are a few stores per chunk.
// - The end entry of a decoded table is completed once (discoverLastEntry), by whichever thread
//   asks first, under m_discoverMutex; m_lastEntryDiscovered publishes it, so later lookups take no
//   lock. The recorder's first addSamples settles it under the same mutex before it changes the table.
// - A QtChunkSet belongs to its reader: a stale one (from before the recorder moved a run on) only
//   costs a search from the first entry.
#pragma once

#include <atomic>
#include <mutex>

#include "quicktime/tables/QtGrowingSlots.h"

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"
#include "quicktime/tables/QtChunkSet.h"
#include "quicktime/tables/QtChunkSize.h"
#include "quicktime/tables/QtSampleLocation.h"

class QtAtomSampleChunkOff;
class QtAtomSampleSize;

class QtAtomSampleChunk : public BaseQtAtom {
public:
    static constexpr QtAtomIdType kId = qtId("stsc");

    struct Entry {
        unsigned long firstSample = 0;     // samples in all chunks before this run
        unsigned int firstChunk = 0;       // 1-based, as on disk
        unsigned int samplesPerChunk = 0;
        unsigned int descIndex = 0;        // 1-based sample description
    };

    // A new table: no entries, room for 4.
    explicit QtAtomSampleChunk(BaseQtAtom const* parent);
    ~QtAtomSampleChunk() override;

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    // Header, version and flags, entry count: 16 bytes with the usual header.
    unsigned int getFixedSize() const override { return getHeaderSize() + 8; }
    unsigned long getVariableSize() const override { return 12ul * getCapacity(); }
    void show() const override;

    QtAtomSampleChunk* write() const { return static_cast<QtAtomSampleChunk*>(BaseQtAtom::write()); }

    unsigned int getNumEntries() const { return m_nEntries.load(std::memory_order_acquire); }
    // The entry count the file gave when the atom could not hold that many (the table was then
    // emptied), else 0: lets a reader say why a track shows no samples.
    unsigned int getDamagedCount() const { return m_damagedCount; }
    // Entry i; slot n is the implied end entry.
    Entry getEntry(unsigned int index) const;
    unsigned int getCapacity() const { return m_slots.size() - 1; }
    unsigned int getHeadroom() const { return getCapacity() - getNumEntries(); }
    QtChunkSize const& getChunkSize() const { return m_chunkSize; }
    unsigned int getChunkCounter() const { return m_chunkCounter; }

    // Looks a sample up; `set` holds the previous lookup on entry and the answer on return. True
    // when the sample lies in a listed run; otherwise the set describes the end entry.
    bool getChunkSet(unsigned long sample, QtChunkSet& set) const;
    // Records samples written by the recorder (see QtSampleLocation). False when the table is
    // full: call addCapacity whenever the headroom is 0.
    bool addSamples(QtSampleLocation& location);
    // Doubles the room (to 2n + 1 entries) when none is left.
    void addCapacity();
    // Works out how many chunks the last run covers, from the track's time-to-sample table.
    void discoverLastEntry() const;

    unsigned int getNumChunks() const;
    // The samples the first `chunks` chunks hold by the runs, the last run taken as far as needed:
    // what a chunk offset table of that many chunks lets a reader reach. A search over the runs.
    unsigned long getSamplesInChunks(unsigned int chunks) const;
    // Samples per chunk of a chunk (0-based); 0 past the last run and for an empty table.
    unsigned int getNumChunkSamples(unsigned int chunk) const;
    // The description of the run that holds a sample (the last run's past the end; 0 when empty).
    unsigned int getChunkDesc(unsigned long sample) const;
    // For constant-size samples: whether the runs of a description lie back to back in the file.
    bool contiguous(QtAtomSampleChunkOff const* stco, QtAtomSampleSize const* stsz, unsigned int desc) const;

private:
    void ensureLastEntry() const {
        if (!m_lastEntryDiscovered.load(std::memory_order_acquire)) discoverLastEntry();
    }
    // The body of discoverLastEntry, under m_discoverMutex.
    void discoverLocked() const;
    // Owner thread, before the first change: the end entry is settled from now on.
    void settleLastEntry();

    // Runs `read` (which reads the slots and the count) until no change of the recorder overlapped it.
    template <class Read>
    auto readStable(Read read) const {
        for (;;) {
            unsigned int before = m_changes.load(std::memory_order_acquire);
            if ((before & 1) == 0) {
                auto result = read();
                std::atomic_thread_fence(std::memory_order_acquire);
                if (m_changes.load(std::memory_order_relaxed) == before) return result;
            }
            pauseForChange();
        }
    }
    static void pauseForChange();
    // Owner thread: bracket every change of the slots or the count.
    void beginChange() const {
        m_changes.store(m_changes.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);
    }
    void endChange() const { m_changes.fetch_add(1, std::memory_order_release); }

    bool holdsSettled(QtChunkSet const& set, unsigned long sample, unsigned int n) const;
    bool searchRuns(unsigned long sample, QtChunkSet& set) const;
    bool searchFrom(long from, long to, long step, unsigned long sample, QtChunkSet& set) const;
    // Fills the set from run `index` (its entry and the one after it) when the run holds the sample.
    bool fillFromEntry(long index, Entry const& entry, Entry const& next, unsigned long sample, QtChunkSet& set) const;
    void fillFromEnd(QtChunkSet& set) const;
    QtChunkSet walkFromStart(unsigned long sample, QtChunkSet const& seed) const;
    QtAtomSampleChunk* self() const { return static_cast<QtAtomSampleChunk*>(nonConst()); }
    Entry slot(unsigned int index) const { return m_slots.get(index); }
    unsigned int chunksOf(unsigned int index) const { return slot(index + 1).firstChunk - slot(index).firstChunk; }

    QtVersionAndFlags m_versionAndFlags;
    std::atomic<unsigned int> m_nEntries{0};
    QtGrowingSlots<Entry> m_slots;
    mutable std::atomic<bool> m_lastEntryDiscovered{false};
    mutable std::mutex m_discoverMutex;
    mutable std::atomic<unsigned int> m_changes{0};
    QtChunkSize m_chunkSize{1, 1, 0};
    mutable unsigned int m_chunkCounter = 0;
    unsigned int m_damagedCount = 0;
};
