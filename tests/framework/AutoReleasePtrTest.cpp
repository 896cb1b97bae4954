#include <gtest/gtest.h>

#include "framework/AtomicCounter.h"
#include "framework/AutoReleasePtr.h"

namespace {

struct Counted {
    explicit Counted(int* destroyed) : destroyed(destroyed) {}
    void preserve() { refs.increment(); }
    void release() {
        if (refs.decrement() == 0) {
            ++*destroyed;
            delete this;
        }
    }
    AtomicCounter refs{1};
    int* destroyed;
};

}  // namespace

TEST(AutoReleasePtr, CopiesTakeAReferenceAndMovesDoNot) {
    int destroyed = 0;
    auto* object = new Counted(&destroyed);
    AutoReleasePtr<Counted> a(object);
    {
        AutoReleasePtr<Counted> b(a);
        EXPECT_EQ(object->refs.value(), 2);
        AutoReleasePtr<Counted> c(std::move(b));
        EXPECT_EQ(object->refs.value(), 2);
        EXPECT_FALSE(b);
    }
    EXPECT_EQ(object->refs.value(), 1);
    EXPECT_EQ(destroyed, 0);
    a = AutoReleasePtr<Counted>();
    EXPECT_EQ(destroyed, 1);
}
