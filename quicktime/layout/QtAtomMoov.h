// QtAtomMoov: the movie atom, rewritten again and again while a file is recorded. Besides being the
// container of the movie it keeps what the relocation protocol needs: the type its header has on
// disk (the disk id), the reservations on its bytes, where it was last completely written (the
// flushed offset) and its size then (the encoded size), and the reasons it needs room.
//
// The protocol keeps exactly one valid 'moov' header on disk at every moment. The states of one
// relocation, with the header types on disk of the old place (left) and the new copy (right):
//
//     in place          relocate()            flush() ... flushDone()     updateDiskId() + write
//   [moov]        ==>  [moov]  [skip]   ==>   [moov]  [skip, durable] ==> [skip]  [moov]
//   (QtAtomMoov)       (QtAtomSkip,            the owner sees the root's   the old place's skip
//                       disk id moov)          id-update-needed flag       is reset by resetDiskId
//                      (QtAtomMoov,
//                       disk id skip)
//
// Invariant: the new copy's header is switched to 'moov' only when the complete copy is durable at
// its current offset (flushed offset == file offset) and no write on it is outstanding
// (no reservations); only then is the old place's header switched to 'skip'.
//
// Threads: the owner of the tree calls everything except `flushDone`, which the root calls from the
// file layer's thread when a flush is done. flushDone touches only atomics (the flushed offset, the
// failure flag and the root's id-update-needed flag); the disk id is atomic because it reads it.
#pragma once

#include <atomic>

#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtTreeSize.h"
#include "quicktime/layout/ReservationDesk.h"

class QtAtomRoot;

class QtAtomMoov : public QtAtomHeader, public QtMovieContext {
  public:
    static constexpr QtAtomIdType kMoovId = qtId("moov");

    QtAtomMoov(BaseQtAtom const* parent, QtAtomIdType diskId);

    using QtAtomHeader::decode;
    // After the header: the place read is where the movie was last completely written.
    bool decode(QtAtomBuffer& buffer) override;
    // The header with the disk id as its type; records the size as the encoded size.
    bool encode(QtAtomBuffer& buffer) const override;
    void closeFinal() const override;
    bool isReserved() const override;
    bool update(VirtualBase::Reservation const& reservation) const override;
    QtAtomIdType getDiskId() const override { return m_diskId.load(); }
    void show() const override;

    // Written completely at its current place under a 'moov' header, and unchanged since.
    bool hasFinalForm() const;
    // The file layer has made the copy at `offset` durable (file layer's thread, or the owner's
    // when there was nothing to flush). A copy not yet showing 'moov' asks for updateDiskId.
    void flushDone(unsigned long offset) const;
    // The same, for the root's flush notice on the file layer's thread: the root is given, so
    // that the tree's links (which the owner may be changing) are not walked there.
    void flushDone(unsigned long offset, QtAtomRoot const& root) const;
    // A flush of this movie failed (file layer's thread): it is not final until flushed again.
    void flushFailed() const { m_flushFailed.store(true); }
    // Whether a flush failed since the last call (owner's thread, which then marks the movie changed).
    bool takeFlushFailure() const { return m_flushFailed.exchange(false); }
    // Switches the disk ids once the copy here is safe; false when it is not (yet).
    bool updateDiskId() const;
    // Moves the movie to the end of the file, leaving a skip (still a 'moov' on disk) in its place.
    // False when there is nothing to move.
    bool relocate() const;

    QtResizeReq getResizeNeeded() const override { return m_resizeNeeded; }
    void addResizeNeeded(QtResizeReq::Type type) const override { m_resizeNeeded.add(type); }
    void clearResizeNeeded() const { m_resizeNeeded.clear(); }
    ReservationDesk& getReservations() const { return m_reservations; }
    unsigned long getFlushedOffset() const { return m_flushedOffset.load(); }
    unsigned int getEncodedSize() const { return m_encodedSize; }

  private:
    mutable QtResizeReq m_resizeNeeded;  // bookkeeping for the owner, not a change of content
    std::atomic<QtAtomIdType> m_diskId;
    mutable ReservationDesk m_reservations;
    mutable std::atomic<unsigned long> m_flushedOffset{0};
    mutable unsigned int m_encodedSize = 0;  // bookkeeping of encode, not a change of content
    mutable std::atomic<bool> m_flushFailed{false};
};
