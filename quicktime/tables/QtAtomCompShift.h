// QtAtomCompShift: the composition shift atom ('cslg') beside a track's composition offsets. It
// says how far display times are shifted against decode times (shift) and the range of the offsets
// written (least and greatest), and the composition start and end times. The recorder keeps the
// range and the end time up to date as it appends samples (update); readers take the shift.
//
// Threads: decoded and changed by the owner thread (reader or recorder); readers of other threads
// only read the shift, which the recorder never changes.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomCompShift : public BaseQtAtom {
  public:
    static constexpr QtAtomIdType kCslgId = qtId("cslg");
    // Header, version/flags and five 32-bit fields.
    static constexpr unsigned int kAtomSize = 32;

    explicit QtAtomCompShift(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override;
    void show() const override;

    QtAtomCompShift* write() const { return static_cast<QtAtomCompShift*>(BaseQtAtom::write()); }

    // One more sample recorded with composition offset `delta` (media time units) lasting `ticks`:
    // widens the range of offsets and moves the end time on.
    void update(int32_t delta, int32_t ticks) const;
    void setShift(int32_t shift) const;

    int32_t getShift() const { return m_shift; }
    int32_t getLsDelta() const { return m_lsDelta; }
    int32_t getGrDelta() const { return m_grDelta; }
    int32_t getStartTm() const { return m_startTm; }
    int32_t getEndTm() const { return m_endTm; }
    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }

    bool operator==(QtAtomCompShift const& other) const;

  private:
    // Version 1 holds the same five fields in 64 bits each; they are kept to 32 bits in memory.
    bool isWide() const { return m_versionAndFlags.version == 1; }

    QtVersionAndFlags m_versionAndFlags;
    int32_t m_shift = 0;
    int32_t m_lsDelta = 0;
    int32_t m_grDelta = 0;
    int32_t m_startTm = 0;
    int32_t m_endTm = 0;
};
