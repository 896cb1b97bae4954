#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "framework/SorvanPosix.h"
#include "tests/TestSupport.h"
#include "tests/framework/FaultyFileIO.h"

namespace {

std::vector<unsigned char> bytes(char const* text) {
    return std::vector<unsigned char>(text, text + strlen(text));
}

long put(BasicFileIO& file, unsigned long offset, char const* text) {
    return file.writeAt(offset, text, strlen(text));
}

}  // namespace

TEST(FaultyFileIO, CrashUndoesEveryWriteAfterTheLastSync) {
    TempFile scratch;
    scratch.write(bytes("0123456789"));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    ASSERT_TRUE(file);
    ASSERT_EQ(put(*file, 2, "ab"), 2);
    ASSERT_TRUE(file->sync());
    ASSERT_EQ(put(*file, 0, "XY"), 2);
    ASSERT_EQ(put(*file, 8, "tail past the end"), 17);
    ASSERT_EQ(put(*file, 1, "Z"), 1);
    EXPECT_EQ(file->unsyncedWrites(), 3u);
    file->simulateCrash();
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("01ab456789"));
    EXPECT_EQ(put(*file, 0, "late"), -1);
    EXPECT_FALSE(file->sync());
}

TEST(FaultyFileIO, CrashRestoresBytesCutByAnUnsyncedTruncate) {
    TempFile scratch;
    scratch.write(bytes("keep all of this"));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    ASSERT_TRUE(file->truncate(4));
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("keep"));
    file->simulateCrash();
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("keep all of this"));
}

TEST(FaultyFileIO, FailsOnlyTheNthWriteAndWritesNothingForIt) {
    TempFile scratch;
    scratch.write(bytes("....."));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    file->failWrite(2);
    EXPECT_EQ(put(*file, 0, "a"), 1);
    EXPECT_EQ(put(*file, 1, "b"), -1);
    EXPECT_EQ(put(*file, 2, "c"), 1);
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("a.c.."));
    EXPECT_EQ(file->writeCount(), 3u);
}

TEST(FaultyFileIO, AFailedSyncLeavesTheWritesUndoable) {
    TempFile scratch;
    scratch.write(bytes("old"));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    file->failSync(1);
    ASSERT_EQ(put(*file, 0, "new"), 3);
    EXPECT_FALSE(file->sync());
    file->simulateCrash();
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("old"));
}

TEST(FaultyFileIO, PowerCutSilentlyLosesLaterWritesAndSyncs) {
    TempFile scratch;
    scratch.write(bytes("----"));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    file->cutPowerAfterWrites(1);
    EXPECT_EQ(put(*file, 0, "A"), 1);
    EXPECT_EQ(put(*file, 1, "B"), 1);  // reported as written, but lost
    EXPECT_TRUE(file->sync());         // reported as durable, but nothing happened
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("A---"));
    file->simulateCrash();
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("----"));
}

TEST(FaultyFileIO, PowerCutAfterASyncKeepsWhatThatSyncMadeDurable) {
    TempFile scratch;
    scratch.write(bytes("----"));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    file->cutPowerAfterSyncs(1);
    EXPECT_EQ(put(*file, 0, "A"), 1);
    EXPECT_TRUE(file->sync());
    EXPECT_EQ(put(*file, 1, "B"), 1);  // lost
    file->simulateCrash();
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("A---"));
}

TEST(FaultyFileIO, HeldWritesWaitUntilReleased) {
    TempFile scratch;
    scratch.write(bytes("xx"));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    file->holdWrites();
    std::atomic<bool> written{false};
    std::thread writer([&] {
        put(*file, 0, "ok");
        written = true;
    });
    ASSERT_TRUE(file->waitForHeldWrite(10000));
    waitMsec(20);
    EXPECT_FALSE(written.load());
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("xx"));
    file->releaseWrites();
    writer.join();
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("ok"));
}
