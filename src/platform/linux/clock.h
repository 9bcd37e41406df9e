#pragma once

#include "platform/clock.h"

namespace platform::linux_os {

/// The kernel's monotonic clock, and the machine's wall clock in its time zone.
class linux_clock final : public clock {
public:
    linux_clock();

    [[nodiscard]] std::int64_t seconds() override;
    [[nodiscard]] std::int64_t milliseconds() override;
    [[nodiscard]] std::int64_t coarse_milliseconds() override;
    [[nodiscard]] local_time now_local() override;
    void sleep(std::int64_t milliseconds) override;
};

}  // namespace platform::linux_os
