#include "rpc/echo_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <thread>
#include <vector>

#include "common/measure.h"
#include "rpc/child_process.h"

namespace bench {

namespace {

constexpr std::size_t block_size = std::size_t{128} * 1024;
constexpr int events_at_once = 64;

/// One connection: how much of a request is here, and how much of an answer is still to go.
struct echo_peer {
    int socket = -1;
    std::size_t received = 0;
    std::size_t owed = 0;
    bool waits_to_write = false;
};

class echo_thread {
public:
    echo_thread(std::size_t request, std::size_t answer)
        : request_(request), answer_(answer), block_(block_size), text_(answer), epoll_(epoll_create1(0)) {
        if (epoll_ < 0) {
            fail("There is no epoll to be had.");
        }
    }

    void add(int socket) {
        auto* peer = new echo_peer;  // lives as long as the process
        peer->socket = socket;
        watch(*peer, EPOLL_CTL_ADD, EPOLLIN);
    }

    [[noreturn]] void run() {
        std::array<epoll_event, events_at_once> events{};
        for (;;) {
            const int count = epoll_wait(epoll_, events.data(), events_at_once, -1);
            for (int i = 0; i < count; ++i) {
                serve(*static_cast<echo_peer*>(events[static_cast<std::size_t>(i)].data.ptr));
            }
        }
    }

private:
    void watch(echo_peer& peer, int how, std::uint32_t what) const {
        epoll_event event{};
        event.events = what;
        event.data.ptr = &peer;
        (void)epoll_ctl(epoll_, how, peer.socket, &event);
    }

    void serve(echo_peer& peer) {
        if (peer.owed == 0) {
            const ssize_t got = recv(peer.socket, block_.data(), block_.size(), 0);
            if (got == 0 || (got < 0 && errno != EAGAIN)) {
                close(peer.socket);
                return;
            }
            peer.received += got > 0 ? static_cast<std::size_t>(got) : 0;
            if (peer.received < request_) {
                return;
            }
            peer.received -= request_;
            peer.owed = answer_;
        }
        send_what_is_owed(peer);
    }

    void send_what_is_owed(echo_peer& peer) {
        while (peer.owed != 0) {
            const ssize_t sent = send(peer.socket, text_.data() + (answer_ - peer.owed), peer.owed, MSG_NOSIGNAL);
            if (sent < 0) {
                if (!peer.waits_to_write) {
                    watch(peer, EPOLL_CTL_MOD, EPOLLOUT);
                    peer.waits_to_write = true;
                }
                return;
            }
            peer.owed -= static_cast<std::size_t>(sent);
        }
        if (peer.waits_to_write) {
            watch(peer, EPOLL_CTL_MOD, EPOLLIN);
            peer.waits_to_write = false;
        }
    }

    std::size_t request_;
    std::size_t answer_;
    std::vector<char> block_;
    std::vector<char> text_;
    int epoll_;
};

}  // namespace

void run_echo_server(std::size_t request, std::size_t answer) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener, SOMAXCONN) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        fail("The echo server can't listen.");
    }
    std::vector<echo_thread*> threads;
    for (unsigned i = 0; i < usable_cpus(); ++i) {
        threads.push_back(new echo_thread(request, answer));  // live as long as the process
        std::thread([made = threads.back()] { made->run(); }).detach();
    }
    announce_port(ntohs(address.sin_port));
    for (std::size_t next = 0;; ++next) {
        const int accepted = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK);
        const int on = 1;
        (void)setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        threads[next % threads.size()]->add(accepted);
    }
}

}  // namespace bench
