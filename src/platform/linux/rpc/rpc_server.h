#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/rpc/rpc_limits.h"
#include "platform/linux/rpc/security_context.h"
#include "platform/linux/rpc/server_core.h"
#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

struct rpc_server_options {
    std::string listen_address;              ///< numeric address of the TCP endpoints; empty: all addresses of the machine
    std::string local_socket;                ///< path of the Unix-domain socket; empty: none
    mode_t local_socket_mode = 0666;         ///< who may connect to it; who may do anything is another question
    std::uint16_t endpoint_mapper_port = 0;  ///< another TCP port, 135 as a rule, for clients that ask it for the endpoint; 0: none
    std::size_t network_threads = 1;
    rpc_limits limits;
    event_sink on_event;  ///< may be empty
};

/// The DCE/RPC server of Linux. TCP endpoints listen from `use_endpoint` on, so that nobody else gets the port, but are
/// served from `listen` on; the local socket opens with `listen`. The endpoint mapper and the management interface are
/// answered on every endpoint.
class rpc_server final : public rpc_runtime {
public:
    explicit rpc_server(rpc_server_options options);
    /// Stops listening and waits for the calls in progress.
    ~rpc_server() override;
    rpc_server(const rpc_server&) = delete;
    rpc_server& operator=(const rpc_server&) = delete;

    /// Adds a kind of authentication, before listening. It is offered once an authentication record asks for it.
    void add_security_provider(std::shared_ptr<security_provider> provider);

    std::uint32_t use_endpoint(const std::string& protocol_sequence, std::uint32_t max_requests,
                               const std::string& endpoint) override;
    std::uint32_t use_all_protocol_sequences(std::uint32_t max_requests) override;
    std::uint32_t register_interface(const rpc_interface& offered, std::uint32_t flags, std::uint32_t max_calls,
                                     std::uint32_t max_request_size) override;
    std::uint32_t register_in_endpoint_mapper(const rpc_interface& offered, const std::u16string& annotation) override;
    std::uint32_t inquire_bindings() override;
    std::uint32_t register_authentication(const std::u16string& principal, std::uint32_t service) override;
    /// A local socket or an endpoint mapper's port that can't be had is reported as an event and doesn't fail the start.
    std::uint32_t listen(std::uint32_t min_threads, std::uint32_t max_calls) override;
    /// Closes the endpoints, the file of the local socket included, and forgets them. Connections end at once, or when the
    /// call that they wait for has been answered.
    std::uint32_t stop_listening() override;
    std::uint32_t computer_name(std::u16string& name) override;
    std::uint32_t make_principal_name(const std::u16string& service_class, const std::u16string& computer,
                                      std::u16string& principal) override;

    /// Whether no call is being served. After `stop_listening` it stays so.
    [[nodiscard]] bool at_rest() const;
    /// Port of the first TCP endpoint, 0 without one.
    [[nodiscard]] std::uint16_t tcp_port() const;
    /// What became of the local socket at the last `listen`: 0, or why it couldn't be had.
    [[nodiscard]] std::uint32_t local_socket_status() const;

private:
    struct state;
    std::unique_ptr<state> state_;
};

}  // namespace platform::linux_rpc
