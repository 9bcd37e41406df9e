#include "platform/linux/rpc/rpc_client.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace platform::linux_rpc {

namespace {

using kind = rpc_client_error::kind;
using steady = std::chrono::steady_clock;

constexpr std::uint16_t longest_fragment = 5840;
/// A PDU has 16 bits for its length, and more in it than the token.
constexpr std::size_t longest_token = 65000;
/// Longest answer taken: far above any of ours, and below what a lying server could make this process allocate.
constexpr std::size_t longest_answer = std::size_t{256} * 1024 * 1024;
constexpr std::uint32_t security_context_id = 1;

[[noreturn]] void fail_lost(const std::string& why) {
    throw rpc_client_error(kind::lost, 0, "The connection to the server was lost: " + why);
}

[[noreturn]] void fail_rejected(std::uint32_t reason, const std::string& why) {
    throw rpc_client_error(kind::rejected, reason, "The server refused the connection: " + why);
}

/// Waits until the socket is ready for `events`.
void wait_for(int socket, short events, steady::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady::now()).count();
        pollfd watched{socket, events, 0};
        const int ready = left > 0 ? poll(&watched, 1, static_cast<int>(std::min<long long>(left, 1'000'000'000))) : 0;
        if (ready > 0) {
            return;
        }
        if (ready == 0 && left <= 1'000'000'000) {
            throw rpc_client_error(kind::timed_out, 0, "The server did not answer in time.");
        }
        if (ready < 0 && errno != EINTR) {
            fail_lost(std::strerror(errno));
        }
    }
}

/// Connects a new socket; an errno, 0 for success.
int try_connect(int socket, const sockaddr* address, socklen_t size, steady::time_point deadline) {
    if (connect(socket, address, size) == 0) {
        return 0;
    }
    if (errno != EINPROGRESS) {
        return errno;
    }
    wait_for(socket, POLLOUT, deadline);
    int outcome = 0;
    socklen_t outcome_size = sizeof(outcome);
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &outcome, &outcome_size) == 0 ? outcome : errno;
}

rpc_client_error connect_error(const std::string& where, int number) {
    return {kind::connect_failed, static_cast<std::uint32_t>(number), "Cannot connect to " + where + ": " + std::strerror(number)};
}

}  // namespace

rpc_client rpc_client::connect_local(const std::string& path, duration time_out) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        throw connect_error(path, ENAMETOOLONG);
    }
    path.copy(address.sun_path, path.size());
    rpc_client client(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (client.socket_ < 0) {
        throw connect_error(path, errno);
    }
    const int failure =
        try_connect(client.socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address), steady::now() + time_out);
    if (failure != 0) {
        throw connect_error(path, failure);
    }
    return client;
}

rpc_client rpc_client::connect_tcp(const std::string& host, std::uint16_t port, duration time_out) {
    const auto deadline = steady::now() + time_out;
    const std::string where = host + ':' + std::to_string(port);
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* raw = nullptr;
    if (const int failure = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &raw); failure != 0) {
        throw rpc_client_error(kind::connect_failed, 0, "Cannot connect to " + where + ": " + gai_strerror(failure));
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> found(raw, freeaddrinfo);
    int failure = ECONNREFUSED;
    for (const addrinfo* candidate = found.get(); candidate != nullptr; candidate = candidate->ai_next) {
        rpc_client client(socket(candidate->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (client.socket_ < 0) {
            failure = errno;
            continue;
        }
        failure = try_connect(client.socket_, candidate->ai_addr, candidate->ai_addrlen, deadline);
        if (failure == 0) {
            const int on = 1;
            (void)setsockopt(client.socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
            return client;
        }
    }
    throw connect_error(where, failure);
}

rpc_client::~rpc_client() {
    if (socket_ >= 0) {
        (void)close(socket_);
    }
}

rpc_client::rpc_client(rpc_client&& other) noexcept
    : socket_(std::exchange(other.socket_, -1)),
      call_id_(other.call_id_),
      max_transmit_(other.max_transmit_),
      security_(std::move(other.security_)),
      level_(other.level_) {}

void rpc_client::send(std::span<const std::uint8_t> bytes, deadline_type deadline) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(sent));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            wait_for(socket_, POLLOUT, deadline);
        } else if (errno == EPIPE || errno == ECONNRESET) {
            return;  // the server may have said why before it closed: that is what the caller should hear
        } else if (errno != EINTR) {
            fail_lost(std::strerror(errno));
        }
    }
}

void rpc_client::receive(std::span<std::uint8_t> bytes, deadline_type deadline) {
    while (!bytes.empty()) {
        const ssize_t got = recv(socket_, bytes.data(), bytes.size(), 0);
        if (got > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(got));
        } else if (got == 0) {
            fail_lost("the server closed it");
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            wait_for(socket_, POLLIN, deadline);
        } else if (errno != EINTR) {
            fail_lost(std::strerror(errno));
        }
    }
}

