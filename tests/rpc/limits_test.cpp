#include "platform/linux/rpc/rpc_limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <memory>
#include <vector>

#include "rpc/support/raw_pdu.h"
#include "rpc/support/test_server.h"
#include "support/temporary_folder.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;
using namespace std::chrono_literals;

/// These tests wait for the server to act, never for time to pass: short limits make it act soon.
rpc_server_options with(void (*change)(rpc_limits& limits)) {
    rpc_server_options options = loopback_options();
    change(options.limits);
    return options;
}

TEST(RpcLimitsTest, WhoDoesNotBindInTimeIsClosed) {
    test_server server(with([](rpc_limits& limits) { limits.bind_time = 30ms; }));
    raw_connection silent(server.port());
    EXPECT_TRUE(silent.ended());
    raw_connection trickling(server.port());
    const bytes bind = bind_pdu();
    trickling.send(std::span(bind).first(20));
    EXPECT_TRUE(trickling.ended());
}

TEST(RpcLimitsTest, HalfDoneAuthenticationCountsAgainstTheTimeToBind) {
    test_server server(with([](rpc_limits& limits) { limits.bind_time = 30ms; }));
    raw_connection client(server.port());
    const raw_auth auth{10, 2, 1, 0, text_bytes("hello")};
    raw_bind bind;
    bind.auth = &auth;
    EXPECT_EQ(type_of(client.exchange(bind_pdu(bind))), 12U);
    EXPECT_TRUE(client.ended());
}

TEST(RpcLimitsTest, LaterAuthenticationHasTheTimeToBindAgain) {
    test_server server(with([](rpc_limits& limits) { limits.bind_time = 500ms; }));
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    raw_connection silent(server.port());
    EXPECT_TRUE(silent.ended()) << "the client's time to bind is over by now";
    raw_auth auth{10, 2, 1, 0, text_bytes("hello")};
    raw_bind alter;
    alter.type = 14;
    alter.auth = &auth;
    EXPECT_EQ(type_of(client.exchange(bind_pdu(alter))), 15U);
    auth.token = text_bytes("secret");
    client.send(pdu(16, 3, 1, bytes(4), true, &auth));
    raw_request who;
    who.operation = operation::who;
    EXPECT_EQ(type_of(client.exchange(request_pdu(who))), 2U);
}

TEST(RpcLimitsTest, IncompleteFragmentOrRequestIsClosed) {
    test_server server(with([](rpc_limits& limits) { limits.fragment_time = 30ms; }));
    raw_connection fragment(server.port());
    (void)fragment.exchange(bind_pdu());
    const bytes whole = request_pdu();
    fragment.send(std::span(whole).first(17));
    EXPECT_TRUE(fragment.ended());
    raw_connection request(server.port());
    (void)request.exchange(bind_pdu());
    raw_request first;
    first.flags = 1;
    request.send(request_pdu(first));
    EXPECT_TRUE(request.ended());
}

TEST(RpcLimitsTest, IdleConnectionIsClosedButNotOneThatIsServed) {
    test_server server(with([](rpc_limits& limits) { limits.idle_time = 30ms; }));
    raw_connection busy(server.port());
    (void)busy.exchange(bind_pdu());
    raw_request block;
    block.operation = operation::block;
    busy.send(request_pdu(block));
    server.wait_for_blocked(1);
    raw_connection idle(server.port());
    (void)idle.exchange(bind_pdu());
    EXPECT_TRUE(idle.ended());
    server.release();
    EXPECT_EQ(type_of(busy.receive()), 2U);
    EXPECT_TRUE(busy.ended());
}

