#include "framework/BasicFileIO.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

#include "framework/BridgeAnchor.h"
#include "framework/Messages.h"

namespace {

std::mutex g_errorMutex;
std::string g_lastOpenError;

void setOpenError(std::string text) {
    std::lock_guard<std::mutex> lock(g_errorMutex);
    g_lastOpenError = std::move(text);
}

}  // namespace

// The flush queue and its thread. Shared between the file and the thread: if the last reference to
// the file is dropped by a callback running on the flush thread, the file marks the worker
// abandoned and the thread leaves without touching the file again.
struct BasicFileIO::FlushWorker {
    std::mutex mutex;              // guards everything below
    std::condition_variable wake;  // the thread waits here for requests
    std::condition_variable idle;  // waitForFlushes waits here for an empty queue
    std::deque<BasicIOTypes::FlushReq> queue;
    std::thread thread;
    bool busy = false;       // a request has been taken and its notice not yet delivered
    bool stopping = false;   // no new requests; the thread ends once the queue is empty
    bool abandoned = false;  // the file is gone; the thread must not touch it
};

int BasicFileIO::openDescriptor(char const* path, Mode mode) {
    if (!path || !*path) {
        setOpenError("no file name");
        return -1;
    }
    int flags = O_CLOEXEC;
    switch (mode) {
        case ReadOnly:
            flags |= O_RDONLY;
            break;
        case ReadWrite:
            flags |= O_RDWR;
            break;
        case Create:
            flags |= O_RDWR | O_CREAT | O_TRUNC;
            break;
    }
    int fd = ::open(path, flags, 0644);
    if (fd < 0) {
        setOpenError(strerror(errno));
        return -1;
    }
    struct stat st {};
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        setOpenError("is a directory");
        return -1;
    }
    return fd;
}

AutoRefPtr<BasicFileIO> BasicFileIO::open(char const* path, Mode mode) {
    return openAs<BasicFileIO>(path, mode);
}

bool BasicFileIO::syncDirectory() {
    std::string::size_type slash = m_path.rfind('/');
    std::string directory = slash == std::string::npos ? "." : slash == 0 ? "/" : m_path.substr(0, slash);
    int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        setOpenError("cannot open its directory: " + std::string(strerror(errno)));
        return false;
    }
    bool synced = ::fsync(fd) == 0 || errno == EINVAL;
    if (!synced) setOpenError("cannot sync its directory: " + std::string(strerror(errno)));
    ::close(fd);
    return synced;
}

std::string BasicFileIO::lastOpenError() {
    std::lock_guard<std::mutex> lock(g_errorMutex);
    return g_lastOpenError;
}

BasicFileIO::BasicFileIO(int fd, std::string path, bool writable)
    : m_fd(fd),
      m_path(std::move(path)),
      m_writable(writable),
      m_flushWorker(std::make_shared<FlushWorker>()) {}

