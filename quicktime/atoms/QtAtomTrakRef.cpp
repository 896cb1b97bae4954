#include "quicktime/atoms/QtAtomTrakRef.h"

#include <algorithm>
#include <string>

#include "framework/FormatStr.h"
#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomTrakRef::QtAtomTrakRef(BaseQtAtom const* parent) : BaseQtAtom(qtId("tref"), parent, 8) {}

QtAtomTrakRef::RefList* QtAtomTrakRef::findOrCreate(QtAtomIdType type) {
    for (RefList& list : m_lists)
        if (list.type == type) return &list;
    m_lists.push_back(RefList{type, {}});
    return &m_lists.back();
}

bool QtAtomTrakRef::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    m_lists.clear();
    // An entry's size is taken as it stands, but one that is below its own header or runs past the
    // atom ends the list: nothing after it can be trusted.
    while (QtAtomHelpers::bytesLeft(*this, buffer) >= kEntryHeaderSize) {
        unsigned int left = QtAtomHelpers::bytesLeft(*this, buffer);
        uint32_t entrySize = decodeUint32(buffer);
        QtAtomIdType type = decodeUint32(buffer);
        if (entrySize < kEntryHeaderSize || entrySize > left) break;
        RefList* list = findOrCreate(type);
        for (uint32_t idBytes = entrySize - kEntryHeaderSize; idBytes >= 4; idBytes -= 4)
            list->trackIds.push_back(decodeUint32(buffer));
        buffer.removeInput((entrySize - kEntryHeaderSize) % 4);
    }
    buffer.removeInput(QtAtomHelpers::bytesLeft(*this, buffer));
    return true;
}

bool QtAtomTrakRef::encode(QtAtomBuffer& buffer) const {
    unsigned int before = buffer.nOccupied();
    bool fits = QtAtomHelpers::fitsItsSize(*this, "tref");
    BaseQtAtom::encode(buffer);
    unsigned long room = QtAtomHelpers::roomAfter(*this, getFixedSize());
    for (RefList const& list : m_lists) {
        unsigned long entrySize = (list.trackIds.size() + 2) * 4;
        if (entrySize > room) break;  // only whole lists that fit the atom's size
        room -= entrySize;
        encode(buffer, static_cast<unsigned int>(entrySize));
        encode(buffer, list.type);
        for (uint32_t trackId : list.trackIds) encode(buffer, trackId);
    }
    QtAtomHelpers::padToSize(*this, buffer, before);
    return fits;
}

unsigned long QtAtomTrakRef::getVariableSize() const {
    unsigned long size = 0;
    for (RefList const& list : m_lists) size += (list.trackIds.size() + 2) * 4;
    return size;
}

QtAtomTrakRef::RefList const* QtAtomTrakRef::getRef(QtAtomIdType type, bool create) const {
    for (RefList const& list : m_lists)
        if (list.type == type) return &list;
    return create ? write()->findOrCreate(type) : nullptr;
}

QtAtomIdType QtAtomTrakRef::getType(unsigned int index) const {
    return index < m_lists.size() ? m_lists[index].type : 0;
}

bool QtAtomTrakRef::hasOpenSlots(QtAtomIdType type) const {
    RefList const* list = getRef(type, false);
    return list && std::find(list->trackIds.begin(), list->trackIds.end(), 0u) != list->trackIds.end();
}

void QtAtomTrakRef::addTrackId(QtAtomIdType type, uint32_t trackId) const {
    write()->findOrCreate(type)->trackIds.push_back(trackId);
}

void QtAtomTrakRef::addSlots(QtAtomIdType type, unsigned int count) const {
    RefList* list = write()->findOrCreate(type);
    list->trackIds.insert(list->trackIds.end(), count, 0u);
}

uint32_t QtAtomTrakRef::getQtTrackId(QtAtomIdType type, unsigned int index) const {
    RefList const* list = getRef(type, false);
    return list && index < list->trackIds.size() ? list->trackIds[index] : 0;
}

unsigned int QtAtomTrakRef::getNumTrackIds(QtAtomIdType type) const {
    RefList const* list = getRef(type, false);
    return list ? static_cast<unsigned int>(list->trackIds.size()) : 0;
}

void QtAtomTrakRef::show() const {
    std::string text;
    for (RefList const& list : m_lists) {
        if (!text.empty()) text += " ";
        text +=
            FormatStr("%s[%d]=", QtIdName(list.type).render(), static_cast<int>(list.trackIds.size())).get();
        char const* separator = "";
        for (uint32_t trackId : list.trackIds) {
            text += FormatStr("%s%d", separator, trackId).get();
            separator = ",";
        }
    }
    infoMsg("%s,%s\n", toString().get(), text.c_str());
}
