#include "quicktime/atoms/QtAtomHintMediaHdr.h"

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"

QtAtomHintMediaHdr::QtAtomHintMediaHdr(BaseQtAtom const* parent)
    : BaseQtAtom(qtId("hmhd"), parent, 8 + kBodySize) {}

bool QtAtomHintMediaHdr::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    if (buffer.nOccupied() < kBodySize) return false;
    m_versionAndFlags.decode(buffer);
    m_maxPduSize = decodeUint16(buffer);
    m_avgPduSize = decodeUint16(buffer);
    m_maxBitRate = decodeUint32(buffer);
    m_avgBitRate = decodeUint32(buffer);
    m_slidingAvgBitRate = decodeUint32(buffer);
    return true;
}

bool QtAtomHintMediaHdr::encode(QtAtomBuffer& buffer) const {
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    encode(buffer, m_maxPduSize);
    encode(buffer, m_avgPduSize);
    encode(buffer, m_maxBitRate);
    encode(buffer, m_avgBitRate);
    encode(buffer, m_slidingAvgBitRate);
    return true;
}

void QtAtomHintMediaHdr::show() const {
    infoMsg("%s,max/avg pdu=%d/%d, max/avg/sliding bps=%d/%d/%d\n",
            QtAtomHelpers::fullAtomText(*this, m_versionAndFlags).get(), m_maxPduSize, m_avgPduSize,
            m_maxBitRate, m_avgBitRate, m_slidingAvgBitRate);
}
