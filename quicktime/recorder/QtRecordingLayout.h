// QtRecordingLayout: the top level of a movie file being recorded, and the order of writes that
// keeps exactly one complete 'moov' on disk at every instant. It owns no atoms (the root does); it
// places them and writes them.
//
// The file while recording (W: a 'skip' with a 16-byte header, the switch of a relocation):
//
//     ftyp | W | moov | mdat (32-bit size 0: runs to the end of the file) | essence ...
//
// The header of the open mdat is written as 'wide' + 'mdat' of size 0, so that closing it is one
// aligned 16-byte write of a 64-bit header. Essence is only ever appended, inside the open mdat.
//
// Invariant: a field whose change switches what a reader sees is changed by one write of at most
// 16 bytes inside one aligned 16-byte block (counts, the switch's 64-bit size, the mdat header),
// which a crash keeps or loses whole. The moov starts 16-aligned, the first table of every sample
// table 8-aligned (a 'free' pad after the descriptions), the open mdat 16-aligned.
//
// Flush in place (the movie did not change size):
//   1. every table's new entries and the arrays' dirty pages; fdatasync
//   2. the heads of every changed atom except the chunk offset tables; fdatasync
//      (harmless: the old chunk offset counts still limit every track to its old samples)
//   3. the chunk offset counts, one aligned write per track; fdatasync. The flush is complete.
//
// Relocation (the movie outgrew its place). In the tree at once: the movie's old place joins its
// switch (W covers W + the old moov), the last mdat gets its final size, and W' + moov + a new open
// mdat are placed at the end. On disk at the next flush, in these states:
//
//   valid: ftyp W moovA mdat(open ...)      new copy written inside the open mdat, fdatasync
//   1.     ftyp W moovA mdat(open ... W' moovB mdat'(open))
//   2.     ftyp W(to W') W' moovB mdat'(open)          W's 64-bit size, one write; fdatasync: complete
//   3.     ftyp W(to W') W' moovB mdat'(open)          old mdat's header gets its size; fdatasync
//   4.     ftyp W(16 + moovA) mdat(closed) W' moovB mdat'(open)   W shrinks, one write; fdatasync
//
// A crash between any two writes leaves one 'moov', old or new, each complete. Placements that
// follow each other before a flush leave dead copies that were never visible; they become skips.
// Close: flush, then the last mdat's header gets its size (the mark of a finished recording).
//
// Threads: the recording thread. The root's structure lock is held while top-level links change.
#pragma once

#include <cstdint>
#include <vector>

#include "quicktime/layout/QtChunkAllocator.h"

class BasicFileIO;
class BaseQtAtom;
class QtAtomMdat;
class QtAtomMoov;
class QtAtomMvhd;
class QtAtomRoot;
class QtAtomSkip;

class QtRecordingLayout {
  public:
    QtRecordingLayout(QtAtomRoot const& root, BasicFileIO& file);

    // Builds ftyp, switch, an empty movie and the open mdat, writes them and makes them durable.
    bool create(uint32_t timeScale);
    QtAtomMoov const* moov() const { return m_moov; }
    QtAtomMvhd const* movieHeader() const { return m_mvhd; }
    QtChunkAllocator& chunks() { return m_chunks; }

    // The movie has grown in the tree (tracks, capacity) past the place it has.
    bool needsPlacement() const;
    // Moves the movie to the end of the file in the tree; it reaches the disk at the next flush.
    bool relocate();
    // Makes the tree durable: in place, or the pending relocation. False on a failed write or sync
    // (nothing counts as durable then; a later flush writes everything again).
    bool flush();
    // Flushes, then gives the last mdat its size: up to `essenceEnd`, the end of the last sample
    // written, when that lies inside it (room reserved for chunks and never used is given back).
    // Nothing may change afterwards.
    bool close(unsigned long essenceEnd);
    bool isRelocationPending() const { return m_newSwitch != nullptr; }
    // Links a new top-level atom of the movie (a track) before the movie's closing pad.
    void addToMovie(BaseQtAtom const* atom) const;

  private:
    bool placeMovie();
    void alignSampleTables(BaseQtAtom const* atom, unsigned long offset);
    BaseQtAtom const* replacePad(BaseQtAtom const* pad, unsigned long size);
    bool finishRelocation();
    bool flushInPlace();
    bool flushRelocation();
    bool writeBytes(unsigned long offset, std::vector<unsigned char> const& bytes);
    bool writeSize64(unsigned long at, unsigned long size);
    bool writeSkipHeader(QtAtomSkip const& skip);
    bool writeMdatHeader(QtAtomMdat const& mdat, bool open);
    bool writeWholeMovie();
    bool sync();
    void movieIsClean();

    QtAtomRoot const& m_root;
    BasicFileIO& m_file;
    QtChunkAllocator m_chunks;
    QtAtomMoov const* m_moov = nullptr;
    QtAtomMvhd const* m_mvhd = nullptr;
    QtAtomSkip const* m_switch = nullptr;     // before the moov that is valid on disk
    QtAtomMdat const* m_openMdat = nullptr;   // the mdat that is open on disk
    QtAtomSkip const* m_newSwitch = nullptr;  // before the moov placed since the last flush
    QtAtomMdat const* m_lastMdat = nullptr;   // the last atom of the file, open
    bool m_switched = false;                  // the pending relocation's switch is durable
    bool m_closed = false;
};
