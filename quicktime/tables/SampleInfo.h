// SampleInfo: what the recorder knows of one sample when it hands it to the tables: the encoder's
// coding type (I, P or B) and, when the encoder gives it, the display offset in frames. With no
// display offset the composition table derives the offsets from the order of I/P and B frames.
// A plain value, copied freely between threads.
#pragma once

#include <cstdint>

// Coding type of a sample as the encoder reports it; printed through kSampleCodingLetters.
enum SampleCodingType : uint8_t {
    SampleCodingUnknown = 0,
    SampleCodingI = 1,
    SampleCodingP = 2,
    SampleCodingB = 3,
};

// "?IPB", indexed by the coding type.
inline char sampleCodingLetter(unsigned int type) { return "?IPB"[type & 3]; }

struct SampleInfo {
    // The byte that stands for "no display offset".
    static constexpr uint8_t kNoDisplayOffset = 0x80;

    SampleInfo() = default;
    explicit SampleInfo(SampleCodingType type) : encoding(type) {}
    SampleInfo(SampleCodingType type, int8_t displayOffset)
        : encoding(type), displayOffset(static_cast<uint8_t>(displayOffset)) {}

    SampleCodingType getEncoding() const { return encoding; }
    bool hasDisplayOffset() const { return displayOffset != kNoDisplayOffset; }
    // Frames between the sample's decode and display slots (meaningless without one).
    int8_t getDisplayOffset() const { return static_cast<int8_t>(displayOffset); }

    // Byte 0: the coding type. Byte 1: the frame's field order as the encoder reports it (0 when
    // unknown); the tables do not use it. Byte 2: the display offset, 0x80 for none.
    SampleCodingType encoding = SampleCodingUnknown;
    uint8_t fieldOrder = 0;
    uint8_t displayOffset = kNoDisplayOffset;
};
