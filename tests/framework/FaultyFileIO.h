// FaultyFileIO: a real file on disk that fails or loses I/O on purpose, so that tests can check what
// the library leaves behind. It fails the n-th write or fdatasync, pauses writes at a gate so a test
// can act while a write is in flight, cuts the power after n writes (later writes and syncs are
// silently lost), and simulates a crash: every write since the last successful sync is undone, so
// the file holds exactly what a machine that lost its page cache would find on reboot.
//
// Threads: any thread may do I/O (the flush thread usually does) while the test thread sets faults;
// one mutex guards the fault settings and the undo log and is held across each write, so writes and
// the crash never interleave.
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "framework/BasicFileIO.h"

class FaultyFileIO : public BasicFileIO {
  public:
    // Null on failure, as BasicFileIO::open. What is on disk at opening counts as durable.
    static AutoRefPtr<FaultyFileIO> open(char const* path, Mode mode);

    long writeAt(unsigned long offset, void const* buffer, unsigned long n) override;
    bool sync() override;
    bool truncate(unsigned long length) override;

    // The n-th write (or sync) from now, counting from 1, fails without touching the file.
    void failWrite(unsigned int nth);
    void failSync(unsigned int nth);
    // After n more writes the power is cut: later writes and syncs report success and do nothing.
    void cutPowerAfterWrites(unsigned int n);
    // Likewise after n more successful syncs.
    void cutPowerAfterSyncs(unsigned int n);
    // Undoes every write not made durable by a successful sync and truncates to the length of the
    // last sync; afterwards every write and sync fails. Reopen the path to see what is left.
    void simulateCrash();

    // While held, every write waits before touching the file; `waitForHeldWrite` tells the test
    // that one is waiting (false after `milliseconds` without one).
    void holdWrites();
    void releaseWrites();
    bool waitForHeldWrite(unsigned int milliseconds);

    unsigned int writeCount() const;  // writes attempted so far
    unsigned int syncCount() const;   // syncs attempted so far
    unsigned int unsyncedWrites() const;

  protected:
    FaultyFileIO(int fd, std::string path, bool writable);
    ~FaultyFileIO() override;

  private:
    // The bytes a write or truncate replaced, to be put back by a crash.
    struct Undo {
        unsigned long offset;
        std::vector<unsigned char> previous;
    };
    // Counts a countdown down; true when it reaches zero now.
    static bool due(unsigned int& countdown);
    void recordUndo(unsigned long offset, unsigned long n);

    mutable std::mutex m_mutex;  // guards everything below
    std::condition_variable m_gate;
    std::vector<Undo> m_undo;
    unsigned long m_syncedLength;
    unsigned int m_failWriteIn = 0;
    unsigned int m_failSyncIn = 0;
    unsigned int m_powerCutIn = 0;
    unsigned int m_powerCutAfterSyncsIn = 0;
    unsigned int m_writes = 0;
    unsigned int m_syncs = 0;
    unsigned int m_heldWriters = 0;
    bool m_hold = false;
    bool m_powerOff = false;
    bool m_crashed = false;
};
