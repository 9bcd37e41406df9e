#include "foundation/win/win_handle.h"

#include <gtest/gtest.h>

#include <initializer_list>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

class WinHandle : public ::testing::Test {
protected:
    platform::wait_handle open() {
        platform::wait_handle made = platform::no_wait_object;
        EXPECT_EQ(system_.events.create_event(platform::event_reset::manual, made), 0U);
        return made;
    }

    platform::testing::test_system system_;
};

TEST_F(WinHandle, OwnsTheHandleAndClosesIt) {
    {
        const platform::wait_handle one = open();
        const win::win_handle_t made_with(one);
        EXPECT_FALSE(made_with.empty());
        EXPECT_EQ(made_with.get(), one);
        win::win_handle_t assigned;
        const platform::wait_handle two = open();
        assigned.assign(two);
        EXPECT_EQ(assigned.get(), two);
        EXPECT_EQ(system_.events.open_handles(), 2U);
        assigned.close();
        EXPECT_TRUE(assigned.empty());
        EXPECT_EQ(system_.events.open_handles(), 1U);
        assigned.close();
        assigned.assign(open());
        EXPECT_EQ(system_.events.open_handles(), 2U);
    }
    EXPECT_EQ(system_.events.open_handles(), 0U);
}

TEST_F(WinHandle, TakesZeroAndTheInvalidValueForEmpty) {
    win::win_handle_t none;
    const win::win_handle_t zero(platform::no_wait_object);
    const win::win_handle_t invalid(platform::invalid_wait_object);
    for (const auto* const handle : std::initializer_list<const win::win_handle_t*>{&none, &zero, &invalid}) {
        EXPECT_TRUE(handle->empty());
        EXPECT_EQ(test_support::failure_text<exc::runtime_exc_t>([handle] { static_cast<void>(handle->get()); }),
                  "Handle object is not initialized.");
    }
    none.assign(platform::invalid_wait_object);
    EXPECT_TRUE(none.empty());
    none.assign(open());
    EXPECT_FALSE(none.empty());
}

TEST_F(WinHandle, RefusesASecondHandle) {
    const platform::wait_handle first = open();
    const platform::wait_handle second = open();
    win::win_handle_t handle(first);
    for (const platform::wait_handle offered : {second, first, platform::no_wait_object}) {
        EXPECT_EQ(test_support::failure_text<exc::runtime_exc_t>([&] { handle.assign(offered); }),
                  "Handle object is already initialized.");
    }
    EXPECT_EQ(handle.get(), first);
    EXPECT_EQ(system_.events.close(second), 0U);
}

}  // namespace
