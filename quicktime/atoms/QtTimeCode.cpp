#include "quicktime/atoms/QtTimeCode.h"

#include <cctype>
#include <cstring>

#include "framework/FormatStr.h"

namespace {

// Takes whole units of `unit` out of `value`: returns how many and leaves the remainder. A unit
// larger than the value takes nothing, so the division is made in 32 bits: a conversion runs for
// every frame of a timecode track, and a 64-bit division costs several times as much.
uint32_t takeUnits(uint32_t& value, unsigned long unit) {
    if (unit > value) return 0;
    uint32_t count = value / static_cast<uint32_t>(unit);
    value %= static_cast<uint32_t>(unit);
    return count;
}

// Frames of one drop-frame group at 30 fps: an hour, ten minutes, a first minute (which keeps all
// its frame numbers) and a later minute (which skips the first two).
constexpr unsigned long kDropFramesPerHour = 107892;
constexpr unsigned long kDropFramesPerTenMinutes = 17982;
constexpr unsigned long kFramesPerFullMinute = 1800;
constexpr unsigned long kDropFramesPerMinute = 1798;

bool usesDropFrame(bool dropFrame, unsigned int fps) { return dropFrame && (fps == 30 || fps == 60); }

// The two decimal digits at text[at], or -1.
int twoDigits(char const* text, unsigned int at) {
    if (!isdigit(static_cast<unsigned char>(text[at])) || !isdigit(static_cast<unsigned char>(text[at + 1])))
        return -1;
    return (text[at] - '0') * 10 + (text[at + 1] - '0');
}

}  // namespace

QtTimeCode::QtTimeCode() { setScaled(0, 0); }

QtTimeCode::QtTimeCode(unsigned int value, unsigned int scale) { setScaled(value, scale); }

unsigned int QtTimeCode::framesPerSecond(unsigned int timeScale, unsigned int frameDuration) {
    if (frameDuration == 0) return 1;
    unsigned long sum = frameDuration / 2 + static_cast<unsigned long>(timeScale);
    // In 32 bits where the sum allows, as takeUnits does.
    unsigned long fps = sum <= UINT32_MAX ? static_cast<uint32_t>(sum) / frameDuration : sum / frameDuration;
    return fps == 0 ? 1 : static_cast<unsigned int>(fps);
}

void QtTimeCode::setScaled(unsigned int value, unsigned int scale) {
    unsigned long unit = scale == 0 ? 1 : scale;
    uint32_t rest = value;
    m_hours = static_cast<uint8_t>(takeUnits(rest, unit * 3600));
    m_minutes = static_cast<uint8_t>(takeUnits(rest, unit * 60));
    m_seconds = static_cast<uint8_t>(takeUnits(rest, unit));
    m_fraction = static_cast<uint16_t>((rest * 1000ul + unit / 2) / unit);
    m_dropFrame = 0;
    m_framesMode = 0;
}

void QtTimeCode::setCounter(unsigned int counter, unsigned int timeScale, unsigned int frameDuration,
                            bool dropFrame) {
    m_raw = counter;
    m_framesMode = 1;
    m_dropFrame = dropFrame ? 1 : 0;
    unsigned long fps = framesPerSecond(timeScale, frameDuration);
    uint32_t rest = counter;
    if (usesDropFrame(dropFrame, static_cast<unsigned int>(fps))) {
        uint32_t m = static_cast<uint32_t>(fps / 30);
        m_hours = static_cast<uint8_t>(takeUnits(rest, m * kDropFramesPerHour));
        uint32_t minutes = takeUnits(rest, m * kDropFramesPerTenMinutes) * 10;
        if (rest >= m * kFramesPerFullMinute) {
            rest -= m * kFramesPerFullMinute;
            minutes += takeUnits(rest, m * kDropFramesPerMinute) + 1;
            rest += m * 2;  // the two (or four) frame numbers skipped at the start of the minute
        }
        m_minutes = static_cast<uint8_t>(minutes);
    } else {
        m_hours = static_cast<uint8_t>(takeUnits(rest, fps * 3600));
        m_minutes = static_cast<uint8_t>(takeUnits(rest, fps * 60));
    }
    m_seconds = static_cast<uint8_t>(takeUnits(rest, fps));
    m_fraction = static_cast<uint16_t>(rest & 0xFF);
}

