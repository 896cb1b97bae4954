#include "framework/AutoReleasePtr.h"

#include <gtest/gtest.h>

#include "framework/AtomicCounter.h"

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

TEST(AutoReleasePtr, AdoptsTheCallersReferenceAndReleasesItOnce) {
    int destroyed = 0;
    {
        AutoReleasePtr<Counted> p(new Counted(&destroyed));
        EXPECT_EQ(p->refs.value(), 1);
    }
    EXPECT_EQ(destroyed, 1);
}

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

TEST(AutoReleasePtr, ReassigningReleasesThePreviousObject) {
    int destroyed = 0;
    AutoReleasePtr<Counted> p(new Counted(&destroyed));
    p.reset(new Counted(&destroyed));
    EXPECT_EQ(destroyed, 1);
    AutoReleasePtr<Counted> q(new Counted(&destroyed));
    p = q;  // p's object goes, q's is now held twice
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(q->refs.value(), 2);
    Counted* kept = q.detach();
    EXPECT_EQ(kept->refs.value(), 2);
    kept->release();
    p.reset();
    EXPECT_EQ(destroyed, 3);
}
