// VirtualArrayBase: the storage engine under VirtualArray<T>. An array of equal-width elements whose
// memory does not grow with its length: while it has no file the elements are held in memory (a
// table keeps at most 16 that way); once given a file (setBackingStore) they live in the file at
// the mapped place and memory holds only a bounded page cache. This base works on untyped elements
// of a fixed width; VirtualArray<T> supplies the typed access and the conversion hooks.
//
// Where an element's value lives (backed array, element i, page p = i / pageElements):
//   1. in the owner's cache, when page p is there (dirty pages are newer than the file);
//   2. otherwise in the file at mapOffset + i * width, when fileBegin <= i < fileEnd;
//   3. otherwise nowhere: it reads as zero. Slots gained by growth, and slots never written since
//      the array got its file, are of this kind; flush writes zeros over them so that the file's
//      region is complete, and then the file holds [0, virtual size).
// Invariant: fileBegin <= fileEnd <= virtual size (an empty range is 0, 0), and the range is empty
// while the array has no place (unmapped). Pages are written out in any order: a page next to the
// range (above or below it) extends it, one further away first has the gap zero-filled. So pages
// written from the top down (a table widened in place) never write below what they replace.
//
// Placing the elements:
//   - setMap(offset) without a file records the place; setBackingStore then moves the elements held
//     in memory there (as dirty pages). setMap(offset) with a file says the file already holds all
//     elements at that place (a table read from a file): the cache is dropped and the file range
//     becomes [0, size).
//   - mapIndex(n, offset) moves the array to a new place keeping every value. The copy is eager:
//     before it returns, the elements the file holds (which include every element below n that was
//     flushed) are copied to the new place, in the order that never overwrites bytes of this array
//     not yet copied; elements still only in the cache reach the new place at the next flush. So
//     every element, below n or not, stays readable throughout. Several arrays whose new places
//     overlap each other's old places must be moved in an order that copies each before it is
//     overwritten; moving a movie to free space at the end of its file never meets this.
//
// Threads and locks:
//   - The owner thread (the one that decodes or records) makes every change: setVirtualSize,
//     setElementAt, setMap, mapIndex, setBackingStore, setClean, flush, close(nullptr). Reads with a
//     null agent also mean the owner thread; they go through the owner's cache.
//   - Readers on other threads read with their own FileIoClientRec. A hit in the agent's pages takes
//     no lock: the page's stamp is compared with the array's stamp for that page, an atomic that
//     every change of an element on that page advances.
//   - m_mutex guards the owner's cache list and the page contents, the map, the file range and the elements
//     held in memory; it is held only for copies in memory, never across file I/O. The owner changes
//     them under it; a reader's miss takes it to copy a page from the owner's cache or to note where
//     in the file to read.
//   - m_placeLock is held shared by a reader across its file read and exclusively by the owner while
//     elements are copied to a new place (mapIndex) or the place changes (setMap), so that a reader
//     never reads bytes that are being moved. Readers block on it only during such a move.
//   - Lock order: m_placeLock before m_mutex.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "framework/AutoRefPtr.h"
#include "framework/BasicFileIO.h"
#include "framework/FileIoClientRec.h"
#include "framework/VirtualBase.h"

class VirtualArrayBase : public VirtualBase {
public:
    // Elements a table keeps in memory before it gives its array a file.
    static constexpr unsigned int kResidentLimit = 16;
    // Bytes of one cache page; a page holds kPageBytes / width elements.
    static constexpr unsigned int kPageBytes = 16384;
    // Pages the owner's cache holds at most (one more while a dirty page is being written out).
    static constexpr unsigned int kOwnerPageLimit = 4;
    // Directions of the I/O preparation hook.
    static constexpr int kFromDisk = 0;
    static constexpr int kToDisk = 1;

    VirtualArrayBase(char const* label, unsigned int elementWidth);
    ~VirtualArrayBase() override;
    VirtualArrayBase(VirtualArrayBase const&) = delete;
    VirtualArrayBase& operator=(VirtualArrayBase const&) = delete;

