// QtSampleTable gathers the atoms that together say where each sample of one track's media lies
// and how it is timed. It finds them once in the tree and keeps typed pointers to them (not owned:
// a holder calls validate() again after the tree's structure changes), reports whether the set is
// complete, and makes up a one-edit edit list for a track that has none.
#pragma once

#include <string>

#include "framework/AutoPtr.h"
#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomCompTime;
class QtAtomEditList;
class QtAtomHandler;
class QtAtomHeader;
class QtAtomSampleChunk;
class QtAtomSampleChunkOff;
class QtAtomSampleDepend;
class QtAtomSampleSize;
class QtAtomSampleSync;
class QtAtomSampleTime;

class QtSampleTable {
public:
    explicit QtSampleTable(QtAtomHeader const* media);
    QtSampleTable(QtSampleTable const& other);
    QtSampleTable& operator=(QtSampleTable const& other);
    ~QtSampleTable();

    // Finds the atoms below the media atom and beside it; returns (and stores) whether the set is
    // complete.
    bool validate();
    // The stored answer when true; otherwise the atoms are looked up again.
    bool valid();
    bool setAtoms(QtAtomSampleChunk const* stsc, QtAtomSampleSize const* stsz, BaseQtAtom const* stsd,
                  QtAtomSampleChunkOff const* stco, QtAtomSampleTime const* stts, QtAtomCompTime const* ctts,
                  BaseQtAtom const* cslg, QtAtomSampleSync const* stss, QtAtomSampleSync const* stps,
                  QtAtomSampleDepend const* sdtp, QtAtomHeader const* edts, QtAtomEditList const* elst,
                  QtAtomHandler const* hdlr);
    // stsc, stsz, stsd, stco, stts, edts, elst and hdlr are present (the others are optional).
    bool allAtomsDefined() const;

    QtAtomHeader const* getMedia() const { return m_media; }
    QtAtomSampleChunk const* getStsc() const { return m_stsc; }
    QtAtomSampleSize const* getStsz() const { return m_stsz; }
    BaseQtAtom const* getStsd() const { return m_stsd; }
    QtAtomSampleChunkOff const* getStco() const { return m_stco; }
    QtAtomSampleTime const* getStts() const { return m_stts; }
    QtAtomCompTime const* getCtts() const { return m_ctts; }
    BaseQtAtom const* getCslg() const { return m_cslg; }
    QtAtomSampleSync const* getStss() const { return m_stss; }
    QtAtomSampleSync const* getStps() const { return m_stps; }
    QtAtomSampleDepend const* getSdtp() const { return m_sdtp; }
    // Releases what `agent` holds of the track's disk-backed tables (before the agent goes away).
    void closeVirtualTables(FileIoClientRec* agent) const;
    QtAtomHeader const* getEdts() const { return m_edts; }
    QtAtomEditList const* getElst() const { return m_elst; }
    QtAtomHandler const* getHdlr() const { return m_hdlr; }
    // Why samples cannot be listed from these tables: the first of them that is missing or was
    // emptied for a count larger than its atom, or that lists nothing; empty when none is.
    std::string whyNoSamples() const;
    // The edts header or elst made up because the file had none (owned), or null.
    BaseQtAtom const* getSpareAtom() const { return m_spare.get(); }

private:
    void makeSpareEditList(BaseQtAtom const* mdhd, QtAtomHeader const* edts);
    void dupSpareAtom(QtSampleTable const& other);
    void copyPointers(QtSampleTable const& other);

    bool m_valid = false;
    AutoPtr<BaseQtAtom> m_spare;
    QtAtomSampleChunk const* m_stsc = nullptr;
    QtAtomSampleSize const* m_stsz = nullptr;
    BaseQtAtom const* m_stsd = nullptr;
    QtAtomSampleChunkOff const* m_stco = nullptr;
    QtAtomSampleTime const* m_stts = nullptr;
    QtAtomCompTime const* m_ctts = nullptr;
    BaseQtAtom const* m_cslg = nullptr;
    QtAtomSampleSync const* m_stss = nullptr;
    QtAtomSampleSync const* m_stps = nullptr;
    QtAtomSampleDepend const* m_sdtp = nullptr;
    QtAtomHeader const* m_edts = nullptr;
    QtAtomEditList const* m_elst = nullptr;
    QtAtomHandler const* m_hdlr = nullptr;
    QtAtomHeader const* m_media;
};
