#include "framework/FaultyFileIO.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>

namespace {

// Disjoint byte ranges [begin, end), merged as they are added.
class ByteRanges {
  public:
    void add(unsigned long begin, unsigned long end) {
        if (begin >= end) return;
        auto next = m_ranges.upper_bound(begin);
        if (next != m_ranges.begin() && std::prev(next)->second >= begin) {
            auto previous = std::prev(next);
            begin = previous->first;
            end = std::max(end, previous->second);
            next = m_ranges.erase(previous);
        }
        while (next != m_ranges.end() && next->first <= end) {
            end = std::max(end, next->second);
            next = m_ranges.erase(next);
        }
        m_ranges[begin] = end;
    }

    // Calls f(begin, end) for each part of [begin, end) outside every range.
    template <class F>
    void forEachGap(unsigned long begin, unsigned long end, F f) const {
        auto next = m_ranges.upper_bound(begin);
        if (next != m_ranges.begin()) begin = std::max(begin, std::prev(next)->second);
        for (; begin < end; ++next) {
            if (next == m_ranges.end() || next->first >= end) {
                f(begin, end);
                return;
            }
            if (next->first > begin) f(begin, next->first);
            begin = std::max(begin, next->second);
        }
    }

  private:
    std::map<unsigned long, unsigned long> m_ranges;
};

uint64_t mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

bool writeAll(int fd, unsigned long offset, unsigned char const* bytes, unsigned long n) {
    while (n > 0) {
        ssize_t put = ::pwrite(fd, bytes, n, static_cast<off_t>(offset));
        if (put <= 0) return false;
        offset += static_cast<unsigned long>(put);
        bytes += put;
        n -= static_cast<unsigned long>(put);
    }
    return true;
}

}  // namespace

// ---- Policies ----

FaultyFileIO::CrashPolicy FaultyFileIO::CrashPolicy::keepNone() {
    return {[](Piece const&) { return false; }};
}

FaultyFileIO::CrashPolicy FaultyFileIO::CrashPolicy::keepAll() {
    return {[](Piece const&) { return true; }};
}

FaultyFileIO::CrashPolicy FaultyFileIO::CrashPolicy::random(uint64_t seed) {
    return {[seed](Piece const& piece) {
        uint64_t write = mix(seed ^ mix(uint64_t(piece.write) * 2 + piece.truncate));
        if (write % 3 == 0) return true;
        if (write % 3 == 1) return false;
        return (mix(write + piece.index) & 1) != 0;
    }};
}

// ---- Opening and I/O ----

AutoRefPtr<FaultyFileIO> FaultyFileIO::open(char const* path, Mode mode) {
    AutoRefPtr<FaultyFileIO> file = openAs<FaultyFileIO>(path, mode);
    if (file && mode != Create) file->m_directoryDurable = true;
    return file;
}

FaultyFileIO::FaultyFileIO(int fd, std::string path, bool writable)
    : BasicFileIO(fd, std::move(path), writable), m_syncedLength(BasicFileIO::length()) {}

FaultyFileIO::~FaultyFileIO() {
    // The flush thread calls our overrides; it must be done before they are gone.
    {
        std::lock_guard<std::recursive_mutex> lock(m_mutex);
        m_hold = false;
        m_gate.notify_all();
    }
    finishFlushes();
}

bool FaultyFileIO::due(unsigned int& countdown) { return countdown != 0 && --countdown == 0; }

void FaultyFileIO::powerOff() {
    if (!m_powerOff) m_cutAt = IoCount{m_writes, m_syncs};
    m_powerOff = true;
}

void FaultyFileIO::recordUndo(unsigned long offset, unsigned long n, bool truncate) {
    unsigned long length = BasicFileIO::length();
    Undo undo{offset, n, m_writes, truncate, {}};
    if (offset < length) {
        undo.previous.resize(std::min(n, length - offset));
        long got = BasicFileIO::readAt(offset, undo.previous.data(), undo.previous.size());
        undo.previous.resize(got > 0 ? static_cast<unsigned long>(got) : 0);
    }
    m_undo.push_back(std::move(undo));
}

