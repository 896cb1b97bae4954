// FaultyFileIO: a real file on disk that fails or loses I/O on purpose, so that tests (ours, and a
// recording application's own) can check what the library leaves behind. It fails the n-th write or fdatasync, pauses writes at a gate so a test
// can act while a write is in flight, cuts the power after n writes or syncs (later writes and syncs
// report success and do nothing), and simulates a crash.
//
// The crash model is that of a disk with a volatile cache: a crash may keep any subset of the
// writes made since the last successful sync, and of each such write any of its 4 KiB-aligned
// pieces (a torn write), each kept or lost on its own; a kept piece wins over the older bytes it
// covers. The file length after a crash is the synced length, moved by the truncates kept and
// extended to the end of the furthest piece kept (gaps read as zeros). A file made by Create whose
// directory entry was never synced is lost whole. A CrashPolicy decides piece by piece: keep none,
// keep all, a seeded random choice (same seed, same result), or any predicate of the test's own.
// Only the bytes each write replaced are recorded (dropped at every sync), never a copy of the file.
//
// For sweeps over every crash point, a write observer sees the file after each write and can take
// `crashCopy`s of what a crash at that instant would leave, under several policies, while the run
// goes on; this is the same outcome as cutting the power after that write and crashing.
//
// Threads: any thread may do I/O (the flush thread usually does) while the test thread sets faults;
// one mutex guards the fault settings and the undo log and is held across each write and the write
// observer, so writes, copies and the crash never interleave.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "framework/BasicFileIO.h"

class FaultyFileIO : public BasicFileIO {
  public:
    // Null on failure, as BasicFileIO::open. What is on disk at opening counts as durable, and so
    // does the directory entry of a file that already existed.
    static AutoRefPtr<FaultyFileIO> open(char const* path, Mode mode);

    long writeAt(unsigned long offset, void const* buffer, unsigned long n) override;
    bool sync() override;
    bool truncate(unsigned long length) override;

    // ---- Faults ----

    // The n-th write (or sync) from now, counting from 1, fails without touching the file.
    void failWrite(unsigned int nth);
    void failSync(unsigned int nth);
    // After n more writes the power is cut: later writes and syncs report success and do nothing.
    void cutPowerAfterWrites(unsigned int n);
    // Likewise after n more successful syncs.
    void cutPowerAfterSyncs(unsigned int n);

    // While held, every write waits before touching the file; `waitForHeldWrite` tells the test
    // that one is waiting (false after `milliseconds` without one).
    void holdWrites();
    void releaseWrites();
    bool waitForHeldWrite(unsigned int milliseconds);

    // ---- Crashes ----

    // A piece of an unsynced change that a crash keeps or loses: a 4 KiB-aligned part of a write, or
    // a whole truncate.
    struct Piece {
        unsigned int write;  // the write's number as writeCount() counts it (for a truncate: the
                             // number of the write before it)
        unsigned int index;  // the piece's place in its write, from 0
        unsigned long offset;
        unsigned long size;  // a truncate: the bytes it cut (offset is the new length)
        bool truncate;
    };
    struct CrashPolicy {
        std::function<bool(Piece const&)> keep;

        static CrashPolicy keepNone();
        static CrashPolicy keepAll();
        // Each write kept whole, lost whole or torn (each piece kept or lost), a third of the time
        // each, as a function of the seed and the piece alone.
        static CrashPolicy random(uint64_t seed);
    };
    static constexpr unsigned long kPieceSize = 4096;

    struct IoCount {
        unsigned int writes = 0;
        unsigned int syncs = 0;
    };

    // The crash, in place: the file keeps what the policy chose (with no policy: only what was
    // synced); afterwards every write and sync fails. Reopen the path to see what is left.
    void simulateCrash();
    void simulateCrash(CrashPolicy const& policy);
    // What a crash now would leave, written to `target`; this file goes on untouched. False, and no
    // target, when the crash would lose the file itself.
    bool crashCopy(char const* target, CrashPolicy const& policy);
    // Called after every write that reached the file, on the writing thread under the file's lock,
    // with the counts so far (this write included). It may call crashCopy and the counters, and
    // must not do I/O on this file.
    void setWriteObserver(std::function<void(IoCount const&)> observer);

    unsigned int writeCount() const;  // writes attempted so far
    unsigned int syncCount() const;   // syncs attempted so far
    unsigned int unsyncedWrites() const;
    unsigned int directorySyncs() const;
    // The writes and syncs attempted when the power went off (the one that cut it included); empty
    // while it is on. A flush whose last sync is counted here completed before the cut.
    std::optional<IoCount> powerCutAt() const;

  protected:
    friend class BasicFileIO;  // openAs builds us
    FaultyFileIO(int fd, std::string path, bool writable);
    ~FaultyFileIO() override;
    bool syncDirectory() override;

  private:
    // What a write or truncate replaced, to be put back by a crash that loses it.
    struct Undo {
        unsigned long offset;
        unsigned long size;  // bytes written, or cut by a truncate
        unsigned int write;
        bool truncate;
        std::vector<unsigned char> previous;  // the bytes that were there (those that existed)
    };
    using Writer = std::function<void(unsigned long offset, unsigned char const* bytes, unsigned long n)>;

    // Counts a countdown down; true when it reaches zero now.
    static bool due(unsigned int& countdown);
    static std::vector<Piece> piecesOf(Undo const& undo);
    void recordUndo(unsigned long offset, unsigned long n, bool truncate);
    void powerOff();
    // Puts back through `put` what the policy loses; returns the length the file must end at.
    unsigned long undoLost(CrashPolicy const& policy, Writer const& put) const;
    bool fileSurvives() const { return m_directoryDurable; }

    mutable std::recursive_mutex m_mutex;  // guards everything below; recursive for the observer
    std::condition_variable_any m_gate;
    std::vector<Undo> m_undo;
    std::function<void(IoCount const&)> m_observer;
    unsigned long m_syncedLength;
    unsigned int m_failWriteIn = 0;
    unsigned int m_failSyncIn = 0;
    unsigned int m_powerCutIn = 0;
    unsigned int m_powerCutAfterSyncsIn = 0;
    unsigned int m_writes = 0;
    unsigned int m_syncs = 0;
    unsigned int m_directorySyncs = 0;
    unsigned int m_heldWriters = 0;
    std::optional<IoCount> m_cutAt;
    bool m_hold = false;
    bool m_powerOff = false;
    bool m_crashed = false;
    bool m_directoryDurable = false;
};
