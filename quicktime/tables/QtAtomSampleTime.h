// QtAtomSampleTime: the time-to-sample atom 'stts', a run-length list of sample durations in media
// time units that maps a media time to a sample and back. A recorder writes tracks of fixed frame
// rate, so the table stays tiny and is held wholly in memory.
//
// Arithmetic kept on purpose: the span of an entry (count x duration) is a 32-bit product, added to
// a 64-bit running time, so tables with a large count and duration wrap there.
#pragma once

#include <algorithm>

#include <vector>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomSampleTime : public BaseQtAtom {
public:
    static constexpr QtAtomIdType kId = qtId("stts");

    struct Entry {
        unsigned int count = 0;
        unsigned int duration = 0;
    };
    // The samples [firstSample, endSample) of a range of media time, and the time at endSample.
    struct Span {
        unsigned long firstSample = 0;
        unsigned long endSample = 0;
        unsigned long endTime = 0;
    };

    explicit QtAtomSampleTime(BaseQtAtom const* parent);
    ~QtAtomSampleTime() override;

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    // Header, version and flags, entry count: 16 bytes with the usual header.
    unsigned int getFixedSize() const override { return getHeaderSize() + 8; }
    // The entries, or the room reserved for them when that is more (zeros on disk past the count).
    unsigned long getVariableSize() const override { return 8ul * std::max<size_t>(m_entries.size(), m_room); }
    void show() const override;

    QtAtomSampleTime* write() const { return static_cast<QtAtomSampleTime*>(BaseQtAtom::write()); }

    unsigned int getNumEntries() const { return static_cast<unsigned int>(m_entries.size()); }
    // The entry count the file gave when the atom could not hold that many (the table was then
    // emptied), else 0: lets a reader say why a track shows no samples.
    unsigned int getDamagedCount() const { return m_damagedCount; }
    Entry getEntry(unsigned int index) const { return index < m_entries.size() ? m_entries[index] : Entry(); }

    // The sample that plays at a media time, to the nearest sample (a half rounds up); past the end
    // the number of samples.
    unsigned long getSample(unsigned long time) const;
    // The decode time of a sample: the spans of the entries before it and the durations of the
    // samples before it in its own entry.
    unsigned long getSampleTime(unsigned long sample) const;
    Span getSpan(unsigned long startTime, unsigned long endTime) const;
    unsigned long getTotalSamples() const;
    // The duration of the entry with the most samples (the earlier on a tie); 1 without one.
    unsigned int getTicksPerSample() const;
    // Rescales a one-entry table to another duration; false for any other table.
    bool fixTicksPerSample(unsigned int ticks);
    // Makes the table describe `samples` samples of `ticks` each (entries of at most 2^32 - 1).
    void setFixedRate(unsigned long samples, unsigned int ticks);
    // Extends the table while recording (the recorder's rate is fixed, so durations are not compared).
    void addSamples(unsigned int count, unsigned int ticks);
    // Extends the table while recording samples whose durations may change: a new run starts when
    // `ticks` differs from the last run's duration (or the last run is full).
    void appendSamples(unsigned int count, unsigned int ticks);
    // Reserves room for `entries` runs, so that new runs do not change the atom's size; the size
    // follows at the next placement (recalcOffset).
    void setCapacity(unsigned int entries) { m_room = entries; }
    // Gives the last run another duration (a recorded track of one sample that lasts as long as the
    // movie, such as a timecode counter); false for an empty table.
    bool setLastDuration(unsigned int ticks) {
        if (m_entries.empty()) return false;
        m_entries.back().duration = ticks;
        return true;
    }
    unsigned int getCapacity() const { return static_cast<unsigned int>(std::max<size_t>(m_entries.size(), m_room)); }

private:
    static unsigned int spanOf(Entry const& entry) { return entry.count * entry.duration; }

    QtVersionAndFlags m_versionAndFlags;
    std::vector<Entry> m_entries;
    unsigned int m_damagedCount = 0;
    unsigned int m_room = 0;  // entries reserved on disk while recording
};
