// QtAtomSampleChunkOff: the chunk offset atom of a track, the absolute file offset of every chunk.
// One class serves both types: 'stco' with 32-bit offsets and 'co64' with 64-bit ones. A recording
// that passes 4 GiB, or is about to, turns a 'stco' into a 'co64' at run time; the offsets already
// written are widened in place when the atom is next placed. The offsets are kept in disk-backed
// arrays (in memory up to 16, otherwise in the file at the atom's own entries); only the array
// that matches the atom's current type holds entries.
//
// Threads: the owner decodes, adds offsets, resizes and places the atom; readers on other threads
// call getChunkOffset and getNumChunks with their own agent meanwhile, also while the atom moves and
// while it widens. The count is published after the offset it covers is stored. The array readers
// read is published apart from the atom's type (m_readerLayout): a 'stco' that setCapacity turned
// into a 'co64' keeps its offsets in the 32-bit array until the placement widens them, and readers
// go on reading them there. While the widening copies, readers wait on m_widenMutex (held only by
// that copy); a reader that raced the start of it sees the layout changed and reads again.
// elementAt and the other operations are the owner's.
#pragma once

#include <atomic>
#include <mutex>

#include "framework/BridgeAnchor.h"
#include "framework/VirtualArray.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomSampleChunk;
class QtAtomSampleSize;
class QtAtomSampleTime;

class QtAtomSampleChunkOff : public BaseQtAtom {
public:
    static constexpr QtAtomIdType kStcoId = qtId("stco");
    static constexpr QtAtomIdType kCo64Id = qtId("co64");

    // A new table with room for 16 offsets: a 'co64', or a 'stco' under the legacy flag "use stco".
    explicit QtAtomSampleChunkOff(BaseQtAtom const* parent);
    ~QtAtomSampleChunkOff() override;

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    // True while the current offsets live on disk: the writer copies or leaves them in place.
    bool hasUntouchedData() const override { return isVirtual(); }
    bool needsAllData() const override;
    // Header, version and flags, count: 16 bytes with the usual header.
    unsigned int getFixedSize() const override { return getHeaderSize() + 8; }
    unsigned long getVariableSize() const override;
    bool hasVirtualTable() const override { return m_offsets32.isVirtual() || m_offsets64.isVirtual(); }
    void flushVirtualTable() const override;
    void closeVirtualTable(FileIoClientRec* agent) const override;
    unsigned int getEncodeSize() const override;
    void show() const override;
    void setSizeAndOffset(QtTreeSize const& size) const override;

    QtAtomSampleChunkOff* write() const { return static_cast<QtAtomSampleChunkOff*>(BaseQtAtom::write()); }
    QtAtomSampleChunkOff* nonConst() const { return static_cast<QtAtomSampleChunkOff*>(BaseQtAtom::nonConst()); }

    bool is64Bit() const { return getId() == kCo64Id; }
    // Whether the offsets of the current type are disk-backed.
    bool isVirtual() const { return is64Bit() ? m_offsets64.isVirtual() : m_offsets32.isVirtual(); }
    unsigned int getNumChunks() const { return m_nEntries.load(std::memory_order_acquire); }
    // The entry count the file gave when the atom could not hold that many (the table was then
    // emptied), else 0: lets a reader say why a track shows no samples.
    unsigned int getDamagedCount() const { return m_damagedCount; }
    // Slots of the current array.
    unsigned int nArrayEntries() const;
    unsigned int getHeadroom() const { return m_headroom; }

    // Appends the offset of a new chunk while recording. False when the table is full: the movie
    // has been asked for a resize (and a 'stco' switched to 'co64' where needed); add it again
    // after the resize.
    bool addOffset(long offset);
    // Builds the table of a movie whose samples lie one after another from file offset `base`.
    void createOffsets(unsigned long base, QtAtomSampleTime const* stts, QtAtomSampleChunk const* stsc,
                       QtAtomSampleSize const* stsz);
    // The offset of a chunk (0-based); 0 past the last chunk.
    unsigned long getChunkOffset(unsigned int chunk, FileIoClientRec* agent) const;
    // Entry i of the current array, and its replacement.
    unsigned long elementAt(unsigned int index, FileIoClientRec* agent = nullptr) const;
    bool assignAt(unsigned int index, unsigned long value);

    unsigned long getOffsetNeeded(QtAtomSampleSize const* stsz) const;
    bool need64BitChunkOff(QtAtomSampleSize const* stsz) const;
    unsigned int getSizeNeeded() const { return m_sizeNeeded ? m_sizeNeeded : nArrayEntries(); }
    // Reserves room for `capacity` offsets (clamped to 32 bits and raised to the count), switching
    // a 'stco' to 'co64' when the offsets projected for that room would pass 4 GiB. The atom's size
    // and a widening follow at the next placement (recalcOffset), which must come before more
    // offsets are added.
    void setCapacity(unsigned long capacity);

private:
    unsigned int entryBytes() const { return is64Bit() ? 8 : 4; }
    unsigned long entriesOffset() const { return getFileOffset() + getFixedSize(); }
    bool wantsWide(unsigned int capacity) const;
    template <class T>
    void reserve(VirtualArray<T>& array, unsigned int capacity, bool mapNow, int refusedLine, int backingLine);
    void widen(unsigned long entries, bool inPlace) const;
    // Owner thread: tells readers which array holds the offsets now.
    void publishLayout() const;
    void reportTrailingZeros() const;

    BridgeAnchor m_cacheAnchor;  // declared before the arrays, which report through it
    QtVersionAndFlags m_versionAndFlags;
    // Published after the offset it counts is stored, for readers on other threads.
    std::atomic<unsigned int> m_nEntries{0};
    VirtualArray<unsigned int> m_offsets32{"stco"};
    VirtualArray<unsigned long> m_offsets64{"co64"};
    unsigned int m_sizeNeeded = 0;
    unsigned long m_lastOffset = 0;
    unsigned int m_headroom = 0;
    bool m_widenOnPlacement = false;
    unsigned int m_damagedCount = 0;
    // What readers read: kWideEntries when the 64-bit array holds the offsets, kWidening during the
    // copy into it.
    static constexpr unsigned int kWideEntries = 1;
    static constexpr unsigned int kWidening = 2;
    mutable std::atomic<unsigned int> m_readerLayout{0};
    mutable std::mutex m_widenMutex;
};
