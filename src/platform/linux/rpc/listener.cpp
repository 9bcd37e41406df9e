#include "platform/linux/rpc/listener.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/errors.h"
#include "platform/linux/rpc/connection.h"
#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

namespace {

constexpr std::uint32_t invalid_network_address = 1707;
constexpr std::uint32_t cannot_create_endpoint = 1720;
/// Connections taken in one go before the loop looks after the others again.
constexpr int accepted_at_once = 16;
/// How long to leave new connections alone when the process has no descriptor left for them.
constexpr std::chrono::milliseconds shortage_pause{100};

struct socket_address {
    sockaddr_storage storage{};
    socklen_t size = sizeof(sockaddr_storage);
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

bool make_address(const std::string& text, std::uint16_t port, socket_address& address) {
    in_addr v4{};
    in6_addr v6 = in6addr_any;
    if (inet_pton(AF_INET, text.c_str(), &v4) == 1) {
        sockaddr_in made{};
        made.sin_family = AF_INET;
        made.sin_addr = v4;
        made.sin_port = htons(port);
        std::memcpy(&address.storage, &made, sizeof(made));
        address.size = sizeof(made);
        return true;
    }
    if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) {
        sockaddr_in6 made{};
        made.sin6_family = AF_INET6;
        made.sin6_addr = v6;
        made.sin6_port = htons(port);
        std::memcpy(&address.storage, &made, sizeof(made));
        address.size = sizeof(made);
        return true;
    }
    return false;
}

std::uint16_t port_of(const socket_address& address) {
    if (address.storage.ss_family == AF_INET6) {
        return ntohs(reinterpret_cast<const sockaddr_in6&>(address.storage).sin6_port);
    }
    return ntohs(reinterpret_cast<const sockaddr_in&>(address.storage).sin_port);
}

/// The IPv4 address in host byte order, also out of an IPv6 socket that serves both; 0 for anything else.
std::uint32_t ipv4_of(const socket_address& address) {
    if (address.storage.ss_family == AF_INET) {
        return ntohl(reinterpret_cast<const sockaddr_in&>(address.storage).sin_addr.s_addr);
    }
    if (address.storage.ss_family == AF_INET6) {
        const in6_addr& v6 = reinterpret_cast<const sockaddr_in6&>(address.storage).sin6_addr;
        if (IN6_IS_ADDR_V4MAPPED(&v6)) {
            std::uint32_t v4 = 0;
            std::memcpy(&v4, &v6.s6_addr[12], sizeof(v4));
            return ntohl(v4);
        }
    }
    return 0;
}

std::string text_of(const socket_address& address) {
    if (const std::uint32_t v4 = ipv4_of(address); v4 != 0) {
        return std::to_string(v4 >> 24) + '.' + std::to_string(v4 >> 16 & 255) + '.' + std::to_string(v4 >> 8 & 255) + '.' +
               std::to_string(v4 & 255);
    }
    std::array<char, NI_MAXHOST> host{};
    socket_address copy = address;
    return getnameinfo(copy.get(), copy.size, host.data(), host.size(), nullptr, 0, NI_NUMERICHOST) == 0 ? host.data() : "?";
}

connection_peer local_peer(int accepted) {
    connection_peer peer;
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (getsockopt(accepted, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0) {
        peer.identity.authenticated = true;
        peer.identity.local = true;
        peer.identity.uid = credentials.uid;
        peer.identity.gid = credentials.gid;
    }
    peer.address = "of local user " + std::to_string(peer.identity.uid);
    return peer;
}

/// Makes the last folder of the path if it isn't there: a service manager that makes it is the better way, but not the only one.
void make_parent_folder(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash != 0) {
        (void)mkdir(path.substr(0, slash).c_str(), 0755);
    }
}

}  // namespace

std::uint32_t status_of_errno(int number) {
    switch (number) {
        case 0:
            return rpc_status::ok;
        case EADDRINUSE:
            return rpc_status::duplicate_endpoint;
        case EACCES:
        case EPERM:
            return error::access_denied;
        case EADDRNOTAVAIL:
            return invalid_network_address;
        default:
            return cannot_create_endpoint;
    }
}

listening_socket::~listening_socket() {
    close();
}

listening_socket::listening_socket(listening_socket&& other) noexcept {
    *this = std::move(other);
}

listening_socket& listening_socket::operator=(listening_socket&& other) noexcept {
    if (this != &other) {
        close();
        handle_ = std::exchange(other.handle_, -1);
        family_ = other.family_;
        port_ = other.port_;
        path_ = std::exchange(other.path_, {});
    }
    return *this;
}

void listening_socket::close() {
    if (!path_.empty()) {
        (void)unlink(path_.c_str());
        path_.clear();
    }
    if (handle_ >= 0) {
        (void)::close(handle_);
        handle_ = -1;
    }
}

std::uint32_t listening_socket::fail(std::uint32_t status, std::string reason) {
    close();
    reason_ = std::move(reason);
    return status;
}

std::uint32_t listening_socket::fail_by(int number) {
    return fail(status_of_errno(number), std::generic_category().message(number));
}

