#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>

#include "platform/linux/rpc/ntlm_initiator.h"
#include "platform/linux/rpc/rpc_client.h"
#include "rpc/support/secured_caller.h"
#include "rpc/support/secured_server.h"

namespace {

using namespace platform::linux_rpc;
using namespace std::chrono_literals;
using testing::_;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

class NtlmOverTcp : public testing::Test {
protected:
    /// The line about the caller for this program's own client.
    std::string call(const std::string& name, const std::string& password, auth_level level) {
        rpc_client client = rpc_client::connect_tcp("127.0.0.1", server_.port(), 20s);
        return rpc_test::answer_of(client, level, std::make_unique<ntlm_initiator>(ntlm_credentials::of(name, password)));
    }

    /// What a foreign client gets.
    rpc_test::outcomes foreign_calls(const std::string& user, const std::string& password) {
        return rpc_test::foreign_calls("impacket_caller.py", server_.port(), user, password, {"ntlm:2", "ntlm:5", "ntlm:6"});
    }

private:
    rpc_test::secured_server server_{""};
};

constexpr std::array levels{auth_level::connect, auth_level::packet, auth_level::integrity, auth_level::privacy};

TEST_F(NtlmOverTcp, CallsArriveAtEachLevelWithTheirCaller) {
    for (const auth_level level : levels) {
        const std::string number = std::to_string(static_cast<int>(level));
        EXPECT_EQ(call("CORP\\ANNA", "anna", level), "SERVER\\anna " + number + " administrator");
        EXPECT_EQ(call("bob", "bob", level), "SERVER\\bob " + number);
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
    EXPECT_THAT(foreign_calls("anna", "anna"),
                ElementsAre(Pair("ntlm:2", "SERVER\\anna 2 administrator"), Pair("ntlm:5", "SERVER\\anna 5 administrator"),
                            Pair("ntlm:6", "SERVER\\anna 6 administrator")));
    EXPECT_THAT(foreign_calls("bob", "bob"),
                ElementsAre(Pair("ntlm:2", "SERVER\\bob 2"), Pair("ntlm:5", "SERVER\\bob 5"), Pair("ntlm:6", "SERVER\\bob 6")));
}

TEST_F(NtlmOverTcp, AForeignClientWithAWrongPasswordIsRefused) {
    EXPECT_THAT(foreign_calls("anna", "wrong"), AllOf(SizeIs(3), Each(Pair(_, StartsWith("refused ")))));
    EXPECT_THAT(foreign_calls("nobody", ""), AllOf(SizeIs(3), Each(Pair(_, HasSubstr("access_denied")))));
}

}  // namespace
