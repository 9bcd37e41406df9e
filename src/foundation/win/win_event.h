#pragma once

#include <cstdint>

#include "foundation/win/win_handle.h"

namespace win {

/// What a wait without a limit of its own lasts at most: 21 days. Who waits that long takes it for a time-out.
inline constexpr std::uint32_t longest_wait = 1'814'400'000;
/// The limit of a caller who means none: `longest_wait` takes its place.
inline constexpr std::uint32_t no_limit = 0xFFFF'FFFF;

/// An event of the system, not signalled at first. Failures are `exc::win_sys_exc_t`. Callable from any thread.
class win_manual_reset_event_t {
public:
    explicit win_manual_reset_event_t(platform::event_reset reset = platform::event_reset::manual);
    win_manual_reset_event_t(const win_manual_reset_event_t&) = delete;
    win_manual_reset_event_t& operator=(const win_manual_reset_event_t&) = delete;

    void set();
    void reset();
    /// True when the event was signalled in time. 0 looks without waiting.
    [[nodiscard]] bool wait(std::uint32_t milliseconds) const;

private:
    win_handle_t handle_;
};

}  // namespace win
