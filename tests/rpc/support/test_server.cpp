#include "rpc/support/test_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

#include "platform/linux/rpc/current_call.h"
#include "rpc/support/toy_security.h"

namespace rpc_test {

using namespace platform::linux_rpc;

namespace {
constexpr std::chrono::seconds patience{20};
}

rpc_server_options loopback_options() {
    rpc_server_options options;
    options.listen_address = "127.0.0.1";
    return options;
}

test_server::test_server(rpc_server_options options, std::uint32_t max_calls, std::shared_ptr<security_provider> provider) {
    options.on_event = [this](const std::string& sentence) {
        const std::lock_guard lock(mutex_);
        events_.push_back(sentence);
        changed_.notify_all();
    };
    server_ = std::make_unique<rpc_server>(std::move(options));
    offered.uuid = uuid_from_text(test_interface);
    offered.major_version = 1;
    offered.operations = operation::count;
    offered.dispatch = [this](const platform::rpc_request& request, platform::rpc_reply& reply) { return serve(request, reply); };
    server_->add_security_provider(provider ? std::move(provider) : std::make_shared<toy_provider>());
    EXPECT_EQ(server_->use_endpoint("ncacn_ip_tcp", 10, "0"), 0U);
    EXPECT_EQ(server_->register_authentication(u"svc/host.example", 10), 0U);
    EXPECT_EQ(server_->register_interface(offered, 0, 1234, 0xFFFFFFFF), 0U);
    EXPECT_EQ(server_->register_in_endpoint_mapper(offered, u"Test annotation"), 0U);
    port_ = server_->tcp_port();
    EXPECT_EQ(server_->listen(2, max_calls), 0U);
}

test_server::~test_server() {
    release();
    server_.reset();
}

std::uint32_t test_server::serve(const platform::rpc_request& request, platform::rpc_reply& reply) {
    const auto answer = [&](std::span<const std::uint8_t> data) {
        std::ranges::copy(data, reply.allocate(data.size()).begin());
        return 0U;
    };
    wire_reader reader(request.stub, request.little_endian);
    switch (request.operation) {
        case operation::echo:
            return answer(request.stub);
        case operation::block: {
            std::unique_lock lock(mutex_);
            ++blocked_;
            changed_.notify_all();
            changed_.wait(lock, [this] { return released_; });
            --blocked_;
            return answer(request.stub);
        }
        case operation::produce:
            return answer(pattern(reader.u32()));
        case operation::who: {
            const call_scene* scene = current_call();
            return answer(text_bytes(scene->identity->authenticated
                                         ? scene->identity->name + ' ' + std::to_string(static_cast<int>(scene->level))
                                         : "nobody"));
        }
        default:
            return reader.u32();
    }
}

void test_server::wait_for_blocked(int calls) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, patience, [&] { return blocked_ >= calls; }));
}

void test_server::release() {
    const std::lock_guard lock(mutex_);
    released_ = true;
    changed_.notify_all();
}

std::vector<std::string> test_server::events() {
    const std::lock_guard lock(mutex_);
    return events_;
}

void test_server::wait_for_event(const std::string& sentence) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, patience, [&] { return std::ranges::find(events_, sentence) != events_.end(); }))
        << sentence;
}

raw_connection::raw_connection(std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    const int on = 1;
    setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

raw_connection::raw_connection(const std::string& path) : socket_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0) << path;
}

raw_connection::~raw_connection() {
    close(socket_);
}

void raw_connection::send(std::span<const std::uint8_t> data) {
    while (!data.empty()) {
        const ssize_t sent = ::send(socket_, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return;  // the server has closed: what it said is what counts
        }
        data = data.subspan(static_cast<std::size_t>(sent));
    }
}

void raw_connection::end_of_output() {
    shutdown(socket_, SHUT_WR);
}

bytes raw_connection::receive_bytes(std::size_t count) {
    bytes data;
    while (data.size() < count) {
        pollfd watched{socket_, POLLIN, 0};
        if (poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) <= 0) {
            ADD_FAILURE() << "the server says nothing";
            return {};
        }
        bytes part(count - data.size());
        const ssize_t got = recv(socket_, part.data(), part.size(), 0);
        if (got <= 0) {
            return {};
        }
        data.insert(data.end(), part.begin(), part.begin() + got);
    }
    return data;
}

bytes raw_connection::receive() {
    bytes data = receive_bytes(16);
    if (!data.empty()) {
        const bytes rest = receive_bytes(le16(data, 8) - 16);
        data.insert(data.end(), rest.begin(), rest.end());
    }
    return data;
}

bool raw_connection::ended() {
    return receive_bytes(1).empty() && !testing::Test::HasFailure();
}

bytes raw_connection::exchange(std::span<const std::uint8_t> data) {
    send(data);
    return receive();
}

bytes number(std::uint32_t value) {
    return raw_writer().u32(value).data;
}

bytes pattern(std::size_t size) {
    constexpr std::size_t period = std::size_t{256} * 256;
    bytes data(size);
    for (std::size_t i = 0; i < std::min(size, period); ++i) {
        data[i] = static_cast<std::uint8_t>(i * 31 + i / 256);
    }
    // The rest in one go for each period: long answers would take their time in instrumented builds.
    for (std::size_t done = period; done < size; done += period) {
        std::copy_n(data.begin(), std::min(period, size - done), data.begin() + static_cast<std::ptrdiff_t>(done));
    }
    return data;
}

}  // namespace rpc_test
