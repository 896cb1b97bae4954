// BasicFileIO: flush requests (hold, write, sync, release, then a notice from the flush thread) and
// the cache budget its users share.
#include <gtest/gtest.h>

#include <thread>

#include "framework/BasicFileIO.h"
#include "framework/BridgeAnchor.h"
#include "framework/FaultyFileIO.h"
#include "framework/SorvanPosix.h"
#include "tests/TestSupport.h"

namespace {

Bytes bytes(char const* text) { return Bytes(text, text + strlen(text)); }

BasicIOTypes::FlushReq request(BridgeAnchor const* anchor, uintptr_t element, unsigned long offset,
                               char const* text) {
    return {anchor, reinterpret_cast<void*>(element), offset, bytes(text), {}, 0};
}

// Keeps the file layer's reservation events and flush notices (element@offset+size) in order, with
// the syncs done so far.
class FlushListener {
  public:
    explicit FlushListener(FaultyFileIO* file = nullptr) : m_file(file) {}

    bool onReservation(VirtualBase::Reservation const& r) {
        SorvanPosix::ScopeLock lock(m_mutex);
        m_log += std::string(r.release ? "release" : "hold") + "(" + std::to_string(r.offset) + "," +
                 std::to_string(r.size) + ")";
        if (m_file) m_log += "[syncs=" + std::to_string(m_file->syncCount()) + "]";
        m_log += " ";
        return true;
    }
    bool onFlush(BasicIOTypes::FlushNotify const& notice) {
        SorvanPosix::ScopeLock lock(m_mutex);
        m_log += "notice(" + std::to_string(reinterpret_cast<uintptr_t>(notice.element)) + "@" +
                 std::to_string(notice.offset) + "+" + std::to_string(notice.size) + "," +
                 (notice.ok ? "ok" : "failed") + ") ";
        threads.push_back(std::this_thread::get_id());
        return true;
    }
    std::string events() const {
        SorvanPosix::ScopeLock lock(m_mutex);
        return m_log;
    }

    std::vector<std::thread::id> threads;
    BridgeAnchor flushAnchor{this, &FlushListener::onFlush};
    BridgeAnchor reservationAnchor{this, &FlushListener::onReservation};

  private:
    FaultyFileIO* m_file;
    mutable SorvanPosix::JMutex m_mutex;
    std::string m_log;
};

}  // namespace

TEST(BasicFileIO, FlushHoldsWritesSyncsReleasesThenNotifiesFromItsOwnThread) {
    TempFile scratch;
    scratch.write(bytes("................"));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    FlushListener listener(file.get());
    file->setReservationCallback(&listener.reservationAnchor);
    ASSERT_TRUE(file->flush(request(&listener.flushAnchor, 42, 4, "moov")));
    file->waitForFlushes();
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("....moov........"));
    EXPECT_EQ(listener.events(), "hold(4,4)[syncs=0] release(4,4)[syncs=1] notice(42@4+4,ok) ");
    ASSERT_EQ(listener.threads.size(), 1u);
    EXPECT_NE(listener.threads[0], std::this_thread::get_id());
}

TEST(BasicFileIO, AFailedWriteOrSyncIsNotifiedAsFailedAndStillReleased) {
    TempFile scratch;
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::Create);
    FlushListener listener;
    file->setReservationCallback(&listener.reservationAnchor);
    file->failWrite(1);
    file->failSync(2);  // the first request syncs nothing: its write failed first
    MessageCapture messages;
    file->flush(request(&listener.flushAnchor, 1, 0, "a"));
    file->flush(request(&listener.flushAnchor, 2, 0, "b"));
    file->flush(request(&listener.flushAnchor, 3, 0, "c"));
    file->waitForFlushes();
    EXPECT_EQ(listener.events(),
              "hold(0,1) release(0,1) notice(1@0+1,failed) hold(0,1) release(0,1) notice(2@0+1,ok) "
              "hold(0,1) release(0,1) notice(3@0+1,failed) ");
    EXPECT_EQ(messages.count(MsgLevel::Error), 2u);
}

TEST(BasicFileIO, CacheDeclarationOverTheLimitIsRefusedButRecorded) {
    TempFile scratch;
    auto file = BasicFileIO::open(scratch.c_str(), BasicFileIO::Create);
    file->setCacheLimit(10000);
    EXPECT_TRUE(file->setCacheBytes(BasicIOTypes::CacheTable, 6000));
    EXPECT_FALSE(file->setCacheBytes(BasicIOTypes::CacheEssence, 5000));
    EXPECT_EQ(file->cacheBytes(BasicIOTypes::CacheEssence), 5000u);
    EXPECT_TRUE(file->setCacheBytes(BasicIOTypes::CacheEssence, 4000));
}

TEST(BasicFileIO, FallbackCutsTheGrantToTheLimitKeepingTheTableShare) {
    TempFile scratch;
    auto file = BasicFileIO::open(scratch.c_str(), BasicFileIO::Create);
    file->setCacheLimit(10 * 4096);
    MessageCapture messages;
    EXPECT_FALSE(file->setCacheBytes(BasicIOTypes::CacheTable, 40 * 4096));
    file->cacheFallback();
    file->cacheFallback();
    EXPECT_EQ(messages.count(MsgLevel::Warning), 1u);  // once, however often it falls back
    EXPECT_TRUE(file->cacheLimited());
    file->setCacheBlocks(40, 10);
    EXPECT_EQ(file->cacheBlocks(), 10u);
    EXPECT_EQ(file->cacheTableBlocks(), 2u);
    file->setCacheBlocks(40, 1);  // a small share still keeps one block
    EXPECT_EQ(file->cacheTableBlocks(), 1u);
    file->setCacheBlocks(40, 40);  // all tables: every block may go to them
    EXPECT_EQ(file->cacheTableBlocks(), 10u);

    EXPECT_TRUE(file->setCacheBytes(BasicIOTypes::CacheTable, 4096));  // fits again: no more limit
    EXPECT_FALSE(file->cacheLimited());
    file->setCacheBlocks(40, 10);
    EXPECT_EQ(file->cacheBlocks(), 40u);
    EXPECT_EQ(file->cacheTableBlocks(), 10u);
}

TEST(BasicFileIO, SizeAdviceIsTheKindsShareButNeverBelowTwo) {
    TempFile scratch;
    auto file = BasicFileIO::open(scratch.c_str(), BasicFileIO::Create);
    EXPECT_EQ(file->sizeAdvice(BasicIOTypes::CacheTable), 2u);
    EXPECT_EQ(file->sizeAdvice(BasicIOTypes::CacheEssence), 2u);
    file->setCacheBlocks(10, 7);
    EXPECT_EQ(file->sizeAdvice(BasicIOTypes::CacheTable), 7u);
    EXPECT_EQ(file->sizeAdvice(BasicIOTypes::CacheEssence), 3u);
    file->setCacheBlocks(10, 9);
    EXPECT_EQ(file->sizeAdvice(BasicIOTypes::CacheEssence), 2u);
}
