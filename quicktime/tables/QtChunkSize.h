// QtChunkSize: the chunk shape a recorder has produced on a track, kept by its sample-to-chunk
// table: the smallest number of samples per chunk, a companion value that is rescaled in
// proportion whenever that smallest number is lowered (so that the ratio between the two is kept),
// and a third value that is carried along unchanged.
#pragma once

class QtChunkSize {
public:
    QtChunkSize(unsigned int samplesPerChunk, unsigned int scaled, unsigned int carried)
        : m_scaled(scaled), m_samplesPerChunk(samplesPerChunk), m_carried(carried) {}

    unsigned int getSamplesPerChunk() const { return m_samplesPerChunk; }
    unsigned int getScaled() const { return m_scaled; }
    unsigned int getCarried() const { return m_carried; }

    // Lowers the smallest samples per chunk to `samples` (only when it is smaller), rescaling the
    // companion value by samples / old smallest in 32-bit arithmetic.
    void lowerSamplesPerChunk(unsigned int samples) {
        if (m_samplesPerChunk <= samples) return;
        m_scaled = m_scaled * samples / m_samplesPerChunk;
        m_samplesPerChunk = samples;
    }

private:
    // Stored in this order (the companion value first).
    unsigned int m_scaled;
    unsigned int m_samplesPerChunk;
    unsigned int m_carried;
};
