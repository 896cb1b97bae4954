// QtAtomBaseInf: the base media information ('gmin', inside 'gmhd') of tracks such as timecode
// whose media has no header of its own kind: graphics mode, its colour and the sound balance.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomBaseInf : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 16;
    static constexpr uint16_t kDefaultGraphicsMode = 0x40;
    static constexpr uint16_t kDefaultOpcolor = 0x8000;

    explicit QtAtomBaseInf(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    void show() const override;

    QtAtomBaseInf* write() const { return static_cast<QtAtomBaseInf*>(BaseQtAtom::write()); }

    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    uint16_t getGraphicsMode() const { return m_graphicsMode; }
    QtColor const& getOpcolor() const { return m_opcolor; }
    uint16_t getBalance() const { return m_balance; }

  private:
    QtVersionAndFlags m_versionAndFlags;
    uint16_t m_graphicsMode = kDefaultGraphicsMode;
    QtColor m_opcolor{kDefaultOpcolor, kDefaultOpcolor, kDefaultOpcolor};
    uint16_t m_balance = 0;
    uint16_t m_reserved = 0;
};
