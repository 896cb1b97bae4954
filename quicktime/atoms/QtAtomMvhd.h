// QtAtomMvhd: the movie header ('mvhd'), one per 'moov'. It carries the movie's time scale, which
// track headers, edit lists and printouts use to read movie times, its duration, dates, preferred
// rate and volume, display matrix, preview, poster and selection, and the next free track ID.
// Only the 32-bit layout is read and written, whatever the version byte says.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomMvhd : public BaseQtAtom, public QtTimeScaled {
  public:
    static constexpr unsigned int kBodySize = 100;
    static constexpr unsigned int kDefaultTimeScale = 600;

    // A new header; a time scale of 0 gives the default 600.
    QtAtomMvhd(BaseQtAtom const* parent, unsigned int timeScale);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    bool hasEncodedChildren() const override { return sizeAllowsForChildren(); }
    bool needsAllData() const override { return false; }
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    void show() const override;

    QtAtomMvhd* write() const { return static_cast<QtAtomMvhd*>(BaseQtAtom::write()); }
    QtAtomMvhd* nonConst() const { return static_cast<QtAtomMvhd*>(BaseQtAtom::nonConst()); }

    unsigned int getTimeScale() const override { return m_timeScale; }
    // Creation and modification times as microseconds since 1970.
    int64_t getCreateTime() const { return fromMacTime(m_creationTime); }
    int64_t getModTime() const { return fromMacTime(m_modificationTime); }
    // Sets creation and modification time (microseconds since 1970); dirty only when either changes.
    void setTime(int64_t microseconds1970) const;
    // A growing duration alone does not make the header dirty; a new selection does.
    void set(unsigned int duration, unsigned int selectionTime, unsigned int selectionDuration) const;
    // Hands out the next track ID and counts it up.
    unsigned int allocTrackId() const;

    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    unsigned int getDuration() const { return m_duration; }
    unsigned int getNextTrackId() const { return m_nextTrackId; }
    uint32_t getPreferredRate() const { return m_preferredRate; }
    uint16_t getPreferredVolume() const { return m_preferredVolume; }
    QtMatrix const& getMatrix() const { return m_matrix; }
    unsigned int getSelectionTime() const { return m_selectionTime; }
    unsigned int getSelectionDuration() const { return m_selectionDuration; }

  private:
    QtVersionAndFlags m_versionAndFlags;
    uint32_t m_creationTime = 0;      // seconds since 1904
    uint32_t m_modificationTime = 0;  // seconds since 1904
    uint32_t m_timeScale;
    uint32_t m_duration = 0;
    uint32_t m_preferredRate = 0x00010000;  // 16.16
    uint16_t m_preferredVolume = 0x0100;    // 8.8
    QtReserved<10> m_reserved;
    QtMatrix m_matrix;
    uint32_t m_previewTime = 0;
    uint32_t m_previewDuration = 0;
    uint32_t m_posterTime = 0;
    uint32_t m_selectionTime = 0;
    uint32_t m_selectionDuration = 0;
    uint32_t m_currentTime = 0;
    uint32_t m_nextTrackId = 1;
};
