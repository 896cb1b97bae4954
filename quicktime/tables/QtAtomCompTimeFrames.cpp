// Reading frame types and display offsets from the composition offset runs: the frame sets that
// cache one unit each, the walk that fills them from the nearest anchor with the entries read in
// bulk, and the per-sample answer that adds what the dependency table says.

#include <algorithm>
#include <cstdio>
#include <string>

#include "framework/FormatStr.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomCompShift.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomSampleDepend.h"
#include "quicktime/tables/QtGopPattern.h"

namespace {

// Entries read per bulk read: the first read covers a unit; a longer walk doubles it up to the
// largest, so that a pass over the whole table makes few large reads with bounded memory.
constexpr unsigned int kFirstWindow = 320;
constexpr unsigned int kLargestWindow = 8192;
// Slots of the sparse array a walk may fill at least; tables with more entries may fill two per
// entry. Bounds the anchors a small table that claims a huge sample count can make a walk store.
constexpr unsigned int kSparseBudget = 65536;
// A run of disposable frames longer than this is taken as damage when the dependency table is
// asked how far back the reference lies.
constexpr unsigned int kLongestDisposableRun = 256;

uint64_t mix(uint64_t h, uint64_t value) {
    h = (h ^ value) * 0x9E3779B97F4A7C15ull;
    return h ^ (h >> 29);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Sample

AutoPtr<char> QtAtomCompTime::Sample::toString() const {
    return FormatStr("p=%c%d,a=%d,d=%s%d", sampleCodingLetter(type), sample, anchor, offset >= 0 ? "+" : "", offset);
}

// ---------------------------------------------------------------------------------------------
// FrameSet

QtAtomCompTime::FrameSet::FrameSet(QtFrameSet::Unit unit, FileIoClientRec* agent)
    : QtFrameSet(unit), m_agent(agent), m_node(this) {}

QtAtomCompTime::FrameSet::~FrameSet() {
    if (QtAtomSampleSync::KeySet* keys = m_keySet.exchange(nullptr)) keys->release();
}

void QtAtomCompTime::FrameSet::reset(QtFrameSet::Unit unit, FileIoClientRec* agent) {
    setUnit(unit);
    // Slots past the size are never read, so they are not cleared here.
    m_size.store(0, std::memory_order_release);
    m_filled.store(false, std::memory_order_release);
    m_agent.store(agent, std::memory_order_relaxed);
    if (QtAtomSampleSync::KeySet* keys = m_keySet.exchange(nullptr)) keys->release();
}

void QtAtomCompTime::FrameSet::reinit(QtFrameSet::Unit unit, FileIoClientRec* agent) {
    reset(unit, agent);
    m_refCount.set(2);
}

void QtAtomCompTime::FrameSet::release() {
    if (m_refCount.decrement() == 0) delete this;
}

void QtAtomCompTime::FrameSet::set(AutoReleasePtr<QtAtomSampleSync::KeySet> const& keySet) {
    if (!keySet) return;
    keySet->preserve();
    QtAtomSampleSync::KeySet* expected = nullptr;
    if (!m_keySet.compare_exchange_strong(expected, keySet.get())) keySet->release();
}

void QtAtomCompTime::FrameSet::setType(unsigned int slot, FrameType const& type) {
    if (slot >= kUnitFrames) return;
    m_slots[slot].type.store(type.type, std::memory_order_relaxed);
    m_slots[slot].depend.store(type.depend, std::memory_order_relaxed);
    m_slots[slot].offset.store(type.offset, std::memory_order_relaxed);
    unsigned int size = m_size.load(std::memory_order_relaxed);
    while (size < slot + 1 && !m_size.compare_exchange_weak(size, slot + 1, std::memory_order_release)) {
    }
}

void QtAtomCompTime::FrameSet::setOffset(unsigned long sample, int32_t offset) {
    if (holds(sample)) m_slots[sample - getInFrame()].offset.store(offset, std::memory_order_relaxed);
}

void QtAtomCompTime::FrameSet::update(DiskIterator const& iterator) {
    unsigned long sample = iterator.getSample();
    QtAtomSampleSync::KeySet* keys = getKeySet();
    if (!canHold(sample) || !keys) return;
    keys->preserve();
    AutoReleasePtr<QtAtomSampleSync::KeySet> held(keys);
    unsigned int slot = static_cast<unsigned int>(sample - getInFrame());
    setType(slot, iterator.getFrameType(held));
    if (slot == kUnitFrames - 1 && quicktimeLegacyDbg.on(QtLegacyTraceCtts)) dumpSet();
}

QtAtomCompTime::FrameType QtAtomCompTime::FrameSet::getType(unsigned long sample) const {
    if (!holds(sample)) return FrameType(SampleCodingI, 1);
    Slot const& slot = m_slots[sample - getInFrame()];
    return FrameType(slot.type.load(std::memory_order_relaxed), slot.depend.load(std::memory_order_relaxed),
                     slot.offset.load(std::memory_order_relaxed));
}

AutoPtr<char> QtAtomCompTime::FrameSet::toString() const {
    char text[128];
    snprintf(text, sizeof text, "frmset(%p,@unit %d,a=%p,ks=%p,ref=%d)[%u]", static_cast<void const*>(this),
             getUnit(), static_cast<void*>(getAgent()), static_cast<void*>(getKeySet()), getRefCount(), size());
    return copyText(text);
}

void QtAtomCompTime::FrameSet::dumpSet() const {
    std::string text = FormatStr("%s={", toString().get()).get();
    int joined = 0;
    QtGopPattern previous(static_cast<unsigned int>(getInFrame()));
    QtGopPattern current(static_cast<unsigned int>(getInFrame()));
    unsigned int n = size();
    for (unsigned int slot = 0; slot < n; ++slot) {
        auto type = static_cast<SampleCodingType>(m_slots[slot].type.load(std::memory_order_relaxed));
        if (type == SampleCodingI && current.size() != 0) {
            if (current == previous) {
                previous.markRepeat();
            } else {
                text += previous.toString(joined).get();
                previous = current;
            }
            current.reset(static_cast<unsigned int>(getInFrame() + slot));
        }
        current += type;
    }
    text += previous.toString(joined).get();
    text += current.toString(joined).get();
    infoMsg("%s}\n", text.c_str());
    QtAtomSampleSync::KeySet* keys = getKeySet();
    if (keys && keys->size() != 255) keys->dumpSet();
}

// ---------------------------------------------------------------------------------------------
// FrameSetCache

QtAtomCompTime::FrameSetCache::FrameSetCache() : m_list("ctts:fsCache.active") {}

QtAtomCompTime::FrameSetCache::~FrameSetCache() {
    while (FrameSet* set = m_list.popClient()) set->release();
}

FileIoClientRec* QtAtomCompTime::FrameSetCache::orphanAgent() const {
    return reinterpret_cast<FileIoClientRec*>(const_cast<FrameSetCache*>(this));
}

void QtAtomCompTime::FrameSetCache::retire(FrameSet& set) {
    m_list.isolate(set.m_node);
    set.m_agent.store(orphanAgent(), std::memory_order_relaxed);
    set.release();
}

AutoReleasePtr<QtAtomCompTime::FrameSet> QtAtomCompTime::FrameSetCache::get(QtFrameSet::Unit unit,
                                                                          FileIoClientRec* agent) {
    SorvanPosix::ScopeLock lock(m_mutex);
    FrameSet* own = nullptr;
    for (DLinkNode<FrameSet>* node = m_list.head(); node; node = node->next()) {
        FrameSet* set = node->client();
        if (set->getUnit() == unit) {
            set->preserve();
            return AutoReleasePtr<FrameSet>(set);
        }
        if (set->getAgent() == agent) own = set;  // the last one met is recycled
    }
    if (own) {
        // Recycled only when no reader holds it: changing it then would change that reader's
        // answers under it, so it leaves the list instead.
        if (own->getRefCount() == 1) {
            own->preserve();
            own->reset(unit, agent);
            return AutoReleasePtr<FrameSet>(own);
        }
        retire(*own);
    }
    auto* set = new FrameSet(unit, agent);
    set->reinit(unit, agent);
    m_list.insert(set->m_node);
    return AutoReleasePtr<FrameSet>(set);
}

AutoReleasePtr<QtAtomCompTime::FrameSet> QtAtomCompTime::FrameSetCache::find(QtFrameSet::Unit unit) {
    SorvanPosix::ScopeLock lock(m_mutex);
    for (DLinkNode<FrameSet>* node = m_list.head(); node; node = node->next()) {
        if (node->client()->getUnit() == unit) {
            node->client()->preserve();
            return AutoReleasePtr<FrameSet>(node->client());
        }
    }
    return AutoReleasePtr<FrameSet>();
}

void QtAtomCompTime::FrameSetCache::releaseAgent(FileIoClientRec* agent) {
    SorvanPosix::ScopeLock lock(m_mutex);
    DLinkNode<FrameSet>* node = m_list.head();
    while (node) {
        DLinkNode<FrameSet>* next = node->next();
        if (node->client()->getAgent() == agent) retire(*node->client());
        node = next;
    }
}

size_t QtAtomCompTime::FrameSetCache::count() const {
    SorvanPosix::ScopeLock lock(m_mutex);
    return m_list.size();
}

// ---------------------------------------------------------------------------------------------
// DiskIterator::getFrameType

QtAtomCompTime::FrameType QtAtomCompTime::DiskIterator::getFrameType(
    AutoReleasePtr<QtAtomSampleSync::KeySet> const& keySet) const {
    if (!logIfFalse(m_diskIdx < m_array.getVirtualSize(), "getFrameType", QT_PRIVATE_FILE, 5524))
        return FrameType(SampleCodingI, 1);
    DiskEntry entry = m_array.elementAt(m_diskIdx, m_agent);
    if (m_position > entry.count) return FrameType(SampleCodingI, 1);
    uint32_t depend = std::min(getDependOff(), m_sample);
    if (zeroShifted(entry)) return FrameType(SampleCodingB, depend, entry.offset);
    bool key = keySet && keySet->isKey(m_sample);
    return FrameType(key ? SampleCodingI : SampleCodingP, depend, entry.offset);
}

// ---------------------------------------------------------------------------------------------
// KeyCursor: the keys of a sync table in order, read in bulk, for the signatures of the units a walk
// from the start of the table passes.

class QtAtomCompTime::KeyCursor {
  public:
    KeyCursor(QtAtomSampleSync const* table, FileIoClientRec* agent)
        : m_array(table ? &table->getArray() : nullptr), m_agent(agent), m_active(table ? table->size() : 0) {}

    // Adds the keys in [in, end) to `h`, consuming them; false when the table is not in order.
    bool hashUnit(unsigned long in, unsigned long end, uint64_t& h) {
        while (m_index < m_active) {
            if (m_index < m_first || m_index >= m_first + m_count) {
                m_first = m_index;
                m_count = m_array->readElements(m_index, kWindow, m_agent, m_window);
                if (m_count == 0) return false;
            }
            unsigned int key = m_window[m_index - m_first];
            if (m_index > 0 && key <= m_last) return false;
            if (key >= end) return true;
            if (key >= in) h = mix(h, key - in + 1);
            m_last = key;
            ++m_index;
        }
        return true;
    }

  private:
    static constexpr unsigned int kWindow = 1024;

    QtAtomSampleSync::SyncArray const* m_array;
    FileIoClientRec* m_agent;
    unsigned int m_active;
    unsigned int m_index = 0;
    unsigned int m_last = 0;
    unsigned int m_first = 0;
    unsigned int m_count = 0;
    unsigned int m_window[kWindow];
};

// ---------------------------------------------------------------------------------------------
// UnitShapes

void QtAtomCompTime::UnitShapes::setSignatures(std::vector<std::pair<unsigned int, uint64_t>> const& found) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_disabled) return;
    for (auto const& [unit, signature] : found) {
        if (unit >= m_signatures.size()) m_signatures.resize(static_cast<size_t>(unit) + 1);
        m_signatures[unit] = signature;
    }
}

