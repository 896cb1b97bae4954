// QtAtomSampleDepend: the sample dependency table ('sdtp'), one byte of dependency flags per sample,
// stored and returned as it is (the composition logic interprets the bits). The bytes live in a
// disk-backed array; the table has no count of its own: it has as many entries as the sibling
// 'stsz' has samples.
//
// Threads: the owner thread decodes, encodes, moves, sizes and records (addSamples); readers call
// getSampleDepend with their own agent. The 'stsz' pointer is cached on first use without a lock
// (every thread would cache the same pointer).
#pragma once

#include <atomic>

#include "framework/VirtualArray.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomSampleSize;

class QtAtomSampleDepend : public BaseQtAtom {
public:
    static constexpr QtAtomIdType kSdtpId = qtId("sdtp");
    // Bytes from the start of the atom to entry 0: header and version/flags.
    static constexpr unsigned int kHeadSize = 12;
    static constexpr unsigned int kInMemoryEntries = 16;

    explicit QtAtomSampleDepend(BaseQtAtom const* parent);
    ~QtAtomSampleDepend() override;

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    bool hasUntouchedData() const override { return !hasVirtualTable(); }
    bool needsAllData() const override { return getSize() < 77; }
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + 4; }
    unsigned long getVariableSize() const override { return m_array.getVirtualSize(); }
    bool hasVirtualTable() const override { return m_array.isVirtual(); }
    void flushVirtualTable() const override;
    void closeVirtualTable(FileIoClientRec* agent) const override { m_array.close(agent); }
    unsigned int getEncodeSize() const override;
    void show() const override;
    void setSizeAndOffset(QtTreeSize const& size) const override;

    QtAtomSampleDepend* write() const { return static_cast<QtAtomSampleDepend*>(BaseQtAtom::write()); }

    // The flags byte of a 0-based sample (0 past the table).
    unsigned char getSampleDepend(unsigned long sample, FileIoClientRec* agent) const;
    // Stores one sample's byte (owner thread). Past the capacity nothing is stored: the needed size
    // is noted and the movie is asked to grow (false); the caller stores again after the resize.
    bool addSamples(unsigned long sample, unsigned char value) const;
    // Reserves exactly n entries (the planned sample count); unlike the other tables this may shrink.
    void setCapacity(unsigned long n) const;

    // The sample count of the sibling 'stsz' (0 without one).
    unsigned int getNumEntries() const;
    unsigned int getHeadroom() const;
    unsigned int getSizeNeeded() const { return m_sizeNeeded ? m_sizeNeeded : getNumEntries(); }
    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    VirtualArray<unsigned char> const& getArray() const { return m_array; }

private:
    QtAtomSampleSize const* getStsz() const;
    QtAtomSampleSize const* getStszSlow() const;

    QtVersionAndFlags m_versionAndFlags;
    mutable VirtualArray<unsigned char> m_array;
    mutable std::atomic<QtAtomSampleSize const*> m_stsz{nullptr};
    mutable unsigned int m_sizeNeeded = 0;  // 0: no resize pending
};
