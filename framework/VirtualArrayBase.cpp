#include "framework/VirtualArrayBase.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "framework/Messages.h"

namespace {

std::atomic<unsigned long> g_nextSerial{1};

// Bytes moved per file read or write when copying or zero-filling a region.
constexpr unsigned long kTransferBytes = 256ul << 10;

}  // namespace

// Where a reader's miss finds its page, noted under m_mutex and used after it is released.
struct VirtualArrayBase::PageSource {
    AutoRefPtr<BasicFileIO> file;
    unsigned long offset = 0;
    unsigned int start = 0;  // first element read from the file
    unsigned int fileCount = 0;  // elements to read from the file; the rest of the page is zero
};

VirtualArrayBase::VirtualArrayBase(char const* label, unsigned int elementWidth)
    : m_label(label ? label : ""),
      m_width(elementWidth ? elementWidth : 1),
      m_pageElements(kPageBytes / m_width ? kPageBytes / m_width : 1),
      m_serial(g_nextSerial.fetch_add(1)) {}

VirtualArrayBase::~VirtualArrayBase() = default;

unsigned int VirtualArrayBase::countOf(unsigned int pageIndex, unsigned int size) const {
    unsigned int first = firstOf(pageIndex);
    return first >= size ? 0 : std::min(m_pageElements, size - first);
}

void VirtualArrayBase::advanceAllStamps() {
    for (auto& stamp : m_stamps) stamp.fetch_add(1, std::memory_order_acq_rel);
}

// ---------------------------------------------------------------------------------------------
// Size, file and place

bool VirtualArrayBase::setVirtualSize(unsigned int size) {
    if (m_mapped && m_mapOffset > ULONG_MAX - static_cast<unsigned long>(size) * m_width) return false;
    unsigned int oldSize = getVirtualSize();
    if (size >= oldSize) {
        // Slots past the old size are zero already: shrinking clears what it cuts off.
        m_virtualSize.store(size, std::memory_order_release);
        return true;
    }
    unsigned long bytes;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!isVirtual()) {
            m_resident.resize(std::min<unsigned long>(m_resident.size(), static_cast<unsigned long>(size) * m_width));
            bytes = m_resident.size();
        } else {
            for (auto it = m_ownerPages.begin(); it != m_ownerPages.end();) {
                OwnerPage& page = **it;
                unsigned int first = firstOf(page.pageIndex);
                if (first >= size) {
                    if (m_lastOwnerPage == &page) m_lastOwnerPage = nullptr;
                    it = m_ownerPages.erase(it);
                    continue;
                }
                unsigned int kept = size - first;
                if (kept < m_pageElements)
                    initPhys(page.bytes.get() + static_cast<unsigned long>(kept) * m_width, m_pageElements - kept);
                ++it;
            }
            m_fileEnd = std::min(m_fileEnd, size);
            if (m_fileBegin >= m_fileEnd) m_fileBegin = m_fileEnd = 0;
            bytes = m_ownerPages.size() * static_cast<unsigned long>(kPageBytes);
        }
        m_virtualSize.store(size, std::memory_order_release);
        advanceAllStamps();
    }
    setStorageBytes(bytes);
    return true;
}

bool VirtualArrayBase::setBackingStore(AutoRefPtr<BasicFileIO> file) {
    if (!file) return false;
    if (isVirtual()) return m_file == file;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_file = file;
        // The elements held in memory have never been written at the array's place: they become
        // dirty pages of the owner's cache.
        unsigned int held = static_cast<unsigned int>(m_resident.size() / m_width);
        for (unsigned int pageIndex = 0; firstOf(pageIndex) < held; ++pageIndex) {
            auto page = std::make_unique<OwnerPage>();
            page->pageIndex = pageIndex;
            page->dirty = true;
            page->lastUse = ++m_ownerClock;
            page->bytes.reset(new unsigned char[kPageBytes]);
            initPhys(page->bytes.get(), m_pageElements);
            unsigned int first = firstOf(pageIndex);
            copyPhys(m_resident.data() + static_cast<unsigned long>(first) * m_width, page->bytes.get(),
                     std::min(m_pageElements, held - first));
            m_ownerPages.push_back(std::move(page));
        }
        m_resident.clear();
        m_resident.shrink_to_fit();
        m_residentDirty = false;
        m_fileBegin = m_fileEnd = 0;
        m_isBacked.store(true, std::memory_order_release);
        // The owner accounts for the memory of a newly backed array itself, so this is not reported.
        m_storageBytes.store(m_ownerPages.size() * static_cast<unsigned long>(kPageBytes), std::memory_order_release);
    }
    while (m_ownerPages.size() > kOwnerPageLimit && makeRoomInOwnerCache()) {
    }
    return true;
}

