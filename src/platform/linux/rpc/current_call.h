#pragma once

#include "platform/linux/rpc/security_context.h"

#include <cstdint>
#include <string>

namespace platform::linux_rpc {

/// What the runtime knows of the remote call that a thread serves.
struct call_scene {
    const client_identity* identity = nullptr;  ///< never null; `authenticated` is false for a caller who gave no proof
    auth_level level = auth_level::none;        ///< how the call's PDUs are protected
    std::uint32_t local_ipv4 = 0;          ///< address of this machine that the caller reached, host byte order; 0: not by IPv4
    const std::string* address = nullptr;  ///< where the caller is, for the log; null: not known
};

/// The call that the calling thread serves at the moment; null when it serves none. Valid until the dispatch function returns.
[[nodiscard]] const call_scene* current_call();

/// Makes a call the current one of the calling thread for a scope. The runtime does this around each dispatch; the former
/// call comes back at the end. The scene has to outlive the scope.
class current_call_scope {
public:
    explicit current_call_scope(const call_scene& scene);
    ~current_call_scope();
    current_call_scope(const current_call_scope&) = delete;
    current_call_scope& operator=(const current_call_scope&) = delete;

private:
    const call_scene* former_;
};

}  // namespace platform::linux_rpc
