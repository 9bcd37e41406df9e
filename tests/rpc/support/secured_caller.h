#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/rpc/rpc_client.h"

namespace rpc_test {

/// The line about the caller that a `secured_server` answers calls of several sizes with, from none to many fragments.
std::string answer_of(platform::linux_rpc::rpc_client& client, platform::linux_rpc::auth_level level,
                      std::unique_ptr<platform::linux_rpc::client_security> security);

/// "MECHANISM:LEVEL" and what came of it.
using outcomes = std::map<std::string, std::string>;

/// What the clients of a script in tests/rpc/foreign get who wish for mechanisms and levels: the line about the caller, or
/// "refused" and why.
outcomes foreign_calls(const std::string& script, std::uint16_t port, const std::string& user, const std::string& password,
                       const std::vector<std::string>& wanted);

}  // namespace rpc_test
