#include "quicktime/tables/QtSampleTable.h"

#include <string>

#include "quicktime/tables/QtAtomEditList.h"
#include "quicktime/atoms/QtAtomHandler.h"
#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtAtomMediaHdr.h"
#include "quicktime/atoms/QtAtomTrakHdr.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleDepend.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleSync.h"
#include "quicktime/tables/QtAtomSampleTime.h"

namespace {

// The last child of a given type, as the class that interprets it (null when it is another class).
template <class T>
T const* lastChild(BaseQtAtom const* parent, char const (&type)[5]) {
    T const* found = nullptr;
    for (BaseQtAtom const* c = parent ? parent->getChild() : nullptr; c; c = c->getSibling())
        if (c->getId() == qtId(type)) found = dynamic_cast<T const*>(c);
    return found;
}

BaseQtAtom const* firstChild(BaseQtAtom const* parent, QtAtomIdType id) {
    for (BaseQtAtom const* c = parent ? parent->getChild() : nullptr; c; c = c->getSibling())
        if (c->getId() == id) return c;
    return nullptr;
}

// One edit showing the whole media from its start: the first run of the time-to-sample table.
void setWholeMediaEdit(QtAtomEditList const* elst, unsigned int samples, unsigned int trackDuration) {
    QtAtomEditList::Edit& edit = (*elst->write())[0];
    edit = QtAtomEditList::Edit();
    edit.mediaTime = 0;
    edit.trackDuration = trackDuration;
    edit.mediaRate = QtAtomEditList::kNormalRate;
    edit.firstSample = 0;
    edit.numSamples = samples;
}

}  // namespace

QtSampleTable::QtSampleTable(QtAtomHeader const* media) : m_media(media) {}

QtSampleTable::QtSampleTable(QtSampleTable const& other) : m_media(other.m_media) {
    copyPointers(other);
    dupSpareAtom(other);
}

QtSampleTable& QtSampleTable::operator=(QtSampleTable const& other) {
    if (this == &other) return *this;
    m_spare.reset();
    m_media = other.m_media;
    copyPointers(other);
    dupSpareAtom(other);
    return *this;
}

QtSampleTable::~QtSampleTable() = default;

void QtSampleTable::copyPointers(QtSampleTable const& other) {
    m_valid = other.m_valid;
    m_stsc = other.m_stsc;
    m_stsz = other.m_stsz;
    m_stsd = other.m_stsd;
    m_stco = other.m_stco;
    m_stts = other.m_stts;
    m_ctts = other.m_ctts;
    m_cslg = other.m_cslg;
    m_stss = other.m_stss;
    m_stps = other.m_stps;
    m_sdtp = other.m_sdtp;
    m_edts = other.m_edts;
    m_elst = other.m_elst;
    m_hdlr = other.m_hdlr;
}

bool QtSampleTable::valid() { return m_valid || validate(); }

bool QtSampleTable::validate() {
    m_valid = false;
    if (!m_media) return false;
    BaseQtAtom const* mdhd = lastChild<BaseQtAtom>(m_media, "mdhd");
    BaseQtAtom const* minf = lastChild<BaseQtAtom>(m_media, "minf");
    auto const* hdlr = lastChild<QtAtomHandler>(m_media, "hdlr");
    BaseQtAtom const* stbl = firstChild(minf, qtId("stbl"));

    auto const* stco = lastChild<QtAtomSampleChunkOff>(stbl, "stco");
    if (auto const* co64 = lastChild<QtAtomSampleChunkOff>(stbl, "co64")) stco = co64;
    auto const* stts = lastChild<QtAtomSampleTime>(stbl, "stts");

    auto const* edts = dynamic_cast<QtAtomHeader const*>(firstChild(m_media->getParent(), qtId("edts")));
    auto const* elst = dynamic_cast<QtAtomEditList const*>(firstChild(edts, qtId("elst")));
    m_spare.reset();
    if (!elst && mdhd && stts) makeSpareEditList(mdhd, edts);
    // Without a track header no edit list is made up, and the table stays incomplete.
    if (m_spare) {
        elst = dynamic_cast<QtAtomEditList const*>(m_spare->getId() == qtId("elst") ? m_spare.get()
                                                                                   : m_spare->getChild());
        if (!edts) edts = dynamic_cast<QtAtomHeader const*>(m_spare.get());
    }
    m_valid = setAtoms(lastChild<QtAtomSampleChunk>(stbl, "stsc"), lastChild<QtAtomSampleSize>(stbl, "stsz"),
                       lastChild<BaseQtAtom>(stbl, "stsd"), stco, stts, lastChild<QtAtomCompTime>(stbl, "ctts"),
                       lastChild<BaseQtAtom>(stbl, "cslg"), lastChild<QtAtomSampleSync>(stbl, "stss"),
                       lastChild<QtAtomSampleSync>(stbl, "stps"), lastChild<QtAtomSampleDepend>(stbl, "sdtp"), edts,
                       elst, hdlr);
    return m_valid;
}

