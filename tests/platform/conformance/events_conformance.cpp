#include <thread>
#include <vector>

#include "platform/conformance/implementations.h"

namespace {

using namespace platform;

constexpr wait_handle untouched = 0x7EE7;

template <typename Implementation>
class EventsConformance : public conformance::suite<Implementation> {
protected:
    wait_handle event(event_reset reset) {
        wait_handle made = no_wait_object;
        EXPECT_EQ(events_.create_event(reset, made), error::success);
        return made;
    }

    wait_handle semaphore(std::uint32_t initial, std::uint32_t maximum) {
        wait_handle made = no_wait_object;
        EXPECT_EQ(events_.create_semaphore(initial, maximum, made), error::success);
        return made;
    }

    bool signalled(wait_handle object, std::uint32_t milliseconds = 0) {
        bool in_time = false;
        EXPECT_EQ(events_.wait(object, milliseconds, in_time), error::success);
        return in_time;
    }

    platform::events& events_ = this->under_test_.events;
};
TYPED_TEST_SUITE(EventsConformance, conformance::implementations, conformance::implementation_names);

TYPED_TEST(EventsConformance, TellsItsObjectsApartByHandlesThatAreNeitherEmptyNorInvalid) {
    const std::vector<wait_handle> made{this->event(event_reset::manual), this->event(event_reset::automatic),
                                        this->semaphore(0, 1)};
    for (std::size_t index = 0; index < made.size(); ++index) {
        EXPECT_NE(made[index], no_wait_object);
        EXPECT_NE(made[index], invalid_wait_object);
        EXPECT_NE(made[index], made[(index + 1) % made.size()]);
    }
}

TYPED_TEST(EventsConformance, AnswersAHandleThatIsntOpenWith6AndLeavesTheOutputAlone) {
    const wait_handle closed = this->event(event_reset::manual);
    ASSERT_EQ(this->events_.set(closed), error::success);
    ASSERT_EQ(this->events_.close(closed), error::success);
    for (const wait_handle handle : {closed, no_wait_object, invalid_wait_object}) {
        bool in_time = true;
        EXPECT_EQ(this->events_.wait(handle, 0, in_time), error::invalid_handle);
        EXPECT_TRUE(in_time);
        EXPECT_EQ(this->events_.set(handle), error::invalid_handle);
        EXPECT_EQ(this->events_.reset(handle), error::invalid_handle);
        EXPECT_EQ(this->events_.release(handle, 1), error::invalid_handle);
        EXPECT_EQ(this->events_.close(handle), error::invalid_handle);
    }
}

TYPED_TEST(EventsConformance, AnswersTheOtherKindOfObjectWith6) {
    const wait_handle semaphore = this->semaphore(0, 1);
    EXPECT_EQ(this->events_.set(semaphore), error::invalid_handle);
    EXPECT_EQ(this->events_.reset(semaphore), error::invalid_handle);
    EXPECT_FALSE(this->signalled(semaphore));
    for (const event_reset reset : {event_reset::manual, event_reset::automatic}) {
        const wait_handle event = this->event(reset);
        EXPECT_EQ(this->events_.release(event, 1), error::invalid_handle);
        EXPECT_FALSE(this->signalled(event));
    }
}

TYPED_TEST(EventsConformance, AnEventWithManualResetStaysSignalledUntilThen) {
    const wait_handle event = this->event(event_reset::manual);
    EXPECT_FALSE(this->signalled(event));
    EXPECT_EQ(this->events_.set(event), error::success);
    EXPECT_EQ(this->events_.set(event), error::success);
    EXPECT_TRUE(this->signalled(event));
    EXPECT_TRUE(this->signalled(event, 5));
    EXPECT_EQ(this->events_.reset(event), error::success);
    EXPECT_FALSE(this->signalled(event));
    EXPECT_EQ(this->events_.reset(event), error::success);
    EXPECT_FALSE(this->signalled(event));
}

TYPED_TEST(EventsConformance, AnEventWithAutomaticResetSatisfiesOneWait) {
    const wait_handle event = this->event(event_reset::automatic);
    EXPECT_FALSE(this->signalled(event));
    EXPECT_EQ(this->events_.set(event), error::success);
    EXPECT_EQ(this->events_.set(event), error::success);
    EXPECT_TRUE(this->signalled(event));
    EXPECT_FALSE(this->signalled(event));
    EXPECT_EQ(this->events_.set(event), error::success);
    EXPECT_EQ(this->events_.reset(event), error::success);
    EXPECT_FALSE(this->signalled(event));
}

TYPED_TEST(EventsConformance, ASemaphoreGivesItsPermitsOneByOne) {
    const wait_handle semaphore = this->semaphore(2, 5);
    EXPECT_TRUE(this->signalled(semaphore));
    EXPECT_TRUE(this->signalled(semaphore));
    EXPECT_FALSE(this->signalled(semaphore));
    EXPECT_EQ(this->events_.release(semaphore, 3), error::success);
    EXPECT_TRUE(this->signalled(semaphore));
    EXPECT_TRUE(this->signalled(semaphore));
    EXPECT_TRUE(this->signalled(semaphore, 5));
    EXPECT_FALSE(this->signalled(semaphore));
}

TYPED_TEST(EventsConformance, ASemaphoreNeverHoldsMoreThanItsMaximum) {
    const wait_handle semaphore = this->semaphore(1, 2);
    EXPECT_EQ(this->events_.release(semaphore, 2), error::too_many_posts);
    EXPECT_EQ(this->events_.release(semaphore, 0), error::invalid_parameter);
    EXPECT_EQ(this->events_.release(semaphore, 0xFFFF'FFFF), error::too_many_posts);
    EXPECT_TRUE(this->signalled(semaphore));
    EXPECT_FALSE(this->signalled(semaphore));
    EXPECT_EQ(this->events_.release(semaphore, 2), error::success);
    EXPECT_EQ(this->events_.release(semaphore, 1), error::too_many_posts);
}

TYPED_TEST(EventsConformance, RefusesASemaphoreOfImpossibleSize) {
    wait_handle made = untouched;
    EXPECT_EQ(this->events_.create_semaphore(0, 0, made), error::invalid_parameter);
    EXPECT_EQ(this->events_.create_semaphore(2, 1, made), error::invalid_parameter);
    EXPECT_EQ(this->events_.create_semaphore(0, most_permits + 1, made), error::invalid_parameter);
    EXPECT_EQ(made, untouched);
    EXPECT_TRUE(this->signalled(this->semaphore(most_permits, most_permits)));
}

TYPED_TEST(EventsConformance, WaitsNoShorterThanItsLimit) {
    const std::int64_t before = this->under_test_.clock.milliseconds();
    EXPECT_FALSE(this->signalled(this->event(event_reset::manual), 3));
    EXPECT_FALSE(this->signalled(this->event(event_reset::automatic), 3));
    EXPECT_FALSE(this->signalled(this->semaphore(0, 1), 3));
    EXPECT_GE(this->under_test_.clock.milliseconds() - before, 9);
}

TYPED_TEST(EventsConformance, TakesTheLongestOfLimits) {
    const wait_handle event = this->event(event_reset::manual);
    ASSERT_EQ(this->events_.set(event), error::success);
    EXPECT_TRUE(this->signalled(event, 1'814'400'000));
    EXPECT_TRUE(this->signalled(event, wait_without_limit - 1));
    EXPECT_TRUE(this->signalled(event, wait_without_limit));
}

TYPED_TEST(EventsConformance, OneSignalLetsAllWaitersOfAManualResetGoOn) {
    const wait_handle event = this->event(event_reset::manual);
    std::vector<std::thread> waiters;
    for (int waiter = 0; waiter < 8; ++waiter) {
        waiters.emplace_back([&] { EXPECT_TRUE(this->signalled(event, wait_without_limit)); });
    }
    EXPECT_EQ(this->events_.set(event), error::success);
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    EXPECT_TRUE(this->signalled(event));
}

TYPED_TEST(EventsConformance, LosesNoSignalBetweenThreads) {
    const wait_handle ping = this->event(event_reset::automatic);
    const wait_handle pong = this->event(event_reset::automatic);
    constexpr int rounds = 2000;
    std::thread answering([&] {
        for (int round = 0; round < rounds; ++round) {
            EXPECT_TRUE(this->signalled(ping, wait_without_limit));
            EXPECT_EQ(this->events_.set(pong), error::success);
        }
    });
    for (int round = 0; round < rounds; ++round) {
        EXPECT_EQ(this->events_.set(ping), error::success);
        EXPECT_TRUE(this->signalled(pong, wait_without_limit));
    }
    answering.join();
    EXPECT_FALSE(this->signalled(ping));
    EXPECT_FALSE(this->signalled(pong));
}

TYPED_TEST(EventsConformance, GivesEveryPermitOnce) {
    const wait_handle semaphore = this->semaphore(0, 4000);
    std::vector<std::thread> takers;
    for (int taker = 0; taker < 4; ++taker) {
        takers.emplace_back([&] {
            for (int permit = 0; permit < 1000; ++permit) {
                EXPECT_TRUE(this->signalled(semaphore, wait_without_limit));
            }
        });
    }
    for (int release = 0; release < 2000; ++release) {
        EXPECT_EQ(this->events_.release(semaphore, 2), error::success);
    }
    for (std::thread& taker : takers) {
        taker.join();
    }
    EXPECT_FALSE(this->signalled(semaphore));
}

TYPED_TEST(EventsConformance, LosesNoSignalToWaitsWhoseTimeIsUp) {
    const wait_handle event = this->event(event_reset::automatic);
    constexpr int signals = 200;
    std::thread impatient([&] {
        for (int taken = 0; taken < signals;) {
            taken += this->signalled(event, 1) ? 1 : 0;
        }
    });
    for (int signal = 0; signal < signals; ++signal) {
        EXPECT_EQ(this->events_.set(event), error::success);
        while (this->signalled(event)) {  // not taken yet: given back until it is
            EXPECT_EQ(this->events_.set(event), error::success);
            std::this_thread::yield();
        }
    }
    impatient.join();
    EXPECT_FALSE(this->signalled(event));
}

}  // namespace
