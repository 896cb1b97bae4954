// QtVarSampleAllocator: chunk placement for a track whose samples vary in size (compressed video
// and audio). It sizes each new chunk from a running average of what chunks took, re-estimated
// from the bytes per sample whenever a chunk held fewer samples than it should or the next
// samples would not fit, so that chunks hold about the intended number of samples.
//
// Threads: belongs to the recording thread.
#pragma once

#include "quicktime/layout/QtSampleAllocator.h"

class QtVarSampleAllocator : public QtSampleAllocator {
  public:
    // `pad` bytes are added to every chunk; the average runs over 2^`per` chunks. `min` is kept for
    // the caller (the sizing does not read it).
    QtVarSampleAllocator(QtChunkAllocator& chunks, unsigned int countPerChunk, unsigned int pad = 0,
                         unsigned int per = 2, unsigned int min = 0);

    // Re-estimates the chunk size from the current chunk and `location`, then allocates
    // getChunkSize() bytes (see QtSampleAllocator::allocChunk for `start` and the result).
    QtChunkAllocator::Chunk allocChunk(QtSampleLocation const& location, QtAtomRoot const* root,
                                       bool start) override;
    // The size the next chunk gets: the average plus the pad.
    unsigned int getChunkSize() const { return m_avg + m_pad; }
    unsigned int getAverage() const { return m_avg; }
    // "var=" + the base text + ",avg=%d,pad=%d,per=%d,min=%d", the period printed as 2^per.
    AutoPtr<char> toString() const override;

  private:
    uint32_t m_avg = 0;
    uint32_t m_pad;
    uint32_t m_per;
    uint32_t m_min;
};
