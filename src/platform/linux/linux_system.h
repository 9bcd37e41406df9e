#pragma once

#include <string>
#include <vector>

#include "platform/linux/clock.h"
#include "platform/linux/com_runtime.h"
#include "platform/linux/crash.h"
#include "platform/linux/debug_output.h"
#include "platform/linux/errors.h"
#include "platform/linux/events.h"
#include "platform/linux/files.h"
#include "platform/linux/linux_settings.h"
#include "platform/linux/process.h"
#include "platform/linux/registry.h"
#include "platform/linux/text_encoding.h"
#include "platform/linux/threads.h"
#include "platform/system.h"

namespace platform::linux_os {

inline constexpr const char* default_settings_file = "/etc/tarno-tape/settings.reg";
inline constexpr const char* default_state_folder = "/var/lib/tarno-tape";

/// Where the service finds its settings and keeps its state.
struct system_paths {
    std::string settings_file = default_settings_file;
    /// The command line named it, so that it must be there.
    bool settings_named = false;
    std::string state_folder = default_state_folder;
};

/// Reads the switches `-settings FILE` and `-state FOLDER`, found anywhere and in any case; without the latter the first folder of
/// `state_directory` counts, which is what systemd hands over in STATE_DIRECTORY (null: not set). Paths come out absolute. Throws
/// `std::runtime_error` when a switch lacks its value.
[[nodiscard]] system_paths read_paths(const std::vector<std::u16string>& command_line, const char* state_directory);

/// Makes the state folder when it is absent, for the owner alone, and sees that it can be written to. Throws `std::runtime_error`
/// with the reason.
void prepare_state_folder(const std::string& folder);

/// The platform on Linux: owns the parts that need nothing but the system itself. The others, `devices`,
/// `tape_functions`, `plug_and_play`, `accounts` and `rpc_runtime`, are put into `set()` by whoever makes them, before the set is
/// installed.
class linux_system {
public:
    /// Prepares the state folder and reads the settings. Throws `settings_error` and `std::runtime_error`, both with a text for
    /// the administrator.
    explicit linux_system(const system_paths& paths);
    linux_system(const linux_system&) = delete;
    linux_system& operator=(const linux_system&) = delete;

    [[nodiscard]] system_set& set() { return set_; }
    [[nodiscard]] linux_registry& registry() { return registry_; }
    [[nodiscard]] linux_crash& crash() { return crash_; }
    [[nodiscard]] const linux_settings& settings() const { return settings_; }
    [[nodiscard]] const system_paths& paths() const { return paths_; }

private:
    const system_paths paths_;
    linux_clock clock_;
    linux_errors errors_;
    linux_events events_;
    linux_threads threads_;
    linux_files files_;
    linux_process process_;
    linux_text_encoding text_encoding_;
    linux_com_runtime com_runtime_;
    linux_debug_output debug_output_;
    linux_registry registry_;
    const linux_settings settings_;
    system_set set_;
    linux_crash crash_;  ///< the last one: a crash needs the others
};

}  // namespace platform::linux_os
