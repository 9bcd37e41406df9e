#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "platform/debug_output.h"

namespace platform::testing {

/// Keeps what is written and sent. Of the notations of an address it knows the dotted one of four decimal numbers.
class fake_debug_output final : public debug_output {
public:
    void write(std::string_view text) override;
    [[nodiscard]] std::unique_ptr<datagram_socket> open_datagram_socket() override;
    [[nodiscard]] std::uint32_t parse_address(const std::string& text) override;

    [[nodiscard]] std::vector<std::string> texts() const;
    [[nodiscard]] std::vector<std::pair<datagram_endpoint, std::string>> datagrams() const;
    /// How often a socket was asked for.
    [[nodiscard]] int sockets_asked_for() const;
    void refuse_sockets(bool refuse);

private:
    class socket;

    mutable std::mutex mutex_;
    std::vector<std::string> texts_;
    std::vector<std::pair<datagram_endpoint, std::string>> datagrams_;
    int sockets_asked_for_ = 0;
    bool refuse_ = false;
};

}  // namespace platform::testing
