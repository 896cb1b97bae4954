#include "quicktime/tables/QtAtomSampleSize.h"

#include <algorithm>
#include <string>

#include "framework/ByteOrder.h"
#include "framework/FormatStr.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtTableBody.h"
#include "quicktime/tables/QtTableText.h"

namespace {

constexpr unsigned int kEntryBytes = 4;
constexpr unsigned long kMaxCount = 0xFFFFFFFFul;

}  // namespace

QtAtomSampleSize::QtAtomSampleSize(BaseQtAtom const* parent)
    : BaseQtAtom(kId, parent, 20 + VirtualArrayBase::kResidentLimit * kEntryBytes),
      m_cacheAnchor(static_cast<BaseQtAtom const*>(this), &BaseQtAtom::reportTableBytes) {
    m_sizes.setIoPrep(&BaseQtAtom::ioPrepUint32);
    m_sizes.setStorageCallback(&m_cacheAnchor);
    m_sizes.setVirtualSize(VirtualArrayBase::kResidentLimit);
    registerVirtualBase(m_sizes);
}

QtAtomSampleSize::~QtAtomSampleSize() = default;

// ---------------------------------------------------------------- decode and encode

bool QtAtomSampleSize::decode(QtAtomBuffer& buffer) {
    bool ok = BaseQtAtom::decode(buffer);
    if (buffer.nOccupied() < 12) {
        // Not even the head is there: an empty table, as for any damaged count.
        m_sizes.setVirtualSize(0);
        m_sampleSize = 1;
        m_nEntries = 0;
        buffer.removeInput(buffer.nOccupied());
        return false;
    }
    m_versionAndFlags.decode(buffer);
    m_decodedSampleSize = m_sampleSize = decodeUint32(buffer);
    m_nEntries = decodeUint32(buffer);
    m_damagedCount = 0;
    if (isFixed()) {
        m_sizes.setVirtualSize(0);
    } else {
        unsigned int room = QtTableBody::entryRoom(*this, buffer, getFixedSize(), kEntryBytes);
        if (m_nEntries > room) {
            // More sizes than the atom holds: a usable empty table of constant size 1.
            m_damagedCount = m_nEntries;
            m_sizes.setVirtualSize(0);
            m_sampleSize = 1;
            m_nEntries = 0;
        } else {
            QtTableBody::placeEntries(*this, buffer, m_sizes, getFixedSize(), room, m_nEntries, kEntryBytes,
                                      [this](unsigned int i, unsigned char const* p) {
                                          m_sizes.setElementAt(i, getBigEndian32(p), nullptr);
                                      });
        }
    }
    QtTableBody::removeRest(*this, buffer);
    reportTrailingZeros();
    return ok;
}

void QtAtomSampleSize::reportTrailingZeros() const {
    if (isFixed()) return;
    QtTableBody::reportTrailingZeros(*this, getSampleCount(),
                                     [this](unsigned int i) { return m_sizes.elementAt(i, nullptr) == 0; });
}

bool QtAtomSampleSize::encode(QtAtomBuffer& buffer) const {
    unsigned int start = buffer.nOccupied();
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    BaseQtAtom::encode(buffer, m_sampleSize);
    unsigned int count = getSampleCount();
    BaseQtAtom::encode(buffer, count);
    if (isFixed()) return true;
    // Sizes on disk are already in the file.
    if (m_sizes.isVirtual() || count > VirtualArrayBase::kResidentLimit) return false;
    unsigned long total = getFixedSize() + static_cast<unsigned long>(count) * kEntryBytes;
    if (total > getSize()) {
        // Checked before writing: the writer's buffer holds only the atom's size.
        errorMsg("%s: byte overflow error stsz::encode(): %d bytes written, atom size is %d\n", getMoviePath(),
                 static_cast<int>(total), static_cast<int>(getSize()));
        return false;
    }
    for (unsigned int i = 0; i < count; ++i) BaseQtAtom::encode(buffer, m_sizes.elementAt(i, nullptr));
    unsigned int written = buffer.nOccupied() - start;
    if (written < getSize()) buffer.append(static_cast<unsigned int>(getSize()) - written, true);
    nonConst()->m_sizes.setClean();
    return true;
}

// ---------------------------------------------------------------- table operations

unsigned long QtAtomSampleSize::getVariableSize() const {
    return isFixed() ? 0 : static_cast<unsigned long>(getCapacity()) * kEntryBytes;
}

unsigned int QtAtomSampleSize::getEncodeSize() const {
    return hasVirtualTable() ? getFixedSize() : BaseQtAtom::getEncodeSize();
}

void QtAtomSampleSize::flushVirtualTable() const {
    if (m_sizes.isVirtual()) nonConst()->m_sizes.flush();
}

void QtAtomSampleSize::closeVirtualTable(FileIoClientRec* agent) const { nonConst()->m_sizes.close(agent); }

