// The floor of bench_start: a process that opens a listening TCP socket on loopback, tells its manager, and waits for its end.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

bool listen_on_loopback() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return listener >= 0 && bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
           listen(listener, 10) == 0;
}

bool tell_manager(std::string_view message) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (path == nullptr || std::strlen(path) >= sizeof(address.sun_path)) {
        return false;
    }
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path);
    const int channel = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return channel >= 0 && sendto(channel, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                                  sizeof(address)) == static_cast<ssize_t>(message.size());
}

}  // namespace

int main() {
    if (!listen_on_loopback() || !tell_manager("READY=1")) {
        return EXIT_FAILURE;
    }
    for (;;) {
        pause();
    }
}
