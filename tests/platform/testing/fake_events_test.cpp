#include "platform/testing/fake_events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "platform/errors.h"

namespace {

using namespace platform;
using platform::testing::fake_events;
using platform::testing::virtual_clock;
using ::testing::ElementsAre;

class FakeEvents : public ::testing::Test {
protected:
    FakeEvents() { EXPECT_EQ(events_.create_event(event_reset::manual, event_), error::success); }

    bool waited(std::uint32_t milliseconds) {
        bool signalled = true;
        EXPECT_EQ(events_.wait(event_, milliseconds, signalled), error::success);
        return signalled;
    }

    virtual_clock clock_;
    fake_events events_{clock_};
    wait_handle event_ = no_wait_object;
    const std::int64_t start_ = clock_.milliseconds();
};

TEST_F(FakeEvents, AnIdleWaitEndsWhenTheClockIsMovedToItsLimit) {
    bool signalled = true;
    std::thread waiting([&] { signalled = waited(5000); });
    events_.await_waiting(1);
    clock_.advance(4999);
    events_.await_waiting(1);
    clock_.sleep(1);
    waiting.join();
    EXPECT_FALSE(signalled);
    EXPECT_EQ(clock_.milliseconds() - start_, 5000);
}

TEST_F(FakeEvents, AWaitThatBlocksEndsWithTheSignal) {
    bool in_time = false;
    bool without_limit = false;
    std::thread limited([&] { in_time = waited(1); });
    std::thread unlimited([&] { without_limit = waited(wait_without_limit); });
    events_.await_waiting(2);
    EXPECT_EQ(events_.set(event_), error::success);
    limited.join();
    unlimited.join();
    EXPECT_TRUE(in_time);
    EXPECT_TRUE(without_limit);
    EXPECT_EQ(clock_.milliseconds(), start_);
}

TEST_F(FakeEvents, OfAClosedHandleWhoWaitsGoesOnWaiting) {
    bool signalled = true;
    std::thread waiting([&] { signalled = waited(10); });
    events_.await_waiting(1);
    EXPECT_EQ(events_.open_handles(), 1U);
    EXPECT_EQ(events_.close(event_), error::success);
    events_.await_open_handles(0);
    events_.await_waiting(1);
    clock_.advance(10);
    waiting.join();
    EXPECT_FALSE(signalled);
}

TEST_F(FakeEvents, AnElapsingWaitMovesTheClockByItsLimit) {
    events_.set_idle_wait(fake_events::idle_wait::elapses);
    EXPECT_FALSE(waited(0));
    EXPECT_FALSE(waited(1'814'400'000));
    EXPECT_EQ(clock_.milliseconds() - start_, 1'814'400'000);
    EXPECT_EQ(events_.set(event_), error::success);
    EXPECT_TRUE(waited(7));
    EXPECT_EQ(clock_.milliseconds() - start_, 1'814'400'000);
    EXPECT_THAT(events_.waits(), ElementsAre(0U, 1'814'400'000U, 7U));
}

TEST_F(FakeEvents, FailsAsScripted) {
    using operation = fake_events::operation;
    for (const operation what : {operation::create_event, operation::create_semaphore, operation::set, operation::reset,
                                 operation::release, operation::wait}) {
        events_.fail(what, error::not_enough_memory);
    }
    wait_handle made = no_wait_object;
    bool signalled = true;
    EXPECT_EQ(events_.create_event(event_reset::automatic, made), error::not_enough_memory);
    EXPECT_EQ(events_.create_semaphore(1, 1, made), error::not_enough_memory);
    EXPECT_EQ(made, no_wait_object);
    EXPECT_EQ(events_.set(event_), error::not_enough_memory);
    EXPECT_EQ(events_.reset(event_), error::not_enough_memory);
    EXPECT_EQ(events_.release(event_, 1), error::not_enough_memory);
    EXPECT_EQ(events_.wait(event_, 0, signalled), error::not_enough_memory);
    EXPECT_TRUE(signalled);
    events_.fail(operation::set, error::success);
    events_.fail(operation::wait, error::success);
    EXPECT_EQ(events_.set(event_), error::success);
    EXPECT_TRUE(waited(0));
}

}  // namespace
