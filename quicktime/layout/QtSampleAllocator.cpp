#include "quicktime/layout/QtSampleAllocator.h"

#include <algorithm>

#include "framework/FormatStr.h"
#include "quicktime/tables/QtSampleLocation.h"

QtSampleAllocator::QtSampleAllocator(QtChunkAllocator& chunks, unsigned int countPerChunk,
                                     unsigned int frameCount, unsigned int byteRate, FixedPoint<16> rate)
    : m_countPerChunk(countPerChunk),
      m_frameCount(frameCount),
      m_byteRate(byteRate),
      m_rate(rate),
      m_chunks(chunks) {}

QtChunkAllocator::Chunk QtSampleAllocator::allocChunk(QtSampleLocation const& location,
                                                      QtAtomRoot const* root, bool start) {
    unsigned long samples = std::max(location.numSamples, 1u);
    unsigned long perSample = (location.numBytes + samples - 1) / samples;
    unsigned long size = std::max<unsigned long>(perSample * m_countPerChunk, location.numBytes);
    return take(size, root, start);
}

QtChunkAllocator::Chunk QtSampleAllocator::take(unsigned long size, QtAtomRoot const* root, bool start) {
    QtChunkAllocator::Chunk chunk = m_chunks.alloc(size, root);
    if (start && chunk.size != 0) setChunk(chunk);
    return chunk;
}

void QtSampleAllocator::setChunk(QtChunkAllocator::Chunk const& chunk) {
    m_chunk = chunk;
    m_count = 0;
}

bool QtSampleAllocator::place(unsigned int bytes, unsigned int samples, unsigned long& offset) {
    if (bytes > m_chunk.size || m_chunk.offset == 0) return false;
    offset = m_chunk.offset;
    m_chunk -= bytes;
    m_count += samples;
    return true;
}

AutoPtr<char> QtSampleAllocator::toString() const {
    return FormatStr("C={%ld@%ld},%ds,pers={%dB/s,%df,%ds},rate=%f", static_cast<long>(m_chunk.size),
                     static_cast<long>(m_chunk.offset), static_cast<int>(m_count),
                     static_cast<int>(m_byteRate), static_cast<int>(m_frameCount),
                     static_cast<int>(m_countPerChunk), m_rate.floatValue());
}
