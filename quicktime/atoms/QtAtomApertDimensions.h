// QtAtomApertDimensions: one of the track aperture dimensions inside 'tapt': clean aperture
// ('clef'), production aperture ('prof') or encoded pixels ('enof'), each a width and a height.
// A stored value v is read as the fraction (v >> 16) / (v & 0xFFFF) and written back as
// numerator << 16 | denominator, so a plain 16.16 number such as 0x02D00000 (720.0) reads as 720/1
// and is written back as 0x02D00001. The asymmetry is deliberate and kept; values in the written
// form read back unchanged.
#pragma once

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomApertDimensions : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 12;

    QtAtomApertDimensions(BaseQtAtom const* parent, QtAtomIdType id);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    void show() const override;

    QtAtomApertDimensions* write() const { return static_cast<QtAtomApertDimensions*>(BaseQtAtom::write()); }

    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    QtFraction const& getWidth() const { return m_width; }
    QtFraction const& getHeight() const { return m_height; }
    void setDimensions(QtFraction const& width, QtFraction const& height) const;

    // The fraction a stored 32-bit value stands for.
    static QtFraction fractionOf(uint32_t stored) { return QtFraction(stored >> 16, stored & 0xFFFF); }

  private:
    QtVersionAndFlags m_versionAndFlags;
    QtFraction m_width;
    QtFraction m_height;
};
