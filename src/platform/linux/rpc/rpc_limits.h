#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace platform::linux_rpc {

/// What a peer may cost this machine. Each limit says how its excess is answered.
struct rpc_limits {
    /// Longest fragment announced to and taken from a peer, 1432 to 65535. A longer one: the connection is closed. 5840 is
    /// what the usual clients announce themselves.
    std::uint16_t fragment_bytes = 5840;
    /// The same for bind, alter_context and auth3 with a token of authentication in them: a Kerberos ticket lists the groups of
    /// its owner, and none of these is ever sent in pieces.
    std::uint16_t token_fragment_bytes = 65535;
    /// Stub bytes of one request from a peer that has not proved who it is. More: fault 5, and the connection is closed.
    std::size_t unauthenticated_request_bytes = std::size_t{64} * 1024;
    /// The same for the others.
    std::size_t request_bytes = std::size_t{64} * 1024 * 1024;
    /// Stub bytes of all requests on their way in together. More: fault 0x1C00001B, and the connection is closed.
    std::size_t pending_request_bytes = std::size_t{256} * 1024 * 1024;
    /// Presentation contexts of one connection. More: rejected with "local limit exceeded".
    std::size_t contexts = 64;
    /// Authentications of one connection. More: refused like a wrong one.
    std::size_t authentications = 8;
    /// Connections at a time, in total and from one address (the local socket counts for the total only). One more is
    /// accepted and closed at once. One console may have as many calls in progress as the server takes at all. In total there
    /// are fewer when the process may not open so many files: `connections_within`.
    std::size_t connections = 2048;
    std::size_t connections_per_address = 1536;

    /// Calls in progress at a time, never more than the program allows when it begins to listen. One more is answered with fault
    /// 0x1C010014, which says that it wasn't executed.
    std::size_t calls = 1234;
    /// Of one connection whose client has agreed to multiplex: calls in progress, and likewise requests that are incomplete. While
    /// there are so many calls no more is read; one more incomplete request: fault 0x1C010014, and the connection is closed.
    std::size_t multiplexed_calls = 64;

    /// From the connection to the end of bind and authentication; the same for each further authentication. Late: closed.
    std::chrono::milliseconds bind_time{30'000};
    /// Between two arrivals while a fragment or a request is incomplete. Late: closed.
    std::chrono::milliseconds fragment_time{60'000};
    /// Between two requests. Late: closed.
    std::chrono::milliseconds idle_time{2 * 3600 * 1000};
    /// Without the peer taking one more byte of an answer. Late: closed.
    std::chrono::milliseconds write_time{60'000};
    /// How long a connection that is being closed waits for the peer to have read the last answer.
    std::chrono::milliseconds linger_time{2'000};
    /// How long a call thread above the minimum waits for work before it ends.
    std::chrono::milliseconds thread_idle_time{30'000};
};

/// How many of `wanted` connections a process takes that may open `descriptors` files: those that serve the calls need some, too.
[[nodiscard]] constexpr std::size_t connections_within(std::size_t wanted, std::size_t descriptors) {
    constexpr std::size_t reserved = 256;
    return std::min(wanted, descriptors >= 2 * reserved ? descriptors - reserved : descriptors / 2);
}

}  // namespace platform::linux_rpc
