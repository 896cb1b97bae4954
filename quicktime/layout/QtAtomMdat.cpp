#include "quicktime/layout/QtAtomMdat.h"

#include "quicktime/layout/QtAtomRoot.h"

QtAtomMdat::QtAtomMdat(BaseQtAtom const* parent, unsigned long dataSize)
    : QtAtomUnknown(kMdatId, nullptr, dataSize + 16), m_reservations(*this) {
    setHeaderSize(16);
    if (parent) {
        // Linked after construction, under the root's structure lock when it is the top level, so
        // that a reservation event walking the top level never meets a half-linked atom.
        QtAtomRoot const* root = QtAtomRoot::of(parent);
        if (root && parent == root) {
            SorvanPosix::ScopeLock lock(root->getStructureMutex());
            parent->appendChild(this);
        } else {
            parent->appendChild(this);
        }
    }
}

bool QtAtomMdat::isReserved() const { return m_reservations.isReserved(); }

bool QtAtomMdat::update(VirtualBase::Reservation const& reservation) const {
    return m_reservations.update(reservation);
}

void QtAtomMdat::badMove(unsigned long newOffset) const {
    errorMsg("%s:%s offset change %ld->%ld\n", getMoviePath(), getAtomPath().get(),
             static_cast<long>(getFileOffset()), static_cast<long>(newOffset));
}

void QtAtomMdat::setSizeAndOffset(QtTreeSize const& size) const {
    if (getSize() != 0 && size.offset != getFileOffset()) badMove(size.offset);
    QtAtomUnknown::setSizeAndOffset(size);
}

void QtAtomMdat::setOffset(unsigned long offset) const {
    if (getSize() != 0 && offset != getFileOffset()) badMove(offset);
    QtAtomUnknown::setOffset(offset);
}

bool QtAtomMdat::grow(unsigned long n) const {
    QtAtomRoot const* root = QtAtomRoot::of(this);
    if (getSibling() || !root || getParent() != root) return false;
    setSize(getSize() + n);
    return true;
}
