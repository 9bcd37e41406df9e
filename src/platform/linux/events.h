#pragma once

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include "platform/events.h"
#include "platform/wait_object.h"

namespace platform::linux_os {

/// Events and semaphores inside the process: no descriptor is spent on one, and one that nobody waits on costs no system call.
/// Time limits run on the kernel's monotonic clock.
class linux_events final : public events {
public:
    std::uint32_t create_event(event_reset reset, wait_handle& event) override;
    std::uint32_t create_semaphore(std::uint32_t initial, std::uint32_t maximum, wait_handle& semaphore) override;
    std::uint32_t set(wait_handle event) override;
    std::uint32_t reset(wait_handle event) override;
    std::uint32_t release(wait_handle semaphore, std::uint32_t permits) override;
    std::uint32_t wait(wait_handle object, std::uint32_t milliseconds, bool& signalled) override;
    std::uint32_t close(wait_handle object) override;

private:
    struct guarded_object {
        explicit guarded_object(wait_object made) : state(std::move(made)) {}
        std::mutex mutex;
        wait_object state;
    };

    wait_handle enter(std::shared_ptr<guarded_object> object);
    [[nodiscard]] std::shared_ptr<guarded_object> find(wait_handle handle) const;
    template <typename Change>
    std::uint32_t change(wait_handle handle, Change what);

    mutable std::shared_mutex table_mutex_;
    std::unordered_map<wait_handle, std::shared_ptr<guarded_object>> table_;
    wait_handle last_ = no_wait_object;
};

}  // namespace platform::linux_os
