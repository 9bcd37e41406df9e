#pragma once

#include <memory>

#include "foundation/crash/dump_gen_base.h"

namespace crash::win32 {

/// A minidump that another process, the recorder, writes of this one. It chooses the dump's name itself and doesn't count the dumps
/// that are there.
class COutOfProcDumpGen final : public dump_gen_base_t {
public:
    /// Puts the recorder's program into the temporary folder, from where it vanishes with this. Throws.
    COutOfProcDumpGen();
    void generate(dump_mode mode, const text::wide_string& folder, const text::wide_string& name,
                  const platform::crash_record* exception) override;

private:
    [[nodiscard]] text::wide_string command_line(std::uint32_t flags, const text::wide_string& folder,
                                                 const text::wide_string& name, const platform::crash_record* exception) const;
    void wait_for(platform::running_recorder& recorder) const;

    text::wide_string recorder_path_;
    std::int64_t process_ = 0;
    std::unique_ptr<platform::placed_recorder> recorder_file_;
};

}  // namespace crash::win32
