#include "quicktime/descriptions/QtAtomSampleDesc.h"

#include <algorithm>
#include <string>

#include "framework/Messages.h"
#include "framework/PathParser.h"
#include "quicktime/atoms/QtAtomHandler.h"
#include "quicktime/descriptions/QtAudioSampleDesc.h"
#include "quicktime/descriptions/QtMpeg2SampleDesc.h"
#include "quicktime/descriptions/QtTextSampleDesc.h"
#include "quicktime/descriptions/QtTimecodeSampleDesc.h"
#include "quicktime/descriptions/QtUnknownSampleDesc.h"
#include "quicktime/descriptions/QtVideoSampleDesc.h"
#include "quicktime/refs/QtAtomDataAlias.h"

namespace {

std::string normalisedPath(char const* path) {
    PathParser parser(path ? path : "");
    parser.reroot();
    return parser.getPath(1);
}

}  // namespace

QtAtomSampleDesc::QtAtomSampleDesc(BaseQtAtom const* parent) : BaseQtAtom(qtId("stsd"), parent, 16) {}

bool QtAtomSampleDesc::decode(QtAtomBuffer& buffer) {
    unsigned int start = buffer.bufferOffset();
    bool ok = BaseQtAtom::decode(buffer);
    m_entries.clear();
    if (!ok || getSize() < getFixedSize() || buffer.nOccupied() < 8) return false;
    m_versionAndFlags.decode(buffer);
    unsigned int count = decodeUint32(buffer);
    unsigned long consumed = buffer.bufferOffset() - start;
    unsigned long remaining = getSize() - consumed;
    // The test is made on the 32-bit product, as a signed value: a count whose product wraps to
    // something small passes it, and decoding then stops at the first entry that is not there.
    if (static_cast<long>(static_cast<int32_t>(count * 16u)) > static_cast<long>(remaining)) count = 0;
    decodeEntries(buffer, count, remaining);
    consumed = buffer.bufferOffset() - start;
    if (consumed < getSize() && !hasEncodedChildren()) buffer.removeInput(getSize() - consumed);
    return true;
}

void QtAtomSampleDesc::decodeEntries(QtAtomBuffer& buffer, unsigned int count, unsigned long remaining) {
    remaining = std::min<unsigned long>(remaining, buffer.nOccupied());
    m_entries.reserve(std::min<unsigned long>(count, remaining / QtSampleDesc::kHeaderSize));
    for (unsigned int i = 0; i < count && remaining >= 4; ++i) {
        unsigned int entrySize = decodeUint32(buffer);
        buffer.prepend(4);
        if (entrySize < QtSampleDesc::kHeaderSize || entrySize > remaining) break;
        // The entry sees only its own bytes, so that no entry can read into the next one.
        QtAtomBuffer entry(buffer.ptrData(), entrySize, QtAtomBuffer::Full);
        QtSampleDesc* desc = createDesc(i + 1);
        desc->decode(entry);
        m_entries.emplace_back(desc);
        unsigned int used = entry.bufferOffset();
        buffer.removeInput(used);
        remaining -= std::min<unsigned long>(used, remaining);
    }
}

bool QtAtomSampleDesc::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    BaseQtAtom::encode(buffer, static_cast<unsigned int>(m_entries.size()));
    for (AutoPtr<QtSampleDesc> const& entry : m_entries) entry->encode(buffer);
    return true;
}

bool QtAtomSampleDesc::hasEncodedChildren() const {
    for (AutoPtr<QtSampleDesc> const& entry : m_entries)
        if (entry->hasEncodedChildren()) return true;
    return false;
}

unsigned long QtAtomSampleDesc::getVariableSize() const {
    unsigned long size = 0;
    for (AutoPtr<QtSampleDesc> const& entry : m_entries) size += entry->getSize();
    return size;
}

void QtAtomSampleDesc::show() const {
    infoMsg("%s,desc[%d]=\n", toString().get(), getCount());
    for (AutoPtr<QtSampleDesc> const& entry : m_entries) {
        entry->show(2 * numGeneration() + 2);
        infoMsg("\n");
    }
}

QtAtomIdType QtAtomSampleDesc::findMediaType() const {
    // Handlers of another component type (a data handler in 'minf') are passed over on the way up.
    for (unsigned int n = 0;; ++n) {
        BaseQtAtom const* handler = findAbove(qtId("hdlr"), n);
        if (!handler) return 0;
        auto const* media = dynamic_cast<QtAtomHandler const*>(handler);
        if (media && media->getComponentType() == qtId("mhlr")) return media->getComponentSubtype();
    }
}

