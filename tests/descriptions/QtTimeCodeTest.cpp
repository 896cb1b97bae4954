#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "quicktime/descriptions/QtTimeCode.h"
#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

namespace {

std::string hmsf(QtTimeCode const& tc) {
    char text[32];
    snprintf(text, sizeof text, "%02u:%02u:%02u:%02u", tc.getHours(), tc.getMinutes(), tc.getSeconds(),
             tc.getFraction());
    return text;
}

}  // namespace

TEST(QtTimeCode, FramesPerSecondRoundsTheFrameRateToWholeFrames) {
    EXPECT_EQ(QtTimeCode::framesPerSecond(30000, 1001), 30u);
    EXPECT_EQ(QtTimeCode::framesPerSecond(60000, 1001), 60u);
    EXPECT_EQ(QtTimeCode::framesPerSecond(12800, 512), 25u);
    EXPECT_EQ(QtTimeCode::framesPerSecond(24000, 1001), 24u);
    EXPECT_EQ(QtTimeCode::framesPerSecond(1, 1000), 1u);  // would be 0
    EXPECT_EQ(QtTimeCode::framesPerSecond(25, 0), 1u);    // no frame duration
}

TEST(QtTimeCode, DropFrameCounterSkipsTwoFrameNumbersEachMinuteButEveryTenth) {
    QtTimeCode tc;
    tc.setCounter(17982, 30000, 1001, true);
    EXPECT_EQ(hmsf(tc), "00:10:00:00");
    tc.setCounter(1800, 30000, 1001, true);
    EXPECT_EQ(hmsf(tc), "00:01:00:02");
    tc.setCounter(1799, 30000, 1001, true);
    EXPECT_EQ(hmsf(tc), "00:00:59:29");
    tc.setCounter(107892, 30000, 1001, true);
    EXPECT_EQ(hmsf(tc), "01:00:00:00");
    EXPECT_TRUE(tc.dropFrame());
}

TEST(QtTimeCode, DropFrameAt60FpsSkipsFourFrameNumbers) {
    QtTimeCode tc;
    tc.setCounter(3600, 60000, 1001, true);
    EXPECT_EQ(hmsf(tc), "00:01:00:04");
    tc.setCounter(2 * 17982, 60000, 1001, true);
    EXPECT_EQ(hmsf(tc), "00:10:00:00");
}

TEST(QtTimeCode, CounterRoundTripsThroughDropAndNonDropNumbering) {
    struct Rate {
        unsigned int scale, duration;
        bool drop;
    } rates[] = {
        {30000, 1001, true}, {60000, 1001, true}, {25, 1, false}, {30000, 1001, false}, {24, 1, true}};
    for (Rate const& rate : rates) {
        for (unsigned int counter = 0; counter < 250000; counter += 7) {
            QtTimeCode tc;
            tc.setCounter(counter, rate.scale, rate.duration, rate.drop);
            ASSERT_EQ(tc.getCounter(rate.scale, rate.duration), counter)
                << rate.scale << "/" << rate.duration << (rate.drop ? " drop " : " ") << hmsf(tc);
        }
    }
}

TEST(QtTimeCode, DropFrameFlagIsIgnoredAtRatesWithoutDropNumbering) {
    QtTimeCode tc;
    tc.setCounter(90000, 25, 1, true);
    EXPECT_EQ(hmsf(tc), "01:00:00:00");
    EXPECT_EQ(tc.getCounter(25, 1), 90000u);
}

