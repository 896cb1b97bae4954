// QtAtomSampleSync: the sync sample table ('stss', key frames) and the partial sync sample table
// ('stps'), one class for both. The entries (increasing sample numbers) live in a disk-backed array;
// lookups answer whether a frame is a key frame without reading the whole table, key sets give the
// key frames of a 256-frame unit as bits shared by readers, and the recorder appends keys in place.
//
// Frame numbers are 0-based in memory. The file normally holds 1-based numbers (key base 1, the
// array converts on I/O); an 'stss' whose first entry is 0 was written 0-based and is kept so.
//
// Threads and locks:
// - The owner thread decodes, encodes, moves (setSizeAndOffset), sizes (setCapacity) and records
//   (appendKey). Reader threads call isKey, getKey, set and getKeySet concurrently with it, each
//   passing its own agent (FileIoClientRec*).
// - The active size and the last sample are published by appendKey after the entry is stored, so
//   a reader that sees them also sees the entry. The cursor and the samples-per-entry guess are
//   hints written by every lookup without a lock; a stale hint costs only extra reads.
// - KeyCache::m_mutex guards the cache's list and the unit and agent of the sets on it. Sets are
//   reference counted atomically and released without the lock; their bits are atomic. No file I/O
//   happens under the lock: sets are filled by their reader after KeyCache::get returns.
#pragma once

#include <atomic>
#include <cstdint>

#include "framework/AtomicCounter.h"
#include "framework/AutoReleasePtr.h"
#include "framework/Bitset.h"
#include "framework/BridgeAnchor.h"
#include "framework/DLinkedList.h"
#include "framework/FixedPoint.h"
#include "framework/SorvanPosix.h"
#include "framework/VirtualArray.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"
#include "quicktime/tables/QtFrameSet.h"

class QtAtomSampleSize;

class QtAtomSampleSync : public BaseQtAtom {
  public:
    static constexpr QtAtomIdType kStssId = qtId("stss");
    static constexpr QtAtomIdType kStpsId = qtId("stps");
    // Bytes from the start of the atom to entry 0: header, version/flags, entry count.
    static constexpr unsigned int kHeadSize = 16;
    // Tables of at most this many entries are held in memory; larger ones stay in the file.
    static constexpr unsigned int kInMemoryEntries = 16;

    // The entries with the number of them in use (the active size); the array's virtual size is the
    // allocated size. The active size is written by the owner and read by every reader.
    class SyncArray : public VirtualArray<unsigned int> {
      public:
        explicit SyncArray(QtAtomIdType type);
        ~SyncArray() override;

        static char const* getName(QtAtomIdType type);
        // Names the table after the type decode found. (The storage keeps the label it was built
        // with for its own messages; the factory builds each table with its final type.)
        void setName(QtAtomIdType type) { m_name = getName(type); }
        char const* name() const { return m_name; }

        unsigned int getActiveSize() const { return m_activeSize.load(std::memory_order_acquire); }
        // Fails (false, nothing changed) when n exceeds the allocated size.
        bool setActiveSize(unsigned int n);
        unsigned int getAllocatedSize() const { return getVirtualSize(); }
        unsigned int getHeadroom() const;

      private:
        char const* m_name;
        std::atomic<unsigned int> m_activeSize{0};
    };

    class KeyCache;

    // The key frames of one unit (256 frames) as bits: bit i is frame unitToFrame(unit) + i. The
    // size is one past the last key of the unit, so frames after it read as non-keys.
    class KeySet : public Bitset {
      public:
        KeySet(QtFrameSet::Unit unit, FileIoClientRec* agent);
        KeySet(KeySet const&) = delete;
        KeySet& operator=(KeySet const&) = delete;

        QtFrameSet::Unit getUnit() const { return m_unit; }
        FileIoClientRec* getAgent() const { return m_agent.load(std::memory_order_relaxed); }
        unsigned long getInFrame() const { return QtFrameSet::unitToFrame(m_unit); }
        unsigned long getOutFrame() const { return getInFrame() + size(); }
        unsigned long getMaxOutFrame() const { return getInFrame() + QtFrameSet::kUnitFrames; }
        bool holds(unsigned long frame) const { return frame >= getInFrame() && frame < getOutFrame(); }
        bool canHold(unsigned long frame) const { return frame >= getInFrame() && frame < getMaxOutFrame(); }
        bool isKey(unsigned long frame) const {
            return holds(frame) && get(static_cast<unsigned int>(frame - getInFrame()));
        }

