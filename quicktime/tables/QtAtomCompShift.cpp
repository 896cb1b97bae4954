#include "quicktime/tables/QtAtomCompShift.h"

#include <algorithm>

#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomHelpers.h"
#include "quicktime/tables/QtTableBody.h"

namespace {

constexpr unsigned int kFields = 5;

int32_t clampToInt32(int64_t value) {
    return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}

}  // namespace

QtAtomCompShift::QtAtomCompShift(BaseQtAtom const* parent) : BaseQtAtom(kCslgId, parent, kAtomSize) {}

unsigned int QtAtomCompShift::getFixedSize() const {
    return BaseQtAtom::getFixedSize() + 4 + kFields * (isWide() ? 8 : 4);
}

bool QtAtomCompShift::decode(QtAtomBuffer& buffer) {
    if (!BaseQtAtom::decode(buffer)) return false;
    bool ok = QtAtomHelpers::bytesLeft(*this, buffer) >= 4;
    if (ok) {
        m_versionAndFlags.decode(buffer);
        unsigned int width = isWide() ? 8 : 4;
        ok = QtAtomHelpers::bytesLeft(*this, buffer) >= kFields * width;
        int32_t* fields[kFields] = {&m_shift, &m_lsDelta, &m_grDelta, &m_startTm, &m_endTm};
        for (unsigned int i = 0; ok && i < kFields; ++i)
            *fields[i] = width == 8 ? clampToInt32(static_cast<int64_t>(decodeUint64(buffer)))
                                    : static_cast<int32_t>(decodeUint32(buffer));
    }
    QtTableBody::removeRest(*this, buffer);
    return ok;
}

bool QtAtomCompShift::encode(QtAtomBuffer& buffer) const {
    unsigned int before = buffer.nOccupied();
    BaseQtAtom::encode(buffer);
    m_versionAndFlags.encode(buffer);
    for (int32_t field : {m_shift, m_lsDelta, m_grDelta, m_startTm, m_endTm}) {
        if (isWide())
            encode(buffer, static_cast<unsigned long>(static_cast<int64_t>(field)));
        else
            encode(buffer, static_cast<unsigned int>(field));
    }
    QtAtomHelpers::padToSize(*this, buffer, before);
    return true;
}

void QtAtomCompShift::update(int32_t delta, int32_t ticks) const {
    QtAtomCompShift* self = write();
    self->m_lsDelta = std::min(m_lsDelta, delta);
    self->m_grDelta = std::max(m_grDelta, delta);
    self->m_endTm = static_cast<int32_t>(static_cast<uint32_t>(m_endTm) + static_cast<uint32_t>(ticks));
}

void QtAtomCompShift::setShift(int32_t shift) const {
    if (shift != m_shift) write()->m_shift = shift;
}

bool QtAtomCompShift::operator==(QtAtomCompShift const& other) const {
    return m_shift == other.m_shift && m_lsDelta == other.m_lsDelta && m_grDelta == other.m_grDelta &&
           m_startTm == other.m_startTm && m_endTm == other.m_endTm;
}

void QtAtomCompShift::show() const {
    infoMsg("%s,shift=%d,lsDelta=%d,grDelta=%d,startTm=%d,endTm=%d\n", toString().get(), m_shift, m_lsDelta,
            m_grDelta, m_startTm, m_endTm);
}
