// QtAtomRoot: the top of an atom tree, the pseudo-atom "Root" whose children are a file's top-level
// atoms. It owns what belongs to the file rather than to any atom: the open file (shared through a
// reference-counted pointer, empty for a tree built in memory), the anchors through which the file
// layer reports reservations and finished flushes, the movie flushes in flight, and the accounting
// of the file cache.
//
// Flushes. `flush(moov)` first has the movie's disk-backed tables write their changed pages (on the
// owner's thread, at their places), then encodes the changed atoms' own bytes (headers, tables'
// heads, atoms held in memory; never a table's entries or a body left on disk, so the request does
// not grow with the recording) and hands them to the file layer, whose thread writes them, makes
// the file durable (which covers the tables' pages too) and reports back through `flushCb`. The
// movie counts as changed again when the flush fails. A flush already pending for the same movie at
// the same place is not repeated. The bytes of a pending flush land where the atoms were when it
// was asked for: an owner that lays table entries over those places (a movie grown in place) waits
// for it first; moving the movie elsewhere needs no wait. `hasFinalForm(true)` waits for one flush
// to complete when any is pending. The destructor waits for every pending flush, so the file layer
// never calls back into a destroyed tree.
//
// Threads and locks:
// - The tree belongs to the thread that reads or records it (the owner): everything here except
//   `flushCb` and `reserveCb`, which the file layer calls from its own thread.
// - m_mutex guards only the pending-flush list and the waiter count; a waiter is counted under it
//   before it waits, and each completed flush posts the semaphore once per counted waiter.
// - m_structureMutex guards the links of the top level against `reserveCb`, which walks them on the
//   file layer's thread: the owner holds it while it adds, moves or deletes top-level atoms here
//   (relocation, coalescing, closing an open-ended atom, a new mdat). The atoms' places are read
//   there only from their reservation desks, which keep their own copy: every change of an atom's
//   offset or size (decode, placement, each relink) updates its desk under the desk's lock.
// - flushCb calls QtAtomMoov::flushDone, which touches only atomics.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "framework/AutoRefPtr.h"
#include "framework/BasicFileIO.h"
#include "framework/BridgeAnchor.h"
#include "framework/SorvanPosix.h"
#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomMoov;

class QtAtomRoot : public BaseQtAtom, public QtRootContext {
  public:
    static constexpr QtAtomIdType kRootId = qtId("Root");

    // A flush in flight: where the movie was when it was asked for, and which movie. Owned by the
    // root's list from the request until its notice.
    struct FlushElem {
        unsigned long offset;
        QtAtomMoov const* moov;
    };

    // A root over a file; a non-zero size (the file's length when reading) marks it decoded.
    QtAtomRoot(AutoRefPtr<BasicFileIO> file, unsigned long size);
    ~QtAtomRoot() override;

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    bool hasUntouchedData() const override { return false; }
    bool needsAllData() const override { return false; }
    unsigned int getFixedSize() const override { return 0; }

    // The root of the tree `atom` is in, or null.
    static QtAtomRoot const* of(BaseQtAtom const* atom);

    // A new reference to the file.
    AutoRefPtr<BasicFileIO> getFp() const override { return m_file; }
    BasicFileIO* file() const { return m_file.get(); }

    // Routes every reservation event of a disk-backed array to reserveCb.
    void addVirtualBase(VirtualBase& array) const override;
    // How many cache blocks a table may use: the file's advice, or 2 without a file.
    int getSizeAdvice() const override;
    // Accounts `delta` more bytes of a kind held in memory and sets the file's cache grant.
    bool adjustCache(QtRootContext::CacheBytesType kind, int32_t delta) const override;

    // Asks the file layer to write the movie durably; false when nothing was queued (no movie or
    // file, already final, a redundant request, or the file refused it).
    bool flush(QtAtomMoov const* moov) const;
    // The file layer's notice that a flush is done (file layer's thread).
    bool flushCb(BasicIOTypes::FlushNotify const& notice);
    // Whether the file on disk is complete; with `wait`, first waits for one pending flush.
    bool hasFinalForm(bool wait) const;
    // The top level as it is on disk: each atom with the type its header has there, how many read
    // 'moov' and 'skip', and the movie object. A valid movie file has exactly one 'moov' on disk.
    struct Structure {
        struct Entry {
            QtAtomIdType diskId;
            unsigned long offset;
            unsigned long size;
        };
        std::vector<Entry> atoms;
        int moovs = 0;
        int skips = 0;
        QtAtomMoov const* movie = nullptr;
        bool valid() const { return moovs == 1; }
    };
    Structure structure() const;
    // The structure in one line, as the check reports it: the counts, then each atom with its
    // offset and, for the movie and the skips, their reservations.
    std::string describeStructure(char const* label) const;
    // Finds the movie; reports a top level without exactly one 'moov' on disk.
    QtAtomMoov const* checkStructure(char const* label) const;
    // Merges runs of adjacent unreserved skips; true when anything was merged.
    bool coalesceSkip() const;
    // Gives the open-ended top-level atom its final size; false when its header cannot grow.
    bool closeOpenEndedAtom() const;
    // A reservation event of the file layer or of a disk-backed array (file layer's thread).
    bool reserveCb(VirtualBase::Reservation const& reservation);

    // Writes every dirty atom at its file offset (the header only where the atom's body stays on
    // disk) and marks it clean. A movie with a flush in flight is left to that flush. Headers that
    // become 'moov' are written and synced before headers that stop being 'moov', so that a crash
    // in between leaves two valid movies rather than none; everything written is synced before it
    // returns, so that a later hasFinalForm is true of the disk.
    bool writeDirty() const;

    void setIdUpdateNeeded(bool needed) const { m_idUpdateNeeded.store(needed); }
    bool isIdUpdateNeeded() const { return m_idUpdateNeeded.load(); }
    unsigned int getDiskAlignment() const { return m_diskAlignment; }
    void setDiskAlignment(unsigned int alignment) const { m_diskAlignment = alignment; }
    SorvanPosix::JMutex& getStructureMutex() const { return m_structureMutex; }
    // Flushes asked for and not yet reported done.
    unsigned int pendingFlushes() const;
    bool isFlushPending(QtAtomMoov const* moov) const;

  private:
    bool encodeChanged(BaseQtAtom const& top, BasicIOTypes::FlushReq& request) const;
    // A movie whose flush failed is marked changed throughout, so that the next flush or
    // writeDirty writes all of it again (owner's thread).
    void recoverFailedFlushes() const;
    bool writeDirtyBelow(BaseQtAtom const& atom) const;
    bool checkDirtyBelow(BaseQtAtom const& atom) const;

    AutoRefPtr<BasicFileIO> m_file;
    unsigned long m_unused = 0;
    BridgeAnchor m_reserveAnchor;
    BridgeAnchor m_flushAnchor;
    mutable SorvanPosix::JMutex m_mutex;
    // Starts at zero: a waiter blocks until a completed flush posts for it.
    mutable SorvanPosix::JLWSemaphore m_semaphore{0};
    mutable uint32_t m_waiters = 0;                             // guarded by m_mutex
    mutable std::vector<std::unique_ptr<FlushElem>> m_flushes;  // guarded by m_mutex; newest first
    mutable bool m_structureReported = false;
    mutable std::atomic<bool> m_idUpdateNeeded{false};
    mutable unsigned int m_diskAlignment = 0;
    mutable uint32_t m_tableBytes = 0;
    mutable uint32_t m_essenceBytes = 0;
    mutable SorvanPosix::JMutex m_structureMutex;
};
