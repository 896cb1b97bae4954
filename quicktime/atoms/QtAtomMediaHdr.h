// QtAtomMediaHdr: the media header ('mdhd'), one per 'mdia': the media's time scale, which sample
// tables and edit lists count in, its duration, dates, language and quality.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomMediaHdr : public BaseQtAtom, public QtTimeScaled {
  public:
    static constexpr unsigned int kBodySize = 24;

    explicit QtAtomMediaHdr(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    void show() const override;

    QtAtomMediaHdr* write() const { return static_cast<QtAtomMediaHdr*>(BaseQtAtom::write()); }
    QtAtomMediaHdr* nonConst() const { return static_cast<QtAtomMediaHdr*>(BaseQtAtom::nonConst()); }

    unsigned int getTimeScale() const override { return m_timeScale; }
    // A growing duration alone does not make the header dirty; a new time scale does.
    void set(unsigned int duration, unsigned int timeScale) const;
    // Creation and modification time become the current time.
    void setTimeNow() const;

    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    unsigned int getDuration() const { return m_duration; }
    uint16_t getLanguage() const { return m_language; }
    uint16_t getQuality() const { return m_quality; }
    uint32_t getCreationTime() const { return m_creationTime; }
    uint32_t getModificationTime() const { return m_modificationTime; }

  private:
    QtVersionAndFlags m_versionAndFlags;
    uint32_t m_creationTime = 0;      // seconds since 1904
    uint32_t m_modificationTime = 0;  // seconds since 1904
    uint32_t m_timeScale = 1;
    uint32_t m_duration = 0;  // media time scale
    uint16_t m_language = 0;
    uint16_t m_quality = 0;
};
