// BaseQtAtom: the base of every atom object. It holds the header values (size, type, header form),
// the atom's place in the file and in the tree, and the state flags, and it defines the virtual
// operations through which the reader, the writer and the recorder drive any atom.
//
// Ownership: a parent owns its children. Destroying an atom destroys its first child's subtree and
// every later sibling in its own chain, so a single atom is unlinked with removeSelf() first.
// Mutation: the tree is handed around as const; an atom's state is changed through write(), which
// marks it dirty and returns a writable self, or nonConst() for bookkeeping that is not a change of
// content (tree links).
#pragma once

#include <cstdint>

#include "framework/AutoPtr.h"
#include "framework/AutoRefPtr.h"
#include "framework/QtAtomBuffer.h"
#include "framework/VirtualBase.h"
#include "quicktime/atoms/QtAtomContext.h"
#include "quicktime/atoms/QtAtomIdType.h"
#include "quicktime/atoms/QtIdName.h"
#include "quicktime/atoms/QtTreeSize.h"

class BasicFileIO;
class FileIoClientRec;
class VirtualArrayBase;
class QtUserDataSet;
class ReservationDesk;
class UserDataValue;

// Implemented by the header atoms that carry a time scale (movie and media headers), so that any
// atom can find the time scale of its movie and of its media.
class QtTimeScaled {
public:
    virtual ~QtTimeScaled() = default;
    virtual unsigned int getTimeScale() const = 0;
};

class BaseQtAtom {
public:
    // Tag of the look-ahead decode, which gives the consumed bytes back to the buffer.
    enum DontConsume { kDontConsume };

    // Kinds of in-memory bytes reported to the root's cache accounting.
    using CacheBytesType = QtRootContext::CacheBytesType;
    static constexpr CacheBytesType TableBytes = QtRootContext::TableBytes;
    static constexpr CacheBytesType EssenceBytes = QtRootContext::EssenceBytes;

    // One operation to run on many atoms (depthFirst): kind 0 takes no argument, kind 1 an agent.
    struct MethodCall {
        using Call0 = void (BaseQtAtom::*)() const;
        using Call1 = void (BaseQtAtom::*)(FileIoClientRec*) const;
        explicit MethodCall(Call0 call) : kind(0), call0(call) {}
        MethodCall(Call1 call, FileIoClientRec* argument) : kind(1), call1(call), arg(argument) {}
        void call(BaseQtAtom const* atom) const;

        int32_t kind;
        Call0 call0 = nullptr;
        Call1 call1 = nullptr;
        FileIoClientRec* arg = nullptr;
    };

    BaseQtAtom(QtAtomIdType id, BaseQtAtom const* parent, unsigned long size);
    BaseQtAtom();
    BaseQtAtom(BaseQtAtom const& other);
    BaseQtAtom& operator=(BaseQtAtom const&) = delete;
    virtual ~BaseQtAtom();

    // --- virtual operations, in their fixed order ---
    virtual QtResizeAction resizeUserData() const;
    virtual void updateUserData(QtUserDataSet* set) const;
    virtual void updateAtom(UserDataValue const* value) const;
    virtual bool decode(DontConsume, QtAtomBuffer& buffer) const;
    virtual bool decode(QtAtomBuffer& buffer);
    virtual bool decode(QtAtomBuffer& buffer) const;
    virtual bool encode(QtAtomBuffer& buffer) const;
    virtual bool hasEncodedChildren() const { return false; }
    virtual bool hasUntouchedData() const { return false; }
    virtual bool needsAllData() const { return true; }
    virtual unsigned int getFixedSize() const { return m_headerSize; }
    virtual unsigned long getVariableSize() const { return 0; }
    virtual bool hasVirtualTable() const { return false; }
    virtual void flushVirtualTable() const {}
    virtual void closeVirtualTable(FileIoClientRec*) const {}
    virtual void closeFinal() const {}
    virtual bool isReserved() const { return false; }
    virtual bool update(VirtualBase::Reservation const&) const { return false; }
    virtual QtAtomIdType getDiskId() const { return m_id; }
    virtual void resetDiskId() const {}
    virtual unsigned int getEncodeSize() const;
    virtual bool sizeAllowsForChildren() const { return m_size >= static_cast<unsigned long>(getFixedSize()) + 4; }
    virtual void show() const;
    virtual void setSizeAndOffset(QtTreeSize const& size) const;
    virtual void setOffset(unsigned long offset) const;

