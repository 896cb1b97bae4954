#include "quicktime/tables/QtAtomCompTime.h"

#include <algorithm>
#include <string>

#include "framework/ByteOrder.h"
#include "framework/FixedPoint.h"
#include "framework/FormatStr.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomCompSeed.h"
#include "quicktime/tables/QtAtomCompShift.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleDepend.h"
#include "quicktime/tables/QtAtomSampleSync.h"
#include "quicktime/tables/QtAtomSampleTime.h"
#include "quicktime/tables/QtTableBody.h"
#include "quicktime/tables/QtTableText.h"

namespace {

constexpr unsigned long kMaxUint32 = 0xFFFFFFFFul;

// Entry-per-sample rates between these two are taken as an unsettled long GOP and planned at the
// upper one; rates outside are trusted as they are.
FixedPoint<16u> const& longGopRate0() {
    static FixedPoint<16u> const rate = FixedPoint<16u>(1u) / FixedPoint<16u>(2u);
    return rate;
}
FixedPoint<16u> const& longGopRate1() {
    static FixedPoint<16u> const rate = FixedPoint<16u>(2u) / FixedPoint<16u>(3u);
    return rate;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Sparse, SparseArray, SparseSeed

AutoPtr<char> QtAtomCompTime::Sparse::toString() const {
    static std::atomic<bool> explained{false};
    char const* prefix = explained.exchange(true) ? "" : "{diskIdx,count,sample,anchor}=";
    return FormatStr("%s{%d,%d,%d,%d}", prefix, diskIdx, count, sample, anchor);
}

unsigned int QtAtomCompTime::SparseArray::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<unsigned int>(m_slots.size());
}

QtAtomCompTime::Sparse QtAtomCompTime::SparseArray::get(unsigned int slot) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return slot < m_slots.size() ? m_slots[slot] : Sparse();
}

void QtAtomCompTime::SparseArray::set(unsigned int slot, Sparse const& sparse) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (slot >= m_slots.size()) m_slots.resize(static_cast<size_t>(slot) + 1);
    m_slots[slot] = sparse;
}

void QtAtomCompTime::SparseArray::grow(unsigned int n) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (n > m_slots.size()) m_slots.resize(n);
}

void QtAtomCompTime::SparseArray::truncate(unsigned int n) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (n < m_slots.size()) m_slots.resize(n);
}

void QtAtomCompTime::SparseArray::update(DiskIterator const& iterator) {
    set(iterator.getSparseIdx(), iterator.getSparse());
}

unsigned int QtAtomCompTime::SparseArray::store(std::vector<std::pair<unsigned int, Sparse>> const& found) {
    std::lock_guard<std::mutex> lock(m_mutex);
    unsigned int replaced = 0;
    for (auto const& [slot, sparse] : found) {
        if (slot >= m_slots.size()) m_slots.resize(static_cast<size_t>(slot) + 1);
        Sparse& held = m_slots[slot];
        if (held.valid() && !(held == sparse)) ++replaced;
        held = sparse;
    }
    return replaced;
}

long QtAtomCompTime::SparseArray::findValid(unsigned int slot, Sparse& out) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_slots.empty()) return -1;
    for (long k = std::min<long>(slot, static_cast<long>(m_slots.size()) - 1); k >= 0; --k) {
        if (m_slots[static_cast<size_t>(k)].valid()) {
            out = m_slots[static_cast<size_t>(k)];
            return k;
        }
    }
    return -1;
}

QtAtomCompTime::SparseSeed::SparseSeed(SparseSeed const& other) { *this = other; }

QtAtomCompTime::SparseSeed& QtAtomCompTime::SparseSeed::operator=(SparseSeed const& other) {
    if (this == &other) return *this;
    used = other.used;
    interval = other.interval;
    setSize(other.nEntries);
    for (unsigned int i = 0; i < other.nEntries; ++i) slots[i] = other.slots[i];
    return *this;
}

