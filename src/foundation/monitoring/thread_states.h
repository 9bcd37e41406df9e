#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <atomic>
#include <cstdint>
#include <map>
#include <stack>
#include <string>
#include <string_view>

namespace monitoring {

/// One entry of a thread's activity stack.
struct CThreadTrace {
    std::uint32_t started = 0;  ///< milliseconds of the monotonic clock, cut to 32 bits
    std::string text;
};

/// What a registered thread is for and what it is doing at the moment. Only its own thread touches the stack.
struct CThreadState {
    explicit CThreadState(std::string_view thread_role) : role(thread_role) {}

    std::string role;
    std::stack<boost::shared_ptr<CThreadTrace>> activities;
};

/// The process's table of the threads that the system started itself. Callable from any thread; never calls out while it holds
/// its mutex.
class CThreadStatesCollection {
public:
    /// Made on first use.
    static CThreadStatesCollection& instance();

    boost::shared_ptr<CThreadState> add(std::uint32_t thread_id, std::string_view role);
    void remove(std::uint32_t thread_id);
    /// Null when no such thread is registered: the RPC runtime's own threads aren't.
    [[nodiscard]] boost::shared_ptr<CThreadState> find(std::uint32_t thread_id) const;
    /// The calling thread's state, or null.
    [[nodiscard]] boost::shared_ptr<CThreadState> current() const;
    /// Whether starts and ends of threads go to the log.
    [[nodiscard]] bool log_threads() const { return log_threads_; }
    void set_log_threads(bool log) { log_threads_ = log; }

private:
    mutable boost::mutex mutex_;
    std::map<std::uint32_t, boost::shared_ptr<CThreadState>> states_;
    /// How many stand in the table, so that scopes cost no lock while none does. Whoever stands there is sure to see it.
    std::atomic<std::size_t> count_{0};
    std::atomic<bool> log_threads_{true};
};

/// A thread's entry in the table for as long as the thread works, told to the log at both ends. A log that fails changes nothing.
class CThreadStateRegistration {
public:
    CThreadStateRegistration(std::uint32_t thread_id, std::uint32_t parent_id, std::string_view role);
    ~CThreadStateRegistration();
    CThreadStateRegistration(const CThreadStateRegistration&) = delete;
    CThreadStateRegistration& operator=(const CThreadStateRegistration&) = delete;

private:
    const std::uint32_t thread_id_;
    const std::string role_;
};

/// Puts a text on the calling thread's activity stack for a scope; does nothing on a thread that isn't registered. Made and
/// ended on the same thread, in the order of scopes.
class activity_t {
public:
    explicit activity_t(std::string_view text);
    ~activity_t();
    activity_t(const activity_t&) = delete;
    activity_t& operator=(const activity_t&) = delete;

    /// Takes the text off before the scope ends.
    void end();

private:
    boost::shared_ptr<CThreadState> state_;
};

}  // namespace monitoring