long FaultyFileIO::writeAt(unsigned long offset, void const* buffer, unsigned long n) {
    std::unique_lock<std::recursive_mutex> lock(m_mutex);
    ++m_writes;
    if (m_hold) {
        ++m_heldWriters;
        m_gate.notify_all();
        m_gate.wait(lock, [this] { return !m_hold; });
        --m_heldWriters;
    }
    if (m_crashed || due(m_failWriteIn)) return -1;
    if (m_powerOff) return static_cast<long>(n);
    recordUndo(offset, n, false);
    long written = BasicFileIO::writeAt(offset, buffer, n);
    if (m_observer) m_observer(IoCount{m_writes, m_syncs});
    if (due(m_powerCutIn)) powerOff();
    return written;
}

bool FaultyFileIO::sync() {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    ++m_syncs;
    if (m_crashed || due(m_failSyncIn)) return false;
    if (m_powerOff) return true;
    if (!BasicFileIO::sync()) return false;
    m_undo.clear();
    m_syncedLength = BasicFileIO::length();
    if (due(m_powerCutAfterSyncsIn)) powerOff();
    return true;
}

bool FaultyFileIO::truncate(unsigned long length) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (m_crashed) return false;
    if (m_powerOff) return true;
    unsigned long current = BasicFileIO::length();
    recordUndo(length, current > length ? current - length : 0, true);
    return BasicFileIO::truncate(length);
}

bool FaultyFileIO::syncDirectory() {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    ++m_directorySyncs;
    if (m_crashed) return false;
    if (m_powerOff) return true;
    if (!BasicFileIO::syncDirectory()) return false;
    m_directoryDurable = true;
    return true;
}

// ---- Faults ----

void FaultyFileIO::failWrite(unsigned int nth) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_failWriteIn = nth;
}

void FaultyFileIO::failSync(unsigned int nth) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_failSyncIn = nth;
}

void FaultyFileIO::cutPowerAfterWrites(unsigned int n) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_powerCutIn = n;
    if (n == 0) powerOff();
}

void FaultyFileIO::cutPowerAfterSyncs(unsigned int n) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_powerCutAfterSyncsIn = n;
    if (n == 0) powerOff();
}

void FaultyFileIO::holdWrites() {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_hold = true;
}

void FaultyFileIO::releaseWrites() {
    // Notified under the lock: a released write may lead to the file's destruction (when a flush
    // callback drops the last reference), which must not overtake this call.
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_hold = false;
    m_gate.notify_all();
}

bool FaultyFileIO::waitForHeldWrite(unsigned int milliseconds) {
    std::unique_lock<std::recursive_mutex> lock(m_mutex);
    return m_gate.wait_for(lock, std::chrono::milliseconds(milliseconds),
                           [this] { return m_heldWriters > 0; });
}

// ---- Crashes ----

std::vector<FaultyFileIO::Piece> FaultyFileIO::piecesOf(Undo const& undo) {
    if (undo.truncate) return {Piece{undo.write, 0, undo.offset, undo.size, true}};
    std::vector<Piece> pieces;
    unsigned long end = undo.offset + undo.size;
    for (unsigned long begin = undo.offset; begin < end;) {
        unsigned long next = std::min(end, (begin / kPieceSize + 1) * kPieceSize);
        pieces.push_back(
            Piece{undo.write, static_cast<unsigned int>(pieces.size()), begin, next - begin, false});
        begin = next;
    }
    return pieces;
}

