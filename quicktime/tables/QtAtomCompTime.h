// QtAtomCompTime: the composition offset table ('ctts'), runs of samples that share one offset
// between decode and display time. A long-GOP recording writes one run per change of offset, so the
// runs live in a disk-backed array. The class is, in three layers:
// - the table as stored: entries, decode and encode, capacity planning, appends and repair of
//   damaged runs, the cursor that walks the runs sample by sample (DiskIterator) and the sparse
//   anchors, one per 256 samples, from which a reader starts a walk in the middle of a long table
//   (Sparse, SparseArray, SparseSeed);
// - reading: the frame type (I, P or B), the distance to the reference frame and the display offset
//   of any sample (getSample), answered from frame sets that cache one unit of 256 samples each and
//   are shared by readers (FrameSet, FrameSetCache); units are filled from the nearest anchor with the
//   entries read in bulk. An older per-table path (rebuildAbs) is kept behind a debug flag;
// - recording: appendSample turns samples in decode order into runs, either from the encoder's
//   display offsets or derived from the order of I/P and B frames through a small reorder cache
//   (CTTSCache), and keeps the sibling 'cslg' up to date.
//
// Threads and locks:
// - The owner thread decodes, encodes, moves, sizes and records (addDiskEntry, addCTTSEntry,
//   appendSample, the CTTSCache). An appended entry is stored before the entry count is published.
// - Readers call getSample, getFrameSet and getKeySet with their own agent. The sparse array is filled
//   by every walk, readers and recorder alike; SparseArray::m_mutex guards its slots (copies in
//   memory only, never file I/O). FrameSetCache::m_mutex guards the cache's list and the unit and
//   agent of the sets on it; sets are reference counted atomically, filled outside the lock and
//   published by their filled flag, and their slots are atomic so that two readers filling the
//   same new set, or the recorder updating it, never race.
// - The sibling pointers and the ticks per sample are cached on first use without a lock (every
//   thread caches the same value); the first bad entry is lowered atomically. The first appendSample
//   settles them on the owner thread, missing siblings included, so that readers of a recording
//   never walk the siblings while the recorder changes them. The seed kept with the
//   file is taken back once, by whichever thread looks up a sample first.
// - The old path's absolute array is guarded by its own mutex.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "framework/AtomicCounter.h"
#include "framework/AutoReleasePtr.h"
#include "framework/BridgeAnchor.h"
#include "framework/DLinkedList.h"
#include "framework/SorvanPosix.h"
#include "framework/VirtualArray.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"
#include "quicktime/tables/QtAtomSampleSync.h"
#include "quicktime/tables/QtFrameSet.h"
#include "quicktime/tables/SampleInfo.h"

class QtAtomCompShift;
class QtAtomSampleDepend;
class QtAtomSampleTime;

class QtAtomCompTime : public BaseQtAtom {
  public:
    static constexpr QtAtomIdType kCttsId = qtId("ctts");
    // Bytes from the start of the atom to entry 0: header, version/flags, entry count.
    static constexpr unsigned int kHeadSize = 16;
    static constexpr unsigned int kEntrySize = 8;
    static constexpr unsigned int kInMemoryEntries = 16;
    // Samples per slot of the sparse array, and per slot of a seed.
    static constexpr unsigned int kSparseInterval = 256;
    static constexpr unsigned int kSeedInterval = 16384;

    // One run: `count` consecutive samples, each displayed `offset` media time units after (or, when
    // negative, before) its decode time. A count of 0 never occurs in a valid table.
    struct DiskEntry {
        DiskEntry() = default;
        DiskEntry(unsigned int countIn, int offsetIn) : count(countIn), offset(offsetIn) {}
        void set(unsigned int countIn, int offsetIn) {
            count = countIn;
            offset = offsetIn;
        }
        bool operator==(DiskEntry const& other) const = default;

        unsigned int count = 0;
        int offset = 0;
    };

    // An anchor into the table: entry diskIdx, 1-based position count inside its run, the sample
    // number at that position, and the reference sample from which display order is counted.
    struct Sparse {
        Sparse() = default;
        Sparse(unsigned int diskIdxIn, unsigned int countIn, unsigned int sampleIn, unsigned int anchorIn)
            : diskIdx(diskIdxIn), count(countIn), sample(sampleIn), anchor(anchorIn) {}
        bool valid() const { return count != 0; }
        void invalidate() { count = 0; }
        bool operator==(Sparse const& other) const = default;
        // "{d,c,s,a}"; the first text made in the process says what the four numbers are.
        AutoPtr<char> toString() const;

