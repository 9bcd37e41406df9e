#include "foundation/win/win_event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "foundation/exc/exceptions.h"
#include "platform/errors.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

using platform::testing::fake_events;
using test_support::failure_text;
using ::testing::ElementsAre;
using win::win_manual_reset_event_t;

class WinEvent : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

TEST_F(WinEvent, IsntSignalledAtFirstAndStaysSignalledUntilItsReset) {
    win_manual_reset_event_t event;
    EXPECT_FALSE(event.wait(0));
    event.set();
    EXPECT_TRUE(event.wait(0));
    EXPECT_TRUE(event.wait(0));
    event.reset();
    EXPECT_FALSE(event.wait(0));
}

TEST_F(WinEvent, WithAutomaticResetSatisfiesOneWait) {
    win_manual_reset_event_t event(platform::event_reset::automatic);
    EXPECT_FALSE(event.wait(0));
    event.set();
    EXPECT_TRUE(event.wait(0));
    EXPECT_FALSE(event.wait(0));
}

TEST_F(WinEvent, WaitsAsLongAsAskedAndNeverForEver) {
    system_.events.set_idle_wait(fake_events::idle_wait::elapses);
    const win_manual_reset_event_t event;
    const std::int64_t start = system_.clock.milliseconds();
    EXPECT_FALSE(event.wait(250));
    EXPECT_EQ(system_.clock.milliseconds() - start, 250);
    EXPECT_FALSE(event.wait(static_cast<std::uint32_t>(-1)));
    EXPECT_EQ(system_.clock.milliseconds() - start, 250 + std::int64_t{21} * 24 * 60 * 60 * 1000);
    EXPECT_FALSE(event.wait(0xFFFF'FFFE));
    EXPECT_THAT(system_.events.waits(), ElementsAre(250U, 1'814'400'000U, 0xFFFF'FFFEU));
}

TEST_F(WinEvent, LetsAWaiterGoOnBeforeItsLimit) {
    win_manual_reset_event_t event;
    bool signalled = false;
    std::thread waiting([&] { signalled = event.wait(win::no_limit); });
    system_.events.await_waiting(1);
    event.set();
    waiting.join();
    EXPECT_TRUE(signalled);
}

TEST_F(WinEvent, ClosesItsHandle) {
    {
        const win_manual_reset_event_t event;
        EXPECT_EQ(system_.events.open_handles(), 1U);
    }
    EXPECT_EQ(system_.events.open_handles(), 0U);
}

TEST_F(WinEvent, NamesTheOperationThatFailed) {
    std::optional<win_manual_reset_event_t> event(std::in_place);
    for (const auto what : {fake_events::operation::create_event, fake_events::operation::set, fake_events::operation::reset,
                            fake_events::operation::wait}) {
        system_.events.fail(what, platform::error::invalid_handle);
    }
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([] { const win_manual_reset_event_t another; }),
              "The handle is invalid.\nCannot create an event object.\n--tr:Error code: 0x00000006");
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { event->set(); }),
              "The handle is invalid.\nSetEvent() function call failed.\n--tr:Error code: 0x00000006\n"
              "Cannot set an event object to the signaled state.");
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { event->reset(); }),
              "The handle is invalid.\nResetEvent() function call failed.\n--tr:Error code: 0x00000006\n"
              "Cannot set an event object to the unsignaled state.");
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(event->wait(0)); }),
              "The handle is invalid.\n--tr:Error code: 0x00000006");
}

}  // namespace
