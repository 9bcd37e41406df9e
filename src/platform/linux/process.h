#pragma once

#include <string>

#include "platform/process.h"

namespace platform::linux_os {

/// The running process, as /proc tells it. A program has no version resource here: its own version is compiled in, and any other
/// module has none (1812, or 2 when there is no such file).
class linux_process final : public process {
public:
    /// `etc` and `usr_lib` are the folders in which the distribution's os-release file is looked for, in this order.
    explicit linux_process(std::string etc = "/etc", std::string usr_lib = "/usr/lib");

    [[nodiscard]] std::u16string module_path() override;
    [[nodiscard]] module_version version_of(const std::u16string& module) override;
    [[nodiscard]] std::u16string comments_of(const std::u16string& module) override;
    [[nodiscard]] std::vector<std::u16string> command_line() override;
    [[nodiscard]] std::uint32_t process_id() override;
    [[nodiscard]] std::string os_description() override;
    [[nodiscard]] std::uint32_t current_thread_id() override;
    [[nodiscard]] std::uint32_t processor_count() override;

private:
    const std::string etc_;
    const std::string usr_lib_;
};

}  // namespace platform::linux_os
