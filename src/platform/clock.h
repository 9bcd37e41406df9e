#pragma once

#include <cstdint>

namespace platform {

/// A moment in the machine's local time. `valid` is false when the system could not give it; the other fields are 0 then.
struct local_time {
    bool valid = false;
    int year = 0;    ///< four digits
    int month = 0;   ///< 1 to 12
    int day = 0;     ///< 1 to 31
    int hour = 0;    ///< 0 to 23
    int minute = 0;  ///< 0 to 59
    int second = 0;  ///< 0 to 60
};

/// The only source of time and of waiting. Every deadline, pause and time stamp goes through it, so that a test can turn
/// minutes into microseconds. All operations may be called from any thread at once; none reports an error.
class clock {
public:
    virtual ~clock() = default;

    /// Whole seconds of a clock that never goes back; only differences have a meaning. Base of every deadline.
    [[nodiscard]] virtual std::int64_t seconds() = 0;

    /// Milliseconds of the same clock.
    [[nodiscard]] virtual std::int64_t milliseconds() = 0;
    /// The same as of the system's last tick, some milliseconds ago: costs next to nothing, for measures that are taken all the
    /// time.
    [[nodiscard]] virtual std::int64_t coarse_milliseconds() { return milliseconds(); }

    /// The wall clock as local time.
    [[nodiscard]] virtual local_time now_local() = 0;

    /// Blocks the calling thread for at least this many milliseconds; 0 or less returns at once.
    virtual void sleep(std::int64_t milliseconds) = 0;
};

}  // namespace platform
