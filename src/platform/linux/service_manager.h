#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include "platform/linux/descriptor.h"
#include "platform/service_manager.h"

namespace platform::linux_os {

/// The service manager's stand-in on Linux: systemd's notification protocol (sd_notify(3)), and signals.
///
/// A process without NOTIFY_SOCKET, or with one that nobody reads, has no manager. Running is `READY=1`, stop pending is
/// `STOPPING=1`, every state says a `STATUS=`, and pending ones ask for their wait hint by `EXTEND_TIMEOUT_USEC=`. SIGTERM and
/// SIGINT are the stop control; one that comes while the service's main is still starting is delivered when that is through, so
/// that a start and a stop never run side by side. SIGHUP is a reload: `RELOADING=1`, the hook, `READY=1`. A manager that keeps
/// watch (WATCHDOG_USEC) gets a `WATCHDOG=1` at least twice in that time, for as long as the dispatcher's thread comes round.
///
/// The program blocks these three signals before it has a second thread; otherwise another thread may die of them.
class systemd_manager final : public service_manager {
public:
    struct hooks {
        std::function<void()> idle;    ///< again and again while nothing happens, on the dispatcher's thread
        std::function<void()> reload;  ///< throws nothing
        int idle_ms = 2000;            ///< between two calls of `idle`
    };

    systemd_manager() : systemd_manager(hooks{}) {}
    explicit systemd_manager(hooks of_program) : hooks_(std::move(of_program)) {}

    /// Last error without a manager: 1063.
    [[nodiscard]] bool run_dispatcher(const std::string& service_name, std::function<void()> service_main) override;
    [[nodiscard]] service_status_handle register_handler(const std::string& service_name, service_control_handler handler) override;
    bool report(service_status_handle service, const service_status& status) override;

private:
    struct progress {
        bool main_done = false;
        bool has_run = false;  ///< `running` was reported
        service_state state = service_state::start_pending;
    };

    void serve_controls(int signals);
    void wait_for_events(int signals);
    void take_signals(int signals);
    void deliver_controls();
    void reload();
    [[nodiscard]] progress look() const;
    void wake() const;

    const hooks hooks_;
    int watch_ms_ = 0;    ///< the longest time between two signs of life; 0: nobody waits for any
    descriptor wake_up_;  ///< an event counter: something in `progress_` changed

    mutable std::mutex mutex_;
    progress progress_;
    service_control_handler handler_;

    // The dispatcher's thread alone uses these.
    bool stop_wanted_ = false;
    bool reload_wanted_ = false;
    bool stop_delivered_ = false;
};

}  // namespace platform::linux_os
