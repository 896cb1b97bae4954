#include "quicktime/layout/QtAtomReader.h"

#include <algorithm>

#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtAtomUnknown.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/layout/QtAtomRoot.h"

bool QtAtomReader::readTree(QtAtomRoot const& root) {
    BasicFileIO* file = root.file();
    if (!file) return false;
    readLevel(*file, &root, 0, root.getSize(), 0);
    root.setClean();
    return root.getChild() != nullptr;
}

AutoPtr<QtAtomRoot> QtAtomReader::readFile(char const* path, BasicFileIO::Mode mode) {
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(path, mode);
    if (!file) {
        errorMsg("%s: cannot open: %s\n", path ? path : "<no path>", BasicFileIO::lastOpenError().c_str());
        return AutoPtr<QtAtomRoot>();
    }
    unsigned long length = file->length();
    AutoPtr<QtAtomRoot> root(new QtAtomRoot(file, length));
    // A movie starts with a complete atom (or an open-ended 'mdat'); anything else is not a movie.
    bool movie = readTree(*root);
    BaseQtAtom const* first = root->getChild();
    if (movie && first->getFileOffset() + first->getSize() > length) movie = false;
    if (!movie) {
        errorMsg("%s: not a QuickTime movie\n", path);
        return AutoPtr<QtAtomRoot>();
    }
    return root;
}

void QtAtomReader::readLevel(BasicFileIO& file, BaseQtAtom const* parent, unsigned long start, unsigned long end,
                             unsigned int depth) {
    QtAtomBuffer buffer(64);
    unsigned long offset = start;
    while (offset < end) {
        BaseQtAtom* atom = readOne(file, parent, offset, end, depth, buffer);
        if (!atom) {
            // Nothing more can be read at this level; the bytes that remain stay in the file as
            // they are (the writer copies them).
            if (end - offset < 8 && quicktimeDbg.on(QtDbgAtomErrors))
                debugMsg("%s: %ld trailing bytes in %s at offset %ld\n", parent->getMoviePath(),
                         static_cast<long>(end - offset), parent->getAtomPath().get(), static_cast<long>(offset));
            return;
        }
        // An atom that reaches the end of its level (or, cut short, beyond it) is the last one.
        if (atom->getSize() >= end - offset) return;
        offset += atom->getSize();
    }
}

bool QtAtomReader::sizeIsPossible(BaseQtAtom const& prototype, BaseQtAtom const* parent) {
    char const* problem = nullptr;
    if (prototype.getHeaderSize() == 16 && prototype.getSize() < 16)
        problem = "is smaller than its 16-byte header";
    else if (prototype.getSize() > kMaxAtomSize)
        problem = "is larger than any file";
    if (!problem) return true;
    warningMsg("%s: 64-bit atom size %lu at offset %lu %s; the rest of %s is not read\n", parent->getMoviePath(),
               prototype.getSize(), prototype.getFileOffset(), problem, parent->getAtomPath().get());
    return false;
}

BaseQtAtom* QtAtomReader::readOne(BasicFileIO& file, BaseQtAtom const* parent, unsigned long offset,
                                  unsigned long end, unsigned int depth, QtAtomBuffer& buffer) {
    unsigned long present = end - offset;
    // Four bytes is the smallest thing the factory turns into an atom (the padding of user data).
    if (present < 4) return nullptr;
    buffer.fillFrom(file, offset, static_cast<unsigned int>(std::min<unsigned long>(present, 16)));

    BaseQtAtom prototype;
    prototype.m_parent = parent;  // lets the header decode find the root and its file; not linked
    prototype.decode(buffer);
    if (!sizeIsPossible(prototype, parent)) return nullptr;
    BaseQtAtom* actual = prototype.createActual(parent);
    if (!actual) return nullptr;

    unsigned long size = actual->getSize();
    // An open-ended 'mdat' runs to the end of the file as it is when its header is decoded; in a
    // file that grew after its root was sized (a recording in progress) it ends where the root ends.
    bool openEnded = prototype.isOpenEnded();
    if (openEnded && size > present) {
        actual->setSize(present);
        size = present;
    }
    if (size == 0) {
        // Only possible for an empty open-ended atom; treat it as the end of this level.
        actual->removeSelf(false);
        delete actual;
        return nullptr;
    }
    unsigned long available = std::min(size, present);
    if (size > present) {
        warningMsg("%s: atom %s cut short: %ldb@%ld, %ld bytes present\n", parent->getMoviePath(),
                   actual->getAtomPath().get(), static_cast<long>(size), static_cast<long>(offset),
                   static_cast<long>(present));
    }
    bool container = actual->hasEncodedChildren();
    unsigned long fixed = actual->getFixedSize();
    bool whole = actual->needsAllData();
    unsigned long needed = whole ? size : std::min(size, fixed);
    bool tooSmall = size < fixed;
    if (whole && size > kMaxBuffered) {
        warningMsg("%s: atom %s of %lu bytes is larger than the %lu bytes read at once; kept as it is, uninterpreted\n",
                   parent->getMoviePath(), actual->getAtomPath().get(), size, kMaxBuffered);
    }
    if (needed > available || tooSmall || (container && depth >= kMaxDepth) || needed > kMaxBuffered) {
        if (tooSmall && quicktimeDbg.on(QtDbgAtomErrors))
            debugMsg("%s: atom %s too small for its fields: %ldb@%ld\n", parent->getMoviePath(),
                     actual->getAtomPath().get(), static_cast<long>(size), static_cast<long>(offset));
        actual = keepUninterpreted(actual, parent);
        needed = std::min<unsigned long>(actual->getFixedSize(), available);
        container = false;
    }
    buffer.fillFrom(file, offset, static_cast<unsigned int>(needed));
    actual->decode(buffer);
    if (openEnded && actual->getSize() > size) actual->setSize(size);
    actual->setClean();
    if (container && actual->hasEncodedChildren()) {
        unsigned long childStart = offset + actual->getFixedSize();
        readLevel(file, actual, childStart, offset + available, depth + 1);
    }
    return actual;
}

BaseQtAtom* QtAtomReader::keepUninterpreted(BaseQtAtom* actual, BaseQtAtom const* parent) {
    auto* kept = new QtAtomUnknown(actual->getId(), parent, actual->getSize());
    kept->setSizeAndOffset(QtTreeSize(true, actual->getSize(), actual->getFileOffset()));
    kept->setHeaderSize(actual->getHeaderSize());
    actual->removeSelf(false);
    delete actual;
    return kept;
}
