#include "host/rpc_server.h"

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/text/conversion.h"
#include "foundation/win/win_reg_key.h"
#include "host/invoker_interface.h"
#include "platform/clock.h"
#include "platform/system.h"

namespace {

constexpr std::uint32_t port_limit = 65536;
constexpr int endpoint_attempts = 5;
constexpr std::int64_t endpoint_pause_ms = 1000;
constexpr std::uint32_t endpoint_backlog = 10;  ///< RPC_C_PROTSEQ_MAX_REQS_DEFAULT
constexpr std::uint32_t min_call_threads = 2;
constexpr std::uint32_t max_calls = 1234;  ///< RPC_C_LISTEN_MAX_CALLS_DEFAULT
constexpr std::uint32_t unlimited_request_size = 0xFFFFFFFF;

constexpr char16_t service_class_name[] = u"TarnoTapeSvc";
constexpr char16_t interface_annotation[] = u"Tarno Invoker";

platform::rpc_runtime& runtime() {
    return *platform::system().rpc_runtime;
}

bool read_port_from_registry(const std::u16string& key_path, std::uint32_t& port) {
    const win::reg_key_ptr key = win::open_reg_key(key_path, platform::registry_access::read);
    std::uint32_t value = 0;
    if (!key || !key->try_get_dword(u"Port", value)) {
        return false;
    }
    if (value >= port_limit) {
        g_libraryLog.LogInfo("Invalid port value was read from registry, setting '%1' is skipped.", text::to_string(value));
        return false;
    }
    g_libraryLog.LogInfo("Port settings were read from registry. Port: '%1'.", text::to_string(value));
    port = value;
    return true;
}

void read_port_from_command_line(const util::command_line_t& command_line, std::uint32_t& port) {
    const std::optional<std::u16string> word = util::find_switch_value(command_line, u"-port");
    if (!word) {
        return;
    }
    const std::int32_t value = text::to_int(text::wide_to_utf8(*word));
    if (static_cast<std::uint32_t>(value) >= port_limit) {
        g_libraryLog.LogInfo("Invalid port value was read from command line, setting '%1' is skipped.", text::to_string(value));
        return;
    }
    g_libraryLog.LogInfo("Port settings were obtained from command line. Port: '%1'.", text::to_string(value));
    port = static_cast<std::uint32_t>(value);
}

}  // namespace

RpcServerSettings LoadRpcServerSettings(const std::u16string& key_path, const util::command_line_t& command_line) {
    try {
        RpcServerSettings settings;
        if (!read_port_from_registry(key_path, settings.port)) {
            read_port_from_command_line(command_line, settings.port);
        }
        return settings;
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to initialize RPC server settings. Key name: [%1].", text::wide_to_utf8(key_path), e);
    }
}

CRpcServer::CRpcServer(const RpcServerSettings& settings, std::vector<CRpcInterfaceEntry> interfaces, std::u16string service_class)
    : settings_(settings), interfaces_(std::move(interfaces)), service_class_(std::move(service_class)) {}

void CRpcServer::StartListening() {
    logging::log_scope_t scope(g_rpcLog, "Starting RPC listening.");
    try {
        register_endpoints();
        register_authentication();
        register_interfaces();
        register_in_endpoint_mapper();
        listen();
        scope.ok("RPC server is initialized.");
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to start RPC listening.", e);
    }
}

void CRpcServer::register_endpoints() {
    if (settings_.usePort) {
        bool registered = register_port(settings_.port);
        if (settings_.useSecondPort) {
            registered = register_port(settings_.secondPort) || registered;
        }
        if (!registered) {
            throw exc::runtime_exc_t("Failed to register TCP/IP RPC endpoint.");
        }
        return;
    }
    const std::uint32_t status = runtime().use_all_protocol_sequences(endpoint_backlog);
    if (status != platform::rpc_status::ok) {
        throw exc::win_sys_exc_t("Failed to register RPC protocol sequences enabled for receiving remote calls.", status);
    }
}

/// The port of a server that has just ended can stay taken for some seconds, so a taken port is tried again.
bool CRpcServer::register_port(std::uint32_t port) {
    const std::string port_text = text::to_string(port);
    g_rpcLog.LogInfo("Specified port for listening: [%1].", port_text);
    std::uint32_t status = platform::rpc_status::ok;
    for (int attempt = 1; attempt <= endpoint_attempts; ++attempt) {
        status = runtime().use_endpoint("ncacn_ip_tcp", endpoint_backlog, port_text);
        if (status != platform::rpc_status::duplicate_endpoint) {
            break;
        }
        if (attempt == 1) {
            g_rpcLog.LogWarning("Waiting for endpoint to be released");
        }
        if (attempt < endpoint_attempts) {
            platform::system().clock->sleep(endpoint_pause_ms);
        }
    }
    if (status == platform::rpc_status::ok) {
        return true;
    }
    g_libraryLog.LogWarning(exc::win_sys_exc_t("Failed to register TCP/IP RPC endpoint. Port: [%1].", port_text, status));
    return false;
}

