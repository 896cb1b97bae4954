// BasicFileIO: the one door through which the library reaches a movie file. A POSIX file opened
// for reading or for reading and writing, shared through AutoRefPtr<BasicFileIO>, with reads and
// writes at 64-bit offsets. The I/O operations are virtual so that tests can substitute a file
// that fails a read, a write or a sync on purpose.
//
// Besides plain I/O the file owns two services for the movie it holds:
//
// Background flushes. `flush` queues a FlushReq; a thread owned by the file (started by the first
// request, joined by the destructor after the queue has drained) takes the requests in order and
// for each one
//     1. announces the region as a reservation hold through the reservation anchor,
//     2. writes the bytes (each span at its own offset) and fdatasync()s the file,
//     3. announces the release of the reservation,
//     4. calls the request's anchor with a FlushNotify (ok only when 2 fully succeeded).
// All four steps run on the flush thread. The reservation anchor and every request anchor must stay
// attached (or be detached, which makes calls through them no-ops) until the request's notice has
// been delivered: the owner waits for its notices (or calls `waitForFlushes`) before it goes away.
// A callback must not drop the last reference to the file.
//
// Cache budget. The clients of a file (the movie's disk-backed tables, the essence reader) keep
// bytes of the file in memory. They declare how many bytes of each kind they hold
// (`setCacheBytes`), and the owner of the accounting turns that into a grant of cache blocks
// (`setCacheBlocks`: a total and the tables' share of it). The file keeps the budget: a byte limit
// for both kinds together. A declaration that takes the total over the limit is recorded but
// refused; the client then calls `cacheFallback`, after which grants are scaled down to what the
// limit allows until the declared total fits again. `sizeAdvice` tells a client how many blocks
// its kind may use, never less than 2 (the block in use and one ahead). The file holds no cached
// bytes itself; the grant is what the clients size their own caches by.
//
// Threads: plain I/O may be called from any thread (pread/pwrite at explicit offsets share no file
// position). `flush`, `waitForFlushes`, `pendingFlushes` and the cache operations may be called from
// any thread; the flush queue and the cache figures are each guarded by their own mutex, and no
// lock of the file is held while the flush thread writes or calls an anchor.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "framework/AutoRefPtr.h"
#include "framework/BasicIOTypes.h"
#include "framework/SorvanPosix.h"
#include "framework/VirtualBase.h"

class BasicFileIO : public RefCounted {
  public:
    enum Mode {
        ReadOnly,   // an existing file, read only
        ReadWrite,  // an existing file, read and write
        Create      // created, or truncated when it exists; read and write
    };

    // Opens a file; null on failure, with the reason in `lastOpenError()`. A file made by Create has
    // its directory entry made durable before it is handed out, so that a crash cannot lose the file
    // itself once it has been written and synced.
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
    // Writes that failed in a client's background work (a disk-backed array writing its pages), so
    // that the owner who asked for it can tell that it did not all reach the file.
    void noteWriteFailure() { m_writeFailures.fetch_add(1, std::memory_order_relaxed); }
    unsigned long writeFailures() const { return m_writeFailures.load(std::memory_order_relaxed); }

    // ---- Background flushes ----

    // Queues a request for the flush thread; false (and no notice ever) when the file is read-only,
    // the region does not fit a reservation (more than 4 GiB - 1 bytes) or the file is closing.
    bool flush(BasicIOTypes::FlushReq request);
    // Blocks until every queued request has been carried out and its notice delivered. Must not be
    // called from a flush callback (it reports the mistake and returns at once).
    void waitForFlushes();
    // Requests queued or in progress.
    unsigned int pendingFlushes() const;
    // The anchor that hears the hold and release of every flushed region; its owner's member takes
    // `const VirtualBase::Reservation&`. Null stops the announcements.
    void setReservationCallback(BridgeAnchor const* anchor) { m_reservationCallback.store(anchor); }
    BridgeAnchor const* reservationCallback() const { return m_reservationCallback.load(); }

    // ---- Cache budget ----

