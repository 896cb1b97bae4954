// QtAtomSampleSize: the sample size atom 'stsz'. Either one constant size for every sample of a
// track, or one 32-bit size per sample. The sizes of a long recording run into millions, so they
// are kept in a disk-backed array: in memory up to 16 entries, beyond that in the file at the
// atom's own entries, with reserved room after the last sample that recording fills in place.
//
// Threads: the owner (reader of the tree, or recorder) decodes, adds samples, resizes and moves the
// atom; readers on other threads may call getSampleSize and getSampleCount with their own agent
// while it records (the count is published after the size it covers is stored).
#pragma once

#include <atomic>

#include "framework/BridgeAnchor.h"
#include "framework/VirtualArray.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomSampleSize : public BaseQtAtom {
public:
    static constexpr QtAtomIdType kId = qtId("stsz");

    // A new table: variable, no samples, room for 16 sizes.
    explicit QtAtomSampleSize(BaseQtAtom const* parent);
    ~QtAtomSampleSize() override;

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    // True while the sizes live on disk: the writer copies or leaves them in place.
    bool hasUntouchedData() const override { return hasVirtualTable(); }
    bool needsAllData() const override { return getSize() < 85; }
    // Header, version and flags, sample size and count: 20 bytes with the usual header.
    unsigned int getFixedSize() const override { return getHeaderSize() + 12; }
    unsigned long getVariableSize() const override;
    bool hasVirtualTable() const override { return m_sizes.isVirtual(); }
    void flushVirtualTable() const override;
    void closeVirtualTable(FileIoClientRec* agent) const override;
    unsigned int getEncodeSize() const override;
    void show() const override;
    void setSizeAndOffset(QtTreeSize const& size) const override;

    QtAtomSampleSize* write() const { return static_cast<QtAtomSampleSize*>(BaseQtAtom::write()); }
    QtAtomSampleSize* nonConst() const { return static_cast<QtAtomSampleSize*>(BaseQtAtom::nonConst()); }

    bool isFixed() const { return m_sampleSize != 0; }
    // The constant size of every sample; 0 for a table that lists each size.
    unsigned int getConstantSampleSize() const { return m_sampleSize; }
    unsigned int getSampleCount() const { return m_nEntries.load(std::memory_order_acquire); }
    // The entry count the file gave when the atom could not hold that many (the table was then
    // emptied), else 0: lets a reader say why a track shows no samples.
    unsigned int getDamagedCount() const { return m_damagedCount; }
    // Slots reserved for sizes (0 for a constant table).
    unsigned int getCapacity() const { return m_sizes.getVirtualSize(); }

    void setFixed(unsigned int size);
    void setFixed(unsigned int size, unsigned int count);
    void setVariable();
    // Records `count` samples from sample index `first`. A variable table stores `size` at `first`
    // only (the recorder adds variable sizes one at a time). With no room left it asks the movie
    // for a resize and returns false without recording anything.
    bool addSamples(unsigned int first, unsigned int count, unsigned int size);
    // Bytes of `count` samples from `first`; for count 1 the size of sample `first`.
    unsigned int getSampleSize(unsigned int first, unsigned int count, FileIoClientRec* agent) const;

    unsigned int getSizeNeeded() const;
    unsigned int getHeadroom() const { return getCapacity() - getSampleCount(); }
    // Reserves room for `capacity` sizes (clamped to 32 bits); the atom's size follows at the next
    // placement (recalcOffset), which must come before more samples are added.
    void setCapacity(unsigned long capacity);

private:
    unsigned long entriesOffset() const { return getFileOffset() + getFixedSize(); }
    void reportTrailingZeros() const;
    void showSizes(unsigned int count) const;

    BridgeAnchor m_cacheAnchor;  // declared before the array, which reports through it
    QtVersionAndFlags m_versionAndFlags;
    unsigned int m_decodedSampleSize = 0;
    unsigned int m_sampleSize = 0;
    // Published after the size it counts is stored, for readers on other threads.
    std::atomic<unsigned int> m_nEntries{0};
    VirtualArray<unsigned int> m_sizes{"stsz"};
    unsigned int m_sizeNeeded = 0;
    unsigned int m_damagedCount = 0;
};