void VirtualArrayBase::setMap(unsigned long fileOffset) {
    if (!isVirtual()) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_mapped = true;
        m_mapOffset = fileOffset;
        return;
    }
    {
        std::unique_lock<std::shared_mutex> place(m_placeLock);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_mapped = true;
        m_mapOffset = fileOffset;
        m_fileBegin = 0;
        m_fileEnd = getVirtualSize();
        m_ownerPages.clear();
        m_lastOwnerPage = nullptr;
        advanceAllStamps();
    }
    setStorageBytes(0);
}

bool VirtualArrayBase::mapIndex(unsigned int firstIndex, unsigned long fileOffsetOfEntry0) {
    if (firstIndex > getVirtualSize()) return false;
    if (!isVirtual() || !m_mapped || fileRangeEmpty()) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_mapped = true;
        m_mapOffset = fileOffsetOfEntry0;
        return true;
    }
    if (fileOffsetOfEntry0 == m_mapOffset) return true;
    std::unique_lock<std::shared_mutex> place(m_placeLock);
    unsigned long skipped = static_cast<unsigned long>(m_fileBegin) * m_width;
    if (!copyFileRegion(m_mapOffset + skipped, fileOffsetOfEntry0 + skipped,
                        static_cast<unsigned long>(m_fileEnd - m_fileBegin) * m_width))
        return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mapOffset = fileOffsetOfEntry0;
    return true;
}

void VirtualArrayBase::setClean() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_residentDirty = false;
    for (auto& page : m_ownerPages) page->dirty = false;
    if (isVirtual()) {
        m_fileBegin = 0;
        m_fileEnd = getVirtualSize();
    }
}

bool VirtualArrayBase::isDirty() const {
    if (!isVirtual()) return m_residentDirty;
    for (auto const& page : m_ownerPages)
        if (page->dirty) return true;
    return m_mapped && (m_fileBegin > 0 || m_fileEnd < getVirtualSize());
}

bool VirtualArrayBase::writeDirtyPages() {
    if (!isVirtual() || !m_mapped || !m_file || !m_file->writable()) return true;
    bool ok = true;
    for (auto& page : m_ownerPages)
        if (page->dirty) ok = writeOwnerPage(*page) && ok;
    return ok;
}

bool VirtualArrayBase::flush() {
    if (!isVirtual() || !m_mapped) return true;  // nothing has a place in the file yet
    std::vector<OwnerPage*> dirty;
    for (auto& page : m_ownerPages)
        if (page->dirty) dirty.push_back(page.get());
    std::sort(dirty.begin(), dirty.end(), [](OwnerPage* a, OwnerPage* b) { return a->pageIndex < b->pageIndex; });
    for (OwnerPage* page : dirty)
        if (!writeOwnerPage(*page)) return false;
    unsigned int size = getVirtualSize();
    if (fileRangeEmpty()) {
        if (!zeroFill(0, size)) return false;
    } else if (!zeroFill(0, m_fileBegin) || !zeroFill(m_fileEnd, size)) {
        return false;
    }
    extendFileRange(0, size);
    return true;
}

void VirtualArrayBase::close(FileIoClientRec* agent) {
    if (agent) {
        agent->dropPages(m_serial);
        return;
    }
    flush();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        // Pages that could not be written stay: dropping them would lose their elements.
        std::erase_if(m_ownerPages, [](auto const& page) { return !page->dirty; });
        m_lastOwnerPage = nullptr;
    }
    if (isVirtual()) setStorageBytes(m_ownerPages.size() * static_cast<unsigned long>(kPageBytes));
}

