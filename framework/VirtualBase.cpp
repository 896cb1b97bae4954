#include "framework/VirtualBase.h"

#include "framework/BridgeAnchor.h"
#include "framework/FormatStr.h"

AutoPtr<char> VirtualBase::Reservation::toString() const {
    return FormatStr("{%lu,%u,%s}", offset, size, release ? "release" : "hold");
}

bool VirtualBase::announce(Reservation const& reservation) const {
    return m_reservationCallback && m_reservationCallback->call(reservation);
}

bool VirtualBase::reportStorage(long delta) const {
    if (!m_storageCallback || delta == 0) return false;
    return m_storageCallback->call(StorageChange{this, delta});
}
