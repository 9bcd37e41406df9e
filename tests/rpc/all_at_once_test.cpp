#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/rpc/linux_accounts.h"
#include "platform/linux/rpc/ntlm_initiator.h"
#include "platform/linux/rpc/ntlm_provider.h"
#include "platform/linux/rpc/rpc_client.h"
#include "rpc/support/secured_server.h"
#include "rpc/support/test_server.h"
#include "support/temporary_folder.h"

// Everything that may happen at the same time does: several network threads, calls on the spot and in the pool, changes of the
// accounts, stops and starts. What comes out of a call is known; the rest is for a sanitizer to see.

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;
using namespace std::chrono_literals;
using kind = rpc_client_error::kind;

constexpr unsigned on_the_spot = 0;
constexpr std::array levels{auth_level::connect, auth_level::packet, auth_level::integrity, auth_level::privacy};

account account_of(const std::string& name, bool administrator, bool disabled = false) {
    account made;
    made.name = name;
    made.hash = nt_hash(u"Password");
    made.administrator = administrator;
    made.disabled = disabled;
    return made;
}

/// Two network threads, NTLM with an accounts file. Each operation answers about the caller.
class AllAtOnce : public testing::Test {
protected:
    AllAtOnce() : server(std::make_unique<rpc_server>(options())) {
        accounts_file(folder / "accounts").edit([](account_table& table) {
            table.put(account_of("anna", true));
            table.put(account_of("bob", false));
            table.put(account_of("carl", false));
        });
        server->add_security_provider(std::make_shared<ntlm_provider>(ntlm_acceptor_settings{
            ntlm_host_names::of("server.example.com"),
            std::make_shared<live_accounts>(folder / "accounts", [this](const std::string& sentence) { tell(sentence); }),
            ntlm_environment::of_system(), [this](const std::string& sentence) { tell(sentence); }}));
        EXPECT_EQ(server->register_authentication(u"svc/server", platform::rpc_authn::ntlm), 0U);
        platform::rpc_interface offered;
        offered.uuid = uuid_from_text(test_interface);
        offered.major_version = 1;
        offered.operations = 2;
        offered.may_wait = [](const platform::rpc_request& request) { return request.operation != on_the_spot; };
        offered.dispatch = [this](const platform::rpc_request& request, platform::rpc_reply& reply) {
            return serve(request, reply);
        };
        EXPECT_EQ(server->register_interface(offered, 0, 1234, 0xFFFFFFFF), 0U);
        start();
    }

    void start() {
        EXPECT_EQ(server->use_endpoint("ncacn_ip_tcp", 10, "0"), 0U);
        port = server->tcp_port();
        EXPECT_EQ(server->listen(1, 100), 0U);
    }

    rpc_client connect(const std::string& name, auth_level level) const {
        rpc_client client = rpc_client::connect_tcp("127.0.0.1", port, 20s);
        client.bind({uuid_from_text(test_interface), 1, 0}, 20s,
                    std::make_unique<ntlm_initiator>(ntlm_credentials::of(name, "Password")), level);
        return client;
    }

    static std::string told_of(const std::string& name, auth_level level) {
        return "SERVER\\" + name + ' ' + std::to_string(static_cast<int>(level));
    }

    /// What the server says of the caller.
    static std::string call(rpc_client& client, unsigned operation, std::size_t size) {
        const bytes stub = pattern(size);
        const bytes answer = client.call(static_cast<std::uint16_t>(operation), stub, 20s);
        const auto end = std::ranges::find(answer, std::uint8_t{'\n'});
        EXPECT_TRUE(end != answer.end() && std::equal(stub.rbegin(), stub.rend(), end + 1, answer.end()));
        return {answer.begin(), end};
    }

    test_support::temporary_folder folder;
    std::atomic<std::uint16_t> port{0};
    std::atomic<int> served{0};

private:
    rpc_server_options options() {
        rpc_server_options made = loopback_options();
        made.network_threads = 2;
        made.limits.thread_idle_time = 1ms;  // so that the pool's threads come and go
        made.on_event = [this](const std::string& sentence) { tell(sentence); };
        return made;
    }

    void tell(const std::string& sentence) {
        const std::lock_guard lock(mutex_);
        told_ = sentence;
    }

    std::uint32_t serve(const platform::rpc_request& request, platform::rpc_reply& reply) {
        const std::uint32_t status = answer_about_caller(callers_, request, reply);
        ++served;
        served.notify_all();
        return status;
    }

    linux_accounts callers_{administrator_rules{}};
    std::mutex mutex_;
    std::string told_;

protected:
    std::unique_ptr<rpc_server> server;
};

TEST_F(AllAtOnce, AccountsChangeWhileTheirOwnersCall) {
    const std::vector<std::string> names = {"anna", "bob", "carl"};
    std::atomic<int> at_work = static_cast<int>(names.size());
    std::vector<std::thread> clients;
    for (const std::string& name : names) {
        clients.emplace_back([this, name, &at_work] {
            for (std::size_t round = 0; round < 24; ++round) {
                try {
                    const auth_level level = levels[round % levels.size()];
                    const std::string told = told_of(name, level);
                    rpc_client client = connect(name, level);
                    for (unsigned i = 0; i < 4; ++i) {
                        const std::string caller = call(client, i % 2, 100 * round);
                        EXPECT_TRUE(caller == told + " administrator" || (name != "anna" && caller == told)) << caller;
                    }
                } catch (const rpc_client_error& e) {
                    EXPECT_TRUE(name == "carl" && e.what_kind() == kind::fault && e.status() == 5) << name << ": " << e.what();
                }
            }
            --at_work;
        });
    }
    const accounts_file editor(folder / "accounts");
    for (int change = 0; at_work > 0; ++change) {
        editor.edit([change](account_table& table) {
            table.put(account_of("bob", change % 2 == 0));
            table.put(account_of("carl", false, change % 2 == 0));
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
}

/// Whoever is in the middle of something when the server stops is turned away or gets a right answer, never a wrong one.
TEST_F(AllAtOnce, StopsStartsAndEndsInTheMiddleOfItsWork) {
    std::atomic<bool> ended{false};
    std::atomic<int> answered{0};
    std::vector<std::thread> clients;
    for (std::size_t number = 0; number < 4; ++number) {
        clients.emplace_back([&, number] {
            while (!ended) {
                try {
                    rpc_client client = connect("anna", levels[number]);
                    for (unsigned i = 0; !ended; ++i) {
                        EXPECT_EQ(call(client, i % 2, 1000), told_of("anna", levels[number]) + " administrator");
                        ++answered;
                    }
                } catch (const rpc_client_error& e) {
                    const bool too_busy = e.what_kind() == kind::fault && e.status() == fault_status::server_too_busy;
                    EXPECT_TRUE(too_busy || e.what_kind() == kind::connect_failed || e.what_kind() == kind::lost) << e.what();
                }
            }
        });
    }
    const auto serve_some = [this] {
        const int enough = served + 100;
        for (int seen = served; seen < enough; seen = served) {
            served.wait(seen);
        }
    };
    for (int stop = 0; stop < 5; ++stop) {
        serve_some();
        EXPECT_EQ(server->stop_listening(), 0U);
        start();
    }
    serve_some();
    server.reset();
    ended = true;
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_GT(answered, 0);
    EXPECT_LE(answered, served);
}

}  // namespace