void QtAtomCompTime::SparseSeed::setSize(unsigned int n) {
    if (n > m_allocated) {
        slots.reset(new Sparse[n]);
        m_allocated = n;
    }
    nEntries = static_cast<uint16_t>(n);
}

bool QtAtomCompTime::SparseSeed::operator==(SparseSeed const& other) const {
    if (interval != other.interval || nEntries != other.nEntries || used != other.used) return false;
    for (unsigned int i = 0; i < used; ++i)
        if (!(slots[i] == other.slots[i])) return false;
    return true;
}

// ---------------------------------------------------------------------------------------------
// DiskIterator

QtAtomCompTime::DiskIterator::DiskIterator(VirtualArray<DiskEntry> const& array, unsigned int shift,
                                           FileIoClientRec* agent)
    : m_array(array), m_agent(agent), m_shift(shift) {}

void QtAtomCompTime::DiskIterator::seek(Sparse const& sparse) {
    m_diskIdx = sparse.diskIdx;
    m_position = sparse.count;
    m_sample = sparse.sample;
    // The anchor is the sample before the zero run that ends at the cursor; a run reaching back to
    // sample 0 reads the same either way, since the distance is capped by the sample number.
    m_zerosBefore = sparse.sample > sparse.anchor ? sparse.sample - sparse.anchor - 1 : 0;
    m_sparse.invalidate();
}

QtAtomCompTime::DiskEntry QtAtomCompTime::DiskIterator::getEntry() const {
    if (m_diskIdx >= m_array.getVirtualSize()) return DiskEntry();
    return m_array.elementAt(m_diskIdx, m_agent);
}

bool QtAtomCompTime::DiskIterator::operator++(int) {
    unsigned int size = m_array.getVirtualSize();
    if (m_diskIdx >= size) return false;
    DiskEntry entry = m_array.elementAt(m_diskIdx, m_agent);
    if (entry.count == 0) return false;
    m_sparse.invalidate();
    if (m_position < entry.count) {
        stepOver(entry);
        ++m_position;
        return true;
    }
    if (m_position > entry.count) {
        // The cursor was placed past the end of its run: the recorder rewrote the tail under an
        // anchor (a reference split off a run it had joined). The sample now lies in the next entry;
        // the anchor is corrected there and the cursor goes on from it.
        ++m_diskIdx;
        if (onSparse()) {
            m_position = 1;
            m_sparse = Sparse(m_diskIdx, 1, m_sample, getAnchor());
        }
        entry = getEntry();
    }
    if (m_diskIdx + 1 >= size) return false;
    stepOver(entry);
    m_position = 1;
    ++m_diskIdx;
    return m_array.elementAt(m_diskIdx, m_agent).count != 0;
}

void QtAtomCompTime::DiskIterator::stepOver(DiskEntry const& current) {
    m_zerosBefore = zeroShifted(current) ? m_zerosBefore + 1 : 0;
    ++m_sample;
}

unsigned int QtAtomCompTime::DiskIterator::getDependOff() const {
    if (m_diskIdx >= m_array.getVirtualSize()) return 1;
    return m_zerosBefore + 1;
}

QtAtomCompTime::Sparse QtAtomCompTime::DiskIterator::getSparse() const {
    if (m_sparse.valid()) return m_sparse;
    return Sparse(m_diskIdx, m_position, m_sample, getAnchor());
}

// ---------------------------------------------------------------------------------------------
// The atom

QtAtomCompTime::QtAtomCompTime(BaseQtAtom const* parent)
    : BaseQtAtom(kCttsId, parent, kHeadSize + kInMemoryEntries * kEntrySize),
      m_cacheAnchor(static_cast<BaseQtAtom const*>(this), &BaseQtAtom::reportTableBytes),
      m_array("ctts"),
      m_diskIterator(m_array, 0, nullptr),
      m_cttsCache(*this) {
    m_array.setIoPrep(ioPrep);
    m_array.setStorageCallback(&m_cacheAnchor);
    registerVirtualBase(m_array);
    m_array.setVirtualSize(kInMemoryEntries);
}

