#include "platform/linux/rpc/call_pool.h"

#include <boost/thread/exceptions.hpp>
#include <boost/thread/thread.hpp>

#include <algorithm>
#include <utility>

namespace platform::linux_rpc {

namespace {
/// Address space only: pages are taken as the stack grows.
constexpr std::size_t stack_size = std::size_t{1024} * 1024;
}  // namespace

call_pool::call_pool(std::size_t min_threads, std::size_t max_threads, std::chrono::milliseconds idle_time)
    : min_threads_(min_threads), max_threads_(std::max<std::size_t>(max_threads, 1)), idle_time_(idle_time) {
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < std::min(min_threads_, max_threads_); ++i) {
        std::unique_ptr<pool_task> nothing;
        (void)spawn(nothing);
    }
}

call_pool::~call_pool() {
    std::unique_lock lock(mutex_);
    stopping_ = true;
    for (worker* sleeper : idle_) {
        sleeper->wake.notify_one();
    }
    ended_.wait(lock, [this] { return threads_ == 0; });
}

bool call_pool::start(std::unique_ptr<pool_task>& task) {
    const std::lock_guard lock(mutex_);
    if (stopping_) {
        return false;
    }
    if (!idle_.empty()) {
        worker* chosen = idle_.back();
        idle_.pop_back();
        chosen->task = std::move(task);
        chosen->wake.notify_one();
        return true;
    }
    return threads_ < max_threads_ && spawn(task);
}

std::size_t call_pool::threads() const {
    const std::lock_guard lock(mutex_);
    return threads_;
}

std::size_t call_pool::busy() const {
    const std::lock_guard lock(mutex_);
    return threads_ - idle_.size();
}

/// With the mutex held.
bool call_pool::spawn(std::unique_ptr<pool_task>& task) {
    auto made = std::make_unique<worker>();
    worker* self = made.get();
    boost::thread::attributes attributes;
    attributes.set_stack_size(stack_size);
    try {
        boost::thread(attributes, [this, owned = std::move(made)]() mutable { run(std::move(owned)); }).detach();
    } catch (const boost::thread_resource_error&) {
        return false;
    }
    // The new thread looks for its task under the mutex.
    self->task = std::move(task);
    if (!self->task) {
        idle_.push_back(self);
    }
    ++threads_;
    return true;
}

void call_pool::run(std::unique_ptr<worker> self) {
    std::unique_lock lock(mutex_);
    while (wait_for_task(lock, *self)) {
        std::unique_ptr<pool_task> task = std::move(self->task);
        lock.unlock();
        task->run();
        lock.lock();
        idle_.push_back(self.get());
        lock.unlock();
        task->deliver();
        task.reset();
        lock.lock();
    }
    --threads_;
    ended_.notify_all();
}

/// False: the thread ends, and isn't among the idle ones any more.
bool call_pool::wait_for_task(std::unique_lock<std::mutex>& lock, worker& self) {
    while (!self.task && !stopping_) {
        const bool timed_out = self.wake.wait_for(lock, idle_time_) == std::cv_status::timeout;
        if (timed_out && !self.task && threads_ > min_threads_) {
            break;
        }
    }
    if (!self.task) {
        std::erase(idle_, &self);
    }
    return self.task != nullptr;
}

}  // namespace platform::linux_rpc
