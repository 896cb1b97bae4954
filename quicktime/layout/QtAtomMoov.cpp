#include "quicktime/layout/QtAtomMoov.h"

#include <algorithm>

#include "quicktime/atoms/QtDebug.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtAtomSkip.h"

QtAtomMoov::QtAtomMoov(BaseQtAtom const* parent, QtAtomIdType diskId)
    : QtAtomHeader(kMoovId, parent), m_diskId(diskId), m_reservations(*this) {}

bool QtAtomMoov::decode(QtAtomBuffer& buffer) {
    bool ok = QtAtomHeader::decode(buffer);
    m_flushedOffset.store(getFileOffset());
    m_encodedSize = static_cast<unsigned int>(getSize());
    return ok;
}

bool QtAtomMoov::encode(QtAtomBuffer& buffer) const {
    m_encodedSize = static_cast<unsigned int>(getSize());
    unsigned int start = buffer.nOccupied();
    bool ok = QtAtomHeader::encode(buffer);
    // The type field follows the 32-bit size in both header forms (unless the header was refused).
    if (buffer.nOccupied() >= start + 8) {
        unsigned char* header = buffer.ptrData() + start;
        QtAtomIdType diskId = m_diskId.load();
        for (int i = 0; i < 4; ++i) header[4 + i] = static_cast<unsigned char>(diskId >> (24 - 8 * i));
    }
    return ok;
}

void QtAtomMoov::closeFinal() const { m_reservations.close(); }

bool QtAtomMoov::isReserved() const { return m_reservations.isReserved(); }

bool QtAtomMoov::update(VirtualBase::Reservation const& reservation) const {
    return m_reservations.update(reservation);
}

void QtAtomMoov::show() const {
    infoMsg("%s,disk id=%s,%d reservations\n", toString().get(), QtIdName(m_diskId.load()).render(),
            static_cast<int>(m_reservations.size()));
}

bool QtAtomMoov::hasFinalForm() const {
    return getFileOffset() == m_flushedOffset.load() && m_diskId.load() == kMoovId && !isDirty() &&
           !m_flushFailed.load();
}

void QtAtomMoov::flushDone(unsigned long offset) const {
    if (QtAtomRoot const* root = QtAtomRoot::of(this))
        flushDone(offset, *root);
    else
        m_flushedOffset.store(offset);
}

void QtAtomMoov::flushDone(unsigned long offset, QtAtomRoot const& root) const {
    m_flushedOffset.store(offset);
    if (m_diskId.load() != kMoovId) root.setIdUpdateNeeded(true);
}

bool QtAtomMoov::updateDiskId() const {
    if (isReserved() || m_diskId.load() == kMoovId) return false;
    QtAtomRoot const* root = QtAtomRoot::of(this);
    // A queued flush of this movie still carries the header it had when it was encoded: switching
    // now would let the old copy lose its 'moov' header before the new one is on disk.
    if (root && root->isFlushPending(this)) {
        if (quicktimeDbg.on(QtDbgReservations))
            debugMsg("%s: update from 'skip' to 'moov' @%ld waits for a queued flush\n", getMoviePath(),
                     static_cast<long>(getFileOffset()));
        return false;
    }
    if (getFileOffset() != m_flushedOffset.load()) {
        if (quicktimeDbg.on(QtDbgReservations))
            debugMsg("%s: update from 'skip' to 'moov' @%ld not ready\n", getMoviePath(),
                     static_cast<long>(getFileOffset()));
        return false;
    }
    if (quicktimeDbg.on(QtDbgReservations))
        debugMsg("moov(%s)@%p ==> moov@%ld\n", QtIdName(m_diskId.load()).render(),
                 static_cast<void const*>(this), static_cast<long>(getFileOffset()));
    static_cast<QtAtomMoov*>(write())->m_diskId.store(kMoovId);
    if (root) {
        for (BaseQtAtom const* atom = root->getChild(); atom; atom = atom->getSibling()) atom->resetDiskId();
        root->setIdUpdateNeeded(false);
    }
    return true;
}

bool QtAtomMoov::relocate() const {
    QtAtomRoot const* root = QtAtomRoot::of(this);
    if (!root || getParent() != root) return false;
    BaseQtAtom const* next = getSibling();
    // The last atom of the file leaves behind what it wrote there. Disk-backed tables write at their
    // place as soon as a placement gives it to them, before the movie is next encoded: then that is
    // the whole current size, and a skip over less would let the new place overlap the old tables.
    unsigned int room = next ? static_cast<unsigned int>(next->getFileOffset() - getFileOffset()) : m_encodedSize;
    if (!next && root->hasVirtualChildren()) room = std::max(room, static_cast<unsigned int>(getSize()));
    if (room == 0) return false;
    QtAtomIdType leftBehind = m_diskId.load() == QtAtomSkip::kSkipId ? QtAtomSkip::kSkipId : kMoovId;
    QtAtomSkip* skip = nullptr;
    {
        SorvanPosix::ScopeLock lock(root->getStructureMutex());
        unsigned int alignment = root->getDiskAlignment();
        if (next && alignment != 0 && next->getDiskId() == QtAtomMdat::kMdatId) {
            unsigned long end = next->getFileOffset() + next->getSize();
            auto const* mdat = dynamic_cast<QtAtomMdat const*>(next);
            if (end % alignment != 0 && mdat) mdat->grow(alignment - end % alignment);
        }
        skip = new QtAtomSkip(leftBehind, room, m_reservations);
        appendSibling(skip);
        removeSelf(false);  // the skip takes over the movie's offset
        root->appendChild(this);
        static_cast<QtAtomMoov*>(write())->m_diskId.store(QtAtomSkip::kSkipId);
    }
    if (quicktimeDbg.on(QtDbgReservations))
        debugMsg("%s: add skip(as %s)@%ld, relocate moov(as skip)@%ld\n", getMoviePath(),
                 QtIdName(leftBehind).render(), static_cast<long>(skip->getFileOffset()),
                 static_cast<long>(getFileOffset()));
    return true;
}