        unsigned int diskIdx = 0;
        unsigned int count = 0;
        unsigned int sample = 0;
        unsigned int anchor = 0;
    };

    // What a sample is: its coding type, the distance in samples to the frame it depends on, and
    // its offset as stored in the table (media time units, without the 'cslg' shift).
    struct FrameType {
        FrameType() = default;
        FrameType(uint32_t typeIn, uint32_t dependIn, int32_t offsetIn = 0)
            : type(typeIn), depend(dependIn), offset(offsetIn) {}
        bool operator==(FrameType const& other) const = default;

        uint32_t type = SampleCodingUnknown;
        uint32_t depend = 0;
        int32_t offset = 0;
    };

    class DiskIterator;

    // One anchor per unit of 256 samples (slot = sample >> 8), filled by the walks over the table.
    // Slots never reached are invalid. All access is under the array's own mutex.
    class SparseArray {
      public:
        unsigned int size() const;
        // The slot's anchor (invalid past the end).
        Sparse get(unsigned int slot) const;
        // Stores an anchor, growing the array with invalid slots as needed.
        void set(unsigned int slot, Sparse const& sparse);
        // Grows to at least n slots (never shrinks).
        void grow(unsigned int n);
        // Cuts the array to n slots.
        void truncate(unsigned int n);
        // Stores the iterator's anchor in the slot of its unit.
        void update(DiskIterator const& iterator);
        // Stores anchors found by a walk (slot and anchor); returns how many replaced a different
        // valid one.
        unsigned int store(std::vector<std::pair<unsigned int, Sparse>> const& found);
        // The nearest valid slot at or below `slot`, or -1; its anchor in `out`.
        long findValid(unsigned int slot, Sparse& out) const;

      private:
        mutable std::mutex m_mutex;
        std::vector<Sparse> m_slots;  // guarded by m_mutex
    };

    // A compact copy of the sparse anchors, one per 16384 samples, for a caller to keep with the
    // file and give back when it opens the file again.
    struct SparseSeed {
        SparseSeed() = default;
        SparseSeed(SparseSeed const& other);
        SparseSeed& operator=(SparseSeed const& other);
        // Makes room for n slots (dropping the old ones) only when n exceeds what is allocated;
        // then n slots are in use as the allocated count.
        void setSize(unsigned int n);
        bool operator==(SparseSeed const& other) const;

        uint16_t nEntries = 0;  // slots allocated
        uint16_t used = 0;      // slots filled
        uint32_t interval = 0;  // samples between two slots
        std::unique_ptr<Sparse[]> slots;

      private:
        unsigned int m_allocated = 0;
    };

    // A cursor over the runs, one sample at a time. It reads the entries through its agent and adds
    // its composition shift to every offset it interprets.
    class DiskIterator {
      public:
        DiskIterator(VirtualArray<DiskEntry> const& array, unsigned int shift, FileIoClientRec* agent);

        // Stands on the anchor's entry, position and sample.
        void seek(Sparse const& sparse);
        // One sample on; false at the end of the table (or at a damaged run).
        bool operator++(int);

        unsigned int getSample() const { return m_sample; }
        unsigned int getDiskIdx() const { return m_diskIdx; }
        unsigned int getPosition() const { return m_position; }
        unsigned int getShift() const { return m_shift; }
        void setShift(unsigned int shift) { m_shift = shift; }
        // The run the cursor stands in (a zero entry past the table).
        DiskEntry getEntry() const;
        // The stored offset of the current sample, without the shift.
        int getOffset() const { return getEntry().offset; }

        unsigned int getSparseIdx() const { return m_sample >> 8; }
        // The cursor stands on the first sample of a unit.
        bool onSparse() const { return (m_sample & 0xFF) == 0; }
        bool sparseNeedsUpdate() const { return onSparse() || m_sparse.valid(); }
        // How many samples back the reference of the current sample lies: the samples over which
        // the shifted offset stays 0, counted back from the cursor (1 for consecutive references).
        // The count is kept as the cursor moves, so asking costs no reads however long the run.
        unsigned int getDependOff() const;
        unsigned int getAnchor() const { return m_sample - std::min(m_sample, getDependOff()); }
        Sparse getSparse() const;
        // The current sample's type, distance to its reference and stored offset; the key set tells
        // I from P frames. An unreadable place reads as an I frame that depends on the one before.
        FrameType getFrameType(AutoReleasePtr<QtAtomSampleSync::KeySet> const& keySet) const;

