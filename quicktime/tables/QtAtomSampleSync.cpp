#include "quicktime/tables/QtAtomSampleSync.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "framework/ByteOrder.h"
#include "framework/FormatStr.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtTableBody.h"
#include "quicktime/tables/QtTableText.h"

namespace {

constexpr unsigned long kMaxUint32 = 0xFFFFFFFFul;
// A lookup that misses its guess walks at most this many entries before bisecting.
constexpr unsigned int kLinearSteps = 8;

int64_t fixedOne() { return FixedPoint<16u>(1u).raw(); }

}  // namespace

// ---------------------------------------------------------------------------------------------
// SyncArray

QtAtomSampleSync::SyncArray::SyncArray(QtAtomIdType type)
    : VirtualArray<unsigned int>(getName(type)), m_name(getName(type)) {}

QtAtomSampleSync::SyncArray::~SyncArray() = default;

char const* QtAtomSampleSync::SyncArray::getName(QtAtomIdType type) {
    if (type == kStssId) return "stss";
    if (type == kStpsId) return "stps";
    return "st?s";
}

bool QtAtomSampleSync::SyncArray::setActiveSize(unsigned int n) {
    if (n > getVirtualSize()) return false;
    m_activeSize.store(n, std::memory_order_release);
    return true;
}

unsigned int QtAtomSampleSync::SyncArray::getHeadroom() const {
    unsigned int allocated = getAllocatedSize(), active = getActiveSize();
    return allocated > active ? allocated - active : 0;
}

// ---------------------------------------------------------------------------------------------
// KeySet

QtAtomSampleSync::KeySet::KeySet(QtFrameSet::Unit unit, FileIoClientRec* agent)
    : Bitset(QtFrameSet::kUnitFrames), m_unit(unit), m_agent(agent), m_node(this) {
    resize(0);
}

void QtAtomSampleSync::KeySet::setKey(unsigned long frame) {
    if (!canHold(frame)) return;
    setAndGrow(static_cast<unsigned int>(frame - getInFrame()));
}

void QtAtomSampleSync::KeySet::reset(QtFrameSet::Unit unit, FileIoClientRec* agent) {
    m_unit = unit;
    resize(0);
    m_agent.store(agent, std::memory_order_relaxed);
}

void QtAtomSampleSync::KeySet::reinit(QtFrameSet::Unit unit, FileIoClientRec* agent) {
    reset(unit, agent);
    m_refCount.set(2);
}

void QtAtomSampleSync::KeySet::release() {
    if (m_refCount.decrement() == 0) delete this;
}

AutoPtr<char> QtAtomSampleSync::KeySet::toString() const {
    char text[256];
    snprintf(text, sizeof text, "keyset(%p,@unit %d,a=%p,ref=%d)[%u]={%u..%u}",
             static_cast<void const*>(this), m_unit, static_cast<void*>(getAgent()), getRefCOunt(), size(),
             getAryIdx0(), getAryIdxN());
    return copyText(text);
}

void QtAtomSampleSync::KeySet::dumpSet() const {
    std::string text = FormatStr("%s={", toString().get()).get();
    char const* separator = "";
    for (unsigned int bit = findNext(0); bit < size(); bit = findNext(bit + 1)) {
        text += FormatStr("%s%d", separator, static_cast<int>(getInFrame() + bit)).get();
        separator = ",";
    }
    text += "}";
    infoMsg("%s\n", text.c_str());
}

// ---------------------------------------------------------------------------------------------
// KeyCache

QtAtomSampleSync::KeyCache::KeyCache() : m_list("stss.anchors.active") {}

QtAtomSampleSync::KeyCache::~KeyCache() {
    while (KeySet* set = m_list.popClient()) set->release();
}

FileIoClientRec* QtAtomSampleSync::KeyCache::orphanAgent() const {
    return reinterpret_cast<FileIoClientRec*>(const_cast<KeyCache*>(this));
}

void QtAtomSampleSync::KeyCache::retire(KeySet& set) {
    m_list.isolate(set.m_node);
    set.m_agent.store(orphanAgent(), std::memory_order_relaxed);
    set.release();
}

