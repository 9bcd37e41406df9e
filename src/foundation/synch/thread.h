#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

#include "foundation/win/win_event.h"

namespace synch {

/// A thread of the system's own. It starts with the object's construction and goes on when the object goes. While it works it
/// stands under its role in the table of threads and in what debuggers show, and has the stop event of the thread that started it.
///
/// The function reports its own failures: a `std::exception` that leaves it ends the thread without a word, anything else that does
/// ends the process. Function and argument are destroyed by the thread itself, before it counts as finished; after that it touches
/// nothing of the system. Nobody can wait for a thread whose object has gone, so the system has to outlive that one.
///
/// Callable from any thread; the destructor by one, when no other uses the object.
class thread_t {
public:
    /// Starts a thread that calls `function(argument)`. Throws `exc::win_sys_exc_t` without an event to be had, and what the
    /// thread library throws without a thread.
    template <typename Function, typename Argument>
    thread_t(Function function, Argument argument, std::string_view role)
        : thread_t(procedure_t([function = std::move(function), argument = std::move(argument)]() mutable { function(argument); }),
                   role) {}
    /// Neither waits for the thread nor ends it.
    ~thread_t();
    thread_t(const thread_t&) = delete;
    thread_t& operator=(const thread_t&) = delete;

    [[nodiscard]] bool is_running() const;
    /// Waits up to 21 days; whether it has finished.
    [[nodiscard]] bool wait() const;
    /// Waits so long at most, 21 days for `win::no_limit`; `exc::runtime_exc_t` when the thread hasn't finished by then.
    void join(std::uint32_t milliseconds) const;
    /// The system's id of the thread, 0 until it has begun to run. The id of a finished one may be another thread's.
    [[nodiscard]] std::uint32_t thread_id() const { return *thread_id_; }

private:
    using procedure_t = std::function<void()>;
    class thread_exec_proc_t;

    thread_t(procedure_t procedure, std::string_view role);

    boost::shared_ptr<boost::thread> thread_;
    boost::shared_ptr<win::win_manual_reset_event_t> finished_;
    boost::shared_ptr<std::atomic<std::uint32_t>> thread_id_;
    /// Held by the thread from before it signals `finished_` until it has let go of it.
    boost::shared_ptr<boost::mutex> farewell_;
};

}  // namespace synch
