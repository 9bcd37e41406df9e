#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// Where a datagram goes: IPv4, both numbers in the machine's own byte order.
struct datagram_endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    bool operator==(const datagram_endpoint&) const = default;
};

/// A UDP socket over IPv4, closed by its destructor. Used by one thread at a time.
class datagram_socket {
public:
    virtual ~datagram_socket() = default;

    /// Sends one datagram, without a look at what becomes of it. Doesn't block.
    virtual void send(const datagram_endpoint& to, std::string_view bytes) = 0;
};

/// The system's channel for debug text, and the datagrams that carry such text to a machine where somebody reads along. Callable
/// from any thread; reports no errors, for it is where they would go.
class debug_output {
public:
    virtual ~debug_output() = default;

    /// Hands the text over as it is.
    virtual void write(std::string_view text) = 0;
    /// Null when the system gives none.
    [[nodiscard]] virtual std::unique_ptr<datagram_socket> open_datagram_socket() = 0;
    /// The number of an IPv4 address in the system's usual notations; all ones for a text that is none.
    [[nodiscard]] virtual std::uint32_t parse_address(const std::string& text) = 0;
};

}  // namespace platform
