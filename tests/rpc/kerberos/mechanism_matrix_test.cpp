#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/rpc/gss_initiator.h"
#include "platform/linux/rpc/ntlm_initiator.h"
#include "platform/linux/rpc/rpc_client.h"
#include "platform/linux/rpc/spnego_initiator.h"
#include "rpc/kerberos/kerberos_fixture.h"
#include "rpc/support/secured_caller.h"
#include "rpc/support/secured_server.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::array levels{2, 4, 5, 6};

std::vector<std::string> wishes(const std::vector<std::string>& mechanisms) {
    std::vector<std::string> made;
    for (const std::string& mechanism : mechanisms) {
        for (const int level : levels) {
            made.push_back(mechanism + ":" + std::to_string(level));
        }
    }
    return made;
}

std::unique_ptr<client_security> own_security(const std::string& mechanism, auth_level level, const std::string& user,
                                              const std::string& password) {
    const auto ntlm = [&] { return std::make_unique<ntlm_initiator>(ntlm_credentials::of("CORP\\" + user, password)); };
    const auto kerberos = [&] { return std::make_unique<gss_initiator>(kerberos_realm::service, level); };
    std::vector<spnego_initiator::candidate> candidates;
    if (mechanism == "none") {
        return nullptr;
    }
    if (mechanism == "ntlm") {
        return ntlm();
    }
    if (mechanism == "kerberos") {
        return kerberos();
    }
    if (mechanism.starts_with("negotiate-kerberos")) {
        candidates.push_back(spnego_initiator::kerberos(kerberos()));
    }
    if (mechanism.ends_with("ntlm")) {
        candidates.push_back(spnego_initiator::ntlm(ntlm()));
    }
    return std::make_unique<spnego_initiator>(std::move(candidates));
}

/// A call of this project's own client: the line about the caller, or "refused" and why.
std::string own_call(std::uint16_t port, const std::string& mechanism, int level, const std::string& user,
                     const std::string& password) {
    try {
        rpc_client client = rpc_client::connect_tcp("127.0.0.1", port, 20s);
        const auto wanted = static_cast<auth_level>(level);
        return answer_of(client, wanted, own_security(mechanism, wanted, user, password));
    } catch (const rpc_client_error& e) {
        return std::string("refused ") + e.what();
    }
}

bool python_has(const std::string& module) {
    return std::system(("/usr/bin/python3 -c 'import " + module + "' 2>/dev/null").c_str()) == 0;
}

/// Clients, mechanisms and levels, against a KDC of the test's own.
class MechanismMatrix : public kerberos_fixture {
protected:
    void SetUp() override {
        kerberos_fixture::SetUp();
        if (realm) {
            log_in("anna");
        }
    }

    static void log_in(const std::string& user) {
        realm->log_in(user);
        realm->fetch_ticket("host/server.tarno.test");
    }

    static void show(const std::string& client, const outcomes& found) {
        for (const auto& [wish, answer] : found) {
            std::printf("| %-8s | %-20s | %s | %s\n", client.c_str(), wish.substr(0, wish.find(':')).c_str(),
                        wish.substr(wish.find(':') + 1).c_str(), answer.c_str());
        }
    }
};

std::string expected(const std::string& wish, const std::string& user, bool administrator) {
    const std::string level = wish.substr(wish.find(':') + 1);
    return (wish.find("kerberos") != std::string::npos ? user + "@TARNO.TEST " : "SERVER\\" + user + " ") + level +
           (administrator ? " administrator" : "");
}

/// Wishes that can't come true, for reasons that lie in the client.
const std::map<std::string, std::string> faults_of_impacket{
    {"ntlm:4", "refused DCERPCException: rpc_s_access_denied"},                // promises signatures and makes none
    {"negotiate-kerberos:4", "refused DCERPCException: rpc_s_access_denied"},  // the same
    {"negotiate-kerberos:5", "refused TypeError: can't concat str to bytes"}   // stumbles over its own signature
};

