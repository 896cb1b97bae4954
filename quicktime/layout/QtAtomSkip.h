// QtAtomSkip: a top-level 'skip' atom, the space a movie atom leaves behind when it moves. Its disk
// id is the type its header has on disk, which need not be 'skip': the old place of a relocated moov
// stays a 'moov' on disk (a skip whose disk id is moov) until the new copy is durable and the ids
// are switched. Only the header is ever rewritten; the contents stay on disk as they are.
//
// Threads: the disk id is read by the file layer's thread (through reservation events and
// reports) and changed by the tree's owner, so it is atomic; the desk guards itself.
#pragma once

#include <atomic>

#include "quicktime/atoms/QtAtomUnknown.h"
#include "quicktime/layout/ReservationDesk.h"

class QtAtomSkip : public QtAtomUnknown {
  public:
    static constexpr QtAtomIdType kSkipId = qtId("skip");

    // Read from a file: size 8 until decoded, disk id skip.
    explicit QtAtomSkip(BaseQtAtom const* parent);
    // A new skip outside any tree, at a given place.
    QtAtomSkip(QtAtomIdType diskId, unsigned long size, unsigned long fileOffset);
    // A new skip outside any tree that takes over the reservations of the atom it replaces.
    QtAtomSkip(QtAtomIdType diskId, unsigned long size, ReservationDesk& from);

    // The header only, with the disk id as its type.
    bool encode(QtAtomBuffer& buffer) const override;
    void closeFinal() const override;
    bool isReserved() const override;
    bool update(VirtualBase::Reservation const& reservation) const override;
    QtAtomIdType getDiskId() const override { return m_diskId.load(); }
    // The moov has taken its final place: a skip still showing 'moov' becomes 'skip' on disk.
    void resetDiskId() const override;
    unsigned int getEncodeSize() const override { return getFixedSize(); }
    void show() const override;

    ReservationDesk& getReservations() const { return m_reservations; }
    // Tells the desk where the atom is (it is kept in step by every placement and relink anyway).

  private:
    std::atomic<QtAtomIdType> m_diskId;
    mutable ReservationDesk m_reservations;
};