bool QtAtomCompTime::UnitShapes::find(QtFrameSet::Unit unit, unsigned int slot, FrameType& out) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_disabled || unit >= m_signatures.size() || m_signatures[unit] == 0) return false;
    for (Shape& shape : m_shapes) {
        if (shape.signature == m_signatures[unit] && slot < shape.size) {
            shape.lastUse = ++m_clock;
            out = shape.types[slot];
            return true;
        }
    }
    return false;
}

void QtAtomCompTime::UnitShapes::offer(FrameSet const& set) {
    if (!set.isFilled()) return;
    std::lock_guard<std::mutex> lock(m_mutex);
    QtFrameSet::Unit unit = set.getUnit();
    if (m_disabled || unit >= m_signatures.size() || m_signatures[unit] == 0) return;
    uint64_t signature = m_signatures[unit];
    Shape* target = nullptr;
    for (Shape& shape : m_shapes) {
        if (shape.signature == signature) return;
        if (!target || shape.lastUse < target->lastUse) target = &shape;
    }
    if (m_shapes.size() < kShapeLimit) {
        m_shapes.emplace_back();
        target = &m_shapes.back();
        target->types.reset(new FrameType[QtFrameSet::kUnitFrames]);
    }
    target->signature = signature;
    target->lastUse = ++m_clock;
    target->size = set.size();
    for (unsigned int i = 0; i < target->size; ++i) target->types[i] = set.getType(set.getInFrame() + i);
}

