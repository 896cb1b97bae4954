#include "quicktime/atoms/QtAtomMediaHdr.h"

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomMediaHdr::QtAtomMediaHdr(BaseQtAtom const* parent) : BaseQtAtom(qtId("mdhd"), parent, 8 + kBodySize) {}

bool QtAtomMediaHdr::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_creationTime = decodeUint32(buffer);
    m_modificationTime = decodeUint32(buffer);
    m_timeScale = decodeUint32(buffer);
    m_duration = decodeUint32(buffer);
    m_language = decodeUint16(buffer);
    m_quality = decodeUint16(buffer);
    return true;
}

bool QtAtomMediaHdr::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_creationTime);
    encode(buffer, m_modificationTime);
    encode(buffer, m_timeScale);
    encode(buffer, m_duration);
    encode(buffer, m_language);
    encode(buffer, m_quality);
    return true;
}

void QtAtomMediaHdr::set(unsigned int duration, unsigned int timeScale) const {
    nonConst()->m_duration = duration;
    if (timeScale != m_timeScale) write()->m_timeScale = timeScale;
}

void QtAtomMediaHdr::setTimeNow() const {
    uint32_t now = getMacTimeNow();
    QtAtomMediaHdr* self = write();
    self->m_creationTime = now;
    self->m_modificationTime = now;
}

void QtAtomMediaHdr::show() const {
    infoMsg("%s,%dhz,len=%d=%s,lang=%d,q=%d\n", QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(),
            m_timeScale, m_duration, QtAtomHelpers::timeText(m_duration, m_timeScale).get(), m_language,
            m_quality);
}
