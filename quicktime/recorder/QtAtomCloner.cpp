#include "quicktime/recorder/QtAtomCloner.h"

#include <algorithm>
#include <cstring>

#include "framework/BasicFileIO.h"
#include "framework/ByteOrder.h"
#include "framework/Messages.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtAtomPreserved.h"

namespace {

void putSize(std::vector<unsigned char>& out, size_t at, unsigned long size) {
    for (int i = 0; i < 4; ++i) out[at + i] = static_cast<unsigned char>(size >> (24 - 8 * i));
}

// The atom's own bytes: its encoding, with the body read from the file when the tree left it there.
bool ownBytes(BaseQtAtom const& atom, BasicFileIO* source, bool container, std::vector<unsigned char>& out) {
    unsigned int fixed = atom.getFixedSize();
    bool untouched = atom.hasUntouchedData();
    unsigned int room = container || untouched ? fixed : std::max(atom.getEncodeSize(), fixed);
    QtAtomBuffer buffer(room + 16);
    atom.encode(buffer);
    unsigned long take = container || untouched ? std::min<unsigned long>(fixed, buffer.nOccupied()) : buffer.nOccupied();
    out.insert(out.end(), buffer.ptrData(), buffer.ptrData() + take);
    if (!untouched || container || atom.getSize() <= fixed) return true;
    if (!source) return false;
    size_t at = out.size();
    out.resize(at + (atom.getSize() - fixed));
    long got = source->readAt(atom.getFileOffset() + fixed, out.data() + at, atom.getSize() - fixed);
    return got == static_cast<long>(atom.getSize() - fixed);
}

}  // namespace

bool QtAtomCloner::serialize(BaseQtAtom const& atom, BasicFileIO* source, std::vector<unsigned char>& out,
                             std::function<bool(BaseQtAtom const&)> const& keep) {
    size_t start = out.size();
    bool container = atom.hasEncodedChildren() && atom.getChild();
    // A container is judged by what is copied of it (the tables a copy leaves out do not count).
    unsigned long copied = container ? 0 : atom.getSize();
    if (copied > kMaxAtomBytes || start > kMaxAtomBytes) {
        errorMsg("%s: %s of %lu bytes is too large to copy\n", atom.getMoviePath(), atom.getAtomPath().get(),
                 std::max<unsigned long>(copied, start));
        return false;
    }
    if (!ownBytes(atom, source, container, out)) return false;
    if (out.size() - start < 8) return false;
    // A 16-byte header is written in its short form: a copied atom is never that large.
    if (atom.getHeaderSize() == 16 && out.size() - start >= 16) {
        out.erase(out.begin() + static_cast<long>(start) + 8, out.begin() + static_cast<long>(start) + 16);
    }
    for (BaseQtAtom const* child = container ? atom.getChild() : nullptr; child; child = child->getSibling())
        if (keep(*child) && !serialize(*child, source, out, keep)) return false;
    putSize(out, start, out.size() - start);
    return true;
}

BaseQtAtom const* QtAtomCloner::build(BaseQtAtom const* parent, unsigned char const* bytes, unsigned long size) {
    if (size < 8) return nullptr;
    std::vector<unsigned char> copy(bytes, bytes + size);
    QtAtomBuffer head(copy.data(), static_cast<unsigned int>(std::min<unsigned long>(size, 16)), QtAtomBuffer::Full);
    BaseQtAtom prototype;
    prototype.decode(head);
    if (prototype.getSize() != size) return nullptr;
    BaseQtAtom* actual = prototype.createActual(parent);
    if (!actual) return nullptr;
    bool container = actual->hasEncodedChildren();
    if (!container && (!actual->needsAllData() || actual->hasUntouchedData())) {
        // Kept whole in memory: the new tree owns no copy of this body on disk.
        actual->removeSelf(false);
        delete actual;
        actual = new QtAtomPreserved(parent, prototype.getId());
    }
    unsigned long fixed = container ? std::min<unsigned long>(actual->getFixedSize(), size) : size;
    QtAtomBuffer body(copy.data(), static_cast<unsigned int>(fixed), QtAtomBuffer::Full);
    actual->decode(body);
    if (!container) return actual;
    for (unsigned long at = fixed; at + 8 <= size;) {
        unsigned long childSize = getBigEndian32(copy.data() + at);
        if (childSize < 8 || at + childSize > size) break;
        build(actual, copy.data() + at, childSize);
        at += childSize;
    }
    return actual;
}

QtAtomBytes& QtAtomBytes::pascal(char const* text) {
    size_t n = std::min<size_t>(strlen(text), 255);
    u8(static_cast<unsigned int>(n));
    m_bytes.insert(m_bytes.end(), text, text + n);
    return *this;
}

QtAtomBytes& QtAtomBytes::open(char const* type) {
    m_open.push_back(m_bytes.size());
    return u32(0).fourcc(type);
}

QtAtomBytes& QtAtomBytes::close() {
    size_t at = m_open.back();
    m_open.pop_back();
    putSize(m_bytes, at, m_bytes.size() - at);
    return *this;
}
