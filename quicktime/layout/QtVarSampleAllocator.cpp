#include "quicktime/layout/QtVarSampleAllocator.h"

#include "framework/FormatStr.h"
#include "quicktime/tables/QtSampleLocation.h"

QtVarSampleAllocator::QtVarSampleAllocator(QtChunkAllocator& chunks, unsigned int countPerChunk,
                                           unsigned int pad, unsigned int per, unsigned int min)
    : QtSampleAllocator(chunks, countPerChunk), m_pad(pad), m_per(per), m_min(min) {}

QtChunkAllocator::Chunk QtVarSampleAllocator::allocChunk(QtSampleLocation const& location,
                                                         QtAtomRoot const* root, bool start) {
    uint32_t size = getChunkSize();
    // What the current chunk has taken: the size it was given less its free remainder.
    uint32_t left = size > m_chunk.size ? size - static_cast<uint32_t>(m_chunk.size) : 0;
    if (m_count < m_countPerChunk || location.numBytes > size) {
        uint32_t samples = m_count + location.numSamples;
        if (samples == 0) samples = 1;
        m_avg = (location.numBytes + left + samples - 1) / samples * m_countPerChunk;
        if (m_avg < location.numBytes) m_avg = location.numBytes;
        left = m_avg;
    }
    uint32_t shift = m_per < 32 ? m_per : 31;
    m_avg = m_avg - (m_avg >> shift) + (left >> shift);
    return take(getChunkSize(), root, start);
}

AutoPtr<char> QtVarSampleAllocator::toString() const {
    AutoPtr<char> base = QtSampleAllocator::toString();
    return FormatStr("var=%s,avg=%d,pad=%d,per=%d,min=%d", base.get(), static_cast<int>(m_avg),
                     static_cast<int>(m_pad), static_cast<int>(1u << (m_per < 32 ? m_per : 31)),
                     static_cast<int>(m_min));
}
