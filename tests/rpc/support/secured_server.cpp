#include "rpc/support/secured_server.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/linux/rpc/current_call.h"
#include "platform/linux/rpc/ntlm_provider.h"
#include "platform/linux/rpc/spnego_provider.h"
#include "rpc/support/test_server.h"

namespace rpc_test {

using namespace platform::linux_rpc;

namespace {

rpc_server_options options_with(const std::string& local_socket) {
    rpc_server_options options = loopback_options();
    options.local_socket = local_socket;
    return options;
}

}  // namespace

std::uint32_t answer_about_caller(linux_accounts& callers, const platform::rpc_request& request, platform::rpc_reply& reply) {
    platform::client_context context = 0;
    std::string line = "nobody";
    if (callers.open_client_context(context) == 0) {
        platform::sid_bytes administrators;
        std::vector<platform::group_entry> groups;
        const bool known = callers.create_well_known_sid(26, administrators) && callers.client_groups(context, groups);
        const bool administrator =
            known && std::ranges::any_of(groups, [&](const auto& group) { return group.sid == administrators; });
        callers.free_client_context(context);
        line = current_call()->identity->name + ' ' + std::to_string(static_cast<int>(current_call()->level)) +
               (administrator ? " administrator" : "");
    }
    line += '\n';
    const std::span<std::uint8_t> answer = reply.allocate(line.size() + request.stub.size());
    std::ranges::copy(line, answer.begin());
    std::ranges::reverse_copy(request.stub, answer.begin() + static_cast<std::ptrdiff_t>(line.size()));
    return 0;
}

secured_server::secured_server(const std::string& keytab, administrator_rules rules, const std::string& local_socket)
    : callers_(std::move(rules)), server_(options_with(local_socket)) {
    accounts_->add("anna", u"anna", true);
    accounts_->add("bob", u"bob");
    accounts_->add("anna@TARNO.TEST", u"anna");
    const auto ntlm = std::make_shared<ntlm_provider>(
        ntlm_acceptor_settings{ntlm_host_names::of("server.tarno.test"), accounts_, ntlm_environment::of_system(), nullptr});
    std::vector<std::shared_ptr<negotiable_provider>> mechanisms{ntlm};
    server_.add_security_provider(ntlm);
    if (!keytab.empty()) {
        const auto kerberos = std::make_shared<gss_provider>(keytab);
        EXPECT_EQ(kerberos->fault(), "");
        mechanisms.push_back(kerberos);
        server_.add_security_provider(kerberos);
    }
    server_.add_security_provider(std::make_shared<spnego_provider>(spnego_settings{mechanisms, nullptr}));
    EXPECT_EQ(server_.use_endpoint("ncacn_ip_tcp", 10, "0"), 0U);
    EXPECT_EQ(server_.register_authentication(u"TarnoTapeSvc/server.tarno.test", platform::rpc_authn::negotiate), 0U);
    platform::rpc_interface offered;
    offered.major_version = 1;
    offered.operations = 1;
    offered.dispatch = [this](const platform::rpc_request& request, platform::rpc_reply& reply) {
        return answer_about_caller(callers_, request, reply);
    };
    for (const char* uuid : {secured_interface, echo_interface}) {
        offered.uuid = uuid_from_text(uuid);
        EXPECT_EQ(server_.register_interface(offered, 0, 1234, 0xFFFFFFFF), 0U);
    }
    EXPECT_EQ(server_.listen(2, 1234), 0U);
}

}  // namespace rpc_test