void QtAtomSampleSize::setSizeAndOffset(QtTreeSize const& size) const {
    if (size.offset != getFileOffset() && m_sizes.isVirtual()) {
        if (quicktimeDbg.on(QtDbgResize1))
            debugMsg("%s::set(%ldb@%ld)\n", getAtomPath().get(), static_cast<long>(size.size),
                     static_cast<long>(size.offset));
        nonConst()->m_sizes.mapIndex(getSampleCount(), size.offset + getFixedSize());
    }
    BaseQtAtom::setSizeAndOffset(size);
}

unsigned int QtAtomSampleSize::getSizeNeeded() const {
    if (isFixed()) return 0;
    return m_sizeNeeded ? m_sizeNeeded : getSampleCount();
}

void QtAtomSampleSize::setCapacity(unsigned long request) {
    unsigned int capacity = static_cast<unsigned int>(std::min(request, kMaxCount));
    if (!isFixed()) {
        if (quicktimeDbg.on(QtDbgResize1))
            debugMsg("%s::setCap(%ld)@cap=%d, head=%d, n=%d\n", getAtomPath().get(), static_cast<long>(request),
                     getCapacity(), getHeadroom(), getSampleCount());
        m_sizes.setVirtualSize(capacity);
        // Table bytes are the cache of a disk-backed array: counted when the array gets its file,
        // and from then on reported by the array itself as its cache changes. Sizes held in memory
        // are the atom's own and are not counted.
        if (capacity > VirtualArrayBase::kResidentLimit && !m_sizes.isVirtual()) {
            m_sizes.setMap(entriesOffset());
            logIfFalse(setBackingStore(m_sizes), "setCapacity", QT_UTIL_FILE, 7979);
        }
    }
    m_sizeNeeded = 0;
}

// ---------------------------------------------------------------- recording

void QtAtomSampleSize::setFixed(unsigned int size) {
    if (isFixed() && m_sampleSize == size && getCapacity() == 0) return;
    m_sizes.setVirtualSize(0);
    m_decodedSampleSize = m_sampleSize = size;
}

void QtAtomSampleSize::setFixed(unsigned int size, unsigned int count) {
    if (getCapacity() == 0 && m_sampleSize == size && getSampleCount() == count) return;
    m_sizes.setVirtualSize(0);
    m_decodedSampleSize = m_sampleSize = size;
    m_nEntries = count;
}

void QtAtomSampleSize::setVariable() {
    if (!isFixed() && getCapacity() != 0) return;
    m_decodedSampleSize = m_sampleSize = 0;
    if (getCapacity() == 0) m_sizes.setVirtualSize(VirtualArrayBase::kResidentLimit);
}

bool QtAtomSampleSize::addSamples(unsigned int first, unsigned int count, unsigned int size) {
    if (static_cast<unsigned long>(first) + count > kMaxCount)
        return logIfFalse(false, "addSamples", QT_UTIL_FILE, 7993);
    if (!isFixed()) {
        if (first >= getCapacity()) {
            m_sizeNeeded = first + 1;
            return addMovieResizeNeeded(QtResizeReq::Samples);
        }
        m_sizes.setElementAt(first, size, nullptr);
    }
    m_nEntries.store(first + count, std::memory_order_release);
    return true;
}

unsigned int QtAtomSampleSize::getSampleSize(unsigned int first, unsigned int count, FileIoClientRec* agent) const {
    if (isFixed()) return m_sampleSize * count;
    unsigned int sum = 0;
    unsigned long end = static_cast<unsigned long>(first) + count;
    unsigned int samples = getSampleCount();
    for (unsigned long i = first; i < samples && i < end; ++i) {
        // The size of sample `first` times count, each time round: for count 1 the sample's size.
        unsigned int product = m_sizes.elementAt(first, agent) * count;
        if (product == 0) {
            if (quicktimeDbg.on(QtDbgAtomErrors)) debugMsg("%s: stsz[%d]=0\n", getMoviePath(), static_cast<int>(i));
            break;
        }
        sum += product;
    }
    return sum;
}

// ---------------------------------------------------------------- printout

void QtAtomSampleSize::show() const {
    std::string text = std::string(toString().get()) + ",";
    if (isFixed()) {
        if (m_decodedSampleSize != m_sampleSize)
            text += FormatStr("%u samples,sampleSize=%d,%d actual\n", getSampleCount(), m_decodedSampleSize,
                              m_sampleSize).get();
        else
            text += FormatStr("%u samples,sampleSize=%d\n", getSampleCount(), m_sampleSize).get();
        infoMsg("%s", text.c_str());
        return;
    }
    long capacity = getSize() > 20 ? static_cast<long>((getSize() - 20) / kEntryBytes) : 0;
    text += FormatStr("cap=%d,sizes[%d]={", static_cast<int>(capacity), getSampleCount()).get();
    int indent = static_cast<int>(2 * numGeneration() + 2);
    text += qtTableEntries(
        getSampleCount(), quicktimeDbg.on(QtDbgAllSizes), QtListing(),
        [this](unsigned int i) { return std::string(FormatStr("%d", static_cast<int>(m_sizes.elementAt(i, nullptr))).get()); },
        qtIndexedLines(indent));
    text += "}\n";
    infoMsg("%s", text.c_str());
}