        bool zeroShifted(DiskEntry const& entry) const {
            return static_cast<unsigned int>(entry.offset) + m_shift == 0;
        }

      private:
        // Leaves the current sample (in `current`) for the next one.
        void stepOver(DiskEntry const& current);

        VirtualArray<DiskEntry> const& m_array;
        FileIoClientRec* m_agent;
        unsigned int m_diskIdx = 0;
        unsigned int m_position = 1;
        unsigned int m_sample = 0;
        unsigned int m_shift = 0;
        Sparse m_sparse;
        // Samples just before the cursor whose shifted offset is 0, without a break.
        unsigned int m_zerosBefore = 0;
    };

    // The answer for one sample (a lookup's, or the recorder's record of a sample it stored): the
    // sample, the reference sample it depends on (its anchor), its coding type and its display offset
    // in frames. The reserved field is 1 only for a frame the dependency table calls independent
    // but not a key frame.
    struct Sample {
        Sample(uint32_t sampleIn, uint32_t distance, uint32_t typeIn, int32_t offsetIn = 0)
            : sample(sampleIn), anchor(sampleIn - distance), type(typeIn), offset(offsetIn) {}
        explicit Sample(uint32_t n) : sample(n), anchor(n), type(SampleCodingI) {}
        bool operator==(Sample const& other) const = default;
        // "p=I12,a=10,d=+2"
        AutoPtr<char> toString() const;

        uint32_t sample;
        uint32_t anchor;
        uint32_t type;
        uint32_t reserved = 0;
        int32_t offset = 0;
    };

    class FrameSetCache;

    // The frame types of one unit (256 samples), shared by the readers that ask for the unit. Slots
    // are filled in order from the unit's first sample; size is one past the last slot filled, and a
    // sample beyond it reads as an I frame. The set holds its unit's key set.
    class FrameSet : public QtFrameSet {
      public:
        FrameSet(QtFrameSet::Unit unit, FileIoClientRec* agent);
        FrameSet(FrameSet const&) = delete;
        FrameSet& operator=(FrameSet const&) = delete;

        unsigned int size() const { return m_size.load(std::memory_order_acquire); }
        unsigned long getOutFrame() const { return getInFrame() + size(); }
        bool holds(unsigned long sample) const { return sample >= getInFrame() && sample < getOutFrame(); }
        FileIoClientRec* getAgent() const { return m_agent.load(std::memory_order_relaxed); }
        // Filled from the table (published after its slots); until then readers fill it themselves.
        bool isFilled() const { return m_filled.load(std::memory_order_acquire); }
        void setFilled() { m_filled.store(true, std::memory_order_release); }

        // A new unit and agent, with no slots, no key set and not filled.
        void reset(QtFrameSet::Unit unit, FileIoClientRec* agent);
        // As reset, and the count becomes 2: one reference for the cache's list, one for the caller.
        void reinit(QtFrameSet::Unit unit, FileIoClientRec* agent);
        void preserve() { m_refCount.increment(); }
        void release();
        int32_t getRefCount() const { return m_refCount.value(); }
        // Holds the unit's key set (the first one given is kept).
        void set(AutoReleasePtr<QtAtomSampleSync::KeySet> const& keySet);
        QtAtomSampleSync::KeySet* getKeySet() const { return m_keySet.load(std::memory_order_acquire); }

        // Stores the iterator's sample when it lies in the unit and a key set is held.
        void update(DiskIterator const& iterator);
        // Stores one slot (sample - in-frame) and grows the size to include it.
        void setType(unsigned int slot, FrameType const& type);
        // Changes the stored offset of a sample the set holds (the recorder's provisional tail).
        void setOffset(unsigned long sample, int32_t offset);
        // The sample's slot, or an I frame depending on the one before when the set does not hold it.
        FrameType getType(unsigned long sample) const;

