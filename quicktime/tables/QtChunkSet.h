// QtChunkSet: the result of a sample-to-chunk lookup, one run of chunks of equal shape, and the
// cache of the previous lookup that the next one starts from (QtAtomSampleChunk::getChunkSet).
// A set that was never filled is "unset"; a set filled from a run says which stsc entry made it.
#pragma once

#include <cstdint>

#include "framework/AutoPtr.h"

class QtChunkSet {
public:
    static constexpr unsigned int kNone = 0xFFFFFFFFu;

    // Unset: every field all ones, but the first sample (all ones in 32 bits) and the samples per
    // chunk (0).
    QtChunkSet() = default;

    // An empty run of description 1 at the start.
    void zero();
    // zero(), with the smallest samples per chunk of the track.
    void init(unsigned int smallestSamplesPerChunk);
    bool isUnset() const { return m_smallestSamplesPerChunk == kNone; }

    // Equal when every field but the entry index is.
    bool operator==(QtChunkSet const& other) const;
    bool operator!=(QtChunkSet const& other) const { return !(*this == other); }
    // "c=%d@%d,s=%d@%ld,spc=%d/%d,desc=%d": chunks@first chunk, samples@first sample, samples per
    // chunk / smallest, description.
    AutoPtr<char> toString() const;

    // The chunk (0-based) that holds a sample of this run, and that chunk's first sample.
    unsigned int getChunk(unsigned long sample, unsigned long& chunkFirstSample) const;

    // The fields, in their order of record (a plain record that the sample-to-chunk table fills).
    unsigned int m_firstChunk = kNone;  // 0-based
    unsigned int m_numChunks = kNone;
    unsigned long m_firstSample = kNone;
    unsigned int m_samplesPerChunk = 0;
    unsigned int m_smallestSamplesPerChunk = kNone;
    unsigned int m_numSamples = kNone;  // samples per chunk x chunks, 32-bit
    unsigned int m_descIndex = kNone;
    unsigned int m_entryIndex = kNone;  // the stsc entry that produced the set, or kNone
};
