#pragma once

#include <string>
#include <vector>

#include "foundation/logging/log.h"

/// Keeps each write as it came.
class recording_receiver final : public logging::receiver::log_file_t {
public:
    explicit recording_receiver(std::string line_end = "\r\n") : line_end_(std::move(line_end)) {}

    void write(const std::string& text) override { writes.push_back(text); }
    const std::string& path() const override { return path_; }
    const std::string& line_end() const override { return line_end_; }
    std::uint64_t size() override { return 0; }

    std::vector<std::string> writes;

private:
    std::string path_ = "recorded.log";
    std::string line_end_;
};
