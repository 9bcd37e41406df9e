#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "command/svc_context.h"
#include "foundation/util/command_line.h"
#include "platform/rpc_runtime.h"

inline constexpr std::uint32_t default_rpc_port = 6166;

/// Where the server listens.
struct RpcServerSettings {
    bool usePort = true;
    std::uint32_t port = default_rpc_port;
    bool useSecondPort = false;
    std::uint32_t secondPort = 0xFFFFFFFF;
};

/// The settings from the registry's "Port", else from the switch `-port`, else the default. A port above 65535 is skipped, with
/// a line in the log. Other failures throw.
[[nodiscard]] RpcServerSettings LoadRpcServerSettings(const std::u16string& key_path, const util::command_line_t& command_line);

/// An interface that the server offers, with its name in the endpoint mapper.
struct CRpcInterfaceEntry {
    std::u16string annotation;
    platform::rpc_interface offered;
};

/// Sets the RPC runtime up. Lives for the length of a start: what lasts is held by the runtime. All failures are exceptions.
class CRpcServer {
public:
    CRpcServer(const RpcServerSettings& settings, std::vector<CRpcInterfaceEntry> interfaces, std::u16string service_class);

    /// Endpoints, authentication records, interfaces, endpoint mapper, then listening; returns as soon as calls are taken.
    void StartListening();

private:
    void register_endpoints();
    [[nodiscard]] bool register_port(std::uint32_t port);
    void register_authentication();
    [[nodiscard]] bool register_provider(const std::u16string& principal, std::uint32_t service, const char* name);
    [[nodiscard]] std::u16string make_service_principal();
    void register_interfaces();
    void register_in_endpoint_mapper();
    void listen();

    RpcServerSettings settings_;
    std::vector<CRpcInterfaceEntry> interfaces_;
    std::u16string service_class_;
};

/// Publishes the context for the calls and starts to serve them.
void StartRpcServer(const RpcServerSettings& settings, const boost::shared_ptr<ctx::CSvcContext>& context);

/// Takes no more calls; those in progress run on.
void StopRpcServer();
