// QtTextSampleDesc: the entry of a text track (handler subtype "text"): display flags,
// justification, colours, the default text box, font and face, and optionally the font name.
// Bytes after the font name (such as a font table atom) are kept as read.
#pragma once

#include <cstdint>

#include "quicktime/atoms/QtFields.h"
#include "quicktime/descriptions/QtSampleDesc.h"

class QtTextSampleDesc : public QtSampleDesc {
public:
    // Header and every field before the font name.
    static constexpr unsigned int kFieldsSize = 59;

    QtTextSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex);
    ~QtTextSampleDesc() override;

    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    void show(unsigned int indent) const override;

    uint32_t getDisplayFlags() const { return m_displayFlags; }
    uint32_t getJustification() const { return m_justification; }
    unsigned short getFontNumber() const { return m_fontNumber; }
    unsigned short getFontFace() const { return static_cast<unsigned short>(m_fontFace & 0xFFFF); }
    // Null when the description holds no font name.
    char const* getFontName() const { return m_fontName; }

private:
    uint32_t m_displayFlags = 0;
    uint32_t m_justification = 0;
    QtColor m_backgroundColor;
    QtRect m_defaultTextBox;
    QtReserved<8> m_reserved8;
    unsigned short m_fontNumber = 0;
    uint32_t m_fontFace = 0;  // written as its low 16 bits
    QtReserved<3> m_reserved3;
    QtColor m_foregroundColor;
    char* m_fontName = nullptr;  // owned
};
