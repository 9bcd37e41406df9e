#pragma once

#include <memory>
#include <string>

#include "foundation/logging/log.h"
#include "platform/debug_output.h"

namespace logging::receiver {

/// The log on the system's channel for debug text and, where an administrator turned that on, as datagrams to a machine where
/// somebody reads along. Made before the program's entry, so it takes nothing of the system until the first write; without a
/// system its texts are lost.
class COutputDebugStringLog final : public log_file_t {
public:
    /// The first write opens the socket and reads the settings; it throws `exc::win_sys_exc_t` when their key can't be opened. The
    /// text has reached the debug channel by then, and further writes go there alone.
    void write(const std::string& text) override;
    [[nodiscard]] const std::string& path() const override { return path_; }
    [[nodiscard]] const std::string& line_end() const override { return line_end_; }
    [[nodiscard]] std::uint64_t size() override { return 0; }

private:
    void load_settings(platform::debug_output& output);

    const std::string path_;
    const std::string line_end_ = "\n";
    bool enabled_ = false;
    platform::datagram_endpoint endpoint_{0x7F000001, 37183};
    std::unique_ptr<platform::datagram_socket> socket_;
};

}  // namespace logging::receiver