TEST(RpcLimitsTest, WhoDoesNotReadItsAnswerIsClosed) {
    test_server server(with([](rpc_limits& limits) { limits.write_time = 30ms; }));
    raw_connection lazy(server.port());
    (void)lazy.exchange(bind_pdu());
    raw_request produce;
    produce.operation = operation::produce;
    produce.stub = number(50'000'000);
    lazy.send(request_pdu(produce));
    // Nothing is read before the server has given up: only then the whole answer cannot arrive any more.
    pollfd watched{lazy.handle(), 0, 0};
    EXPECT_EQ(poll(&watched, 1, 20'000), 1);
    EXPECT_NE(watched.revents & (POLLHUP | POLLERR), 0);
}

TEST(RpcLimitsTest, ConnectionsAboveTheLimitAreClosedAtOnce) {
    test_server server(with([](rpc_limits& limits) { limits.connections_per_address = 2; }));
    auto first = std::make_unique<raw_connection>(server.port());
    raw_connection second(server.port());
    EXPECT_EQ(type_of(first->exchange(bind_pdu())), 12U);
    EXPECT_EQ(type_of(second.exchange(bind_pdu())), 12U);
    raw_connection third(server.port());
    EXPECT_TRUE(third.ended());
    server.wait_for_event("A connection of RPC client 127.0.0.1 was refused: there are too many.");
    first->end_of_output();
    EXPECT_TRUE(first->ended());
    first.reset();
    for (bool accepted = false; !accepted;) {
        raw_connection next(server.port());
        accepted = type_of(next.exchange(bind_pdu())) == 12U;
    }
    EXPECT_EQ(server.events().back(), "A connection of RPC client 127.0.0.1 was refused: there are too many.");
}

TEST(RpcLimitsTest, TotalLimitCountsTheLocalSocketToo) {
    test_support::temporary_folder folder;
    rpc_server_options options = with([](rpc_limits& limits) { limits.connections = 1; });
    options.local_socket = folder / "socket";
    test_server server(options);
    raw_connection first(options.local_socket);
    EXPECT_EQ(type_of(first.exchange(bind_pdu())), 12U);
    raw_connection second(options.local_socket);
    EXPECT_TRUE(second.ended());
    raw_connection third(server.port());
    EXPECT_TRUE(third.ended());
}

TEST(RpcLimitsTest, ConnectionsLeaveDescriptorsToTheRest) {
    EXPECT_EQ(connections_within(2048, 524288), 2048U);
    EXPECT_EQ(connections_within(2048, 2304), 2048U);
    EXPECT_EQ(connections_within(2048, 1024), 768U);
    EXPECT_EQ(connections_within(2048, 512), 256U);
    EXPECT_EQ(connections_within(2048, 300), 150U);
    EXPECT_EQ(connections_within(10, 300), 10U);
}

TEST(RpcLimitsTest, DescriptorsOfTheProcessBoundTheConnections) {
    rlimit allowed{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &allowed), 0);
    rlimit few = allowed;
    few.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    test_server server;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &allowed), 0);
    server.wait_for_event("Only 32 connections are served at a time, because the process may open 64 files only.");
    std::vector<std::unique_ptr<raw_connection>> clients;
    for (int i = 0; i < 32; ++i) {
        clients.push_back(std::make_unique<raw_connection>(server.port()));
        EXPECT_EQ(type_of(clients.back()->exchange(bind_pdu())), 12U);
    }
    raw_connection next(server.port());
    EXPECT_TRUE(next.ended());
}

TEST(RpcLimitsTest, UnauthenticatedRequestAboveItsLimitIsFaultFive) {
    test_server server;
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    raw_request part;
    part.stub = bytes(5000);
    for (int i = 0; i < 14; ++i) {
        part.flags = i == 0 ? 1 : 0;
        client.send(request_pdu(part));
    }
    EXPECT_EQ(fault_of(client.receive()), 5U);
    client.end_of_output();
    EXPECT_TRUE(client.ended());
}

TEST(RpcLimitsTest, FragmentAboveTheLimitEndsTheConnectionBeforeItIsThere) {
    test_server server;
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    raw_writer header;
    header.u8(5).u8(0).u8(0).u8(3).u8(0x10).zeros(3).u16(5841).u16(0).u32(2);
    client.send(header.data);
    EXPECT_TRUE(client.ended());
    server.wait_for_event("RPC client 127.0.0.1 sent a fragment of impossible length and was disconnected.");
}

}  // namespace