void VirtualArrayBase::setStorageBytes(unsigned long bytes) const {
    unsigned long old = m_storageBytes.exchange(bytes, std::memory_order_acq_rel);
    if (isVirtual() && bytes != old) reportStorage(static_cast<long>(bytes) - static_cast<long>(old));
}

// ---------------------------------------------------------------------------------------------
// Element access

void VirtualArrayBase::readElement(unsigned int index, FileIoClientRec* agent, void* element) const {
    if (index >= getVirtualSize()) {
        initPhys(element, 1);
        return;
    }
    if (agent)
        readForAgent(index, *agent, element);
    else
        readForOwner(index, element);
}

bool VirtualArrayBase::writeElement(unsigned int index, void const* element) {
    if (index >= getVirtualSize()) return false;
    if (!isVirtual()) return writeResident(index, element);
    unsigned int pageIndex = index / m_pageElements;
    OwnerPage* page = loadOwnerPage(pageIndex);
    if (!page) return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    copyPhys(element, page->bytes.get() + static_cast<unsigned long>(index - firstOf(pageIndex)) * m_width, 1);
    page->dirty = true;
    advanceStamp(pageIndex);
    return true;
}

void VirtualArrayBase::readResident(unsigned int index, void* element) const {
    unsigned long at = static_cast<unsigned long>(index) * m_width;
    if (at < m_resident.size())
        copyPhys(m_resident.data() + at, element, 1);
    else
        initPhys(element, 1);
}

bool VirtualArrayBase::writeResident(unsigned int index, void const* element) {
    unsigned long end = (static_cast<unsigned long>(index) + 1) * m_width;
    if (end > kResidentByteLimit) {
        errorMsg("VirtualArray %s: element %u refused: %lu bytes in memory without a file\n", m_label, index, end);
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        unsigned long oldEnd = m_resident.size();
        if (end > oldEnd) {
            m_resident.resize(end);
            initPhys(m_resident.data() + oldEnd, static_cast<unsigned int>((end - oldEnd) / m_width));
        }
        copyPhys(element, m_resident.data() + end - m_width, 1);
        m_residentDirty = true;
        advanceStamp(index / m_pageElements);
    }
    m_storageBytes.store(m_resident.size(), std::memory_order_release);
    return true;
}

void VirtualArrayBase::readForAgent(unsigned int index, FileIoClientRec& agent, void* element) const {
    unsigned int pageIndex = index / m_pageElements;
    FileIoClientRec::Page* page = agent.findPage(m_serial, pageIndex);
    bool good = page && index - page->firstIndex < page->count && page->stamp == stampOf(pageIndex);
    if (!good && !loadAgentPage(pageIndex, agent, page)) {
        initPhys(element, 1);
        return;
    }
    agent.setRecent(page);
    page->lastUse = agent.tick();
    unsigned int at = index - page->firstIndex;
    if (at < page->count)
        copyPhys(page->bytes.get() + static_cast<unsigned long>(at) * m_width, element, 1);
    else
        initPhys(element, 1);
}

bool VirtualArrayBase::loadAgentPage(unsigned int pageIndex, FileIoClientRec& agent,
                                     FileIoClientRec::Page*& page) const {
    std::shared_lock<std::shared_mutex> place(m_placeLock);
    PageSource source;
    unsigned int count;
    uint32_t stamp;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        count = countOf(pageIndex, getVirtualSize());
        if (count == 0) return false;
        stamp = stampOf(pageIndex);
        page = agent.claimPage(m_serial, pageIndex, m_pageElements * m_width);
        page->firstIndex = firstOf(pageIndex);
        initPhys(page->bytes.get(), count);
        if (!isVirtual()) {
            unsigned long from = static_cast<unsigned long>(page->firstIndex) * m_width;
            if (from < m_resident.size()) {
                unsigned long held = (m_resident.size() - from) / m_width;
                copyPhys(m_resident.data() + from, page->bytes.get(),
                         static_cast<unsigned int>(std::min<unsigned long>(count, held)));
            }
        } else if (OwnerPage const* own = findOwnerPage(pageIndex)) {
            copyPhys(own->bytes.get(), page->bytes.get(), count);
        } else if (unsigned int held = fileHeldIn(page->firstIndex, count, source.start)) {
            source.file = m_file;
            source.offset = fileOffsetOf(source.start);
            source.fileCount = held;
        }
    }
    if (source.fileCount) {
        unsigned char* at = page->bytes.get() + static_cast<unsigned long>(source.start - page->firstIndex) * m_width;
        if (!readFileElements(*source.file, source.offset, source.fileCount, at)) {
            agent.releasePage(page);
            page = nullptr;
            return false;
        }
    }
    page->count = count;
    page->stamp = stamp;
    return true;
}

