#include "platform/linux/rpc/rpc_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "rpc/support/raw_pdu.h"
#include "rpc/support/test_server.h"
#include "rpc/support/toy_security.h"
#include "support/temporary_folder.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

bytes stub_of(const bytes& response) {
    return response.size() < 24 || type_of(response) != 2 ? bytes{} : bytes(response.begin() + 24, response.end());
}

bytes request(unsigned number_of_operation, bytes stub, std::uint32_t call_id = 2) {
    raw_request made;
    made.operation = number_of_operation;
    made.stub = std::move(stub);
    made.call_id = call_id;
    return request_pdu(made);
}

TEST(RpcServerTest, AnswersACallOverTcp) {
    test_server server;
    raw_connection client(server.port());
    const bytes ack = client.exchange(bind_pdu());
    ASSERT_EQ(type_of(ack), 12U);
    const std::string port = std::to_string(server.port());
    EXPECT_EQ(bytes(ack.begin() + 26, ack.begin() + 26 + static_cast<std::ptrdiff_t>(port.size())), text_bytes(port));
    EXPECT_EQ(stub_of(client.exchange(request(operation::echo, {1, 2, 3}))), (bytes{1, 2, 3}));
    EXPECT_EQ(stub_of(client.exchange(request(operation::who, {}))), text_bytes("nobody"));
}

TEST(RpcServerTest, BytesMayComeOneAtATime) {
    test_server server;
    raw_connection client(server.port());
    for (const bytes& whole : {bind_pdu(), request(operation::echo, {7, 8, 9})}) {
        for (const std::uint8_t byte : whole) {
            client.send({&byte, 1});
        }
        const bytes answer = client.receive();
        EXPECT_TRUE(type_of(answer) == 12 || stub_of(answer) == (bytes{7, 8, 9}));
    }
}

TEST(RpcServerTest, RequestsSentAtOnceAreAnsweredInTurn) {
    test_server server;
    raw_connection client(server.port());
    bytes all = bind_pdu();
    for (std::uint8_t i = 0; i < 50; ++i) {
        const bytes one = request(operation::echo, {i}, 100U + i);
        all.insert(all.end(), one.begin(), one.end());
    }
    client.send(all);
    EXPECT_EQ(type_of(client.receive()), 12U);
    for (std::uint8_t i = 0; i < 50; ++i) {
        const bytes answer = client.receive();
        EXPECT_EQ(stub_of(answer), bytes{i});
        EXPECT_EQ(le32(answer, 12), 100U + i);
    }
}

