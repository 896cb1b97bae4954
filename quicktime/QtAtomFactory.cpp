// The atom factory: turns a decoded header (the prototype) into the object of the right class,
// attached as the last child of its parent, and recognises the usual kinds of garbage met where an
// atom was expected (zero runs, resource-fork companions, DV frames, invalid headers). Its table
// names the classes of every folder, so it sits above them all; atoms/ only declares
// BaseQtAtom::createActual.

#include <cstring>

#include "framework/BasicFileIO.h"
#include "framework/PathParser.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtAtomApertDimensions.h"
#include "quicktime/atoms/QtAtomBaseInf.h"
#include "quicktime/atoms/QtAtomFileType.h"
#include "quicktime/atoms/QtAtomHandler.h"
#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtAtomHintMediaHdr.h"
#include "quicktime/atoms/QtAtomM12v.h"
#include "quicktime/atoms/QtAtomMediaHdr.h"
#include "quicktime/atoms/QtAtomMvhd.h"
#include "quicktime/atoms/QtAtomObjectDesc.h"
#include "quicktime/atoms/QtAtomPreserved.h"
#include "quicktime/atoms/QtAtomSean.h"
#include "quicktime/atoms/QtAtomSoundInf.h"
#include "quicktime/atoms/QtAtomTapt.h"
#include "quicktime/atoms/QtAtomTimecodeInf.h"
#include "quicktime/atoms/QtAtomTrakHdr.h"
#include "quicktime/atoms/QtAtomTrakRef.h"
#include "quicktime/atoms/QtAtomUnknown.h"
#include "quicktime/atoms/QtAtomVideoInf.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/atoms/QtUserDataSet.h"
#include "quicktime/descriptions/QtAtomSampleDesc.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtAtomSkip.h"
#include "quicktime/refs/QtAtomDataAlias.h"
#include "quicktime/refs/QtAtomDataRefHdr.h"
#include "quicktime/refs/QtAtomDataResource.h"
#include "quicktime/tables/QtAtomCompSeed.h"
#include "quicktime/tables/QtAtomCompShift.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomEditList.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleDepend.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleSync.h"
#include "quicktime/tables/QtAtomSampleTime.h"

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

BaseQtAtom* makeMoov(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomMoov(parent, qtId("moov")); }
BaseQtAtom* makeMdat(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomMdat(parent, 0); }
BaseQtAtom* makeSkip(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSkip(parent); }
BaseQtAtom* makeFree(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomFree(parent); }
BaseQtAtom* makeWide(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomWide(parent); }
BaseQtAtom* makeTapt(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomTapt(parent); }
// 'stss' and 'stps' are one class; decode learns from the file whether the numbers are 1-based.
BaseQtAtom* makeSync(BaseQtAtom const* prototype, BaseQtAtom const* parent) {
    return new QtAtomSampleSync(parent, true, prototype->getId());
}
BaseQtAtom* makeCompTime(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomCompTime(parent); }
BaseQtAtom* makeCompShift(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomCompShift(parent); }
// A 'uuid' is this library's composition seed, or any other writer's bytes kept as they are.
BaseQtAtom* makeUuid(BaseQtAtom const* prototype, BaseQtAtom const* parent) {
    if (QtAtomCompSeed::isSeed(prototype, parent)) return new QtAtomCompSeed(parent);
    return makeKeptBytes(prototype, parent);
}
BaseQtAtom* makeSampleDepend(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSampleDepend(parent); }
BaseQtAtom* makeDataRefHdr(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomDataRefHdr(parent); }
BaseQtAtom* makeDataAlias(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomDataAlias(parent); }
BaseQtAtom* makeDataResource(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomDataResource(parent); }
BaseQtAtom* makeSampleDesc(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSampleDesc(parent); }
BaseQtAtom* makeMvhd(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomMvhd(parent, 0); }
BaseQtAtom* makeTrakHdr(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomTrakHdr(parent); }
BaseQtAtom* makeMediaHdr(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomMediaHdr(parent); }
BaseQtAtom* makeHandler(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomHandler(parent, 0, 0); }
BaseQtAtom* makeVideoInf(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomVideoInf(parent); }
BaseQtAtom* makeSoundInf(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSoundInf(parent); }
BaseQtAtom* makeBaseInf(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomBaseInf(parent); }
BaseQtAtom* makeTimecodeInf(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomTimecodeInf(parent); }
BaseQtAtom* makeHintMediaHdr(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomHintMediaHdr(parent); }
BaseQtAtom* makeEditList(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomEditList(parent, 0); }
BaseQtAtom* makeTrakRef(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomTrakRef(parent); }
BaseQtAtom* makeFileType(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomFileType(parent); }
BaseQtAtom* makeApertDimensions(BaseQtAtom const* prototype, BaseQtAtom const* parent) {
    return new QtAtomApertDimensions(parent, prototype->getId());
}
BaseQtAtom* makeObjectDesc(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomObjectDesc(parent); }
BaseQtAtom* makeSean(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSean(parent); }
BaseQtAtom* makeM12v(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomM12v(parent); }
BaseQtAtom* makeStts(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSampleTime(parent); }
BaseQtAtom* makeStsc(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSampleChunk(parent); }
BaseQtAtom* makeStsz(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSampleSize(parent); }
// One class for both chunk offset types; the header decoded next sets which one it is.
BaseQtAtom* makeChunkOff(BaseQtAtom const*, BaseQtAtom const* parent) { return new QtAtomSampleChunkOff(parent); }

struct FactoryRow {
    QtAtomIdType id;
    Creator create;
};

// One row per interpreted type. Types whose own classes are not part of the library's build keep
// their bytes exactly (makeKeptBytes), so every file still reads and writes back unchanged.
constexpr FactoryRow kFactoryTable[] = {
    {qtId("moov"), makeMoov},
    {qtId("mdat"), makeMdat},
    {qtId("skip"), makeSkip},
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
    {qtId("mvhd"), makeMvhd},
    {qtId("tkhd"), makeTrakHdr},
    {qtId("mdhd"), makeMediaHdr},
    {qtId("hdlr"), makeHandler},
    {qtId("vmhd"), makeVideoInf},
    {qtId("smhd"), makeSoundInf},
    {qtId("gmin"), makeBaseInf},
    {qtId("tcmi"), makeTimecodeInf},
    {qtId("hmhd"), makeHintMediaHdr},
    {qtId("elst"), makeEditList},
    {qtId("tref"), makeTrakRef},
    {qtId("ftyp"), makeFileType},
    {qtId("tapt"), makeTapt},
    {qtId("clef"), makeApertDimensions},
    {qtId("prof"), makeApertDimensions},
    {qtId("enof"), makeApertDimensions},
    {qtId("iods"), makeObjectDesc},
    {qtId("sean"), makeSean},
    {qtId("m12v"), makeM12v},
    {qtId("stts"), makeStts},
    {qtId("stsc"), makeStsc},
    {qtId("stsz"), makeStsz},
    {qtId("stco"), makeChunkOff},
    {qtId("co64"), makeChunkOff},
    {qtId("sdtp"), makeSampleDepend},
    {qtId("stss"), makeSync},
    {qtId("stps"), makeSync},
    {qtId("ctts"), makeCompTime},
    {qtId("cslg"), makeCompShift},
    {qtId("uuid"), makeUuid},
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
    QtAtomRoot const* root = atom ? QtAtomRoot::of(atom) : nullptr;
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
    QtAtomRoot const* root = QtAtomRoot::of(parent);
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
