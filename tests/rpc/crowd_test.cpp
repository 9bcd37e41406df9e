#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "rpc/support/raw_pdu.h"
#include "rpc/support/test_server.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;
using namespace std::chrono_literals;

/// Many clients at once. These tests need more descriptors than a process usually has.
class CrowdTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &former_), 0);
        rlimit more = former_;
        more.rlim_cur = more.rlim_max;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &more), 0);
        if (more.rlim_cur < 4096) {
            GTEST_SKIP() << "this machine doesn't allow a process so many descriptors";
        }
    }
    void TearDown() override { setrlimit(RLIMIT_NOFILE, &former_); }

    static bytes request(unsigned number_of_operation, bytes stub = {}) {
        raw_request made;
        made.operation = number_of_operation;
        made.stub = std::move(stub);
        return request_pdu(made);
    }

    using crowd = std::vector<std::unique_ptr<raw_connection>>;
    static crowd gather(const test_server& server, std::size_t count) {
        crowd clients;
        for (std::size_t i = 0; i < count; ++i) {
            clients.push_back(std::make_unique<raw_connection>(server.port()));
        }
        return clients;
    }

private:
    rlimit former_{};
};

TEST_F(CrowdTest, AllCallsThatMayBeAreHeldAndOneMoreIsTooBusy) {
    constexpr std::size_t most = 1234;
    test_server server(loopback_options(), most);
    const crowd slow = gather(server, most);
    for (const auto& client : slow) {
        client->send(bind_pdu());
        client->send(request(operation::block, {1}));
    }
    server.wait_for_blocked(most);
    raw_connection late(server.port());
    (void)late.exchange(bind_pdu());
    EXPECT_EQ(fault_of(late.exchange(request(operation::echo))), 0x1C010014U);
    server.release();
    for (const auto& client : slow) {
        EXPECT_EQ(type_of(client->receive()), 12U);
        EXPECT_EQ(type_of(client->receive()), 2U);
    }
    EXPECT_EQ(type_of(late.exchange(request(operation::echo))), 2U);
}

TEST_F(CrowdTest, FourHundredClientsConnectWithinASecond) {
    rpc_server_options options = loopback_options();
    options.network_threads = 2;
    test_server server(options, 1234);
    // The best of three rounds: the machine may be busy with something else in one of them.
    auto best = std::chrono::steady_clock::duration::max();
    for (int round = 0; round < 3 && best >= 1s; ++round) {
        const auto begun = std::chrono::steady_clock::now();
        const crowd clients = gather(server, 400);
        for (const auto& client : clients) {
            client->send(bind_pdu());
            client->send(request(operation::who));
        }
        for (const auto& client : clients) {
            EXPECT_EQ(type_of(client->receive()), 12U);
            EXPECT_EQ(type_of(client->receive()), 2U);
        }
        best = std::min(best, std::chrono::steady_clock::now() - begun);
    }
    EXPECT_LT(best, 1s);
}

TEST_F(CrowdTest, SlowReadersAndWritersCostTheOthersNothing) {
    test_server server;
    const crowd readers = gather(server, 20);
    for (const auto& client : readers) {
        client->send(bind_pdu());
        client->send(request(operation::produce, number(20'000'000)));  // and never reads it
    }
    const crowd writers = gather(server, 20);
    const bytes whole = request(operation::echo, bytes(5000));
    for (const auto& client : writers) {
        (void)client->exchange(bind_pdu());
        client->send(std::span(whole).first(4000));
    }
    raw_connection quick(server.port());
    (void)quick.exchange(bind_pdu());
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(type_of(quick.exchange(request(operation::echo, {1}))), 2U);
    }
    for (const auto& client : writers) {
        client->send(std::span(whole).subspan(4000));
        EXPECT_EQ(type_of(client->receive()), 2U);
    }
}

TEST_F(CrowdTest, HalfOpenOnesAreGoneAfterTheirTimeAndLeaveTheirPlace) {
    rpc_server_options options = loopback_options();
    options.limits.bind_time = 200ms;
    options.limits.connections = 50;
    test_server server(options);
    const bytes bind = bind_pdu();
    const crowd half = gather(server, 50);
    for (std::size_t i = 0; i < half.size(); ++i) {
        half[i]->send(std::span(bind).first(i % bind.size()));
    }
    for (const auto& client : half) {
        EXPECT_TRUE(client->ended());
    }
    const crowd next = gather(server, 50);
    for (const auto& client : next) {
        EXPECT_EQ(type_of(client->exchange(bind)), 12U);
    }
}

}  // namespace