        AutoPtr<char> toString() const;
        // Prints the unit condensed into GOP patterns, and its key set.
        void dumpSet() const;

      private:
        friend class FrameSetCache;
        ~FrameSet();

        struct Slot {
            std::atomic<uint32_t> type{0};
            std::atomic<uint32_t> depend{0};
            std::atomic<int32_t> offset{0};
        };

        Slot m_slots[QtFrameSet::kUnitFrames];
        std::atomic<unsigned int> m_size{0};
        std::atomic<bool> m_filled{false};
        // Null for the recorder; changed only under the cache's lock.
        std::atomic<FileIoClientRec*> m_agent;
        DLinkNode<FrameSet> m_node;
        AtomicCounter m_refCount{1};
        // One reference held while set; released by reset and the destructor.
        std::atomic<QtAtomSampleSync::KeySet*> m_keySet{nullptr};
    };

    // The frame sets in use, shared by unit between readers, at most one per agent (its most recent
    // unit). The list holds one reference on every set on it.
    class FrameSetCache {
      public:
        FrameSetCache();
        ~FrameSetCache();
        FrameSetCache(FrameSetCache const&) = delete;
        FrameSetCache& operator=(FrameSetCache const&) = delete;

        // The set of a unit, held for the caller: the cached one whoever built it, else the agent's
        // own set recycled (when no reader holds it any more), else a new one.
        AutoReleasePtr<FrameSet> get(QtFrameSet::Unit unit, FileIoClientRec* agent);
        // The cached set of a unit, if any, without making one.
        AutoReleasePtr<FrameSet> find(QtFrameSet::Unit unit);
        // Takes every set of an agent off the list (the agent closes the table).
        void releaseAgent(FileIoClientRec* agent);
        size_t count() const;

      private:
        FileIoClientRec* orphanAgent() const;
        void retire(FrameSet& set);  // m_mutex held

        DLinkedList<FrameSet> m_list;  // guarded by m_mutex
        mutable SorvanPosix::JMutex m_mutex;
    };

    // --- the older path, kept for comparison (debug flag "old ctts lookup") ---

    // One sample of the absolute array: display offset in frames, distance to its reference, type.
    struct Absolute {
        int8_t offset = 0;
        uint8_t depend = 0;
        uint16_t type = SampleCodingI;
    };

    // The samples of one unit as the old path builds them, from its base sample on.
    class AbsoluteAry {
      public:
        bool contains(unsigned long sample) const {
            return sample >= base && sample < static_cast<unsigned long>(base) + slots.size();
        }
        bool canHold(unsigned long sample) const {
            return sample >= base && sample < static_cast<unsigned long>(base) + QtFrameSet::kUnitFrames &&
                   sample >= static_cast<unsigned long>(base) + slots.size();
        }

        std::vector<Absolute> slots;
        unsigned int base = 0xFFFFFFFFu;
        std::mutex mutex;  // guards the array while the old path builds or reads it
    };

    // The old path's walk over the runs from an anchor: it stands one sample before the anchor's
    // sample, and each step visits the next sample of the current entry.
    class SparseIterator {
      public:
        SparseIterator(Sparse const& sparse, unsigned int bound);
        // One sample on in `entry` (the entry at diskIdx); false when the entry is used up, after
        // which the caller reads the next one.
        bool step(DiskEntry const& entry);
        bool onSparseBoundary() const { return steps == QtFrameSet::kUnitFrames + 1; }
        bool outOfBounds(bool report) const;

        unsigned int diskIdx;
        unsigned int position;
        unsigned int sample;
        unsigned int prevAnchor;
        unsigned int anchor;
        unsigned int bound;
        unsigned int steps = 0;
    };

    // --- recording ---

    // The unfinished tail of the table while a stream is recorded in decode order: the reference
    // frame (the latest I or P) is displayed after the B frames that follow it, so its offset is
    // only known when the next I or P arrives. The pending runs are rewritten in place from the
    // write index until then, so the table on disk always shows the provisional tail.
    //
    //   state 0 (empty) --I/P--> 1 (reference held) --B--> 2 (reference and B frames)
    //   state 2 --I/P--> flush (runs fixed, the new frame becomes the reference) --> 1
    //   state 1 --I/P--> 1 (the old reference joins the prior run)
    class CTTSCache {
      public:
        explicit CTTSCache(QtAtomCompTime const& owner) : m_owner(owner) {}

