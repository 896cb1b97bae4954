// QtAtomTimecodeInf: the timecode media information ('tcmi', inside 'gmhd'.'tmcd'): how a timecode
// track is displayed (font, face, size, text and background colours and the font name). The name,
// a Pascal string, follows a 16-bit value that is kept as it stands.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomTimecodeInf : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 24;
    static constexpr uint16_t kDefaultTextSize = 12;
    static constexpr uint16_t kDefaultTrailer = 255;

    // A new header with an empty font name: 33 bytes.
    explicit QtAtomTimecodeInf(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    // Never writes past the atom's own size: a name longer than the room the size leaves is cut,
    // and a shorter one is followed by zero bytes.
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    unsigned long getVariableSize() const override { return m_fontName.encodeSize(); }
    void show() const override;

    QtAtomTimecodeInf* write() const { return static_cast<QtAtomTimecodeInf*>(BaseQtAtom::write()); }

    void setFontName(char const* name) const;
    QtPascalString const& getFontName() const { return m_fontName; }
    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    uint16_t getTextFont() const { return m_textFont; }
    uint32_t getTextFace() const { return m_textFace; }
    uint16_t getTextSize() const { return m_textSize; }
    QtColor const& getTextColor() const { return m_textColor; }
    QtColor const& getBackgroundColor() const { return m_backgroundColor; }
    uint16_t getTrailer() const { return m_trailer; }

  private:
    QtVersionAndFlags m_versionAndFlags;
    uint16_t m_textFont = 0;
    uint32_t m_textFace = 0;  // written as its low 16 bits
    uint16_t m_textSize = kDefaultTextSize;
    QtColor m_textColor;
    QtColor m_backgroundColor;
    uint16_t m_trailer = kDefaultTrailer;  // the 16-bit value before the name, kept as it stands
    QtPascalString m_fontName;
};
