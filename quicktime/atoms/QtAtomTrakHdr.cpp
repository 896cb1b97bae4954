#include "quicktime/atoms/QtAtomTrakHdr.h"

#include <string>

#include "framework/FormatStr.h"
#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"
#include "quicktime/atoms/QtAtomMvhd.h"
#include "quicktime/atoms/QtDebug.h"

QtAtomTrakHdr::QtAtomTrakHdr(BaseQtAtom const* parent) : BaseQtAtom(qtId("tkhd"), parent, 8 + kBodySize) {}

bool QtAtomTrakHdr::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_creationTime = decodeUint32(buffer);
    m_modificationTime = decodeUint32(buffer);
    m_trackId = decodeUint32(buffer);
    m_reserved1 = decodeUint32(buffer);
    m_duration = decodeUint32(buffer);
    m_reserved2.decode(buffer);
    m_layer = decodeUint16(buffer);
    m_alternateGroup = decodeUint16(buffer);
    m_volume = decodeUint16(buffer);
    m_reserved3 = decodeUint16(buffer);
    m_matrix.decode(buffer);
    m_width = decodeUint32(buffer) >> 16;
    m_height = decodeUint32(buffer) >> 16;
    return true;
}

bool QtAtomTrakHdr::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_creationTime);
    encode(buffer, m_modificationTime);
    encode(buffer, m_trackId);
    encode(buffer, m_reserved1);
    encode(buffer, m_duration);
    m_reserved2.encode(buffer);
    encode(buffer, m_layer);
    encode(buffer, m_alternateGroup);
    encode(buffer, m_volume);
    encode(buffer, m_reserved3);
    m_matrix.encode(buffer);
    encode(buffer, static_cast<uint32_t>(m_width << 16));
    encode(buffer, static_cast<uint32_t>(m_height << 16));
    return true;
}

void QtAtomTrakHdr::setSize(unsigned int width, unsigned int height, unsigned int volume) const {
    uint16_t volume16 = static_cast<uint16_t>(volume);
    if (width == m_width && height == m_height && volume16 == m_volume) return;
    QtAtomTrakHdr* self = write();
    self->m_width = width;
    self->m_height = height;
    self->m_volume = volume16;
}

void QtAtomTrakHdr::setDuration(unsigned int duration) const {
    if (duration != m_duration) write()->m_duration = duration;
}

unsigned int QtAtomTrakHdr::allocTrackId() const {
    auto const* movieHeader = dynamic_cast<QtAtomMvhd const*>(findAbove(qtId("mvhd"), 0));
    if (!movieHeader) return 0;
    unsigned int trackId = movieHeader->allocTrackId();
    write()->m_trackId = trackId;
    return trackId;
}

void QtAtomTrakHdr::setTimeNow() const {
    uint32_t now = getMacTimeNow();
    QtAtomTrakHdr* self = write();
    self->m_creationTime = now;
    self->m_modificationTime = now;
}

AutoPtr<char> QtAtomTrakHdr::flagText() const {
    uint32_t flags = m_versionAndFlags.flags;
    std::string text = flags & kEnabled ? "enabled" : "disabled";
    if (flags & kInMovie) text += ",movie";
    if (flags & kInPreview) text += ",preview";
    if (flags & kInPoster) text += ",poster";
    return copyText(text.c_str());
}

void QtAtomTrakHdr::show() const {
    int indent = QtAtomHelpers::continuationIndent(*this);
    unsigned int movieScale = getMovieTimeScale();
    infoMsg("%s,trak%d,layer=%d,\n", QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(), m_trackId,
            m_layer);
    infoMsg("%*slen=%s(%d:movie),%dx%d, %s\n", indent, "",
            QtAtomHelpers::timeText(m_duration, movieScale).get(), m_duration, m_width, m_height,
            flagText().get());
    if (!quicktimeDbg.on(QtDbgNoDates))
        infoMsg("%*scre=0x%x,mod=0x%x\n", indent, "", m_creationTime, m_modificationTime);
}