        // One sample of `type` with `offset` frames of `ticks` each; false (nothing kept) when a
        // flush is pending, for a B frame with no reference before it, or when the table is full.
        bool appendSample(SampleCodingType type, int offset, unsigned int ticks, QtAtomCompShift const* cslg);
        // Fixes a completed group: writes it, hands out the reference's final offset and makes the
        // pending I or P the new reference. False when nothing is pending or the write fails.
        bool flush(int& shiftOut);
        // Writes the pending runs from the write index on.
        bool writeToCTTS();
        bool needsFlush() const { return m_next.count != 0; }

        unsigned int getState() const { return m_state; }
        unsigned int getWriteIndex() const { return m_writeIndex; }
        DiskEntry const& getReference() const { return m_reference; }

      private:
        DiskEntry m_prior;
        DiskEntry m_reference;
        DiskEntry m_bframes;
        DiskEntry m_next;
        unsigned int m_state = 0;
        QtAtomCompTime const& m_owner;
        unsigned int m_writeIndex = 0;
    };

    explicit QtAtomCompTime(BaseQtAtom const* parent);
    ~QtAtomCompTime() override;

    // Byte-swaps both words of every entry; the same in both directions.
    static unsigned int ioPrep(DiskEntry const* source, DiskEntry* destination, unsigned int count,
                               int direction);

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    // True while the runs live in the file: writers take them from there.
    bool hasUntouchedData() const override { return hasVirtualTable(); }
    bool needsAllData() const override {
        return getSize() <= getFixedSize() + kInMemoryEntries * kEntrySize;
    }
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + 8; }
    unsigned long getVariableSize() const override;
    bool hasVirtualTable() const override { return m_array.isVirtual(); }
    void flushVirtualTable() const override;
    // Gives up the agent's frame sets, then its pages.
    void closeVirtualTable(FileIoClientRec* agent) const override {
        m_frameSets.releaseAgent(agent);
        m_array.close(agent);
    }
    unsigned int getEncodeSize() const override;
    void show() const override;
    void setSizeAndOffset(QtTreeSize const& size) const override;

    QtAtomCompTime* write() const { return static_cast<QtAtomCompTime*>(BaseQtAtom::write()); }

    unsigned int getNumEntries() const { return m_nEntries.load(std::memory_order_acquire); }
    unsigned int getHeadroom() const;
    DiskEntry getEntry(unsigned int index, FileIoClientRec* agent) const {
        return m_array.elementAt(index, agent);
    }
    VirtualArray<DiskEntry> const& getArray() const { return m_array; }
    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }

    // --- recording (owner thread) ---
    // Reserves entries for a recording of nSamples samples, planned from the entries seen so far.
    void setCapacity(unsigned long nSamples) const;
    // Stores an entry at index; index getNumEntries() appends (two slots are always kept free, so an
    // append into the last two asks the movie to grow instead and returns false).
    bool addDiskEntry(DiskEntry& entry, unsigned int index) const;
    // As addDiskEntry, except that the first entry of an empty table always goes to index 0.
    bool addCTTSEntry(DiskEntry& entry, unsigned int index) const;
    // Reports a run with count 0 (once per table, and again only for an earlier one) and repairs
    // the caller's copy to one sample with offset 0. Always false.
    bool badDiskEntry(unsigned int index, DiskEntry& entry) const;
    // The shift of the atom's own cursor (the recorder's), added to every offset it reads.
    void setCompShift(unsigned int shift) const { m_diskIterator.setShift(shift); }
    DiskIterator const& getDiskIterator() const { return m_diskIterator; }
    // The recorder's bookkeeping: the last sample recorded, from which capacity is planned.
    unsigned int getLastRecordedSample() const { return m_lastRecordedSample; }
    // The table is being extended by appendSample.
    bool isRecording() const { return m_recording.load(std::memory_order_acquire); }
    // While recording, the samples from the first whose offsets are final and stored: in derive
    // mode those before the latest I or P frame (whose display offset the B frames after it still
    // move), with the encoder's offsets every sample recorded. Published after the entries, for
    // readers on other threads.
    unsigned long getSettledSamples() const { return m_settledSamples.load(std::memory_order_acquire); }
    void setLastRecordedSample(unsigned int sample) const { m_lastRecordedSample = sample; }
    unsigned int getFirstBadEntry() const { return m_firstBadEntry.load(std::memory_order_relaxed); }

    // --- sparse anchors ---
    SparseArray& getSparseArray() const { return m_sparse; }
    // A snapshot of every 64th anchor, sized for nSamples samples (0: keep the current size).
    SparseSeed const& getSeed(unsigned int nSamples) const;
    // Takes anchors back from a snapshot.
    void setSeed(SparseSeed const& seed) const;

    // --- reading frame types and display offsets (reader threads, each with its own agent) ---
    // The sample's type, reference and display offset in frames.
    Sample getSample(unsigned long sample, FileIoClientRec* agent) const;
    // The frame set of the sample's unit, filled on first use; empty (every sample an I frame)
    // without sync tables.
    AutoReleasePtr<FrameSet> getFrameSet(unsigned long sample, FileIoClientRec* agent) const;
    // The unit's key frames: the 'stss' set with the 'stps' keys added to it, or the 'stps' set
    // alone; none without either table.
    AutoReleasePtr<QtAtomSampleSync::KeySet> getKeySet(QtFrameSet::Unit unit, FileIoClientRec* agent) const;
    // B for a sample whose (shifted) offset is 0, else I for a key frame (or without 'stss'), else P.
    SampleCodingType getCodingType(unsigned long sample, int offset, FileIoClientRec* agent) const;
    // Places a cursor (made over getArray() with the table's shift) on a sample through the nearest
    // anchor; false when the table ends before it.
    bool seekSample(DiskIterator& iterator, unsigned long sample, FileIoClientRec* agent) const;
    // The shift that turns stored offsets into the ones whose zero marks a B frame ('cslg', or 0).
    unsigned int getCompShift() const;
    FrameSetCache& getFrameSetCache() const { return m_frameSets; }
    // The old path: builds the absolute array of the sample's unit; true when the walk reached it.
    bool rebuildAbs(unsigned long sample, FileIoClientRec* agent) const;

    // --- recording (owner thread) ---
    // Records sample `sample` (0-based, decode order) of `ticks` media time units. With a display
    // offset in `info` (and a 'cslg'), the offset is written as it is; otherwise offsets are derived
    // from the coding types, and the mode chosen at sample 0 stays. The sync table must know a key
    // frame before its sample is recorded here, so that readers see it as I.
    Sample appendSample(unsigned long sample, SampleInfo const& info, unsigned int ticks,
                        QtAtomCompShift const* cslg) const;
    CTTSCache& getCTTSCache() const { return m_cttsCache; }
    bool isDeriveMode() const { return m_deriveMode; }

    // --- sibling tables, found under the same parent on first use ---
    QtAtomSampleSync const* getStss() const;
    QtAtomSampleSync const* getStps() const;
    QtAtomCompShift const* getCslg() const;
    QtAtomSampleDepend const* getSdtp() const;
    // The dominant sample duration of the sibling 'stts'; 1 without one.
    unsigned int getTicksPerSample() const;

  private:
    QtAtomSampleSync const* getStssSlow() const;
    QtAtomSampleSync const* getStpsSlow() const;
    QtAtomCompShift const* getCslgSlow() const;
    QtAtomSampleDepend const* getSdtpSlow() const;
    bool makeDiskBacked() const;
    void reportTrailingZeros() const;
    AutoPtr<char> describeArray() const;

    class RunWalker;
    friend class RunWalker;
    class KeyCursor;

    // Long-GOP tables repeat a handful of unit contents over and over. The walk from the start of
    // the table gives every unit it passes a signature of what decides its frame types (the runs in
    // it, the zero run reaching into it, its key frames); frame sets filled since are kept by
    // signature, a bounded few, so that a unit of the same signature is answered from memory.
    class UnitShapes {
      public:
        static constexpr unsigned int kShapeLimit = 64;

        void setSignatures(std::vector<std::pair<unsigned int, uint64_t>> const& found);
        // The frame type at a unit's slot from a kept set of the unit's signature.
        bool find(QtFrameSet::Unit unit, unsigned int slot, FrameType& out) const;
        // Keeps a filled set's types under its unit's signature (when the unit has one).
        void offer(FrameSet const& set);
        // Forgets every signature (the table changes under them).
        void disable();

      private:
        struct Shape {
            uint64_t signature = 0;
            unsigned long lastUse = 0;
            unsigned int size = 0;
            std::unique_ptr<FrameType[]> types;
        };

        mutable std::mutex m_mutex;
        bool m_disabled = false;                // guarded by m_mutex
        std::vector<uint64_t> m_signatures;     // per unit, 0 when unknown; guarded by m_mutex
        mutable std::vector<Shape> m_shapes;    // guarded by m_mutex
        mutable unsigned long m_clock = 0;      // guarded by m_mutex
    };
    // Takes back the anchors kept with the file, once.
    void loadKeptSeed() const;
    void applySeed(SparseSeed const& seed) const;
    AutoReleasePtr<FrameSet> getFrameSet(unsigned long sample, FileIoClientRec* agent, bool signUnits) const;
    void fillFrameSet(FrameSet& set, FileIoClientRec* agent, bool signUnits) const;
    void applySampleDepend(unsigned long sample, Sample& result, FileIoClientRec* agent) const;
    void compareWithOldPath(unsigned long sample, Sample const& result, FileIoClientRec* agent) const;
    bool appendDirect(unsigned long sample, int offset, unsigned int ticks, QtAtomCompShift const* cslg,
                      Sample& result) const;
    void updateReaders(unsigned long sample, Sample const& result, SampleCodingType type) const;
    void refreshReference() const;
    void fillGap(unsigned long sample, unsigned int ticks, QtAtomCompShift const* cslg) const;
    void walkUnitForOldPath(SparseIterator& it, unsigned int shift, unsigned int unitStart,
                            FileIoClientRec* agent) const;
    bool walkToUnitForOldPath(unsigned int& k, unsigned int u, unsigned int shift, FileIoClientRec* agent) const;
    void printOldPathTable(unsigned int from, unsigned int to, FileIoClientRec* agent) const;

    BridgeAnchor m_cacheAnchor;  // declared before the array, which reports its cache through it
    QtVersionAndFlags m_versionAndFlags;
    std::atomic<unsigned int> m_nEntries{0};
    mutable VirtualArray<DiskEntry> m_array;
    mutable unsigned int m_lastRecordedSample = 0;
    mutable unsigned int m_lastReferenceSample = 0;
    mutable SparseArray m_sparse;
    mutable SparseSeed m_sparseSeed;
    mutable std::atomic<QtAtomSampleSync const*> m_stss{nullptr};
    mutable std::atomic<QtAtomSampleSync const*> m_stps{nullptr};
    mutable std::atomic<QtAtomCompShift const*> m_cslg{nullptr};
    mutable std::atomic<QtAtomSampleDepend const*> m_sdtp{nullptr};
    // Siblings found missing while recording (kAbsent... bits), not searched for again.
    static constexpr unsigned int kAbsentStss = 1, kAbsentStps = 2, kAbsentCslg = 4, kAbsentSdtp = 8;
    mutable std::atomic<unsigned int> m_absentSiblings{0};
    template <class T>
    T const* findSiblingOnce(std::atomic<T const*>& cache, unsigned int absentBit, QtAtomIdType type) const;
    // Owner thread, at the start of a recording: finds (or finds missing) every sibling readers use.
    void settleSiblings() const;
    mutable std::atomic<unsigned int> m_ticksPerSample{0};
    mutable std::atomic<unsigned int> m_firstBadEntry{0xFFFFFFFFu};
    mutable AbsoluteAry m_absolute;
    mutable FrameSetCache m_frameSets;
    mutable UnitShapes m_shapes;
    mutable DiskIterator m_diskIterator;
    mutable CTTSCache m_cttsCache;
    mutable bool m_deriveMode = false;
    // Set by the first appendSample: the table changes from then on, so units get no signatures.
    mutable std::atomic<bool> m_recording{false};
    mutable std::atomic<unsigned long> m_settledSamples{0};
    // Held by the recorder while it rewrites the open entries and refreshes the cached frame sets,
    // and by a reader while it fills a set that reaches past the settled samples: a set filled from
    // the open entries is then either refreshed after its fill or filled from the new entries.
    mutable std::recursive_mutex m_openEntries;
    mutable std::once_flag m_seedLoaded;
};
