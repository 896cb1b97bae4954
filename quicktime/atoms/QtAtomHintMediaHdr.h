// QtAtomHintMediaHdr: the hint media header ('hmhd') of a hint track's 'minf': protocol data unit
// sizes and bit rates of the hinted stream.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomHintMediaHdr : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 20;

    explicit QtAtomHintMediaHdr(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    void show() const override;

    QtAtomHintMediaHdr* write() const { return static_cast<QtAtomHintMediaHdr*>(BaseQtAtom::write()); }

    QtVersionAndFlags const& getVersionAndFlags() const { return m_versionAndFlags; }
    uint16_t getMaxPduSize() const { return m_maxPduSize; }
    uint16_t getAvgPduSize() const { return m_avgPduSize; }
    uint32_t getMaxBitRate() const { return m_maxBitRate; }
    uint32_t getAvgBitRate() const { return m_avgBitRate; }
    uint32_t getSlidingAvgBitRate() const { return m_slidingAvgBitRate; }

  private:
    QtVersionAndFlags m_versionAndFlags;
    uint16_t m_maxPduSize = 0;
    uint16_t m_avgPduSize = 0;
    uint32_t m_maxBitRate = 0;
    uint32_t m_avgBitRate = 0;
    uint32_t m_slidingAvgBitRate = 0;
};
