#include "quicktime/tables/QtAtomSampleChunkOff.h"

#include <algorithm>
#include <string>

#include "framework/ByteOrder.h"
#include "framework/FormatStr.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtTableBody.h"
#include "quicktime/tables/QtTableText.h"

namespace {

constexpr unsigned long kMaxCount = 0xFFFFFFFFul;
constexpr unsigned long k4GiB = 1ul << 32;
// A reservation of this many chunks or more makes a 'stco' with offsets a 'co64' at once.
constexpr unsigned int kWideCapacity = 2048;

bool newTablesAre64Bit() { return !quicktimeLegacyDbg.on(QtLegacyUseStco); }

}  // namespace

QtAtomSampleChunkOff::QtAtomSampleChunkOff(BaseQtAtom const* parent)
    : BaseQtAtom(newTablesAre64Bit() ? kCo64Id : kStcoId, parent,
                 16 + VirtualArrayBase::kResidentLimit * (newTablesAre64Bit() ? 8 : 4)),
      m_cacheAnchor(static_cast<BaseQtAtom const*>(this), &BaseQtAtom::reportTableBytes) {
    m_offsets32.setIoPrep(&BaseQtAtom::ioPrepUint32);
    m_offsets64.setIoPrep(&BaseQtAtom::ioPrepUint64);
    m_offsets32.setStorageCallback(&m_cacheAnchor);
    m_offsets64.setStorageCallback(&m_cacheAnchor);
    (is64Bit() ? static_cast<VirtualArrayBase&>(m_offsets64) : m_offsets32)
        .setVirtualSize(VirtualArrayBase::kResidentLimit);
    m_headroom = VirtualArrayBase::kResidentLimit;
    registerVirtualBase(m_offsets32);
    registerVirtualBase(m_offsets64);
    publishLayout();
}

void QtAtomSampleChunkOff::publishLayout() const {
    // Between a widening setCapacity and the placement, the offsets are still the 32-bit ones.
    bool stillNarrow = m_widenOnPlacement && getNumChunks() > 0 && m_offsets32.getVirtualSize() > 0;
    m_readerLayout.store(is64Bit() && !stillNarrow ? kWideEntries : 0, std::memory_order_release);
}

QtAtomSampleChunkOff::~QtAtomSampleChunkOff() = default;

unsigned int QtAtomSampleChunkOff::nArrayEntries() const {
    return is64Bit() ? m_offsets64.getVirtualSize() : m_offsets32.getVirtualSize();
}

unsigned long QtAtomSampleChunkOff::elementAt(unsigned int index, FileIoClientRec* agent) const {
    return is64Bit() ? m_offsets64.elementAt(index, agent) : m_offsets32.elementAt(index, agent);
}

bool QtAtomSampleChunkOff::assignAt(unsigned int index, unsigned long value) {
    if (is64Bit()) return m_offsets64.setElementAt(index, value, nullptr);
    return m_offsets32.setElementAt(index, static_cast<unsigned int>(value), nullptr);
}

unsigned long QtAtomSampleChunkOff::getChunkOffset(unsigned int chunk, FileIoClientRec* agent) const {
    if (chunk >= getNumChunks()) return 0;
    for (;;) {
        unsigned int layout = m_readerLayout.load(std::memory_order_acquire);
        if (layout & kWidening) {
            std::lock_guard<std::mutex> wait(m_widenMutex);
            continue;
        }
        unsigned long offset =
            layout & kWideEntries ? m_offsets64.elementAt(chunk, agent) : m_offsets32.elementAt(chunk, agent);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (m_readerLayout.load(std::memory_order_relaxed) == layout) return offset;
    }
}

// ---------------------------------------------------------------- decode and encode

