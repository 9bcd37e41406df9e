#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace platform {

/// Status numbers of the RPC runtime that the server tells apart.
namespace rpc_status {
inline constexpr std::uint32_t ok = 0;
inline constexpr std::uint32_t type_already_registered = 1712;
inline constexpr std::uint32_t already_listening = 1713;
inline constexpr std::uint32_t server_too_busy = 1723;
inline constexpr std::uint32_t no_call_active = 1725;
inline constexpr std::uint32_t cannot_support = 1764;
inline constexpr std::uint32_t duplicate_endpoint = 1740;
inline constexpr std::uint32_t procedure_out_of_range = 1745;
inline constexpr std::uint32_t binding_has_no_auth = 1746;
inline constexpr std::uint32_t unknown_authn_service = 1747;
inline constexpr std::uint32_t bad_stub_data = 1783;
}  // namespace rpc_status

/// Authentication services (MS-RPCE 2.2.1.1.7).
namespace rpc_authn {
inline constexpr std::uint32_t negotiate = 9;
inline constexpr std::uint32_t ntlm = 10;
inline constexpr std::uint32_t kerberos = 16;
}  // namespace rpc_authn

/// One call as it came: the stub data of all fragments, decrypted and verified.
struct rpc_request {
    std::uint16_t operation = 0;
    std::span<const std::uint8_t> stub;  ///< starts at an address aligned to 8
    bool little_endian = true;           ///< byte order of the numbers and UTF-16 units in `stub`
};

/// Takes the stub data of the answer, always little-endian.
class rpc_reply {
public:
    virtual ~rpc_reply() = default;
    /// A buffer of the answer's final size, aligned to 8, valid until the dispatch function returns. Its bytes have any value:
    /// each has to be written, padding included. Called at most once for a call.
    [[nodiscard]] virtual std::span<std::uint8_t> allocate(std::size_t size) = 0;
};

/// Serves one call on the calling thread: 0 with the reply filled, or a status that goes to the client as a fault. Must not
/// throw, may block, runs on many threads at once.
using rpc_dispatch = std::function<std::uint32_t(const rpc_request& request, rpc_reply& reply)>;

/// Whether serving a call may wait: for a device, a lock that is held over such waiting, another machine. Must not throw or wait
/// itself; the request needn't be a correct one. A runtime may serve a call that can't wait on a thread that others wait for.
using rpc_wait_question = std::function<bool(const rpc_request& request)>;

struct rpc_interface {
    std::array<std::uint8_t, 16> uuid{};  ///< in the text's byte order (RFC 4122), not the wire's
    std::uint16_t major_version = 0;
    std::uint16_t minor_version = 0;
    std::uint16_t operations = 0;  ///< operation numbers below this reach `dispatch`; others get a fault from the runtime
    rpc_dispatch dispatch;
    rpc_wait_question may_wait{};  ///< empty: every call may
};

/// The connection-oriented DCE/RPC runtime (C706, MS-RPCE). Endpoints, interfaces and authentication records are set up
/// on one thread before listening; afterwards the runtime's own threads call the dispatch functions. All operations return
/// an RPC or system status, 0 for success.
class rpc_runtime {
public:
    virtual ~rpc_runtime() = default;

    /// Binds an endpoint: protocol sequence "ncacn_ip_tcp", the port as decimal text. 1740: it is taken by somebody else.
    virtual std::uint32_t use_endpoint(const std::string& protocol_sequence, std::uint32_t max_requests,
                                       const std::string& endpoint) = 0;
    virtual std::uint32_t use_all_protocol_sequences(std::uint32_t max_requests) = 0;

    /// Offers an interface. The record is copied. 1712: it is registered already.
    virtual std::uint32_t register_interface(const rpc_interface& offered, std::uint32_t flags, std::uint32_t max_calls,
                                             std::uint32_t max_request_size) = 0;

    /// Enters the interface with all bound endpoints in the endpoint mapper, under the annotation.
    virtual std::uint32_t register_in_endpoint_mapper(const rpc_interface& offered, const std::u16string& annotation) = 0;
    /// Whether the bound endpoints can be enumerated: the step before the endpoint mapper.
    virtual std::uint32_t inquire_bindings() = 0;

    virtual std::uint32_t register_authentication(const std::u16string& principal, std::uint32_t service) = 0;

    /// Starts to take calls and returns at once. `min_threads` and `max_calls` bound the pool. 1713: it listens already.
    virtual std::uint32_t listen(std::uint32_t min_threads, std::uint32_t max_calls) = 0;
    /// Takes no new calls from now on and returns at once; calls in progress run on.
    virtual std::uint32_t stop_listening() = 0;

    /// Fully qualified DNS name of the computer.
    virtual std::uint32_t computer_name(std::u16string& name) = 0;
    /// Service principal name of a service class on a computer: "class/computer".
    virtual std::uint32_t make_principal_name(const std::u16string& service_class, const std::u16string& computer,
                                              std::u16string& principal) = 0;
};

}  // namespace platform
