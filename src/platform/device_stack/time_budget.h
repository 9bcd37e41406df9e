#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/clock.h"
#include "platform/system.h"

namespace platform::device_stack {

/// The time that a call of several commands may take as a whole; each command gets what is left of it, and a second at least.
class time_budget {
public:
    explicit time_budget(std::int64_t seconds) : end_(system().clock->seconds() + seconds) {}
    [[nodiscard]] std::int64_t seconds_left() const { return std::max<std::int64_t>(end_ - system().clock->seconds(), 1); }

private:
    std::int64_t end_;
};

}  // namespace platform::device_stack
