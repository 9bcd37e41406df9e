#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/crash.h"
#include "platform/linux/elf_symbols.h"

namespace platform::linux_os {

/// What a program wants to know of its crashes. Called on the crashed thread, in front of the filter.
struct crash_hooks {
    /// A signal's story, for the log: which one, and where it comes from.
    std::function<void(const std::string& sentence)> signalled;
    /// An exception that reached no handler; null for none, or for one that is no `std::exception`. The result is the exit code
    /// with which the process ends behind the filter; without one it is aborted.
    std::function<std::optional<int>(const std::exception* failure)> uncaught;
};

/// Crashes on Linux: SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGABRT, on stacks of their own, and `std::terminate`. Behind the filter
/// the process ends by the signal as if nobody had caught it, with a core dump where these are on. What crashes while a crash is
/// handled waits for the end, or is it; and a handling that hangs ends after `seconds_for_a_crash`.
///
/// There is neither a writer of minidumps nor a recorder here: the system's own core dumps are better than both.
class linux_crash final : public crash {
public:
    static constexpr unsigned seconds_for_a_crash = 30;

    /// From now on exceptions that reach no handler come here; signals do with the first filter. One at a time.
    linux_crash();
    /// Leaves the process as it was before.
    ~linux_crash() override;
    linux_crash(const linux_crash&) = delete;
    linux_crash& operator=(const linux_crash&) = delete;

    /// While there are no other threads.
    void set_hooks(crash_hooks hooks);

    std::uint32_t set_filter(crash_filter filter, crash_filter& former) override;
    [[nodiscard]] std::uint32_t windows_version() override { return 0; }
    [[nodiscard]] loaded_modules modules() override;
    [[nodiscard]] code_address describe(std::uint64_t address) override;
    [[nodiscard]] std::vector<stack_frame> walk_stack(const crash_record& record, std::size_t limit) override;
    [[nodiscard]] std::unique_ptr<dump_guard> guard_dump(const std::u16string& path) override;
    std::uint32_t load_minidump_writer(minidump_step& failed) override;
    std::uint32_t write_minidump(const std::u16string& path, std::uint32_t flags, const crash_record* record,
                                 minidump_step& failed) override;
    std::uint32_t inheritable_process(std::int64_t& handle) override;
    [[nodiscard]] std::u16string unique_text() override;
    std::uint32_t place_recorder(const std::u16string& path, recorder_step& failed,
                                 std::unique_ptr<placed_recorder>& placed) override;
    std::uint32_t start_recorder(const std::u16string& path, const std::u16string& command_line,
                                 std::unique_ptr<running_recorder>& started) override;

private:
    std::unique_ptr<const elf_symbols> program_;  ///< null until it is needed
};

}  // namespace platform::linux_os