TEST(RpcServerTest, LongRequestIsJoinedAndLongAnswerIsCut) {
    test_support::temporary_folder folder;
    rpc_server_options options = loopback_options();
    options.local_socket = folder / "socket";
    test_server server(options);
    raw_connection client(options.local_socket);
    raw_bind bind;
    bind.max_receive = 2000;
    ASSERT_EQ(type_of(client.exchange(bind_pdu(bind))), 12U);
    const bytes sent = pattern(300'000);
    for (std::size_t at = 0; at < sent.size(); at += 1000) {
        raw_request part;
        part.flags = (at == 0 ? 1U : 0U) | (at + 1000 == sent.size() ? 2U : 0U);
        part.stub.assign(sent.begin() + static_cast<std::ptrdiff_t>(at), sent.begin() + static_cast<std::ptrdiff_t>(at + 1000));
        client.send(request_pdu(part));
    }
    bytes got;
    for (bool last = false; !last;) {
        const bytes fragment = client.receive();
        ASSERT_EQ(type_of(fragment), 2U);
        EXPECT_LE(fragment.size(), 2000U);
        last = (fragment[3] & 2) != 0;
        got.insert(got.end(), fragment.begin() + 24, fragment.end());
    }
    EXPECT_EQ(got, sent);
}

TEST(RpcServerTest, AnswerLongerThanTheSocketsBuffersArrives) {
    test_server server;
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    constexpr std::uint32_t size = 9'000'000;
    client.send(request(operation::produce, number(size)));
    client.send(request(operation::echo, {5}, 3));
    bytes got;
    got.reserve(size);
    for (bool last = false; !last;) {
        const bytes fragment = client.receive();
        ASSERT_EQ(type_of(fragment), 2U);
        last = (fragment[3] & 2) != 0;
        got.insert(got.end(), fragment.begin() + 24, fragment.end());
    }
    EXPECT_EQ(got, pattern(size));
    EXPECT_EQ(stub_of(client.receive()), bytes{5});
}

TEST(RpcServerTest, CallInProgressHoldsNobodyElseUp) {
    test_server server;
    raw_connection slow(server.port());
    (void)slow.exchange(bind_pdu());
    slow.send(request(operation::block, {1}));
    server.wait_for_blocked(1);
    raw_connection quick(server.port());
    (void)quick.exchange(bind_pdu());
    EXPECT_EQ(stub_of(quick.exchange(request(operation::echo, {2}))), bytes{2});
    server.release();
    EXPECT_EQ(stub_of(slow.receive()), bytes{1});
}

TEST(RpcServerTest, CallAboveTheMaximumIsTooBusy) {
    test_server server(loopback_options(), 2);
    std::vector<std::unique_ptr<raw_connection>> slow;
    for (int i = 0; i < 2; ++i) {
        slow.push_back(std::make_unique<raw_connection>(server.port()));
        (void)slow.back()->exchange(bind_pdu());
        slow.back()->send(request(operation::block, {1}));
    }
    server.wait_for_blocked(2);
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    const bytes refused = client.exchange(request(operation::echo, {2}));
    EXPECT_EQ(fault_of(refused), 0x1C010014U);
    EXPECT_EQ(refused[3] & 0x20, 0x20) << "it did not execute";
    server.release();
    for (const auto& one : slow) {
        EXPECT_EQ(stub_of(one->receive()), bytes{1});
    }
    EXPECT_EQ(stub_of(client.exchange(request(operation::echo, {3}))), bytes{3});
}

TEST(RpcServerTest, AbandonedCallIsNotAnswered) {
    test_server server;
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    client.send(request(operation::block, {1}, 5));
    server.wait_for_blocked(1);
    client.send(pdu(18, 3, 5, {}));
    client.send(pdu(19, 3, 5, {}));
    client.send(request(operation::echo, {2}, 6));
    // The abandonment is heard before the call ends: a second connection's answer comes later than both were sent.
    raw_connection other(server.port());
    (void)other.exchange(bind_pdu());
    (void)other.exchange(request(operation::echo, {}));
    server.release();
    const bytes answer = client.receive();
    EXPECT_EQ(le32(answer, 12), 6U);
    EXPECT_EQ(stub_of(answer), bytes{2});
}

/// A connection authenticated at level integrity by the toy mechanism.
class signing_client {
public:
    explicit signing_client(std::uint16_t port) : connection(port) {
        raw_auth auth{10, level, 1, 0, text_bytes("hello")};
        raw_bind bind;
        bind.auth = &auth;
        EXPECT_EQ(type_of(connection.exchange(bind_pdu(bind))), 12U);
        auth.token = text_bytes("secret");
        connection.send(pdu(16, 3, 1, bytes(4), true, &auth));
    }
    void call(unsigned number_of_operation, std::uint32_t call_id) {
        raw_auth auth{10, level, 1, 0, bytes(16)};
        raw_request made;
        made.operation = number_of_operation;
        made.call_id = call_id;
        made.stub = bytes(16);
        made.auth = &auth;
        bytes data = request_pdu(made);
        const std::span<std::uint8_t> all(data);
        signer.protect(auth_level::integrity, all.first(data.size() - 16), 24, 16, all.last(16));
        connection.send(data);
    }
    void cancel(unsigned kind, std::uint32_t call_id) {
        const raw_auth auth{10, level, 1, 0, bytes(16)};
        bytes data = pdu(kind, 3, call_id, {}, true, &auth);
        const std::span<std::uint8_t> all(data);
        signer.protect(auth_level::integrity, all.first(data.size() - 16), 16, 0, all.last(16));
        connection.send(data);
    }
    /// Call id of the next answer, 0 for one whose signature is wrong.
    std::uint32_t answered() {
        bytes data = connection.receive();
        const std::span<std::uint8_t> all(data);
        const bool fits =
            data.size() == 64 && signer.unprotect(auth_level::integrity, all.first(data.size() - 16), 24, 16, all.last(16));
        return fits ? le32(data, 12) : 0;
    }

    raw_connection connection;
    toy_signer signer;

private:
    static constexpr unsigned level = 5;
};

TEST(RpcServerTest, SignaturesStayInStepWhenACallIsAbandoned) {
    test_server server;
    signing_client client(server.port());
    client.call(operation::block, 5);
    server.wait_for_blocked(1);
    client.connection.send(pdu(19, 3, 5, {}));
    client.call(operation::echo, 6);
    server.release();
    EXPECT_EQ(client.answered(), 5U) << "to be thrown away, but counted";
    EXPECT_EQ(client.answered(), 6U);
}

TEST(RpcServerTest, SignedCancelsAreHeardWhileTheirCallIsServedAndTakenInTheirTurn) {
    test_server server;
    signing_client client(server.port());
    client.call(operation::block, 5);
    server.wait_for_blocked(1);
    client.cancel(18, 5);
    client.cancel(19, 5);
    client.call(operation::echo, 6);
    client.cancel(18, 6);
    server.release();
    EXPECT_EQ(client.answered(), 5U) << "to be thrown away, but counted";
    EXPECT_EQ(client.answered(), 6U);
    client.call(operation::echo, 7);
    EXPECT_EQ(client.answered(), 7U);
}

TEST(RpcServerTest, LackOfMemoryCostsOneConnection) {
    class poor_provider final : public security_provider {
    public:
        std::uint8_t auth_type() const override { return 10; }
        bool supports(auth_level) const override { return true; }
        std::unique_ptr<security_context> create(auth_level) override { throw std::bad_alloc(); }
    };
    test_server server(loopback_options(), 100, std::make_shared<poor_provider>());
    raw_connection poor(server.port());
    const raw_auth auth{10, 2, 1, 0, text_bytes("hello")};
    raw_bind bind;
    bind.auth = &auth;
    poor.send(bind_pdu(bind));
    EXPECT_TRUE(poor.ended());
    server.wait_for_event("A connection was closed: std::bad_alloc");
    raw_connection next(server.port());
    (void)next.exchange(bind_pdu());
    EXPECT_EQ(stub_of(next.exchange(request(operation::echo, {4}))), bytes{4});
}

TEST(RpcServerTest, WhoEndsItsOutputStillGetsItsAnswers) {
    test_server server;
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    client.send(request(operation::block, {1}));
    client.send(request(operation::echo, {2}));
    client.end_of_output();
    server.wait_for_blocked(1);
    server.release();
    EXPECT_EQ(stub_of(client.receive()), bytes{1});
    EXPECT_EQ(stub_of(client.receive()), bytes{2});
    EXPECT_TRUE(client.ended());
}

TEST(RpcServerTest, ClientThatVanishesDuringItsCallHarmsNobody) {
    test_server server;
    {
        raw_connection client(server.port());
        (void)client.exchange(bind_pdu());
        client.send(request(operation::block, {1}));
        server.wait_for_blocked(1);
        const ::linger hard{1, 0};
        setsockopt(client.handle(), SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
    }
    server.release();
    raw_connection next(server.port());
    EXPECT_EQ(type_of(next.exchange(bind_pdu())), 12U);
    EXPECT_EQ(stub_of(next.exchange(request(operation::echo, {4}))), bytes{4});
}

TEST(RpcServerTest, FaultsLeaveTheConnectionAlone) {
    test_server server;
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    EXPECT_EQ(fault_of(client.exchange(request(operation::fault, number(1783)))), 0x6F7U);
    EXPECT_EQ(fault_of(client.exchange(request(operation::count, {}))), 0x1C010002U);
    EXPECT_EQ(stub_of(client.exchange(request(operation::echo, {4}))), bytes{4});
}

TEST(RpcServerTest, NonsenseEndsTheConnection) {
    test_server server;
    raw_connection http(server.port());
    http.send(text_bytes("GET / HTTP/1.1\r\nHost: tape\r\n\r\n"));
    EXPECT_TRUE(http.ended());
    raw_connection refused(server.port());
    EXPECT_EQ(fault_of(refused.exchange(request(operation::echo, {}))), 0x1C01000BU);
    EXPECT_TRUE(refused.ended());
}

TEST(RpcServerTest, RefusalArrivesThoughMoreWasSent) {
    test_server server;
    raw_connection client(server.port());
    bytes all = request(operation::echo, {});
    all.resize(all.size() + 100'000);
    client.send(all);
    EXPECT_EQ(fault_of(client.receive()), 0x1C01000BU);
    client.end_of_output();
    EXPECT_TRUE(client.ended());
}

TEST(RpcServerTest, EndpointsAreTakenOnce) {
    test_server server;
    rpc_server second(loopback_options());
    EXPECT_EQ(second.inquire_bindings(), 1718U);
    EXPECT_EQ(second.register_in_endpoint_mapper(server.offered, u"x"), 1718U);
    EXPECT_EQ(second.use_endpoint("ncacn_ip_tcp", 10, std::to_string(server.port())), 1740U);
    EXPECT_EQ(second.use_endpoint("ncacn_np", 10, "0"), 1703U);
    for (const char* wrong : {"", "x", "65536", "123456", "-1", " 1"}) {
        EXPECT_EQ(second.use_endpoint("ncacn_ip_tcp", 10, wrong), 1706U) << wrong;
    }
    EXPECT_EQ(second.inquire_bindings(), 1718U);
    EXPECT_EQ(second.use_all_protocol_sequences(10), 0U);
    EXPECT_NE(second.tcp_port(), 0);
    EXPECT_EQ(second.inquire_bindings(), 0U);
}

TEST(RpcServerTest, ListenAddressHasToBeANumericOneOfThisMachine) {
    for (const char* wrong : {"localhost", "192.0.2.77", "1.2.3"}) {
        rpc_server_options options;
        options.listen_address = wrong;
        rpc_server server(options);
        EXPECT_EQ(server.use_endpoint("ncacn_ip_tcp", 10, "0"), 1707U) << wrong;
    }
}

TEST(RpcServerTest, RegistrationsAreToldApart) {
    test_server server;
    EXPECT_EQ(server->listen(2, 10), 1713U);
    EXPECT_EQ(server->register_interface(server.offered, 0, 1234, 0xFFFFFFFF), 1712U);
    EXPECT_EQ(server->register_authentication(u"svc/host", 9), 1747U);
    EXPECT_EQ(server->register_authentication(u"svc/host", 16), 1747U);
}

TEST(RpcServerTest, InterfacesOwnRequestLimitHolds) {
    rpc_server server(loopback_options());
    platform::rpc_interface small;
    small.uuid = uuid_from_text(test_interface);
    small.major_version = 1;
    small.operations = 1;
    small.dispatch = [](const auto&, auto&) { return 0U; };
    ASSERT_EQ(server.use_endpoint("ncacn_ip_tcp", 10, "0"), 0U);
    ASSERT_EQ(server.register_interface(small, 0, 1234, 8), 0U);
    ASSERT_EQ(server.listen(1, 2), 0U);
    raw_connection client(server.tcp_port());
    (void)client.exchange(bind_pdu());
    EXPECT_EQ(type_of(client.exchange(request(0, bytes(8)))), 2U);
    EXPECT_EQ(fault_of(client.exchange(request(0, bytes(9)))), 5U);
}

TEST(RpcServerTest, NamesOfComputerAndPrincipal) {
    rpc_server server(loopback_options());
    std::u16string name;
    EXPECT_EQ(server.computer_name(name), 0U);
    EXPECT_FALSE(name.empty());
    std::u16string principal;
    EXPECT_EQ(server.make_principal_name(u"Service", u"host.example", principal), 0U);
    EXPECT_EQ(principal, u"Service/host.example");
}

TEST(RpcServerTest, TwoNetworkThreadsShareTheConnections) {
    rpc_server_options options = loopback_options();
    options.network_threads = 2;
    test_server server(options);
    std::vector<std::unique_ptr<raw_connection>> clients;
    for (std::uint8_t i = 0; i < 8; ++i) {
        clients.push_back(std::make_unique<raw_connection>(server.port()));
        (void)clients.back()->exchange(bind_pdu());
        EXPECT_EQ(stub_of(clients.back()->exchange(request(operation::echo, {i}))), bytes{i});
    }
}

TEST(RpcServerStopTest, IdleConnectionsEndAndNewOnesAreRefused) {
    test_server server;
    raw_connection idle(server.port());
    (void)idle.exchange(bind_pdu());
    EXPECT_EQ(server->stop_listening(), 0U);
    EXPECT_EQ(type_of(idle.receive()), 17U) << "the shutdown PDU";
    EXPECT_TRUE(idle.ended());
    rpc_server next(loopback_options());
    EXPECT_EQ(next.use_endpoint("ncacn_ip_tcp", 10, std::to_string(server.port())), 0U) << "the port is free at once";
    EXPECT_EQ(server->stop_listening(), 0U);
}

TEST(RpcServerStopTest, CallInProgressRunsOnAndIsAnswered) {
    test_server server;
    raw_connection busy(server.port());
    (void)busy.exchange(bind_pdu());
    busy.send(request(operation::block, {1}));
    busy.send(request(operation::echo, {2}));
    server.wait_for_blocked(1);
    EXPECT_EQ(server->stop_listening(), 0U);
    server.release();
    EXPECT_EQ(stub_of(busy.receive()), bytes{1});
    EXPECT_TRUE(busy.ended()) << "the call behind it is not served";
}

TEST(RpcServerStopTest, TheSameServerCanBeStartedAgain) {
    test_server server;
    EXPECT_EQ(server->stop_listening(), 0U);
    EXPECT_EQ(server->use_endpoint("ncacn_ip_tcp", 10, std::to_string(server.port())), 0U);
    EXPECT_EQ(server->register_interface(server.offered, 0, 1234, 0xFFFFFFFF), 1712U);
    EXPECT_EQ(server->listen(2, 10), 0U);
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    EXPECT_EQ(stub_of(client.exchange(request(operation::echo, {4}))), bytes{4});
}

TEST(RpcServerStopTest, AnswersOfTheLastCallsGoOutBeforeTheEnd) {
    auto server = std::make_unique<test_server>();
    raw_connection busy(server->port());
    (void)busy.exchange(bind_pdu());
    busy.send(request(operation::block, {1}));
    server->wait_for_blocked(1);
    server.reset();
    EXPECT_EQ(stub_of(busy.receive()), bytes{1});
}

}  // namespace
