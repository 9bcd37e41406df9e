#pragma once

#include "platform/process.h"

namespace platform::testing {

/// A process as a test describes it. Set the fields before other threads ask.
class fake_process final : public process {
public:
    [[nodiscard]] std::u16string module_path() override { return path; }
    [[nodiscard]] module_version version_of(const std::u16string& module) override;
    [[nodiscard]] std::u16string comments_of(const std::u16string& module) override;
    [[nodiscard]] std::vector<std::u16string> command_line() override { return arguments; }
    [[nodiscard]] std::uint32_t process_id() override { return id; }
    [[nodiscard]] std::string os_description() override { return os; }
    [[nodiscard]] std::uint32_t current_thread_id() override;
    [[nodiscard]] std::uint32_t processor_count() override { return processors; }

    std::u16string path = u"C:\\Program Files\\Tarno\\TarnoTapeSvc.exe";
    module_version version{version_failure::none, (9U << 16) | 5U, (0U << 16) | 1536U};
    /// Set as the last error together with a failure in `version`. A module other than `path` fails at the first step with 2.
    std::uint32_t version_error = 0;
    std::u16string comments;
    std::vector<std::u16string> arguments{u"TarnoTapeSvc.exe"};
    std::uint32_t id = 4242;
    std::uint32_t processors = 2;
    std::string os = "Test System 1.0";
};

}  // namespace platform::testing