void QtAtomCompTime::UnitShapes::disable() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_disabled = true;
    m_signatures.clear();
    m_shapes.clear();
}

// ---------------------------------------------------------------------------------------------
// RunWalker: a cursor over the runs that moves run by run, reads the entries in bulk and stores
// the anchor of every unit boundary it passes.

class QtAtomCompTime::RunWalker {
  public:
    RunWalker(QtAtomCompTime const& table, unsigned int shift, FileIoClientRec* agent, bool signUnits = false)
        : m_signUnits(signUnits),
          m_table(table),
          m_shift(shift),
          m_agent(agent),
          m_size(table.m_array.getVirtualSize()),
          m_sparseBudget(std::max(kSparseBudget, 2 * std::min(table.getNumEntries(), 0x7FFFFFFFu))) {}

    // Stands on the nearest good anchor at or below the unit, or on sample 0. Anchors that do not
    // fit the table (a damaged seed, a tail rewritten under them) are dropped on the way.
    void start(QtFrameSet::Unit unit) {
        Sparse anchor;
        for (long k = m_table.m_sparse.findValid(unit, anchor); k >= 0;
             k = k > 0 ? m_table.m_sparse.findValid(static_cast<unsigned int>(k - 1), anchor) : -1) {
            if (fits(anchor, static_cast<unsigned int>(k))) {
                m_diskIdx = anchor.diskIdx;
                m_position = anchor.count;
                m_sample = anchor.sample;
                m_zerosBefore = anchor.sample > anchor.anchor ? anchor.sample - anchor.anchor - 1 : 0;
                return;
            }
            if (quicktimeDbg.on(QtDbgSparseTable))
                debugMsg("ctts: sparse[%ld]=%s does not fit the table\n", k, anchor.toString().get());
            m_table.m_sparse.set(static_cast<unsigned int>(k), Sparse());
        }
        m_diskIdx = 0;
        m_position = 1;
        m_sample = 0;
        m_zerosBefore = 0;
        if (load()) storeAnchor();
        startSigning();
    }