bool QtAtomSampleChunkOff::decode(QtAtomBuffer& buffer) {
    bool ok = BaseQtAtom::decode(buffer);
    m_sizeNeeded = 0;
    m_lastOffset = 0;
    m_widenOnPlacement = false;
    m_offsets32.setVirtualSize(0);
    m_offsets64.setVirtualSize(0);
    if (buffer.nOccupied() < 8) {
        m_nEntries = 0;
        m_headroom = 0;
        buffer.removeInput(buffer.nOccupied());
        return false;
    }
    m_versionAndFlags.decode(buffer);
    m_nEntries = decodeUint32(buffer);
    m_damagedCount = 0;
    unsigned int slots = QtTableBody::entryRoom(*this, buffer, getFixedSize(), entryBytes());
    // A count larger than the room empties the table; the room stays reserved.
    if (m_nEntries > slots) {
        m_damagedCount = m_nEntries;
        m_nEntries = 0;
    }
    auto place = [&](auto& array, auto fromDisk) {
        QtTableBody::placeEntries(*this, buffer, array, getFixedSize(), slots, m_nEntries, entryBytes(),
                                  [&](unsigned int i, unsigned char const* p) { array.setElementAt(i, fromDisk(p), nullptr); });
    };
    if (is64Bit())
        place(m_offsets64, getBigEndian64);
    else
        place(m_offsets32, getBigEndian32);
    m_headroom = slots - m_nEntries;
    publishLayout();
    QtTableBody::removeRest(*this, buffer);
    reportTrailingZeros();
    return ok;
}

void QtAtomSampleChunkOff::reportTrailingZeros() const {
    QtTableBody::reportTrailingZeros(*this, getNumChunks(), [this](unsigned int i) { return elementAt(i) == 0; });
}

bool QtAtomSampleChunkOff::encode(QtAtomBuffer& buffer) const {
    unsigned int start = buffer.nOccupied();
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    BaseQtAtom::encode(buffer, getNumChunks());
    // Offsets on disk are already in the file.
    if (isVirtual()) return false;
    unsigned long total = getFixedSize() + static_cast<unsigned long>(nArrayEntries()) * entryBytes();
    if (total > getSize()) {
        // Checked before writing: the writer's buffer holds only the atom's size.
        errorMsg("%s: byte overflow error %s::encode(): %d bytes written, atom size is %d\n", getMoviePath(),
                 idName().render(), static_cast<int>(total), static_cast<int>(getSize()));
        return false;
    }
    for (unsigned int i = 0; i < m_nEntries; ++i) {
        if (is64Bit())
            BaseQtAtom::encode(buffer, m_offsets64.elementAt(i, nullptr));
        else
            BaseQtAtom::encode(buffer, m_offsets32.elementAt(i, nullptr));
    }
    // The reserved slots are written as zero, up to the atom's whole size.
    unsigned int written = buffer.nOccupied() - start;
    if (written < getSize()) buffer.append(static_cast<unsigned int>(getSize()) - written, true);
    if (is64Bit())
        nonConst()->m_offsets64.setClean();
    else
        nonConst()->m_offsets32.setClean();
    return true;
}

// ---------------------------------------------------------------- table operations

bool QtAtomSampleChunkOff::needsAllData() const {
    // 16 entries and the 16-byte head: (width + 1) x 16 bytes.
    return getSize() <= (entryBytes() + 1ul) * VirtualArrayBase::kResidentLimit;
}

unsigned long QtAtomSampleChunkOff::getVariableSize() const {
    return static_cast<unsigned long>(nArrayEntries()) * entryBytes();
}

unsigned int QtAtomSampleChunkOff::getEncodeSize() const {
    return isVirtual() ? getFixedSize() : BaseQtAtom::getEncodeSize();
}

void QtAtomSampleChunkOff::flushVirtualTable() const {
    if (m_offsets32.isVirtual()) nonConst()->m_offsets32.flush();
    if (m_offsets64.isVirtual()) nonConst()->m_offsets64.flush();
}

void QtAtomSampleChunkOff::closeVirtualTable(FileIoClientRec* agent) const {
    nonConst()->m_offsets32.close(agent);
    nonConst()->m_offsets64.close(agent);
}

unsigned long QtAtomSampleChunkOff::getOffsetNeeded(QtAtomSampleSize const* stsz) const {
    if (m_lastOffset) return m_lastOffset;
    if (m_nEntries > 0) return elementAt(m_nEntries - 1);
    if (stsz && stsz->isFixed())
        return static_cast<unsigned long>(stsz->getConstantSampleSize()) * stsz->getSampleCount();
    return 0;
}

bool QtAtomSampleChunkOff::need64BitChunkOff(QtAtomSampleSize const* stsz) const {
    return getOffsetNeeded(stsz) > kMaxCount;
}

// ---------------------------------------------------------------- capacity and placement

