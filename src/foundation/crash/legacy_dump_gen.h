#pragma once

#include "foundation/crash/dump_gen_base.h"

namespace crash::win32 {

/// The textual dump, for systems on which a process can't write a minidump: what happened, the loaded modules, the registers and
/// the stack, in a file with the extension "log". It can be read by itself, and any system can make it.
class legacy_dump_gen_t final : public dump_gen_base_t {
public:
    /// Without an exception there is nothing to write. The mode makes no difference.
    void generate(dump_mode mode, const text::wide_string& folder, const text::wide_string& name,
                  const platform::crash_record* exception) override;
};

}  // namespace crash::win32
