// QtAtomTrakHdr: the track header ('tkhd'), one per 'trak': the track's ID, dates, duration in the
// movie time scale, layer, alternate group, volume, display matrix and size. The width and height
// are held as whole pixels, so a fraction stored in a file is dropped when the header is rewritten.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomTrakHdr : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 84;
    // Flag bits of the version-and-flags word.
    static constexpr uint32_t kEnabled = 0x1;
    static constexpr uint32_t kInMovie = 0x2;
    static constexpr uint32_t kInPreview = 0x4;
    static constexpr uint32_t kInPoster = 0x8;

    explicit QtAtomTrakHdr(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    bool hasEncodedChildren() const override { return sizeAllowsForChildren(); }
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    void show() const override;

    QtAtomTrakHdr* write() const { return static_cast<QtAtomTrakHdr*>(BaseQtAtom::write()); }

    // Width and height in whole pixels and the volume (8.8); dirty only when any of them changes.
    using BaseQtAtom::setSize;
    void setSize(unsigned int width, unsigned int height, unsigned int volume) const;
    void setDuration(unsigned int duration) const;
    // Takes the next track ID from the movie header above; 0 (and no change) without one.
    unsigned int allocTrackId() const;
    // Creation and modification time become the current time.
    void setTimeNow() const;

    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    unsigned int getTrackId() const { return m_trackId; }
    unsigned int getDuration() const { return m_duration; }
    unsigned int getWidth() const { return m_width; }
    unsigned int getHeight() const { return m_height; }
    uint16_t getVolume() const { return m_volume; }
    uint16_t getLayer() const { return m_layer; }
    uint16_t getAlternateGroup() const { return m_alternateGroup; }
    QtMatrix const& getMatrix() const { return m_matrix; }
    uint32_t getCreationTime() const { return m_creationTime; }
    uint32_t getModificationTime() const { return m_modificationTime; }
    // "enabled" or "disabled", then ",movie", ",preview", ",poster" for the bits that are set.
    AutoPtr<char> flagText() const;

  private:
    QtVersionAndFlags m_versionAndFlags{kEnabled | kInMovie | kInPreview | kInPoster};
    uint32_t m_creationTime = 0;      // seconds since 1904
    uint32_t m_modificationTime = 0;  // seconds since 1904
    uint32_t m_trackId = 0;
    uint32_t m_reserved1 = 0;
    uint32_t m_duration = 0;  // movie time scale
    QtReserved<8> m_reserved2;
    uint16_t m_layer = 0;
    uint16_t m_alternateGroup = 0;
    uint16_t m_volume = 0;  // 8.8
    uint16_t m_reserved3 = 0;
    QtMatrix m_matrix;
    uint32_t m_width = 0;   // whole pixels; 16.16 on disk
    uint32_t m_height = 0;  // whole pixels; 16.16 on disk
};