    // Records the bytes of a kind held in memory; false when the declared total of all kinds now
    // exceeds the limit (the figure is recorded all the same).
    bool setCacheBytes(BasicIOTypes::CacheBytesType kind, unsigned long bytes);
    unsigned long cacheBytes(BasicIOTypes::CacheBytesType kind) const;
    // Called after a refused declaration: grants are limited to the budget from now on, until a
    // declaration fits again.
    void cacheFallback();
    bool cacheLimited() const;
    // Bytes per cache block (4096 unless set); 0 means the file offers no cache.
    unsigned int cacheBlockSize() const;
    void setCacheBlockSize(unsigned int bytes);
    // Blocks added to each kind's grant on top of what it holds, as read-ahead room (1 unless set).
    unsigned int cacheExtraBlocks() const;
    void setCacheExtraBlocks(unsigned int blocks);
    // The byte limit for all kinds together (64 MiB unless set).
    unsigned long cacheLimit() const;
    void setCacheLimit(unsigned long bytes);
    // The current grant: total blocks and the tables' share of them.
    unsigned int cacheBlocks() const;
    unsigned int cacheTableBlocks() const;
    // Sets the grant. The table share is clamped to the total; while limited, the total is cut to
    // the limit's blocks and the table share scaled with it (keeping at least one block per kind
    // that asked for any).
    void setCacheBlocks(unsigned int totalBlocks, unsigned int tableBlocks);
    // How many blocks a client of the kind may use: its share of the grant, at least 2.
    unsigned int sizeAdvice(BasicIOTypes::CacheBytesType kind) const;

  protected:
    BasicFileIO(int fd, std::string path, bool writable);
    ~BasicFileIO() override;

    // Opens the descriptor for a mode; -1 on failure with the reason recorded for lastOpenError().
    static int openDescriptor(char const* path, Mode mode);
    // `open` for this class and for test layers: a new File (built from fd, path and writable; File
    // befriends this class when its constructor is protected), whose directory is synced when the
    // mode creates it.
    template <class File>
    static AutoRefPtr<File> openAs(char const* path, Mode mode) {
        int fd = openDescriptor(path, mode);
        if (fd < 0) return AutoRefPtr<File>();
        AutoRefPtr<File> file(new File(fd, path, mode != ReadOnly));
        if (mode == Create && !file->syncDirectory()) return AutoRefPtr<File>();
        return file;
    }
    // fsync()s the directory that holds the file, so that its entry survives a crash; false (with
    // the reason recorded for lastOpenError()) when that fails. A file system that cannot sync a
    // directory (EINVAL) is taken as done.
    virtual bool syncDirectory();
    // Drains the flush queue and stops the flush thread; later requests are refused. The destructor
    // calls it, but a subclass that overrides the I/O operations must call it in its own destructor,
    // while its overrides still work.
    void finishFlushes();

  private:
    struct FlushWorker;
    static void runFlushThread(std::shared_ptr<FlushWorker> worker, BasicFileIO* file);
    void performFlush(BasicIOTypes::FlushReq const& request);
    void announce(VirtualBase::Reservation const& reservation) const;

    int m_fd;
    std::string m_path;
    bool m_writable;
    bool m_statusFlag = true;
    std::atomic<unsigned long> m_writeFailures{0};
    std::atomic<BridgeAnchor const*> m_reservationCallback{nullptr};
    // Shared with the flush thread so that the thread can tell that the file went away under it.
    std::shared_ptr<FlushWorker> m_flushWorker;

    mutable SorvanPosix::JMutex m_cacheMutex;  // guards the cache figures below
    unsigned long m_cacheBytes[BasicIOTypes::kCacheBytesTypes] = {0, 0};
    unsigned long m_cacheLimit = 64ul << 20;
    unsigned int m_cacheBlockSize = 4096;
    unsigned int m_cacheExtraBlocks = 1;
    unsigned int m_cacheBlocks = 0;
    unsigned int m_cacheTableBlocks = 0;
    bool m_cacheLimited = false;
};
