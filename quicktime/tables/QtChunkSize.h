// QtChunkSize: the chunk shape a recorder has produced on a track, kept by its sample-to-chunk
// table: the smallest number of samples per chunk, a companion value that is rescaled in
// proportion whenever that smallest number is lowered (so that the ratio between the two is kept),
// and a third value that is carried along unchanged.
//
// Threads: the recorder lowers it; readers (a lookup's first use of a QtChunkSet) read the smallest
// samples per chunk meanwhile, so the values are atomic words.
#pragma once

#include <atomic>

class QtChunkSize {
public:
    QtChunkSize(unsigned int samplesPerChunk, unsigned int scaled, unsigned int carried)
        : m_scaled(scaled), m_samplesPerChunk(samplesPerChunk), m_carried(carried) {}

    unsigned int getSamplesPerChunk() const { return m_samplesPerChunk.load(std::memory_order_relaxed); }
    unsigned int getScaled() const { return m_scaled.load(std::memory_order_relaxed); }
    unsigned int getCarried() const { return m_carried; }

    // Lowers the smallest samples per chunk to `samples` (only when it is smaller), rescaling the
    // companion value by samples / old smallest in 32-bit arithmetic (owner thread).
    void lowerSamplesPerChunk(unsigned int samples) {
        unsigned int smallest = getSamplesPerChunk();
        if (smallest <= samples) return;
        m_scaled.store(getScaled() * samples / smallest, std::memory_order_relaxed);
        m_samplesPerChunk.store(samples, std::memory_order_relaxed);
    }

private:
    // Stored in this order (the companion value first).
    std::atomic<unsigned int> m_scaled;
    std::atomic<unsigned int> m_samplesPerChunk;
    unsigned int const m_carried;
};
