#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>

#include "platform/events.h"

namespace platform {

/// The state of an event or a semaphore and the line of those who wait for it, without the blocking: for implementations of
/// `events` that have no such objects from their system. The caller's mutex guards every operation; results are error numbers.
class wait_object {
public:
    /// One thread's wait.
    struct waiter {
        bool released = false;         ///< served: nothing is left to take
        std::condition_variable wake;  ///< notified when it was released
    };

    explicit wait_object(event_reset reset) : kind_(reset == event_reset::manual ? kind::manual : kind::automatic) {}
    /// A semaphore.
    wait_object(std::uint32_t initial, std::uint32_t maximum) : kind_(kind::semaphore), available_(initial), maximum_(maximum) {}

    std::uint32_t set();
    std::uint32_t reset();
    std::uint32_t release(std::uint32_t permits);

    /// Takes what a wait takes, if it is there.
    [[nodiscard]] bool take();
    /// Puts a waiter at the end of the line. Whoever isn't released must leave it before the waiter is gone.
    void enlist(waiter& comer) { line_.push_back(&comer); }
    void withdraw(waiter& leaver);

private:
    enum class kind : std::uint8_t { manual, automatic, semaphore };

    void serve_first();

    kind kind_;
    std::uint32_t available_ = 0;  ///< permits; of an event, 1 while it is signalled
    std::uint32_t maximum_ = 1;
    std::deque<waiter*> line_;  ///< empty while anything is available
};

}  // namespace platform
