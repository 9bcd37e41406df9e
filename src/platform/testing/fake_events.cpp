#include "platform/testing/fake_events.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/errors.h"

namespace platform::testing {

fake_events::fake_events(virtual_clock& clock) : clock_(clock) {
    clock_.on_change([this] { wake_for_the_time(); });
}

fake_events::~fake_events() {
    clock_.on_change({});
}

std::uint32_t fake_events::create_event(event_reset reset, wait_handle& event) {
    const std::lock_guard lock(mutex_);
    if (const std::uint32_t code = scripted(operation::create_event)) {
        return code;
    }
    event = enter(wait_object(reset));
    return error::success;
}

std::uint32_t fake_events::create_semaphore(std::uint32_t initial, std::uint32_t maximum, wait_handle& semaphore) {
    const std::lock_guard lock(mutex_);
    if (const std::uint32_t code = scripted(operation::create_semaphore)) {
        return code;
    }
    if (maximum == 0 || maximum > most_permits || initial > maximum) {
        return error::invalid_parameter;
    }
    semaphore = enter(wait_object(initial, maximum));
    return error::success;
}

std::uint32_t fake_events::set(wait_handle event) {
    const std::lock_guard lock(mutex_);
    if (const std::uint32_t code = scripted(operation::set)) {
        return code;
    }
    const auto object = find(event);
    return object == nullptr ? error::invalid_handle : object->set();
}

std::uint32_t fake_events::reset(wait_handle event) {
    const std::lock_guard lock(mutex_);
    if (const std::uint32_t code = scripted(operation::reset)) {
        return code;
    }
    const auto object = find(event);
    return object == nullptr ? error::invalid_handle : object->reset();
}

std::uint32_t fake_events::release(wait_handle semaphore, std::uint32_t permits) {
    const std::lock_guard lock(mutex_);
    if (const std::uint32_t code = scripted(operation::release)) {
        return code;
    }
    const auto object = find(semaphore);
    return object == nullptr ? error::invalid_handle : object->release(permits);
}

std::uint32_t fake_events::wait(wait_handle handle, std::uint32_t milliseconds, bool& signalled) {
    std::unique_lock lock(mutex_);
    waits_.push_back(milliseconds);
    if (const std::uint32_t code = scripted(operation::wait)) {
        return code;
    }
    const std::shared_ptr<wait_object> object = find(handle);
    if (object == nullptr) {
        return error::invalid_handle;
    }
    signalled = object->take();
    if (signalled || milliseconds == 0) {
        return error::success;
    }
    const bool limited = milliseconds != wait_without_limit;
    if (limited && idle_wait_ == idle_wait::elapses) {
        lock.unlock();
        clock_.advance(milliseconds);
        return error::success;
    }
    one_wait self{{}, limited ? clock_.milliseconds() + milliseconds : std::numeric_limits<std::int64_t>::max()};
    object->enlist(self.waiter);
    block(lock, self);
    if (!self.waiter.released) {
        object->withdraw(self.waiter);
    }
    signalled = self.waiter.released;
    return error::success;
}

std::uint32_t fake_events::close(wait_handle object) {
    const std::lock_guard lock(mutex_);
    if (objects_.erase(object) == 0) {
        return error::invalid_handle;
    }
    changed_.notify_all();
    return error::success;
}

void fake_events::set_idle_wait(idle_wait what) {
    const std::lock_guard lock(mutex_);
    idle_wait_ = what;
}

void fake_events::fail(operation what, std::uint32_t code) {
    const std::lock_guard lock(mutex_);
    failures_[what] = code;
}

void fake_events::await_waiting(std::size_t threads) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return blocked() >= threads; });
}

void fake_events::await_open_handles(std::size_t handles) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return objects_.size() == handles; });
}

std::vector<std::uint32_t> fake_events::waits() const {
    const std::lock_guard lock(mutex_);
    return waits_;
}

std::size_t fake_events::open_handles() const {
    const std::lock_guard lock(mutex_);
    return objects_.size();
}

std::uint32_t fake_events::scripted(operation what) const {
    const auto found = failures_.find(what);
    return found == failures_.end() ? error::success : found->second;
}

wait_handle fake_events::enter(wait_object object) {
    last_ += 4;
    objects_.emplace(last_, std::make_shared<wait_object>(std::move(object)));
    changed_.notify_all();
    return last_;
}

std::shared_ptr<wait_object> fake_events::find(wait_handle handle) const {
    const auto found = objects_.find(handle);
    return found == objects_.end() ? nullptr : found->second;
}

void fake_events::block(std::unique_lock<std::mutex>& lock, one_wait& self) {
    waiting_.push_back(&self);
    changed_.notify_all();
    self.waiter.wake.wait(lock, [&] { return self.waiter.released || clock_.milliseconds() >= self.deadline; });
    std::erase(waiting_, &self);
}

void fake_events::wake_for_the_time() {
    const std::lock_guard lock(mutex_);
    for (one_wait* const wait : waiting_) {
        wait->waiter.wake.notify_one();
    }
}

/// Those that nothing has released and whose time isn't up: the others are about to go on.
std::size_t fake_events::blocked() const {
    const std::int64_t now = clock_.milliseconds();
    return static_cast<std::size_t>(std::count_if(
        waiting_.begin(), waiting_.end(), [now](const one_wait* wait) { return !wait->waiter.released && now < wait->deadline; }));
}

}  // namespace platform::testing
