// QtAtomValueTriple: an atom of three 32-bit values followed by child atoms, the common form of
// 'sean' (QtAtomSean) and 'm12v' (QtAtomM12v). A new one carries the values 1, 2, 0 and, until its
// id is set or decoded from a file, the id 'tkhd'.
#pragma once

#include <cstdint>

#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomValueTriple : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 12;

    explicit QtAtomValueTriple(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    bool hasEncodedChildren() const override { return true; }
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    void show() const override;

    uint32_t getValue(unsigned int index) const { return index < 3 ? m_values[index] : 0; }
    void setValues(uint32_t v1, uint32_t v2, uint32_t v3) const;

  private:
    uint32_t m_values[3] = {1, 2, 0};
};
