#include "quicktime/layout/QtAtomSkip.h"

#include "quicktime/atoms/QtDebug.h"

QtAtomSkip::QtAtomSkip(BaseQtAtom const* parent)
    : QtAtomUnknown(kSkipId, parent, 8), m_diskId(kSkipId), m_reservations(*this) {}

QtAtomSkip::QtAtomSkip(QtAtomIdType diskId, unsigned long size, unsigned long fileOffset)
    : QtAtomUnknown(kSkipId, nullptr, size), m_diskId(diskId), m_reservations(*this) {
    BaseQtAtom::setOffset(fileOffset);
}

QtAtomSkip::QtAtomSkip(QtAtomIdType diskId, unsigned long size, ReservationDesk& from)
    : QtAtomUnknown(kSkipId, nullptr, size), m_diskId(diskId), m_reservations(*this, from) {}

bool QtAtomSkip::encode(QtAtomBuffer& buffer) const {
    unsigned int start = buffer.nOccupied();
    bool whole = QtAtomUnknown::encode(buffer);
    // The type field follows the 32-bit size in both header forms (unless the header was refused).
    if (buffer.nOccupied() >= start + 8) {
        unsigned char* header = buffer.ptrData() + start;
        QtAtomIdType diskId = m_diskId.load();
        for (int i = 0; i < 4; ++i) header[4 + i] = static_cast<unsigned char>(diskId >> (24 - 8 * i));
    }
    return whole;
}

void QtAtomSkip::closeFinal() const { m_reservations.close(); }

bool QtAtomSkip::isReserved() const { return m_reservations.isReserved(); }

bool QtAtomSkip::update(VirtualBase::Reservation const& reservation) const {
    return m_reservations.update(reservation);
}

void QtAtomSkip::resetDiskId() const {
    if (m_diskId.load() == kSkipId) return;
    if (isReserved())
        warningMsg("%s: skip ==> moov, but still reserved: %s\n", getMoviePath(),
                   m_reservations.toString().get());
    if (quicktimeDbg.on(QtDbgReservations))
        debugMsg("skip(%s)@%p ==> skip\n", QtIdName(m_diskId.load()).render(), this);
    QtAtomSkip* self = static_cast<QtAtomSkip*>(write());
    self->m_diskId.store(kSkipId);
}

void QtAtomSkip::show() const {
    infoMsg("%s,disk id=%s,%d reservations\n", toString().get(), QtIdName(m_diskId.load()).render(),
            static_cast<int>(m_reservations.size()));
}
