// QtTimecodeSampleDesc: the one entry ("tmcd") of a timecode track's sample description table: the
// rate and numbering of the track's timecodes (time scale, frame duration, frames per second, drop
// frame and the other flags). The track's samples are 4-byte timecodes, read through the track's
// tables into a cache (getTimecode) and written back in place while a file is recorded or edited
// (setTimecode, then writeTimecodes, which encode also runs while a write is pending).
//
// Threads: the tree's owner only; the cache and the pending flag are changed through const calls.
#pragma once

#include <cstdint>
#include <vector>

#include "quicktime/atoms/QtFields.h"
#include "quicktime/descriptions/QtSampleDesc.h"
#include "quicktime/atoms/QtTimeCode.h"

class QtSampleTable;

class QtTimecodeSampleDesc : public QtSampleDesc {
  public:
    static constexpr unsigned int kFixedSize = 34;

    enum Flags : uint32_t {
        kDropFrame = 0x1,
        kWrapsAt24Hours = 0x2,
        kNegativeTimesOk = 0x4,
        kPackedRecords = 0x8,  // samples are packed records (setDiscrete), not frame counters
    };

    // A description of one frame a second, no flags; the recorder sets its rate with setRate.
    QtTimecodeSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex);

    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    void show(unsigned int indent) const override;
    unsigned int getFixedSize() const override { return kFixedSize; }
    // The bytes after the fixed fields (a name atom, say), kept as read.
    unsigned int getExtensionSize() const override;

    // The timecode of sample `index` (0-based), read with the rest of its chunk on first use; null
    // (with an error message) when the track's tables or the file cannot give it.
    QtTimeCode const* getTimecode(QtSampleTable const& table, unsigned int index) const;
    // Makes `timecode` the first sample's value and the description's drop-frame flag follow it;
    // the value reaches the file with writeTimecodes. Returns true.
    bool setTimecode(QtTimeCode const& timecode) const;
    // Writes every cached timecode, 4 bytes each, from the track's first chunk on; false (with an
    // error message where the tables do not fit) when nothing or not everything was written.
    bool writeTimecodes() const;
    // setTimecode has run and writeTimecodes has not yet written its value.
    bool isWritePending() const { return m_writePending; }

    // Sets time scale, frame duration, frames per second and the drop-frame flag of a new track.
    void setRate(unsigned int timeScale, unsigned int frameDuration, bool dropFrame);
    void setFlags(uint32_t flags);

    uint32_t getFlags() const { return m_flags; }
    bool dropFrame() const { return (m_flags & kDropFrame) != 0; }
    unsigned int getTimeScale() const { return m_timeScale; }
    unsigned int getFrameDuration() const { return m_frameDuration; }
    unsigned int getNumberOfFrames() const { return m_numberOfFrames; }

  private:
    // Decodes the chunk's samples into the cache; false after reporting a short read.
    bool readChunk(QtSampleTable const& table, unsigned int chunk, unsigned long firstSample,
                   unsigned int count) const;
    void showTimecodes(unsigned int indent) const;
    // Marks the owning table changed when a field really changes.
    template <class T>
    void change(T& field, T value);

    uint32_t m_reserved = 0;
    uint32_t m_flags = 0;
    uint32_t m_timeScale = 1;
    uint32_t m_frameDuration = 1;
    uint8_t m_numberOfFrames = 1;
    QtReserved<1> m_reserved1;
    // Index = sample index. A zero entry is read again on the next request.
    mutable std::vector<QtTimeCode> m_timecodes;
    mutable bool m_writePending = false;
};
