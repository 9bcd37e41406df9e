#include "host/invoker_interface.h"

#include <new>

#include "command/svc_context.h"
#include "command/tape_dispatcher.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "host/interface_codec.h"

namespace {

/// d1c2c07a-d989-48cc-a423-b73ecd518d40
constexpr std::array<std::uint8_t, 16> interface_uuid = {0xD1, 0xC2, 0xC0, 0x7A, 0xD9, 0x89, 0x48, 0xCC,
                                                         0xA4, 0x23, 0xB7, 0x3E, 0xCD, 0x51, 0x8D, 0x40};

constexpr std::uint16_t do_rpc_operation = 0;

constexpr std::uint32_t out_of_memory = 14;  ///< RPC_S_OUT_OF_MEMORY
constexpr std::uint32_t call_failed = 1726;  ///< RPC_S_CALL_FAILED

InvokeResult succeeded() {
    return {true, std::nullopt};
}

void serve_do_rpc(const platform::rpc_request& request, platform::rpc_reply& reply) {
    interface_codec::request_reader reader(request.stub, request.little_endian);
    const interface_codec::request_text procedure = reader.read_string();
    const interface_codec::request_text input = reader.read_string();
    std::optional<std::u16string> output;
    const InvokeResult result = DoRpc(procedure.c_str(), input.c_str(), output);
    interface_codec::WriteDoRpcReply(reply.allocate(interface_codec::DoRpcReplySize(output, result)), output, result);
}

void serve_do_rpc_with_binary(const platform::rpc_request& request, platform::rpc_reply& reply) {
    interface_codec::request_reader reader(request.stub, request.little_endian);
    static_cast<void>(reader.read_string());
    static_cast<void>(reader.read_string());
    const std::uint32_t size = reader.read_long();
    static_cast<void>(reader.read_bytes(size));
    const InvokeResult result = DoRpcWithBinary();
    interface_codec::WriteDoRpcWithBinaryReply(reply.allocate(interface_codec::DoRpcWithBinaryReplySize(result)), result);
}

void serve_test_connection(const platform::rpc_request& request, platform::rpc_reply& reply) {
    interface_codec::request_reader reader(request.stub, request.little_endian);
    static_cast<void>(reader.read_string());
    const InvokeResult result = InvokerTestConnection();
    interface_codec::WriteResultReply(reply.allocate(interface_codec::ResultReplySize(result)), result);
}

/// The procedures in the order of their operation numbers.
constexpr void (*operations[])(const platform::rpc_request& request, platform::rpc_reply& reply) = {
    serve_do_rpc, serve_do_rpc_with_binary, serve_test_connection};

}  // namespace

InvokeResult DoRpc(const char16_t* procedure, const char16_t* input, std::optional<std::u16string>& output) {
    try {
        const boost::shared_ptr<ctx::CSvcContext> context = gServiceContext.get();
        if (!context) {
            throw exc::runtime_exc_t("Service context is not available.");
        }
        CTapeInvokeDispatcher dispatcher(context);
        return dispatcher.ProcessCall(procedure, input, output);
    } catch (const std::exception& e) {
        g_log.LogError("RPC: DoRpc function call failed.", e);
        return MakeErrorResult(e);
    }
}

InvokeResult DoRpcWithBinary() {
    try {
        return succeeded();
    } catch (const std::exception& e) {
        g_log.LogError("RPC: DoRpcWithBinary function call failed.", e);
        return MakeErrorResult(e);
    }
}

InvokeResult InvokerTestConnection() {
    try {
        return succeeded();
    } catch (const std::exception& e) {
        g_rpcLog.LogError("RPC: InvokerTestConnection function call failed.", e);
        return MakeErrorResult(e);
    }
}

platform::rpc_interface InvokerInterface() {
    platform::rpc_interface offered;
    offered.uuid = interface_uuid;
    offered.major_version = 1;
    offered.minor_version = 0;
    offered.operations = static_cast<std::uint16_t>(std::size(operations));
    offered.dispatch = DispatchInvokerCall;
    offered.may_wait = InvokerCallMayWait;
    return offered;
}

bool InvokerCallMayWait(const platform::rpc_request& request) {
    if (request.operation != do_rpc_operation) {
        return false;
    }
    try {
        interface_codec::request_reader reader(request.stub, request.little_endian);
        const interface_codec::request_text procedure = reader.read_string();
        return ProcedureMayWait(procedure.c_str()) || g_rpcLog.log().may_take_long();
    } catch (const interface_codec::bad_stub_data&) {
        return false;  // refused as soon as it is looked at
    } catch (const std::exception&) {
        return true;
    }
}

std::uint32_t DispatchInvokerCall(const platform::rpc_request& request, platform::rpc_reply& reply) {
    if (request.operation >= std::size(operations)) {
        return platform::rpc_status::procedure_out_of_range;
    }
    try {
        operations[request.operation](request, reply);
        return platform::rpc_status::ok;
    } catch (const interface_codec::bad_stub_data&) {
        return platform::rpc_status::bad_stub_data;
    } catch (const std::bad_alloc&) {
        return out_of_memory;
    } catch (...) {
        // What isn't an exception of the system's own kind becomes the client's exception.
        return call_failed;
    }
}
