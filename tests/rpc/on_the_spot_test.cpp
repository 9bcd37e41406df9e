#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <thread>

#include "platform/linux/rpc/call.h"
#include "rpc/support/test_server.h"
#include "support/temporary_folder.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

constexpr unsigned quick = 0;    ///< can't wait
constexpr unsigned patient = 1;  ///< may

/// A server with one network thread and an interface that tells who served which call, in order.
class OnTheSpot : public testing::Test {
protected:
    struct served_call {
        std::uint32_t mark;
        std::thread::id thread;
    };

    OnTheSpot() {
        rpc_server_options options = loopback_options();
        options.network_threads = 1;
        options.limits.linger_time = std::chrono::milliseconds(300);
        options.local_socket = folder / "rpc.sock";
        server = std::make_unique<rpc_server>(options);
        platform::rpc_interface offered;
        offered.uuid = uuid_from_text(test_interface);
        offered.major_version = 1;
        offered.operations = 2;
        offered.may_wait = [](const platform::rpc_request& request) { return request.operation != quick; };
        offered.dispatch = [this](const platform::rpc_request& request, platform::rpc_reply& reply) {
            return serve(request, reply);
        };
        EXPECT_EQ(server->use_endpoint("ncacn_ip_tcp", 10, "0"), 0U);
        EXPECT_EQ(server->register_interface(offered, 0, 1234, 0xFFFFFFFF), 0U);
        port = server->tcp_port();
        EXPECT_EQ(server->listen(2, 100), 0U);
    }

    /// The request bears a mark and the number of bytes to answer with.
    std::uint32_t serve(const platform::rpc_request& request, platform::rpc_reply& reply) {
        wire_reader reader(request.stub, request.little_endian);
        const std::uint32_t mark = reader.u32();
        const bytes answer = pattern(reader.u32());
        {
            const std::lock_guard lock(mutex);
            calls.push_back({mark, std::this_thread::get_id()});
        }
        if (mark == 0) {
            begun.set_value();
            go_on.get_future().wait();
        }
        std::ranges::copy(answer, reply.allocate(answer.size()).begin());
        return 0;
    }

    static bytes call(unsigned operation, std::uint32_t mark, std::uint32_t answer_size = 4, std::size_t request_size = 8) {
        raw_request request;
        request.operation = operation;
        request.call_id = mark;
        request.stub = raw_writer().u32(mark).u32(answer_size).data;
        request.stub.resize(request_size);
        return request_pdu(request);
    }

    void bind(raw_connection& connection) { ASSERT_EQ(type_of(connection.exchange(bind_pdu())), 12U); }

    std::vector<served_call> all_calls() {
        const std::lock_guard lock(mutex);
        return calls;
    }

    test_support::temporary_folder folder;
    std::uint16_t port = 0;
    std::mutex mutex;
    std::vector<served_call> calls;
    std::promise<void> begun;
    std::promise<void> go_on;
    std::unique_ptr<rpc_server> server;
};

TEST_F(OnTheSpot, CallsThatCannotWaitShareTheNetworksThread) {
    raw_connection one(port);
    raw_connection two(port);
    bind(one);
    bind(two);
    EXPECT_EQ(type_of(one.exchange(call(quick, 1))), 2U);
    EXPECT_EQ(type_of(two.exchange(call(quick, 2))), 2U);
    EXPECT_EQ(type_of(one.exchange(call(patient, 3))), 2U);
    const auto served = all_calls();
    ASSERT_EQ(served.size(), 3U);
    EXPECT_EQ(served[0].thread, served[1].thread);
    EXPECT_NE(served[0].thread, served[2].thread);
}

TEST_F(OnTheSpot, LongRequestsAndLocalCallersGoToThePoolAllTheSame) {
    raw_connection remote(port);
    raw_connection local(folder / "rpc.sock");
    bind(remote);
    bind(local);
    EXPECT_EQ(type_of(remote.exchange(call(quick, 1, 4, 4096))), 2U);
    EXPECT_EQ(type_of(remote.exchange(call(quick, 2, 4, 4100))), 2U) << "text to work through";
    EXPECT_EQ(type_of(local.exchange(call(quick, 3))), 2U) << "the name service is asked for a local caller's groups";
    const auto served = all_calls();
    ASSERT_EQ(served.size(), 3U);
    EXPECT_NE(served[1].thread, served[0].thread);
    EXPECT_NE(served[2].thread, served[0].thread);
}

