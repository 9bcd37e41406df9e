#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/device_stack/changer_database.h"
#include "platform/device_stack/io_manager.h"
#include "platform/device_stack/tape_drives.h"
#include "platform/linux/linux_system.h"
#include "platform/linux/rpc/linux_accounts.h"
#include "platform/linux/rpc/rpc_server.h"
#include "platform/service_manager.h"
#include "platform/virtual_library/virtual_library_source.h"

namespace tape_server {

/// The whole platform on Linux, put together by the settings and installed: devices, callers and the RPC runtime on top of what
/// the system itself gives.
class assembled_system {
public:
    /// Throws `settings_error` and `std::runtime_error` with a text for the administrator.
    explicit assembled_system(const platform::linux_os::system_paths& paths);
    assembled_system(const assembled_system&) = delete;
    assembled_system& operator=(const assembled_system&) = delete;

    /// Lets the process run under a manager, which lives at least as long as this.
    void serve_under(platform::service_manager& manager);

    /// Has a look at the settings file now, so that an edit that can't be used, now or at the next start, is told at once. Throws
    /// nothing.
    void reload();

    /// What the administrator should know of the start: sentences for the log.
    [[nodiscard]] const std::vector<std::string>& warnings() const { return warnings_; }

    /// Whom to tell of a crash, from now to the end.
    void set_crash_hooks(platform::linux_os::crash_hooks hooks) { base_.crash().set_hooks(std::move(hooks)); }

    /// Whether no call is being served, so that the whole can be taken apart without waiting for anybody.
    [[nodiscard]] bool at_rest() const { return rpc_->at_rest(); }

private:
    void watch_settings();
    void add_devices();
    void add_rpc();
    void note_missing_settings();

    platform::linux_os::linux_system base_;
    std::vector<std::string> warnings_;
    bool starting_ = true;
    std::unique_ptr<platform::device_stack::io_manager> devices_;
    std::unique_ptr<platform::device_stack::tape_drives> tapes_;
    std::unique_ptr<platform::device_stack::changer_database> changers_;
    std::unique_ptr<platform::linux_rpc::linux_accounts> accounts_;
    std::unique_ptr<platform::linux_rpc::rpc_server> rpc_;
};

}  // namespace tape_server
