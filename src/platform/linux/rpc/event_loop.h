#pragma once

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

namespace platform::linux_rpc {

/// Work that another thread hands to a loop.
class loop_task {
public:
    virtual ~loop_task() = default;
    virtual void run() = 0;
};

/// Somebody whom a loop tells what happens on a descriptor, and what the time is. The loop calls it on its own thread only.
/// What an operation throws is caught and forgotten: there is no memory to tell anybody with.
class loop_client {
public:
    using time_point = std::chrono::steady_clock::time_point;

    virtual ~loop_client() = default;
    /// Something has happened on the descriptor: bits of `EPOLLIN` and its kin.
    virtual void on_ready(std::uint32_t events) = 0;
    /// The turn that was asked for.
    virtual void on_turn() {}
    /// The moment that was asked for has come.
    virtual void on_time() {}

private:
    friend class event_loop;
    int descriptor_ = -1;
    bool wants_turn_ = false;
    bool wants_time_ = false;
    time_point time_;
};

/// The events of one network thread: an epoll with the descriptors, moments to be woken at, and work from other threads. A
/// client is told of a descriptor's edges once it is watched, so that a call costs no more system calls than its bytes do.
///
/// All operations belong to the loop's thread but `post` and `stop`.
class event_loop {
public:
    using clock = std::chrono::steady_clock;
    using time_point = loop_client::time_point;

    /// Throws `std::runtime_error` when the system has no more descriptors.
    event_loop();
    ~event_loop();
    event_loop(const event_loop&) = delete;
    event_loop& operator=(const event_loop&) = delete;

    /// Serves until `stop`.
    void run();
    void stop();
    /// Runs the task on the loop's thread soon. What is still waiting when the loop ends is thrown away.
    void post(std::unique_ptr<loop_task> task);
    template <typename Action>
    void post_action(Action action) {
        post(std::make_unique<action_task<Action>>(std::move(action)));
    }

    /// Watches a descriptor for `events`, which may bear `EPOLLET`. False: the system can't.
    [[nodiscard]] bool watch(loop_client& client, int descriptor, std::uint32_t events);
    /// Changes what is watched for.
    void change(loop_client& client, std::uint32_t events);
    /// Forgets a client, turns and moments included; nothing that has happened before reaches it any more. The loop keeps
    /// `held` until it no longer knows the client.
    void forget(loop_client& client, std::shared_ptr<loop_client> held);

    /// Calls `on_turn` once, after all others have been told what has happened to them.
    void give_turn(loop_client& client);
    /// Calls `on_time` once, at a moment or soon after; takes the place of a moment that was asked for before.
    void wake_at(loop_client& client, time_point moment);

    /// When the loop last woke up: what happens now began no earlier.
    [[nodiscard]] time_point now() const { return now_; }

private:
    template <typename Action>
    class action_task final : public loop_task {
    public:
        explicit action_task(Action action) : action_(std::move(action)) {}
        void run() override { action_(); }

    private:
        Action action_;
    };

    [[nodiscard]] int milliseconds_to_wait() const;
    void tell(int count);
    void take_posted();
    void give_turns();
    void wake_who_is_due();

    static constexpr std::size_t events_at_once = 128;

    int epoll_ = -1;
    int wake_ = -1;  ///< an eventfd: something was posted
    std::array<epoll_event, events_at_once> events_{};
    std::vector<loop_client*> turns_;
    std::vector<loop_client*> turns_now_;
    std::set<std::pair<time_point, loop_client*>> moments_;
    std::vector<std::shared_ptr<loop_client>> forgotten_;
    std::vector<std::unique_ptr<loop_task>> tasks_;
    time_point now_ = clock::now();

    std::mutex mutex_;
    std::vector<std::unique_ptr<loop_task>> posted_;
    std::atomic<bool> stopping_{false};
};

}  // namespace platform::linux_rpc