    // --- accessors ---
    QtAtomIdType getId() const { return m_id; }
    unsigned long getSize() const { return m_size; }
    unsigned long getFileOffset() const { return m_fileOffset; }
    unsigned int getHeaderSize() const { return m_headerSize; }
    BaseQtAtom const* getParent() const { return m_parent; }
    BaseQtAtom const* getSibling() const { return m_sibling; }
    BaseQtAtom const* getChild() const { return m_child; }
    BaseQtAtom const* getLastChild() const;
    QtIdName idName() const { return QtIdName(m_id); }
    bool isDecoded() const { return m_decoded; }
    bool isDirty() const { return m_dirty; }
    bool isOpenEnded() const { return m_openEnded; }
    void clearOpenEnded() const { nonConst()->m_openEnded = false; }
    void setDecoded() const { nonConst()->m_decoded = true; }
    void setHeaderSize(unsigned int headerSize) const { nonConst()->m_headerSize = static_cast<uint8_t>(headerSize); }
    void setId(QtAtomIdType id) const;
    void setSize(unsigned long size) const;
    // Marks the atom as matching the file (used by the reader after decoding and the writer after
    // writing it).
    void setClean() const { nonConst()->m_dirty = false; }

    BaseQtAtom* write() const;
    BaseQtAtom* dirty() const { return write(); }
    BaseQtAtom* nonConst() const { return const_cast<BaseQtAtom*>(this); }

    // --- tree ---
    void appendChild(BaseQtAtom const* child) const;
    void appendSibling(BaseQtAtom const* sibling) const;
    void insertSibling(BaseQtAtom const* sibling) const;
    void removeSelf(bool absorbSize) const;
    BaseQtAtom const* findParent(QtAtomIdType id) const;
    BaseQtAtom const* findSibling(QtAtomIdType id, unsigned int n) const;
    unsigned int countSibling(QtAtomIdType id) const;
    unsigned int countChildren() const;
    BaseQtAtom const* findAbove(QtAtomIdType id, unsigned int n) const;
    BaseQtAtom const* findAtom(char const* path, unsigned int n) const;
    unsigned int countAtom(char const* path) const;
    // The root and the movie above this atom, as atoms see them (null when there is none).
    QtRootContext const* findRootContext() const;
    QtMovieContext const* findMovieContext() const;
    unsigned int numGeneration() const;
    unsigned long resetSize() const;

    unsigned int getMovieTimeScale() const;
    unsigned int getMediaTimeScale() const;
    char const* getMoviePath() const;
    AutoPtr<char> getAtomPath() const;
    AutoPtr<char> toString() const;
    static AutoPtr<char> toString(struct QtVersionAndFlags const& versionAndFlags);

    // --- traversal ---
    void depthFirst(MethodCall const& call) const;
    void flushVirtualChildren() const;
    void closeVirtualChildren(FileIoClientRec* agent) const;
    void closeAllChildren() const;
    bool hasVirtualChildren() const;
    bool hasDownstreamVirtualChildren() const;
    bool checkForDirty() const;

    // --- layout ---
    QtTreeSize recalcOffset(QtTreeSize const& in) const;
    // Records on the enclosing movie why it needs room; always false, so that a table that asks
    // for room reports that the entry was not stored.
    bool addMovieResizeNeeded(QtResizeReq::Type type) const;
    // The enclosing movie's reasons, or 0.
    uint32_t movieResizeNeeded() const;
    AutoRefPtr<BasicFileIO> getRootFp() const;
    int getSizeAdvice() const;
    bool adjustCache(CacheBytesType kind, int32_t delta) const;

