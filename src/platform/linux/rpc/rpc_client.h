#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/linux/rpc/client_security.h"
#include "platform/linux/rpc/pdu.h"

namespace platform::linux_rpc {

/// What went wrong with a remote call.
class rpc_client_error : public std::runtime_error {
public:
    enum class kind : std::uint8_t {
        connect_failed,  ///< nobody there; `status()` is the errno, 0 when the name is unknown
        rejected,        ///< the server refused the bind, the interface or the authentication; `status()` is its reason
        unable,          ///< this side can't prove who calls, for lack of a ticket perhaps; the server wasn't asked
        fault,           ///< the server answered the call with a fault; `status()` says which
        lost,            ///< the connection ended, or what came over it makes no sense
        timed_out        ///< the call's time is over; the connection can't be used any more
    };
    rpc_client_error(kind what_kind, std::uint32_t status, const std::string& text)
        : std::runtime_error(text), kind_(what_kind), status_(status) {}
    [[nodiscard]] kind what_kind() const { return kind_; }
    [[nodiscard]] std::uint32_t status() const { return status_; }

private:
    kind kind_;
    std::uint32_t status_;
};

/// A connection to a DCE/RPC server: one call at a time, on the calling thread. Failures are `rpc_client_error`s. After one
/// that isn't a fault the object is good for nothing but its destruction. Not for use by two threads at once.
class rpc_client {
public:
    using duration = std::chrono::milliseconds;

    static rpc_client connect_local(const std::string& path, duration time_out);
    /// `host`: name or numeric address; the addresses of a name are tried in turn.
    static rpc_client connect_tcp(const std::string& host, std::uint16_t port, duration time_out);
    ~rpc_client();
    rpc_client(rpc_client&& other) noexcept;
    rpc_client& operator=(rpc_client&&) = delete;
    rpc_client(const rpc_client&) = delete;

    /// Binds to an interface, once, before the first call; proves who calls when `security` is given. A server may let a
    /// refusal show only with the next call, as fault 5.
    void bind(const syntax_id& interface, duration time_out, std::unique_ptr<client_security> security = nullptr,
              auth_level level = auth_level::none);

    /// Calls an operation with its stub data (little-endian NDR) and returns that of the answer.
    std::vector<std::uint8_t> call(std::uint16_t operation, std::span<const std::uint8_t> stub, duration time_out);

private:
    using deadline_type = std::chrono::steady_clock::time_point;
    struct received_pdu {
        pdu_header header;
        std::vector<std::uint8_t> bytes;
    };

    explicit rpc_client(int socket) : socket_(socket) {}
    void send(std::span<const std::uint8_t> bytes, deadline_type deadline);
    void receive(std::span<std::uint8_t> bytes, deadline_type deadline);
    received_pdu receive_pdu(deadline_type deadline);
    void take_ack(const received_pdu& pdu);
    /// Throws when the authentication has failed here, or goes on with a token that no PDU holds.
    void check_security(std::span<const std::uint8_t> token) const;
    void authenticate(const received_pdu& ack, const bind_body& body, deadline_type deadline);
    void send_request(std::uint16_t operation, std::span<const std::uint8_t> stub, deadline_type deadline);
    void protect(std::vector<std::uint8_t>& pdu, std::size_t stub_size);
    void take_response(received_pdu& pdu, std::vector<std::uint8_t>& stub);

    int socket_ = -1;
    std::uint32_t call_id_ = 1;
    std::size_t max_transmit_ = 0;
    std::unique_ptr<client_security> security_;
    auth_level level_ = auth_level::none;
};

}  // namespace platform::linux_rpc
