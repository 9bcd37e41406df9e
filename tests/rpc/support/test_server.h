#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/rpc/rpc_server.h"
#include "rpc/support/raw_pdu.h"

namespace rpc_test {

/// Operations of the test interface.
namespace operation {
inline constexpr unsigned echo = 0;
inline constexpr unsigned block = 1;    ///< answers when `release` was called
inline constexpr unsigned produce = 2;  ///< answers with as many bytes as the first number of the request says
inline constexpr unsigned who = 3;      ///< answers with "name level" of the caller, or "nobody"
inline constexpr unsigned fault = 4;    ///< answers with the first number of the request as status
inline constexpr unsigned count = 5;
}  // namespace operation

platform::linux_rpc::rpc_server_options loopback_options();

/// A server on loopback with the test interface and one kind of authentication.
class test_server {
public:
    /// `provider`: what serves authentication service 10; null: the toy mechanism.
    explicit test_server(platform::linux_rpc::rpc_server_options options = loopback_options(), std::uint32_t max_calls = 100,
                         std::shared_ptr<platform::linux_rpc::security_provider> provider = nullptr);
    ~test_server();
    test_server(const test_server&) = delete;
    test_server& operator=(const test_server&) = delete;

    platform::linux_rpc::rpc_server& operator*() { return *server_; }
    platform::linux_rpc::rpc_server* operator->() { return server_.get(); }
    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// Waits until so many calls block.
    void wait_for_blocked(int calls);
    /// Lets all blocked calls, and those to come, answer.
    void release();
    std::vector<std::string> events();
    void wait_for_event(const std::string& sentence);

    platform::rpc_interface offered;

private:
    std::uint32_t serve(const platform::rpc_request& request, platform::rpc_reply& reply);

    std::mutex mutex_;
    std::condition_variable changed_;
    int blocked_ = 0;
    bool released_ = false;
    std::vector<std::string> events_;
    std::unique_ptr<platform::linux_rpc::rpc_server> server_;
    std::uint16_t port_ = 0;
};

/// A client socket whose user says every byte himself. Waits of more than some seconds fail the test.
class raw_connection {
public:
    explicit raw_connection(std::uint16_t port);
    explicit raw_connection(const std::string& path);
    ~raw_connection();
    raw_connection(const raw_connection&) = delete;
    raw_connection& operator=(const raw_connection&) = delete;

    void send(std::span<const std::uint8_t> data);
    void end_of_output();
    /// The next PDU; empty at the end of the connection.
    bytes receive();
    /// Whether the server has nothing to say but the end.
    [[nodiscard]] bool ended();
    bytes exchange(std::span<const std::uint8_t> data);
    int handle() const { return socket_; }

private:
    bytes receive_bytes(std::size_t count);
    int socket_ = -1;
};

bytes number(std::uint32_t value);
bytes pattern(std::size_t size);

}  // namespace rpc_test