    // Walks on to `target`, storing the anchor of every unit boundary reached. False when the
    // table ends first.
    bool advanceTo(unsigned long target) {
        while (m_sample < target) {
            if (!load()) return false;
            unsigned long lastInRun = m_sample + (m_entry.count - m_position);
            unsigned long stop = std::min(target, (m_sample | 0xFF) + 1);
            if (lastInRun >= stop) {
                moveInRun(stop - m_sample);
            } else if (!nextRun() || !skipWholeRuns(stop)) {
                return false;
            }
            if (onBoundary()) {
                storeAnchor();
                if (m_signing) signUnit();
            }
        }
        return load();
    }

    // Fills the set from the walker's sample, the set's first, to the end of the unit or table.
    void fill(FrameSet& set, QtAtomSampleSync::KeySet const* keys) {
        unsigned long in = set.getInFrame();
        while (m_sample < in + kUnitFrames && load()) {
            bool zero = isZero();
            unsigned long n = std::min<unsigned long>(m_entry.count - m_position + 1, in + kUnitFrames - m_sample);
            for (unsigned long i = 0; i < n; ++i) {
                unsigned long s = m_sample + i;
                unsigned long zeros = zero ? m_zerosBefore + i : (i == 0 ? m_zerosBefore : 0);
                uint32_t depend = static_cast<uint32_t>(std::min(zeros + 1, s));
                uint32_t type = zero ? SampleCodingB : keys->isKey(s) ? SampleCodingI : SampleCodingP;
                set.setType(static_cast<unsigned int>(s - in), FrameType(type, depend, m_entry.offset));
            }
            bool endOfRun = m_position + n > m_entry.count;
            if (!endOfRun)
                moveInRun(n);
            else if (!nextRun())
                break;
        }
        if (onBoundary() && load()) storeAnchor();
    }

    unsigned long sample() const { return m_sample; }
    unsigned int diskIdx() const { return m_diskIdx; }
    unsigned int position() const { return m_position; }
    Sparse anchorHere() const {
        unsigned long anchor = m_sample - std::min(m_sample, m_zerosBefore + 1);
        return Sparse(m_diskIdx, m_position, static_cast<unsigned int>(m_sample), static_cast<unsigned int>(anchor));
    }

  private:
    static constexpr unsigned long kUnitFrames = QtFrameSet::kUnitFrames;

    bool m_signUnits;

    bool fits(Sparse const& anchor, unsigned int slot) {
        if (anchor.sample != static_cast<unsigned long>(slot) << 8 || anchor.anchor > anchor.sample ||
            anchor.count == 0 || anchor.diskIdx >= m_size)
            return false;
        DiskEntry const* entry = entryAt(anchor.diskIdx);
        return entry && entry->count >= anchor.count;
    }

    // The entry at an index through the window, refilled in bulk (null past the array).
    DiskEntry const* entryAt(unsigned int index) {
        if (index >= m_size) return nullptr;
        if (index < m_windowFirst || index >= m_windowFirst + m_windowCount) {
            m_windowCapacity = m_windowCapacity ? std::min(2 * m_windowCapacity, kLargestWindow) : kFirstWindow;
            if (!m_window || m_windowAllocated < m_windowCapacity) {
                m_window.reset(new DiskEntry[m_windowCapacity]);
                m_windowAllocated = m_windowCapacity;
            }
            m_windowFirst = index;
            m_windowCount = m_table.m_array.readElements(index, m_windowCapacity, m_agent, m_window.get());
            if (m_windowCount == 0) return nullptr;
        }
        return &m_window[index - m_windowFirst];
    }

    // The current entry; false past the array, at a run of no samples, or past 32-bit samples.
    bool load() {
        DiskEntry const* entry = entryAt(m_diskIdx);
        if (!entry || entry->count == 0 || m_position > entry->count || m_sample > 0xFFFFFFFFul) return false;
        m_entry = *entry;
        return true;
    }

