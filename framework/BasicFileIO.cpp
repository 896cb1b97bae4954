#include "framework/BasicFileIO.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

namespace {

std::mutex g_errorMutex;
std::string g_lastOpenError;

void setOpenError(std::string text) {
    std::lock_guard<std::mutex> lock(g_errorMutex);
    g_lastOpenError = std::move(text);
}

}  // namespace

AutoRefPtr<BasicFileIO> BasicFileIO::open(char const* path, Mode mode) {
    if (!path || !*path) {
        setOpenError("no file name");
        return AutoRefPtr<BasicFileIO>();
    }
    int flags = O_CLOEXEC;
    switch (mode) {
        case ReadOnly: flags |= O_RDONLY; break;
        case ReadWrite: flags |= O_RDWR; break;
        case Create: flags |= O_RDWR | O_CREAT | O_TRUNC; break;
    }
    int fd = ::open(path, flags, 0644);
    if (fd < 0) {
        setOpenError(strerror(errno));
        return AutoRefPtr<BasicFileIO>();
    }
    struct stat st {};
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        setOpenError("is a directory");
        return AutoRefPtr<BasicFileIO>();
    }
    return AutoRefPtr<BasicFileIO>(new BasicFileIO(fd, path, mode != ReadOnly));
}

std::string BasicFileIO::lastOpenError() {
    std::lock_guard<std::mutex> lock(g_errorMutex);
    return g_lastOpenError;
}

BasicFileIO::BasicFileIO(int fd, std::string path, bool writable)
    : m_fd(fd), m_path(std::move(path)), m_writable(writable) {}

BasicFileIO::~BasicFileIO() {
    if (m_fd >= 0) ::close(m_fd);
}

unsigned long BasicFileIO::length() const {
    struct stat st {};
    if (fstat(m_fd, &st) != 0) return 0;
    return static_cast<unsigned long>(st.st_size);
}

long BasicFileIO::readAt(unsigned long offset, void* buffer, unsigned long n) {
    unsigned long done = 0;
    auto* bytes = static_cast<unsigned char*>(buffer);
    while (done < n) {
        ssize_t got = ::pread(m_fd, bytes + done, n - done, static_cast<off_t>(offset + done));
        if (got < 0) {
            if (errno == EINTR) continue;
            return done ? static_cast<long>(done) : -1;
        }
        if (got == 0) break;
        done += static_cast<unsigned long>(got);
    }
    return static_cast<long>(done);
}

long BasicFileIO::writeAt(unsigned long offset, void const* buffer, unsigned long n) {
    if (!m_writable) return -1;
    unsigned long done = 0;
    auto const* bytes = static_cast<unsigned char const*>(buffer);
    while (done < n) {
        ssize_t put = ::pwrite(m_fd, bytes + done, n - done, static_cast<off_t>(offset + done));
        if (put < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        done += static_cast<unsigned long>(put);
    }
    return static_cast<long>(done);
}

bool BasicFileIO::sync() { return m_writable && ::fdatasync(m_fd) == 0; }

bool BasicFileIO::truncate(unsigned long length) {
    return m_writable && ::ftruncate(m_fd, static_cast<off_t>(length)) == 0;
}