rpc_client::received_pdu rpc_client::receive_pdu(deadline_type deadline) {
    received_pdu pdu;
    pdu.bytes.resize(pdu_header_size);
    receive(pdu.bytes, deadline);
    pdu.header = *decode_header(pdu.bytes);
    if (pdu.header.version != 5 || !plausible(pdu.header)) {
        fail_lost("the server doesn't speak the protocol");
    }
    pdu.bytes.resize(pdu.header.fragment_length);
    receive(std::span(pdu.bytes).subspan(pdu_header_size), deadline);
    if (pdu.header.type == pdu_type::shutdown) {
        fail_lost("the server stops");
    }
    return pdu;
}

void rpc_client::bind(const syntax_id& interface, duration time_out, std::unique_ptr<client_security> security, auth_level level) {
    const auto deadline = steady::now() + time_out;
    security_ = std::move(security);
    level_ = security_ ? level : auth_level::none;
    if (level_ == auth_level::call) {
        level_ = auth_level::packet;  // the other one is for datagrams
    }
    bind_body body;
    body.max_transmit = longest_fragment;
    body.max_receive = longest_fragment;
    body.contexts.push_back({0, interface, {ndr_transfer_syntax()}});
    std::vector<std::uint8_t> token;
    auth_token auth;
    if (security_) {
        token = security_->next_token({});
        if (security_->current_state() == client_security::state::refused) {
            throw rpc_client_error(kind::unable, 0, "This user can't prove who it is: " + security_->reason());
        }
        check_security(token);
        auth = {security_->auth_type(), static_cast<std::uint8_t>(level_), security_context_id, token};
    }
    const std::uint8_t flags = security_ ? pdu_flag::header_sign : std::uint8_t{0};
    send(encode_bind(pdu_type::bind, flags, call_id_, body, auth), deadline);
    const received_pdu ack = receive_pdu(deadline);
    take_ack(ack);
    if (security_) {
        security_->header_signing(ack.header.has(pdu_flag::header_sign));
        authenticate(ack, body, deadline);
    }
}

void rpc_client::take_ack(const received_pdu& pdu) {
    const std::span<const std::uint8_t> bytes(pdu.bytes);
    wire_reader reader(bytes.subspan(pdu_header_size), pdu.header.little_endian);
    if (pdu.header.type == pdu_type::bind_nak) {
        const std::uint16_t reason = reader.u16();
        fail_rejected(reason, "reason " + std::to_string(reason));
    }
    if (pdu.header.type == pdu_type::fault) {
        reader.skip(8);
        fail_rejected(reader.u32(), "the authentication failed");
    }
    const auto body = decode_bind_ack_body(bytes.subspan(pdu_header_size), pdu.header.little_endian);
    if ((pdu.header.type != pdu_type::bind_ack && pdu.header.type != pdu_type::alter_context_resp) || !body) {
        fail_lost("the server's answer to the bind makes no sense");
    }
    if (body->results.empty() || body->results[0].result != negotiation::acceptance) {
        const std::uint16_t reason = body->results.empty() ? std::uint16_t{0} : body->results[0].reason;
        fail_rejected(reason, "it doesn't serve the interface");
    }
    if (pdu.header.type == pdu_type::bind_ack) {
        max_transmit_ = std::clamp<std::size_t>(body->max_receive, 1432, longest_fragment);
    }
}

void rpc_client::check_security(std::span<const std::uint8_t> token) const {
    if (security_->current_state() == client_security::state::refused) {
        const std::string reason = security_->reason();
        fail_rejected(0, reason.empty() ? "its part of the authentication can't be accepted" : reason);
    }
    if (token.size() > longest_token) {
        fail_rejected(0, "the token of the authentication is too long to be sent");
    }
}

/// Exchanges tokens until both sides are content, from the one in the server's answer to the bind on.
void rpc_client::authenticate(const received_pdu& ack, const bind_body& body, deadline_type deadline) {
    received_pdu last = ack;
    while (security_->current_state() == client_security::state::proceed) {
        const auto trailer = decode_auth_trailer(last.header, last.bytes, pdu_header_size);
        if (!trailer) {
            fail_rejected(0, "it ended the authentication half way");
        }
        const std::vector<std::uint8_t> token = security_->next_token(trailer->token);
        check_security(token);
        if (token.empty()) {
            continue;
        }
        const auth_token auth{security_->auth_type(), static_cast<std::uint8_t>(level_), security_context_id, token};
        if (security_->current_state() == client_security::state::complete && !security_->ends_by_alter_context()) {
            send(encode_auth3(call_id_, auth), deadline);
            return;
        }
        send(encode_bind(pdu_type::alter_context, pdu_flag::header_sign, call_id_, body, auth), deadline);
        last = receive_pdu(deadline);
        take_ack(last);
    }
}