QtAtomCompTime::~QtAtomCompTime() = default;

unsigned int QtAtomCompTime::ioPrep(DiskEntry const* source, DiskEntry* destination, unsigned int count,
                                    int) {
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int n = __builtin_bswap32(source[i].count);
        int offset = static_cast<int>(__builtin_bswap32(static_cast<unsigned int>(source[i].offset)));
        destination[i].set(n, offset);
    }
    return count;
}

unsigned long QtAtomCompTime::getVariableSize() const {
    return static_cast<unsigned long>(m_array.getVirtualSize()) * kEntrySize;
}

unsigned int QtAtomCompTime::getHeadroom() const {
    unsigned int capacity = m_array.getVirtualSize(), n = getNumEntries();
    return capacity > n ? capacity - n : 0;
}

unsigned int QtAtomCompTime::getEncodeSize() const {
    if (m_array.isVirtual()) return getFixedSize();
    return static_cast<unsigned int>(std::min<unsigned long>(getSize(), kMaxUint32));
}

void QtAtomCompTime::flushVirtualTable() const {
    if (m_array.isVirtual()) m_array.flush();
}

bool QtAtomCompTime::makeDiskBacked() const {
    m_array.setMap(getFileOffset() + getFixedSize());
    return setBackingStore(m_array);
}

bool QtAtomCompTime::decode(QtAtomBuffer& buffer) {
    bool ok = BaseQtAtom::decode(buffer);
    unsigned long head = getFixedSize();
    if (!ok || getSize() < head || buffer.nOccupied() < head - BaseQtAtom::getFixedSize()) {
        m_nEntries.store(0, std::memory_order_release);
        QtTableBody::removeRest(*this, buffer);
        return false;
    }
    m_versionAndFlags.decode(buffer);
    unsigned int count = decodeUint32(buffer);
    unsigned int room = QtTableBody::entryRoom(*this, buffer, head, kEntrySize);
    if (count > room) {
        count = 0;  // a count the atom cannot hold: an empty table
    } else {
        QtTableBody::placeEntries(*this, buffer, m_array, head, room, count, kEntrySize,
                                  [this](unsigned int i, unsigned char const* p) {
                                      DiskEntry entry(getBigEndian32(p), static_cast<int>(getBigEndian32(p + 4)));
                                      m_array.setElementAt(i, entry, nullptr);
                                  });
    }
    m_nEntries.store(count, std::memory_order_release);
    {
        std::lock_guard<std::mutex> lock(m_absolute.mutex);
        m_absolute.base = 0xFFFFFFFFu;
    }
    QtTableBody::removeRest(*this, buffer);
    reportTrailingZeros();
    return true;
}

void QtAtomCompTime::reportTrailingZeros() const {
    QtTableBody::reportTrailingZeros(*this, getNumEntries(),
                                     [this](unsigned int i) { return m_array.elementAt(i, nullptr).count == 0; });
}

bool QtAtomCompTime::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    unsigned int count = getNumEntries();
    bool inMemory = !m_array.isVirtual();
    unsigned int slots = m_array.getVirtualSize();
    if (!buffer.reserveRoom(8 + (inMemory ? slots * kEntrySize : 0))) return false;
    m_versionAndFlags.encode(buffer);
    BaseQtAtom::encode(buffer, count);
    if (!inMemory) return false;  // the entries are in the file already
    for (unsigned int i = 0; i < count; ++i) {
        DiskEntry entry = m_array.elementAt(i, nullptr);
        BaseQtAtom::encode(buffer, entry.count);
        BaseQtAtom::encode(buffer, static_cast<unsigned int>(entry.offset));
    }
    buffer.append((slots - count) * kEntrySize, true);
    m_array.setClean();
    return true;
}

void QtAtomCompTime::setSizeAndOffset(QtTreeSize const& size) const {
    if (size.offset != getFileOffset()) {
        if (quicktimeDbg.on(QtDbgResize1))
            debugMsg("%s::set(%ldb@%ld)\n", getAtomPath().get(), static_cast<long>(size.size),
                     static_cast<long>(size.offset));
        if (m_array.isVirtual()) m_array.mapIndex(getNumEntries(), size.offset + getFixedSize());
    }
    BaseQtAtom::setSizeAndOffset(size);
}