BasicFileIO::~BasicFileIO() {
    finishFlushes();
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

// ---- Background flushes ----

bool BasicFileIO::flush(BasicIOTypes::FlushReq request) {
    if (!m_writable) {
        errorMsg("%s: flush of %zu bytes at %lu refused: file is read-only\n", path(), request.bytes.size(),
                 request.offset);
        return false;
    }
    if (request.regionSize() > 0xFFFFFFFFul) {
        errorMsg("%s: flush of %lu bytes at %lu refused: region too large\n", path(), request.regionSize(),
                 request.offset);
        return false;
    }
    FlushWorker& worker = *m_flushWorker;
    {
        std::lock_guard<std::mutex> lock(worker.mutex);
        if (worker.stopping) {
            errorMsg("%s: flush at %lu refused: file is closing\n", path(), request.offset);
            return false;
        }
        worker.queue.push_back(std::move(request));
        if (!worker.thread.joinable()) worker.thread = std::thread(runFlushThread, m_flushWorker, this);
    }
    worker.wake.notify_one();
    return true;
}

void BasicFileIO::runFlushThread(std::shared_ptr<FlushWorker> worker, BasicFileIO* file) {
    std::unique_lock<std::mutex> lock(worker->mutex);
    for (;;) {
        worker->wake.wait(lock, [&] { return !worker->queue.empty() || worker->stopping; });
        if (worker->queue.empty()) break;  // stopping, and everything asked for is done
        BasicIOTypes::FlushReq request = std::move(worker->queue.front());
        worker->queue.pop_front();
        worker->busy = true;
        lock.unlock();
        file->performFlush(request);
        lock.lock();
        worker->busy = false;
        if (worker->abandoned) break;
        if (worker->queue.empty()) worker->idle.notify_all();
    }
    // Requests left behind by an abandoned file are answered as failed, so that nobody waits for them.
    std::deque<BasicIOTypes::FlushReq> orphans;
    orphans.swap(worker->queue);
    worker->idle.notify_all();
    lock.unlock();
    for (BasicIOTypes::FlushReq const& request : orphans) {
        BasicIOTypes::FlushNotify notice{request.element, request.offset, request.regionSize(), false};
        if (request.anchor) request.anchor->call(notice);
    }
}

void BasicFileIO::performFlush(BasicIOTypes::FlushReq const& request) {
    unsigned long size = request.regionSize();
    VirtualBase::Reservation region;
    region.offset = request.offset;
    region.size = static_cast<unsigned int>(size);
    region.release = false;
    announce(region);
    bool ok = true;
    if (request.spans.empty()) {
        unsigned long n = request.bytes.size();
        ok = n == 0 || writeAt(request.offset, request.bytes.data(), n) == static_cast<long>(n);
    } else {
        unsigned long at = 0;
        for (BasicIOTypes::FlushSpan const& span : request.spans) {
            ok = at + span.size <= request.bytes.size() &&
                 writeAt(span.offset, request.bytes.data() + at, span.size) == static_cast<long>(span.size);
            if (!ok) break;
            at += span.size;
        }
    }
    ok = ok && sync();
    region.release = true;
    announce(region);
    if (!ok) errorMsg("%s: flush of %lu bytes at %lu failed\n", path(), size, request.offset);
    BasicIOTypes::FlushNotify notice{request.element, request.offset, size, ok};
    if (request.anchor) request.anchor->call(notice);
}

void BasicFileIO::announce(VirtualBase::Reservation const& reservation) const {
    BridgeAnchor const* anchor = m_reservationCallback.load();
    if (anchor) anchor->call(reservation);
}

void BasicFileIO::waitForFlushes() {
    FlushWorker& worker = *m_flushWorker;
    std::unique_lock<std::mutex> lock(worker.mutex);
    if (worker.thread.joinable() && worker.thread.get_id() == std::this_thread::get_id()) {
        errorMsg("%s: waitForFlushes called from the flush thread\n", path());
        return;
    }
    worker.idle.wait(lock, [&] { return worker.queue.empty() && !worker.busy; });
}

unsigned int BasicFileIO::pendingFlushes() const {
    FlushWorker& worker = *m_flushWorker;
    std::lock_guard<std::mutex> lock(worker.mutex);
    return static_cast<unsigned int>(worker.queue.size()) + (worker.busy ? 1u : 0u);
}

void BasicFileIO::finishFlushes() {
    FlushWorker& worker = *m_flushWorker;
    std::thread thread;
    {
        std::lock_guard<std::mutex> lock(worker.mutex);
        worker.stopping = true;
        if (!worker.thread.joinable()) return;
        if (worker.thread.get_id() == std::this_thread::get_id()) {
            errorMsg("%s: file released by its own flush callback; %zu queued flushes fail\n", path(),
                     worker.queue.size());
            worker.abandoned = true;
            worker.thread.detach();
            return;
        }
        thread = std::move(worker.thread);
    }
    worker.wake.notify_all();
    thread.join();
}

// ---- Cache budget ----

bool BasicFileIO::setCacheBytes(BasicIOTypes::CacheBytesType kind, unsigned long bytes) {
    if (kind >= BasicIOTypes::kCacheBytesTypes) return false;
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    m_cacheBytes[kind] = bytes;
    unsigned long total = 0;
    for (unsigned long held : m_cacheBytes) total += held;
    bool fits = total <= m_cacheLimit;
    if (fits) m_cacheLimited = false;
    return fits;
}

unsigned long BasicFileIO::cacheBytes(BasicIOTypes::CacheBytesType kind) const {
    if (kind >= BasicIOTypes::kCacheBytesTypes) return 0;
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    return m_cacheBytes[kind];
}

void BasicFileIO::cacheFallback() {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    if (!m_cacheLimited)
        warningMsg("%s: cache of %lu table + %lu essence bytes exceeds the limit of %lu bytes\n", path(),
                   m_cacheBytes[BasicIOTypes::CacheTable], m_cacheBytes[BasicIOTypes::CacheEssence],
                   m_cacheLimit);
    m_cacheLimited = true;
}

bool BasicFileIO::cacheLimited() const {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    return m_cacheLimited;
}

unsigned int BasicFileIO::cacheBlockSize() const {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    return m_cacheBlockSize;
}

void BasicFileIO::setCacheBlockSize(unsigned int bytes) {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    m_cacheBlockSize = bytes;
}

unsigned int BasicFileIO::cacheExtraBlocks() const {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    return m_cacheExtraBlocks;
}

void BasicFileIO::setCacheExtraBlocks(unsigned int blocks) {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    m_cacheExtraBlocks = blocks;
}

unsigned long BasicFileIO::cacheLimit() const {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    return m_cacheLimit;
}

void BasicFileIO::setCacheLimit(unsigned long bytes) {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    m_cacheLimit = bytes;
}

unsigned int BasicFileIO::cacheBlocks() const {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    return m_cacheBlocks;
}

unsigned int BasicFileIO::cacheTableBlocks() const {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    return m_cacheTableBlocks;
}

void BasicFileIO::setCacheBlocks(unsigned int totalBlocks, unsigned int tableBlocks) {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    tableBlocks = std::min(tableBlocks, totalBlocks);
    if (m_cacheLimited && m_cacheBlockSize != 0) {
        unsigned long allowed = std::max(m_cacheLimit / m_cacheBlockSize, 1ul);
        if (totalBlocks > allowed) {
            unsigned long essenceBlocks = totalBlocks - tableBlocks;
            unsigned long scaledTable = static_cast<unsigned long>(tableBlocks) * allowed / totalBlocks;
            if (tableBlocks > 0 && scaledTable == 0) scaledTable = 1;
            if (essenceBlocks > 0 && scaledTable == allowed && allowed > 1) scaledTable = allowed - 1;
            totalBlocks = static_cast<unsigned int>(allowed);
            tableBlocks = static_cast<unsigned int>(scaledTable);
        }
    }
    m_cacheBlocks = totalBlocks;
    m_cacheTableBlocks = tableBlocks;
}

unsigned int BasicFileIO::sizeAdvice(BasicIOTypes::CacheBytesType kind) const {
    SorvanPosix::ScopeLock lock(m_cacheMutex);
    unsigned int share =
        kind == BasicIOTypes::CacheTable ? m_cacheTableBlocks : m_cacheBlocks - m_cacheTableBlocks;
    return std::max(share, 2u);
}
