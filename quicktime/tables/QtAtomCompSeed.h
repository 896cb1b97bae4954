// QtAtomCompSeed: the composition offset table's sparse seed kept with the file, in a 'uuid' atom of
// this library's own beside the 'ctts' in the sample table (other readers skip a 'uuid' they do not
// know). It holds one anchor per 16384 samples and the size of the table it was taken from, so that
// a reader opening the file reaches any sample from the nearest anchor instead of walking the runs
// from the start; a seed that no longer matches its table is ignored.
//
// Layout after the 8-byte header: the 16-byte uuid, version/flags, the 'ctts' entry count and the
// sample count it was taken at, the interval, the slots used and the slots reserved (16 bits each),
// then the reserved slots of 16 bytes (entry index, position, sample, anchor), zero past the used.
//
// Threads: decoded, stored and encoded by the owner thread. Readers take the seed through the
// 'ctts' (QtAtomCompTime::getFrameSet), which copies it once.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"
#include "quicktime/tables/QtAtomCompTime.h"

class QtAtomCompSeed : public BaseQtAtom {
  public:
    static constexpr QtAtomIdType kUuidId = qtId("uuid");
    static uint8_t const kUuid[16];
    // Header, uuid, version/flags, entry count, sample count, interval, used and reserved slots.
    static constexpr unsigned int kHeadSize = 8 + 16 + 4 + 4 + 4 + 4 + 4;
    static constexpr unsigned int kSlotSize = 16;
    static constexpr unsigned int kMaxSlots = 0xFFFF;

    // An empty seed with room for `slots` anchors.
    explicit QtAtomCompSeed(BaseQtAtom const* parent, unsigned int slots = 1);

    // Whether the atom a prototype announces under `parent` is a seed: a 'uuid' in a sample table,
    // of a size a seed can have, whose uuid (peeked in the file) is this library's.
    static bool isSeed(BaseQtAtom const* prototype, BaseQtAtom const* parent);
    // The seed beside a composition offset table, or null.
    static QtAtomCompSeed const* findFor(QtAtomCompTime const& ctts);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return kHeadSize; }
    unsigned long getVariableSize() const override { return static_cast<unsigned long>(m_reserved) * kSlotSize; }
    void show() const override;

    QtAtomCompSeed* write() const { return static_cast<QtAtomCompSeed*>(BaseQtAtom::write()); }

    // --- recording (owner thread) ---
    // Reserves room for the anchors of a recording of nSamples samples; the atom's size follows at
    // the next resize of the movie.
    void setCapacity(unsigned long nSamples) const;
    // Takes the table's current anchors (one per 16384 samples) and its size. When they do not fit
    // the reserved room, asks the movie to grow (after setCapacity) and keeps the previous seed.
    bool store(QtAtomCompTime const& ctts, unsigned long nSamples) const;

    // --- reading ---
    // The seed, when it was taken from a table of `entries` runs and `samples` samples.
    bool matches(unsigned int entries, unsigned int samples) const {
        return m_entries == entries && m_samples == samples;
    }
    QtAtomCompTime::SparseSeed const& getSeed() const { return m_seed; }
    unsigned int getEntryCount() const { return m_entries; }
    unsigned int getSampleCount() const { return m_samples; }
    unsigned int getReservedSlots() const { return m_reserved; }

  private:
    QtVersionAndFlags m_versionAndFlags;
    unsigned int m_entries = 0;
    unsigned int m_samples = 0;
    unsigned int m_reserved = 1;
    QtAtomCompTime::SparseSeed m_seed;
};
