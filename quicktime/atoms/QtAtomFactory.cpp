// The atom factory: turns a decoded header (the prototype) into the object of the right class,
// attached as the last child of its parent, and recognises the usual kinds of garbage met where an
// atom was expected (zero runs, resource-fork companions, DV frames, invalid headers).

#include <cstring>

#include "framework/BasicFileIO.h"
#include "framework/PathParser.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtAtomPreserved.h"
#include "quicktime/atoms/QtAtomTapt.h"
#include "quicktime/atoms/QtAtomUnknown.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/atoms/QtUserDataSet.h"
#include "quicktime/descriptions/QtAtomSampleDesc.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/refs/QtAtomDataAlias.h"
#include "quicktime/refs/QtAtomDataRefHdr.h"
#include "quicktime/refs/QtAtomDataResource.h"

namespace {

using Creator = BaseQtAtom* (*)(BaseQtAtom const* prototype, BaseQtAtom const* parent);

// Largest unknown atom whose body is held in memory; larger ones stay on disk.
constexpr unsigned long kPreservedLimit = 1024;

BaseQtAtom* makeKeptBytes(BaseQtAtom const* prototype, BaseQtAtom const* parent) {
    if (prototype->getSize() <= kPreservedLimit || quicktimeDbg.on(QtDbgAllSizes))
        return new QtAtomPreserved(parent, prototype->getId());
    return new QtAtomUnknown(prototype->getId(), parent, prototype->getSize());
}

BaseQtAtom* makeContainer(BaseQtAtom const* prototype, BaseQtAtom const* parent) {
    return new QtAtomHeader(prototype->getId(), parent);
}

BaseQtAtom* makeFree(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomFree(parent); }
BaseQtAtom* makeWide(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomWide(parent); }
BaseQtAtom* makeTapt(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomTapt(parent); }
BaseQtAtom* makeDataRefHdr(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomDataRefHdr(parent); }
BaseQtAtom* makeDataAlias(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomDataAlias(parent); }
BaseQtAtom* makeDataResource(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomDataResource(parent); }
BaseQtAtom* makeSampleDesc(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSampleDesc(parent); }

struct FactoryRow {
    QtAtomIdType id;
    Creator create;
};

// One row per interpreted type. Types whose own classes are not part of the library's build keep
// their bytes exactly (makeKeptBytes), so every file still reads and writes back unchanged.
constexpr FactoryRow kFactoryTable[] = {
    {qtId("moov"), makeContainer},
    {qtId("mdat"), makeKeptBytes},
    {qtId("skip"), makeKeptBytes},
    {qtId("free"), makeFree},
    {qtId("wide"), makeWide},
    {qtId("trak"), makeContainer},
    {qtId("mdia"), makeContainer},
    {qtId("minf"), makeContainer},
    {qtId("stbl"), makeContainer},
    {qtId("dinf"), makeContainer},
    {qtId("edts"), makeContainer},
    {qtId("udta"), makeContainer},
    {qtId("gmhd"), makeContainer},
    {qtId("tmcd"), makeContainer},
    {qtId("mvhd"), makeKeptBytes},
    {qtId("tkhd"), makeKeptBytes},
    {qtId("mdhd"), makeKeptBytes},
    {qtId("hdlr"), makeKeptBytes},
    {qtId("vmhd"), makeKeptBytes},
    {qtId("smhd"), makeKeptBytes},
    {qtId("gmin"), makeKeptBytes},
    {qtId("tcmi"), makeKeptBytes},
    {qtId("hmhd"), makeKeptBytes},
    {qtId("elst"), makeKeptBytes},
    {qtId("tref"), makeKeptBytes},
    {qtId("ftyp"), makeKeptBytes},
    {qtId("tapt"), makeTapt},
    {qtId("clef"), makeKeptBytes},
    {qtId("prof"), makeKeptBytes},
    {qtId("enof"), makeKeptBytes},
    {qtId("iods"), makeKeptBytes},
    {qtId("sean"), makeKeptBytes},
    {qtId("m12v"), makeKeptBytes},
    {qtId("stts"), makeKeptBytes},
    {qtId("stsc"), makeKeptBytes},
    {qtId("stsz"), makeKeptBytes},
    {qtId("stco"), makeKeptBytes},
    {qtId("co64"), makeKeptBytes},
    {qtId("sdtp"), makeKeptBytes},
    {qtId("stss"), makeKeptBytes},
    {qtId("stps"), makeKeptBytes},
    {qtId("ctts"), makeKeptBytes},
    {qtId("cslg"), makeKeptBytes},
    {qtId("stsd"), makeSampleDesc},
    {qtId("dref"), makeDataRefHdr},
    {qtId("alis"), makeDataAlias},
    {qtId("rsrc"), makeDataResource},
};

Creator findCreator(QtAtomIdType id) {
    for (FactoryRow const& row : kFactoryTable)
        if (row.id == id) return row.create;
    return nullptr;
}

char const* filePathOf(BaseQtAtom const* atom, char const* fallback) {
    QtAtomRoot const* root = atom ? atom->findRoot() : nullptr;
    BasicFileIO* file = root ? root->file() : nullptr;
    return file ? file->path() : fallback;
}

// The prototype's header was not valid: decide whether to report it, and make nothing.
void reportGarbage(BaseQtAtom const* prototype, BaseQtAtom const* parent) {
    bool atomErrors = quicktimeDbg.on(QtDbgAtomErrors);
    PathParser path(filePathOf(parent, "?file"));
    long size = static_cast<long>(prototype->getSize());
    long offset = static_cast<long>(prototype->getFileOffset());
    if (prototype->getId() == 0 && prototype->getSize() == 0) {
        if (atomErrors)
            debugMsg("%s: zeros in atom %s at offset %ld\n", path.getPath(), parent->getAtomPath().get(), offset);
        return;
    }
    if (strncmp(path.getPrefix(), "._", 2) == 0 && prototype->getFileOffset() == 0) {
        if (atomErrors) debugMsg("%s looks like an apple resource fork\n", path.getPath());
        return;
    }
    BaseQtAtom const* last = parent->getLastChild();
    bool unexpected = parent->getId() == QtAtomRoot::kRootId && last && last->getId() != qtId("mdat");
    if (!unexpected && !atomErrors) return;
    QtAtomRoot const* root = parent->findRoot();
    BasicFileIO* file = root ? root->file() : nullptr;
    auto report = file && file->statusFlag() ? warningMsg : infoMsg;
    report("%s: invalid atom %s.%s, %ld@%ld\n", path.getPath(), parent->getAtomPath().get(), prototype->idName().render(),
           size, offset);
}

}  // namespace

