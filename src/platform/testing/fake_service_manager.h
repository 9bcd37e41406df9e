#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/service_manager.h"

namespace platform::testing {

/// A manager that a test plays. As it stands it is none: the dispatcher returns false with the last error 1063. When it is
/// there, the dispatcher runs the service's main on the calling thread, then brings the test's controls until the service has
/// reported that it is stopped. Not for several threads at once.
class fake_service_manager final : public service_manager {
public:
    /// Error numbers of a service control manager.
    static constexpr std::uint32_t failed_service_controller_connect = 1063;
    static constexpr std::uint32_t service_not_in_exe = 1083;
    static constexpr std::uint32_t invalid_handle = 6;

    [[nodiscard]] bool run_dispatcher(const std::string& service_name, std::function<void()> service_main) override;
    [[nodiscard]] service_status_handle register_handler(const std::string& service_name, service_control_handler handler) override;
    bool report(service_status_handle service, const service_status& status) override;

    /// A control from the test, on the calling thread; what the handler answered. 1062 while there is no handler.
    std::uint32_t control(std::uint32_t number);

    /// Whether a manager started this process.
    bool present = false;
    /// Called when the service's main is through, and again as long as the service isn't stopped: plays the manager. Left empty,
    /// or returning false, the dispatcher sends the stop control.
    std::function<bool()> play;
    /// Called with each report.
    std::function<void(const service_status&)> on_report;

    [[nodiscard]] const std::vector<service_status>& reports() const { return reports_; }
    [[nodiscard]] const std::vector<std::string>& names() const { return names_; }

private:
    static constexpr service_status_handle only_service = 17;

    [[nodiscard]] bool stopped() const;

    service_control_handler handler_;
    std::vector<service_status> reports_;
    std::vector<std::string> names_;  ///< of the dispatcher and of the handler, in order
};

}  // namespace platform::testing
