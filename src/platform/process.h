#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// What can go wrong in reading a module's version resource, in order of the steps.
enum class version_failure : std::uint8_t { none, size_unknown, read_failed, not_found };

struct module_version {
    version_failure failure = version_failure::none;
    std::uint32_t high = 0;  ///< major and minor, 16 bits each
    std::uint32_t low = 0;   ///< build and revision, 16 bits each
};

/// The running process and the machine that it runs on. Callable from any thread.
class process {
public:
    virtual ~process() = default;

    /// Full path of the running executable.
    [[nodiscard]] virtual std::u16string module_path() = 0;
    /// Fixed file version of a module; the reason of a failure is also in the last error.
    [[nodiscard]] virtual module_version version_of(const std::u16string& module) = 0;
    /// The comment text of a module's version resource; empty when it has none.
    [[nodiscard]] virtual std::u16string comments_of(const std::u16string& module) = 0;
    /// The command line, element 0 being the program. Empty when the system can't give it.
    [[nodiscard]] virtual std::vector<std::u16string> command_line() = 0;
    [[nodiscard]] virtual std::uint32_t process_id() = 0;
    /// One line about the operating system, UTF-8.
    [[nodiscard]] virtual std::string os_description() = 0;
    /// Identity of the calling thread, unique among the live threads of the process and never 0.
    [[nodiscard]] virtual std::uint32_t current_thread_id() = 0;
    /// Processors that threads of this process can run on, 1 at least.
    [[nodiscard]] virtual std::uint32_t processor_count() = 0;
};

}  // namespace platform
