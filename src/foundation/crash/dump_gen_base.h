#pragma once

#include <cstdint>

#include "foundation/text/conversion.h"
#include "platform/crash.h"

namespace crash {

/// How much a minidump is to hold.
enum class dump_mode : std::uint8_t {
    by_settings = 0,
    normal = 1,
    full = 2  ///< all of the process's memory
};

/// The flags of a minidump: the options `MiniDumpModeMask`, where it isn't 0, else `MiniDumpModeType`, unless the mode is one of
/// its own.
[[nodiscard]] std::uint32_t minidump_flags(dump_mode mode);

}  // namespace crash

namespace crash::win32 {

/// Leaves a record of a crash in a folder. Made when the process has crashed, never earlier.
class dump_gen_base_t {
public:
    virtual ~dump_gen_base_t() = default;
    /// `name` is what the dumps' names begin with; `exception` is null when nothing is known of a crash. Throws.
    virtual void generate(dump_mode mode, const text::wide_string& folder, const text::wide_string& name,
                          const platform::crash_record* exception) = 0;
};

}  // namespace crash::win32
