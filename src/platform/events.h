#pragma once

#include <cstdint>

namespace platform {

/// An open event or semaphore. Neither 0 nor the value with all bits set is ever one.
using wait_handle = std::uintptr_t;
inline constexpr wait_handle no_wait_object = 0;
inline constexpr wait_handle invalid_wait_object = ~wait_handle{0};

/// What ends an event's signalled state: somebody's `reset`, or the first wait that it satisfies.
enum class event_reset : std::uint8_t { manual, automatic };

/// The limit of a wait that has none.
inline constexpr std::uint32_t wait_without_limit = 0xFFFF'FFFF;
/// The most permits that a semaphore can be made for.
inline constexpr std::uint32_t most_permits = 0x7FFF'FFFF;

/// Unnamed events and semaphores of this process, and waiting on them. Every operation returns a system error number (errors.h),
/// 0 for success, and leaves its output alone on failure; 6 for a handle that isn't open or is of the other kind. Callable from
/// any thread. Only `wait` blocks.
class events {
public:
    virtual ~events() = default;

    /// Makes an event that isn't signalled.
    virtual std::uint32_t create_event(event_reset reset, wait_handle& event) = 0;

    /// Makes a semaphore with `initial` of at most `maximum` permits. 87: more than that, or a `maximum` of 0 or above
    /// `most_permits`.
    virtual std::uint32_t create_semaphore(std::uint32_t initial, std::uint32_t maximum, wait_handle& semaphore) = 0;

    /// Signals an event. With manual reset all who wait go on, even if a `reset` follows at once; with automatic reset one does,
    /// or, when nobody waits, the next one who does. Signalling an event twice is signalling it once.
    virtual std::uint32_t set(wait_handle event) = 0;

    virtual std::uint32_t reset(wait_handle event) = 0;

    /// Gives permits back to a semaphore. 87 for none, 298 when it would come to hold more than its maximum: nothing has changed.
    virtual std::uint32_t release(wait_handle semaphore, std::uint32_t permits) = 0;

    /// Blocks until the event is signalled or a permit is there, and takes the signal of an event with automatic reset, or one
    /// permit, with it; those who wait are served in order of their coming. At most so many milliseconds of the clock's (clock.h),
    /// 0 for a look; `wait_without_limit` for as long as it takes. `signalled` is false when the time was up.
    virtual std::uint32_t wait(wait_handle object, std::uint32_t milliseconds, bool& signalled) = 0;

    /// Closes the handle. Who waits on it at that moment goes on waiting.
    virtual std::uint32_t close(wait_handle object) = 0;
};

}  // namespace platform
