#include "quicktime/refs/QtAtomDataAlias.h"

#include <algorithm>

#include "framework/Messages.h"
#include "framework/PathParser.h"
#include "quicktime/atoms/QtAtomHelpers.h"

namespace {

// The form in which data references hold paths, so that equal files compare equal as text.
std::string normalisedPath(char const* path) {
    if (!path) return std::string();
    PathParser parser(path);
    parser.reroot();
    return parser.getPath(1);
}

}  // namespace

bool QtAtomDataAlias::decode(QtAtomBuffer& buffer) {
    bool ok = QtAtomRefBase::decode(buffer);
    m_path.clear();
    m_padding = 0;
    m_recordRead = false;
    m_kept.zero(0);
    m_paddingBytes.zero(0);
    if (!ok) return false;
    unsigned int body = bodyBytesLeft(buffer);
    unsigned int recordBytes = 0;
    if (!isSelfReference()) {
        recordBytes = decodeRecord(buffer, body);
        if (m_recordRead) {
            m_path = m_record.getPath(getRootFp() ? getMoviePath() : nullptr).get();
        }
        if (!recordBytes) {
            m_kept.decode(buffer, body);
            return ok;
        }
        buffer.removeInput(recordBytes);
    }
    m_padding = body - recordBytes;
    // Padding is normally zeros; anything else another writer left there is written back as found.
    unsigned char const* padding = buffer.ptrData();
    if (std::any_of(padding, padding + m_padding, [](unsigned char b) { return b != 0; }))
        m_paddingBytes.decode(buffer, m_padding);
    else
        buffer.removeInput(m_padding);
    return ok;
}

unsigned int QtAtomDataAlias::decodeRecord(QtAtomBuffer& buffer, unsigned int body) {
    // The record sees only this atom's bytes, whatever else the buffer holds.
    QtAtomBuffer window(buffer.ptrData(), body, QtAtomBuffer::Full);
    m_recordRead = m_record.decode(window);
    if (!m_recordRead) return 0;
    unsigned int read = window.bufferOffset();
    unsigned int sizeField = m_record.getSize();  // before getVariableSize brings it up to date
    bool exact = sizeField == read && read == QtAliasRecord::kFixedSize + m_record.getVariableSize();
    return exact ? read : 0;
}

unsigned long QtAtomDataAlias::getVariableSize() const {
    if (isSelfReference()) return m_padding;
    if (m_kept.getSize()) return m_kept.getSize();
    return m_record.getVariableSize() + QtAliasRecord::kFixedSize + m_padding;
}

bool QtAtomDataAlias::encode(QtAtomBuffer& buffer) const {
    if (!QtAtomHelpers::fitsItsSize(*this, "alis")) {
        // A record cannot be cut short: until the owner recomputes the size, only the head goes
        // out, zero-filled to the atom's size.
        unsigned int before = buffer.nOccupied();
        QtAtomRefBase::encode(buffer);
        QtAtomHelpers::padToSize(*this, buffer, before);
        return false;
    }
    if (!buffer.reserveRoom(getFixedSize() + static_cast<unsigned int>(getVariableSize()))) return false;
    QtAtomRefBase::encode(buffer);
    if (!isSelfReference()) {
        if (m_kept.getSize()) {
            m_kept.encode(buffer);
            return true;
        }
        m_record.encode(buffer);
    }
    if (m_paddingBytes.getSize() == m_padding && m_padding)
        m_paddingBytes.encode(buffer);
    else
        buffer.append(m_padding, true);
    return true;
}

bool QtAtomDataAlias::setPath(char const* basePath, char const* targetPath) const {
    if (!targetPath) {
        setFlags(kSelfReference);
        return true;
    }
    setFlags(0);
    std::string target = normalisedPath(targetPath);
    bool hadPath = !m_path.empty();
    if (target == m_path && hasRecord()) return true;
    std::string base = normalisedPath(basePath);
    auto* self = static_cast<QtAtomDataAlias*>(write());
    if (!self->m_record.setPath(basePath ? base.c_str() : nullptr, target.c_str())) return false;
    self->m_path = target;
    self->m_kept.zero(0);
    self->m_recordRead = true;
    self->m_paddingBytes.zero(0);

    unsigned long needed = m_record.getVariableSize() + getFixedSize() + QtAliasRecord::kFixedSize;
    unsigned long size = getSize();
    if (size > needed)
        self->m_padding = static_cast<unsigned int>(size - needed);
    else if (needed > size && !hadPath)
        self->m_padding =
            needed < kReservedSize ? static_cast<unsigned int>(kReservedSize - needed) : kNewOverflowPadding;
    else if (needed > size)
        self->m_padding = kRetargetOverflowPadding;
    else
        self->m_padding = 0;  // the record fills the atom exactly
    return true;
}

void QtAtomDataAlias::show() const {
    infoMsg("%s,%s\n", toString().get(), isSelfReference() ? "self reference" : "");
    if (isSelfReference() || !m_recordRead) return;
    // The record's lines sit one level deeper than the atom's own line.
    m_record.show(2 * numGeneration() + 2);
}