    bool isZero() const { return static_cast<unsigned int>(m_entry.offset) + m_shift == 0; }
    bool onBoundary() const { return (m_sample & 0xFF) == 0; }

    void moveInRun(unsigned long n) {
        if (n == 0) return;
        if (m_signing) m_unitHash = mix(m_unitHash, n << 32 ^ static_cast<unsigned int>(m_entry.offset));
        m_zerosBefore = isZero() ? m_zerosBefore + n : 0;
        m_position += static_cast<unsigned int>(n);
        m_sample += n;
    }

    bool nextRun() {
        moveInRun(m_entry.count - m_position + 1);
        ++m_diskIdx;
        m_position = 1;
        return load();
    }

    // From the first sample of a run, passes every run of the window that ends before `stop`: the
    // long stretch of a pass over the table, one add per run.
    bool skipWholeRuns(unsigned long stop) {
        if (m_position != 1 || m_diskIdx < m_windowFirst) return true;
        unsigned int i = m_diskIdx - m_windowFirst;
        unsigned long sample = m_sample, zeros = m_zerosBefore;
        uint64_t hash = m_unitHash;
        for (; i < m_windowCount; ++i) {
            DiskEntry const& run = m_window[i];
            if (run.count == 0 || sample + run.count >= stop) break;
            zeros = static_cast<unsigned int>(run.offset) + m_shift == 0 ? zeros + run.count : 0;
            sample += run.count;
            if (m_signing) hash = mix(hash, static_cast<uint64_t>(run.count) << 32 ^ static_cast<unsigned int>(run.offset));
        }
        m_diskIdx = m_windowFirst + i;
        m_sample = sample;
        m_zerosBefore = zeros;
        m_unitHash = hash;
        return load();
    }

    // A walk from the start of a table that is not being recorded signs every unit it passes whole.
    void startSigning() {
        m_signing = m_signUnits && !m_table.m_recording.load(std::memory_order_relaxed) && (m_stss || m_stps);
        if (m_signing) beginUnit();
    }

    void beginUnit() {
        m_unitHash = mix(0x243F6A8885A308D3ull, m_zerosBefore);
        // A zero run back to sample 0 makes the distances depend on where the unit lies.
        if (m_sample != 0 && m_zerosBefore >= m_sample) m_unitHash = mix(m_unitHash, m_sample);
    }

    // The unit just passed (the walker stands on the next one's first sample).
    void signUnit() {
        unsigned long in = m_sample - kUnitFrames;
        uint64_t hash = m_unitHash;
        m_signing = m_stssKeys.hashUnit(in, m_sample, hash) && m_stpsKeys.hashUnit(in, m_sample, hash);
        hash = mix(hash, 1);
        if (m_signing && (in >> 8) < m_sparseBudget)
            m_signatures.emplace_back(static_cast<unsigned int>(in >> 8), hash ? hash : 1);
        beginUnit();
    }

    void storeAnchor() {
        unsigned long slot = m_sample >> 8;
        if (slot >= m_sparseBudget) return;
        m_found.emplace_back(static_cast<unsigned int>(slot), anchorHere());
        if (m_found.size() >= kAnchorBatch) storeFound();
    }

  public:
    // Hands the anchors found so far to the table (also done when the walker goes away).
    void storeFound() {
        if (!m_signatures.empty()) m_table.m_shapes.setSignatures(m_signatures);
        m_signatures.clear();
        if (m_found.empty()) return;
        unsigned int replaced = m_table.m_sparse.store(m_found);
        if (replaced && quicktimeDbg.on(QtDbgSparseTable))
            debugMsg("ctts: %u anchors replaced, up to sparse[%u]\n", replaced, m_found.back().first);
        m_found.clear();
    }
    ~RunWalker() { storeFound(); }

  private:
    static constexpr size_t kAnchorBatch = 256;

    QtAtomCompTime const& m_table;
    unsigned int m_shift;
    FileIoClientRec* m_agent;
    unsigned int m_size;
    unsigned long m_sparseBudget;
    unsigned int m_diskIdx = 0;
    unsigned int m_position = 1;
    unsigned long m_sample = 0;
    unsigned long m_zerosBefore = 0;
    DiskEntry m_entry;
    std::unique_ptr<DiskEntry[]> m_window;
    unsigned int m_windowAllocated = 0;
    unsigned int m_windowCapacity = 0;
    unsigned int m_windowFirst = 0;
    unsigned int m_windowCount = 0;
    std::vector<std::pair<unsigned int, Sparse>> m_found;
    // Unit signatures (see UnitShapes), made only by a walk from sample 0.
    QtAtomSampleSync const* m_stss = m_table.getStss();
    QtAtomSampleSync const* m_stps = m_table.getStps();
    KeyCursor m_stssKeys{m_stss, m_agent};
    KeyCursor m_stpsKeys{m_stps, m_agent};
    bool m_signing = false;
    uint64_t m_unitHash = 0;
    std::vector<std::pair<unsigned int, uint64_t>> m_signatures;
};

