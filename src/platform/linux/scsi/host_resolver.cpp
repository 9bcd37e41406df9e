#include "platform/linux/scsi/host_resolver.h"

#include <netdb.h>
#include <sys/socket.h>

#include <memory>

namespace platform::linux_scsi {

namespace {

using std::chrono::steady_clock;

/// A request to the resolver, which goes on using it until it has ended: when it can't be cancelled, it must outlive the wait.
struct lookup {
    std::string host;
    std::string service;
    addrinfo hints{};
    gaicb request{};

    explicit lookup(const iscsi_portal& portal) : host(portal.host), service(std::to_string(portal.port)) {
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        request.ar_name = host.c_str();
        request.ar_service = service.c_str();
        request.ar_request = &hints;
    }
    ~lookup() {
        if (request.ar_result != nullptr) {
            freeaddrinfo(request.ar_result);
        }
    }
    lookup(const lookup&) = delete;
    lookup& operator=(const lookup&) = delete;
};

timespec time_left(steady_clock::time_point deadline) {
    const auto left = std::max(deadline - steady_clock::now(), steady_clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    timespec span{};
    span.tv_sec = static_cast<time_t>(seconds.count());
    span.tv_nsec = static_cast<long>(std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds).count());
    return span;
}

std::vector<std::string> addresses_of(const addrinfo* list, std::uint16_t port) {
    std::vector<std::string> addresses;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        char host[NI_MAXHOST] = {};
        if (getnameinfo(entry->ai_addr, entry->ai_addrlen, host, sizeof(host), nullptr, 0, NI_NUMERICHOST) == 0) {
            addresses.push_back(iscsi_portal{host, port}.text());
        }
    }
    return addresses;
}

}  // namespace

std::vector<std::string> resolve_portal(const iscsi_portal& portal, steady_clock::time_point deadline, std::string& reason) {
    auto asked = std::make_unique<lookup>(portal);
    gaicb* requests[] = {&asked->request};
    int failure = getaddrinfo_a(GAI_NOWAIT, requests, 1, nullptr);
    while (failure == 0 && (failure = gai_error(&asked->request)) == EAI_INPROGRESS) {
        const timespec left = time_left(deadline);
        if (left.tv_sec == 0 && left.tv_nsec == 0) {
            if (gai_cancel(&asked->request) == EAI_NOTCANCELED) {
                static_cast<void>(asked.release());  // the resolver's own, for good
            }
            reason = "the name [" + portal.host + "] could not be resolved in time";
            return {};
        }
        gai_suspend(requests, 1, &left);
        failure = 0;
    }
    if (failure != 0) {
        reason = "the name [" + portal.host + "] could not be resolved: " + gai_strerror(failure);
        return {};
    }
    return addresses_of(asked->request.ar_result, portal.port);
}

}  // namespace platform::linux_scsi