AutoReleasePtr<QtAtomSampleSync::KeySet> QtAtomSampleSync::KeyCache::get(QtFrameSet::Unit unit,
                                                                         FileIoClientRec* agent) {
    SorvanPosix::ScopeLock lock(m_mutex);
    KeySet* own = nullptr;
    for (DLinkNode<KeySet>* node = m_list.head(); node; node = node->next()) {
        KeySet* set = node->client();
        if (set->getUnit() == unit) {
            set->preserve();
            return AutoReleasePtr<KeySet>(set);
        }
        if (!own && set->getAgent() == agent) own = set;
    }
    if (own) {
        // Recycle the agent's set for the new unit, unless another reader still holds it: changing
        // it then would change that reader's answers under it, so it leaves the list instead.
        if (own->getRefCOunt() == 1) {
            own->preserve();
            own->reset(unit, agent);
            return AutoReleasePtr<KeySet>(own);
        }
        retire(*own);
    }
    auto* set = new KeySet(unit, agent);
    set->reinit(unit, agent);
    m_list.insert(set->m_node);
    return AutoReleasePtr<KeySet>(set);
}

void QtAtomSampleSync::KeyCache::releaseAgent(FileIoClientRec* agent) {
    SorvanPosix::ScopeLock lock(m_mutex);
    DLinkNode<KeySet>* node = m_list.head();
    while (node) {
        DLinkNode<KeySet>* next = node->next();
        if (node->client()->getAgent() == agent) retire(*node->client());
        node = next;
    }
}

size_t QtAtomSampleSync::KeyCache::count() const {
    SorvanPosix::ScopeLock lock(m_mutex);
    return m_list.size();
}

// ---------------------------------------------------------------------------------------------
// KeyIterator

QtAtomSampleSync::KeyIterator::KeyIterator(SyncArray const& array, FileIoClientRec* agent)
    : m_array(array), m_agent(agent) {}

bool QtAtomSampleSync::KeyIterator::seek(long i) {
    long active = static_cast<long>(m_array.getActiveSize());
    long target = i;
    bool inside = true;
    if (i < 0 || active == 0) {
        target = 0;
        inside = false;
    } else if (i >= active) {
        target = active - 1;
        inside = false;
    }
    if (static_cast<unsigned int>(target) != m_index) {
        m_index = static_cast<unsigned int>(target);
        m_flags = 0;
    }
    return inside;
}

bool QtAtomSampleSync::KeyIterator::fetch(KeyIndex k) {
    if (m_flags & flagOf(k)) return true;
    unsigned long position = static_cast<unsigned long>(m_index) + k;
    if (position >= m_array.getActiveSize()) return false;
    unsigned int value = m_array.elementAt(position, m_agent);
    m_view.add(static_cast<unsigned int>(position));
    if (value == 0 && position != 0) return false;
    (k == Key0 ? m_key0 : m_key1) = value;
    m_flags |= flagOf(k);
    if (k == Key0 && !(m_flags & FrameValid)) {
        m_frame = m_key0;
        m_flags |= FrameValid;
    }
    return true;
}

bool QtAtomSampleSync::KeyIterator::setInBounds(unsigned long f) {
    if (!fetch(Key0) || m_key0 > f) return false;
    if (m_key0 != f && fetch(Key1) && m_key1 <= f) return false;
    m_frame = static_cast<unsigned int>(f);
    m_flags |= FrameValid;
    return true;
}

unsigned int QtAtomSampleSync::KeyIterator::frame() {
    if (m_flags & FrameValid) return m_frame;
    return fetch(Key0) ? m_key0 : 0;
}

unsigned int QtAtomSampleSync::KeyIterator::frame1() { return fetch(Key1) ? m_key1 : 0; }

bool QtAtomSampleSync::KeyIterator::isKey() { return fetch(Key0) && m_key0 == frame(); }

unsigned int QtAtomSampleSync::KeyIterator::operator++() {
    if (fetch(Key0) && fetch(Key1)) {
        ++m_frame;
        if (m_frame >= m_key1) {
            m_key0 = m_key1;
            ++m_index;
            m_flags &= ~static_cast<unsigned int>(Key1Loaded);
        }
    } else {
        m_flags &= ~static_cast<unsigned int>(FrameValid);
    }
    return m_frame;
}

