#include "rpc/load_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>
#include <utility>

#include "common/measure.h"
#include "platform/linux/rpc/ntlm_initiator.h"
#include "platform/linux/rpc/pdu.h"

namespace bench {

namespace {

namespace wire = platform::linux_rpc;

constexpr std::uint16_t fragment = 5840;
constexpr std::size_t block_size = std::size_t{256} * 1024;
constexpr std::uint8_t level_connect = 2;

std::vector<std::uint8_t> receive_pdu(const client_socket& connection) {
    std::vector<std::uint8_t> pdu(wire::pdu_header_size);
    connection.receive(pdu);
    pdu.resize(wire::decode_header(pdu)->fragment_length);
    connection.receive(std::span(pdu).subspan(wire::pdu_header_size));
    return pdu;
}

/// What one thread of the load has seen.
struct thread_result {
    std::size_t calls = 0;
    std::vector<std::uint32_t> nanoseconds;
};

void exchange_until(const client_socket& connection, const exchange& what, const std::atomic<bool>& ended, thread_result& result) {
    using clock = std::chrono::steady_clock;
    std::vector<std::uint8_t> block(std::min(what.answer, block_size));
    result.nanoseconds.reserve(std::size_t{1} << 18);
    auto before = clock::now();
    while (!ended.load(std::memory_order_relaxed)) {
        connection.send(what.request);
        connection.receive(what.answer, block);
        const auto now = clock::now();
        result.nanoseconds.push_back(static_cast<std::uint32_t>((now - before).count()));
        before = now;
        ++result.calls;
    }
}

double ninety_ninth(std::vector<thread_result>& results) {
    std::vector<std::uint32_t> all;
    for (const thread_result& result : results) {
        all.insert(all.end(), result.nanoseconds.begin(), result.nanoseconds.end());
    }
    if (all.empty()) {
        fail("No exchange was completed.");
    }
    const auto place = all.begin() + static_cast<std::ptrdiff_t>(all.size() * 99 / 100);
    std::nth_element(all.begin(), place, all.end());
    return *place / 1e3;
}

}  // namespace

client_socket::client_socket(std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        fail("A server of the benchmark can't be reached.");
    }
    const int on = 1;
    (void)setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

client_socket::~client_socket() {
    if (socket_ >= 0) {
        close(socket_);
    }
}

client_socket::client_socket(client_socket&& other) noexcept : socket_(std::exchange(other.socket_, -1)) {}

void client_socket::send(std::span<const std::uint8_t> bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            fail("A server of the benchmark has closed a connection.");
        }
        bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
}

void client_socket::receive(std::span<std::uint8_t> bytes) const {
    receive(bytes.size(), bytes);
}

void client_socket::receive(std::size_t count, std::span<std::uint8_t> block) const {
    const bool whole = count <= block.size();
    std::size_t done = 0;
    while (done < count) {
        const std::span<std::uint8_t> room =
            whole ? block.subspan(done, count - done) : block.first(std::min(block.size(), count - done));
        const ssize_t got = recv(socket_, room.data(), room.size(), 0);
        if (got <= 0) {
            fail("A server of the benchmark has closed a connection.");
        }
        done += static_cast<std::size_t>(got);
    }
}

client_socket bind_to(std::uint16_t port, const wire::syntax_id& interface, const caller* who) {
    client_socket connection(port);
    wire::bind_body body;
    body.max_transmit = fragment;
    body.max_receive = fragment;
    body.contexts.push_back({0, interface, {wire::ndr_transfer_syntax()}});
    if (who == nullptr) {
        connection.send(wire::encode_bind(wire::pdu_type::bind, 0, 1, body, {}));
        (void)receive_pdu(connection);
        return connection;
    }
    wire::ntlm_initiator initiator(wire::ntlm_credentials::of(who->name, who->password));
    std::vector<std::uint8_t> token = initiator.next_token({});
    connection.send(wire::encode_bind(wire::pdu_type::bind, 0, 1, body, {initiator.auth_type(), level_connect, 1, token}));
    const std::vector<std::uint8_t> ack = receive_pdu(connection);
    const auto trailer = wire::decode_auth_trailer(*wire::decode_header(ack), ack, wire::pdu_header_size);
    if (!trailer) {
        fail("The server doesn't offer NTLM.");
    }
    token = initiator.next_token(trailer->token);
    connection.send(wire::encode_auth3(1, {initiator.auth_type(), level_connect, 1, token}));
    return connection;
}

std::vector<std::uint8_t> request_pdus(std::uint16_t operation, std::span<const std::uint8_t> stub) {
    constexpr std::size_t chunk = (fragment - wire::request_header_size) & ~std::size_t{7};
    std::vector<std::uint8_t> all;
    std::size_t at = 0;
    do {
        const std::span<const std::uint8_t> part = stub.subspan(at, std::min(chunk, stub.size() - at));
        wire::pdu_header header;
        header.type = wire::pdu_type::request;
        header.call_id = 2;
        header.flags = static_cast<std::uint8_t>((at == 0 ? wire::pdu_flag::first : 0) |
                                                 (at + part.size() == stub.size() ? wire::pdu_flag::last : 0));
        header.fragment_length = static_cast<std::uint16_t>(wire::request_header_size + part.size());
        std::array<std::uint8_t, wire::request_header_size> front{};
        wire::encode_call_header(front, header, static_cast<std::uint32_t>(stub.size() - at), 0, operation);
        all.insert(all.end(), front.begin(), front.end());
        all.insert(all.end(), part.begin(), part.end());
        at += part.size();
    } while (at < stub.size());
    return all;
}

std::vector<std::uint8_t> call_once(const client_socket& connection, std::span<const std::uint8_t> request) {
    connection.send(request);
    std::vector<std::uint8_t> answer;
    for (bool last = false; !last;) {
        const std::vector<std::uint8_t> pdu = receive_pdu(connection);
        const auto header = *wire::decode_header(pdu);
        if (header.type != wire::pdu_type::response) {
            fail("A call of the benchmark was refused.");
        }
        answer.insert(answer.end(), pdu.begin(), pdu.end());
        last = header.has(wire::pdu_flag::last);
    }
    return answer;
}

load_result run_load(const std::vector<client_socket>& connections, const exchange& what, std::chrono::milliseconds time) {
    std::atomic<bool> ended{false};
    std::vector<thread_result> results(connections.size());
    std::vector<std::thread> threads;
    const auto began = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < connections.size(); ++i) {
        threads.emplace_back([&, i] { exchange_until(connections[i], what, ended, results[i]); });
    }
    std::this_thread::sleep_for(time);
    ended = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    load_result result;
    for (const thread_result& one : results) {
        result.per_second += static_cast<double>(one.calls) / took.count();
    }
    result.p99_us = ninety_ninth(results);
    return result;
}

}  // namespace bench