std::vector<std::uint8_t> rpc_client::call(std::uint16_t operation, std::span<const std::uint8_t> stub, duration time_out) {
    const auto deadline = steady::now() + time_out;
    ++call_id_;
    send_request(operation, stub, deadline);
    std::vector<std::uint8_t> answer;
    for (bool first = true;; first = false) {
        received_pdu pdu = receive_pdu(deadline);
        if (pdu.header.call_id != call_id_ || (first && !pdu.header.has(pdu_flag::first))) {
            fail_lost("the server answered something that wasn't asked");
        }
        take_response(pdu, answer);
        if (pdu.header.has(pdu_flag::last)) {
            return answer;
        }
    }
}

void rpc_client::send_request(std::uint16_t operation, std::span<const std::uint8_t> stub, deadline_type deadline) {
    const bool signs = level_ >= auth_level::packet;
    const std::size_t overhead = request_header_size + (signs ? auth_trailer_size + security_->signature_size() : 0);
    const std::size_t chunk = (max_transmit_ - overhead) & ~(auth_alignment - 1);
    std::size_t at = 0;
    do {
        const std::span<const std::uint8_t> part = stub.subspan(at, std::min(chunk, stub.size() - at));
        pdu_header header;
        header.type = pdu_type::request;
        header.call_id = call_id_;
        header.flags =
            static_cast<std::uint8_t>((at == 0 ? pdu_flag::first : 0) | (at + part.size() == stub.size() ? pdu_flag::last : 0));
        header.fragment_length = static_cast<std::uint16_t>(request_header_size + part.size());
        std::vector<std::uint8_t> pdu(request_header_size);
        encode_call_header(pdu, header, static_cast<std::uint32_t>(stub.size() - at), 0, operation);
        pdu.insert(pdu.end(), part.begin(), part.end());
        if (signs) {
            protect(pdu, part.size());
        }
        send(pdu, deadline);
        at += part.size();
    } while (at < stub.size());
}

void rpc_client::protect(std::vector<std::uint8_t>& pdu, std::size_t stub_size) {
    const std::size_t signature = security_->signature_size();
    const std::size_t pad = (auth_alignment - stub_size % auth_alignment) % auth_alignment;
    pdu.resize(pdu.size() + pad + auth_trailer_size + signature);
    const std::span<std::uint8_t> all(pdu);
    const std::size_t body = stub_size + pad;
    encode_auth_trailer(all.subspan(request_header_size + body), security_->auth_type(), static_cast<std::uint8_t>(level_),
                        static_cast<std::uint8_t>(pad), security_context_id);
    store_le16(all, 8, static_cast<std::uint16_t>(pdu.size()));
    store_le16(all, 10, static_cast<std::uint16_t>(signature));
    security_->protect(level_, all.first(all.size() - signature), request_header_size, body, all.last(signature));
}

void rpc_client::take_response(received_pdu& pdu, std::vector<std::uint8_t>& stub) {
    if (pdu.bytes.size() < request_header_size) {
        fail_lost("the server sent a PDU that is too short");
    }
    if (pdu.header.type == pdu_type::fault) {
        wire_reader reader(std::span<const std::uint8_t>(pdu.bytes).subspan(request_header_size), pdu.header.little_endian);
        const std::uint32_t status = reader.u32();
        throw rpc_client_error(kind::fault, status, "The server refused the call: fault " + std::to_string(status));
    }
    if (pdu.header.type != pdu_type::response) {
        fail_lost("the server sent a PDU that doesn't answer a call");
    }
    std::size_t end = pdu.bytes.size();
    if (level_ >= auth_level::packet) {
        const auto trailer = decode_auth_trailer(pdu.header, pdu.bytes, request_header_size);
        if (!trailer || !security_->unprotect(level_, std::span(pdu.bytes).first(trailer->offset + auth_trailer_size),
                                              request_header_size, trailer->offset - request_header_size, trailer->token)) {
            fail_lost("the answer's signature is wrong");
        }
        end = trailer->offset - trailer->pad_length;
    }
    if (stub.size() + end - request_header_size > longest_answer) {
        fail_lost("the answer is too long");
    }
    stub.insert(stub.end(), pdu.bytes.begin() + static_cast<std::ptrdiff_t>(request_header_size),
                pdu.bytes.begin() + static_cast<std::ptrdiff_t>(end));
}

}  // namespace platform::linux_rpc