unsigned int QtAtomSampleSync::KeyIterator::operator++(int) {
    unsigned int before = frame();
    ++*this;
    return before;
}

unsigned int QtAtomSampleSync::KeyIterator::operator--() {
    if (m_index == 0) return frame();
    --m_index;
    if (m_flags & Key0Loaded) {
        m_key1 = m_key0;
        m_flags = Key1Loaded;
    } else {
        m_flags = 0;
    }
    fetch(Key0);
    return frame();
}

unsigned int QtAtomSampleSync::KeyIterator::operator--(int) {
    unsigned int before = frame();
    --*this;
    return before;
}

void QtAtomSampleSync::KeyIterator::invalidate() {
    m_index = m_key0 = m_key1 = 0;
    m_flags = 0;
}

// ---------------------------------------------------------------------------------------------
// The atom: construction and storage

QtAtomSampleSync::QtAtomSampleSync(BaseQtAtom const* parent, bool oneBased, QtAtomIdType type)
    : BaseQtAtom(type, parent, kHeadSize + kInMemoryEntries * 4),
      m_cacheAnchor(static_cast<BaseQtAtom const*>(this), &BaseQtAtom::reportTableBytes),
      m_samplesPerEntry(fixedOne()),
      m_array(type) {
    setKeyBase(oneBased ? 1 : 0);
    m_array.setStorageCallback(&m_cacheAnchor);
    registerVirtualBase(m_array);
    logIfFalse(m_array.setVirtualSize(kInMemoryEntries), "QtAtomSampleSync", QT_UTIL_FILE, 6671);
}

QtAtomSampleSync::~QtAtomSampleSync() = default;

void QtAtomSampleSync::setKeyBase(unsigned int base) {
    m_keyBase = base;
    m_array.setIoPrep(base ? BaseQtAtom::ioPrepUint32Base1 : BaseQtAtom::ioPrepUint32);
}

unsigned int QtAtomSampleSync::getFixedSize() const { return BaseQtAtom::getFixedSize() + 8; }

bool QtAtomSampleSync::needsAllData() const {
    return getSize() <= getFixedSize() + kInMemoryEntries * 4;
}

// The entries' bytes in the file: every allocated slot, used or reserved.
unsigned long QtAtomSampleSync::getVariableSize() const {
    return static_cast<unsigned long>(m_array.getAllocatedSize()) * 4;
}

bool QtAtomSampleSync::hasVirtualTable() const { return m_array.isVirtual(); }

void QtAtomSampleSync::flushVirtualTable() const {
    if (m_array.isVirtual()) m_array.flush();
}

void QtAtomSampleSync::closeVirtualTable(FileIoClientRec* agent) const {
    m_keyCache.releaseAgent(agent);
    m_array.close(agent);
}

unsigned int QtAtomSampleSync::getEncodeSize() const {
    if (m_array.isVirtual()) return getFixedSize();
    return static_cast<unsigned int>(std::min<unsigned long>(getSize(), kMaxUint32));
}

bool QtAtomSampleSync::makeDiskBacked() const {
    m_array.setMap(getFileOffset() + getFixedSize());
    return setBackingStore(m_array);
}

void QtAtomSampleSync::setSamplesPerEntry(unsigned long lastSample, unsigned int entries,
                                          char const* countLabel) const {
    FixedPoint<16u> perEntry = FixedPoint<16u>(lastSample + 1) / FixedPoint<16u>(entries);
    if (perEntry < FixedPoint<16u>(1u)) {
        warningMsg("%s: invalid samplesPerEntry %s, lastSample=%d, %s=%d\n", getMoviePath(),
                   perEntry.toString().get(), static_cast<int>(lastSample), countLabel, entries);
        perEntry = FixedPoint<16u>(1u);
    }
    m_samplesPerEntry.store(perEntry.raw(), std::memory_order_relaxed);
}

