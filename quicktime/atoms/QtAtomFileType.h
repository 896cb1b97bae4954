// QtAtomFileType: the file type atom ('ftyp') at the start of a file: the major brand the file
// conforms to, its minor version, and the compatible brands, which run to the end of the atom.
#pragma once

#include <cstdint>
#include <vector>

#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomFileType : public BaseQtAtom {
  public:
    static constexpr unsigned int kBodySize = 8;

    explicit QtAtomFileType(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + kBodySize; }
    unsigned long getVariableSize() const override { return m_compatibleBrands.size() * 4; }
    void show() const override;

    QtAtomFileType* write() const { return static_cast<QtAtomFileType*>(BaseQtAtom::write()); }

    QtAtomIdType getMajorBrand() const { return m_majorBrand; }
    uint32_t getMinorVersion() const { return m_minorVersion; }
    std::vector<QtAtomIdType> const& getCompatibleBrands() const { return m_compatibleBrands; }
    void setBrands(QtAtomIdType majorBrand, uint32_t minorVersion,
                   std::vector<QtAtomIdType> const& compatible) const;

  private:
    QtAtomIdType m_majorBrand = 0;
    uint32_t m_minorVersion = 0;
    std::vector<QtAtomIdType> m_compatibleBrands;
};
