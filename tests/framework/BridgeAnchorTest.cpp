#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "framework/BridgeAnchor.h"
#include "framework/SorvanPosix.h"

namespace {

struct Event {
    int value;
};

class Listener {
  public:
    Listener() : anchor(this, &Listener::onEvent), constAnchor(this, &Listener::peek) {}

    bool onEvent(Event const& event) {
        last = event.value;
        if (blockInside) {
            entered.post();
            proceed.wait();
        }
        return event.value >= 0;
    }
    bool peek(Event const& event) const { return event.value == last; }

    int last = 0;
    bool blockInside = false;
    SorvanPosix::JLWSemaphore entered{0};
    SorvanPosix::JLWSemaphore proceed{0};
    BridgeAnchor anchor;
    BridgeAnchor constAnchor;
};

struct CapturedMessages {
    CapturedMessages() {
        previous = setMessageSink([this](MsgLevel level, std::string const& text) {
            if (level == MsgLevel::Error) errors += text;
        });
    }
    ~CapturedMessages() { setMessageSink(previous); }
    std::string errors;
    MessageSink previous;
};

}  // namespace

TEST(BridgeAnchor, DetachWaitsForACallInFlight) {
    Listener listener;
    listener.blockInside = true;
    std::thread caller([&] { listener.anchor.call(Event{1}); });
    listener.entered.wait();
    std::atomic<bool> detached{false};
    std::thread detacher([&] {
        listener.anchor.detach();
        detached = true;
    });
    waitMsec(30);
    EXPECT_FALSE(detached.load());
    listener.proceed.post();
    caller.join();
    detacher.join();
    EXPECT_TRUE(detached.load());
    EXPECT_FALSE(listener.anchor.call(Event{2}));
    EXPECT_EQ(listener.last, 1);
}