bool QtAtomSampleSync::decode(QtAtomBuffer& buffer) {
    bool ok = BaseQtAtom::decode(buffer);
    m_array.setName(getId());
    unsigned long head = getFixedSize();
    if (!ok || getSize() < head || buffer.nOccupied() < head - BaseQtAtom::getFixedSize()) {
        m_array.setActiveSize(0);
        QtTableBody::removeRest(*this, buffer);
        return false;
    }
    m_versionAndFlags.decode(buffer);
    unsigned int count = decodeUint32(buffer);
    unsigned int room = QtTableBody::entryRoom(*this, buffer, head, 4);
    if (count > room) count = 0;  // a count the atom cannot hold: an empty table
    m_array.setActiveSize(0);
    // The key base comes from the first entry; as it is converted on the way in, a stored 0 after
    // entry 0 stays 0 (a damaged entry, never turned into -1), and entry 0 is taken as it comes, so
    // that it encodes back to the same bytes.
    unsigned char first[4] = {1, 1, 1, 1};
    if (count) QtTableBody::read(*this, buffer, head, 4, first);
    setKeyBase(isZeroBased(getBigEndian32(first)) ? 0 : 1);
    QtTableBody::placeEntries(*this, buffer, m_array, head, room, count, 4, [this](unsigned int i, unsigned char const* p) {
        unsigned int stored = getBigEndian32(p);
        m_array.setElementAt(i, stored || i == 0 ? stored - m_keyBase : 0, nullptr);
    });
    m_array.setActiveSize(count);
    m_lastSample.store(0, std::memory_order_release);
    m_samplesPerEntry.store(fixedOne(), std::memory_order_relaxed);
    if (count > 0) {
        m_lastSample.store(m_array.elementAt(count - 1, nullptr), std::memory_order_release);
        if (getLastSample() == 0) calcLastSample();
        setSamplesPerEntry(getLastSample(), count, "nEntries");
    }
    QtTableBody::removeRest(*this, buffer);
    reportTrailingZeros();
    return true;
}

// Only an 'stss' can be stored 0-based (its first key is then frame 0 written as 0); an 'stps' is
// always 1-based.
bool QtAtomSampleSync::isZeroBased(unsigned int firstRaw) const {
    return getId() == kStssId && firstRaw == 0;
}

void QtAtomSampleSync::reportTrailingZeros() const {
    QtTableBody::reportTrailingZeros(*this, size(),
                                     [this](unsigned int i) { return m_array.elementAt(i, nullptr) == 0; });
}

void QtAtomSampleSync::calcLastSample() const {
    unsigned int count = size();
    unsigned int zeros = 0;
    unsigned long last = getLastSample();
    for (unsigned int i = count; i > 1; --i) {
        unsigned int value = m_array.elementAt(i - 1, nullptr);
        if (value != 0) {
            last = value;
            break;
        }
        ++zeros;
    }
    // Each trailing zero is taken as one more frame after the last real key.
    m_lastSample.store(static_cast<unsigned int>(std::min(last + zeros, kMaxUint32)),
                       std::memory_order_release);
    if (quicktimeDbg.on(QtDbgAtomErrors))
        debugMsg("%s stsc: last %d of %d entries are zero\n", getMoviePath(), zeros, count);
}

bool QtAtomSampleSync::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    unsigned int count = size();
    bool inMemory = !m_array.isVirtual();
    unsigned int allocated = m_array.getAllocatedSize();
    if (!buffer.reserveRoom(8 + (inMemory ? allocated * 4 : 0))) return false;
    m_versionAndFlags.encode(buffer);
    BaseQtAtom::encode(buffer, count);
    if (!inMemory) return false;  // the entries are in the file already
    for (unsigned int i = 0; i < count; ++i) {
        // A 0 after entry 0 is a damaged entry read as 0: it goes back as it was found.
        unsigned int value = m_array.elementAt(i, nullptr);
        BaseQtAtom::encode(buffer, value == 0 && i != 0 ? 0u : value + m_keyBase);
    }
    buffer.append((allocated - count) * 4, true);
    m_array.setClean();
    return true;
}

void QtAtomSampleSync::setSizeAndOffset(QtTreeSize const& size) const {
    if (size.offset != getFileOffset() && m_array.isVirtual()) {
        if (quicktimeDbg.on(QtDbgResize1))
            debugMsg("%s::set(%ldb@%ld)\n", getAtomPath().get(), static_cast<long>(size.size),
                     static_cast<long>(size.offset));
        m_array.mapIndex(this->size(), size.offset + getFixedSize());
    }
    BaseQtAtom::setSizeAndOffset(size);
}

