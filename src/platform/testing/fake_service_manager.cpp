#include "platform/testing/fake_service_manager.h"

#include <utility>

#include "platform/errors.h"
#include "platform/system.h"

namespace platform::testing {

namespace {

constexpr std::uint32_t service_not_active = 1062;

void set_last_error(std::uint32_t code) {
    if (errors* const current = system().errors) {
        current->set_last_error(code);
    }
}

}  // namespace

bool fake_service_manager::run_dispatcher(const std::string& service_name, std::function<void()> service_main) {
    names_.push_back(service_name);
    if (!present) {
        set_last_error(failed_service_controller_connect);
        return false;
    }
    service_main();
    while (!stopped()) {
        if (!play || !play()) {
            control(service_control::stop);
        }
    }
    return true;
}

service_status_handle fake_service_manager::register_handler(const std::string& service_name, service_control_handler handler) {
    if (names_.empty() || names_.front() != service_name) {
        set_last_error(service_not_in_exe);
        return 0;
    }
    names_.push_back(service_name);
    handler_ = std::move(handler);
    return only_service;
}

bool fake_service_manager::report(service_status_handle service, const service_status& status) {
    if (service != only_service || !handler_) {
        set_last_error(invalid_handle);
        return false;
    }
    reports_.push_back(status);
    if (on_report) {
        on_report(status);
    }
    return true;
}

std::uint32_t fake_service_manager::control(std::uint32_t number) {
    return handler_ ? handler_(number) : service_not_active;
}

bool fake_service_manager::stopped() const {
    return !reports_.empty() && reports_.back().state == service_state::stopped;
}

}  // namespace platform::testing