void VirtualArrayBase::readForOwner(unsigned int index, void* element) const {
    if (!isVirtual()) {
        readResident(index, element);
        return;
    }
    unsigned int pageIndex = index / m_pageElements;
    OwnerPage* page = loadOwnerPage(pageIndex);
    if (!page) {
        initPhys(element, 1);
        return;
    }
    copyPhys(page->bytes.get() + static_cast<unsigned long>(index - firstOf(pageIndex)) * m_width, element, 1);
}

// ---------------------------------------------------------------------------------------------
// Bulk reads

// Elements still to be read from the file into `out`: one region of consecutive elements.
struct VirtualArrayBase::PendingRead {
    AutoRefPtr<BasicFileIO> file;
    unsigned long offset = 0;
    unsigned char* out = nullptr;
    unsigned int count = 0;

    bool continuedBy(unsigned long nextOffset, unsigned char const* nextOut, unsigned int width) const {
        unsigned long bytes = static_cast<unsigned long>(count) * width;
        return count != 0 && offset + bytes == nextOffset && out + bytes == nextOut;
    }
};

unsigned int VirtualArrayBase::readElements(unsigned int first, unsigned int count, FileIoClientRec* agent,
                                            void* elements) const {
    unsigned int size = getVirtualSize();
    if (first >= size || count == 0) return 0;
    count = std::min(count, size - first);
    unsigned char* out = static_cast<unsigned char*>(elements);
    std::shared_lock<std::shared_mutex> place(m_placeLock);
    PendingRead pending;
    for (unsigned int done = 0; done < count;) {
        unsigned int index = first + done;
        unsigned int span = std::min(count - done, firstOf(index / m_pageElements) + m_pageElements - index);
        PendingRead region;
        readSpan(index, span, agent, out + static_cast<unsigned long>(done) * m_width, region);
        if (region.count) {
            if (pending.continuedBy(region.offset, region.out, m_width) && pending.file.get() == region.file.get()) {
                pending.count += region.count;
            } else {
                finishRead(pending);
                pending = region;
            }
        }
        done += span;
    }
    finishRead(pending);
    return count;
}

// Copies what memory holds of one page's span; the part that only the file holds is left zero and
// described in `region` for the caller to read after the lock is released.
void VirtualArrayBase::readSpan(unsigned int index, unsigned int count, FileIoClientRec* agent, unsigned char* out,
                                PendingRead& region) const {
    unsigned int pageIndex = index / m_pageElements;
    if (agent) {
        FileIoClientRec::Page* page = agent->findPage(m_serial, pageIndex);
        if (page && page->stamp == stampOf(pageIndex) && index - page->firstIndex + count <= page->count) {
            copyPhys(page->bytes.get() + static_cast<unsigned long>(index - page->firstIndex) * m_width, out, count);
            return;
        }
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!isVirtual()) {
        initPhys(out, count);
        unsigned long from = static_cast<unsigned long>(index) * m_width;
        if (from < m_resident.size())
            copyPhys(m_resident.data() + from, out,
                     static_cast<unsigned int>(std::min<unsigned long>(count, (m_resident.size() - from) / m_width)));
        return;
    }
    if (OwnerPage const* own = findOwnerPage(pageIndex)) {
        copyPhys(own->bytes.get() + static_cast<unsigned long>(index - firstOf(pageIndex)) * m_width, out, count);
        return;
    }
    unsigned int start = index;
    unsigned int held = fileHeldIn(index, count, start);
    // What the file does not hold reads as zero; the rest is filled by the caller's read.
    if (held == 0) {
        initPhys(out, count);
        return;
    }
    initPhys(out, start - index);
    unsigned int end = start - index + held;
    initPhys(out + static_cast<unsigned long>(end) * m_width, count - end);
    region.file = m_file;
    region.offset = fileOffsetOf(start);
    region.out = out + static_cast<unsigned long>(start - index) * m_width;
    region.count = held;
}