// ---------------------------------------------------------------------------------------------
// Recording

void QtAtomSampleSync::setCapacity(unsigned long nSamples, unsigned int keyInterval) const {
    unsigned long n = std::min(nSamples, kMaxUint32);
    unsigned int active = size();
    unsigned long last = getLastSample();
    unsigned long entries = n;
    if (keyInterval != 0) {
        entries = (FixedPoint<16u>(n) / FixedPoint<16u>(keyInterval)).round().uintValue();
    } else if (active > 0 && last != 0) {
        FixedPoint<16u> perEntry = FixedPoint<16u>(last + 1) / FixedPoint<16u>(active);
        entries = (FixedPoint<16u>(n) / perEntry).round().uintValue();
    }
    entries = std::min(std::max(entries, static_cast<unsigned long>(active)), kMaxUint32);
    if (quicktimeDbg.on(QtDbgResize1))
        debugMsg("%s::setCap(%ld)-->%d entries @{sz+head}={%d+%d}=%d\n", getAtomPath().get(),
                 static_cast<long>(n), static_cast<int>(entries), active, m_array.getHeadroom(),
                 m_array.getAllocatedSize());
    long before = static_cast<long>(m_array.getStorageByteCount());
    logIfFalse(m_array.setVirtualSize(static_cast<unsigned int>(entries)), "setCapacity", QT_UTIL_FILE, 6726);
    if (entries > kInMemoryEntries && !m_array.isVirtual())
        logIfFalse(makeDiskBacked(), "setCapacity", QT_UTIL_FILE, 6731);
    else if (!m_array.isVirtual())  // a disk-backed array reports its own cache changes
        adjustCache(TableBytes,
                    static_cast<int32_t>(static_cast<long>(m_array.getStorageByteCount()) - before));
}

bool QtAtomSampleSync::appendKey(unsigned long frame) const {
    if (frame > kMaxUint32) return false;
    if (m_array.getHeadroom() == 0) return addMovieResizeNeeded(QtResizeReq::Samples);
    QtAtomSampleSync* self = write();
    unsigned int index = size();
    // The entry is stored before the active size and the last sample are published, so that a
    // reader that sees the new size also sees the entry.
    if (!self->m_array.setElementAt(index, static_cast<unsigned int>(frame), nullptr)) return false;
    if (!logIfFalse(self->m_array.setActiveSize(index + 1), "appendKey", QT_UTIL_FILE, 7054)) return false;
    m_lastSample.store(static_cast<unsigned int>(frame), std::memory_order_release);
    setSamplesPerEntry(frame, index + 1, "newSize");
    // Readers holding this unit's set see the new key without rebuilding it. A set that is new to
    // the cache is filled from the table first, so that it also has the unit's earlier keys.
    getKeySet(QtFrameSet::frameToUnit(frame), nullptr)->setKey(frame);
    return true;
}

// ---------------------------------------------------------------------------------------------
// Lookups

QtAtomSampleSize const* QtAtomSampleSync::getStsz() const {
    QtAtomSampleSize const* stsz = m_stsz.load(std::memory_order_relaxed);
    return stsz ? stsz : getStszSlow();
}

QtAtomSampleSize const* QtAtomSampleSync::getStszSlow() const {
    auto const* stsz = dynamic_cast<QtAtomSampleSize const*>(findSibling(qtId("stsz"), 0));
    if (stsz) m_stsz.store(stsz, std::memory_order_relaxed);
    return stsz;
}

unsigned int QtAtomSampleSync::getStblLastSample() const {
    QtAtomSampleSize const* stsz = getStsz();
    return stsz ? stsz->getSampleCount() : 0;
}

unsigned int QtAtomSampleSync::getKey(unsigned int index, FileIoClientRec* agent) const {
    if (index >= size()) {
        m_cursor.store(0, std::memory_order_relaxed);
        getKeyError(index, agent);
        return 0;
    }
    m_cursor.store(index, std::memory_order_relaxed);
    unsigned int value = m_array.elementAt(index, agent);
    if (value == 0 && index != 0) getKeyError(index, agent);
    return value;
}

