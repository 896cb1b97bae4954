// QtAtomEditList: the edit list ('elst', inside 'trak'.'edts'). Each edit shows a stretch of the
// media, starting at a media time and played at a rate, for a duration in movie time; an empty
// edit shows nothing for its duration. The atom keeps zero-filled room for edits beyond those in
// use (its capacity), so that edits can be added while a file grows without moving what follows;
// its size always covers the whole capacity. The class also maps media sample numbers to the
// sample numbers of the edited presentation, once calcMedia() has turned the edits into samples
// through the track's time-to-sample table ('stts').
#pragma once

#include <cstdint>
#include <vector>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomSampleTime;

class QtAtomEditList : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 8;  // version and flags, edit count
    static constexpr unsigned int kEntrySize = 12;
    static constexpr uint32_t kEmptyMediaTime = 0xFFFFFFFF;
    static constexpr uint32_t kNormalRate = 0x00010000;  // 1.0 in 16.16

    struct Edit {
        uint32_t mediaTime = 0;      // media time scale; 0 for an empty edit
        uint32_t trackDuration = 0;  // movie time scale
        uint32_t mediaRate = kNormalRate;
        // Derived by calcMedia():
        uint32_t offset = 0;       // media units: the span's end time less the edit's start sample time
        uint32_t firstSample = 0;  // first media sample shown
        uint32_t numSamples = 0;   // media samples the edit spans
        bool empty = false;
    };

    // Where a presentation position falls: in which edit, at which media position, how far the
    // run goes, and how far it is to the edit's end.
    struct Phys {
        unsigned int index = 0;
        unsigned long first = 0;
        unsigned long end = 0;
        unsigned long remain = 0;
        bool empty = false;
    };

    // A new list of `edits` default edits with room for two more.
    QtAtomEditList(BaseQtAtom const* parent, unsigned int edits);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    unsigned long getVariableSize() const override {
        return static_cast<unsigned long>(m_capacity) * kEntrySize;
    }
    void show() const override;

    QtAtomEditList* write() const { return static_cast<QtAtomEditList*>(BaseQtAtom::write()); }

    Edit& operator[](unsigned int index) { return m_edits[index]; }
    Edit const& operator[](unsigned int index) const { return m_edits[index]; }
    unsigned int getNumEdits() const { return static_cast<unsigned int>(m_edits.size()); }
    unsigned int getCapacity() const { return m_capacity; }
    bool isMediaCalculated() const { return m_mediaCalculated; }
    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    unsigned int getMediaOffset() const { return m_mediaOffset; }
    void setMediaOffset(unsigned int offset) const { write()->m_mediaOffset = offset; }

    // Sets the number of edits in use (new ones default) when it fits the capacity. Otherwise
    // nothing changes and the movie is told that the list needs room; false then.
    bool resize(unsigned int edits) const;
    // Room for many more edits: ten times the edits in use above 10, else 100. The atom's size
    // follows when the owner recomputes it.
    unsigned int addCapacity() const;

    // Derives the sample fields of every edit from the track's media and time-to-sample table;
    // nothing changes when they are missing, or when the fields are already derived and `force`
    // is false.
    void calcMedia(bool force) const;
    // The same, from given time scales and time-to-sample table.
    void calcMedia(unsigned int mediaTimeScale, unsigned int movieTimeScale,
                   QtAtomSampleTime const& stts) const;

    // The presentation sample at which a media sample is shown.
    unsigned long physicalToVirtualSample(unsigned long sample) const;
    // The media samples shown from presentation position `time` for up to `count` samples.
    Phys getSpan(unsigned long time, unsigned int count) const;

    // The track's time-to-sample table, found from the edit list through the track's media; null
    // when the track has none.
    QtAtomSampleTime const* findSampleTime() const;

  private:
    QtVersionAndFlags m_versionAndFlags;
    std::vector<Edit> m_edits;
    bool m_mediaCalculated = true;
    uint32_t m_capacity;         // 12-byte slots covered by the atom
    uint32_t m_mediaOffset = 0;  // added to media positions by getSpan
};