TEST_F(MechanismMatrix, EveryClientIsServedWithEveryMechanismAtEveryLevel) {
    const secured_server server(realm->keytab(), administrator_rules::of("", "anna@tarno.test"), realm->path("socket"));
    const std::vector<std::string> all{"ntlm", "negotiate-ntlm", "kerberos", "negotiate-kerberos"};
    outcomes found;
    for (const std::string& wish : wishes(all)) {
        found[wish] = own_call(server.port(), wish.substr(0, wish.find(':')), wish.back() - '0', "anna", "anna");
        EXPECT_EQ(found[wish], expected(wish, "anna", true));
    }
    found["none:1"] = own_call(server.port(), "none", 1, "", "");
    EXPECT_EQ(found["none:1"], "nobody");
    rpc_client local = rpc_client::connect_local(realm->path("socket"), 20s);
    found["local socket:1"] = answer_of(local, auth_level::none, nullptr);
    EXPECT_THAT(found["local socket:1"], testing::EndsWith(geteuid() == 0 ? " administrator" : ""));
    show("tarnoctl", found);
    if (python_has("samba")) {
        found = foreign_calls("samba_caller.py", server.port(), "anna", "anna", wishes(all));
        for (const std::string& wish : wishes(all)) {
            EXPECT_EQ(found[wish], expected(wish, "anna", true));
        }
        show("samba", found);
    }
    if (python_has("impacket")) {
        auto wanted = wishes({"ntlm", "negotiate-kerberos"});
        wanted.emplace_back("none:1");
        found = foreign_calls("impacket_caller.py", server.port(), "anna", "anna", wanted);
        for (const std::string& wish : wanted) {
            const auto fault = faults_of_impacket.find(wish);
            EXPECT_EQ(found[wish], fault != faults_of_impacket.end() ? fault->second
                                   : wish == "none:1"                ? "nobody"
                                                                     : expected(wish, "anna", true));
        }
        show("impacket", found);
    }
}

TEST_F(MechanismMatrix, ServerWithoutKerberosIsServedByTheNextMechanismOfTheClient) {
    const secured_server server("");
    for (const int level : levels) {
        EXPECT_EQ(own_call(server.port(), "negotiate-kerberos-ntlm", level, "bob", "bob"), "SERVER\\bob " + std::to_string(level));
    }
    EXPECT_EQ(own_call(server.port(), "negotiate-kerberos", 5, "", ""), "refused The server refused the connection: reason 9");
    EXPECT_EQ(own_call(server.port(), "kerberos", 5, "", ""), "refused The server refused the connection: reason 8");
    if (python_has("samba")) {
        const auto wanted = wishes({"negotiate-both"});
        outcomes found = foreign_calls("samba_caller.py", server.port(), "anna", "anna", wanted);
        for (const std::string& wish : wanted) {
            EXPECT_EQ(found[wish], "SERVER\\anna@TARNO.TEST " + wish.substr(wish.find(':') + 1));
        }
        show("samba", found);
    }
}

TEST_F(MechanismMatrix, ClientWithoutTicketsOffersWhatElseItHas) {
    const secured_server server(realm->keytab());
    realm->log_out();
    EXPECT_EQ(own_call(server.port(), "negotiate-kerberos-ntlm", 6, "anna", "anna"), "SERVER\\anna 6 administrator");
    EXPECT_THAT(own_call(server.port(), "negotiate-kerberos", 6, "", ""), HasSubstr("No Kerberos credentials available"));
    EXPECT_THAT(own_call(server.port(), "kerberos", 6, "", ""), HasSubstr("No Kerberos credentials available"));
}

TEST_F(MechanismMatrix, WrongPasswordsAreRefused) {
    const secured_server server(realm->keytab());
    for (const int level : levels) {
        EXPECT_THAT(own_call(server.port(), "negotiate-ntlm", level, "anna", "wrong"), HasSubstr("the authentication failed"));
        EXPECT_THAT(own_call(server.port(), "ntlm", level, "anna", "wrong"), HasSubstr("fault 5"));
    }
    if (python_has("samba")) {
        const auto wanted = wishes({"ntlm", "negotiate-ntlm"});
        outcomes found = foreign_calls("samba_caller.py", server.port(), "anna", "wrong", wanted);
        for (const std::string& wish : wanted) {
            EXPECT_THAT(found[wish], StartsWith("refused NTSTATUSError")) << wish;
        }
    }
}

TEST_F(MechanismMatrix, UnixGroupsOfTheLocalAccountDecide) {
    const secured_server server(realm->keytab(), administrator_rules::of("root", ""));
    log_in("root");
    EXPECT_EQ(own_call(server.port(), "kerberos", 6, "", ""), "root@TARNO.TEST 6 administrator");
    EXPECT_EQ(own_call(server.port(), "negotiate-kerberos", 6, "", ""), "root@TARNO.TEST 6 administrator");
    for (const std::string user : {"bob", "anna/admin"}) {
        log_in(user);
        EXPECT_EQ(own_call(server.port(), "kerberos", 6, "", ""), user + "@TARNO.TEST 6");
    }
}

}  // namespace
