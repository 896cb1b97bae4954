#include "quicktime/tables/QtChunkSet.h"

#include <cstdio>

#include "framework/FormatStr.h"

void QtChunkSet::zero() {
    m_firstChunk = 0;
    m_numChunks = 0;
    m_firstSample = 0;
    m_numSamples = 0;
    m_descIndex = 1;
}

void QtChunkSet::init(unsigned int smallestSamplesPerChunk) {
    zero();
    m_smallestSamplesPerChunk = smallestSamplesPerChunk;
}

bool QtChunkSet::operator==(QtChunkSet const& other) const {
    return m_firstChunk == other.m_firstChunk && m_numChunks == other.m_numChunks && m_firstSample == other.m_firstSample &&
           m_samplesPerChunk == other.m_samplesPerChunk && m_smallestSamplesPerChunk == other.m_smallestSamplesPerChunk &&
           m_numSamples == other.m_numSamples && m_descIndex == other.m_descIndex;
}

AutoPtr<char> QtChunkSet::toString() const {
    char text[256];
    snprintf(text, sizeof text, "c=%d@%d,s=%d@%ld,spc=%d/%d,desc=%d", static_cast<int>(m_numChunks),
             static_cast<int>(m_firstChunk), static_cast<int>(m_numSamples), static_cast<long>(m_firstSample),
             static_cast<int>(m_samplesPerChunk), static_cast<int>(m_smallestSamplesPerChunk),
             static_cast<int>(m_descIndex));
    return copyText(text);
}

unsigned int QtChunkSet::getChunk(unsigned long sample, unsigned long& chunkFirstSample) const {
    unsigned long k = m_samplesPerChunk && sample >= m_firstSample ? (sample - m_firstSample) / m_samplesPerChunk : 0;
    chunkFirstSample = m_firstSample + static_cast<unsigned long>(m_samplesPerChunk) * k;
    return m_firstChunk + static_cast<unsigned int>(k);
}
