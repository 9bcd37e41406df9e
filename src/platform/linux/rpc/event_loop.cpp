#include "platform/linux/rpc/event_loop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <stdexcept>

namespace platform::linux_rpc {

namespace {

template <typename Action>
void guarded(Action action) {
    try {
        action();
    } catch (const std::exception&) {  // a lack of memory, of which nobody can be told
    }
}

}  // namespace

event_loop::event_loop() : epoll_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    epoll_event event{};
    event.events = EPOLLIN;
    if (epoll_ < 0 || wake_ < 0 || epoll_ctl(epoll_, EPOLL_CTL_ADD, wake_, &event) != 0) {
        close(epoll_);
        close(wake_);
        throw std::runtime_error("The system has no descriptors left for a network thread.");
    }
}

event_loop::~event_loop() {
    close(epoll_);
    close(wake_);
}

void event_loop::stop() {
    stopping_ = true;
    (void)eventfd_write(wake_, 1);
}

void event_loop::post(std::unique_ptr<loop_task> task) {
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(task));
    if (posted_.size() == 1) {
        (void)eventfd_write(wake_, 1);
    }
}

bool event_loop::watch(loop_client& client, int descriptor, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = &client;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0) {
        return false;
    }
    client.descriptor_ = descriptor;
    return true;
}

void event_loop::change(loop_client& client, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = &client;
    (void)epoll_ctl(epoll_, EPOLL_CTL_MOD, client.descriptor_, &event);
}

void event_loop::forget(loop_client& client, std::shared_ptr<loop_client> held) {
    if (client.descriptor_ >= 0) {
        (void)epoll_ctl(epoll_, EPOLL_CTL_DEL, client.descriptor_, nullptr);
        client.descriptor_ = -1;
    }
    if (client.wants_turn_) {
        client.wants_turn_ = false;
        std::replace(turns_.begin(), turns_.end(), &client, static_cast<loop_client*>(nullptr));
        std::replace(turns_now_.begin(), turns_now_.end(), &client, static_cast<loop_client*>(nullptr));
    }
    if (client.wants_time_) {
        client.wants_time_ = false;
        moments_.erase({client.time_, &client});
    }
    forgotten_.push_back(std::move(held));
}

void event_loop::give_turn(loop_client& client) {
    if (!client.wants_turn_) {
        turns_.push_back(&client);
        client.wants_turn_ = true;
    }
}

void event_loop::wake_at(loop_client& client, time_point moment) {
    if (client.wants_time_) {
        moments_.erase({client.time_, &client});
    }
    client.wants_time_ = true;
    client.time_ = moment;
    moments_.insert({moment, &client});
}

void event_loop::run() {
    while (!stopping_) {
        const int count = epoll_wait(epoll_, events_.data(), static_cast<int>(events_.size()), milliseconds_to_wait());
        now_ = clock::now();
        tell(count);
        give_turns();
        wake_who_is_due();
        forgotten_.clear();
    }
}

int event_loop::milliseconds_to_wait() const {
    if (!turns_.empty()) {
        return 0;
    }
    if (moments_.empty()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(moments_.begin()->first - now_).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

void event_loop::tell(int count) {
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events_[static_cast<std::size_t>(i)];
        auto* const client = static_cast<loop_client*>(event.data.ptr);
        if (client == nullptr) {
            take_posted();
        } else if (client->descriptor_ >= 0) {  // else it was forgotten since
            guarded([&] { client->on_ready(event.events); });
        }
    }
}

void event_loop::take_posted() {
    eventfd_t count = 0;
    {
        const std::lock_guard lock(mutex_);
        (void)eventfd_read(wake_, &count);
        tasks_.swap(posted_);
    }
    for (const std::unique_ptr<loop_task>& task : tasks_) {
        guarded([&] { task->run(); });
    }
    tasks_.clear();
}

void event_loop::give_turns() {
    turns_now_.swap(turns_);
    for (std::size_t i = 0; i < turns_now_.size(); ++i) {
        loop_client* const client = turns_now_[i];
        if (client != nullptr) {
            client->wants_turn_ = false;
            guarded([&] { client->on_turn(); });
        }
    }
    turns_now_.clear();
}

void event_loop::wake_who_is_due() {
    while (!moments_.empty() && moments_.begin()->first <= now_) {
        loop_client* const client = moments_.begin()->second;
        moments_.erase(moments_.begin());
        client->wants_time_ = false;
        guarded([&] { client->on_time(); });
    }
}

}  // namespace platform::linux_rpc
