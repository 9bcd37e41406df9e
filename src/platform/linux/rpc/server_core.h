#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/rpc/interface_table.h"
#include "platform/linux/rpc/rpc_limits.h"
#include "platform/linux/rpc/security_context.h"

namespace platform::linux_rpc {

/// The association groups that live: each as long as a connection belongs to it. Callable from any thread.
class association_groups {
public:
    /// Joins a group, or founds one when `wanted` is 0. Returns its number, 0 when there is no such group.
    std::uint32_t join(std::uint32_t wanted);
    void leave(std::uint32_t group);

private:
    std::mutex mutex_;
    std::map<std::uint32_t, std::size_t> members_;
    std::uint32_t last_ = 0;
};

/// The kinds of authentication. Providers are added before listening; a kind is offered when an authentication record asks
/// for it.
class security_offer {
public:
    void add(std::shared_ptr<security_provider> provider);
    /// 0, or 1747 when no provider that is ready serves it. Negotiate opens the mechanisms that it chooses from, too: a client that
    /// names one of them itself proves the same.
    std::uint32_t enable(std::uint32_t service, const std::string& principal);
    /// Null unless the kind is offered.
    [[nodiscard]] security_provider* find(std::uint8_t auth_type) const;
    /// The principal that was registered for the service; null when none was.
    [[nodiscard]] const std::string* principal(std::uint32_t service) const;

private:
    [[nodiscard]] security_provider* known(std::uint32_t service) const;

    std::vector<std::shared_ptr<security_provider>> providers_;
    std::set<std::uint32_t> enabled_;
    std::map<std::uint32_t, std::string> principals_;
};

/// A number that many threads count up all the time and hardly anybody reads: the threads count apart from each other.
class busy_counter {
public:
    void add(std::uint32_t more) { shards_[own_shard()].value.fetch_add(more, std::memory_order_relaxed); }
    [[nodiscard]] std::uint32_t total() const;

private:
    static constexpr std::size_t shard_count = 8;
    struct alignas(64) shard {
        std::atomic<std::uint32_t> value{0};
    };
    static std::size_t own_shard();

    std::array<shard, shard_count> shards_;
};

/// Counters that the management interface tells.
struct traffic_counters {
    busy_counter calls_in;
    busy_counter calls_out;
    busy_counter pdus_in;
    busy_counter pdus_out;
};

/// Told, in a sentence, what a stranger who reads the log has to know: who was refused and why. Called on the network's
/// threads: must not block or throw.
using event_sink = std::function<void(const std::string& sentence)>;

/// What all connections of one server share.
struct server_core {
    rpc_limits limits;
    interface_table interfaces;
    association_groups groups;
    security_offer security;
    traffic_counters counters;
    std::atomic<bool> listening{false};
    /// Written all the time, unlike what stands around it.
    alignas(64) std::atomic<std::size_t> pending_request_bytes{0};
    alignas(64) std::string secondary_address;  ///< decimal TCP port, as bind_ack tells it
    event_sink on_event;

    void report(const std::string& sentence) const {
        if (on_event) {
            on_event(sentence);
        }
    }
};

}  // namespace platform::linux_rpc
