// The members of BaseQtAtom that every disk-backed table shares: giving an array its file,
// registering it with the root, accounting its memory, and the entry converters.
#include "framework/VirtualArrayBase.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtDebug.h"

bool BaseQtAtom::setBackingStore(VirtualArrayBase& array) const {
    if (array.isVirtual()) return true;
    QtRootContext const* root = findRootContext();
    if (!logIfFalse(root != nullptr, "setBackingStore", QT_UTIL_FILE, 1063)) return false;
    AutoRefPtr<BasicFileIO> file = root->getFp();
    if (!logIfFalse(static_cast<bool>(file), "setBackingStore", QT_UTIL_FILE, 1066)) return false;
    if (!logIfFalse(array.setBackingStore(file), "setBackingStore", QT_UTIL_FILE, 1068)) return false;
    // The root may not have been reachable when the table was built; its writes must reach the
    // reservation desk from now on.
    registerVirtualBase(array);
    adjustCache(TableBytes, static_cast<int32_t>(array.getStorageByteCount()));
    return true;
}

void BaseQtAtom::registerVirtualBase(VirtualBase& array) const {
    if (QtRootContext const* root = findRootContext()) root->addVirtualBase(array);
}

bool BaseQtAtom::reportTableBytes(VirtualBase::StorageChange const& change) const {
    return adjustCache(TableBytes, static_cast<int32_t>(change.delta));
}

unsigned int BaseQtAtom::ioPrepUint32(unsigned int const* source, unsigned int* destination, unsigned int count,
                                      int) {
    for (unsigned int i = 0; i < count; ++i) destination[i] = swap(source[i]);
    return count;
}

unsigned int BaseQtAtom::ioPrepUint64(unsigned long const* source, unsigned long* destination, unsigned int count,
                                      int) {
    for (unsigned int i = 0; i < count; ++i) destination[i] = swap(source[i]);
    return count;
}

unsigned int BaseQtAtom::ioPrepUint32Base1(unsigned int const* source, unsigned int* destination,
                                           unsigned int count, int direction) {
    for (unsigned int i = 0; i < count; ++i) {
        if (direction) {
            destination[i] = swap(source[i] + 1);
        } else {
            unsigned int value = swap(source[i]);
            destination[i] = value ? value - 1 : 0;
        }
    }
    return count;
}

unsigned int BaseQtAtom::ioPrepUint64Base1(unsigned long const* source, unsigned long* destination,
                                           unsigned int count, int direction) {
    for (unsigned int i = 0; i < count; ++i) {
        if (direction) {
            destination[i] = swap(source[i] + 1);
        } else {
            unsigned long value = swap(source[i]);
            destination[i] = value ? value - 1 : 0;
        }
    }
    return count;
}
