#include "platform/linux/debug_output.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>

#include "platform/linux/descriptor.h"

namespace {

using platform::linux_os::linux_debug_output;

constexpr std::uint32_t loopback = 0x7F000001;

/// A bound UDP socket and its port.
struct listener {
    listener() : socket(::socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(loopback);
        socklen_t size = sizeof(address);
        EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
        EXPECT_EQ(getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
        port = ntohs(address.sin_port);
        const timeval limit{10, 0};
        EXPECT_EQ(setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)), 0);
    }
    [[nodiscard]] std::string receive() const {
        std::array<char, 1000> data{};
        const ssize_t size = recv(socket.get(), data.data(), data.size(), 0);
        return size < 0 ? "nothing came" : std::string(data.data(), static_cast<std::size_t>(size));
    }

    platform::linux_os::descriptor socket;
    std::uint16_t port = 0;
};

TEST(LinuxDebugOutput, SendsOneDatagramAText) {
    const listener there;
    linux_debug_output output;
    const auto socket = output.open_datagram_socket();
    ASSERT_NE(socket, nullptr);
    socket->send({loopback, there.port}, "first\n");
    socket->send({loopback, there.port}, std::string_view("a\0b", 3));
    EXPECT_EQ(there.receive(), "first\n");
    EXPECT_EQ(there.receive(), std::string("a\0b", 3));
}

TEST(LinuxDebugOutput, NobodyAtTheOtherEndIsNoMatter) {
    std::uint16_t port = 0;
    {
        const listener gone;
        port = gone.port;
    }
    linux_debug_output output;
    const auto socket = output.open_datagram_socket();
    socket->send({loopback, port}, "first");
    socket->send({loopback, port}, "second");
    socket->send({loopback, port}, std::string(100'000, 'x'));
    const listener there;
    socket->send({loopback, there.port}, "third");
    EXPECT_EQ(there.receive(), "third");
}

TEST(LinuxDebugOutput, KnowsTheNotationsOfAnAddress) {
    linux_debug_output output;
    EXPECT_EQ(output.parse_address("127.0.0.1"), loopback);
    EXPECT_EQ(output.parse_address("192.168.1.20"), 0xC0A80114U);
    EXPECT_EQ(output.parse_address("not an address"), 0xFFFFFFFFU);
    EXPECT_EQ(output.parse_address("127.1"), loopback);
}

TEST(LinuxDebugOutput, TakesTextsOfSeveralLinesAndNone) {
    linux_debug_output output;
    EXPECT_NO_THROW(output.write("one\ntwo %s\n"));
    EXPECT_NO_THROW(output.write(""));
}

}  // namespace