TEST(QtTimeCode, NonDropCounterAt25Fps) {
    QtTimeCode tc;
    tc.setCounter(90000, 12800, 512, false);
    EXPECT_EQ(hmsf(tc), "01:00:00:00");
    EXPECT_EQ(tc.getCounter(12800, 512), 90000u);
    EXPECT_STREQ(tc.toString().get(), "01:00:00.00(0x00015f90)");
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

TEST(QtTimeCode, ScaledTimeOfLargeScalesDoesNotOverflow) {
    // 4000 s at a scale of 10 MHz: the intermediate products pass 32 bits.
    QtTimeCode tc(4000000000u, 1000000);
    EXPECT_STREQ(tc.toString().get(), "01:06:40.000");
}

TEST(QtTimeCode, DiscreteRecordUnpacksFromTheLastByteToTheFirst) {
    QtTimeCode tc;
    tc.setDiscrete(0x05040302);
    EXPECT_EQ(hmsf(tc), "02:03:04:05");
    EXPECT_EQ(tc.getDiscrete(), 0x05040302u);
    EXPECT_STREQ(tc.toString().get(), "02:03:04.05(0x05040302)");
    // Bit 15 is the sign, not part of the minutes.
    tc.setDiscrete(0x00008A01);
    EXPECT_EQ(tc.getMinutes(), 0x0Au);
}

TEST(QtTimeCode, ZeroIsZeroInEveryField) {
    EXPECT_TRUE(QtTimeCode().isZero());
    QtTimeCode tc;
    tc.setCounter(1, 25, 1, false);
    EXPECT_FALSE(tc.isZero());
    tc.setScaled(1, 1000);
    EXPECT_FALSE(tc.isZero());
}

namespace {

// The first sample and the description fields of a movie's timecode track, read from the file's
// bytes: the stsd entry (flags, time scale, frame duration) and the first chunk's 4-byte sample.
struct TimecodeTrack {
    unsigned int flags = 0, timeScale = 0, frameDuration = 0, sample = 0;
    bool found = false;
};

uint32_t beWord(Bytes const& file, unsigned long at) {
    return (uint32_t(file[at]) << 24) | (uint32_t(file[at + 1]) << 16) | (uint32_t(file[at + 2]) << 8) |
           file[at + 3];
}

TimecodeTrack readTimecodeTrack(std::string const& name) {
    TimecodeTrack track;
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(name).c_str());
    if (!root) return track;
    Bytes file = readFileBytes(testDataPath(name));
    BaseQtAtom const* moov = root->findAtom("moov", 0);
    for (unsigned int i = 0; moov && i < moov->countAtom("trak"); ++i) {
        BaseQtAtom const* trak = moov->findAtom("trak", i);
        auto const* handler = dynamic_cast<QtAtomHandler const*>(trak->findAtom("mdia.hdlr", 0));
        if (!handler || handler->getComponentSubtype() != qtId("tmcd")) continue;
        BaseQtAtom const* stsd = trak->findAtom("mdia.minf.stbl.stsd", 0);
        BaseQtAtom const* stco = trak->findAtom("mdia.minf.stbl.stco", 0);
        if (!stsd || !stco) return track;
        unsigned long entry = stsd->getFileOffset() + 16;  // header, version and flags, count
        track.flags = beWord(file, entry + 20);
        track.timeScale = beWord(file, entry + 24);
        track.frameDuration = beWord(file, entry + 28);
        track.sample = beWord(file, beWord(file, stco->getFileOffset() + 16));
        track.found = true;
    }
    return track;
}

}  // namespace

TEST(QtTimeCode, ReadsTheStartingTimecodesOfRealTracks) {
    struct Case {
        char const* file;
        char const* expected;  // as in the file's .timecode.txt, frames after ':' or ';' (drop frame)
    } cases[] = {{"mjpeg_pcm24le_dftc.mov", "3,00:59:59;28"}, {"h264_bframes_aac_tc.mov", "3,10:00:00:00"}};
    for (Case const& c : cases) {
        std::string text = readFileText(testDataPath(std::string(c.file) + ".timecode.txt"));
        ASSERT_EQ(text.substr(0, 13), c.expected) << c.file;
        TimecodeTrack track = readTimecodeTrack(c.file);
        ASSERT_TRUE(track.found) << c.file;
        QtTimeCode tc;
        tc.setCounter(track.sample, track.timeScale, track.frameDuration, track.flags & 0x1);
        std::string shown = hmsf(tc);
        if (tc.dropFrame()) shown[8] = ';';
        EXPECT_EQ("3," + shown, c.expected) << c.file;
        EXPECT_EQ(tc.getCounter(track.timeScale, track.frameDuration), track.sample) << c.file;
    }
}
