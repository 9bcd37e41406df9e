#include "platform/linux/service_manager.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/linux/errors.h"

namespace platform::linux_os {

namespace {

constexpr std::uint32_t failed_service_controller_connect = 1063;
constexpr service_status_handle only_service = 1;
constexpr std::uint64_t microseconds_a_millisecond = 1000;
constexpr std::uint64_t microseconds_a_second = 1'000'000;
constexpr std::uint64_t nanoseconds_a_microsecond = 1000;

constexpr char serving_status[] = "STATUS=Serving.";

sigset_t control_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

/// False when there is no manager, or it doesn't take the message.
bool notify(const std::string& message) {
    return sd_notify(0, message.c_str()) > 0;
}

std::string extension(std::uint32_t wait_hint_ms) {
    return "\nEXTEND_TIMEOUT_USEC=" + std::to_string(wait_hint_ms * microseconds_a_millisecond);
}

/// systemd takes the reload for the one that it asked for by this stamp.
std::string monotonic_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::to_string(static_cast<std::uint64_t>(now.tv_sec) * microseconds_a_second +
                          static_cast<std::uint64_t>(now.tv_nsec) / nanoseconds_a_microsecond);
}

/// A start that failed says so to the end: the manager shows the last status of a unit that is gone.
std::string message_of(const service_status& status, bool has_run) {
    const std::string stopping = std::string("STOPPING=1\nSTATUS=") + (has_run ? "" : "The start has failed; the log says why. ");
    switch (status.state) {
        case service_state::start_pending:
            return "STATUS=Starting." + extension(status.wait_hint_ms);
        case service_state::running:
            return std::string("READY=1\n") + serving_status;
        case service_state::stop_pending:
            return stopping + "Stopping." + extension(status.wait_hint_ms);
        case service_state::stopped:
            return stopping + "Stopped.";
    }
    return {};
}

/// Half of what the manager allows, so that one late turn does no harm. 0: it keeps no watch over this process.
int time_between_signs_of_life() {
    std::uint64_t allowed = 0;
    if (sd_watchdog_enabled(0, &allowed) <= 0) {
        return 0;
    }
    constexpr std::uint64_t most = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp<std::uint64_t>(allowed / 2 / microseconds_a_millisecond, 1, most));
}

descriptor made(int number, const char* what) {
    if (number < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return descriptor(number);
}

}  // namespace

bool systemd_manager::run_dispatcher(const std::string& /*service_name*/, std::function<void()> service_main) {
    if (!notify("STATUS=Setting up.")) {
        linux_errors{}.set_last_error(failed_service_controller_connect);
        return false;
    }
    const sigset_t signals = control_signals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    const descriptor arrivals = made(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK), "Signals can't be waited for");
    watch_ms_ = time_between_signs_of_life();
    wake_up_ = made(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "The service's main can't be waited for");

    std::thread main([this, run = std::move(service_main)] {
        run();
        {
            const std::lock_guard lock(mutex_);
            progress_.main_done = true;
        }
        wake();
    });
    serve_controls(arrivals.get());
    main.join();
    return true;
}

service_status_handle systemd_manager::register_handler(const std::string& /*service_name*/, service_control_handler handler) {
    const std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
    return only_service;
}

bool systemd_manager::report(service_status_handle service, const service_status& status) {
    if (service != only_service) {
        linux_errors{}.set_last_error(error::invalid_handle);
        return false;
    }
    bool has_run = false;
    {
        const std::lock_guard lock(mutex_);
        progress_.state = status.state;
        progress_.has_run = progress_.has_run || status.state == service_state::running;
        has_run = progress_.has_run;
    }
    wake();
    if (!notify(message_of(status, has_run))) {
        linux_errors{}.set_last_error(failed_service_controller_connect);
        return false;
    }
    return true;
}

/// Ends when the service is stopped and its main is through, or when it is to stop and has named nothing that could.
void systemd_manager::serve_controls(int signals) {
    for (;;) {
        const progress now = look();
        if (now.main_done && (now.state == service_state::stopped || stop_delivered_)) {
            return;
        }
        wait_for_events(signals);
        take_signals(signals);
        deliver_controls();
    }
}

void systemd_manager::wait_for_events(int signals) {
    std::array<pollfd, 2> sources{pollfd{signals, POLLIN, 0}, pollfd{wake_up_.get(), POLLIN, 0}};
    const int ready = poll(sources.data(), sources.size(), watch_ms_ > 0 ? std::min(watch_ms_, hooks_.idle_ms) : hooks_.idle_ms);
    if (watch_ms_ > 0) {
        notify("WATCHDOG=1");
    }
    if (ready == 0 && hooks_.idle) {
        hooks_.idle();
    }
    eventfd_t count = 0;
    static_cast<void>(eventfd_read(wake_up_.get(), &count));
}

void systemd_manager::take_signals(int signals) {
    signalfd_siginfo arrived{};
    while (read(signals, &arrived, sizeof(arrived)) == static_cast<ssize_t>(sizeof(arrived))) {
        (arrived.ssi_signo == SIGHUP ? reload_wanted_ : stop_wanted_) = true;
    }
}

void systemd_manager::deliver_controls() {
    const progress now = look();
    if (!now.main_done || now.state == service_state::stopped) {
        return;
    }
    if (stop_wanted_) {
        service_control_handler handler;
        {
            const std::lock_guard lock(mutex_);
            handler = handler_;
        }
        stop_delivered_ = true;
        if (handler) {
            handler(service_control::stop);
        }
    } else if (std::exchange(reload_wanted_, false)) {
        reload();
    }
}

void systemd_manager::reload() {
    notify("RELOADING=1\nMONOTONIC_USEC=" + monotonic_now() + "\nSTATUS=Reading the settings again.");
    if (hooks_.reload) {
        hooks_.reload();
    }
    notify(std::string("READY=1\n") + serving_status);
}

systemd_manager::progress systemd_manager::look() const {
    const std::lock_guard lock(mutex_);
    return progress_;
}

void systemd_manager::wake() const {
    static_cast<void>(eventfd_write(wake_up_.get(), 1));
}

}  // namespace platform::linux_os
