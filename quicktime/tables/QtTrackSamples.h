// QtTrackSamples answers, for one track, where each sample lies and when it is shown: file offset,
// size, decode time, composition time and whether it is a key frame. It combines the track's tables
// through its QtSampleTable. A single answer positions a cursor once (a chunk lookup, the sizes
// before the sample in its chunk, a walk over the time-to-sample runs, the composition offsets from
// the nearest anchor of their table); an Iterator then walks on in order at constant cost per
// sample, keeping its chunk set, its place in every table and the frame set of its unit.
//
// Threads: the tables are shared, also with a recorder that extends them on its own thread; each
// reader passes its own FileIoClientRec (agent) so that the pages read for it do not disturb
// another reader's, and keeps its own Iterator (its chunk set and places in the tables). A reader
// sees a prefix of the track's samples: getNumSamples counts those whose size and chunk offset are
// stored and, while a recorder extends the time-to-sample or composition table, whose time and final
// composition offset are stored; a sample whose chunk or chunk offset is not yet stored ends a walk
// (next returns false) and is not found by getSample. A file cut short in the middle of a flush
// (chunk offsets are stored last) counts the same way: only the samples its chunk offsets reach. The recorder stores a sample's key frame entry and composition
// entry before its size.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "framework/AutoRefPtr.h"
#include "framework/BasicFileIO.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtChunkSet.h"
#include "quicktime/tables/QtSampleTable.h"

class FileIoClientRec;

struct QtSampleInfo {
    unsigned long sample = 0;   // 0-based
    unsigned long offset = 0;   // absolute file offset of the first byte
    unsigned int size = 0;      // bytes
    unsigned long dts = 0;      // decode time, media time scale
    long pts = 0;               // decode time plus the raw composition offset
    bool key = false;           // a sync sample, or any sample of a track without sync table
    unsigned int descIndex = 0; // 1-based sample description index
};

class QtTrackSamples {
public:
    explicit QtTrackSamples(QtAtomHeader const* media);

    // The movie's tracks in file order: the 'trak' atoms of its first 'moov'. The one walk over the
    // tracks, for the library and the tool alike.
    static std::vector<BaseQtAtom const*> tracksOf(BaseQtAtom const& root);
    // The media atom of a track, or null.
    static QtAtomHeader const* mediaOf(BaseQtAtom const* trak);
    // The media atom of the n-th track (1-based, in file order), or null.
    static QtAtomHeader const* findTrackMedia(BaseQtAtom const& root, unsigned int track);
    static unsigned int countTracks(BaseQtAtom const& root);

    // The tables needed to place and time samples are present.
    bool valid() const;
    // The samples that can be looked up now (see Threads).
    unsigned long getNumSamples() const;
    QtSampleTable const& getSampleTable() const { return m_table; }

    // One sample, looked up directly. False past the end or in a damaged table.
    bool getSample(unsigned long sample, QtSampleInfo& info, FileIoClientRec* agent = nullptr) const;

    class Iterator {
    public:
        // Positioned on sample `first`.
        Iterator(QtTrackSamples const& track, unsigned long first, FileIoClientRec* agent = nullptr);
        // Fills the current sample and steps to the next; false at the end.
        bool next(QtSampleInfo& info);

    private:
        bool seekChunk();
        void seekTimes();
        void seekComposition();
        // Adds samples x duration to the decode time, noting an overflow instead of wrapping.
        void addTime(unsigned long samples, unsigned int duration);
        // Sets the sample's display time from its composition offset; false, with a warning, when
        // its times overflow or its bytes are not in the file (the tables are damaged and the walk
        // ends there).
        bool sampleIsSound(QtSampleInfo& info, int compositionOffset);

        QtSampleTable const& m_table;
        FileIoClientRec* m_agent;
        bool m_ok = true;
        unsigned long m_sample;
        unsigned long m_count;
        // The chunk the sample lies in.
        QtChunkSet m_chunkSet;
        unsigned long m_chunkEnd = 0;
        unsigned long m_offset = 0;
        // Place in the time-to-sample runs.
        unsigned int m_sttsIndex = 0;
        unsigned int m_sttsLeft = 0;
        unsigned int m_sttsDuration = 0;
        unsigned long m_dts = 0;
        // The composition offsets (none without a table): the frame set of the current unit, or for
        // a table without sync tables a cursor placed through the table's anchors.
        int compositionOffset();
        QtAtomCompTime const* m_ctts = nullptr;
        AutoReleasePtr<QtAtomCompTime::FrameSet> m_frames;
        std::optional<QtAtomCompTime::DiskIterator> m_cursor;
        bool m_cursorOn = false;
        bool m_timeOverflow = false;
        unsigned long m_fileLength = 0;
    };

private:
    mutable QtSampleTable m_table;
    // The movie's file, taken once: a lookup never walks the tree, which the owner may rearrange
    // (a relocation moves the movie atom) while readers run.
    AutoRefPtr<BasicFileIO> m_file;
};
