#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/TestSupport.h"
#include "framework/AutoPtr.h"
#include "framework/FormatStr.h"
#include "framework/PathParser.h"
#include "framework/QtAtomBuffer.h"
#include "framework/SharedCharPtr.h"
#include "quicktime/atoms/QtDebug.h"

TEST(QtAtomBuffer, TracksOccupiedBytesAndReadPosition) {
    unsigned char text[] = "abcdefgh";
    QtAtomBuffer buffer(text, 8, QtAtomBuffer::Full);
    EXPECT_EQ(buffer.nOccupied(), 8u);
    EXPECT_EQ(buffer.bufferOffset(), 0u);
    buffer.removeInput(4);
    buffer.prepend(4);
    EXPECT_EQ(buffer.nOccupied(), 8u);
    EXPECT_EQ(buffer.ptrData(), text);
    buffer.setFileOffset(1000);
    buffer.removeInput(8);
    EXPECT_EQ(buffer.nOccupied(), 0u);
    EXPECT_EQ(buffer.fileOffset(), 1008u);
}

TEST(QtAtomBuffer, CallerStorageRefusesWhatDoesNotFitReportsOnceAndStaysRefused) {
    unsigned char storage[6] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    QtAtomBuffer buffer(storage, 4, QtAtomBuffer::Empty);
    unsigned char const bytes[3] = {1, 2, 3};
    MessageCapture capture;
    EXPECT_TRUE(buffer.append(bytes, 3));
    EXPECT_FALSE(buffer.append(bytes, 2));
    EXPECT_FALSE(buffer.append(1, true));  // would fit, but the encoding already lost a field
    EXPECT_TRUE(buffer.overflowed());
    EXPECT_EQ(buffer.nOccupied(), 3u);
    EXPECT_EQ(std::vector<unsigned char>(storage + 3, storage + 6), std::vector<unsigned char>(3, 0xEE));
    EXPECT_EQ(capture.count(MsgLevel::Error), 1u);
    buffer.reset(QtAtomBuffer::Empty);
    EXPECT_TRUE(buffer.append(bytes, 3));
}

TEST(Messages, GoToTheInstalledSinkWithTheirLevel) {
    MessageCapture capture;
    errorMsg("e%d\n", 1);
    warningMsg("w\n");
    infoMsg("i\n");
    debugMsg("d\n");
    ASSERT_EQ(capture.messages().size(), 4u);
    EXPECT_EQ(capture.messages()[0].level, MsgLevel::Error);
    EXPECT_EQ(capture.messages()[0].text, "e1\n");
    EXPECT_EQ(capture.messages()[3].level, MsgLevel::Debug);
    int value = 0;
    EXPECT_EQ(logIfNull(&value, "f", "quicktimeutil.cpp", 1), &value);
    EXPECT_EQ(logIfNull<int>(nullptr, "decode", "quicktimeutil.cpp", 42), nullptr);
    EXPECT_FALSE(logIfFalse(false, "adjustCache", "quicktimeutil.cpp", 9254));
    EXPECT_TRUE(capture.contains("decode"));
    EXPECT_TRUE(capture.contains("quicktimeutil.cpp:9254"));
}

TEST(MsgClamp, LetsABurstThroughAndThenOneInN) {
    MsgClamp clamp(2, 3);
    std::vector<bool> allowed;
    for (int i = 0; i < 8; ++i) allowed.push_back(clamp.allow());
    EXPECT_EQ(allowed, (std::vector<bool>{true, true, true, false, false, true, false, false}));
}

TEST(SharedCharPtrSet, RecyclesBuffersAndGrowsThem) {
    SharedCharPtrSet set;
    EXPECT_STREQ(set.name(), "SharedCharPtrSet");
    SharedCharPtr* a = set.alloc(10);
    EXPECT_GE(a->size(), 10u);
    a->release();
    SharedCharPtr* b = set.alloc(100);
    EXPECT_EQ(a, b);
    EXPECT_GE(b->size(), 100u);
    EXPECT_EQ(set.created(), 1u);
    EXPECT_EQ(set.recycled(), 1u);
    b->release();
}

TEST(PathParser, SplitsDirectoryNamePrefixAndExtension) {
    PathParser p("/media/clips/._take1.mov");
    EXPECT_STREQ(p.getDirectory(), "/media/clips/");
    EXPECT_STREQ(p.getName(), "._take1.mov");
    EXPECT_STREQ(p.getPrefix(), "._take1");
    EXPECT_STREQ(p.getExtension(), "mov");
    PathParser bare("._hidden");
    EXPECT_STREQ(bare.getPrefix(), "._hidden");
    EXPECT_STREQ(bare.getExtension(), "");
}