// ---------------------------------------------------------------------------------------------
// Lookups

unsigned int QtAtomCompTime::getCompShift() const {
    QtAtomCompShift const* cslg = getCslg();
    return cslg ? static_cast<unsigned int>(cslg->getShift()) : 0;
}

AutoReleasePtr<QtAtomSampleSync::KeySet> QtAtomCompTime::getKeySet(QtFrameSet::Unit unit,
                                                                   FileIoClientRec* agent) const {
    QtAtomSampleSync const* stss = getStss();
    QtAtomSampleSync const* stps = getStps();
    if (!stss) return stps ? stps->getKeySet(unit, agent) : AutoReleasePtr<QtAtomSampleSync::KeySet>();
    AutoReleasePtr<QtAtomSampleSync::KeySet> keys = stss->getKeySet(unit, agent);
    if (stps) *keys |= *stps->getKeySet(unit, agent);
    return keys;
}

SampleCodingType QtAtomCompTime::getCodingType(unsigned long sample, int offset, FileIoClientRec* agent) const {
    if (offset == 0) return SampleCodingB;
    QtAtomSampleSync const* stss = getStss();
    if (!stss || stss->isKey(sample, agent)) return SampleCodingI;
    QtAtomSampleSync const* stps = getStps();
    return stps && stps->isKey(sample, agent) ? SampleCodingI : SampleCodingP;
}

AutoReleasePtr<QtAtomCompTime::FrameSet> QtAtomCompTime::getFrameSet(unsigned long sample,
                                                                   FileIoClientRec* agent) const {
    return getFrameSet(sample, agent, false);
}

// Random lookups of single samples (getSample) also sign the units a walk from the start passes;
// readers that go on in order (the sample facade) have no use for it.
AutoReleasePtr<QtAtomCompTime::FrameSet> QtAtomCompTime::getFrameSet(unsigned long sample, FileIoClientRec* agent,
                                                                   bool signUnits) const {
    loadKeptSeed();
    AutoReleasePtr<FrameSet> set = m_frameSets.get(QtFrameSet::frameToUnit(sample), agent);
    if (!set || set->isFilled()) return set;
    fillFrameSet(*set, agent, signUnits);
    return set;
}

void QtAtomCompTime::fillFrameSet(FrameSet& set, FileIoClientRec* agent, bool signUnits) const {
    std::unique_lock<std::recursive_mutex> open(m_openEntries, std::defer_lock);
    if (isRecording() && QtFrameSet::unitToFrame(set.getUnit() + 1) > getSettledSamples()) open.lock();
    AutoReleasePtr<QtAtomSampleSync::KeySet> keys = getKeySet(set.getUnit(), agent);
    if (!keys) return;  // every sample then reads as an I frame
    set.set(keys);
    RunWalker walker(*this, getCompShift(), agent, signUnits);
    walker.start(set.getUnit());
    if (walker.advanceTo(set.getInFrame())) walker.fill(set, keys.get());
    set.setFilled();
}

bool QtAtomCompTime::seekSample(DiskIterator& iterator, unsigned long sample, FileIoClientRec* agent) const {
    loadKeptSeed();
    RunWalker walker(*this, iterator.getShift(), agent);
    walker.start(QtFrameSet::frameToUnit(sample));
    if (!walker.advanceTo(sample)) return false;
    iterator.seek(walker.anchorHere());
    return true;
}

QtAtomCompTime::Sample QtAtomCompTime::getSample(unsigned long sample, FileIoClientRec* agent) const {
    Sample result(static_cast<uint32_t>(sample));
    FrameType type;
    QtFrameSet::Unit unit = QtFrameSet::frameToUnit(sample);
    if (!m_shapes.find(unit, static_cast<unsigned int>(sample - QtFrameSet::unitToFrame(unit)), type)) {
        AutoReleasePtr<FrameSet> set = getFrameSet(sample, agent, true);
        if (!set) return result;
        type = set->getType(sample);
        m_shapes.offer(*set);
    }
    result = Sample(static_cast<uint32_t>(sample), type.depend, type.type);
    if (getSdtp()) applySampleDepend(sample, result, agent);
    result.offset = type.offset / static_cast<int32_t>(getTicksPerSample());
    // The recorder's derive mode stores reference offsets one frame up when there is no 'cslg'.
    if (!getCslg()) result.offset -= 1;
    if (quicktimeLegacyDbg.on(QtLegacyOldCttsLookup)) compareWithOldPath(sample, result, agent);
    return result;
}

