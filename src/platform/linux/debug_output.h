#pragma once

#include "platform/debug_output.h"

namespace platform::linux_os {

/// Debug text goes to the system log (the journal) at the level "debug", a message a line.
class linux_debug_output final : public debug_output {
public:
    void write(std::string_view text) override;
    [[nodiscard]] std::unique_ptr<datagram_socket> open_datagram_socket() override;
    [[nodiscard]] std::uint32_t parse_address(const std::string& text) override;
};

}  // namespace platform::linux_os
