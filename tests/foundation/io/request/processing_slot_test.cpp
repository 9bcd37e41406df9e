#include "foundation/io/request/baseimpl/processing_slot.h"

#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "foundation/io/request/baseimpl/request_queue.h"
#include "foundation/synch/wait_any_trigger.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"
#include "support/request_support.h"

namespace {

using namespace io::request::baseimpl;
using test_support::request_of;

class RequestHolders : public ::testing::Test {
protected:
    [[nodiscard]] bool is_true(std::uint32_t id) const { return conditions_[id]->wait(0); }
    boost::shared_ptr<synch::wait_any_signaler_t> condition(std::uint32_t id) {
        return boost::make_shared<synch::wait_any_signaler_t>(0U, conditions_[id]);
    }

    platform::testing::test_system system_;

private:
    const boost::shared_ptr<synch::wait_any_trigger_t> conditions_[2] = {boost::make_shared<synch::wait_any_trigger_t>(1U),
                                                                         boost::make_shared<synch::wait_any_trigger_t>(1U)};
};

TEST_F(RequestHolders, SlotIsIdleUntilItIsGivenARequestAndAfterItsRelease) {
    processing_slot_t slot;
    slot.add_idle_sink(condition(0));
    slot.add_busy_sink(condition(1));
    EXPECT_TRUE(slot.is_idle());
    EXPECT_TRUE(is_true(0));
    EXPECT_FALSE(is_true(1));
    EXPECT_EQ(slot.request(), nullptr);
    const auto request = request_of([] {});
    slot.hand_over(request);
    EXPECT_FALSE(slot.is_idle());
    EXPECT_FALSE(is_true(0));
    EXPECT_TRUE(is_true(1));
    EXPECT_EQ(slot.request(), request);
    slot.release();
    EXPECT_TRUE(slot.is_idle());
    EXPECT_TRUE(is_true(0));
    EXPECT_FALSE(is_true(1));
    EXPECT_EQ(slot.request(), nullptr);
    EXPECT_EQ(request.use_count(), 1);
}

TEST_F(RequestHolders, SlotTakesOneRequestAtATime) {
    processing_slot_t slot;
    const auto first = request_of([] {});
    slot.hand_over(first);
    EXPECT_EQ(test_support::failure_text<exc::runtime_exc_t>([&] { slot.hand_over(request_of([] {})); }),
              "Processing thread busy.");
    EXPECT_EQ(slot.request(), first);
    slot.release();
    EXPECT_NO_THROW(slot.hand_over(first));
}

TEST_F(RequestHolders, QueueKeepsTheOrderAndTellsWhetherAnythingIsThere) {
    request_queue_t queue;
    queue.add_pending_sink(condition(0));
    EXPECT_FALSE(is_true(0));
    EXPECT_EQ(queue.pop(), std::nullopt);
    const auto first = request_of([] {});
    queue.push(first);
    queue.push(nullptr);
    EXPECT_TRUE(is_true(0));
    EXPECT_EQ(queue.pop(), first);
    EXPECT_TRUE(is_true(0));
    EXPECT_EQ(queue.pop(), boost::shared_ptr<io::request::async_request_t>());
    EXPECT_FALSE(is_true(0));
    EXPECT_EQ(queue.pop(), std::nullopt);
}

TEST_F(RequestHolders, QueueTellsOfNothingPendingWhereTheLatestRequestWasRefused) {
    request_queue_t queue;
    system_.events.fail(platform::testing::fake_events::operation::set, 6);
    queue.add_pending_sink(condition(0));
    EXPECT_THROW(queue.push(request_of([] {})), exc::win_sys_exc_t);
    system_.events.fail(platform::testing::fake_events::operation::set, 0);
    queue.add_pending_sink(condition(1));
    EXPECT_TRUE(is_true(1));  // what the queue had said before it was refused
    EXPECT_EQ(queue.pop(), std::nullopt);
    EXPECT_FALSE(is_true(1));
}

}  // namespace