// The dependency table refines what the runs say: a frame that no other frame depends on is a B
// frame, and its reference lies before the disposable frames in front of it.
void QtAtomCompTime::applySampleDepend(unsigned long sample, Sample& result, FileIoClientRec* agent) const {
    if (result.type == SampleCodingI) return;
    QtAtomSampleDepend const* sdtp = getSdtp();
    unsigned char b = sdtp->getSampleDepend(sample, agent);
    if ((b & 0x30) != 0x20) {
        if ((b & 0x0C) == 0x08) result.type = SampleCodingB;
    } else if ((b & 0x40) == 0) {
        result.type = SampleCodingB;
        result.reserved = 1;
    } else {
        result.type = SampleCodingP;
    }
    long j = static_cast<long>(sample) - 1;
    for (unsigned int steps = 0; j > 0 && steps < kLongestDisposableRun; ++steps, --j)
        if ((sdtp->getSampleDepend(static_cast<unsigned long>(j), agent) & 0x0C) != 0x08) break;
    result.anchor = static_cast<uint32_t>(j);  // sample - (sample - j)
}

// ---------------------------------------------------------------------------------------------
// The older path: one unit at a time into the absolute array, from anchors it finds itself.

QtAtomCompTime::SparseIterator::SparseIterator(Sparse const& sparse, unsigned int boundIn)
    : diskIdx(sparse.diskIdx),
      position(sparse.count - 1),
      sample(sparse.sample - 1),
      prevAnchor(sparse.anchor),
      anchor(sparse.anchor),
      bound(boundIn) {}

bool QtAtomCompTime::SparseIterator::step(DiskEntry const& entry) {
    unsigned int p = position++;
    if (p >= entry.count) {
        ++diskIdx;
        position = 0;
        return false;
    }
    ++steps;
    ++sample;
    prevAnchor = anchor;
    if (entry.offset != 0) anchor = sample;
    return true;
}

bool QtAtomCompTime::SparseIterator::outOfBounds(bool report) const {
    if (diskIdx < bound) return false;
    if (report) errorMsg("QT::rebuildAbs: index >= %d\n", bound);
    return true;
}

namespace {

// The entry with the shift added to its offset; a run of no samples is repaired in the copy.
QtAtomCompTime::DiskEntry shiftedEntry(QtAtomCompTime const& table, unsigned int index, unsigned int shift,
                                       FileIoClientRec* agent) {
    QtAtomCompTime::DiskEntry entry = table.getEntry(index, agent);
    if (entry.count == 0) table.badDiskEntry(index, entry);
    entry.offset = static_cast<int>(static_cast<unsigned int>(entry.offset) + shift);
    return entry;
}

}  // namespace

// Steps through one unit from the iterator's anchor; ends on the next unit's first sample or
// out of bounds.
bool QtAtomCompTime::walkToUnitForOldPath(unsigned int& k, unsigned int u, unsigned int shift,
                                          FileIoClientRec* agent) const {
    static MsgClamp missing;
    while (k < u) {
        SparseIterator it(m_sparse.get(k), getNumEntries());
        while (!it.onSparseBoundary() && !it.outOfBounds(false)) {
            DiskEntry entry = shiftedEntry(*this, it.diskIdx, shift, agent);
            while (!it.onSparseBoundary() && it.step(entry)) {
            }
        }
        if (!it.onSparseBoundary()) {
            m_sparse.truncate(k + 1);
            if (quicktimeDbg.on(QtDbgAtomErrors) && missing.allow())
                debugMsg("Warning: %s: no ctts entry for frame %d\n", getMoviePath(), it.sample);
            return false;
        }
        Sparse next(it.diskIdx, it.position, it.sample, it.prevAnchor);
        if (quicktimeDbg.on(QtDbgSparseTable)) debugMsg("rebuildAbs(2):sparse[%d]=%s\n", k + 1, next.toString().get());
        m_sparse.set(++k, next);
    }
    return true;
}

void QtAtomCompTime::walkUnitForOldPath(SparseIterator& it, unsigned int shift, unsigned int unitStart,
                                        FileIoClientRec* agent) const {
    bool trace = quicktimeDbg.on(QtDbgAbsTable);
    unsigned int ticks = getTicksPerSample();
    if (trace) debugMsg("build qt ctts abs from %d\nsample: off dep type\n", unitStart);
    unsigned int filled = 0;
    while (!it.onSparseBoundary() && !it.outOfBounds(false)) {
        DiskEntry entry = shiftedEntry(*this, it.diskIdx, shift, agent);
        unsigned int frames = static_cast<unsigned int>(entry.offset) / ticks;
        while (!it.onSparseBoundary() && it.step(entry)) {
            if (it.steps > QtFrameSet::kUnitFrames) continue;
            Absolute& slot = m_absolute.slots[it.steps - 1];
            slot.offset = static_cast<int8_t>(frames);
            slot.depend = static_cast<uint8_t>(it.sample - it.prevAnchor);
            slot.type = getCodingType(it.sample, entry.offset, agent);
            filled = it.steps;
            if (trace)
                debugMsg("%6d:%4d%4d  %c\n", it.sample, slot.offset, slot.depend, sampleCodingLetter(slot.type));
        }
    }
    if (!it.onSparseBoundary()) m_absolute.slots.resize(filled);
}