    char const* getLabel() const { return m_label; }
    unsigned int getElementWidth() const { return m_width; }

    // The number of element slots. Growing adds slots that read as zero; shrinking forgets the
    // slots cut off. False only when the end of a mapped array would pass the largest file offset.
    bool setVirtualSize(unsigned int size);
    unsigned int getVirtualSize() const { return m_virtualSize.load(std::memory_order_acquire); }

    // Gives the array its file (a reference is kept). Refused for a null file or when the array
    // already has another one; succeeds at once when it already has this one.
    bool setBackingStore(AutoRefPtr<BasicFileIO> file);
    bool isVirtual() const override { return m_isBacked.load(std::memory_order_acquire); }

    void setMap(unsigned long fileOffset);
    bool mapIndex(unsigned int firstIndex, unsigned long fileOffsetOfEntry0);
    bool isMapped() const { return m_mapped; }
    unsigned long getMapOffset() const { return m_mapOffset; }

    // Declares that the file holds what memory holds: nothing is written for the changes made so
    // far (and slots never written are not zero-filled).
    void setClean();
    // Whether a flush would write anything.
    bool isDirty() const;

    bool flush() override;
    // Writes the pages changed in the owner's cache to their place (nothing else: no zero filling);
    // the destructor of the typed array calls it, so that changes are never dropped silently.
    bool writeDirtyPages();
    // With an agent: drops that reader's pages of this array (call on the agent's thread). With a
    // null agent: flushes and releases the owner's cache.
    void close(FileIoClientRec* agent) override;
    // Memory mode: bytes of the elements held. With a file: bytes of the owner's cache pages.
    unsigned long getStorageByteCount() const override { return m_storageBytes.load(std::memory_order_acquire); }

    // Elements per cache page.
    unsigned int getPageElements() const { return m_pageElements; }

    // Copies `count` elements from `first` on (host form) into `elements`, for a reader that walks a
    // long stretch: pages the agent holds are copied from there, pages in the owner's cache from it,
    // and everything else is read from the file in as few reads as possible, without passing through
    // any cache (a null agent reads as the owner thread). Clamped to the virtual size; returns the
    // number copied. Unreadable elements read as zero, as in elementAt.
    unsigned int readElements(unsigned int first, unsigned int count, FileIoClientRec* agent, void* elements) const;

protected:
    // Conversion hooks, called with element counts. ioPrep converts between host form (memory) and
    // disk form; source and destination may be the same buffer.
    virtual void initPhys(void* elements, unsigned int count) const = 0;
    virtual void copyPhys(void const* source, void* destination, unsigned int count) const = 0;
    virtual unsigned int ioPrep(void const* source, void* destination, unsigned int count, int direction) const = 0;

    // The hot path of a reader: the element's bytes in the agent's most recent page of this array
    // when that page is still good, else null.
    unsigned char const* findInAgent(unsigned int index, FileIoClientRec& agent) const {
        FileIoClientRec::Page* page = agent.recent(m_serial);
        if (!page || page->arraySerial != m_serial) return nullptr;
        unsigned int at = index - page->firstIndex;  // wraps for an index before the page
        if (at >= page->count || page->stamp != stampOf(page->pageIndex)) return nullptr;
        page->lastUse = agent.tick();
        return page->bytes.get() + static_cast<unsigned long>(at) * m_width;
    }
    // The slow paths: copy one element (host form) into `element`; a slot past the size, never
    // written, or unreadable gives zero.
    void readElement(unsigned int index, FileIoClientRec* agent, void* element) const;
    bool writeElement(unsigned int index, void const* element);

private:
    static constexpr unsigned int kStampBuckets = 256;
    // Memory mode refuses to hold more than this (the array is meant to get a file long before).
    static constexpr unsigned long kResidentByteLimit = 256ul << 20;

    // A page of the owner's cache, in host form. A dirty page is newer than the file.
    struct OwnerPage {
        unsigned int pageIndex = 0;
        bool dirty = false;
        unsigned long lastUse = 0;
        std::unique_ptr<unsigned char[]> bytes;
    };

