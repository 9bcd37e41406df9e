#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/events.h"
#include "platform/testing/virtual_clock.h"
#include "platform/wait_object.h"

namespace platform::testing {

/// Events and semaphores whose time limits run on a virtual clock. A wait without a limit blocks in earnest.
class fake_events final : public events {
public:
    enum class operation : std::uint8_t { create_event, create_semaphore, set, reset, release, wait };

    /// What a wait with a limit does while nothing signals its object.
    enum class idle_wait : std::uint8_t {
        blocks,  ///< until the object is signalled, or another thread has moved the clock to the limit
        elapses  ///< moves the clock by the whole limit and is over at once: for tests that have one thread
    };

    explicit fake_events(virtual_clock& clock);
    ~fake_events() override;
    fake_events(const fake_events&) = delete;
    fake_events& operator=(const fake_events&) = delete;

    std::uint32_t create_event(event_reset reset, wait_handle& event) override;
    std::uint32_t create_semaphore(std::uint32_t initial, std::uint32_t maximum, wait_handle& semaphore) override;
    std::uint32_t set(wait_handle event) override;
    std::uint32_t reset(wait_handle event) override;
    std::uint32_t release(wait_handle semaphore, std::uint32_t permits) override;
    std::uint32_t wait(wait_handle object, std::uint32_t milliseconds, bool& signalled) override;
    std::uint32_t close(wait_handle object) override;

    /// `blocks` at first.
    void set_idle_wait(idle_wait what);
    /// From now on the operation fails with this number, before it looks at anything; 0 for no more.
    void fail(operation what, std::uint32_t code);

    /// Blocks until so many threads at least are blocked in waits: then a test can move the clock.
    void await_waiting(std::size_t threads);
    /// Blocks until just so many handles are open: the last thing of the system that a thread uses may be one that it closes.
    void await_open_handles(std::size_t handles);
    /// The limit of every wait so far, in order of their beginning.
    [[nodiscard]] std::vector<std::uint32_t> waits() const;
    [[nodiscard]] std::size_t open_handles() const;

private:
    struct one_wait {
        wait_object::waiter waiter;
        std::int64_t deadline;
    };

    [[nodiscard]] std::uint32_t scripted(operation what) const;
    wait_handle enter(wait_object object);
    [[nodiscard]] std::shared_ptr<wait_object> find(wait_handle handle) const;
    void block(std::unique_lock<std::mutex>& lock, one_wait& self);
    void wake_for_the_time();
    [[nodiscard]] std::size_t blocked() const;

    virtual_clock& clock_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;  ///< more waits, or other handles
    std::map<wait_handle, std::shared_ptr<wait_object>> objects_;
    wait_handle last_ = 0x100;
    std::map<operation, std::uint32_t> failures_;
    idle_wait idle_wait_ = idle_wait::blocks;
    std::vector<one_wait*> waiting_;
    std::vector<std::uint32_t> waits_;
};

}  // namespace platform::testing
