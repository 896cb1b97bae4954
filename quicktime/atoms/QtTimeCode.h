// QtTimeCode: a timecode value (hours, minutes, seconds and a fraction that is either frames or
// milliseconds). It converts from a time in any time scale, from a frame counter (with drop-frame
// numbering at 30 and 60 fps), from the packed record of a timecode sample and from the text a user
// writes ("HH:MM:SS:FF", or "HH:MM:SS;FF" for drop frame), and renders itself as text.
// A plain value: copy it freely, share it between threads only read-only.
#pragma once

#include <cstdint>

#include "framework/AutoPtr.h"

class QtTimeCode {
  public:
    QtTimeCode();
    // A time of `value` units of 1/`scale` second, in milliseconds mode.
    QtTimeCode(unsigned int value, unsigned int scale);

    // A time in units of 1/scale second (a scale of 0 is taken as 1); the fraction is milliseconds.
    void setScaled(unsigned int value, unsigned int scale);
    // A frame number of a track whose frames last `frameDuration` units of 1/`timeScale` second.
    void setCounter(unsigned int counter, unsigned int timeScale, unsigned int frameDuration, bool dropFrame);
    // The frame number this timecode stands for, the inverse of setCounter.
    unsigned int getCounter(unsigned int timeScale, unsigned int frameDuration) const;
    // A packed sample record: hours in bits 0-7, minutes 8-14, sign 15, seconds 16-23, frames 24-31.
    void setDiscrete(unsigned int packed);
    unsigned int getDiscrete() const { return m_raw; }

    bool dropFrame() const { return m_dropFrame != 0; }
    bool isZero() const { return m_hours == 0 && m_minutes == 0 && m_seconds == 0 && m_fraction == 0; }
    bool isFrames() const { return m_framesMode != 0; }
    unsigned int getHours() const { return m_hours; }
    unsigned int getMinutes() const { return m_minutes; }
    unsigned int getSeconds() const { return m_seconds; }
    // Frames in frames mode, milliseconds otherwise.
    unsigned int getFraction() const { return m_fraction; }

    // "HH:MM:SS.FF(0x%08x)" with the raw value in frames mode, "HH:MM:SS.mmm" otherwise.
    AutoPtr<char> toString() const;

    // Reads "HH:MM:SS:FF" or, for drop-frame numbering, "HH:MM:SS;FF" (two digits each) into a
    // frame-mode timecode whose raw value is 0 until it is given a counter. False, and the value
    // unchanged, when the text has another form.
    bool setText(char const* text);
    // The timecode as written: "HH:MM:SS:FF", ';' before the frames when it counts drop frame;
    // milliseconds mode gives "HH:MM:SS.mmm".
    AutoPtr<char> getText() const;
    // Whether a track of this rate counts this timecode: frames below the frames per second,
    // seconds and minutes below 60, hours below 24, and none of the frame numbers that drop-frame
    // numbering skips at the start of a minute.
    bool isValidAt(unsigned int timeScale, unsigned int frameDuration) const;

    // Whole frames per second of a track: (frameDuration / 2 + timeScale) / frameDuration, at least 1.
    static unsigned int framesPerSecond(unsigned int timeScale, unsigned int frameDuration);

  private:
    uint8_t m_hours = 0;
    uint8_t m_minutes = 0;
    uint8_t m_seconds = 0;
    uint8_t m_sign = 1;  // bit 15 of a packed record; 1 when built
    uint8_t m_dropFrame = 0;
    uint8_t m_framesMode = 0;  // 1: the fraction counts frames; 0: milliseconds
    uint32_t m_raw = 0;        // the counter or packed record last set
    uint16_t m_fraction = 0;
};
