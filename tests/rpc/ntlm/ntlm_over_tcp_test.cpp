#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/rpc/current_call.h"
#include "platform/linux/rpc/linux_accounts.h"
#include "platform/linux/rpc/ntlm_initiator.h"
#include "platform/linux/rpc/ntlm_provider.h"
#include "platform/linux/rpc/rpc_client.h"
#include "platform/linux/rpc/rpc_server.h"
#include "rpc/ntlm/ntlm_fixture.h"
#include "support/source_folder.h"

namespace {

using namespace platform::linux_rpc;
using ntlm_testing::bytes;
using testing::HasSubstr;
using testing::StartsWith;

const char* const interface_text = "d1c2c07a-d989-48cc-a423-b73ecd518d40";
constexpr rpc_client::duration time_out{20'000};

/// A server with NTLM on a free port of loopback, whose one operation answers with the caller's name, whether it is an
/// administrator, and the request in reverse order.
class NtlmOverTcp : public testing::Test {
protected:
    NtlmOverTcp() : server_(options()) {
        accounts_->add("Anna", u"correct horse", true);
        accounts_->add("Bob", u"battery staple");
        server_.add_security_provider(std::make_shared<ntlm_provider>(
            ntlm_acceptor_settings{ntlm_host_names::of("server.example.com"), accounts_, ntlm_environment::of_system(), nullptr}));
        EXPECT_EQ(0U, server_.use_endpoint("ncacn_ip_tcp", 10, "0"));
        EXPECT_EQ(0U, server_.register_authentication(u"TarnoTapeSvc/server", platform::rpc_authn::ntlm));
        platform::rpc_interface offered;
        offered.uuid = uuid_from_text(interface_text);
        offered.major_version = 1;
        offered.operations = 1;
        offered.dispatch = [this](const platform::rpc_request& request, platform::rpc_reply& reply) {
            return serve(request, reply);
        };
        EXPECT_EQ(0U, server_.register_interface(offered, 0, 1234, 0xFFFFFFFF));
        EXPECT_EQ(0U, server_.listen(2, 1234));
    }

    /// The first line of the answer to a call of this program's own client.
    std::string call(const std::string& name, const std::string& password, auth_level level, std::size_t size = 100) {
        rpc_client client = rpc_client::connect_tcp("127.0.0.1", server_.tcp_port(), time_out);
        client.bind({uuid_from_text(interface_text), 1, 0}, time_out,
                    std::make_unique<ntlm_initiator>(ntlm_credentials::of(name, password)), level);
        std::string first_line;
        for (int round = 0; round < 3; ++round) {
            bytes stub(size);
            for (std::size_t i = 0; i < size; ++i) {
                stub[i] = static_cast<std::uint8_t>(i % 253);
            }
            const bytes answer = client.call(0, stub, time_out);
            const auto end = std::find(answer.begin(), answer.end(), '\n');
            EXPECT_TRUE(std::equal(stub.rbegin(), stub.rend(), end + 1, answer.end()));
            first_line.assign(answer.begin(), end);
        }
        return first_line;
    }

    /// What the foreign client prints about its call.
    std::string foreign_call(int level, const std::string& user, const std::string& password, std::size_t size = 100) {
        const auto script = test_support::source_folder() / "tests/rpc/ntlm_caller.py";
        const std::string command = "/usr/bin/python3 '" + script.string() + "' " + std::to_string(server_.tcp_port()) + " " +
                                    std::to_string(level) + " CORP '" + user + "' '" + password + "' " + std::to_string(size);
        std::FILE* const output = ::popen(command.c_str(), "r");
        std::string text;
        std::array<char, 512> portion{};
        while (std::fgets(portion.data(), static_cast<int>(portion.size()), output) != nullptr) {
            text += portion.data();
        }
        EXPECT_EQ(0, ::pclose(output));
        return text;
    }

private:
    static rpc_server_options options() {
        rpc_server_options made;
        made.listen_address = "127.0.0.1";
        return made;
    }

    std::uint32_t serve(const platform::rpc_request& request, platform::rpc_reply& reply) {
        platform::client_context context = 0;
        if (const std::uint32_t status = callers_.open_client_context(context); status != 0) {
            return status;
        }
        std::vector<platform::group_entry> groups;
        const bool administrator = callers_.client_groups(context, groups) && !groups.empty();
        callers_.free_client_context(context);
        const std::string line = current_call()->identity->name + (administrator ? " administrator\n" : "\n");
        const std::span<std::uint8_t> answer = reply.allocate(line.size() + request.stub.size());
        std::copy(line.begin(), line.end(), answer.begin());
        std::reverse_copy(request.stub.begin(), request.stub.end(), answer.begin() + static_cast<std::ptrdiff_t>(line.size()));
        return 0;
    }

    std::shared_ptr<ntlm_testing::table_source> accounts_ = std::make_shared<ntlm_testing::table_source>();
    linux_accounts callers_{administrator_rules{}};
    rpc_server server_;
};

constexpr std::array levels{auth_level::connect, auth_level::packet, auth_level::integrity, auth_level::privacy};

TEST_F(NtlmOverTcp, CallsArriveAtEachLevelWithTheirCaller) {
    for (const auth_level level : levels) {
        EXPECT_EQ("SERVER\\Anna administrator", call("CORP\\anna", "correct horse", level)) << static_cast<int>(level);
        EXPECT_EQ("SERVER\\Bob", call("bob", "battery staple", level)) << static_cast<int>(level);
    }
}

TEST_F(NtlmOverTcp, CallsOfManyFragmentsArriveAtEachLevel) {
    for (const auth_level level : levels) {
        EXPECT_EQ("SERVER\\Anna administrator", call("anna", "correct horse", level, 50'001)) << static_cast<int>(level);
    }
}

TEST_F(NtlmOverTcp, AWrongPasswordShowsAsARefusedCall) {
    for (const auth_level level : levels) {
        try {
            call("anna", "wrong", level);
            ADD_FAILURE() << "was let in";
        } catch (const rpc_client_error& error) {
            EXPECT_EQ(rpc_client_error::kind::fault, error.what_kind());
            EXPECT_EQ(5U, error.status());
        }
    }
}

TEST_F(NtlmOverTcp, AForeignClientCallsAtEachOfItsLevels) {
    for (const int level : {2, 5, 6}) {
        EXPECT_EQ("SERVER\\Anna administrator\n", foreign_call(level, "anna", "correct horse")) << level;
        EXPECT_EQ("SERVER\\Bob\n", foreign_call(level, "bob", "battery staple", 20'001)) << level;
    }
}

TEST_F(NtlmOverTcp, AForeignClientWithAWrongPasswordIsRefused) {
    for (const int level : {2, 5, 6}) {
        EXPECT_THAT(foreign_call(level, "anna", "wrong"), StartsWith("refused ")) << level;
        EXPECT_THAT(foreign_call(level, "nobody", ""), HasSubstr("access_denied")) << level;
    }
}

}  // namespace
