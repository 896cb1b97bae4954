// QtRecorderTrack: one track of a movie being recorded (QtMovieRecorder). It owns nothing of the
// tree: it points at the track's atoms (built under the movie by the recorder) and keeps what
// recording needs beside them: where the next samples go (a sample allocator drawing on the
// movie's chunk allocator), the counts of samples appended and made durable, and the track's
// duration.
//
// Appending never meets a full table: before each sample the recorder asks `needsRoom`, and gives
// the tables capacity (`reserve`, then a new placement of the movie) when any would run short, so
// that every table call here stores its entry. Chunks are closed at every flush (`closeChunk`), so
// that a run of the sample-to-chunk table that a flush made durable never changes afterwards.
//
// Threads: the recording thread only.
#pragma once

#include <memory>
#include <vector>

#include "quicktime/atoms/QtAtomIdType.h"
#include "quicktime/layout/QtSampleAllocator.h"
#include "quicktime/recorder/QtMovieRecorder.h"

class BaseQtAtom;
class QtAtomCompSeed;
class QtAtomCompShift;
class QtAtomCompTime;
class QtAtomEditList;
class QtAtomMediaHdr;
class QtAtomRoot;
class QtAtomSampleChunk;
class QtAtomSampleChunkOff;
class QtAtomSampleDesc;
class QtAtomSampleSize;
class QtAtomSampleSync;
class QtAtomSampleTime;
class QtAtomTrakHdr;
class QtChunkAllocator;
class BasicFileIO;

class QtRecorderTrack {
  public:
    enum Kind { Video, Sound, Timecode, Other };

    // Takes the tables of `trak` (its stbl must hold stsd, a pad, and the empty recording tables
    // made by `addTables`). `constantSize` is the bytes of one sample when all are equal (PCM,
    // timecode), else 0.
    QtRecorderTrack(uint32_t number, Kind kind, BaseQtAtom const* trak, unsigned int constantSize,
                    QtChunkAllocator& chunks, unsigned long plannedSamples);

    // The empty recording tables of a sample table, after its description table: a pad (to align
    // the tables) then stco/co64, stts, stsc, stsz.
    static void addTables(BaseQtAtom const* stbl);

    uint32_t number() const { return m_number; }
    Kind kind() const { return m_kind; }
    BaseQtAtom const* trak() const { return m_trak; }
    QtAtomSampleDesc const* descriptions() const { return m_stsd; }
    QtAtomSampleTime const* timeTable() const { return m_stts; }
    QtAtomTrakHdr const* header() const { return m_tkhd; }

    // Whether appending `sample` could find a table short of room (or needs a table it lacks).
    bool needsRoom(QtMovieRecorder::Sample const& sample) const;
    // Gives every table room for the samples appended so far and about `plannedSamples` more (the
    // sizes follow at the next placement); creates the key-frame and composition tables the next
    // sample needs.
    void reserve(QtMovieRecorder::Sample const* next);
    // Stores the sample's bytes in the file and its entries in the tables; false on a write failure.
    bool append(QtMovieRecorder::Sample const& sample, QtAtomRoot const& root, BasicFileIO& file,
                unsigned long& essenceBytes);
    void closeChunk() { m_chunkOpen = false; }
    // Writes the sample bytes gathered since the last call (before a flush makes them durable);
    // false when the write failed.
    bool writePending(BasicFileIO& file);
    void gatherWrites(bool gather) { m_gather = gather; }
    // Before a flush: durations into the headers, the composition seed into its atom (false when
    // the seed needs room first).
    bool prepareFlush(uint32_t movieTimeScale, unsigned long movieDuration);
    void flushDone() { m_durable = m_appended; }
    // A track of one sample (timecode): the sample lasts `ticks`.
    void setSingleSampleDuration(unsigned int ticks);

    unsigned long appended() const { return m_appended; }
    unsigned long durable() const { return m_durable; }
    // Media duration in the track's time scale, and in the movie's.
    unsigned long duration() const { return m_duration; }
    // The file offset just past the last sample written (0 before the first).
    unsigned long essenceEnd() const { return m_essenceEnd; }
    unsigned long movieDuration(uint32_t movieTimeScale) const;
    uint32_t timeScale() const { return m_timeScale; }

  private:
    bool placeBytes(unsigned int size, unsigned int samples, QtAtomRoot const& root, unsigned long& offset,
                    bool& newChunk);
    void addSyncTable();
    void addCompositionTables();

    uint32_t m_number;
    Kind m_kind;
    BaseQtAtom const* m_trak;
    QtAtomTrakHdr const* m_tkhd = nullptr;
    QtAtomMediaHdr const* m_mdhd = nullptr;
    QtAtomEditList const* m_elst = nullptr;
    QtAtomSampleDesc const* m_stsd = nullptr;
    QtAtomSampleTime const* m_stts = nullptr;
    QtAtomSampleChunk const* m_stsc = nullptr;
    QtAtomSampleSize const* m_stsz = nullptr;
    QtAtomSampleChunkOff const* m_stco = nullptr;
    QtAtomSampleSync const* m_stss = nullptr;
    QtAtomCompTime const* m_ctts = nullptr;
    QtAtomCompShift const* m_cslg = nullptr;
    QtAtomCompSeed const* m_seed = nullptr;
    std::unique_ptr<QtSampleAllocator> m_allocator;
    uint32_t m_timeScale = 1;
    unsigned int m_constantSize;
    unsigned long m_planned;
    unsigned long m_appended = 0;
    unsigned long m_durable = 0;
    unsigned long m_duration = 0;
    unsigned long m_essenceEnd = 0;
    // Small samples that follow each other in a chunk go to the file in one write.
    static constexpr size_t kPendingBytes = 64 * 1024;
    bool writeEssence(unsigned long offset, QtMovieRecorder::Sample const& sample, BasicFileIO& file);
    std::vector<unsigned char> m_pending;
    unsigned long m_pendingAt = 0;
    bool m_gather = false;
    unsigned long m_keys = 0;
    bool m_chunkOpen = false;
};
