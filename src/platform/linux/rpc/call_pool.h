#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace platform::linux_rpc {

/// Work for a thread of the pool. Neither step may throw.
class pool_task {
public:
    virtual ~pool_task() = default;
    /// May block for as long as it likes.
    virtual void run() = 0;
    /// Hands the result over, without blocking. The thread counts as free again by then, so that whoever acts on the result
    /// finds room for the next task.
    virtual void deliver() = 0;
};

/// The threads that serve calls: each works on one task at a time. A task starts at once or not at all, so that none ever
/// waits for another. Threads are made on demand up to a maximum; those above a minimum end when they have been idle for a
/// while.
class call_pool {
public:
    call_pool(std::size_t min_threads, std::size_t max_threads, std::chrono::milliseconds idle_time);
    /// Waits for the tasks in progress.
    ~call_pool();
    call_pool(const call_pool&) = delete;
    call_pool& operator=(const call_pool&) = delete;

    /// Starts a task, which is taken over then. False: as many as may be are in progress, or the system has no more threads;
    /// the task stays with the caller.
    [[nodiscard]] bool start(std::unique_ptr<pool_task>& task);

    [[nodiscard]] std::size_t threads() const;
    /// Threads that work on a task now.
    [[nodiscard]] std::size_t busy() const;

private:
    struct worker {
        std::condition_variable wake;
        std::unique_ptr<pool_task> task;
    };
    void run(std::unique_ptr<worker> self);
    bool wait_for_task(std::unique_lock<std::mutex>& lock, worker& self);
    bool spawn(std::unique_ptr<pool_task>& task);

    const std::size_t min_threads_;
    const std::size_t max_threads_;
    const std::chrono::milliseconds idle_time_;
    mutable std::mutex mutex_;
    std::condition_variable ended_;
    std::vector<worker*> idle_;  ///< the one that became idle last is taken first: its caches are warm, the others can end
    std::size_t threads_ = 0;
    bool stopping_ = false;
};

}  // namespace platform::linux_rpc
