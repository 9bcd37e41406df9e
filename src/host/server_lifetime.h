#pragma once

#include "host/rpc_server.h"
#include "platform/service_manager.h"

/// What the start serves with. Set by the entry, once, before anything starts.
void SetTapeServerSettings(const RpcServerSettings& settings);

/// Makes the service context and starts to serve; comes back when calls are taken. Returns `running`, or `stop_pending` when the
/// start has failed, with the reason in the log. Throws nothing that is a `std::exception`.
[[nodiscard]] platform::service_state StartTapeServer();

/// Ends the serving: takes no more calls, empties `gServiceContext`, logs the end. Calls in progress are not waited for.
/// Throws nothing.
void StopTapeServer();