bool QtAtomSampleChunkOff::wantsWide(unsigned int capacity) const {
    if (is64Bit()) return true;
    if (m_nEntries == 0) return false;
    unsigned long spacing = m_lastOffset / m_nEntries;
    if (spacing == 0) return false;
    long fitBelow4GiB = static_cast<long>(k4GiB / spacing) - 2;
    return fitBelow4GiB < static_cast<long>(capacity) || capacity >= kWideCapacity;
}

template <class T>
void QtAtomSampleChunkOff::reserve(VirtualArray<T>& array, unsigned int capacity, bool mapNow, int refusedLine,
                                   int backingLine) {
    logIfFalse(array.setVirtualSize(capacity), "setCapacity", QT_UTIL_FILE, refusedLine);
    // Table bytes are the cache of a disk-backed array: counted when the array gets its file, and
    // from then on reported by the array itself. Offsets held in memory are not counted.
    if (capacity > VirtualArrayBase::kResidentLimit && !array.isVirtual()) {
        if (mapNow) array.setMap(entriesOffset());
        logIfFalse(setBackingStore(array), "setCapacity", QT_UTIL_FILE, backingLine);
    }
}

void QtAtomSampleChunkOff::setCapacity(unsigned long request) {
    unsigned int capacity = static_cast<unsigned int>(std::min(request, kMaxCount));
    if (capacity < m_nEntries) {
        errorMsg("QtAtomSampleChunkOff::setCapacity(%ld) < nEntries==%d\n", static_cast<long>(capacity),
                 getNumChunks());
        capacity = m_nEntries;
    }
    bool wide = wantsWide(capacity);
    if (quicktimeDbg.on(QtDbgResize1))
        debugMsg("%s::setCap(%ld)@cap=%d, head=%d, n=%d, %d-bit\n", getAtomPath().get(), static_cast<long>(request),
                 nArrayEntries(), m_headroom, getNumChunks(), wide ? 64 : 32);
    if (wide) {
        bool wasCo64 = is64Bit();
        // The offsets of a 'stco' stay in its array until the next placement widens them into the
        // new one; that placement also gives the new array its place.
        if (!wasCo64) m_widenOnPlacement = true;
        reserve(m_offsets64, capacity, wasCo64, 8536, 8553);
        setId(kCo64Id);
    } else {
        reserve(m_offsets32, capacity, true, 8570, 8579);
    }
    m_headroom = capacity - m_nEntries;
    m_sizeNeeded = 0;
    publishLayout();
}

void QtAtomSampleChunkOff::setSizeAndOffset(QtTreeSize const& size) const {
    if (quicktimeDbg.on(QtDbgResize1))
        debugMsg("%s::set(%ldb@%ld)\n", getAtomPath().get(), static_cast<long>(size.size),
                 static_cast<long>(size.offset));
    QtAtomSampleChunkOff* self = nonConst();
    bool act = m_widenOnPlacement || (size.offset != getFileOffset() && isVirtual());
    self->m_widenOnPlacement = false;
    if (act) {
        unsigned long entries = size.offset + getFixedSize();
        if (!is64Bit())
            self->m_offsets32.mapIndex(m_nEntries, entries);
        else if (m_nEntries > 0 && m_offsets32.getVirtualSize() > 0)
            widen(entries, size.offset == getFileOffset());
        else
            self->m_offsets64.mapIndex(m_nEntries, entries);
    }
    publishLayout();
    BaseQtAtom::setSizeAndOffset(size);
}

// Copies the 32-bit offsets into the 64-bit array placed at `entries`. In place, each 8-byte slot
// covers two 4-byte ones further on, so the copy runs from the last entry down: no offset is
// overwritten before it has been read (the new array writes its pages downwards as well).
void QtAtomSampleChunkOff::widen(unsigned long entries, bool inPlace) const {
    QtAtomSampleChunkOff* self = nonConst();
    std::lock_guard<std::mutex> readersWait(m_widenMutex);
    m_readerLayout.store(kWidening, std::memory_order_release);
    self->m_offsets64.mapIndex(0, entries);
    if (inPlace) {
        for (unsigned int i = m_nEntries; i-- > 0;)
            self->m_offsets64.setElementAt(i, m_offsets32.elementAt(i, nullptr), nullptr);
    } else {
        for (unsigned int i = 0; i < m_nEntries; ++i)
            self->m_offsets64.setElementAt(i, m_offsets32.elementAt(i, nullptr), nullptr);
    }
    // Nothing of the 32-bit array is to be written any more. Emptying it releases its cache, which
    // a disk-backed array takes off the root's table bytes itself.
    self->m_offsets32.setClean();
    m_readerLayout.store(kWideEntries, std::memory_order_release);
    self->m_offsets32.setVirtualSize(0);
}

