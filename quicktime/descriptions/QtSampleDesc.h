// QtSampleDesc: one entry of a track's sample description table ('stsd'), describing one coding of
// the track's samples. This base holds the 16-byte header every entry starts with (size, data
// format, reserved bytes, data reference index); the classes for video, sound, MPEG-2, text and
// anything else derive from it. The owning QtAtomSampleDesc is told whenever an entry's size moves.
//
// An entry too short for the fields of its class keeps the bytes after its header as read and
// writes them back, so a damaged entry is neither misread nor lost.
#pragma once

#include <cstdint>

#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/QtAtomIdType.h"
#include "quicktime/atoms/QtAtomPreserved.h"
#include "quicktime/atoms/QtFields.h"

class QtAtomSampleDesc;

class QtSampleDesc {
public:
    static constexpr unsigned int kHeaderSize = 16;

    QtSampleDesc(QtAtomSampleDesc const& owner, unsigned int size, unsigned short dataRefIndex);
    virtual ~QtSampleDesc() = default;
    QtSampleDesc(QtSampleDesc const&) = delete;
    QtSampleDesc& operator=(QtSampleDesc const&) = delete;

    // Header in these base versions; each class reads and writes its own fields after it. The
    // caller hands decode a buffer holding at least the entry's size.
    virtual bool decode(QtAtomBuffer& buffer) = 0;
    virtual bool encode(QtAtomBuffer& buffer) const = 0;
    // Prints through information messages, without a final newline.
    virtual void show(unsigned int indent) const = 0;
    virtual bool hasEncodedChildren() const { return false; }
    virtual unsigned int getExtensionSize() const { return 0; }
    virtual unsigned int getFixedSize() const { return kHeaderSize; }

    // Brings the size field up to getFixedSize() + getExtensionSize(); when it moves, the owning
    // 'stsd' is marked changed and its size recomputed. Returns the size.
    unsigned int updateSize() const;
    // Equal formats and both audio or both video descriptions that compare equal; descriptions of
    // any other class never compare equal, not even to themselves.
    bool operator==(QtSampleDesc const& other) const;
    QtSampleDesc* nonConst() const { return const_cast<QtSampleDesc*>(this); }

    unsigned int getSize() const { return m_size; }
    QtAtomIdType getFormat() const { return m_format; }
    void setFormat(QtAtomIdType format) { m_format = format; }
    unsigned short getDataRefIndex() const { return m_dataRefIndex; }
    QtAtomSampleDesc const& getOwner() const { return *m_owner; }
    // Bytes after the header that were kept because the entry was too short for its fields, or
    // that an unknown entry does not interpret.
    QtPreserved const& getOpaque() const { return m_opaque; }

protected:
    // After the header has been read: when the entry's size is below `neededSize`, keeps the rest
    // of the entry as opaque bytes and answers true (the class then reads nothing more).
    bool keepIfShort(QtAtomBuffer& buffer, unsigned int neededSize);
    // Keeps `n` bytes of the buffer as opaque bytes.
    void keepOpaque(QtAtomBuffer& buffer, unsigned int n) { m_opaque.decode(buffer, n); }
    // The entry was too short for its class: it is written back as header and opaque bytes.
    bool isKeptWhole() const { return m_keptWhole; }
    // Appends zero bytes up to the size field, for an entry whose fields took less room;
    // `start` is the buffer's occupied count before the entry was encoded.
    void padToSize(QtAtomBuffer& buffer, unsigned int start) const;
    // Bytes the entry may still write after `start` without passing its size field.
    unsigned int roomLeft(QtAtomBuffer const& buffer, unsigned int start) const;
    // "sz=%d,fmt=%s,idx=%d"
    void showHeader() const;

    unsigned int m_size;

private:
    QtAtomIdType m_format = 0;
    QtReserved<6> m_reserved;
    unsigned short m_dataRefIndex;
    QtAtomSampleDesc const* m_owner;  // not owned
    QtPreserved m_opaque;
    bool m_keptWhole = false;
};
