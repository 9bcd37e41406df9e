#pragma once

#include <memory>
#include <string>

#include "platform/linux/rpc/gss_provider.h"
#include "platform/linux/rpc/linux_accounts.h"
#include "platform/linux/rpc/rpc_server.h"
#include "rpc/ntlm/ntlm_fixture.h"

namespace rpc_test {

inline const char* const secured_interface = "d1c2c07a-d989-48cc-a423-b73ecd518d40";

/// Samba's interface for tests, which its own client library has built in.
inline const char* const echo_interface = "60a15ec5-4de8-11d7-a637-005056a20182";

/// Answers a call with a line "NAME LEVEL", behind it " administrator" where that is so, then the request in reverse order. Who
/// can't be told is "nobody".
std::uint32_t answer_about_caller(platform::linux_rpc::linux_accounts& callers, const platform::rpc_request& request,
                                  platform::rpc_reply& reply);

/// A server with all kinds of authentication on a free port of loopback. Its one operation, offered by both interfaces, answers
/// about the caller.
class secured_server {
public:
    /// `keytab`: empty for a server without Kerberos. NTLM knows "anna", an administrator, and "bob", each with the name as
    /// password, and "anna@TARNO.TEST", as who Samba's client appears that has tickets but finds a server without Kerberos.
    /// `local_socket`: empty for none.
    explicit secured_server(const std::string& keytab, platform::linux_rpc::administrator_rules rules = {},
                            const std::string& local_socket = {});
    secured_server(const secured_server&) = delete;
    secured_server& operator=(const secured_server&) = delete;

    [[nodiscard]] std::uint16_t port() const { return server_.tcp_port(); }

private:
    std::shared_ptr<ntlm_testing::table_source> accounts_ = std::make_shared<ntlm_testing::table_source>();
    platform::linux_rpc::linux_accounts callers_;
    platform::linux_rpc::rpc_server server_;
};

}  // namespace rpc_test