    // --- disk-backed tables (the storage shared by the sample tables) ---
    // Makes a table's array disk-backed on the movie file and counts its memory as table bytes.
    bool setBackingStore(VirtualArrayBase& array) const;
    // Hands an array to the root, which routes its reservation events; nothing without a root.
    void registerVirtualBase(VirtualBase& array) const;
    // The storage callback of a table's array: forwards each change of its cache as table bytes.
    bool reportTableBytes(VirtualBase::StorageChange const& change) const;
    // Converters of table entries between memory and disk, big-endian on disk; the Base1 forms keep
    // 0-based numbers in memory and the file's 1-based numbers on disk (a 0 on disk stays 0).
    static unsigned int ioPrepUint32(unsigned int const* source, unsigned int* destination, unsigned int count,
                                     int direction);
    static unsigned int ioPrepUint64(unsigned long const* source, unsigned long* destination, unsigned int count,
                                     int direction);
    static unsigned int ioPrepUint32Base1(unsigned int const* source, unsigned int* destination, unsigned int count,
                                          int direction);
    static unsigned int ioPrepUint64Base1(unsigned long const* source, unsigned long* destination,
                                          unsigned int count, int direction);

    // --- the factory: construct the object for this prototype's type under `parent` (defined in
    // quicktime/QtAtomFactory.cpp, above the folders whose classes its table names) ---
    BaseQtAtom* createActual(BaseQtAtom const* parent) const;

    // --- big-endian field codecs ---
    static unsigned char decodeUint8(QtAtomBuffer& buffer);
    static unsigned short decodeUint16(QtAtomBuffer& buffer);
    static short decodeInt16(QtAtomBuffer& buffer);
    static unsigned int decodeUint32(QtAtomBuffer& buffer);
    static unsigned long decodeUint64(QtAtomBuffer& buffer);
    static double decodeFloat64(QtAtomBuffer& buffer);
    static char* decodeString(QtAtomBuffer& buffer, unsigned int n);
    static void encode(QtAtomBuffer& buffer, unsigned char value);
    static void encode(QtAtomBuffer& buffer, unsigned short value);
    static void encode(QtAtomBuffer& buffer, short value);
    static void encode(QtAtomBuffer& buffer, unsigned int value);
    static void encode(QtAtomBuffer& buffer, unsigned long value);
    static void encode(QtAtomBuffer& buffer, double value);
    static void encode(QtAtomBuffer& buffer, char const* text);
    static unsigned int swap(unsigned int value);
    static unsigned long swap(unsigned long value);

    // --- times: seconds since 1904 on disk, microseconds since 1970 in memory ---
    static constexpr unsigned long kMacEpochOffset = 2082844800ul;
    static int64_t fromMacTime(uint32_t seconds1904);
    static uint32_t toMacTime(int64_t microseconds1970);
    static uint32_t getMacTimeNow();

    static char* copyString(char const* text);
    static void copyString(char*& target, char const* text);

private:
    void addToAncestors(long delta) const;
    // Tells the atom's reservation desk (if it has one) its offset and size after any change of
    // either, so that the desk, which the file layer's thread consults, is never behind a relink.
    void placed() const;
    // Whether the atom's body lies only in the file at its place, outside any table (an
    // uninterpreted atom read from a movie).
    bool hasBodyOnDisk() const;
    // Copies such a body from the atom's current place to `offset`.
    void moveBodyOnDisk(unsigned long offset) const;
    // The offset a relink gives the atom; one with its body on disk stays where its bytes are until
    // it is placed (recalcOffset), which moves them.
    void relinkedTo(unsigned long offset) const;

    unsigned long m_size = 0;
    QtAtomIdType m_id = 0;
    uint8_t m_headerSize = 8;
    bool m_decoded = false;
    bool m_dirty = true;
    bool m_openEnded = false;
    unsigned long m_fileOffset = 0;
    BaseQtAtom const* m_parent = nullptr;
    BaseQtAtom const* m_sibling = nullptr;
    BaseQtAtom const* m_child = nullptr;
    // The other ends of the links above, so that appending, inserting and unlinking cost the same
    // under a parent of a million children as under one of three.
    BaseQtAtom const* m_previous = nullptr;
    BaseQtAtom const* m_lastChild = nullptr;
    QtPlaceWatcher* m_desk = nullptr;  // set by the desk of a moov, skip or mdat while it exists

    friend class QtAtomReader;
    friend class ReservationDesk;
};
