// QtMovieRecorder: a movie being recorded. It creates the file, builds its tracks, places each
// sample's bytes in the growing 'mdat' and its entries in the track's tables, and on `flush()` makes
// everything appended so far durable in an order that leaves exactly one complete 'moov' on disk at
// every instant: a crash at any moment leaves a playable movie holding every sample up to the last
// completed flush. Memory does not grow with the length of the recording: the tables live in the
// file.
//
// Use: create, add tracks, append samples in decode order (tracks interleaved as the caller receives
// them), flush at the caller's cadence, close. Descriptions that are only known after the first
// frames (avcC, esds) are filled through `getDescription` before the first flush that needs them;
// they reserve their largest size, so filling them does not move the movie.
//
// Threads: one recording thread calls everything here. Readers of the same tree in other threads
// use their own agents and see a consistent prefix of each track.
#pragma once

#include <cstdint>
#include <memory>

#include "framework/AutoPtr.h"
#include "framework/AutoRefPtr.h"
#include "framework/BasicFileIO.h"
#include "quicktime/atoms/QtAtomIdType.h"
#include "quicktime/tables/SampleInfo.h"

class BaseQtAtom;
class QtAtomRoot;
class QtSampleDesc;

class QtMovieRecorder {
  public:
    struct Options {
        uint32_t timeScale = 600;       // the movie's time scale
        uint32_t plannedSeconds = 60;   // first capacity of the tables, in seconds of media
        // Gather the bytes of small samples that follow each other in a chunk and write them
        // together (far fewer system calls). Their bytes then reach the file at the latest at the
        // next flush: readers on other threads that read sample bytes, not only the tables, should
        // keep it off or read only the samples that durableSamples counts.
        bool gatherWrites = false;
    };

    // One sample as the recorder receives it. `info` carries the encoder's coding type, or a
    // display offset in frames; with neither, samples are shown in decode order.
    struct Sample {
        void const* bytes = nullptr;
        uint32_t size = 0;
        uint32_t duration = 0;  // in the track's time scale
        bool key = true;
        SampleInfo info;
    };

    // Creates `path` (replacing any file there); null, with a message, on failure. When it returns,
    // the file on disk is already a valid movie with no tracks.
    static std::unique_ptr<QtMovieRecorder> create(char const* path, Options const& options);
    // The same over a file layer the caller opened with BasicFileIO::Create (tests pass a file layer
    // that simulates power loss).
    static std::unique_ptr<QtMovieRecorder> create(AutoRefPtr<BasicFileIO> file, Options const& options);
    // Closes the movie if close() was not called.
    ~QtMovieRecorder();

    // Tracks. Each returns the new track's number (1, 2, ... in the order added) or 0 on failure.
    // Video: format such as 'avc1' or 'mp4v', frame size in pixels.
    uint32_t addVideoTrack(QtAtomIdType format, uint32_t timeScale, uint16_t width, uint16_t height);
    // Sound: 'lpcm', 'sowt', 'twos' (PCM) or 'mp4a' (AAC); timeScale is the sample rate.
    uint32_t addSoundTrack(QtAtomIdType format, uint32_t timeScale, uint16_t channels, uint16_t bitsPerSample);
    // Timecode: one 32-bit frame counter sample at `startFrame`, frames of `frameDuration` ticks,
    // `framesPerSecond` counted frames (30 for 29.97), drop-frame or not; tied to a video track
    // (0 for none) through a 'tmcd' track reference.
    uint32_t addTimecodeTrack(uint32_t timeScale, uint32_t frameDuration, uint8_t framesPerSecond, bool dropFrame,
                              uint32_t startFrame, uint32_t videoTrack);
    // A track shaped like `sourceTrak` (a 'trak' atom of another movie): its header, edit list,
    // handler, media header, sample descriptions, user data and references are copied; its sample
    // tables start empty.
    uint32_t addTrackLike(BaseQtAtom const& sourceTrak);
    // The track's first sample description, to be completed after the first frames; null for an
    // unknown track.
    QtSampleDesc* getDescription(uint32_t track);

    // Appends one sample to a track: its bytes go to the file at once (not yet durable), its entries
    // to the track's tables. False, with a message, on failure (the sample is not recorded).
    bool appendSample(uint32_t track, Sample const& sample);
    // Makes every sample appended so far durable; true once it is.
    bool flush();
    // Flushes, finishes the file (the last 'mdat' gets its size: the mark that the recording is
    // closed) and releases it. Nothing may be appended afterwards.
    bool close();

    // Samples of a track that the last completed flush made durable.
    unsigned long durableSamples(uint32_t track) const;
    // Samples appended to a track so far.
    unsigned long appendedSamples(uint32_t track) const;
    // Bytes of essence written so far.
    unsigned long essenceBytes() const;
    // The tree being recorded (to read it from this or, with their own agents, other threads).
    QtAtomRoot const& getRoot() const;

  private:
    QtMovieRecorder();
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};