    // Where a reader's miss gets its page from, noted under m_mutex.
    struct PageSource;

    uint32_t stampOf(unsigned int pageIndex) const {
        return m_stamps[pageIndex & (kStampBuckets - 1)].load(std::memory_order_acquire);
    }
    void advanceStamp(unsigned int pageIndex) {
        m_stamps[pageIndex & (kStampBuckets - 1)].fetch_add(1, std::memory_order_acq_rel);
    }
    void advanceAllStamps();

    unsigned int firstOf(unsigned int pageIndex) const { return pageIndex * m_pageElements; }
    unsigned int countOf(unsigned int pageIndex, unsigned int size) const;
    unsigned long fileOffsetOf(unsigned int index) const {
        return m_mapOffset + static_cast<unsigned long>(index) * m_width;
    }

    void readResident(unsigned int index, void* element) const;
    bool writeResident(unsigned int index, void const* element);
    void readForAgent(unsigned int index, FileIoClientRec& agent, void* element) const;
    bool loadAgentPage(unsigned int pageIndex, FileIoClientRec& agent, FileIoClientRec::Page*& page) const;
    void readForOwner(unsigned int index, void* element) const;

    // The owner's cache (owner thread only).
    OwnerPage* findOwnerPage(unsigned int pageIndex) const;
    OwnerPage* loadOwnerPage(unsigned int pageIndex) const;
    bool makeRoomInOwnerCache() const;
    bool writeOwnerPage(OwnerPage& page) const;
    void removeOwnerPage(OwnerPage* page) const;
    void setStorageBytes(unsigned long bytes) const;

    // File I/O of the owner, with reservations announced around every write.
    bool readFileElements(BasicFileIO& file, unsigned long offset, unsigned int count, unsigned char* bytes) const;
    bool writeFile(unsigned long offset, void const* bytes, unsigned long size) const;
    bool zeroFill(unsigned int from, unsigned int to) const;
    bool fillAround(unsigned int first, unsigned int end) const;
    void extendFileRange(unsigned int first, unsigned int end) const;
    void extendFileRangeLocked(unsigned int first, unsigned int end) const;
    bool fileRangeEmpty() const { return m_fileBegin >= m_fileEnd; }
    // One page's part of readElements, and the file region left for it to read.
    struct PendingRead;
    void readSpan(unsigned int index, unsigned int count, FileIoClientRec* agent, unsigned char* out,
                  PendingRead& pending) const;
    void finishRead(PendingRead& pending) const;
    // The part of [first, first + count) that the file holds, as (start, count).
    unsigned int fileHeldIn(unsigned int first, unsigned int count, unsigned int& start) const;
    bool copyFileRegion(unsigned long from, unsigned long to, unsigned long size);

    char const* const m_label;
    unsigned int const m_width;
    unsigned int const m_pageElements;
    unsigned long const m_serial;

    mutable std::mutex m_mutex;
    mutable std::shared_mutex m_placeLock;
    std::atomic<unsigned int> m_virtualSize{0};
    std::atomic<bool> m_isBacked{false};
    AutoRefPtr<BasicFileIO> m_file;
    bool m_mapped = false;
    unsigned long m_mapOffset = 0;
    // The elements the file holds; written by the owner's cache even when reached through const
    // reads, hence mutable.
    mutable unsigned int m_fileBegin = 0;
    mutable unsigned int m_fileEnd = 0;
    std::vector<unsigned char> m_resident;  // memory mode: host form, grows as elements are written
    bool m_residentDirty = false;
    mutable std::vector<std::unique_ptr<OwnerPage>> m_ownerPages;
    mutable OwnerPage* m_lastOwnerPage = nullptr;
    mutable unsigned long m_ownerClock = 0;
    mutable std::unique_ptr<unsigned char[]> m_scratch;  // one page in disk form, for writes
    mutable std::atomic<unsigned long> m_storageBytes{0};
    mutable std::atomic<uint32_t> m_stamps[kStampBuckets];
};
