#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/wire.h"

namespace bench {

/// A blocking connection, closed with the object.
class client_socket {
public:
    explicit client_socket(std::uint16_t port);
    ~client_socket();
    client_socket(client_socket&& other) noexcept;
    client_socket(const client_socket&) = delete;
    client_socket& operator=(const client_socket&) = delete;
    client_socket& operator=(client_socket&&) = delete;

    void send(std::span<const std::uint8_t> bytes) const;
    void receive(std::span<std::uint8_t> bytes) const;
    /// Receives so many bytes into as large a block as there is.
    void receive(std::size_t count, std::span<std::uint8_t> block) const;

private:
    int socket_;
};

/// One answered question over and over: the bytes to send, and how many come back.
struct exchange {
    std::vector<std::uint8_t> request;
    std::size_t answer = 0;
};

/// Who calls, for NTLM at level connect.
struct caller {
    std::string name;
    std::string password;
};

/// A connection bound to an interface; `who` is null for nobody.
[[nodiscard]] client_socket bind_to(std::uint16_t port, const platform::linux_rpc::syntax_id& interface, const caller* who);

/// A request with this stub data, in fragments as long as the server takes.
[[nodiscard]] std::vector<std::uint8_t> request_pdus(std::uint16_t operation, std::span<const std::uint8_t> stub);

/// Calls once and returns all of the answer as it came. Fails unless it is a response.
[[nodiscard]] std::vector<std::uint8_t> call_once(const client_socket& connection, std::span<const std::uint8_t> request);

struct load_result {
    double per_second = 0;
    double p99_us = 0;
};

/// Exchanges on all connections at once for some time, one blocking thread each.
[[nodiscard]] load_result run_load(const std::vector<client_socket>& connections, const exchange& what,
                                   std::chrono::milliseconds time);

}  // namespace bench