unsigned long FaultyFileIO::undoLost(CrashPolicy const& policy, Writer const& put) const {
    // Oldest first: decide every piece and find the length that the kept ones leave.
    std::vector<std::vector<Piece>> pieces;
    std::vector<std::vector<bool>> kept;
    unsigned long length = m_syncedLength;
    for (Undo const& undo : m_undo) {
        pieces.push_back(piecesOf(undo));
        std::vector<bool>& keep = kept.emplace_back();
        for (Piece const& piece : pieces.back()) {
            keep.push_back(policy.keep && policy.keep(piece));
            if (!keep.back()) continue;
            length = piece.truncate ? piece.offset : std::max(length, piece.offset + piece.size);
        }
    }
    // Newest first. Invariant: every byte no kept piece has claimed yet holds its value from just
    // after the change in hand. A kept piece claims its bytes as they are; a lost one puts back, on
    // the bytes still unclaimed, what was there before it (zeros where the file did not reach).
    static unsigned char const zeros[FaultyFileIO::kPieceSize] = {};
    ByteRanges claimed;
    for (size_t i = m_undo.size(); i-- > 0;) {
        Undo const& undo = m_undo[i];
        for (size_t p = 0; p < pieces[i].size(); ++p) {
            Piece const& piece = pieces[i][p];
            unsigned long end = piece.offset + piece.size;
            if (kept[i][p]) {
                claimed.add(piece.offset, end);
                continue;
            }
            claimed.forEachGap(
                piece.offset, std::min(end, length), [&](unsigned long from, unsigned long to) {
                    unsigned long known = undo.offset + undo.previous.size();
                    if (from < known)
                        put(from, undo.previous.data() + (from - undo.offset), std::min(to, known) - from);
                    for (from = std::max(from, known); from < to; from += kPieceSize)
                        put(from, zeros, std::min(to - from, kPieceSize));
                });
        }
    }
    return length;
}

void FaultyFileIO::simulateCrash() { simulateCrash(CrashPolicy::keepNone()); }

void FaultyFileIO::simulateCrash(CrashPolicy const& policy) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    unsigned long length =
        undoLost(policy, [this](unsigned long offset, unsigned char const* bytes, unsigned long n) {
            BasicFileIO::writeAt(offset, bytes, n);
        });
    BasicFileIO::truncate(length);
    BasicFileIO::sync();
    m_undo.clear();
    m_crashed = true;
    if (!fileSurvives()) ::unlink(path());
}

bool FaultyFileIO::crashCopy(char const* target, CrashPolicy const& policy) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    ::unlink(target);
    if (!fileSurvives()) return false;
    int fd = ::open(target, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    bool ok = true;
    std::vector<unsigned char> block(1ul << 20);
    unsigned long length = BasicFileIO::length();
    for (unsigned long offset = 0; ok && offset < length; offset += block.size()) {
        long got = BasicFileIO::readAt(offset, block.data(), std::min(block.size(), length - offset));
        ok = got > 0 && writeAll(fd, offset, block.data(), static_cast<unsigned long>(got));
    }
    unsigned long kept =
        undoLost(policy, [&](unsigned long offset, unsigned char const* bytes, unsigned long n) {
            ok = writeAll(fd, offset, bytes, n) && ok;
        });
    ok = ::ftruncate(fd, static_cast<off_t>(kept)) == 0 && ok;
    ::close(fd);
    return ok;
}

void FaultyFileIO::setWriteObserver(std::function<void(IoCount const&)> observer) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_observer = std::move(observer);
}

// ---- Counters ----

unsigned int FaultyFileIO::writeCount() const {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return m_writes;
}

unsigned int FaultyFileIO::syncCount() const {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return m_syncs;
}

unsigned int FaultyFileIO::unsyncedWrites() const {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return static_cast<unsigned int>(
        std::count_if(m_undo.begin(), m_undo.end(), [](Undo const& u) { return !u.truncate; }));
}

unsigned int FaultyFileIO::directorySyncs() const {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return m_directorySyncs;
}

std::optional<FaultyFileIO::IoCount> FaultyFileIO::powerCutAt() const {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return m_cutAt;
}
