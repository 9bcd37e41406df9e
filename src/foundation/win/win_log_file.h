#pragma once

#include <memory>

#include "foundation/logging/log.h"
#include "foundation/text/conversion.h"
#include "platform/files.h"

namespace win {

/// A log in a file: what is there is kept, and others may read it meanwhile but not write.
class win_log_file_t final : public logging::receiver::log_file_t {
public:
    /// Makes the file when it is absent. Throws `exc::file_locked_exc_t` when another process holds it, and
    /// `exc::win_sys_exc_t` for every other failure.
    explicit win_log_file_t(const text::wide_string& path);

    /// One write to the file. A failure loses the text, silently: there is nowhere to report it.
    void write(const std::string& text) override;
    [[nodiscard]] const std::string& path() const override { return path_; }
    [[nodiscard]] const std::string& line_end() const override { return line_end_; }
    [[nodiscard]] std::uint64_t size() override;

private:
    std::string path_;
    std::string line_end_ = "\r\n";
    std::unique_ptr<platform::file> file_;
};

}  // namespace win