// ---------------------------------------------------------------- recording

bool QtAtomSampleChunkOff::addOffset(long offset) {
    if (m_nEntries == kMaxCount) return false;
    bool outOfRange = offset < 0 || static_cast<unsigned long>(offset) > kMaxCount;
    if (!is64Bit() && m_nEntries == 0 && outOfRange) {
        unsigned int slots = nArrayEntries();
        setId(kCo64Id);
        setCapacity(slots);
        resetSize();
        addMovieResizeNeeded(QtResizeReq::Samples);
        publishLayout();
    }
    unsigned int slots = nArrayEntries();
    bool fits = static_cast<unsigned long>(m_nEntries) + 1 <= slots;
    bool limited = !is64Bit() && m_nEntries > 0 && offset != 0;
    if (limited && outOfRange) fits = false;
    unsigned long usable = slots;
    if (limited && offset > 0) {
        unsigned long spacing = static_cast<unsigned long>(offset) / m_nEntries;
        if (spacing != 0) {
            long fitBelow4GiB = static_cast<long>(k4GiB / spacing) - 2;
            if (fitBelow4GiB < static_cast<long>(usable)) usable = fitBelow4GiB > 0 ? fitBelow4GiB : 0;
        }
    }
    usable = std::max(usable, static_cast<unsigned long>(m_nEntries) + 1);
    m_headroom = static_cast<unsigned int>(usable - (m_nEntries + 1ul));
    m_lastOffset = static_cast<unsigned long>(offset);
    if (fits) {
        assignAt(m_nEntries, static_cast<unsigned long>(offset));
        ++m_nEntries;
        return true;
    }
    m_sizeNeeded = m_nEntries + 1;
    return addMovieResizeNeeded(QtResizeReq::Samples);
}

void QtAtomSampleChunkOff::createOffsets(unsigned long base, [[maybe_unused]] QtAtomSampleTime const* stts,
                                         QtAtomSampleChunk const* stsc, QtAtomSampleSize const* stsz) {
    // The time-to-sample table is not read here: the sample-to-chunk table completes its last run
    // from its own track's time-to-sample table.
    unsigned int chunks = stsc ? stsc->getNumChunks() : 0;
    if (chunks == 0) chunks = 1;
    unsigned int slots = std::max(chunks, VirtualArrayBase::kResidentLimit);
    bool wide = base > kMaxCount || need64BitChunkOff(stsz) || !quicktimeLegacyDbg.on(QtLegacyUseStco);
    setId(wide ? kCo64Id : kStcoId);
    (wide ? static_cast<VirtualArrayBase&>(m_offsets32) : m_offsets64).setVirtualSize(0);
    m_nEntries = chunks;
    (wide ? static_cast<VirtualArrayBase&>(m_offsets64) : m_offsets32).setVirtualSize(slots);
    unsigned long offset = base;
    unsigned long sample = 0;
    for (unsigned int chunk = 0; chunk < chunks; ++chunk) {
        assignAt(chunk, offset);
        unsigned int samples = stsc ? stsc->getNumChunkSamples(chunk) : 0;
        if (stsz) offset += stsz->getSampleSize(static_cast<unsigned int>(sample), samples, nullptr);
        sample += samples;
    }
    m_headroom = slots - m_nEntries;
    publishLayout();
}

// ---------------------------------------------------------------- printout

void QtAtomSampleChunkOff::show() const {
    std::string text = FormatStr("%s,cap=%d,off[%d]={", toString().get(), nArrayEntries(), getNumChunks()).get();
    int indent = static_cast<int>(2 * numGeneration() + 2);
    text += qtTableEntries(
        getNumChunks(), quicktimeDbg.on(QtDbgAllSizes), QtListing(),
        [this](unsigned int i) { return std::string(FormatStr("%ld", static_cast<long>(elementAt(i))).get()); },
        qtIndexedLines(indent));
    text += "}\n";
    infoMsg("%s", text.c_str());
}