        // Marks a key frame of this unit (ignored outside it), growing the size to include it.
        void setKey(unsigned long frame);
        // A new unit and agent, with no bits.
        void reset(QtFrameSet::Unit unit, FileIoClientRec* agent);
        // As reset, and the count becomes 2: one reference for the cache's list, one for the caller.
        void reinit(QtFrameSet::Unit unit, FileIoClientRec* agent);
        void preserve() { m_refCount.increment(); }
        // Gives back one reference; the set destroys itself with the last one.
        void release();
        int32_t getRefCOunt() const { return m_refCount.value(); }

        // Entry indices of the table walked when the set was filled; the first is kept as the
        // starting hint when the set is recycled for another unit.
        unsigned int getAryIdx0() const { return m_aryIdx0.load(std::memory_order_relaxed); }
        void setAryIdx0(unsigned int index) { m_aryIdx0.store(index, std::memory_order_relaxed); }
        unsigned int getAryIdxN() const { return m_aryIdxN.load(std::memory_order_relaxed); }
        void setAryIdxN(unsigned int index) { m_aryIdxN.store(index, std::memory_order_relaxed); }

        AutoPtr<char> toString() const;
        // Prints the set and the frame number of every key in it.
        void dumpSet() const;

      private:
        friend class KeyCache;
        ~KeySet() = default;

        QtFrameSet::Unit m_unit;
        // Null for the recorder; changed only under the cache's lock (read by printouts without it).
        std::atomic<FileIoClientRec*> m_agent;
        DLinkNode<KeySet> m_node;
        AtomicCounter m_refCount{1};
        std::atomic<unsigned int> m_aryIdx0{0};
        std::atomic<unsigned int> m_aryIdxN{0};
    };

    // The key sets in use, shared by unit between readers, at most one per agent (its most recent
    // unit). The list holds one reference on every set on it.
    class KeyCache {
      public:
        KeyCache();
        ~KeyCache();
        KeyCache(KeyCache const&) = delete;
        KeyCache& operator=(KeyCache const&) = delete;

        // The set of a unit, held for the caller: the cached one whoever built it, else the agent's
        // own set recycled, else a new one. A recycled or new set is empty and must be filled.
        AutoReleasePtr<KeySet> get(QtFrameSet::Unit unit, FileIoClientRec* agent);
        // Takes every set of an agent off the list (the agent closes the table).
        void releaseAgent(FileIoClientRec* agent);
        // Number of sets on the list (for diagnostics and tests).
        size_t count() const;

      private:
        // Marks a set that no reader owns any more; compared, never dereferenced.
        FileIoClientRec* orphanAgent() const;
        void retire(KeySet& set);  // m_mutex held

        DLinkedList<KeySet> m_list;  // guarded by m_mutex
        mutable SorvanPosix::JMutex m_mutex;
    };

    // Trace hook of a lookup: the target frame, every entry read, and where the linear ("lin") and
    // binary ("bin") phases start. Does nothing in this build; a tracing build records the path.
    class LookupView {
      public:
        void setTarget(unsigned long) {}
        void add(unsigned int) {}
        void mark(char const*) {}
    };

    // Walks the table frame by frame: key0 is the entry at the index, key1 the next one, and the
    // frame lies in [key0, key1). Entries are fetched lazily and cached in the flag word.
    class KeyIterator {
      public:
        enum KeyIndex { Key0 = 0, Key1 = 1 };
        enum FlagState : unsigned int { Key0Loaded = 1, Key1Loaded = 2, FrameValid = 8 };

        KeyIterator(SyncArray const& array, FileIoClientRec* agent);

        // Moves to entry i (clamped into the table); false when i had to be clamped.
        bool seek(long i);
        bool stepIndex(long delta) { return seek(static_cast<long>(m_index) + delta); }
        bool fetch(KeyIndex k);
        // Puts the frame at f when key0 <= f < key1 (or f >= key0 at the last entry).
        bool setInBounds(unsigned long f);
        unsigned int frame();
        unsigned int frame1();
        bool isKey();
        unsigned int operator++();
        unsigned int operator++(int);
        unsigned int operator--();
        unsigned int operator--(int);
        bool valid() const { return (m_flags & FrameValid) != 0; }
        unsigned int getIndex() const { return m_index; }
        void invalidate();
        LookupView& view() { return m_view; }