// ---------------------------------------------------------------------------------------------
// Recording

void QtAtomCompTime::setCapacity(unsigned long nSamples) const {
    unsigned long n = std::min(nSamples, kMaxUint32);
    unsigned int count = getNumEntries();
    unsigned long entries = n;
    if (count != 0) {
        FixedPoint<16u> rate =
            FixedPoint<16u>(count) / FixedPoint<16u>(static_cast<unsigned long>(m_lastRecordedSample) + 1);
        // Too few samples seen to trust the rate, or a rate that may still climb: plan for 2/3.
        if (m_lastRecordedSample <= 99 || (longGopRate0() < rate && rate < longGopRate1()))
            rate = longGopRate1();
        entries = (rate * FixedPoint<16u>(n)).round().uintValue();
    }
    entries = std::min(std::max(entries, static_cast<unsigned long>(m_array.getVirtualSize())), kMaxUint32);
    if (quicktimeDbg.on(QtDbgResize1))
        debugMsg("%s::setCap(%ld)-->%d entries @cap=%d, head=%d, n=%d\n", getAtomPath().get(),
                 static_cast<long>(n), static_cast<int>(entries), m_array.getVirtualSize(), getHeadroom(),
                 count);
    long before = static_cast<long>(m_array.getStorageByteCount());
    logIfFalse(m_array.setVirtualSize(static_cast<unsigned int>(entries)), "setCapacity", QT_UTIL_FILE, 5265);
    if (entries > kInMemoryEntries && !m_array.isVirtual())
        logIfFalse(makeDiskBacked(), "setCapacity", QT_UTIL_FILE, 5269);
    else if (!m_array.isVirtual())  // a disk-backed array reports its own cache changes
        adjustCache(TableBytes,
                    static_cast<int32_t>(static_cast<long>(m_array.getStorageByteCount()) - before));
}

bool QtAtomCompTime::addDiskEntry(DiskEntry& entry, unsigned int index) const {
    unsigned int count = getNumEntries();
    bool append = index == count;
    if (append) {
        // Two slots stay free: the recorder may rewrite the last entry and add one more in one step.
        if (static_cast<unsigned long>(count) + 2 >= m_array.getVirtualSize())
            return addMovieResizeNeeded(QtResizeReq::Samples);
        if (count > kInMemoryEntries && !m_array.isVirtual() && !makeDiskBacked()) return false;
    }
    QtAtomCompTime* self = write();
    if (!self->m_array.setElementAt(index, entry, nullptr)) return false;
    // Published after the entry is stored, so that a reader that sees the count sees the entry.
    if (append) self->m_nEntries.store(count + 1, std::memory_order_release);
    return true;
}

bool QtAtomCompTime::addCTTSEntry(DiskEntry& entry, unsigned int index) const {
    return addDiskEntry(entry, getNumEntries() == 0 ? 0 : index);
}

AutoPtr<char> QtAtomCompTime::describeArray() const {
    return FormatStr("%s[%u of %u]%s", m_array.getLabel(), getNumEntries(), m_array.getVirtualSize(),
                     m_array.isVirtual() ? "@disk" : "");
}

bool QtAtomCompTime::badDiskEntry(unsigned int index, DiskEntry& entry) const {
    unsigned int first = m_firstBadEntry.load(std::memory_order_relaxed);
    while (index < first) {
        if (m_firstBadEntry.compare_exchange_weak(first, index, std::memory_order_relaxed)) {
            errorMsg("ctts[%d of %d].cnt=0,%s\n", index, static_cast<int>(getNumEntries()) - 1,
                     describeArray().get());
            break;
        }
    }
    entry.set(1, 0);
    return false;
}

// ---------------------------------------------------------------------------------------------
// Seeds

