// BasicFileIO: the one door through which the library reaches a movie file. A POSIX file opened
// for reading or for reading and writing, shared through AutoRefPtr<BasicFileIO>, with reads and
// writes at 64-bit offsets. The I/O operations are virtual so that tests can substitute a file
// that fails a read, a write or a sync on purpose.
#pragma once

#include <string>

#include "framework/AutoRefPtr.h"

class BasicFileIO : public RefCounted {
public:
    enum Mode {
        ReadOnly,   // an existing file, read only
        ReadWrite,  // an existing file, read and write
        Create      // created, or truncated when it exists; read and write
    };

    // Opens a file; null on failure, with the reason in `lastOpenError()`.
    static AutoRefPtr<BasicFileIO> open(char const* path, Mode mode);
    static std::string lastOpenError();

    char const* path() const { return m_path.c_str(); }
    bool writable() const { return m_writable; }
    // The status flag: set when the file is expected to be a well-formed movie, so that structural
    // surprises are reported as warnings rather than information.
    bool statusFlag() const { return m_statusFlag; }
    void setStatusFlag(bool on) { m_statusFlag = on; }

    // Current length of the file in bytes.
    virtual unsigned long length() const;
    // Reads up to n bytes at offset; returns the count read (0 at or past the end), or -1 on error.
    virtual long readAt(unsigned long offset, void* buffer, unsigned long n);
    // Writes n bytes at offset; returns the count written, or -1 on error.
    virtual long writeAt(unsigned long offset, void const* buffer, unsigned long n);
    // Makes everything written so far durable (fdatasync).
    virtual bool sync();
    virtual bool truncate(unsigned long length);

protected:
    BasicFileIO(int fd, std::string path, bool writable);
    ~BasicFileIO() override;

private:
    int m_fd;
    std::string m_path;
    bool m_writable;
    bool m_statusFlag = true;
};
