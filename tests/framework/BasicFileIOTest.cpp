#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "framework/BasicFileIO.h"
#include "framework/BridgeAnchor.h"
#include "framework/SorvanPosix.h"
#include "tests/TestSupport.h"
#include "framework/FaultyFileIO.h"

namespace {

std::vector<unsigned char> bytes(char const* text) {
    return std::vector<unsigned char>(text, text + strlen(text));
}

BasicIOTypes::FlushReq request(BridgeAnchor const* anchor, void* element, unsigned long offset,
                               char const* text) {
    BasicIOTypes::FlushReq req;
    req.anchor = anchor;
    req.element = element;
    req.offset = offset;
    req.bytes = bytes(text);
    return req;
}

// Hears the file layer's reservation events and flush notices and keeps them in order, with what the
// file looked like at each moment.
class FlushListener {
  public:
    explicit FlushListener(FaultyFileIO* file = nullptr) : m_file(file) {}

    bool onReservation(VirtualBase::Reservation const& r) {
        SorvanPosix::ScopeLock lock(m_mutex);
        log += std::string(r.release ? "release" : "hold") + "(" + std::to_string(r.offset) + "," +
               std::to_string(r.size) + ")";
        if (m_file) log += "[syncs=" + std::to_string(m_file->syncCount()) + "]";
        log += " ";
        return true;
    }
    bool onFlush(BasicIOTypes::FlushNotify const& notice) {
        if (blockFirstNotice && notice.element == reinterpret_cast<void*>(1)) {
            inFirstNotice.post();
            finishFirstNotice.wait();
        }
        {
            SorvanPosix::ScopeLock lock(m_mutex);
            log += "notice(" + std::to_string(reinterpret_cast<uintptr_t>(notice.element)) + "," +
                   (notice.ok ? "ok" : "failed") + ") ";
            notices.push_back(notice);
            threads.push_back(std::this_thread::get_id());
            if (dropFileOnNotice) dropFileOnNotice->reset();
        }
        delivered.post();
        return true;
    }
    std::string events() const {
        SorvanPosix::ScopeLock lock(m_mutex);
        return log;
    }

    std::vector<BasicIOTypes::FlushNotify> notices;
    std::vector<std::thread::id> threads;
    AutoRefPtr<BasicFileIO>* dropFileOnNotice = nullptr;
    bool blockFirstNotice = false;  // the notice of element 1 waits for finishFirstNotice
    SorvanPosix::JLWSemaphore inFirstNotice{0};
    SorvanPosix::JLWSemaphore finishFirstNotice{0};
    SorvanPosix::JLWSemaphore delivered{0};
    BridgeAnchor flushAnchor{this, &FlushListener::onFlush};
    BridgeAnchor reservationAnchor{this, &FlushListener::onReservation};

  private:
    FaultyFileIO* m_file;
    mutable SorvanPosix::JMutex m_mutex;
    std::string log;
};

void* element(uintptr_t n) { return reinterpret_cast<void*>(n); }

}  // namespace

TEST(BasicFileIO, FlushHoldsWritesSyncsReleasesThenNotifiesFromItsOwnThread) {
    TempFile scratch;
    scratch.write(bytes("................"));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    FlushListener listener(file.get());
    file->setReservationCallback(&listener.reservationAnchor);
    ASSERT_TRUE(file->flush(request(&listener.flushAnchor, element(42), 4, "moov")));
    file->waitForFlushes();
    EXPECT_EQ(readFileBytes(scratch.path()), bytes("....moov........"));
    EXPECT_EQ(listener.events(), "hold(4,4)[syncs=0] release(4,4)[syncs=1] notice(42,ok) ");
    ASSERT_EQ(listener.notices.size(), 1u);
    EXPECT_EQ(listener.notices[0].offset, 4u);
    EXPECT_EQ(listener.notices[0].size, 4u);
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
    file->flush(request(&listener.flushAnchor, element(1), 0, "a"));
    file->flush(request(&listener.flushAnchor, element(2), 0, "b"));
    file->flush(request(&listener.flushAnchor, element(3), 0, "c"));
    file->waitForFlushes();
    EXPECT_EQ(listener.events(),
              "hold(0,1) release(0,1) notice(1,failed) hold(0,1) release(0,1) notice(2,ok) "
              "hold(0,1) release(0,1) notice(3,failed) ");
    EXPECT_EQ(messages.count(MsgLevel::Error), 2u);
}

// ---- Cache budget ----

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
    std::string warnings;
    auto previous = setMessageSink([&](MsgLevel level, std::string const& text) {
        if (level == MsgLevel::Warning) warnings += text;
    });
    EXPECT_FALSE(file->setCacheBytes(BasicIOTypes::CacheTable, 40 * 4096));
    file->cacheFallback();
    file->cacheFallback();
    setMessageSink(previous);
    EXPECT_TRUE(file->cacheLimited());
    file->setCacheBlocks(40, 10);
    EXPECT_EQ(file->cacheBlocks(), 10u);
    EXPECT_EQ(file->cacheTableBlocks(), 2u);
    file->setCacheBlocks(40, 1);  // a small share still keeps one block
    EXPECT_EQ(file->cacheTableBlocks(), 1u);
    file->setCacheBlocks(40, 40);  // all tables: every block may go to them
    EXPECT_EQ(file->cacheTableBlocks(), 10u);
    EXPECT_EQ(std::count(warnings.begin(), warnings.end(), '\n'), 1);

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
