#include "tests/framework/FaultyFileIO.h"

#include <algorithm>
#include <chrono>

AutoRefPtr<FaultyFileIO> FaultyFileIO::open(char const* path, Mode mode) {
    int fd = openDescriptor(path, mode);
    if (fd < 0) return AutoRefPtr<FaultyFileIO>();
    return AutoRefPtr<FaultyFileIO>(new FaultyFileIO(fd, path, mode != ReadOnly));
}

FaultyFileIO::FaultyFileIO(int fd, std::string path, bool writable)
    : BasicFileIO(fd, std::move(path), writable), m_syncedLength(BasicFileIO::length()) {}

FaultyFileIO::~FaultyFileIO() {
    // The flush thread calls our overrides; it must be done before they are gone.
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_hold = false;
        m_gate.notify_all();
    }
    finishFlushes();
}

bool FaultyFileIO::due(unsigned int& countdown) { return countdown != 0 && --countdown == 0; }

void FaultyFileIO::recordUndo(unsigned long offset, unsigned long n) {
    unsigned long length = BasicFileIO::length();
    Undo undo{offset, {}};
    if (offset < length) {
        undo.previous.resize(std::min(n, length - offset));
        long got = BasicFileIO::readAt(offset, undo.previous.data(), undo.previous.size());
        undo.previous.resize(got > 0 ? static_cast<unsigned long>(got) : 0);
    }
    m_undo.push_back(std::move(undo));
}

long FaultyFileIO::writeAt(unsigned long offset, void const* buffer, unsigned long n) {
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_writes;
    if (m_hold) {
        ++m_heldWriters;
        m_gate.notify_all();
        m_gate.wait(lock, [this] { return !m_hold; });
        --m_heldWriters;
    }
    if (m_crashed || due(m_failWriteIn)) return -1;
    if (m_powerOff) return static_cast<long>(n);
    recordUndo(offset, n);
    long written = BasicFileIO::writeAt(offset, buffer, n);
    if (due(m_powerCutIn)) m_powerOff = true;
    return written;
}

bool FaultyFileIO::sync() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_syncs;
    if (m_crashed || due(m_failSyncIn)) return false;
    if (m_powerOff) return true;
    if (!BasicFileIO::sync()) return false;
    m_undo.clear();
    m_syncedLength = BasicFileIO::length();
    if (due(m_powerCutAfterSyncsIn)) m_powerOff = true;
    return true;
}

bool FaultyFileIO::truncate(unsigned long length) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_crashed) return false;
    if (m_powerOff) return true;
    unsigned long current = BasicFileIO::length();
    if (length < current) recordUndo(length, current - length);
    return BasicFileIO::truncate(length);
}

void FaultyFileIO::failWrite(unsigned int nth) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_failWriteIn = nth;
}

void FaultyFileIO::failSync(unsigned int nth) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_failSyncIn = nth;
}

void FaultyFileIO::cutPowerAfterWrites(unsigned int n) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_powerCutIn = n;
    if (n == 0) m_powerOff = true;
}

void FaultyFileIO::cutPowerAfterSyncs(unsigned int n) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_powerCutAfterSyncsIn = n;
    if (n == 0) m_powerOff = true;
}

void FaultyFileIO::simulateCrash() {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto undo = m_undo.rbegin(); undo != m_undo.rend(); ++undo)
        if (!undo->previous.empty())
            BasicFileIO::writeAt(undo->offset, undo->previous.data(), undo->previous.size());
    m_undo.clear();
    BasicFileIO::truncate(m_syncedLength);
    BasicFileIO::sync();
    m_crashed = true;
}

void FaultyFileIO::holdWrites() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hold = true;
}

void FaultyFileIO::releaseWrites() {
    // Notified under the lock: a released write may lead to the file's destruction (when a flush
    // callback drops the last reference), which must not overtake this call.
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hold = false;
    m_gate.notify_all();
}

bool FaultyFileIO::waitForHeldWrite(unsigned int milliseconds) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_gate.wait_for(lock, std::chrono::milliseconds(milliseconds),
                           [this] { return m_heldWriters > 0; });
}

unsigned int FaultyFileIO::writeCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_writes;
}

unsigned int FaultyFileIO::syncCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_syncs;
}

unsigned int FaultyFileIO::unsyncedWrites() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<unsigned int>(m_undo.size());
}
