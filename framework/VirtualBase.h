// VirtualBase: the common base of the disk-backed arrays. It carries the reservation events that a
// disk-backed array (or the file layer writing on its behalf) announces for regions of the file
// being written in the background: a hold when the write starts, a release when it is done.
#pragma once

#include "framework/AutoPtr.h"

class BridgeAnchor;

class VirtualBase {
public:
    struct Reservation {
        unsigned long offset = 0;  // file offset of the region
        unsigned int size = 0;     // bytes
        bool release = false;      // false: the write starts (hold); true: it is done (release)

        // "{offset,size,hold}" or "{offset,size,release}".
        AutoPtr<char> toString() const;
    };

    virtual ~VirtualBase() = default;

    // The anchor through which reservation events are reported (installed by the root); may be null.
    void setReservationCallback(BridgeAnchor const* anchor) { m_reservationCallback = anchor; }
    BridgeAnchor const* reservationCallback() const { return m_reservationCallback; }

protected:
    // Reports one event through the installed anchor; false without one.
    bool announce(Reservation const& reservation) const;

private:
    BridgeAnchor const* m_reservationCallback = nullptr;
};
