// QtGopPattern: the coding types of one GOP (up to 256 frames) for reports, with how many identical
// GOPs followed it. The frame-set dump condenses a unit of frames into a few of these, so that a
// long GOP reads as "0{IBBPBBPBBPBB}*21" instead of 256 letters. A plain value; not shared.
#pragma once

#include <cstdint>

#include "framework/AutoPtr.h"
#include "quicktime/tables/SampleInfo.h"

class QtGopPattern {
  public:
    static constexpr unsigned int kMaxTypes = 256;

    explicit QtGopPattern(unsigned int first = 0) { reset(first); }

    // Starts an empty pattern at the given first sample; the types held are cleared by init().
    void reset(unsigned int first);
    void init();
    // Adds the next frame's type; beyond 256 frames only the I frames are still counted.
    QtGopPattern& operator+=(SampleCodingType type);
    // One more GOP identical to this one followed it.
    void markRepeat() { ++m_repeat; }
    // Same number of types, and the same types in the same order.
    bool operator==(QtGopPattern const& other) const;

    // "first{types}" (and "*n" with the number of identical GOPs when it repeats), preceded by ","
    // when `n` is not 0; `n` counts the patterns written so that a caller can join several. An
    // empty pattern gives an empty text and leaves `n` alone.
    AutoPtr<char> toString(int& n) const;

    unsigned int size() const { return m_count; }
    unsigned int getFirst() const { return m_first; }
    unsigned int getIFrames() const { return m_iFrames; }
    unsigned int getRepeat() const { return m_repeat; }

  private:
    uint8_t m_types[kMaxTypes];
    unsigned int m_count = 0;
    unsigned int m_first = 0;
    unsigned int m_iFrames = 0;
    unsigned int m_repeat = 0;
};
