#include "host/server_lifetime.h"

#include <boost/make_shared.hpp>

#include "command/svc_context.h"
#include "foundation/logging/log_writer.h"

namespace {

/// What the service keeps until the process ends: calls and tasks that a stop leaves behind still use the context.
struct server_state {
    RpcServerSettings settings;
    boost::shared_ptr<ctx::CSvcContext> context;
};

server_state& state() {
    static server_state only;
    return only;
}

}  // namespace

void SetTapeServerSettings(const RpcServerSettings& settings) {
    state().settings = settings;
}

platform::service_state StartTapeServer() {
    try {
        g_log.LogMessage("Starting server in synchronous mode.");
        state().context = boost::make_shared<ctx::CSvcContext>();
        StartRpcServer(state().settings, state().context);
        g_log.LogMessage("Tape server is ready to process incoming calls.");
        g_log.LogMessage("");
        return platform::service_state::running;
    } catch (const std::exception& e) {
        g_log.LogError("Failed to start tape service.", e);
        return platform::service_state::stop_pending;
    }
}

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
