// QtAtomMdat: the media data atom. Its body (the essence) is never read into memory and never
// moves: chunks are placed in it by offset, so a change of its file offset is a fault, reported and
// taken. Only the last atom of the file can grow, which is how recording makes room for chunks and
// how the movie that follows it is aligned.
#pragma once

#include "quicktime/atoms/QtAtomUnknown.h"
#include "quicktime/layout/ReservationDesk.h"

class QtAtomMdat : public QtAtomUnknown {
  public:
    static constexpr QtAtomIdType kMdatId = qtId("mdat");

    // A new mdat holding `dataSize` bytes, with a 16-byte header (64-bit size) so that it can grow
    // past 4 GiB without moving its data.
    QtAtomMdat(BaseQtAtom const* parent, unsigned long dataSize);

    bool isReserved() const override;
    bool update(VirtualBase::Reservation const& reservation) const override;
    void setSizeAndOffset(QtTreeSize const& size) const override;
    void setOffset(unsigned long offset) const override;

    // Where the data starts: after the header.
    unsigned long getDataOffset() const { return getFileOffset() + getHeaderSize(); }
    // Adds n bytes when this is the last top-level atom; false otherwise.
    bool grow(unsigned long n) const;

  private:
    void badMove(unsigned long newOffset) const;

    mutable ReservationDesk m_reservations;
};
