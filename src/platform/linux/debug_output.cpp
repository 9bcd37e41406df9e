#include "platform/linux/debug_output.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <syslog.h>

#include <algorithm>

#include "platform/linux/descriptor.h"

namespace platform::linux_os {

namespace {

class linux_datagram_socket final : public datagram_socket {
public:
    explicit linux_datagram_socket(descriptor socket) : socket_(std::move(socket)) {}

    void send(const datagram_endpoint& to, std::string_view bytes) override {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(to.address);
        address.sin_port = htons(to.port);
        static_cast<void>(sendto(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                 reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    }

private:
    descriptor socket_;
};

}  // namespace

void linux_debug_output::write(std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        syslog(LOG_USER | LOG_DEBUG, "%.*s", static_cast<int>(std::min<std::size_t>(end, 65536)), text.data());
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

std::unique_ptr<datagram_socket> linux_debug_output::open_datagram_socket() {
    descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
    if (!socket.is_open()) {
        return nullptr;
    }
    return std::make_unique<linux_datagram_socket>(std::move(socket));
}

std::uint32_t linux_debug_output::parse_address(const std::string& text) {
    return ntohl(inet_addr(text.c_str()));
}

}  // namespace platform::linux_os
