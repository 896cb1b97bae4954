// QtAtomVideoInf: the video media information header ('vmhd') of a video track's 'minf': the
// graphics transfer mode and its colour. Flag bit 0x1 is set in headers written by this library;
// one without it is printed as "lean".
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomVideoInf : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 12;
    static constexpr uint16_t kDefaultGraphicsMode = 0x40;
    static constexpr uint16_t kDefaultOpcolor = 0x8000;

    explicit QtAtomVideoInf(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    void show() const override;

    QtAtomVideoInf* write() const { return static_cast<QtAtomVideoInf*>(BaseQtAtom::write()); }

    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    uint16_t getGraphicsMode() const { return m_graphicsMode; }
    QtColor const& getOpcolor() const { return m_opcolor; }

  private:
    QtVersionAndFlags m_versionAndFlags{1};
    uint16_t m_graphicsMode = kDefaultGraphicsMode;
    QtColor m_opcolor{kDefaultOpcolor, kDefaultOpcolor, kDefaultOpcolor};
};