std::uint32_t listening_socket::open_tcp(const std::string& address, std::uint16_t port) {
    close();
    socket_address where;
    const bool all = address.empty();
    if (!make_address(all ? "::" : address, port, where)) {
        return fail(invalid_network_address, "'" + address + "' is no IP address");
    }
    handle_ = ::socket(where.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (handle_ < 0 && all) {
        // A machine without IPv6.
        make_address("0.0.0.0", port, where);
        handle_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    }
    if (handle_ < 0) {
        return fail_by(errno);
    }
    family_ = where.storage.ss_family;
    const int on = 1;
    const int only_v6 = all ? 0 : 1;
    (void)setsockopt(handle_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (family_ == AF_INET6) {
        (void)setsockopt(handle_, IPPROTO_IPV6, IPV6_V6ONLY, &only_v6, sizeof(only_v6));
    }
    if (bind(handle_, where.get(), where.size) != 0 || ::listen(handle_, SOMAXCONN) != 0) {
        return fail_by(errno);
    }
    socket_address bound;
    if (getsockname(handle_, bound.get(), &bound.size) == 0) {
        port_ = port_of(bound);
    }
    return rpc_status::ok;
}

/// What a server that died left behind goes, unless somebody answers. Anything but a socket is not ours to remove.
std::uint32_t listening_socket::make_room(const std::string& path, const sockaddr_un& where) {
    struct stat file {};
    if (lstat(path.c_str(), &file) != 0) {
        return rpc_status::ok;
    }
    if (!S_ISSOCK(file.st_mode)) {
        return fail(rpc_status::duplicate_endpoint, "something that is no socket has this name");
    }
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const bool answered = connect(probe, reinterpret_cast<const sockaddr*>(&where), sizeof(where)) == 0;
    const int refusal = answered ? 0 : errno;
    (void)::close(probe);
    if (refusal != ECONNREFUSED) {
        return fail(rpc_status::duplicate_endpoint,
                    refusal == 0 || refusal == EAGAIN ? "another server is there" : std::generic_category().message(refusal));
    }
    return unlink(path.c_str()) == 0 ? rpc_status::ok
                                     : fail(rpc_status::duplicate_endpoint, std::generic_category().message(errno));
}

std::uint32_t listening_socket::open_local(const std::string& path, std::uint32_t mode) {
    close();
    sockaddr_un where{};
    where.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(where.sun_path)) {
        return fail(invalid_network_address,
                    "the path of a socket has 1 to " + std::to_string(sizeof(where.sun_path) - 1) + " bytes");
    }
    path.copy(where.sun_path, path.size());
    make_parent_folder(path);
    family_ = AF_UNIX;
    handle_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (handle_ < 0) {
        return fail_by(errno);
    }
    if (const std::uint32_t status = make_room(path, where); status != rpc_status::ok) {
        return status;
    }
    if (bind(handle_, reinterpret_cast<const sockaddr*>(&where), sizeof(where)) != 0) {
        return fail_by(errno);
    }
    path_ = path;
    if (chmod(path.c_str(), mode) != 0 || ::listen(handle_, SOMAXCONN) != 0) {
        return fail_by(errno);
    }
    return rpc_status::ok;
}

listener::listener(network_loop& home, std::vector<network_loop*> loops, listening_socket socket)
    : home_(home), loops_(std::move(loops)), socket_(std::move(socket)) {}

void listener::start() {
    if (!home_.events.watch(*this, socket_.handle(), EPOLLIN)) {
        home_.core.report("A network endpoint cannot be served: the process is short of memory.");
    }
}

void listener::stop() {
    home_.events.forget(*this, shared_from_this());
    socket_ = listening_socket();
}

void listener::on_ready(std::uint32_t /*events*/) {
    accept_some();
}

void listener::on_time() {
    home_.events.change(*this, EPOLLIN);
    accept_some();
}

void listener::accept_some() {
    try {
        if (take_in_waiting()) {
            short_ = false;
            return;
        }
    } catch (const std::exception&) {  // no memory for a connection, which is closed by now
    }
    home_.events.change(*this, 0);
    home_.events.wake_at(*this, home_.events.now() + shortage_pause);
    if (!std::exchange(short_, true)) {
        home_.core.report("No new connection can be accepted: the process is short of descriptors or memory.");
    }
}

/// False: there is no room for more at the moment.
bool listener::take_in_waiting() {
    for (int i = 0; i < accepted_at_once; ++i) {
        const int accepted = accept4(socket_.handle(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (accepted >= 0) {
            take_in(accepted);
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            return false;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            break;
        }
    }
    return true;
}

void listener::take_in(int accepted) {
    network_loop& loop = *loops_[next_++ % loops_.size()];
    connection_peer peer;
    std::string census_address;
    const bool tcp = socket_.family() != AF_UNIX;
    if (tcp) {
        socket_address remote;
        socket_address own;
        if (getpeername(accepted, remote.get(), &remote.size) != 0 || getsockname(accepted, own.get(), &own.size) != 0) {
            (void)::close(accepted);
            return;  // gone already
        }
        peer.address = text_of(remote);
        peer.local_ipv4 = ipv4_of(own);
        census_address = peer.address;
    } else {
        peer = local_peer(accepted);
    }
    if (!home_.census.enter(census_address, home_.core.limits)) {
        home_.core.report("A connection of RPC client " + peer.address + " was refused: there are too many.");
        (void)::close(accepted);
        return;
    }
    std::shared_ptr<connection> made;
    try {
        made = std::make_shared<connection>(loop, accepted, std::move(peer), census_address, tcp);
    } catch (const std::exception&) {
        home_.census.leave(census_address);
        (void)::close(accepted);
        throw;
    }
    loop.events.post_action([made = std::move(made)] { made->start(); });
}

}  // namespace platform::linux_rpc
