// FileIoClientRec: one reader's context (its "agent") for the disk-backed arrays. It owns the pages
// that this reader has loaded from any number of arrays, so that one reader's access pattern never
// evicts another reader's pages, and a reader's cache hits need no lock at all.
//
// Threads: an agent belongs to one thread at a time; nothing in it is locked. Pages are keyed by the
// serial number of the array they came from (never by its address), so a page left behind by an
// array that no longer exists is never matched again and simply ages out. Memory is bounded by the
// page budget whatever the number of arrays or elements.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

class VirtualArrayBase;

class FileIoClientRec {
public:
    static constexpr unsigned int kDefaultPageBudget = 32;

    explicit FileIoClientRec(unsigned int pageBudget = kDefaultPageBudget);
    ~FileIoClientRec();
    FileIoClientRec(FileIoClientRec const&) = delete;
    FileIoClientRec& operator=(FileIoClientRec const&) = delete;

    unsigned int getPageBudget() const { return m_budget; }
    // Pages that hold elements now, and the bytes they occupy.
    unsigned int getPageCount() const;
    unsigned long getCachedByteCount() const;
    // Drops every page of every array.
    void clear();

private:
    friend class VirtualArrayBase;

    // A run of consecutive elements of one array, in host form. `stamp` is the array's change stamp
    // for this page at the time it was loaded; the page is good while the array's stamp still matches.
    struct Page {
        unsigned long arraySerial = 0;  // 0: free
        unsigned int pageIndex = 0;
        unsigned int firstIndex = 0;
        unsigned int count = 0;  // elements held, from firstIndex on
        uint32_t stamp = 0;
        unsigned long lastUse = 0;
        unsigned int byteCapacity = 0;
        std::unique_ptr<unsigned char[]> bytes;
    };

    // Most recently used page per array, by the low bits of the serial: the lookup of the hot path.
    static constexpr unsigned int kRecentSlots = 8;
    Page* recent(unsigned long serial) const { return m_recent[serial & (kRecentSlots - 1)]; }
    void setRecent(Page* page) { m_recent[page->arraySerial & (kRecentSlots - 1)] = page; }

    Page* findPage(unsigned long serial, unsigned int pageIndex);
    // A page to (re)load for this array and page index: the one already held, a free one, or the
    // least recently used; its buffer holds at least `bytes` bytes. The caller fills it and sets
    // count and stamp.
    Page* claimPage(unsigned long serial, unsigned int pageIndex, unsigned int bytes);
    void releasePage(Page* page);
    void dropPages(unsigned long serial);
    unsigned long tick() { return ++m_clock; }

    unsigned int m_budget;
    std::vector<Page> m_pages;  // reserved to the budget once, so page addresses never change
    Page* m_recent[kRecentSlots] = {};
    unsigned long m_clock = 0;
};
