#include "foundation/synch/wait_any_trigger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include "foundation/exc/exceptions.h"
#include "platform/errors.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

using platform::testing::fake_events;
using synch::trigger_t;
using synch::wait_any_signaler_t;
using synch::wait_any_trigger_t;
using test_support::failure_text;
using ::testing::ElementsAre;

class WaitAnyTrigger : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

TEST_F(WaitAnyTrigger, IsSignalledUntilAllOfItsConditionsAreFalse) {
    wait_any_trigger_t any(2);
    EXPECT_FALSE(any.wait(0));
    any.set(0);
    any.set(1);
    any.set(1);
    EXPECT_TRUE(any.wait(0));
    any.clear(0);
    EXPECT_TRUE(any.wait(0));
    any.clear(1);
    EXPECT_FALSE(any.wait(0));
    any.clear(1);
    EXPECT_FALSE(any.wait(0));
}

TEST_F(WaitAnyTrigger, RefusesAnIdThatItHasNoBitFor) {
    wait_any_trigger_t any(3);
    const std::string refusal =
        "Atomic trigger ID exceeds number of registered triggers. ID: [3]. Number of registered triggers: [3].";
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { any.set(3); }), refusal);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { any.clear(3); }), refusal);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { any.touch(3); }), refusal);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { any.set(4'294'967'295); }),
              "Atomic trigger ID exceeds number of registered triggers. ID: [4294967295]. Number of registered triggers: [3].");
    EXPECT_FALSE(any.wait(0));
    any.touch(2);
    EXPECT_FALSE(any.wait(0));
    any.set(2);
    EXPECT_TRUE(any.wait(0));
}

TEST_F(WaitAnyTrigger, OfNothingRefusesEveryId) {
    wait_any_trigger_t none(0);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { none.set(0); }),
              "Atomic trigger ID exceeds number of registered triggers. ID: [0]. Number of registered triggers: [0].");
    EXPECT_FALSE(none.wait(0));
}

TEST_F(WaitAnyTrigger, CantHaveMoreBitsThanAVectorTakes) {
    for (const std::uint32_t count : {0x8000'0000U, 0xFFFF'FFFFU}) {
        EXPECT_EQ(failure_text<std::length_error>([count] { const wait_any_trigger_t any(count); }), "vector<bool> too long");
    }
    EXPECT_EQ(system_.events.open_handles(), 0U);
}

TEST_F(WaitAnyTrigger, WaitsTwentyOneDays) {
    system_.events.set_idle_wait(fake_events::idle_wait::elapses);
    const wait_any_trigger_t any(1);
    const std::int64_t start = system_.clock.milliseconds();
    EXPECT_FALSE(any.wait());
    EXPECT_EQ(system_.clock.milliseconds() - start, 1'814'400'000);
    EXPECT_THAT(system_.events.waits(), ElementsAre(1'814'400'000U));
}

TEST_F(WaitAnyTrigger, KeepsEventAndBitsInAgreementWhenTheEventFails) {
    wait_any_trigger_t any(2);
    system_.events.fail(fake_events::operation::set, platform::error::invalid_handle);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { any.set(1); }),
              "The handle is invalid.\nSetEvent() function call failed.\n--tr:Error code: 0x00000006\n"
              "Cannot set an event object to the signaled state.");
    system_.events.fail(fake_events::operation::set, platform::error::success);
    EXPECT_FALSE(any.wait(0));
    any.set(0);
    any.clear(0);
    EXPECT_FALSE(any.wait(0));
}

TEST_F(WaitAnyTrigger, ASignalerTurnsATriggerIntoABit) {
    const auto any = boost::make_shared<wait_any_trigger_t>(2);
    wait_any_signaler_t first(0, any);
    wait_any_signaler_t second(1, any);
    EXPECT_FALSE(any->wait(0));
    first.on_change(true);
    second.on_change(true);
    first.on_change(false);
    EXPECT_TRUE(any->wait(0));
    second.on_change(false);
    EXPECT_FALSE(any->wait(0));
}

TEST_F(WaitAnyTrigger, ASignalerNeedsABitThatThereIs) {
    const auto any = boost::make_shared<wait_any_trigger_t>(2);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { const wait_any_signaler_t signaler(2, any); }),
              "Atomic trigger ID exceeds number of registered triggers. ID: [2]. Number of registered triggers: [2].");
    EXPECT_EQ(any.use_count(), 1);
}

TEST_F(WaitAnyTrigger, ASignalerKeepsItsTargetAlive) {
    auto any = boost::make_shared<wait_any_trigger_t>(1);
    const boost::weak_ptr<wait_any_trigger_t> watched = any;
    trigger_t trigger;
    trigger.add_sink(boost::make_shared<wait_any_signaler_t>(0, any));
    any.reset();
    EXPECT_FALSE(watched.expired());
    trigger.set(true);
    trigger.clear_sinks();
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(system_.events.open_handles(), 0U);
}

TEST_F(WaitAnyTrigger, OneWaitServesSeveralTriggersWhateverTheirStateAtFirst) {
    trigger_t stop;
    trigger_t pending;
    pending.set(true);
    const auto any = boost::make_shared<wait_any_trigger_t>(2);
    stop.add_sink(boost::make_shared<wait_any_signaler_t>(0, any));
    pending.add_sink(boost::make_shared<wait_any_signaler_t>(1, any));
    EXPECT_TRUE(any->wait());
    pending.set(false);
    bool woken = false;
    std::thread waiting([&] { woken = any->wait(); });
    system_.events.await_waiting(1);
    stop.set(true);
    waiting.join();
    EXPECT_TRUE(woken);
    EXPECT_TRUE(stop.get());
    pending.set(true);
    stop.set(false);
    EXPECT_TRUE(any->wait(0));
    pending.set(false);
    EXPECT_FALSE(any->wait(0));
}

TEST_F(WaitAnyTrigger, EventAndBitsAgreeUnderManyThreads) {
    constexpr std::uint32_t conditions = 4;
    const auto any = boost::make_shared<wait_any_trigger_t>(conditions);
    std::vector<trigger_t> triggers(conditions);
    std::vector<std::thread> threads;
    for (std::uint32_t id = 0; id < conditions; ++id) {
        threads.emplace_back([&, id] {
            triggers[id].add_sink(boost::make_shared<wait_any_signaler_t>(id, any));
            for (int change = 0; change < 2000; ++change) {
                triggers[id].set(true);
                EXPECT_TRUE(any->wait(0));
                triggers[id].set(false);
            }
            triggers[id].set(id == 2);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(any->wait(0));
    triggers[2].set(false);
    EXPECT_FALSE(any->wait(0));
}

}  // namespace