unsigned int QtTimeCode::getCounter(unsigned int timeScale, unsigned int frameDuration) const {
    unsigned long fps = framesPerSecond(timeScale, frameDuration);
    unsigned long counter;
    if (usesDropFrame(m_dropFrame != 0, static_cast<unsigned int>(fps))) {
        unsigned long m = fps / 30;
        counter = m_hours * m * kDropFramesPerHour + (m_minutes / 10) * m * kDropFramesPerTenMinutes +
                  m_seconds * fps + (m_minutes % 10) * m * kDropFramesPerMinute + m_fraction;
    } else {
        counter = ((m_hours * 60ul + m_minutes) * 60 + m_seconds) * fps + m_fraction;
    }
    return static_cast<unsigned int>(counter);
}

void QtTimeCode::setDiscrete(unsigned int packed) {
    m_raw = packed;
    m_framesMode = 1;
    m_dropFrame = 0;
    m_hours = static_cast<uint8_t>(packed & 0xFF);
    m_minutes = static_cast<uint8_t>((packed >> 8) & 0x7F);
    m_sign = static_cast<uint8_t>((packed >> 15) & 1);
    m_seconds = static_cast<uint8_t>((packed >> 16) & 0xFF);
    m_fraction = static_cast<uint16_t>(packed >> 24);
}

AutoPtr<char> QtTimeCode::toString() const {
    int width = m_framesMode ? 2 : 3;
    if (m_framesMode)
        return FormatStr("%02d:%02d:%02d.%0*d(0x%08x)", m_hours, m_minutes, m_seconds, width, m_fraction,
                         m_raw);
    return FormatStr("%02d:%02d:%02d.%0*d", m_hours, m_minutes, m_seconds, width, m_fraction);
}

bool QtTimeCode::setText(char const* text) {
    if (!text || strlen(text) != 11 || text[2] != ':' || text[5] != ':' || (text[8] != ':' && text[8] != ';'))
        return false;
    int hours = twoDigits(text, 0), minutes = twoDigits(text, 3), seconds = twoDigits(text, 6);
    int frames = twoDigits(text, 9);
    if (hours < 0 || minutes < 0 || seconds < 0 || frames < 0) return false;
    m_hours = static_cast<uint8_t>(hours);
    m_minutes = static_cast<uint8_t>(minutes);
    m_seconds = static_cast<uint8_t>(seconds);
    m_fraction = static_cast<uint16_t>(frames);
    m_dropFrame = text[8] == ';' ? 1 : 0;
    m_framesMode = 1;
    m_raw = 0;
    return true;
}

AutoPtr<char> QtTimeCode::getText() const {
    if (!m_framesMode) return FormatStr("%02d:%02d:%02d.%03d", m_hours, m_minutes, m_seconds, m_fraction);
    return FormatStr("%02d:%02d:%02d%c%02d", m_hours, m_minutes, m_seconds, m_dropFrame ? ';' : ':',
                     m_fraction);
}

bool QtTimeCode::isValidAt(unsigned int timeScale, unsigned int frameDuration) const {
    unsigned int fps = framesPerSecond(timeScale, frameDuration);
    if (!m_framesMode || m_hours >= 24 || m_minutes >= 60 || m_seconds >= 60 || m_fraction >= fps)
        return false;
    // Drop-frame numbering leaves out frames 0 and 1 (0 to 3 at 60 fps) of every minute but each tenth.
    bool skipped = m_minutes % 10 != 0 && m_seconds == 0 && m_fraction < fps / 15;
    return !(usesDropFrame(m_dropFrame != 0, fps) && skipped);
}
