#pragma once

#include <cstdint>

#include "platform/clock.h"
#include "platform/system.h"

/// Seconds between two tries at a changer that isn't ready.
inline constexpr std::int64_t changer_retry_pause = 5;

inline void sleep_seconds(std::int64_t seconds) {
    platform::system().clock->sleep(seconds * 1000);
}

/// A moment from which on nothing is tried again. Counts in whole seconds: it has passed once the clock shows a later one.
class deadline_t {
public:
    explicit deadline_t(std::int64_t seconds_from_now) : at_(platform::system().clock->seconds() + seconds_from_now) {}
    [[nodiscard]] bool passed() const { return platform::system().clock->seconds() > at_; }

private:
    std::int64_t at_;
};
