#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "quicktime/atoms/QtTimeCode.h"

TEST(QtTimeCode, FramesPerSecondRoundsTheFrameRateToWholeFrames) {
    EXPECT_EQ(QtTimeCode::framesPerSecond(30000, 1001), 30u);
    EXPECT_EQ(QtTimeCode::framesPerSecond(60000, 1001), 60u);
    EXPECT_EQ(QtTimeCode::framesPerSecond(12800, 512), 25u);
    EXPECT_EQ(QtTimeCode::framesPerSecond(24000, 1001), 24u);
    EXPECT_EQ(QtTimeCode::framesPerSecond(1, 1000), 1u);  // would be 0
    EXPECT_EQ(QtTimeCode::framesPerSecond(25, 0), 1u);    // no frame duration
}

namespace {

// A wall clock of timecode fields, advanced one frame at a time by the rules of timecode counting,
// independently of the conversion under test.
struct Clock {
    unsigned int hours = 0, minutes = 0, seconds = 0, frames = 0;

    void advance(unsigned int fps, unsigned int skipped) {
        if (++frames < fps) return;
        frames = 0;
        if (++seconds < 60) return;
        seconds = 0;
        if (++minutes == 60) {
            minutes = 0;
            ++hours;
        }
        if (minutes % 10 != 0) frames = skipped;  // drop frame: the first numbers of the minute are left out
    }
    bool matches(QtTimeCode const& tc) const {
        return tc.getHours() == hours && tc.getMinutes() == minutes && tc.getSeconds() == seconds &&
               tc.getFraction() == frames;
    }
};

struct Rate {
    char const* name;
    unsigned int timeScale, frameDuration;
    bool dropFlag;
    unsigned int fps;
    unsigned int skipped;  // frame numbers left out at the start of a minute
    char const* lastTwo;   // the texts of the day's last two frames
};

// Walks every counter of a day; returns the first disagreement, or "".
std::string countADay(Rate const& rate) {
    unsigned long perTenMinutes = rate.fps * 600ul - 9 * rate.skipped;
    unsigned long day = 144 * perTenMinutes;
    Clock clock;
    QtTimeCode tc, parsed;
    std::string lastTwo;
    for (unsigned long counter = 0; counter < day; ++counter) {
        auto fail = [&](std::string const& what) { return what + " at counter " + std::to_string(counter); };
        tc.setCounter(static_cast<unsigned int>(counter), rate.timeScale, rate.frameDuration, rate.dropFlag);
        if (!clock.matches(tc)) return fail(std::string("fields ") + tc.getText().get());
        if (tc.getCounter(rate.timeScale, rate.frameDuration) != counter)
            return fail(std::string("counter of ") + tc.getText().get());
        if (!tc.isValidAt(rate.timeScale, rate.frameDuration))
            return fail(std::string("refused ") + tc.getText().get());
        bool minuteEdge = clock.seconds == 0 && clock.frames <= rate.skipped;
        if (minuteEdge || counter + 2 >= day) {
            AutoPtr<char> text = tc.getText();
            if (!parsed.setText(text.get()) ||
                parsed.getCounter(rate.timeScale, rate.frameDuration) != counter)
                return fail(std::string("text round trip of ") + text.get());
            if (counter + 2 >= day) lastTwo += (lastTwo.empty() ? "" : " ") + std::string(text.get());
        }
        if (minuteEdge && clock.minutes % 10 != 0 && clock.frames == rate.skipped) {
            for (unsigned int f = 0; f < rate.skipped; ++f) {
                char skipped[40];
                snprintf(skipped, sizeof skipped, "%02u:%02u:00;%02u", clock.hours, clock.minutes, f);
                if (!parsed.setText(skipped) || parsed.isValidAt(rate.timeScale, rate.frameDuration))
                    return fail(std::string("accepted the skipped ") + skipped);
            }
        }
        clock.advance(rate.fps, rate.skipped);
    }
    if (clock.hours != 24 || clock.minutes || clock.seconds || clock.frames)
        return "the day did not end at 24:00";
    return lastTwo == rate.lastTwo ? "" : "day ends " + lastTwo;
}

}  // namespace

TEST(QtTimeCode, EveryCounterOfADayRoundTripsAndCountsLikeTheClock) {
    Rate const rates[] = {
        {"23.976", 24000, 1001, false, 24, 0, "23:59:59:22 23:59:59:23"},
        {"24", 24, 1, false, 24, 0, "23:59:59:22 23:59:59:23"},
        {"25", 25, 1, false, 25, 0, "23:59:59:23 23:59:59:24"},
        // The drop-frame flag changes only the separator where the rate has no drop-frame numbering.
        {"25 flagged drop frame", 12800, 512, true, 25, 0, "23:59:59;23 23:59:59;24"},
        {"29.97 drop frame", 30000, 1001, true, 30, 2, "23:59:59;28 23:59:59;29"},
        {"29.97 non-drop", 30000, 1001, false, 30, 0, "23:59:59:28 23:59:59:29"},
        {"30", 30, 1, false, 30, 0, "23:59:59:28 23:59:59:29"},
        {"50", 50, 1, false, 50, 0, "23:59:59:48 23:59:59:49"},
        {"59.94 drop frame", 60000, 1001, true, 60, 4, "23:59:59;58 23:59:59;59"},
        {"60", 60, 1, false, 60, 0, "23:59:59:58 23:59:59:59"},
    };
    for (Rate const& rate : rates) EXPECT_EQ(countADay(rate), "") << rate.name;
}

TEST(QtTimeCode, ScaledTimePrintsMillisecondsWithThreeDigits) {
    QtTimeCode tc;
    tc.setScaled(5500, 1000);
    EXPECT_STREQ(tc.toString().get(), "00:00:05.500");
    EXPECT_FALSE(tc.isFrames());
    EXPECT_STREQ(QtTimeCode(481024, 48000).toString().get(), "00:00:10.021");
    EXPECT_STREQ(QtTimeCode(3723, 1).toString().get(), "01:02:03.000");
    EXPECT_STREQ(QtTimeCode(7, 0).toString().get(), "00:00:07.000");  // a scale of 0 counts seconds
    // The milliseconds round to nearest: 1/3 s and 2/3 s.
    EXPECT_STREQ(QtTimeCode(1, 3).toString().get(), "00:00:00.333");
    EXPECT_STREQ(QtTimeCode(2, 3).toString().get(), "00:00:00.667");
}
