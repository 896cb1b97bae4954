#include "quicktime/descriptions/QtSampleDesc.h"

#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtIdName.h"
#include "quicktime/descriptions/QtAtomSampleDesc.h"
#include "quicktime/descriptions/QtAudioSampleDesc.h"
#include "quicktime/descriptions/QtVideoSampleDesc.h"

QtSampleDesc::QtSampleDesc(QtAtomSampleDesc const& owner, unsigned int size, unsigned short dataRefIndex)
    : m_size(size), m_dataRefIndex(dataRefIndex), m_owner(&owner) {}

bool QtSampleDesc::decode(QtAtomBuffer& buffer) {
    if (buffer.nOccupied() < kHeaderSize) return false;
    m_size = BaseQtAtom::decodeUint32(buffer);
    m_format = BaseQtAtom::decodeUint32(buffer);
    m_reserved.decode(buffer);
    m_dataRefIndex = BaseQtAtom::decodeUint16(buffer);
    return true;
}

bool QtSampleDesc::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer, m_size);
    BaseQtAtom::encode(buffer, m_format);
    m_reserved.encode(buffer);
    BaseQtAtom::encode(buffer, m_dataRefIndex);
    if (m_keptWhole) m_opaque.encode(buffer);
    return true;
}

bool QtSampleDesc::keepIfShort(QtAtomBuffer& buffer, unsigned int neededSize) {
    if (m_size >= neededSize) return false;
    m_keptWhole = true;
    keepOpaque(buffer, m_size > kHeaderSize ? m_size - kHeaderSize : 0);
    return true;
}

void QtSampleDesc::padToSize(QtAtomBuffer& buffer, unsigned int start) const {
    unsigned int room = roomLeft(buffer, start);
    if (room) buffer.append(room, true);
}

unsigned int QtSampleDesc::roomLeft(QtAtomBuffer const& buffer, unsigned int start) const {
    unsigned int written = buffer.nOccupied() - start;
    return written < m_size ? m_size - written : 0;
}

unsigned int QtSampleDesc::updateSize() const {
    unsigned int size = getFixedSize() + getExtensionSize();
    if (size != m_size) {
        nonConst()->m_size = size;
        m_owner->write()->resetSize();
    }
    return size;
}

bool QtSampleDesc::operator==(QtSampleDesc const& other) const {
    if (m_format != other.m_format) return false;
    auto const* audio = dynamic_cast<QtAudioSampleDesc const*>(this);
    auto const* otherAudio = dynamic_cast<QtAudioSampleDesc const*>(&other);
    if (audio && otherAudio) return *audio == *otherAudio;
    auto const* video = dynamic_cast<QtVideoSampleDesc const*>(this);
    auto const* otherVideo = dynamic_cast<QtVideoSampleDesc const*>(&other);
    if (video && otherVideo) return *video == *otherVideo;
    return false;
}

void QtSampleDesc::showHeader() const {
    infoMsg("sz=%d,fmt=%s,idx=%d", static_cast<int>(m_size), QtIdName(m_format).render(), m_dataRefIndex);
}
