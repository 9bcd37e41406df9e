#include "host/service_control.h"

#include <atomic>

#include "host/server_lifetime.h"
#include "platform/service_manager.h"
#include "platform/system.h"

namespace {

using platform::service_state;

constexpr std::uint32_t call_not_implemented = 120;
constexpr std::uint32_t wait_hint_ms = 5000;

platform::service_manager& manager() {
    return *platform::system().service_manager;
}

/// Set by the service's main, read by the thread of the controls.
std::atomic<platform::service_status_handle>& status_handle() {
    static std::atomic<platform::service_status_handle> handle{0};
    return handle;
}

/// A report that fails changes nothing for the service: the manager that can't be told will see the process end.
void report(service_state state, std::uint32_t check_point) {
    platform::service_status status;
    status.state = state;
    status.check_point = check_point;
    status.wait_hint_ms = wait_hint_ms;
    manager().report(status_handle(), status);
}

void stop_and_report() {
    report(service_state::stop_pending, 0);
    StopTapeServer();
    report(service_state::stopped, 1);
}

}  // namespace

void TapeServiceMain() {
    status_handle() = manager().register_handler(tape_service_name, ServiceCtrlHandler);
    report(service_state::start_pending, 0);
    if (StartTapeServer() == service_state::running) {
        report(service_state::running, 1);
    } else {
        stop_and_report();
    }
}

std::uint32_t ServiceCtrlHandler(std::uint32_t control) {
    if (control != platform::service_control::stop) {
        return call_not_implemented;
    }
    stop_and_report();
    return 0;
}

bool RunUnderServiceManager() {
    return manager().run_dispatcher(tape_service_name, TapeServiceMain);
}
