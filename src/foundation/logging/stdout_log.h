#pragma once

#include "foundation/logging/log.h"

namespace logging::receiver {

/// The log on standard output, between two lines of slashes.
class stdout_log_file_t final : public log_file_t {
public:
    stdout_log_file_t();
    ~stdout_log_file_t() override;
    stdout_log_file_t(const stdout_log_file_t&) = delete;
    stdout_log_file_t& operator=(const stdout_log_file_t&) = delete;

    void write(const std::string& text) override;
    [[nodiscard]] const std::string& path() const override { return path_; }
    [[nodiscard]] const std::string& line_end() const override { return line_end_; }
    [[nodiscard]] std::uint64_t size() override { return 0; }

private:
    void write_border();

    std::string path_;
    std::string line_end_ = "\n";
};

}  // namespace logging::receiver
