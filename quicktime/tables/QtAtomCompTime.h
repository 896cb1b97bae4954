// QtAtomCompTime: the composition offset table ('ctts'), runs of samples that share one offset
// between decode and display time. A long-GOP recording writes one run per change of offset, so the
// runs live in a disk-backed array. This class is the table as stored: entries, decode and encode,
// capacity planning, appends and repair of damaged runs, the cursor that walks the runs sample by
// sample (DiskIterator) and the sparse anchors, one per 256 samples, from which a reader starts a
// walk in the middle of a long table (Sparse, SparseArray, SparseSeed).
//
// Threads and locks:
// - The owner thread decodes, encodes, moves, sizes and appends (addDiskEntry, addCTTSEntry). An
//   appended entry is stored before the entry count is published.
// - Readers walk the runs with their own DiskIterator and agent. The sparse array is filled by every
//   walk, readers and recorder alike; SparseArray::m_mutex guards its slots (copies in memory only,
//   never file I/O).
// - The sibling pointers and the ticks per sample are cached on first use without a lock (every
//   thread caches the same value); the first bad entry is lowered atomically.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "framework/BridgeAnchor.h"
#include "framework/VirtualArray.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomSampleDepend;
class QtAtomSampleSync;
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
        unsigned int getDependOff() const;
        unsigned int getAnchor() const { return m_sample - std::min(m_sample, getDependOff()); }
        Sparse getSparse() const;

      private:
        bool zeroShifted(DiskEntry const& entry) const {
            return static_cast<unsigned int>(entry.offset) + m_shift == 0;
        }

        VirtualArray<DiskEntry> const& m_array;
        FileIoClientRec* m_agent;
        unsigned int m_diskIdx = 0;
        unsigned int m_position = 1;
        unsigned int m_sample = 0;
        unsigned int m_shift = 0;
        Sparse m_sparse;
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
    void closeVirtualTable(FileIoClientRec* agent) const override { m_array.close(agent); }
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
    void setLastRecordedSample(unsigned int sample) const { m_lastRecordedSample = sample; }
    unsigned int getFirstBadEntry() const { return m_firstBadEntry.load(std::memory_order_relaxed); }

    // --- sparse anchors ---
    SparseArray& getSparseArray() const { return m_sparse; }
    // A snapshot of every 64th anchor, sized for nSamples samples (0: keep the current size).
    SparseSeed const& getSeed(unsigned int nSamples) const;
    // Takes anchors back from a snapshot.
    void setSeed(SparseSeed const& seed) const;

    // --- sibling tables, found under the same parent on first use ---
    QtAtomSampleSync const* getStss() const;
    QtAtomSampleSync const* getStps() const;
    BaseQtAtom const* getCslg() const;
    QtAtomSampleDepend const* getSdtp() const;
    // The dominant sample duration of the sibling 'stts'; 1 without one.
    unsigned int getTicksPerSample() const;

  private:
    QtAtomSampleSync const* getStssSlow() const;
    QtAtomSampleSync const* getStpsSlow() const;
    BaseQtAtom const* getCslgSlow() const;
    QtAtomSampleDepend const* getSdtpSlow() const;
    bool makeDiskBacked() const;
    void decodeInMemory(QtAtomBuffer& buffer, unsigned int count);
    void reportTrailingZeros() const;
    AutoPtr<char> describeArray() const;

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
    mutable std::atomic<BaseQtAtom const*> m_cslg{nullptr};
    mutable std::atomic<QtAtomSampleDepend const*> m_sdtp{nullptr};
    mutable std::atomic<unsigned int> m_ticksPerSample{0};
    mutable std::atomic<unsigned int> m_firstBadEntry{0xFFFFFFFFu};
    mutable DiskIterator m_diskIterator;
};