bool QtAtomCompTime::rebuildAbs(unsigned long f, FileIoClientRec* agent) const {
    if (!getStss()) return false;
    unsigned int u = static_cast<unsigned int>(f >> 8);
    unsigned int shift = getCompShift();
    unsigned int oldSize = m_sparse.size();
    if (u >= oldSize) m_sparse.grow(u + 1);
    if (oldSize == 0) {
        DiskEntry first = getEntry(0, agent);
        if (first.count == 0) return badDiskEntry(0, first);
        unsigned int shifted = static_cast<unsigned int>(first.offset) + shift;
        m_sparse.set(0, Sparse(0, 1, 0, shifted == getTicksPerSample() ? 0 : static_cast<unsigned int>(-2)));
        if (quicktimeDbg.on(QtDbgSparseTable)) debugMsg("rebuildAbs(1):sparse[0]=%s\n", m_sparse.get(0).toString().get());
    }
    unsigned int k = u;
    while (k > 0 && !m_sparse.get(k).valid()) --k;
    if (k == 0 && !m_sparse.get(0).valid()) m_sparse.set(0, Sparse(0, 1, 0, 0));
    if (!walkToUnitForOldPath(k, u, shift, agent)) return false;

    std::lock_guard<std::mutex> lock(m_absolute.mutex);
    if (m_absolute.slots.size() != QtFrameSet::kUnitFrames) m_absolute.slots.assign(QtFrameSet::kUnitFrames, Absolute());
    Sparse from = m_sparse.get(u);
    SparseIterator it(from, getNumEntries());
    walkUnitForOldPath(it, shift, from.sample, agent);
    if (it.onSparseBoundary()) {
        Sparse next(it.diskIdx, it.position, it.sample, it.prevAnchor);
        if (u + 1 < m_sparse.size()) {
            Sparse held = m_sparse.get(u + 1);
            if (held.valid() && !(held == next)) {
                errorMsg("rebuildAbs(4):cur=%s, sparse[%d]=%s\n", next.toString().get(), u + 1, held.toString().get());
                m_sparse.set(u + 1, next);
            }
        } else {
            m_sparse.set(u + 1, next);
            if (quicktimeDbg.on(QtDbgSparseTable)) debugMsg("rebuildAbs(3):sparse[%d]=%s\n", u + 1, next.toString().get());
        }
    }
    m_absolute.base = from.sample;
    if (quicktimeDbg.on(QtDbgCttsTable)) printOldPathTable(std::min(oldSize, u), std::min(u + 2, m_sparse.size()), agent);
    return it.sample >= f;
}

// Runs, anchors and absolute entries side by side, unit by unit (absolute entries of the unit built).
void QtAtomCompTime::printOldPathTable(unsigned int from, unsigned int to, FileIoClientRec* agent) const {
    std::string text = FormatStr("%7s%19s%19s\n", "ctts", "sparse", "absolute").get();
    text += "frm cnt off    idx cnt frm anch    off dep type\n";
    text += "-----------    ----------------    ------------\n";
    for (unsigned int unit = from; unit < to; ++unit) {
        Sparse sparse = m_sparse.get(unit);
        DiskEntry entry = sparse.valid() ? getEntry(sparse.diskIdx, agent) : DiskEntry();
        std::string row = FormatStr("%3d%4d%4d", unit, entry.count, entry.offset).get();
        row += FormatStr("%7d%4d%4d%5d", sparse.diskIdx, sparse.count, sparse.sample, sparse.anchor).get();
        unsigned int slot = sparse.sample - m_absolute.base;
        if (sparse.valid() && slot < m_absolute.slots.size()) {
            Absolute const& a = m_absolute.slots[slot];
            row += FormatStr("%s%7d%4d    %c\n", "", a.offset, a.depend, sampleCodingLetter(a.type)).get();
        } else {
            row += "\n";
        }
        text += row;
    }
    debugMsg("%s", text.c_str());
}

void QtAtomCompTime::compareWithOldPath(unsigned long sample, Sample const& result, FileIoClientRec* agent) const {
    bool built = false;
    {
        std::lock_guard<std::mutex> lock(m_absolute.mutex);
        built = m_absolute.contains(sample);
    }
    if (!built && !rebuildAbs(sample, agent)) return;
    std::lock_guard<std::mutex> lock(m_absolute.mutex);
    if (!m_absolute.contains(sample)) return;
    Absolute const& a = m_absolute.slots[sample - m_absolute.base];
    // The old path knows type and reference; the offset and the dependency table's word are the new one's.
    Sample old(static_cast<uint32_t>(sample), a.depend, a.type, result.offset);
    old.reserved = result.reserved;
    if (!(old == result))
        infoMsg("%s: sample(%d,%p): new={%s},old={%s}\n", getMoviePath(), static_cast<int>(sample),
                static_cast<void*>(agent), result.toString().get(), old.toString().get());
}

