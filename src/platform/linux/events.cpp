#include "platform/linux/events.h"

#include <chrono>
#include <utility>

#include "platform/errors.h"

namespace platform::linux_os {

std::uint32_t linux_events::create_event(event_reset reset, wait_handle& event) {
    event = enter(std::make_shared<guarded_object>(wait_object(reset)));
    return error::success;
}

std::uint32_t linux_events::create_semaphore(std::uint32_t initial, std::uint32_t maximum, wait_handle& semaphore) {
    if (maximum == 0 || maximum > most_permits || initial > maximum) {
        return error::invalid_parameter;
    }
    semaphore = enter(std::make_shared<guarded_object>(wait_object(initial, maximum)));
    return error::success;
}

std::uint32_t linux_events::set(wait_handle event) {
    return change(event, [](wait_object& object) { return object.set(); });
}

std::uint32_t linux_events::reset(wait_handle event) {
    return change(event, [](wait_object& object) { return object.reset(); });
}

std::uint32_t linux_events::release(wait_handle semaphore, std::uint32_t permits) {
    return change(semaphore, [permits](wait_object& object) { return object.release(permits); });
}

std::uint32_t linux_events::wait(wait_handle handle, std::uint32_t milliseconds, bool& signalled) {
    const std::shared_ptr<guarded_object> object = find(handle);
    if (object == nullptr) {
        return error::invalid_handle;
    }
    std::unique_lock lock(object->mutex);
    if (object->state.take()) {
        signalled = true;
        return error::success;
    }
    if (milliseconds == 0) {
        signalled = false;
        return error::success;
    }
    wait_object::waiter self;
    const auto released = [&self] { return self.released; };
    object->state.enlist(self);
    if (milliseconds == wait_without_limit) {
        self.wake.wait(lock, released);
    } else if (!self.wake.wait_for(lock, std::chrono::milliseconds(milliseconds), released)) {
        object->state.withdraw(self);
    }
    signalled = self.released;
    return error::success;
}

std::uint32_t linux_events::close(wait_handle object) {
    const std::unique_lock lock(table_mutex_);
    return table_.erase(object) == 1 ? error::success : error::invalid_handle;
}

wait_handle linux_events::enter(std::shared_ptr<guarded_object> object) {
    const std::unique_lock lock(table_mutex_);
    table_.emplace(++last_, std::move(object));
    return last_;
}

std::shared_ptr<linux_events::guarded_object> linux_events::find(wait_handle handle) const {
    const std::shared_lock lock(table_mutex_);
    const auto found = table_.find(handle);
    return found == table_.end() ? nullptr : found->second;
}

template <typename Change>
std::uint32_t linux_events::change(wait_handle handle, Change what) {
    const std::shared_ptr<guarded_object> object = find(handle);
    if (object == nullptr) {
        return error::invalid_handle;
    }
    const std::lock_guard lock(object->mutex);
    return what(object->state);
}

}  // namespace platform::linux_os
