#include "quicktime/atoms/QtAtomValueTriple.h"

#include "framework/Messages.h"

QtAtomValueTriple::QtAtomValueTriple(BaseQtAtom const* parent)
    : BaseQtAtom(qtId("tkhd"), parent, 8 + kBodySize) {}

bool QtAtomValueTriple::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    for (uint32_t& value : m_values) value = decodeUint32(buffer);
    return true;
}

bool QtAtomValueTriple::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    for (uint32_t value : m_values) encode(buffer, value);
    return true;
}

void QtAtomValueTriple::setValues(uint32_t v1, uint32_t v2, uint32_t v3) const {
    if (v1 == m_values[0] && v2 == m_values[1] && v3 == m_values[2]) return;
    QtAtomValueTriple* self = static_cast<QtAtomValueTriple*>(write());
    self->m_values[0] = v1;
    self->m_values[1] = v2;
    self->m_values[2] = v3;
}

void QtAtomValueTriple::show() const {
    infoMsg("%s,v{1,2,3}=%d,%d,%d,\n", toString().get(), m_values[0], m_values[1], m_values[2]);
}
