#include "quicktime/atoms/QtAtomApertDimensions.h"

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomApertDimensions::QtAtomApertDimensions(BaseQtAtom const* parent, QtAtomIdType id)
    : BaseQtAtom(id, parent, 8 + kBodySize) {}

bool QtAtomApertDimensions::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_width = fractionOf(decodeUint32(buffer));
    m_height = fractionOf(decodeUint32(buffer));
    return true;
}

bool QtAtomApertDimensions::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_width.encoded4ByteValue());
    encode(buffer, m_height.encoded4ByteValue());
    return true;
}

void QtAtomApertDimensions::setDimensions(QtFraction const& width, QtFraction const& height) const {
    if (width == m_width && height == m_height) return;
    QtAtomApertDimensions* self = write();
    self->m_width = width;
    self->m_height = height;
}

void QtAtomApertDimensions::show() const {
    infoMsg("%s,%sx%s\n", QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(),
            m_width.toString().get(), m_height.toString().get());
}