unsigned int QtAtomSampleSync::getKeyError(unsigned int index, FileIoClientRec* agent) const {
    bool report = quicktimeDbg.on(QtDbgAtomErrors);
    if (report && index >= size()) debugMsg("%s: stss.key[%d] past end @%d\n", getMoviePath(), index, size());
    if (index >= m_array.getAllocatedSize()) return 0;
    unsigned int value = m_array.elementAt(index, agent);
    if (report && index != 0 && value == 0) debugMsg("%s: stss.key[%d]=0\n", getMoviePath(), index);
    return value;
}

bool QtAtomSampleSync::isKey(unsigned long frame, FileIoClientRec* agent) const {
    // The last sample is read before the active size: appendKey publishes them in the other order.
    unsigned long last = getLastSample();
    unsigned int n = size();
    if (n == 0) return false;
    if (frame > kMaxUint32 || frame > last) {
        if (getStblLastSample() >= frame) return false;
        // Beyond the samples the tables know of: a frame still being recorded counts as a key.
        if (quicktimeDbg.on(QtDbgAtomErrors))
            debugMsg("%s: stss f%ld past last sample @%d\n", getMoviePath(), static_cast<long>(frame),
                     static_cast<int>(last));
        return true;
    }
    LookupView view;
    view.setTarget(frame);
    unsigned int cursor = std::min(m_cursor.load(std::memory_order_relaxed), n - 1);
    unsigned long k = getKey(cursor, agent);
    view.add(cursor);
    if (k == frame) return true;
    // Near the previous lookup: the neighbour decides.
    if (k < frame && cursor + 1 < n) {
        k = getKey(++cursor, agent);
        view.add(cursor);
        if (k == frame) return true;
        if (k > frame) return false;
    } else if (k > frame && cursor != 0) {
        k = getKey(--cursor, agent);
        view.add(cursor);
        if (k == frame) return true;
        if (k < frame) return false;
    }
    // Guess from the mean distance between keys.
    unsigned long guess =
        std::min<unsigned long>((FixedPoint<16u>(frame) / getSamplesPerEntry()).uintValue(), n - 1);
    if (cursor >= guess && k < frame) guess = std::min<unsigned long>(cursor + 1ul, n - 1);
    cursor = static_cast<unsigned int>(guess);
    k = getKey(cursor, agent);
    view.add(cursor);
    if (k == frame) return true;
    // A few linear steps.
    view.mark("lin");
    if (k < frame) {
        for (unsigned int step = 0; step < kLinearSteps; ++step) {
            if (cursor + 1 >= n) return false;
            k = getKey(++cursor, agent);
            view.add(cursor);
            if (k == frame) return true;
            if (k > frame) return false;
        }
    } else {
        for (unsigned int step = 0; step < kLinearSteps && cursor > 0; ++step) {
            k = getKey(--cursor, agent);
            view.add(cursor);
            if (k == frame) return true;
            if (k < frame) return false;
        }
    }
    return lookupBinary(frame, cursor, static_cast<unsigned int>(k), n, agent, view);
}

bool QtAtomSampleSync::lookupBinary(unsigned long frame, unsigned int cursor, unsigned int k, unsigned int n,
                                    FileIoClientRec* agent, LookupView& view) const {
    view.mark("bin");
    long lo, hi;
    if (k >= frame) {
        hi = cursor;
        if (hi == 0) return false;
        lo = 0;
        view.add(0);
        if (getKey(0, agent) == frame) return true;
    } else {
        lo = cursor;
        // Keys grow by at least one per entry, so the frame cannot lie further on than this.
        hi = static_cast<long>(std::min<unsigned long>(lo + (frame - k), n - 1));
        if (hi == lo) return false;
        view.add(static_cast<unsigned int>(hi));
        unsigned int value = getKey(static_cast<unsigned int>(hi), agent);
        if (value == frame) return true;
        if (value < frame) getKey(n - 1, agent);  // a damaged table; the search below finds nothing
    }
    while (hi - lo >= 2) {
        long mid = lo + (hi - lo) / 2;
        view.add(static_cast<unsigned int>(mid));
        unsigned int value = getKey(static_cast<unsigned int>(mid), agent);
        if (value == frame) return true;
        if (value <= frame)
            lo = mid;
        else
            hi = mid;
    }
    if (hi - lo < 1)
        errorMsg("%s: stss bracket {%d,%ld} crosses @idx=%d,f%d\n", getMoviePath(),
                 static_cast<int>(m_cursor.load(std::memory_order_relaxed)), static_cast<long>(frame),
                 static_cast<int>(lo), static_cast<int>(hi));
    return false;
}

