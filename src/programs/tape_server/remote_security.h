#pragma once

#include <string>
#include <vector>

#include "platform/linux/linux_settings.h"
#include "platform/linux/rpc/rpc_server.h"

namespace tape_server {

/// Gives the server what callers from other machines can prove with who they are: NTLM, Kerberos, and Negotiate over both. Which
/// of them is offered is for the authentication records of the start to say. What this machine lacks is left out; the answer is a
/// sentence for the log about each thing that was meant to be there and isn't.
[[nodiscard]] std::vector<std::string> add_remote_security(platform::linux_rpc::rpc_server& server,
                                                           const platform::linux_os::linux_settings& settings,
                                                           const std::string& computer);

}  // namespace tape_server
