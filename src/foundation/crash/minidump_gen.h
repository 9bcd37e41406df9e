#pragma once

#include "foundation/crash/dump_gen_base.h"

namespace crash::win32 {

/// A minidump that the process writes of itself, in a file with the extension "mdmp".
class minidump_gen_t final : public dump_gen_base_t {
public:
    /// Loads the system's writer. Throws `exc::win_sys_exc_t` where there is none.
    minidump_gen_t();
    void generate(dump_mode mode, const text::wide_string& folder, const text::wide_string& name,
                  const platform::crash_record* exception) override;
};

}  // namespace crash::win32
