#pragma once

#include <optional>
#include <string>

#include "command/invoke_dispatcher.h"
#include "platform/rpc_runtime.h"

/// Manager functions of the interface. Each runs on a thread of the RPC runtime, many at a time, and throws nothing that is
/// derived from `std::exception`.

/// Serves one call with a dispatcher of its own. The texts are zero-terminated or null; `output` is set on success only.
[[nodiscard]] InvokeResult DoRpc(const char16_t* procedure, const char16_t* input, std::optional<std::u16string>& output);
/// Does nothing, and succeeds for everybody.
[[nodiscard]] InvokeResult DoRpcWithBinary();
/// The same: tells a caller that the server is there.
[[nodiscard]] InvokeResult InvokerTestConnection();

/// The interface as it is offered to the RPC runtime: version 1.0, three procedures.
[[nodiscard]] platform::rpc_interface InvokerInterface();

/// Decodes one request, runs its manager function and writes the answer. Returns the status for the client: 0, 1783 for stub
/// data that isn't the interface's, or another system error number.
[[nodiscard]] std::uint32_t DispatchInvokerCall(const platform::rpc_request& request, platform::rpc_reply& reply);

/// Whether serving a request may wait for a device, a disk or another call: all procedures but a few that only look at memory.
[[nodiscard]] bool InvokerCallMayWait(const platform::rpc_request& request);
