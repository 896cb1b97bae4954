#include "quicktime/atoms/QtAtomFileType.h"

#include <string>

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomFileType::QtAtomFileType(BaseQtAtom const* parent) : BaseQtAtom(qtId("ftyp"), parent, 8 + kBodySize) {}

bool QtAtomFileType::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_majorBrand = decodeUint32(buffer);
    m_minorVersion = decodeUint32(buffer);
    m_compatibleBrands.clear();
    // Whole brands only: a few odd bytes at the end of the atom are skipped.
    while (QtAtomHelpers::bytesLeft(*this, buffer) >= 4) m_compatibleBrands.push_back(decodeUint32(buffer));
    buffer.removeInput(QtAtomHelpers::bytesLeft(*this, buffer));
    return true;
}

bool QtAtomFileType::encode(QtAtomBuffer& buffer) const {
    unsigned int before = buffer.nOccupied();
    bool fits = QtAtomHelpers::fitsItsSize(*this, "ftyp");
    BaseQtAtom::encode(buffer);
    encode(buffer, m_majorBrand);
    encode(buffer, m_minorVersion);
    unsigned long count = QtAtomHelpers::entriesThatFit(*this, m_compatibleBrands.size(), 4);
    for (unsigned long i = 0; i < count; ++i) encode(buffer, m_compatibleBrands[i]);
    QtAtomHelpers::padToSize(*this, buffer, before);
    return fits;
}

void QtAtomFileType::setBrands(QtAtomIdType majorBrand, uint32_t minorVersion,
                               std::vector<QtAtomIdType> const& compatible) const {
    QtAtomFileType* self = write();
    self->m_majorBrand = majorBrand;
    self->m_minorVersion = minorVersion;
    self->m_compatibleBrands = compatible;
}

void QtAtomFileType::show() const {
    std::string brands;
    for (QtAtomIdType brand : m_compatibleBrands) {
        if (!brands.empty()) brands += ",";
        brands += QtIdName(brand).render();
    }
    infoMsg("%s,major_brand=%s,minor_version=0x%x,compatible_brands={%s}\n", toString().get(),
            QtIdName(m_majorBrand).render(), m_minorVersion, brands.c_str());
}
