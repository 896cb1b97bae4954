// QtAtomSoundInf: the sound media information header ('smhd') of a sound track's 'minf': the
// stereo balance.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomSoundInf : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 8;

    explicit QtAtomSoundInf(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    void show() const override;

    QtAtomSoundInf* write() const { return static_cast<QtAtomSoundInf*>(BaseQtAtom::write()); }

    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    uint16_t getBalance() const { return m_balance; }

  private:
    QtVersionAndFlags m_versionAndFlags;
    uint16_t m_balance = 0;
    uint16_t m_reserved = 0;
};
