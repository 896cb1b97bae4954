#include "framework/FileIoClientRec.h"

FileIoClientRec::FileIoClientRec(unsigned int pageBudget) : m_budget(pageBudget ? pageBudget : 1) {
    m_pages.reserve(m_budget);
}

FileIoClientRec::~FileIoClientRec() = default;

unsigned int FileIoClientRec::getPageCount() const {
    unsigned int n = 0;
    for (Page const& page : m_pages)
        if (page.arraySerial) ++n;
    return n;
}

unsigned long FileIoClientRec::getCachedByteCount() const {
    unsigned long bytes = 0;
    for (Page const& page : m_pages) bytes += page.byteCapacity;
    return bytes;
}

void FileIoClientRec::clear() {
    m_pages.clear();
    for (Page*& slot : m_recent) slot = nullptr;
}

FileIoClientRec::Page* FileIoClientRec::findPage(unsigned long serial, unsigned int pageIndex) {
    Page* page = recent(serial);
    if (page && page->arraySerial == serial && page->pageIndex == pageIndex) return page;
    for (Page& candidate : m_pages)
        if (candidate.arraySerial == serial && candidate.pageIndex == pageIndex) return &candidate;
    return nullptr;
}

FileIoClientRec::Page* FileIoClientRec::claimPage(unsigned long serial, unsigned int pageIndex, unsigned int bytes) {
    Page* page = findPage(serial, pageIndex);
    if (!page) {
        for (Page& candidate : m_pages)
            if (!candidate.arraySerial) {
                page = &candidate;
                break;
            }
    }
    if (!page && m_pages.size() < m_budget) page = &m_pages.emplace_back();
    if (!page) {
        page = &m_pages.front();
        for (Page& candidate : m_pages)
            if (candidate.lastUse < page->lastUse) page = &candidate;
    }
    if (page->byteCapacity < bytes) {
        page->bytes.reset(new unsigned char[bytes]);
        page->byteCapacity = bytes;
    }
    page->arraySerial = serial;
    page->pageIndex = pageIndex;
    page->count = 0;
    page->lastUse = tick();
    return page;
}

void FileIoClientRec::releasePage(Page* page) {
    for (Page*& slot : m_recent)
        if (slot == page) slot = nullptr;
    page->arraySerial = 0;
    page->count = 0;
}

void FileIoClientRec::dropPages(unsigned long serial) {
    for (Page& page : m_pages)
        if (page.arraySerial == serial) releasePage(&page);
}
