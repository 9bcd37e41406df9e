#pragma once

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include "foundation/io/request/async_request.h"
#include "platform/events.h"

namespace test_support {

/// A door that threads wait at until somebody opens it; it stays open.
class gate {
public:
    void open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void pass() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return open_; });
    }
    [[nodiscard]] bool is_open() const {
        const std::lock_guard lock(mutex_);
        return open_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

/// A request that runs a function.
class function_request final : public io::request::async_request_t {
public:
    explicit function_request(std::function<void()> function) : function_(std::move(function)) {}
    void process() override { function_(); }

private:
    const std::function<void()> function_;
};

inline boost::shared_ptr<io::request::async_request_t> request_of(std::function<void()> function) {
    return boost::make_shared<function_request>(std::move(function));
}

/// Lets the other threads run until they have made it true.
template <typename Condition>
void await(Condition condition) {
    while (!condition()) {
        std::this_thread::yield();
    }
}

/// Other events with a test in between.
class forwarding_events : public platform::events {
public:
    explicit forwarding_events(platform::events& real) : real_(real) {}

    std::uint32_t create_event(platform::event_reset reset, platform::wait_handle& event) override {
        return real_.create_event(reset, event);
    }
    std::uint32_t create_semaphore(std::uint32_t initial, std::uint32_t maximum, platform::wait_handle& semaphore) override {
        return real_.create_semaphore(initial, maximum, semaphore);
    }
    std::uint32_t set(platform::wait_handle event) override { return real_.set(event); }
    std::uint32_t reset(platform::wait_handle event) override { return real_.reset(event); }
    std::uint32_t release(platform::wait_handle semaphore, std::uint32_t permits) override {
        return real_.release(semaphore, permits);
    }
    std::uint32_t wait(platform::wait_handle object, std::uint32_t milliseconds, bool& signalled) override {
        return real_.wait(object, milliseconds, signalled);
    }
    std::uint32_t close(platform::wait_handle object) override { return real_.close(object); }

private:
    platform::events& real_;
};

}  // namespace test_support
