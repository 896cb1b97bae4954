#include "quicktime/atoms/QtAtomWriter.h"

#include <algorithm>
#include <vector>

#include "framework/Messages.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/BaseQtAtom.h"

namespace {
constexpr unsigned long kCopyBlock = 1ul << 20;
}

bool QtAtomWriter::copyTree(BaseQtAtom const& root, BasicFileIO& out) {
    AutoRefPtr<BasicFileIO> source = root.getRootFp();
    if (source.get() == &out) {
        errorMsg("%s: a tree is not copied onto its own file\n", out.path());
        return false;
    }
    return writeSubtree(root, source.get(), out);
}

long QtAtomWriter::writeAtom(BaseQtAtom const& atom, BasicFileIO& out) {
    // An atom whose body stays on disk is encoded as its fixed part only.
    unsigned int room = atom.hasUntouchedData() ? atom.getFixedSize() : atom.getEncodeSize();
    room = std::max(room, atom.getFixedSize());
    QtAtomBuffer buffer(room);
    buffer.setFileOffset(atom.getFileOffset());
    atom.encode(buffer);
    if (!buffer.writeTo(out)) {
        errorMsg("%s: cannot write %s at %ld\n", out.path(), atom.getAtomPath().get(),
                 static_cast<long>(atom.getFileOffset()));
        return -1;
    }
    atom.setClean();
    return buffer.nOccupied();
}

std::vector<unsigned char> QtAtomWriter::encodeOwn(BaseQtAtom const& atom) {
    unsigned int fixed = atom.getFixedSize();
    bool container = atom.hasEncodedChildren() && atom.getChild();
    unsigned int room = container || atom.hasUntouchedData() ? fixed : std::max(atom.getEncodeSize(), fixed);
    QtAtomBuffer buffer(room + 16);  // slack for a header that has to take the wide form
    buffer.setFileOffset(atom.getFileOffset());
    atom.encode(buffer);
    unsigned long take = std::min<unsigned long>(buffer.nOccupied(), container ? fixed : atom.getSize());
    return std::vector<unsigned char>(buffer.ptrData(), buffer.ptrData() + take);
}

bool QtAtomWriter::writeSubtree(BaseQtAtom const& atom, BasicFileIO* source, BasicFileIO& out) {
    unsigned long begin = atom.getFileOffset();
    unsigned long end = begin + atom.getSize();
    unsigned long covered = begin;
    bool isRoot = atom.getParent() == nullptr;
    if (!isRoot && atom.isDirty()) {
        long written = writeAtom(atom, out);
        if (written < 0) return false;
        covered = begin + static_cast<unsigned long>(written);
    } else if (!isRoot && source) {
        // A clean atom is what the source holds: its own bytes are copied as they stand, so that a
        // copy reproduces the file exactly even where an encoder normalises a field.
        unsigned long own = atom.getChild() ? std::min(end, begin + atom.getFixedSize()) : end;
        if (!copyRange(*source, out, begin, own)) return false;
        covered = own;
    }
    for (BaseQtAtom const* child = atom.getChild(); child; child = child->getSibling()) {
        if (!writeSubtree(*child, source, out)) return false;
        covered = std::max(covered, child->getFileOffset() + child->getSize());
    }
    if (source && covered < end) return copyRange(*source, out, covered, end);
    return true;
}

bool QtAtomWriter::copyRange(BasicFileIO& source, BasicFileIO& out, unsigned long from, unsigned long to) {
    // A body cut short by the end of the source file is copied as far as it goes.
    to = std::min(to, source.length());
    std::vector<unsigned char> block(static_cast<size_t>(std::min(kCopyBlock, to > from ? to - from : 0)));
    while (from < to) {
        unsigned long n = std::min<unsigned long>(block.size(), to - from);
        long got = source.readAt(from, block.data(), n);
        if (got <= 0) {
            errorMsg("%s: cannot read %ld bytes at %ld\n", source.path(), static_cast<long>(n), static_cast<long>(from));
            return false;
        }
        if (out.writeAt(from, block.data(), static_cast<unsigned long>(got)) != got) {
            errorMsg("%s: cannot write %ld bytes at %ld\n", out.path(), got, static_cast<long>(from));
            return false;
        }
        from += static_cast<unsigned long>(got);
    }
    return true;
}
