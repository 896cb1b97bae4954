// QtSampleLocation: the recorder's record of where the samples being written go, for one call of
// QtAtomSampleChunk::addSamples: their sample description, how many there are (and their bytes,
// which the sample allocators size chunks by), and whether they open a new chunk. The
// sample-to-chunk table sets the new-chunk flag itself whenever it starts a chunk in a table that
// already has entries, so a recorder that reuses one record keeps adding to the chunk opened last
// until it sets the flag (or changes the description).
#pragma once

#include <cstdint>

struct QtSampleLocation {
    QtSampleLocation() = default;
    QtSampleLocation(unsigned int description, unsigned int samples, bool newChunk)
        : descIndex(description), newChunk(newChunk ? 1 : 0), numSamples(samples) {}

    unsigned int descIndex = 1;  // 1-based sample description index
    uint8_t newChunk = 0;        // clear: join the chunk being filled when the description matches
    unsigned int numSamples = 0;
    unsigned int numBytes = 0;  // their bytes, for sizing the chunk that takes them
};