void VirtualArrayBase::finishRead(PendingRead& pending) const {
    if (pending.count && !readFileElements(*pending.file, pending.offset, pending.count, pending.out))
        initPhys(pending.out, pending.count);
    pending.count = 0;
}

// ---------------------------------------------------------------------------------------------
// The owner's cache

VirtualArrayBase::OwnerPage* VirtualArrayBase::findOwnerPage(unsigned int pageIndex) const {
    for (auto const& page : m_ownerPages)
        if (page->pageIndex == pageIndex) return page.get();
    return nullptr;
}

VirtualArrayBase::OwnerPage* VirtualArrayBase::loadOwnerPage(unsigned int pageIndex) const {
    OwnerPage* page = m_lastOwnerPage;
    if (!page || page->pageIndex != pageIndex) page = findOwnerPage(pageIndex);
    if (page) {
        page->lastUse = ++m_ownerClock;
        m_lastOwnerPage = page;
        return page;
    }
    makeRoomInOwnerCache();
    auto fresh = std::make_unique<OwnerPage>();
    fresh->pageIndex = pageIndex;
    fresh->lastUse = ++m_ownerClock;
    fresh->bytes.reset(new unsigned char[kPageBytes]);
    initPhys(fresh->bytes.get(), m_pageElements);
    unsigned int first = firstOf(pageIndex);
    unsigned int count = countOf(pageIndex, getVirtualSize());
    unsigned int start = first;
    unsigned int fileCount = fileHeldIn(first, count, start);
    unsigned char* at = fresh->bytes.get() + static_cast<unsigned long>(start - first) * m_width;
    if (fileCount && !readFileElements(*m_file, fileOffsetOf(start), fileCount, at)) return nullptr;
    page = fresh.get();
    unsigned long bytes;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_ownerPages.push_back(std::move(fresh));
        bytes = m_ownerPages.size() * static_cast<unsigned long>(kPageBytes);
    }
    m_lastOwnerPage = page;
    setStorageBytes(bytes);
    return page;
}

bool VirtualArrayBase::makeRoomInOwnerCache() const {
    if (m_ownerPages.size() < kOwnerPageLimit) return true;
    // The least recently used page that can leave: a clean one, or a dirty one once it has a place.
    OwnerPage* victim = nullptr;
    for (auto const& page : m_ownerPages) {
        if (page->dirty && !m_mapped) continue;
        if (!victim || page->lastUse < victim->lastUse) victim = page.get();
    }
    if (!victim) return false;
    if (victim->dirty && !writeOwnerPage(*victim)) return false;
    removeOwnerPage(victim);
    return true;
}

bool VirtualArrayBase::writeOwnerPage(OwnerPage& page) const {
    unsigned int first = firstOf(page.pageIndex);
    unsigned int count = countOf(page.pageIndex, getVirtualSize());
    if (count && !fillAround(first, first + count)) return false;
    if (count) {
        if (!m_scratch) m_scratch.reset(new unsigned char[kPageBytes]);
        ioPrep(page.bytes.get(), m_scratch.get(), count, kToDisk);
        if (!writeFile(fileOffsetOf(first), m_scratch.get(), static_cast<unsigned long>(count) * m_width)) return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    page.dirty = false;
    if (count) extendFileRangeLocked(first, first + count);
    return true;
}

void VirtualArrayBase::removeOwnerPage(OwnerPage* page) const {
    unsigned long bytes;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_lastOwnerPage == page) m_lastOwnerPage = nullptr;
        std::erase_if(m_ownerPages, [page](auto const& held) { return held.get() == page; });
        bytes = m_ownerPages.size() * static_cast<unsigned long>(kPageBytes);
    }
    setStorageBytes(bytes);
}

// ---------------------------------------------------------------------------------------------
// File I/O