QtAtomCompTime::SparseSeed const& QtAtomCompTime::getSeed(unsigned int nSamples) const {
    if (nSamples != 0) m_sparseSeed.setSize((nSamples >> 14) + 1);
    unsigned int step = kSeedInterval / kSparseInterval;
    unsigned int sparseSize = m_sparse.size();
    unsigned int seedIdx = 0, zeros = 0;
    for (unsigned int slot = 0; slot < sparseSize; slot += step, ++seedIdx) {
        if (seedIdx >= m_sparseSeed.nEntries) {
            // More anchors than the seed was sized for: the rest are left out of the snapshot.
            errorMsg("%s:%d: %s: assertion \"seedIdx <= m_sparseSeed.nEntries\" failed\n", QT_UTIL_FILE, 5623,
                     "const QtAtomCompTime::SparseSeed& QtAtomCompTime::getSeed(uint) const");
            break;
        }
        Sparse sparse = m_sparse.get(slot);
        if (!sparse.valid()) ++zeros;
        m_sparseSeed.slots[seedIdx] = sparse;
    }
    m_sparseSeed.used = static_cast<uint16_t>(seedIdx);
    m_sparseSeed.interval = kSeedInterval;
    if (zeros) warningMsg("Warning: QtAtomCompTime::SparseSeed has %d zeros\n", zeros);
    return m_sparseSeed;
}

void QtAtomCompTime::setSeed(SparseSeed const& seed) const {
    m_sparseSeed = seed;
    applySeed(seed);
}

void QtAtomCompTime::applySeed(SparseSeed const& seed) const {
    if (seed.used == 0) return;
    unsigned int step = std::max(seed.interval >> 8, 1u);
    m_sparse.grow((seed.used - 1u) * step + 1);
    for (unsigned int i = 0; i < seed.used && i < seed.nEntries; ++i) m_sparse.set(i * step, seed.slots[i]);
}

void QtAtomCompTime::loadKeptSeed() const {
    std::call_once(m_seedLoaded, [this] {
        if (quicktimeDbg.on(QtDbgIgnoreCttsSparseSeedV2)) return;
        QtAtomCompSeed const* kept = QtAtomCompSeed::findFor(*this);
        auto const* stsz = dynamic_cast<QtAtomSampleSize const*>(findSibling(qtId("stsz"), 0));
        if (!kept || !kept->matches(getNumEntries(), stsz ? stsz->getSampleCount() : 0)) return;
        // Only the leading slots that can be anchors of this table are taken; a walk checks each
        // against the table again before it starts from it.
        SparseSeed const& seed = kept->getSeed();
        SparseSeed usable(seed);
        unsigned int used = 0;
        while (used < seed.used && seed.interval == kSeedInterval &&
               seed.slots[used].sample == used * kSeedInterval && seed.slots[used].valid() &&
               seed.slots[used].diskIdx < getNumEntries() && seed.slots[used].anchor <= seed.slots[used].sample)
            ++used;
        usable.used = static_cast<uint16_t>(used);
        applySeed(usable);
    });
}

// ---------------------------------------------------------------------------------------------
// Siblings

namespace {

template <class T>
T const* findSiblingAs(BaseQtAtom const* atom, QtAtomIdType type) {
    return dynamic_cast<T const*>(atom->findSibling(type, 0));
}

template <class T>
T const* cacheFound(std::atomic<T const*>& cache, T const* found) {
    if (found) cache.store(found, std::memory_order_relaxed);
    return found;
}

}  // namespace

// While recording the track's atoms stay as they are, so a sibling found missing stays missing:
// readers then never walk the siblings (whose types the recorder may change, a 'stco' widening).
template <class T>
T const* QtAtomCompTime::findSiblingOnce(std::atomic<T const*>& cache, unsigned int absentBit,
                                         QtAtomIdType type) const {
    if (m_absentSiblings.load(std::memory_order_acquire) & absentBit) return nullptr;
    T const* found = cacheFound(cache, findSiblingAs<T>(this, type));
    if (!found && m_recording.load(std::memory_order_acquire))
        m_absentSiblings.fetch_or(absentBit, std::memory_order_acq_rel);
    return found;
}