      private:
        static unsigned int flagOf(KeyIndex k) { return 1u << k; }

        SyncArray const& m_array;
        FileIoClientRec* m_agent;
        unsigned int m_index = 0;
        unsigned int m_key0 = 0;
        unsigned int m_key1 = 0;
        unsigned int m_frame = 0;
        unsigned int m_flags = 0;
        LookupView m_view;
    };

    QtAtomSampleSync(BaseQtAtom const* parent, bool oneBased, QtAtomIdType type);
    ~QtAtomSampleSync() override;

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    // True while the entries live in the file: writers take them from there.
    bool hasUntouchedData() const override { return hasVirtualTable(); }
    bool needsAllData() const override;
    unsigned int getFixedSize() const override;
    unsigned long getVariableSize() const override;
    bool hasVirtualTable() const override;
    void flushVirtualTable() const override;
    void closeVirtualTable(FileIoClientRec* agent) const override;
    unsigned int getEncodeSize() const override;
    void show() const override;
    void setSizeAndOffset(QtTreeSize const& size) const override;

    QtAtomSampleSync* write() const { return static_cast<QtAtomSampleSync*>(BaseQtAtom::write()); }

    // --- lookups (reader threads, each with its own agent) ---
    unsigned int size() const { return m_array.getActiveSize(); }
    unsigned int getKey(unsigned int index, FileIoClientRec* agent) const;
    bool isKey(unsigned long frame, FileIoClientRec* agent) const;
    AutoReleasePtr<KeySet> getKeySet(QtFrameSet::Unit unit, FileIoClientRec* agent) const;
    void set(KeyIterator& iterator, unsigned long frame) const;
    // Reports a bad entry (past the end, or 0 after entry 0) and returns what is stored there.
    unsigned int getKeyError(unsigned int index, FileIoClientRec* agent) const;
    // The sample count of the sibling 'stsz' (0 without one).
    unsigned int getStblLastSample() const;

    // --- recording (owner thread) ---
    bool appendKey(unsigned long frame) const;
    void setCapacity(unsigned long nSamples, unsigned int keyInterval) const;
    // Repairs the last sample of a table that ends in zero entries.
    void calcLastSample() const;

    unsigned int getLastSample() const { return m_lastSample.load(std::memory_order_acquire); }
    FixedPoint<16u> getSamplesPerEntry() const {
        return FixedPoint<16u>(AlreadyFixed{}, m_samplesPerEntry.load(std::memory_order_relaxed));
    }
    unsigned int getKeyBase() const { return m_keyBase; }
    unsigned int getHeadroom() const { return m_array.getHeadroom(); }
    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    SyncArray const& getArray() const { return m_array; }
    KeyCache& getKeyCache() const { return m_keyCache; }

  private:
    void setKeyBase(unsigned int base);
    void setSamplesPerEntry(unsigned long lastSample, unsigned int entries, char const* countLabel) const;
    bool makeDiskBacked() const;
    bool isZeroBased(unsigned int firstRaw) const;
    QtAtomSampleSize const* getStsz() const;
    QtAtomSampleSize const* getStszSlow() const;
    void reportTrailingZeros() const;
    bool lookupBinary(unsigned long frame, unsigned int cursor, unsigned int k, unsigned int n,
                      FileIoClientRec* agent, LookupView& view) const;

    BridgeAnchor m_cacheAnchor;  // declared before the array, which reports its cache through it
    QtVersionAndFlags m_versionAndFlags;
    mutable std::atomic<unsigned int> m_cursor{0};      // hint: entry last examined
    mutable std::atomic<unsigned int> m_lastSample{0};  // highest key frame (0-based)
    mutable std::atomic<int64_t> m_samplesPerEntry;     // 16.16 raw; never below 1
    mutable SyncArray m_array;
    unsigned int m_keyBase = 1;  // added to every value on disk
    mutable std::atomic<QtAtomSampleSize const*> m_stsz{nullptr};
    mutable KeyCache m_keyCache;
};
