#include "foundation/synch/thread_context.h"

#include <gtest/gtest.h>

#include <thread>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include "platform/testing/fakes.h"

namespace {

using synch::CThreadContext;
using synch::stop_event_t;

class ThreadContext : public ::testing::Test {
protected:
    ~ThreadContext() override { CThreadContext::forget_current(); }

    platform::testing::test_system system_;
};

TEST_F(ThreadContext, EachThreadHasOneOfItsOwn) {
    const auto own = CThreadContext::current();
    EXPECT_EQ(CThreadContext::current(), own);
    boost::weak_ptr<CThreadContext> other;
    std::thread([&] {
        other = CThreadContext::current();
        EXPECT_NE(CThreadContext::current(), own);
        EXPECT_FALSE(other.expired());
    }).join();
    EXPECT_TRUE(other.expired());
    CThreadContext::forget_current();
    EXPECT_NE(CThreadContext::current(), own);
}

TEST_F(ThreadContext, HasNoParentAndNoStopEventAtFirst) {
    const auto context = CThreadContext::current();
    EXPECT_EQ(context->parent(), nullptr);
    EXPECT_EQ(context->stop_event(), nullptr);
}

TEST_F(ThreadContext, FindsTheNearestStopEventAmongItsAncestors) {
    const auto eldest = boost::make_shared<CThreadContext>();
    const auto middle = boost::make_shared<CThreadContext>();
    const auto youngest = boost::make_shared<CThreadContext>();
    middle->set_parent(eldest);
    youngest->set_parent(middle);
    EXPECT_EQ(youngest->parent(), middle);
    EXPECT_EQ(youngest->stop_event(), nullptr);
    const auto far = boost::make_shared<stop_event_t>();
    const auto near = boost::make_shared<stop_event_t>();
    const auto own = boost::make_shared<stop_event_t>();
    eldest->set_stop_event(far);
    EXPECT_EQ(youngest->stop_event(), far);
    middle->set_stop_event(near);
    EXPECT_EQ(youngest->stop_event(), near);
    EXPECT_EQ(eldest->stop_event(), far);
    youngest->set_stop_event(own);
    EXPECT_EQ(youngest->stop_event(), own);
    EXPECT_EQ(middle->stop_event(), near);
    youngest->set_stop_event({});
    middle->set_stop_event({});
    EXPECT_EQ(youngest->stop_event(), far);
}

TEST_F(ThreadContext, LivesAsLongAsADescendant) {
    auto parent = boost::make_shared<CThreadContext>();
    const auto event = boost::make_shared<stop_event_t>();
    parent->set_stop_event(event);
    const boost::weak_ptr<CThreadContext> watched = parent;
    auto child = boost::make_shared<CThreadContext>();
    child->set_parent(parent);
    parent.reset();
    EXPECT_EQ(child->stop_event(), event);
    child.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(event.use_count(), 1);
}

TEST_F(ThreadContext, GoesWithAnyNumberOfAncestorsButThoseThatOthersHave) {
    auto youngest = boost::make_shared<CThreadContext>();
    const boost::weak_ptr<CThreadContext> eldest = youngest;
    boost::shared_ptr<CThreadContext> shared;
    boost::weak_ptr<CThreadContext> above_the_shared;
    for (int generation = 0; generation < 300'000; ++generation) {
        auto child = boost::make_shared<CThreadContext>();
        child->set_parent(youngest);
        if (generation == 150'000) {
            shared = child;
            above_the_shared = youngest;
        }
        youngest = std::move(child);
    }
    youngest.reset();
    EXPECT_EQ(shared->parent(), above_the_shared.lock());
    EXPECT_FALSE(eldest.expired());
    shared.reset();
    EXPECT_TRUE(eldest.expired());
}

}  // namespace
