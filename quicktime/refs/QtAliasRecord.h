// QtAliasRecord: the body of an 'alis' data reference, naming the file that holds a track's media.
// A 150-byte fixed record names the volume and the file and says how many levels to go up from the
// movie and how many trailing elements of the target to append; tagged variable records follow with
// the parent directory, the absolute path in colon form and, for drive-letter systems, the drive.
// Names are UTF-8 in memory and Mac Roman on disk.
#pragma once

#include <string>

#include "framework/AutoPtr.h"
#include "quicktime/refs/EnumMap.h"

class QtAtomBuffer;

class QtAliasRecord {
  public:
    // Tags of the variable records; any other 16-bit value may appear in a file and is kept.
    enum Mark : short {
        MarkEnd = -1,
        MarkDir = 0,
        MarkUnk1 = 1,
        MarkAbs = 2,
        MarkUnk3 = 3,
        MarkUnk4 = 4,
        MarkUnk5 = 5,
        MarkUnk6 = 6,
        MarkUnk7 = 7,
        MarkUnk8 = 8,
        MarkUnk9 = 9,
        MarkMax = 10,
        MarkDrive = 11,
    };

    // One variable record. The record owns the first VarInfo, each VarInfo owns the next one and
    // its data (length bytes followed by a zero, so text records can be read as C strings).
    struct VarInfo {
        Mark tag = MarkEnd;
        unsigned short length = 0;  // data bytes, without the pad byte that follows an odd length
        AutoPtr<unsigned char> data;
        AutoPtr<VarInfo> next;
    };

    static constexpr unsigned int kFixedSize = 150;
    // The value of from and to that says the record holds no relative path.
    static constexpr unsigned short kNoRelativePath = 65535;
    // Tag names for printouts.
    static EnumMap const aliasMarkTypeMap;

    QtAliasRecord() = default;
    ~QtAliasRecord() { clearVarInfo(); }
    QtAliasRecord(QtAliasRecord const&) = delete;
    QtAliasRecord& operator=(QtAliasRecord const&) = delete;

    // Reads the record from the occupied bytes of `buffer`, never past them; the size field only
    // bounds the variable records further. False (nothing consumed, record unchanged) when fewer
    // than the 150 fixed bytes are there. Consumes the fixed part and the records read; bytes after
    // the end record or a record that took the rest of the bytes are left in the buffer.
    bool decode(QtAtomBuffer& buffer);
    // Appends 150 + getVariableSize() bytes. False when the buffer has no room for them.
    bool encode(QtAtomBuffer& buffer) const;
    // Lists the fields and records as information messages, indented by `indent` blanks.
    void show(unsigned int indent) const;

    // Bytes of the variable records as they are encoded; brings the size field up to date.
    unsigned int getVariableSize() const;

    // Rebuilds the record to point at `targetPath`, relative to `basePath` (the movie) where both
    // share a root; the opaque fields go back to their defaults. A null target drops the records
    // and gives false; a name too long for a record gives false and leaves the record unchanged.
    bool setPath(char const* basePath, char const* targetPath);
    // The path of the referenced file: relative to `moviePath` when the record allows it and the
    // movie path is deep enough, else the absolute path stored in the record, else the file name.
    AutoPtr<char> getPath(char const* moviePath) const;

    VarInfo const* find(Mark tag) const;
    VarInfo const* getFirstVarInfo() const { return m_varInfo.get(); }
    // Appends a record holding a copy of `length` bytes of `data` (zeros when data is null).
    VarInfo* newVarInfo(Mark tag, unsigned short length, void const* data);

    unsigned int getSize() const { return m_size; }
    char const* getDrive() const { return m_drive.c_str(); }
    char const* getFile() const { return m_file.c_str(); }
    unsigned short getFrom() const { return m_from; }
    unsigned short getTo() const { return m_to; }

  private:
    // The writable self of a const record: only the size field is kept current through it.
    QtAliasRecord& write() const { return const_cast<QtAliasRecord&>(*this); }
    void clearVarInfo();
    void decodeVarInfo(QtAtomBuffer& buffer, unsigned long limit);
    bool addText(Mark tag, char const* utf8);
    // Fills a fresh record for setPath.
    bool build(char const* basePath, char const* targetPath);
    void swap(QtAliasRecord& other);
    void showVarInfo(VarInfo const& info, unsigned int indent, bool hideValues) const;

    unsigned short m_var1 = 0;
    unsigned int m_size = kFixedSize;  // 150 + the variable part
    unsigned short m_var2 = 2;
    unsigned short m_var3 = 0;
    std::string m_drive{"NONAME"};  // volume name, UTF-8
    unsigned int m_var4 = 65535;
    unsigned int m_var5 = 0;
    std::string m_file;  // file name, UTF-8
    unsigned short m_from = 0;
    unsigned short m_to = 0;
    unsigned int m_var6[4] = {0, 0, 0, 0};
    AutoPtr<VarInfo> m_varInfo;
    VarInfo* m_lastVarInfo = nullptr;  // the tail of m_varInfo's list, for appending
};