void QtSampleTable::makeSpareEditList(BaseQtAtom const* mdhd, QtAtomHeader const* edts) {
    BaseQtAtom const* trak = m_media->findParent(qtId("trak"));
    auto const* tkhd = dynamic_cast<QtAtomTrakHdr const*>(firstChild(trak, qtId("tkhd")));
    auto const* stts = lastChild<QtAtomSampleTime>(
        firstChild(lastChild<BaseQtAtom>(m_media, "minf"), qtId("stbl")), "stts");
    if (!tkhd || !stts || !mdhd) return;
    QtAtomEditList const* elst;
    if (edts) {
        elst = new QtAtomEditList(nullptr, 1);
        m_spare.reset(const_cast<QtAtomEditList*>(elst));
    } else {
        auto* header = new QtAtomHeader(qtId("edts"), nullptr);
        m_spare.reset(header);
        elst = new QtAtomEditList(header, 1);
    }
    setWholeMediaEdit(elst, stts->getEntry(0).count, tkhd->getDuration());
}

void QtSampleTable::dupSpareAtom(QtSampleTable const& other) {
    if (!other.m_spare) return;
    QtAtomEditList const* source = dynamic_cast<QtAtomEditList const*>(
        other.m_spare->getId() == qtId("elst") ? other.m_spare.get() : other.m_spare->getChild());
    QtAtomEditList const* copy;
    if (other.m_spare->getId() == qtId("edts")) {
        auto* header = new QtAtomHeader(qtId("edts"), nullptr);
        m_spare.reset(header);
        copy = new QtAtomEditList(header, 1);
        m_edts = header;
    } else {
        copy = new QtAtomEditList(nullptr, 1);
        m_spare.reset(const_cast<QtAtomEditList*>(copy));
    }
    if (source) (*copy->write())[0] = (*source)[0];
    m_elst = copy;
}

bool QtSampleTable::setAtoms(QtAtomSampleChunk const* stsc, QtAtomSampleSize const* stsz, BaseQtAtom const* stsd,
                             QtAtomSampleChunkOff const* stco, QtAtomSampleTime const* stts,
                             QtAtomCompTime const* ctts, BaseQtAtom const* cslg, QtAtomSampleSync const* stss,
                             QtAtomSampleSync const* stps, QtAtomSampleDepend const* sdtp, QtAtomHeader const* edts,
                             QtAtomEditList const* elst, QtAtomHandler const* hdlr) {
    m_stsc = stsc;
    m_stsz = stsz;
    m_stsd = stsd;
    m_stco = stco;
    m_stts = stts;
    m_ctts = ctts;
    m_cslg = cslg;
    m_stss = stss;
    m_stps = stps;
    m_sdtp = sdtp;
    m_edts = edts;
    m_elst = elst;
    m_hdlr = hdlr;
    return allAtomsDefined();
}

bool QtSampleTable::allAtomsDefined() const {
    return m_stsc && m_stsz && m_stsd && m_stco && m_stts && m_edts && m_elst && m_hdlr;
}

namespace {

std::string damagedCount(char const* type, unsigned int count) {
    return std::string("'") + type + "' claims " + std::to_string(count) + " entries, more than its atom holds";
}

}  // namespace

std::string QtSampleTable::whyNoSamples() const {
    if (!m_stsz) return "no 'stsz'";
    if (m_stsz->getDamagedCount()) return damagedCount("stsz", m_stsz->getDamagedCount());
    if (!m_stsc) return "no 'stsc'";
    if (m_stsc->getDamagedCount()) return damagedCount("stsc", m_stsc->getDamagedCount());
    if (!m_stco) return "no 'stco' or 'co64'";
    if (m_stco->getDamagedCount()) return damagedCount(m_stco->idName().render(), m_stco->getDamagedCount());
    if (!m_stts) return "no 'stts'";
    if (m_stts->getDamagedCount()) return damagedCount("stts", m_stts->getDamagedCount());
    if (m_stsz->getSampleCount() == 0) return "'stsz' lists 0 samples";
    if (m_stco->getNumChunks() == 0) return "'" + std::string(m_stco->idName().render()) + "' lists 0 chunks";
    if (m_stsc->getNumEntries() == 0) return "'stsc' has no entries";
    return "";
}

void QtSampleTable::closeVirtualTables(FileIoClientRec* agent) const {
    for (BaseQtAtom const* atom : {static_cast<BaseQtAtom const*>(m_stsz), static_cast<BaseQtAtom const*>(m_stco),
                                   static_cast<BaseQtAtom const*>(m_stss), static_cast<BaseQtAtom const*>(m_stps),
                                   static_cast<BaseQtAtom const*>(m_ctts), static_cast<BaseQtAtom const*>(m_sdtp)})
        if (atom) atom->closeVirtualTable(agent);
}