TEST_F(OnTheSpot, OneWhoSendsManyRequestsAtOnceLeavesTheOthersTheirTurn) {
    raw_connection greedy(port);
    raw_connection modest(port);
    bind(greedy);
    bind(modest);
    bytes all = call(quick, 0);
    for (std::uint32_t i = 1; i < 200; ++i) {
        const bytes next = call(quick, i);
        all.insert(all.end(), next.begin(), next.end());
    }
    greedy.send(all);
    begun.get_future().wait();
    modest.send(call(quick, 1000));  // there before the first of the others is answered
    go_on.set_value();
    EXPECT_EQ(type_of(modest.receive()), 2U);
    for (std::uint32_t i = 0; i < 200; ++i) {
        ASSERT_EQ(le32(greedy.receive(), 12), i);
    }
    const auto served = all_calls();
    ASSERT_EQ(served.size(), 201U);
    const auto place = std::ranges::find(served, 1000U, &served_call::mark) - served.begin();
    EXPECT_LE(place, 16);
}

TEST_F(OnTheSpot, ThousandsOfRequestsInOneGoAreAnsweredInTheirOrder) {
    raw_connection connection(port);
    bind(connection);
    constexpr std::uint32_t count = 8000;  // several of the network thread's blocks
    std::thread sender([&] {
        bytes all;
        for (std::uint32_t i = 1; i <= count; ++i) {
            const bytes next = call(quick, i, 4, 8 + i % 7);
            all.insert(all.end(), next.begin(), next.end());
        }
        connection.send(all);
    });
    for (std::uint32_t i = 1; i <= count; ++i) {
        const bytes answer = connection.receive();
        ASSERT_EQ(type_of(answer), 2U);
        ASSERT_EQ(le32(answer, 12), i);
    }
    sender.join();
}

TEST_F(OnTheSpot, WhoEndsHisOutputStillGetsAllHisAnswers) {
    raw_connection connection(port);
    bind(connection);
    constexpr std::uint32_t count = 40;
    constexpr std::uint32_t within_second_turn = 10;
    bytes all;
    for (std::uint32_t i = 1; i <= count; ++i) {
        const bytes next = call(quick, i == within_second_turn ? 0 : i);
        all.insert(all.end(), next.begin(), next.end());
    }
    connection.send(all);
    begun.get_future().wait();
    connection.end_of_output();  // while requests wait for the connection's next turn
    go_on.set_value();
    for (std::uint32_t i = 1; i <= count; ++i) {
        ASSERT_EQ(le32(connection.receive(), 12), i == within_second_turn ? 0 : i);
    }
    EXPECT_TRUE(connection.ended());
}

TEST_F(OnTheSpot, OneWhoIsDisconnectedAndGoesOnSendingHoldsNobodyUp) {
    std::atomic<bool> ended{false};
    std::vector<std::thread> senders;
    for (int i = 0; i < 2; ++i) {
        senders.emplace_back([&] {
            const bytes rubbish(1U << 26, 0xFF);  // no version of the protocol
            while (!ended) {
                raw_connection(port).send(rubbish);
            }
        });
    }
    raw_connection modest(port);
    bind(modest);
    for (std::uint32_t i = 1; i <= 200; ++i) {
        EXPECT_EQ(type_of(modest.exchange(call(quick, i))), 2U);
    }
    ended = true;
    for (std::thread& sender : senders) {
        sender.join();
    }
}

TEST_F(OnTheSpot, AnAnswerThatTheSocketDoesNotTakeAtOnceFollowsPieceByPiece) {
    raw_connection slow(port);
    raw_connection other(port);
    bind(slow);
    bind(other);
    constexpr std::uint32_t size = 20'000'000;
    slow.send(call(quick, 1, size));
    EXPECT_EQ(type_of(other.exchange(call(quick, 2))), 2U) << "the slow reader holds nobody up";
    bytes stub;
    for (bool last = false; !last;) {
        const bytes pdu = slow.receive();
        ASSERT_EQ(type_of(pdu), 2U);
        stub.insert(stub.end(), pdu.begin() + 24, pdu.end());
        last = (pdu[3] & 2) != 0;
    }
    EXPECT_EQ(stub, pattern(size));
    EXPECT_EQ(type_of(slow.exchange(call(quick, 3))), 2U);
}

TEST(RpcCall, WhatIsToBeAskedAboutTheCallerMayWait) {
    client_identity identity;
    auto offered = std::make_shared<offered_interface>();
    rpc_call call;
    call.target = offered;
    call.identity = &identity;
    EXPECT_TRUE(call.may_wait()) << "an interface that says nothing";
    offered->description.may_wait = [](const platform::rpc_request& request) { return request.operation == 1; };
    EXPECT_FALSE(call.may_wait());
    call.operation = 1;
    EXPECT_TRUE(call.may_wait());
    call.operation = 0;
    identity.local_account = "anna";
    EXPECT_TRUE(call.may_wait());
    identity.local_account.clear();
    identity.find_local_account = [] { return std::string("anna"); };
    EXPECT_TRUE(call.may_wait());
    identity.find_local_account = nullptr;
    identity.local = true;
    EXPECT_TRUE(call.may_wait());
}

}  // namespace
