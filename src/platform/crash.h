#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// Why a process ends by itself: the numbers of Windows' exceptions, on every system.
namespace crash_code {
inline constexpr std::uint32_t misaligned_access = 0x80000002;
inline constexpr std::uint32_t access_violation = 0xC0000005;
inline constexpr std::uint32_t in_page_error = 0xC0000006;
inline constexpr std::uint32_t illegal_instruction = 0xC000001D;
inline constexpr std::uint32_t float_divide_by_zero = 0xC000008E;
inline constexpr std::uint32_t float_invalid_operation = 0xC0000090;
inline constexpr std::uint32_t float_overflow = 0xC0000091;
inline constexpr std::uint32_t float_underflow = 0xC0000093;
inline constexpr std::uint32_t integer_divide_by_zero = 0xC0000094;
inline constexpr std::uint32_t integer_overflow = 0xC0000095;
inline constexpr std::uint32_t privileged_instruction = 0xC0000096;
inline constexpr std::uint32_t stack_overflow = 0xC00000FD;
inline constexpr std::uint32_t aborted = 0xC0000409;            ///< the process ended itself: something in it found it damaged
inline constexpr std::uint32_t unhandled_failure = 0x40000015;  ///< an exception that reached no handler
}  // namespace crash_code

/// Registers of a processor of the x86 family, under the names of its 32-bit form; on a 64-bit system with all their bits.
struct cpu_registers {
    std::uint64_t ax = 0, bx = 0, cx = 0, dx = 0, si = 0, di = 0, ip = 0, sp = 0, bp = 0;
    std::uint32_t flags = 0;
    std::uint16_t cs = 0, ss = 0, ds = 0, es = 0, fs = 0, gs = 0;  ///< 0 also where the system doesn't keep them
};

/// What happened to the thread that crashed. Valid only while the filter runs.
struct crash_record {
    std::uint32_t code = 0;                    ///< `crash_code`, or another number of the system's
    std::uint64_t address = 0;                 ///< of the instruction
    std::optional<cpu_registers> registers{};  ///< none on other processors
    const void* native = nullptr;              ///< the system's own record, for the operations below; null: there is none
};

/// Called on the crashed thread while the others go on. 1: the process is to end without a dialog of the system, 0: the system does
/// what it does with a crash.
using crash_filter = std::int32_t (*)(const crash_record& record);

/// Loaded code. `end` is the first address behind it.
struct loaded_module {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::u16string path;
    bool symbols_loaded = false;
    std::uint32_t symbols_error = 0;  ///< why there are none: a system error number
};

struct loaded_modules {
    /// Whether the symbols can tell why they lack something: those of old systems can't.
    bool tells_errors = true;
    std::vector<loaded_module> modules;
};

/// What is known of an address in code.
struct code_address {
    struct symbol_part {
        std::string name;
        std::int64_t displacement = 0;         ///< bytes from the symbol's start
        std::vector<std::string> undecorated;  ///< readable forms of the name, where it has them
    };
    struct line_part {
        std::string file;
        std::uint32_t number = 0;
        std::int32_t displacement = 0;  ///< bytes from the line's start
    };
    std::optional<std::string> module;  ///< its name without folders, UTF-8
    std::uint32_t symbol_type = 0;  ///< of the module: 0 none, 1 COFF, 2 CodeView, 3 PDB, 4 exports, 5 deferred, 6 SYM; or others
    std::optional<symbol_part> symbol;
    std::optional<line_part> line;
};

struct stack_frame {
    std::uint64_t frame = 0;
    std::uint64_t return_address = 0;           ///< 0 when nobody called
    std::array<std::uint64_t, 4> parameters{};  ///< the words where arguments on the stack lie, whether there are any or not
    std::uint64_t address = 0;                  ///< of the instruction
};

enum class minidump_step : std::uint8_t { load_library, find_function, create_file, write };
enum class recorder_step : std::uint8_t { create, write, reopen };

/// A recorder's file, which vanishes with this, or with the process.
class placed_recorder {
public:
    virtual ~placed_recorder() = default;
};

/// A recorder at work; letting it go doesn't end it. Operations return a system error number, 0 for success.
class running_recorder {
public:
    virtual ~running_recorder() = default;
    virtual std::uint32_t wait(std::uint32_t milliseconds, bool& finished) = 0;
    virtual std::uint32_t exit_code(std::uint32_t& code) = 0;
};

/// Holds other processes off; ends with its destruction, or with the process.
class dump_guard {
public:
    virtual ~dump_guard() = default;
};

/// What an operating system offers to a process that crashes. Operations return a system error number (errors.h), 0 for success.
/// Those behind `set_filter` are meant for the filter: they may take memory and locks, and may hang where the crash has damaged
/// these; an implementation sees to it that the process ends all the same.
class crash {
public:
    virtual ~crash() = default;

    /// Makes `filter` the process's own for crashes of any thread: null for none. `former` is the one before, null for none. When
    /// the filter has returned, the process ends. It isn't entered again by a crash within itself, nor by one of another thread
    /// meanwhile.
    virtual std::uint32_t set_filter(crash_filter filter, crash_filter& former) = 0;

    /// Major times 100 plus minor times 10 of the Windows that this is; 0 on any other system.
    [[nodiscard]] virtual std::uint32_t windows_version() = 0;

    [[nodiscard]] virtual loaded_modules modules() = 0;
    [[nodiscard]] virtual code_address describe(std::uint64_t address) = 0;
    /// The crashed thread's frames, innermost first, at most so many; the calling thread's for a record without a native part.
    [[nodiscard]] virtual std::vector<stack_frame> walk_stack(const crash_record& record, std::size_t limit) = 0;
    /// Waits until no other process writes a dump to this path. Null when that can't be had.
    [[nodiscard]] virtual std::unique_ptr<dump_guard> guard_dump(const std::u16string& path) = 0;

    /// Minidumps; 50 where a process can't write one. On failure `failed` is the step that did.
    virtual std::uint32_t load_minidump_writer(minidump_step& failed) = 0;
    /// Replaces the file. `record`: null for a dump without one. Wants the writer loaded.
    virtual std::uint32_t write_minidump(const std::u16string& path, std::uint32_t flags, const crash_record* record,
                                         minidump_step& failed) = 0;

    /// The dump recorder, a program that writes a minidump of another process; 50 where there is none.
    /// A handle of this process for processes that it starts. It stays open.
    virtual std::uint32_t inheritable_process(std::int64_t& handle) = 0;
    /// A text that no other call has given or will give, on any machine.
    [[nodiscard]] virtual std::u16string unique_text() = 0;
    /// Writes the program to a new file.
    virtual std::uint32_t place_recorder(const std::u16string& path, recorder_step& failed,
                                         std::unique_ptr<placed_recorder>& placed) = 0;
    virtual std::uint32_t start_recorder(const std::u16string& path, const std::u16string& command_line,
                                         std::unique_ptr<running_recorder>& started) = 0;
};

}  // namespace platform
