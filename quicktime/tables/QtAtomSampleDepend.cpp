#include "quicktime/tables/QtAtomSampleDepend.h"

#include <algorithm>
#include <string>

#include "framework/FormatStr.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtTableBody.h"
#include "quicktime/tables/QtTableText.h"

namespace {
constexpr unsigned long kMaxUint32 = 0xFFFFFFFFul;
}

QtAtomSampleDepend::QtAtomSampleDepend(BaseQtAtom const* parent)
    : BaseQtAtom(kSdtpId, parent, kHeadSize + kInMemoryEntries),
      m_cacheAnchor(static_cast<BaseQtAtom const*>(this), &BaseQtAtom::reportTableBytes),
      m_array("sdtp") {
    m_array.setStorageCallback(&m_cacheAnchor);
    registerVirtualBase(m_array);
    m_array.setVirtualSize(kInMemoryEntries);
}

QtAtomSampleDepend::~QtAtomSampleDepend() = default;

QtAtomSampleSize const* QtAtomSampleDepend::getStsz() const {
    QtAtomSampleSize const* stsz = m_stsz.load(std::memory_order_relaxed);
    return stsz ? stsz : getStszSlow();
}

QtAtomSampleSize const* QtAtomSampleDepend::getStszSlow() const {
    auto const* stsz = dynamic_cast<QtAtomSampleSize const*>(findSibling(qtId("stsz"), 0));
    if (stsz) m_stsz.store(stsz, std::memory_order_relaxed);
    return stsz;
}

unsigned int QtAtomSampleDepend::getNumEntries() const {
    QtAtomSampleSize const* stsz = getStsz();
    return stsz ? stsz->getSampleCount() : 0;
}

unsigned int QtAtomSampleDepend::getHeadroom() const {
    unsigned int capacity = m_array.getVirtualSize(), count = getNumEntries();
    return capacity > count ? capacity - count : 0;
}

bool QtAtomSampleDepend::decode(QtAtomBuffer& buffer) {
    bool ok = BaseQtAtom::decode(buffer);
    unsigned long head = getFixedSize();
    if (!ok || getSize() < head || buffer.nOccupied() < 4) {
        m_array.setVirtualSize(0);
        QtTableBody::removeRest(*this, buffer);
        return false;
    }
    m_versionAndFlags.decode(buffer);
    unsigned int room = QtTableBody::entryRoom(*this, buffer, head, 1);
    // The sample count comes from the 'stsz' decoded before this atom; a table that cannot hold
    // that many samples is dropped. Every byte of the room is an entry.
    if (getNumEntries() > room) {
        m_array.setVirtualSize(0);
    } else {
        QtTableBody::placeEntries(*this, buffer, m_array, head, room, room, 1,
                                  [this](unsigned int i, unsigned char const* p) { m_array.setElementAt(i, *p, nullptr); });
    }
    QtTableBody::removeRest(*this, buffer);
    return true;
}

bool QtAtomSampleDepend::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    unsigned int count = getNumEntries();
    bool whole = !m_array.isVirtual() && count <= kInMemoryEntries;
    // In memory the allocated slots are at most 16: the reserve is written as zeros up to them.
    unsigned int slots = std::max(count, std::min(m_array.getVirtualSize(), kInMemoryEntries));
    if (!buffer.reserveRoom(4 + (whole ? slots : 0))) return false;
    m_versionAndFlags.encode(buffer);
    if (!whole) return false;
    for (unsigned int i = 0; i < count; ++i) BaseQtAtom::encode(buffer, m_array.elementAt(i, nullptr));
    buffer.append(slots - count, true);
    m_array.setClean();
    return true;
}

unsigned int QtAtomSampleDepend::getEncodeSize() const {
    if (m_array.isVirtual()) return getFixedSize();
    return static_cast<unsigned int>(std::min<unsigned long>(getSize(), kMaxUint32));
}

void QtAtomSampleDepend::flushVirtualTable() const {
    if (m_array.isVirtual()) m_array.flush();
}

unsigned char QtAtomSampleDepend::getSampleDepend(unsigned long sample, FileIoClientRec* agent) const {
    if (sample >= m_array.getVirtualSize()) return 0;
    return m_array.elementAt(static_cast<unsigned int>(sample), agent);
}

bool QtAtomSampleDepend::addSamples(unsigned long sample, unsigned char value) const {
    if (sample + 1 > kMaxUint32) return false;
    QtAtomSampleDepend* self = write();
    if (sample < m_array.getVirtualSize())
        return self->m_array.setElementAt(static_cast<unsigned int>(sample), value, nullptr);
    m_sizeNeeded = static_cast<unsigned int>(sample + 1);
    return addMovieResizeNeeded(QtResizeReq::Samples);
}

void QtAtomSampleDepend::setCapacity(unsigned long n) const {
    n = std::min(n, kMaxUint32);
    if (quicktimeDbg.on(QtDbgResize1))
        debugMsg("%s::setCap(%ld)@cap=%d, head=%d, n=%d\n", getAtomPath().get(), static_cast<long>(n),
                 m_array.getVirtualSize(), getHeadroom(), getNumEntries());
    long before = static_cast<long>(m_array.getStorageByteCount());
    m_array.setVirtualSize(static_cast<unsigned int>(n));
    if (n > kInMemoryEntries && !m_array.isVirtual()) {
        m_array.setMap(getFileOffset() + getFixedSize());
        logIfFalse(setBackingStore(m_array), "setCapacity", QT_UTIL_FILE, 8245);
    } else if (!m_array.isVirtual()) {  // a disk-backed array reports its own cache changes
        adjustCache(TableBytes,
                    static_cast<int32_t>(static_cast<long>(m_array.getStorageByteCount()) - before));
    }
    m_sizeNeeded = 0;
}

void QtAtomSampleDepend::setSizeAndOffset(QtTreeSize const& size) const {
    if (size.offset != getFileOffset() && m_array.isVirtual()) {
        if (quicktimeDbg.on(QtDbgResize1))
            debugMsg("%s::set(%ldb@%ld)\n", getAtomPath().get(), static_cast<long>(size.size),
                     static_cast<long>(size.offset));
        m_array.mapIndex(getNumEntries(), size.offset + getFixedSize());
    }
    BaseQtAtom::setSizeAndOffset(size);
}

void QtAtomSampleDepend::show() const {
    bool verbose = quicktimeDbg.on(QtDbgAllSizes);
    int indent = static_cast<int>(numGeneration()) * 2 + 2;
    unsigned int count = getNumEntries();
    long capacity = getSize() > kHeadSize ? static_cast<long>(getSize() - kHeadSize) : 0;
    std::string text =
        FormatStr("%s,cap=%d,dep[%d]={", toString().get(), static_cast<int>(capacity), count).get();
    text += qtTableEntries(
        count, verbose, QtListing{16, 5, false}, [this](unsigned int i) { return std::to_string(getSampleDepend(i, nullptr)); },
        qtIndexedLines(indent));
    text += "}\n";
    infoMsg("%s", text.c_str());
}