void QtAtomSampleSync::set(KeyIterator& iterator, unsigned long f) const {
    iterator.view().setTarget(f);
    if (iterator.setInBounds(f)) return;
    if (iterator.frame() > f && iterator.stepIndex(-1) && iterator.setInBounds(f)) return;
    iterator.seek(static_cast<long>((FixedPoint<16u>(f) / getSamplesPerEntry()).uintValue()));
    if (iterator.setInBounds(f)) return;

    iterator.view().mark("bin");
    unsigned long fr = iterator.frame();
    long d = static_cast<int32_t>(static_cast<uint32_t>(f - fr));
    long lo, hi;
    if (fr < f) {
        lo = iterator.getIndex();
        iterator.stepIndex(d);
        if (iterator.frame() == f) return;
        hi = iterator.frame() > f ? static_cast<long>(iterator.getIndex()) : static_cast<long>(size());
    } else {
        hi = iterator.getIndex();
        iterator.stepIndex(d);
        if (iterator.frame() == f) return;
        lo = iterator.frame() < f ? static_cast<long>(iterator.getIndex()) : -1;
    }
    while (hi - lo >= 2) {
        iterator.seek(lo + (hi - lo) / 2);
        unsigned long frame = iterator.frame();
        if (frame == f) return;
        if (frame <= f)
            lo = iterator.getIndex();
        else
            hi = iterator.getIndex();
    }
    if (iterator.frame() >= f) --iterator;
    if (iterator.setInBounds(f)) return;
    // An 'stps' need not list frame 0; only an 'stss' is expected to bracket it.
    if (size() != 0 && (getId() == kStssId || f != 0))
        errorMsg("%s: stss bracket {%d,%d}={%d,%d} for f%ld\n", getMoviePath(), static_cast<int>(lo),
                 static_cast<int>(hi), iterator.frame(), iterator.frame1(), static_cast<long>(f));
}

AutoReleasePtr<QtAtomSampleSync::KeySet> QtAtomSampleSync::getKeySet(QtFrameSet::Unit unit,
                                                                     FileIoClientRec* agent) const {
    AutoReleasePtr<KeySet> keys = m_keyCache.get(unit, agent);
    if (keys->size() != 0) return keys;
    // Filled outside the cache's lock into private bits, then published whole: a reader sharing the
    // set sees either no bits or all of them.
    Bitset found(QtFrameSet::kUnitFrames);
    found.resize(0);
    unsigned long inFrame = QtFrameSet::unitToFrame(unit);
    unsigned long end = QtFrameSet::unitToFrame(unit + 1);
    KeyIterator iterator(m_array, agent);
    iterator.seek(keys->getAryIdx0());
    set(iterator, inFrame);
    keys->setAryIdx0(iterator.getIndex());
    while (iterator.valid() && iterator.frame() < end) {
        if (iterator.isKey() && iterator.frame() >= inFrame)
            found.setAndGrow(static_cast<unsigned int>(iterator.frame() - inFrame));
        ++iterator;
    }
    keys->setAryIdxN(iterator.getIndex());
    *keys |= found;
    return keys;
}

// ---------------------------------------------------------------------------------------------
// Printouts

void QtAtomSampleSync::show() const {
    bool verbose = quicktimeDbg.on(QtDbgAllSizes);
    int indent = static_cast<int>(numGeneration()) * 2 + 2;
    unsigned int count = size();
    unsigned long capacity = getSize() > kHeadSize ? (getSize() - kHeadSize) / 4 : 0;
    std::string text =
        FormatStr("%s,cap=%d,keyframes[%d]={", toString().get(), static_cast<int>(capacity), count).get();
    text += qtTableEntries(
        count, verbose, QtListing(),
        [this](unsigned int i) { return std::to_string(static_cast<int>(m_array.elementAt(i, nullptr) + m_keyBase)); },
        qtIndexedLines(indent));
    text += "}\n";
    infoMsg("%s", text.c_str());
}
