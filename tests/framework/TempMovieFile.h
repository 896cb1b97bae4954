// Test support for the file-backed framework classes: a temporary file that removes itself, and a
// BasicFileIO that counts its reads and can be told to fail its writes (fault injection through the
// file layer).
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

#include "framework/BasicFileIO.h"

class TempMovieFile {
public:
    TempMovieFile() {
        char name[] = "/tmp/qt_test_XXXXXX";
        int fd = mkstemp(name);
        if (fd >= 0) ::close(fd);
        m_path = name;
    }
    ~TempMovieFile() { ::unlink(m_path.c_str()); }
    TempMovieFile(TempMovieFile const&) = delete;
    TempMovieFile& operator=(TempMovieFile const&) = delete;

    char const* path() const { return m_path.c_str(); }

    std::vector<unsigned char> bytes(unsigned long offset, unsigned long n) const {
        std::vector<unsigned char> out(n);
        int fd = ::open(m_path.c_str(), O_RDONLY);
        long got = fd >= 0 ? ::pread(fd, out.data(), n, static_cast<off_t>(offset)) : -1;
        if (fd >= 0) ::close(fd);
        out.resize(got > 0 ? static_cast<unsigned long>(got) : 0);
        return out;
    }

private:
    std::string m_path;
};

class InstrumentedFile : public BasicFileIO {
public:
    static AutoRefPtr<InstrumentedFile> open(char const* path) {
        int fd = ::open(path, O_RDWR | O_CLOEXEC);
        return AutoRefPtr<InstrumentedFile>(fd >= 0 ? new InstrumentedFile(fd, path) : nullptr);
    }

    long readAt(unsigned long offset, void* buffer, unsigned long n) override {
        m_reads.fetch_add(1);
        return BasicFileIO::readAt(offset, buffer, n);
    }
    long writeAt(unsigned long offset, void const* buffer, unsigned long n) override {
        if (m_failWrites.load()) return -1;
        m_writes.fetch_add(1);
        return BasicFileIO::writeAt(offset, buffer, n);
    }

    unsigned long reads() const { return m_reads.load(); }
    unsigned long writes() const { return m_writes.load(); }
    void failWrites(bool on) { m_failWrites.store(on); }

private:
    InstrumentedFile(int fd, char const* path) : BasicFileIO(fd, path, true) {}

    std::atomic<unsigned long> m_reads{0};
    std::atomic<unsigned long> m_writes{0};
    std::atomic<bool> m_failWrites{false};
};

// Big-endian 32-bit elements on disk, as the sample tables store them.
inline unsigned int bigEndian32(unsigned int const* source, unsigned int* destination, unsigned int count, int) {
    for (unsigned int i = 0; i < count; ++i) destination[i] = __builtin_bswap32(source[i]);
    return count;
}

inline AutoRefPtr<BasicFileIO> asFile(AutoRefPtr<InstrumentedFile> const& file) {
    return AutoRefPtr<BasicFileIO>(file.get());
}
