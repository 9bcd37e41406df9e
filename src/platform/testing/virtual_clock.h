#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/clock.h"

namespace platform::testing {

/// A clock that stands still until somebody sleeps or a test moves it. A sleep moves it by exactly what was asked and returns
/// at once, so waits are asserted to the millisecond. Sleeps of several threads add up.
class virtual_clock final : public clock {
public:
    /// Runs after a sleep, on the sleeping thread, with the sleep's length; time has moved on by then.
    using sleep_hook = std::function<void(std::int64_t milliseconds)>;

    [[nodiscard]] std::int64_t seconds() override;
    [[nodiscard]] std::int64_t milliseconds() override;
    [[nodiscard]] local_time now_local() override;
    void sleep(std::int64_t milliseconds) override;

    /// Moves time on without a sleep.
    void advance(std::int64_t milliseconds);
    /// Sets the wall clock; it moves on with the rest from here. One that isn't `valid` is given out as it is, for ever.
    void set_local(const local_time& now);
    void on_sleep(sleep_hook hook);
    /// Runs after every movement, on the thread that caused it: for the fake whose time limits run on this clock. Empty for none;
    /// set while no other thread moves the clock.
    void on_change(std::function<void()> changed);

    /// Every sleep that was asked for, in order, those of 0 or less included.
    [[nodiscard]] std::vector<std::int64_t> sleeps() const;
    [[nodiscard]] std::int64_t slept_milliseconds() const;
    void forget_sleeps();

private:
    void move(std::int64_t milliseconds);

    mutable std::mutex mutex_;
    /// Away from 0, so that code which takes 0 for "never" shows.
    std::int64_t now_ = 1'000'000;
    std::int64_t local_set_at_ = now_;
    local_time local_{true, 2026, 11, 16, 4, 31, 54};
    std::vector<std::int64_t> sleeps_;
    sleep_hook hook_;
    std::function<void()> changed_;
};

}  // namespace platform::testing
