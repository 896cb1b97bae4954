// QtSampleAllocator: the place in the file where a track's next samples go. It holds the free
// remainder of the chunk being filled and how many samples it has taken, and asks a shared
// QtChunkAllocator for a new chunk when the next samples do not fit. This base sizes chunks for
// samples of one size (PCM audio, timecode): room for a fixed number of samples per chunk.
//
// Threads: belongs to the recording thread, like the chunk allocator it draws from.
#pragma once

#include "framework/AutoPtr.h"
#include "framework/FixedPoint.h"
#include "quicktime/layout/QtChunkAllocator.h"

class QtAtomRoot;
struct QtSampleLocation;

class QtSampleAllocator {
  public:
    // Chunks of `countPerChunk` samples, drawn from `chunks` (which must outlive this allocator).
    // The byte rate, frame count and sample rate describe the track for printouts and callers.
    QtSampleAllocator(QtChunkAllocator& chunks, unsigned int countPerChunk, unsigned int frameCount = 0,
                      unsigned int byteRate = 0, FixedPoint<16> rate = FixedPoint<16>());
    virtual ~QtSampleAllocator() = default;

    // Allocates a chunk that holds at least the samples of `location` (their byte count and
    // number). With `start`, the chunk becomes the current chunk, empty of samples, ready for
    // `place`. Returns the chunk, or the empty chunk when the file has no room.
    virtual QtChunkAllocator::Chunk allocChunk(QtSampleLocation const& location, QtAtomRoot const* root,
                                               bool start);
    // Puts `samples` samples of `bytes` bytes at the front of the current chunk and gives their file
    // offset; false (nothing taken) when they do not fit.
    bool place(unsigned int bytes, unsigned int samples, unsigned long& offset);

    // The free remainder of the chunk being filled, and the samples it has taken.
    QtChunkAllocator::Chunk const& getChunk() const { return m_chunk; }
    unsigned int getSampleCount() const { return m_count; }
    unsigned int getCountPerChunk() const { return m_countPerChunk; }
    void setChunk(QtChunkAllocator::Chunk const& chunk);

    // "C={size@offset},<count>s,pers={<byte rate>B/s,<frames>f,<per chunk>s},rate=<rate>"
    virtual AutoPtr<char> toString() const;

  protected:
    QtChunkAllocator::Chunk take(unsigned long size, QtAtomRoot const* root, bool start);

    QtChunkAllocator::Chunk m_chunk;
    uint32_t m_count = 0;
    uint32_t m_countPerChunk;
    uint32_t m_frameCount;
    uint32_t m_byteRate;
    FixedPoint<16> m_rate;
    QtChunkAllocator& m_chunks;
};
