#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/crash.h"

namespace platform::testing {

/// A process whose crashes a test makes. By default it is like a system that can write no minidump; `become_windows` gives it all
/// that there is.
class fake_crash final : public crash {
public:
    struct minidump {
        std::u16string path;
        std::uint32_t flags = 0;
        bool has_record = false;
    };
    struct recorder_start {
        std::u16string path;
        std::u16string command_line;
    };

    std::uint32_t set_filter(crash_filter filter, crash_filter& former) override;
    [[nodiscard]] std::uint32_t windows_version() override { return version; }
    [[nodiscard]] loaded_modules modules() override { return loaded; }
    [[nodiscard]] code_address describe(std::uint64_t address) override;
    [[nodiscard]] std::vector<stack_frame> walk_stack(const crash_record& record, std::size_t limit) override;
    [[nodiscard]] std::unique_ptr<dump_guard> guard_dump(const std::u16string& path) override;
    std::uint32_t load_minidump_writer(minidump_step& failed) override;
    std::uint32_t write_minidump(const std::u16string& path, std::uint32_t flags, const crash_record* record,
                                 minidump_step& failed) override;
    std::uint32_t inheritable_process(std::int64_t& handle) override;
    /// A count, from 1 on.
    [[nodiscard]] std::u16string unique_text() override;
    std::uint32_t place_recorder(const std::u16string& path, recorder_step& failed,
                                 std::unique_ptr<placed_recorder>& placed) override;
    std::uint32_t start_recorder(const std::u16string& path, const std::u16string& command_line,
                                 std::unique_ptr<running_recorder>& started) override;

    /// What a crash does: the present filter's answer.
    std::int32_t happen(const crash_record& record) const { return present(record); }
    void become_windows();

    crash_filter present = nullptr;
    std::uint32_t filter_error = 0;
    std::uint32_t version = 0;
    loaded_modules loaded;
    /// What each address is; others are unknown.
    std::vector<std::pair<std::uint64_t, code_address>> code;
    std::vector<stack_frame> frames;

    /// An error of a step; without one, and on a Windows, it succeeds.
    std::optional<std::pair<minidump_step, std::uint32_t>> minidump_failure{{minidump_step::load_library, 50}};
    std::uint32_t inherit_error = 50;
    std::optional<std::pair<recorder_step, std::uint32_t>> place_failure;
    std::uint32_t start_error = 0;
    std::uint32_t wait_error = 0;
    std::uint32_t exit_code_error = 0;
    std::uint32_t recorder_exit_code = 0;
    bool recorder_finishes = true;

    /// What was asked for.
    std::vector<std::u16string> guarded;
    std::vector<minidump> minidumps;
    std::vector<recorder_start> recorder_starts;
    std::vector<std::uint32_t> recorder_waits;
    std::vector<std::u16string> present_recorders;  ///< files of recorders that are there now
    bool guard_held = false;

private:
    char16_t texts_ = 0;
};

}  // namespace platform::testing