BaseQtAtom* BaseQtAtom::createActual(BaseQtAtom const* parent) const {
    if (!m_decoded) {
        if (m_id == 0 && parent && parent->getId() == qtId("udta")) return new QtAtomPad(parent);
        if (parent) reportGarbage(this, parent);
        return nullptr;
    }
    BaseQtAtom* actual = nullptr;
    if (Creator create = findCreator(m_id)) {
        actual = create(this, parent);
    } else if (parent && parent->getId() == qtId("udta")) {
        actual = QtUserDataSet::createUserAtom(parent, m_id);
    } else if (m_id == qtId("hxxx") || m_id == qtId("iyyy")) {
        if (quicktimeDbg.on(QtDbgAtomErrors))
            errorMsg("%s: found atom %s.%s, %ld@%ld (is this a DV frame?)\n", filePathOf(parent, "?"),
                     parent ? parent->getAtomPath().get() : "", idName().render(), static_cast<long>(m_size),
                     static_cast<long>(m_fileOffset));
        return nullptr;
    } else {
        actual = makeKeptBytes(this, parent);
    }
    if (!actual) return nullptr;
    actual->setSizeAndOffset(QtTreeSize(false, m_size, m_fileOffset));
    actual->setHeaderSize(m_headerSize);
    return actual;
}
