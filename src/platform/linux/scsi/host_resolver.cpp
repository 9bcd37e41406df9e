#include "platform/linux/scsi/host_resolver.h"

#include <netdb.h>
#include <sys/socket.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace platform::linux_scsi {

namespace {

using std::chrono::steady_clock;

struct answer {
    int failure = 0;  ///< of getaddrinfo
    std::vector<std::string> addresses;
};

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

/// Blocks for as long as the name service does, unless `flags` keep it out.
answer ask(const iscsi_portal& portal, int flags) {
    addrinfo hints{};
    hints.ai_flags = flags | AI_NUMERICSERV;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    answer given;
    given.failure = getaddrinfo(portal.host.c_str(), std::to_string(portal.port).c_str(), &hints, &found);
    if (given.failure == 0) {
        given.addresses = addresses_of(found, portal.port);
        freeaddrinfo(found);
    }
    return given;
}

/// The questions that wait for the name service. One can't be called off, so that a thread of its own asks it, which nobody needs
/// to wait for; whoever asks the same meanwhile waits for the same answer.
class open_questions : public std::enable_shared_from_this<open_questions> {
public:
    /// Nothing when the deadline has passed before the answer came. Throws `std::system_error` when there are no more threads.
    std::optional<answer> wait_for(const iscsi_portal& portal, steady_clock::time_point deadline) {
        std::unique_lock lock(mutex_);
        const std::shared_ptr<const question> asked = open(portal);
        const bool in_time = answered_.wait_until(lock, deadline, [&] { return asked->is_answered; });
        return in_time ? std::optional(asked->given) : std::nullopt;
    }

private:
    struct question {
        bool is_answered = false;
        answer given;
    };
    using question_map = std::map<std::string, std::shared_ptr<question>>;

    /// With the mutex held.
    std::shared_ptr<question> open(const iscsi_portal& portal) {
        const auto [place, is_new] = questions_.try_emplace(portal.text());
        if (is_new) {
            try {
                place->second = std::make_shared<question>();
                std::thread([self = shared_from_this(), portal, place = place] { self->find_out(portal, place); }).detach();
            } catch (...) {
                questions_.erase(place);
                throw;
            }
        }
        return place->second;
    }

    void find_out(const iscsi_portal& portal, question_map::iterator place) {
        answer given;
        try {
            given = ask(portal, 0);
        } catch (const std::bad_alloc&) {
            given.failure = EAI_MEMORY;
        }
        const std::lock_guard lock(mutex_);
        place->second->given = std::move(given);
        place->second->is_answered = true;
        questions_.erase(place);
        answered_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable answered_;
    question_map questions_;
};

/// Shared with the threads that ask, which may outlive all else in the process.
open_questions& questions() {
    static const auto shared = std::make_shared<open_questions>();
    return *shared;
}

}  // namespace

std::vector<std::string> resolve_portal(const iscsi_portal& portal, steady_clock::time_point deadline, std::string& reason) {
    answer given = ask(portal, AI_NUMERICHOST);
    if (given.failure != 0) {
        try {
            std::optional<answer> found = questions().wait_for(portal, deadline);
            if (!found) {
                reason = "the name [" + portal.host + "] could not be resolved in time";
                return {};
            }
            given = std::move(*found);
        } catch (const std::system_error&) {
            given.failure = EAI_AGAIN;
        }
    }
    if (given.failure != 0) {
        reason = "the name [" + portal.host + "] could not be resolved: " + gai_strerror(given.failure);
    }
    return given.addresses;
}

}  // namespace platform::linux_scsi
