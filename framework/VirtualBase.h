// VirtualBase: the common base of the disk-backed arrays, and the face they show to the owner of
// many of them (the root of a movie file): flush, close a reader's cache, memory held. It carries the
// two events an array reports to its owners: a reservation for every region of the file it writes
// (a hold when the write starts, a release when it is done), and each change of its cache memory.
//
// Threads: both callbacks are invoked on the thread that changes the array (its owner), never on a
// reader's thread. The anchors are installed before the array is used and outlive it.
#pragma once

#include "framework/AutoPtr.h"

class BridgeAnchor;
class FileIoClientRec;

class VirtualBase {
public:
    struct Reservation {
        unsigned long offset = 0;  // file offset of the region
        unsigned int size = 0;     // bytes
        bool release = false;      // false: the write starts (hold); true: it is done (release)

        // "{offset,size,hold}" or "{offset,size,release}".
        AutoPtr<char> toString() const;
    };

    // A change of the memory an array holds for its cache, in bytes (negative when it shrinks).
    struct StorageChange {
        VirtualBase const* array = nullptr;
        long delta = 0;
    };

    virtual ~VirtualBase() = default;

    // The anchor through which reservation events are reported (installed by the root); may be null.
    void setReservationCallback(BridgeAnchor const* anchor) { m_reservationCallback = anchor; }
    BridgeAnchor const* reservationCallback() const { return m_reservationCallback; }
    // The anchor through which changes of cache memory are reported (installed by the owner that
    // accounts for it); may be null.
    void setStorageCallback(BridgeAnchor const* anchor) { m_storageCallback = anchor; }
    BridgeAnchor const* storageCallback() const { return m_storageCallback; }

    // Whether the elements live in a file (true) or only in memory.
    virtual bool isVirtual() const { return false; }
    // Bytes of memory held now for the elements or their cache.
    virtual unsigned long getStorageByteCount() const { return 0; }
    // Writes everything changed in memory to the file; false when a write failed.
    virtual bool flush() { return true; }
    // Releases the cache kept for one reader (its agent); a null agent means the owner's own cache.
    virtual void close(FileIoClientRec* agent) { (void)agent; }

protected:
    // Reports one event through the installed anchor; false without one.
    bool announce(Reservation const& reservation) const;
    // Reports a change of cache memory through the installed anchor; false without one.
    bool reportStorage(long delta) const;

private:
    BridgeAnchor const* m_reservationCallback = nullptr;
    BridgeAnchor const* m_storageCallback = nullptr;
};
