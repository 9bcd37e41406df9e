#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace platform {

/// Where a service is in its life; the numbers are those of Windows' service control manager.
enum class service_state : std::uint32_t { stopped = 1, start_pending = 2, stop_pending = 3, running = 4 };

/// What the manager may ask of a service.
namespace service_control {
inline constexpr std::uint32_t stop = 1;
inline constexpr std::uint32_t pause = 2;
inline constexpr std::uint32_t interrogate = 4;
inline constexpr std::uint32_t shutdown = 5;
}  // namespace service_control

inline constexpr std::uint32_t service_own_process = 16;
inline constexpr std::uint32_t service_accepts_stop = 1;

/// One report of a service to its manager.
struct service_status {
    std::uint32_t type = service_own_process;
    service_state state = service_state::stopped;
    std::uint32_t controls_accepted = service_accepts_stop;
    std::uint32_t exit_code = 0;
    std::uint32_t specific_exit_code = 0;
    std::uint32_t check_point = 0;   ///< grows with each report of the same pending state
    std::uint32_t wait_hint_ms = 0;  ///< after so long without a report the manager may think that the service hangs
};

/// Stands for the service at its manager. 0 is none.
using service_status_handle = std::uint64_t;

/// Takes a control and returns 0, or the error number that refuses it.
using service_control_handler = std::function<std::uint32_t(std::uint32_t control)>;

/// What starts and stops the services of a machine, as one service sees it. The operations are called in the order below; a
/// report may come from any thread.
class service_manager {
public:
    virtual ~service_manager() = default;

    /// Connects the process to its manager, runs `service_main` on a thread of its own and brings the manager's controls to the
    /// handler, on the calling thread. Returns true once the service has reported that it is stopped. False, at once and without a
    /// call of `service_main`, when no manager started this process; the reason is in the last error. Done at most once in a
    /// process.
    [[nodiscard]] virtual bool run_dispatcher(const std::string& service_name, std::function<void()> service_main) = 0;

    /// From within the service's main: names what takes the controls from now on. 0 on failure, with the reason in the last error.
    [[nodiscard]] virtual service_status_handle register_handler(const std::string& service_name,
                                                                 service_control_handler handler) = 0;

    /// Tells the manager. False on failure, with the reason in the last error.
    virtual bool report(service_status_handle service, const service_status& status) = 0;
};

}  // namespace platform
