#include "quicktime/tables/QtAtomCompSeed.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "framework/BasicFileIO.h"
#include "framework/FormatStr.h"
#include "quicktime/atoms/QtAtomHelpers.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtTableBody.h"
#include "quicktime/tables/QtTableText.h"

// Made once for this library; no other writer uses it.
uint8_t const QtAtomCompSeed::kUuid[16] = {0xc7, 0x3e, 0x5a, 0x1d, 0x92, 0x4b, 0x4f, 0x0e,
                                           0xa6, 0x17, 0x3b, 0xd8, 0xe2, 0x59, 0x0c, 0x41};

namespace {

unsigned int stszCount(BaseQtAtom const& atom) {
    auto const* stsz = dynamic_cast<QtAtomSampleSize const*>(atom.findSibling(qtId("stsz"), 0));
    return stsz ? stsz->getSampleCount() : 0;
}

}  // namespace

QtAtomCompSeed::QtAtomCompSeed(BaseQtAtom const* parent, unsigned int slots)
    : BaseQtAtom(kUuidId, parent, kHeadSize + std::clamp(slots, 1u, kMaxSlots) * kSlotSize),
      m_reserved(std::clamp(slots, 1u, kMaxSlots)) {
    m_seed.interval = QtAtomCompTime::kSeedInterval;
}

bool QtAtomCompSeed::isSeed(BaseQtAtom const* prototype, BaseQtAtom const* parent) {
    if (!parent || parent->getId() != qtId("stbl") || prototype->getId() != kUuidId) return false;
    unsigned long size = prototype->getSize();
    if (size < kHeadSize + kSlotSize || size > kHeadSize + static_cast<unsigned long>(kMaxSlots) * kSlotSize)
        return false;
    AutoRefPtr<BasicFileIO> file = parent->getRootFp();
    uint8_t uuid[16];
    return file && file->readAt(prototype->getFileOffset() + prototype->getHeaderSize(), uuid, sizeof uuid) ==
                       static_cast<long>(sizeof uuid) &&
           memcmp(uuid, kUuid, sizeof uuid) == 0;
}

QtAtomCompSeed const* QtAtomCompSeed::findFor(QtAtomCompTime const& ctts) {
    for (unsigned int n = 0;; ++n) {
        BaseQtAtom const* uuid = ctts.findSibling(kUuidId, n);
        if (!uuid) return nullptr;
        if (auto const* seed = dynamic_cast<QtAtomCompSeed const*>(uuid)) return seed;
    }
}

bool QtAtomCompSeed::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    bool ok = QtAtomHelpers::bytesLeft(*this, buffer) >= kHeadSize - 8;
    if (ok) {
        uint8_t uuid[16];
        for (uint8_t& byte : uuid) byte = decodeUint8(buffer);
        m_versionAndFlags.decode(buffer);
        m_entries = decodeUint32(buffer);
        m_samples = decodeUint32(buffer);
        m_seed.interval = decodeUint32(buffer);
        unsigned int used = decodeUint16(buffer);
        unsigned int reserved = decodeUint16(buffer);
        // The room the atom really has wins over what it says it reserved.
        unsigned int room = static_cast<unsigned int>(QtAtomHelpers::roomAfter(*this, kHeadSize) / kSlotSize);
        m_reserved = std::max(1u, std::min(reserved, room));
        used = std::min(used, m_reserved);
        ok = memcmp(uuid, kUuid, sizeof uuid) == 0 && m_versionAndFlags.version == 0 &&
             QtAtomHelpers::bytesLeft(*this, buffer) >= used * kSlotSize;
        m_seed.setSize(ok ? used : 0);
        m_seed.used = static_cast<uint16_t>(ok ? used : 0);
        for (unsigned int i = 0; i < m_seed.used; ++i) {
            QtAtomCompTime::Sparse& slot = m_seed.slots[i];
            slot.diskIdx = decodeUint32(buffer);
            slot.count = decodeUint32(buffer);
            slot.sample = decodeUint32(buffer);
            slot.anchor = decodeUint32(buffer);
        }
    }
    QtTableBody::removeRest(*this, buffer);
    return ok;
}

bool QtAtomCompSeed::encode(QtAtomBuffer& buffer) const {
    unsigned int before = buffer.nOccupied();
    if (!buffer.reserveRoom(static_cast<unsigned int>(getFixedSize() + getVariableSize()))) return false;
    BaseQtAtom::encode(buffer);
    for (uint8_t byte : kUuid) encode(buffer, byte);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_entries);
    encode(buffer, m_samples);
    encode(buffer, m_seed.interval);
    encode(buffer, static_cast<unsigned short>(m_seed.used));
    encode(buffer, static_cast<unsigned short>(m_reserved));
    for (unsigned int i = 0; i < m_seed.used; ++i) {
        QtAtomCompTime::Sparse const& slot = m_seed.slots[i];
        for (unsigned int field : {slot.diskIdx, slot.count, slot.sample, slot.anchor}) encode(buffer, field);
    }
    QtAtomHelpers::padToSize(*this, buffer, before);
    return true;
}

void QtAtomCompSeed::setCapacity(unsigned long nSamples) const {
    unsigned int slots = static_cast<unsigned int>(
        std::min<unsigned long>((nSamples / QtAtomCompTime::kSeedInterval) + 1, kMaxSlots));
    if (slots <= m_reserved) return;
    write()->m_reserved = slots;
}

bool QtAtomCompSeed::store(QtAtomCompTime const& ctts, unsigned long nSamples) const {
    QtAtomCompTime::SparseSeed const& seed = ctts.getSeed(static_cast<unsigned int>(nSamples));
    if (seed.used > m_reserved) return addMovieResizeNeeded(QtResizeReq::Samples);
    QtAtomCompSeed* self = write();
    self->m_seed = seed;
    self->m_entries = ctts.getNumEntries();
    self->m_samples = stszCount(ctts);
    return true;
}

void QtAtomCompSeed::show() const {
    std::string text = FormatStr("%s,ctts[%u],samples=%u,every %u,seed[%u of %u]={", toString().get(), m_entries,
                                 m_samples, m_seed.interval, m_seed.used, m_reserved)
                           .get();
    text += qtTableEntries(m_seed.used, false, QtListing(), [this](unsigned int i) {
        QtAtomCompTime::Sparse const& slot = m_seed.slots[i];
        return std::string(FormatStr("{%u,%u,%u,%u}", slot.diskIdx, slot.count, slot.sample, slot.anchor).get());
    }, qtIndexedLines(0));
    infoMsg("%s}\n", text.c_str());
}
