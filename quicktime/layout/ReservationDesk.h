// ReservationDesk: the list of outstanding background writes (reservations) that fall on one
// top-level atom's bytes. While any is held the atom must not be overwritten, moved or merged: the
// old moov that readers may still use, or a skip holding a moov being flushed, stays in place until
// its reservations are gone. Moov, skip and mdat atoms each carry one.
//
// Threads: `update` runs on the file layer's thread (through the root's reservation anchor); the
// rest runs on the thread that owns the tree. The desk's mutex guards the list and the atom's place
// (offset and size) as last told by `setPlace`: the atom tells its desk on the owner's thread at
// every change of either (decode, placement, resize and every relink of the tree), so that the file
// thread never reads the atom's own fields while the owner changes them, and the desk never
// answers for bytes the atom has left.
#pragma once

#include <vector>

#include "framework/AutoPtr.h"
#include "framework/SorvanPosix.h"
#include "framework/VirtualBase.h"
#include "quicktime/atoms/QtAtomContext.h"

class BaseQtAtom;

class ReservationDesk : public QtPlaceWatcher {
  public:
    // An empty desk of an atom (not owned).
    explicit ReservationDesk(BaseQtAtom const& atom);
    // A desk that takes over every reservation of another atom's desk, which is left empty (used
    // when an atom replaces another on disk).
    ReservationDesk(BaseQtAtom const& atom, ReservationDesk& from);
    virtual ~ReservationDesk();
    ReservationDesk(ReservationDesk const&) = delete;
    ReservationDesk& operator=(ReservationDesk const&) = delete;

    // Offers a reservation event; true when this atom claims it (its range overlaps the atom, or
    // the atom is a moov and the event lies past its start).
    bool update(VirtualBase::Reservation const& reservation);
    // Drops every reservation (the atom is final), reporting what was dropped.
    void close();
    void clear();
    unsigned int size() const;
    bool isReserved() const { return size() > 0; }
    // "<empty>", or each reservation's text joined by ",".
    AutoPtr<char> toString() const;

    // Records the atom's place as the file thread is to see it (called by the atom).
    void setPlace(unsigned long offset, unsigned long size) override;

  private:
    AutoPtr<char> listText() const;  // toString without taking the mutex

    mutable SorvanPosix::JMutex m_mutex;
    std::vector<VirtualBase::Reservation> m_held;  // in order of arrival
    BaseQtAtom const& m_atom;
    unsigned long m_offset = 0;
    unsigned long m_size = 0;
};
