#include "host/server_lifetime.h"

#include "command/svc_context.h"
#include "foundation/logging/log_writer.h"
#include "host/rpc_server.h"

void StopTapeServer() {
    try {
        g_log.LogMessage("");
        g_log.LogMessage("SCM: Processing request to stop service.");
        StopRpcServer();
        gServiceContext.reset();
        ShutdownServiceContext();
        g_log.LogMessage("Tape service is stopped.");
    } catch (const std::exception& e) {
        g_log.LogError("Failed to stop tape service.", e);
    }
}
