#pragma once

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <atomic>
#include <cstdint>

/// A long task on a thread of its own, kept in the service context by its id. The status is 997 while it runs, 0 when it has
/// done its work, and otherwise the reason of its failure; it changes once. `IsFinished` and `GetStatus` may be called from
/// any thread.
class ITapeWorker {
public:
    virtual ~ITapeWorker() = default;

    [[nodiscard]] virtual bool IsFinished() { return GetStatus() != running; }
    [[nodiscard]] virtual std::uint32_t GetStatus() { return *status_; }
    /// Waits for the end of the task's thread; returns at once while the task runs. Callable from any thread; throws in the
    /// task's own.
    virtual void Join() = 0;

    /// Identity of the task among those that live.
    [[nodiscard]] std::uint32_t task_id() const { return task_id_; }

protected:
    using status_word = std::atomic<std::uint32_t>;

    static constexpr std::uint32_t running = 997;  ///< ERROR_IO_PENDING

    /// Lies apart from the object: the task's thread writes it, and that thread can outlive an object which the table dropped.
    boost::shared_ptr<status_word> status_ = boost::make_shared<status_word>(running);
    std::uint32_t task_id_ = 0;
};
