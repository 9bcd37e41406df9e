#pragma once

#include "platform/linux/rpc/server_core.h"
#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

/// The remote management interface (C706 appendix Q): what is offered here, how much went on, whether the server listens, and
/// as whom it authenticates. Stopping the server from afar is refused. Refers to `core`, which has to outlive it.
[[nodiscard]] rpc_interface management_interface(server_core& core);

}  // namespace platform::linux_rpc
