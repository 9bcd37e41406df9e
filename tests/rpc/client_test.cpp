#include "platform/linux/rpc/rpc_client.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "rpc/support/test_server.h"
#include "rpc/support/toy_security.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;
using namespace std::chrono_literals;
using kind = rpc_client_error::kind;

const syntax_id wanted{uuid_from_text(test_interface), 1, 0};

/// How an action fails.
std::pair<kind, std::uint32_t> failure_of(const std::function<void()>& action) {
    try {
        action();
    } catch (const rpc_client_error& e) {
        EXPECT_STRNE(e.what(), "");
        return {e.what_kind(), e.status()};
    }
    ADD_FAILURE() << "it did not fail";
    return {};
}

TEST(RpcClientTest, CallsWithoutSecurity) {
    test_server server;
    auto client = rpc_client::connect_tcp("127.0.0.1", server.port(), 10s);
    client.bind(wanted, 10s);
    for (const std::size_t size : {0, 1, 5000, 5808, 5809, 60'000}) {
        EXPECT_EQ(client.call(operation::echo, pattern(size), 10s), pattern(size)) << size;
    }
    EXPECT_EQ(client.call(operation::produce, number(3'000'000), 30s), pattern(3'000'000));
}

TEST(RpcClientTest, CallsAtEveryLevel) {
    test_server server;
    for (const bool by_alter_context : {false, true}) {
        for (const auto level :
             {auth_level::connect, auth_level::call, auth_level::packet, auth_level::integrity, auth_level::privacy}) {
            auto client = rpc_client::connect_tcp("127.0.0.1", server.port(), 10s);
            client.bind(wanted, 10s, std::make_unique<toy_client>("secret", by_alter_context), level);
            const int effective = level == auth_level::call ? 4 : static_cast<int>(level);
            EXPECT_EQ(client.call(operation::who, {}, 10s), text_bytes("TOY\\user " + std::to_string(effective)));
            for (const std::size_t size : {0, 15, 16, 17, 300'000}) {
                EXPECT_EQ(client.call(operation::echo, pattern(size), 10s), pattern(size)) << size;
            }
        }
    }
}

TEST(RpcClientTest, FailuresAreToldApart) {
    test_server server;
    EXPECT_EQ(failure_of([] { (void)rpc_client::connect_local("/nonexistent/socket", 10s); }),
              std::pair(kind::connect_failed, std::uint32_t{ENOENT}));
    EXPECT_EQ(failure_of([] { (void)rpc_client::connect_tcp("127.0.0.1", 1, 10s); }),
              std::pair(kind::connect_failed, std::uint32_t{ECONNREFUSED}));
    auto client = rpc_client::connect_tcp("127.0.0.1", server.port(), 10s);
    EXPECT_EQ(failure_of([&] { client.bind({uuid_from_text(ndr_syntax), 1, 0}, 10s); }), std::pair(kind::rejected, 1U));
    auto calling = rpc_client::connect_tcp("127.0.0.1", server.port(), 10s);
    calling.bind(wanted, 10s);
    EXPECT_EQ(failure_of([&] { calling.call(operation::fault, number(1783), 10s); }), std::pair(kind::fault, 1783U));
    EXPECT_EQ(calling.call(operation::echo, bytes{1}, 10s), bytes{1}) << "a fault leaves the connection alone";
    EXPECT_EQ(failure_of([&] { calling.call(operation::block, bytes{1}, 20ms); }), std::pair(kind::timed_out, 0U));
}

TEST(RpcClientTest, WrongSecretShowsAsFaultFiveOrRejection) {
    test_server server;
    auto by_auth3 = rpc_client::connect_tcp("127.0.0.1", server.port(), 10s);
    by_auth3.bind(wanted, 10s, std::make_unique<toy_client>("wrong"), auth_level::connect);
    EXPECT_EQ(failure_of([&] { by_auth3.call(operation::who, {}, 10s); }), std::pair(kind::fault, 5U));
    auto by_alter = rpc_client::connect_tcp("127.0.0.1", server.port(), 10s);
    EXPECT_EQ(failure_of([&] { by_alter.bind(wanted, 10s, std::make_unique<toy_client>("wrong", true), auth_level::connect); }),
              std::pair(kind::rejected, 5U));
}

TEST(RpcClientTest, ServerThatStopsIsALostConnection) {
    test_server server;
    auto client = rpc_client::connect_tcp("127.0.0.1", server.port(), 10s);
    client.bind(wanted, 10s);
    (void)server->stop_listening();
    EXPECT_EQ(failure_of([&] { client.call(operation::echo, {}, 10s); }), std::pair(kind::lost, 0U));
}

/// A server that says what it is told to, whatever it is asked.
class lying_server {
public:
    explicit lying_server(std::vector<bytes> answers) : listener_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener_, 1), 0);
        socklen_t size = sizeof(address);
        EXPECT_EQ(getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
        port = ntohs(address.sin_port);
        thread_ = std::thread([this, answers = std::move(answers)] {
            const int accepted = accept(listener_, nullptr, nullptr);
            for (const bytes& answer : answers) {
                bytes asked(6000);
                (void)recv(accepted, asked.data(), asked.size(), 0);
                (void)send(accepted, answer.data(), answer.size(), MSG_NOSIGNAL);
            }
            close(accepted);
        });
    }
    ~lying_server() {
        thread_.join();
        close(listener_);
    }
    lying_server(const lying_server&) = delete;
    lying_server& operator=(const lying_server&) = delete;
    std::uint16_t port = 0;

private:
    int listener_;
    std::thread thread_;
};

TEST(RpcClientTest, NonsenseOfAServerIsALostConnection) {
    const bytes ack = raw_writer()
                          .u8(5)
                          .u8(0)
                          .u8(12)
                          .u8(3)
                          .u8(0x10)
                          .zeros(3)
                          .u16(56)
                          .u16(0)
                          .u32(1)
                          .u16(5840)
                          .u16(5840)
                          .u32(1)
                          .u16(0)
                          .zeros(2)
                          .u8(1)
                          .zeros(3)
                          .u16(0)
                          .u16(0)
                          .uuid(ndr_syntax)
                          .u32(2)
                          .data;
    const bytes other_call = pdu(2, 3, 99, bytes(8));
    const bytes short_response = pdu(2, 3, 2, {});
    const bytes strange_type = pdu(11, 3, 2, bytes(8));
    const bytes text = text_bytes("HTTP/1.1 400 Bad Request\r\n\r\n");
    for (const std::vector<bytes>& answers : std::vector<std::vector<bytes>>{{text},
                                                                             {pdu(12, 3, 1, bytes(3))},
                                                                             {pdu(17, 3, 1, {})},
                                                                             {ack, other_call},
                                                                             {ack, short_response},
                                                                             {ack, strange_type},
                                                                             {ack, text},
                                                                             {ack}}) {
        lying_server server(answers);
        auto client = rpc_client::connect_tcp("127.0.0.1", server.port, 10s);
        EXPECT_EQ(failure_of([&] {
                      client.bind(wanted, 10s);
                      client.call(0, bytes(8), 10s);
                  }).first,
                  kind::lost);
    }
}

}  // namespace