bool VirtualArrayBase::readFileElements(BasicFileIO& file, unsigned long offset, unsigned int count,
                                        unsigned char* bytes) const {
    unsigned long size = static_cast<unsigned long>(count) * m_width;
    long got = file.readAt(offset, bytes, size);
    if (got < 0) {
        errorMsg("VirtualArray %s: read of %lu bytes at %lu failed\n", m_label, size, offset);
        return false;
    }
    // Past the end of the file the region has not been written yet: zero bytes.
    if (static_cast<unsigned long>(got) < size) memset(bytes + got, 0, size - static_cast<unsigned long>(got));
    ioPrep(bytes, bytes, count, kFromDisk);
    return true;
}

bool VirtualArrayBase::writeFile(unsigned long offset, void const* bytes, unsigned long size) const {
    Reservation reservation;
    reservation.offset = offset;
    reservation.size = static_cast<unsigned int>(size);
    announce(reservation);
    long put = m_file->writeAt(offset, bytes, size);
    reservation.release = true;
    announce(reservation);
    if (put < 0 || static_cast<unsigned long>(put) != size) {
        m_file->noteWriteFailure();
        errorMsg("VirtualArray %s: write of %lu bytes at %lu failed\n", m_label, size, offset);
        return false;
    }
    return true;
}

// Writes zero bytes over the slots [from, to), which hold no value yet. A part past the end of the
// file is not written byte by byte: writing its last element is enough for the file to read as zero
// up to there.
bool VirtualArrayBase::zeroFill(unsigned int from, unsigned int to) const {
    if (from >= to) return true;
    unsigned long start = fileOffsetOf(from);
    unsigned long end = fileOffsetOf(to);
    unsigned long length = m_file->length();
    std::vector<unsigned char> zeros(std::min(kTransferBytes, end - start), 0);
    for (unsigned long at = start; at < std::min(end, length);) {
        unsigned long size = std::min<unsigned long>(zeros.size(), std::min(end, length) - at);
        if (!writeFile(at, zeros.data(), size)) return false;
        at += size;
    }
    return end <= length || writeFile(end - m_width, zeros.data(), m_width);
}

// Before the slots [first, end) are written: zero-fills the gap between them and the file range,
// and takes the gap into the range, so that the range stays one piece.
bool VirtualArrayBase::fillAround(unsigned int first, unsigned int end) const {
    if (fileRangeEmpty()) return true;
    if (first > m_fileEnd) {
        if (!zeroFill(m_fileEnd, first)) return false;
        extendFileRange(m_fileEnd, first);
    } else if (end < m_fileBegin) {
        if (!zeroFill(end, m_fileBegin)) return false;
        extendFileRange(end, m_fileBegin);
    }
    return true;
}

void VirtualArrayBase::extendFileRange(unsigned int first, unsigned int end) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    extendFileRangeLocked(first, end);
}

void VirtualArrayBase::extendFileRangeLocked(unsigned int first, unsigned int end) const {
    if (fileRangeEmpty()) {
        m_fileBegin = first;
        m_fileEnd = end;
    } else {
        m_fileBegin = std::min(m_fileBegin, first);
        m_fileEnd = std::max(m_fileEnd, end);
    }
}

unsigned int VirtualArrayBase::fileHeldIn(unsigned int first, unsigned int count, unsigned int& start) const {
    unsigned int from = std::max(first, m_fileBegin);
    unsigned int to = std::min(first + count, m_fileEnd);
    start = from;
    return from < to ? to - from : 0;
}

// Copies a region of the file like memmove: backwards when the target overlaps the source's end.
bool VirtualArrayBase::copyFileRegion(unsigned long from, unsigned long to, unsigned long size) {
    if (size == 0 || from == to) return true;
    std::vector<unsigned char> buffer(std::min(kTransferBytes, size));
    bool backwards = to > from && to < from + size;
    for (unsigned long done = 0; done < size;) {
        unsigned long chunk = std::min<unsigned long>(buffer.size(), size - done);
        unsigned long at = backwards ? size - done - chunk : done;
        long got = m_file->readAt(from + at, buffer.data(), chunk);
        if (got < 0) {
            errorMsg("VirtualArray %s: read of %lu bytes at %lu failed\n", m_label, chunk, from + at);
            return false;
        }
        if (static_cast<unsigned long>(got) < chunk) memset(buffer.data() + got, 0, chunk - static_cast<unsigned long>(got));
        if (!writeFile(to + at, buffer.data(), chunk)) return false;
        done += chunk;
    }
    return true;
}