/// Negotiate covers the other two; they are fallbacks. A server without any record starts all the same, and its client check
/// then lets nobody in.
void CRpcServer::register_authentication() {
    const std::u16string principal = make_service_principal();
    if (!register_provider(principal, platform::rpc_authn::negotiate, "Negotiate")) {
        static_cast<void>(register_provider(principal, platform::rpc_authn::ntlm, "WinNT"));
        static_cast<void>(register_provider(principal, platform::rpc_authn::kerberos, "Kerberos"));
    }
    g_rpcLog.LogInfo("RPC authentication records were initialized.");
}

bool CRpcServer::register_provider(const std::u16string& principal, std::uint32_t service, const char* name) {
    const std::uint32_t status = runtime().register_authentication(principal, service);
    if (status == platform::rpc_status::ok) {
        return true;
    }
    g_rpcLog.LogWarning(text::format_message("Unable to register service authentication records with %1 security provider.", name),
                        exc::win_sys_exc_t(status));
    return false;
}

std::u16string CRpcServer::make_service_principal() {
    std::u16string computer;
    const std::uint32_t name_status = runtime().computer_name(computer);
    if (name_status != platform::rpc_status::ok) {
        throw exc::win_sys_exc_t("Failed to retrieve fully qualified computer name (FQDN).", name_status);
    }
    const std::string computer_text = text::wide_to_utf8(computer);
    g_rpcLog.LogInfo("FQDN of the computer: [%1].", computer_text);
    std::u16string principal;
    const std::uint32_t status = runtime().make_principal_name(service_class_, computer, principal);
    if (status != platform::rpc_status::ok) {
        throw exc::win_sys_exc_t(
            "Failed to construct a service principal name (SPN) that identifies a service instance. Computer FQDN: [%1].",
            computer_text, status);
    }
    g_rpcLog.LogInfo("Service SPN: [%1]", text::wide_to_utf8(principal));
    return principal;
}

void CRpcServer::register_interfaces() {
    try {
        for (const CRpcInterfaceEntry& entry : interfaces_) {
            const std::uint32_t status = runtime().register_interface(entry.offered, 0, max_calls, unlimited_request_size);
            const std::string annotation = text::wide_to_utf8(entry.annotation);
            if (status == platform::rpc_status::type_already_registered) {
                g_libraryLog.LogInfo("RPC interface '%1' already registered in RPC runtime.", annotation);
            } else if (status != platform::rpc_status::ok) {
                throw exc::win_sys_exc_t("Failed to process interface [%1].", annotation, status);
            }
        }
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to register RPC interfaces with runtime library.", e);
    }
}

void CRpcServer::register_in_endpoint_mapper() {
    const std::uint32_t bindings_status = runtime().inquire_bindings();
    if (bindings_status != platform::rpc_status::ok) {
        throw exc::win_sys_exc_t("Failed to enumerate the binding handles over which remote procedure calls can be received.",
                                 bindings_status);
    }
    try {
        for (const CRpcInterfaceEntry& entry : interfaces_) {
            const std::uint32_t status = runtime().register_in_endpoint_mapper(entry.offered, entry.annotation);
            if (status != platform::rpc_status::ok) {
                throw exc::win_sys_exc_t("Failed to process interface [%1].", text::wide_to_utf8(entry.annotation), status);
            }
        }
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to register endpoints used by RPC interfaces in the endpoint mapper database.", e);
    }
}

void CRpcServer::listen() {
    const std::uint32_t status = runtime().listen(min_call_threads, max_calls);
    if (status == platform::rpc_status::already_listening) {
        g_libraryLog.LogInfo("RPC server listening is already launched.");
    } else if (status != platform::rpc_status::ok) {
        throw exc::win_sys_exc_t("Failed to signal RPC runtime to listen for remote function calls.", status);
    }
}

void StartRpcServer(const RpcServerSettings& settings, const boost::shared_ptr<ctx::CSvcContext>& context) {
    try {
        gServiceContext.set(context);
        CRpcServer server(settings, {{interface_annotation, InvokerInterface()}}, service_class_name);
        server.StartListening();
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to initialize RPC runtime for 'Transport' service.", e);
    }
}

void StopRpcServer() {
    try {
        logging::log_scope_t scope(g_rpcLog, "Stopping RPC server.");
        static_cast<void>(runtime().stop_listening());
        scope.ok("Server was successfully stopped.");
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to stop RPC server.", e);
    }
}
