// QtAtomTrakRef: the track references ('tref') of a track: for each reference type (for example
// 'tmcd', the timecode track of a video track) the IDs of the referenced tracks. An ID of 0 is an
// open slot that a recorder reserves and fills in once the referenced track exists.
#pragma once

#include <cstdint>
#include <vector>

#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomTrakRef : public BaseQtAtom {
  public:
    static constexpr unsigned int kEntryHeaderSize = 8;  // entry size and reference type

    struct RefList {
        QtAtomIdType type = 0;
        std::vector<uint32_t> trackIds;
    };

    explicit QtAtomTrakRef(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    using BaseQtAtom::encode;
    // Entries of the same type are merged into one list.
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    unsigned long getVariableSize() const override;
    void show() const override;

    QtAtomTrakRef* write() const { return static_cast<QtAtomTrakRef*>(BaseQtAtom::write()); }

    // The list of a type; with `create` a missing one is appended (empty), otherwise null.
    RefList const* getRef(QtAtomIdType type, bool create) const;
    // The type of the index-th list, 0 past the end.
    QtAtomIdType getType(unsigned int index) const;
    bool hasOpenSlots(QtAtomIdType type) const;
    void addTrackId(QtAtomIdType type, uint32_t trackId) const;
    // Appends `count` open slots (ID 0).
    void addSlots(QtAtomIdType type, unsigned int count) const;
    // The index-th ID of a type's list; 0 without the list or past its end.
    uint32_t getQtTrackId(QtAtomIdType type, unsigned int index) const;
    unsigned int getNumTrackIds(QtAtomIdType type) const;
    unsigned int getNumTypes() const { return static_cast<unsigned int>(m_lists.size()); }

  private:
    RefList* findOrCreate(QtAtomIdType type);

    std::vector<RefList> m_lists;
};