void QtAtomCompTime::settleSiblings() const {
    getStss();
    getStps();
    getCslg();
    getSdtp();
    getTicksPerSample();
}

QtAtomSampleSync const* QtAtomCompTime::getStss() const {
    QtAtomSampleSync const* stss = m_stss.load(std::memory_order_relaxed);
    return stss ? stss : getStssSlow();
}
QtAtomSampleSync const* QtAtomCompTime::getStssSlow() const {
    return findSiblingOnce(m_stss, kAbsentStss, qtId("stss"));
}

QtAtomSampleSync const* QtAtomCompTime::getStps() const {
    QtAtomSampleSync const* stps = m_stps.load(std::memory_order_relaxed);
    return stps ? stps : getStpsSlow();
}
QtAtomSampleSync const* QtAtomCompTime::getStpsSlow() const {
    return findSiblingOnce(m_stps, kAbsentStps, qtId("stps"));
}

QtAtomCompShift const* QtAtomCompTime::getCslg() const {
    QtAtomCompShift const* cslg = m_cslg.load(std::memory_order_relaxed);
    return cslg ? cslg : getCslgSlow();
}
QtAtomCompShift const* QtAtomCompTime::getCslgSlow() const {
    return findSiblingOnce(m_cslg, kAbsentCslg, QtAtomCompShift::kCslgId);
}

QtAtomSampleDepend const* QtAtomCompTime::getSdtp() const {
    QtAtomSampleDepend const* sdtp = m_sdtp.load(std::memory_order_relaxed);
    return sdtp ? sdtp : getSdtpSlow();
}
QtAtomSampleDepend const* QtAtomCompTime::getSdtpSlow() const {
    return findSiblingOnce(m_sdtp, kAbsentSdtp, qtId("sdtp"));
}

unsigned int QtAtomCompTime::getTicksPerSample() const {
    unsigned int ticks = m_ticksPerSample.load(std::memory_order_relaxed);
    if (ticks) return ticks;
    auto const* stts = findSiblingAs<QtAtomSampleTime>(this, qtId("stts"));
    ticks = stts ? stts->getTicksPerSample() : 0;
    if (ticks == 0) return 1;
    m_ticksPerSample.store(ticks, std::memory_order_relaxed);
    return ticks;
}

// ---------------------------------------------------------------------------------------------
// Printout

void QtAtomCompTime::show() const {
    bool verbose = quicktimeDbg.on(QtDbgAllSizes);
    int indent = static_cast<int>(numGeneration()) * 2 + 2;
    unsigned int count = getNumEntries();
    long capacity = getSize() > kHeadSize ? static_cast<long>((getSize() - kHeadSize) / kEntrySize) : 0;
    std::string text =
        FormatStr("%s,cap=%d,cnt/off[%d]={", toString().get(), static_cast<int>(capacity), count).get();
    // A line with a zero count is marked; each line after the first tells its first sample.
    bool badInLine = false;
    unsigned long firstSample = 0;
    auto entry = [&](unsigned int i) {
        DiskEntry run = m_array.elementAt(i, nullptr);
        badInLine = badInLine || run.count == 0;
        firstSample += run.count;
        return std::string(FormatStr("{%d,%d}", run.count, run.offset).get());
    };
    auto lineStart = [&](unsigned int i) {
        if (i == 0) return std::string(FormatStr("\n%*s0:", indent, "").get());
        std::string line = FormatStr(",%s\n%*s[%d]=f%ld:", badInLine ? " <-- bad!!" : "", indent, "", i,
                                     static_cast<long>(firstSample)).get();
        badInLine = false;
        return line;
    };
    text += qtTableEntries(count, verbose, QtListing(), entry, lineStart);
    text += FormatStr("}%s\n", badInLine ? " <-- bad!!" : "").get();
    infoMsg("%s", text.c_str());
}
