#include "quicktime/atoms/QtAtomMvhd.h"

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"
#include "quicktime/atoms/QtDebug.h"

using QtAtomHelpers::continuationIndent;
using QtAtomHelpers::timeText;

QtAtomMvhd::QtAtomMvhd(BaseQtAtom const* parent, unsigned int timeScale)
    : BaseQtAtom(qtId("mvhd"), parent, 8 + kBodySize),
      m_timeScale(timeScale ? timeScale : kDefaultTimeScale) {}

bool QtAtomMvhd::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_creationTime = decodeUint32(buffer);
    m_modificationTime = decodeUint32(buffer);
    m_timeScale = decodeUint32(buffer);
    m_duration = decodeUint32(buffer);
    m_preferredRate = decodeUint32(buffer);
    m_preferredVolume = decodeUint16(buffer);
    m_reserved.decode(buffer);
    m_matrix.decode(buffer);
    m_previewTime = decodeUint32(buffer);
    m_previewDuration = decodeUint32(buffer);
    m_posterTime = decodeUint32(buffer);
    m_selectionTime = decodeUint32(buffer);
    m_selectionDuration = decodeUint32(buffer);
    m_currentTime = decodeUint32(buffer);
    m_nextTrackId = decodeUint32(buffer);
    return true;
}

bool QtAtomMvhd::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_creationTime);
    encode(buffer, m_modificationTime);
    encode(buffer, m_timeScale);
    encode(buffer, m_duration);
    encode(buffer, m_preferredRate);
    encode(buffer, m_preferredVolume);
    m_reserved.encode(buffer);
    m_matrix.encode(buffer);
    encode(buffer, m_previewTime);
    encode(buffer, m_previewDuration);
    encode(buffer, m_posterTime);
    encode(buffer, m_selectionTime);
    encode(buffer, m_selectionDuration);
    encode(buffer, m_currentTime);
    encode(buffer, m_nextTrackId);
    return true;
}

void QtAtomMvhd::setTime(int64_t microseconds1970) const {
    uint32_t macTime = toMacTime(microseconds1970);
    if (macTime == m_creationTime && macTime == m_modificationTime) return;
    QtAtomMvhd* self = write();
    self->m_creationTime = macTime;
    self->m_modificationTime = macTime;
}

void QtAtomMvhd::set(unsigned int duration, unsigned int selectionTime,
                     unsigned int selectionDuration) const {
    nonConst()->m_duration = duration;
    if (selectionTime == m_selectionTime && selectionDuration == m_selectionDuration) return;
    QtAtomMvhd* self = write();
    self->m_selectionTime = selectionTime;
    self->m_selectionDuration = selectionDuration;
}

unsigned int QtAtomMvhd::allocTrackId() const {
    QtAtomMvhd* self = write();
    return self->m_nextTrackId++;
}

void QtAtomMvhd::show() const {
    int indent = continuationIndent(*this);
    infoMsg("%s,%dhz,len=%d(movie)=%s,next trak=%d\n",
            QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(), m_timeScale, m_duration,
            timeText(m_duration, m_timeScale).get(), m_nextTrackId);
    if (!quicktimeDbg.on(QtDbgNoDates))
        infoMsg("%*scre=0x%x,mod=0x%x,cur=0x%x\n", indent, "", m_creationTime, m_modificationTime,
                m_currentTime);
    infoMsg("%*spreview: start=%s(%d:movie),len=%s(%d:movie)\n", indent, "",
            timeText(m_previewTime, m_timeScale).get(), m_previewTime,
            timeText(m_previewDuration, m_timeScale).get(), m_previewDuration);
    infoMsg("%*sselection: start=%s(%d:movie),len=%s(%d:movie)\n", indent, "",
            timeText(m_selectionTime, m_timeScale).get(), m_selectionTime,
            timeText(m_selectionDuration, m_timeScale).get(), m_selectionDuration);
}