QtSampleDesc* QtAtomSampleDesc::createDesc(unsigned int index) const {
    auto dataRefIndex = static_cast<unsigned short>(index);
    switch (findMediaType()) {
        case qtId("vide"):
            return new QtVideoSampleDesc(*this, dataRefIndex);
        case qtId("soun"):
            return new QtAudioSampleDesc(*this, dataRefIndex);
        case qtId("m2v "):
            return new QtMpeg2SampleDesc(*this, dataRefIndex);
        case qtId("text"):
            return new QtTextSampleDesc(*this, dataRefIndex);
        case qtId("tmcd"):
            return new QtTimecodeSampleDesc(*this, dataRefIndex);
        default:
            return new QtUnknownSampleDesc(*this, dataRefIndex);
    }
}

QtSampleDesc const* QtAtomSampleDesc::getDesc(unsigned int n) const {
    if (n == 0 || n > m_entries.size()) return nullptr;
    return m_entries[n - 1].get();
}

QtVideoSampleDesc const* QtAtomSampleDesc::getVideoDesc(unsigned int n) const {
    return dynamic_cast<QtVideoSampleDesc const*>(getDesc(n));
}

QtAudioSampleDesc const* QtAtomSampleDesc::getAudioDesc(unsigned int n) const {
    return dynamic_cast<QtAudioSampleDesc const*>(getDesc(n));
}

QtMpeg2SampleDesc const* QtAtomSampleDesc::getMpeg2Desc(unsigned int n) const {
    return dynamic_cast<QtMpeg2SampleDesc const*>(getDesc(n));
}

QtTimecodeSampleDesc const* QtAtomSampleDesc::getTimecodeDesc(unsigned int n) const {
    return dynamic_cast<QtTimecodeSampleDesc const*>(getDesc(n));
}

QtVideoSampleDesc* QtAtomSampleDesc::getVideoDesc(unsigned int n) {
    return n && n <= m_entries.size() ? dynamic_cast<QtVideoSampleDesc*>(m_entries[n - 1].get()) : nullptr;
}

QtAudioSampleDesc* QtAtomSampleDesc::getAudioDesc(unsigned int n) {
    return n && n <= m_entries.size() ? dynamic_cast<QtAudioSampleDesc*>(m_entries[n - 1].get()) : nullptr;
}

QtMpeg2SampleDesc* QtAtomSampleDesc::getMpeg2Desc(unsigned int n) {
    return n && n <= m_entries.size() ? dynamic_cast<QtMpeg2SampleDesc*>(m_entries[n - 1].get()) : nullptr;
}

QtTimecodeSampleDesc* QtAtomSampleDesc::getTimecodeDesc(unsigned int n) {
    return n && n <= m_entries.size() ? dynamic_cast<QtTimecodeSampleDesc*>(m_entries[n - 1].get()) : nullptr;
}

unsigned int QtAtomSampleDesc::getDrefIndex(unsigned int n) const {
    QtSampleDesc const* desc = getDesc(n);
    return desc ? desc->getDataRefIndex() : 0;
}

void QtAtomSampleDesc::append(QtSampleDesc* desc) {
    m_entries.emplace_back(desc);
    resetSize();
}

QtVideoSampleDesc* QtAtomSampleDesc::addVideoDesc(char const* path) const {
    auto* desc = new QtVideoSampleDesc(*this, static_cast<unsigned short>(findAliasIndex(path)));
    write()->append(desc);
    return desc;
}

QtAudioSampleDesc* QtAtomSampleDesc::addAudioDesc(char const* path) const {
    auto* desc = new QtAudioSampleDesc(*this, static_cast<unsigned short>(findAliasIndex(path)));
    write()->append(desc);
    return desc;
}

QtMpeg2SampleDesc* QtAtomSampleDesc::addMpeg2Desc() const {
    auto* desc = new QtMpeg2SampleDesc(*this, static_cast<unsigned short>(m_entries.size() + 1));
    write()->append(desc);
    return desc;
}

QtTimecodeSampleDesc* QtAtomSampleDesc::addTimecodeDesc() const {
    auto* desc = new QtTimecodeSampleDesc(*this, static_cast<unsigned short>(m_entries.size() + 1));
    write()->append(desc);
    return desc;
}

unsigned int QtAtomSampleDesc::findAliasIndex(char const* path) const {
    BaseQtAtom const* mediaInfo = getParent() ? getParent()->getParent() : nullptr;
    BaseQtAtom const* dinf = mediaInfo ? mediaInfo->findAtom("dinf", 0) : nullptr;
    BaseQtAtom const* dref = dinf ? dinf->findAtom("dref", 0) : nullptr;
    std::string wanted = normalisedPath(path);
    if (!dref) return 1;
    for (unsigned int n = 1;; ++n) {
        BaseQtAtom const* alias = dref->findAtom("alis", n - 1);
        if (!alias) return n;
        auto const* dataAlias = dynamic_cast<QtAtomDataAlias const*>(alias);
        if (dataAlias && wanted == dataAlias->getPath()) return n;
    }
}
