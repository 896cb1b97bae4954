#include "quicktime/refs/QtAtomRefBase.h"

#include <algorithm>

#include "framework/Messages.h"

QtAtomRefBase::QtAtomRefBase(QtAtomIdType type, BaseQtAtom const* parent) : BaseQtAtom(type, parent, 12) {}

bool QtAtomRefBase::decode(QtAtomBuffer& buffer) {
    bool ok = BaseQtAtom::decode(buffer);
    if (buffer.nOccupied() < 4) return false;
    m_versionAndFlags.decode(buffer);
    return ok;
}

bool QtAtomRefBase::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    return true;
}

void QtAtomRefBase::show() const { infoMsg("%s\n", toString().get()); }

void QtAtomRefBase::setFlags(unsigned int flags) const {
    if (flags != m_versionAndFlags.flags)
        static_cast<QtAtomRefBase*>(write())->m_versionAndFlags.flags = flags;
}

unsigned int QtAtomRefBase::bodyBytesLeft(QtAtomBuffer const& buffer) const {
    unsigned long body = getSize() > getFixedSize() ? getSize() - getFixedSize() : 0;
    return static_cast<unsigned int>(std::min<unsigned long>(body, buffer.nOccupied()));
}
