#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/rpc/call.h"
#include "platform/linux/rpc/call_pool.h"
#include "platform/linux/rpc/event_loop.h"
#include "platform/linux/rpc/server_core.h"

namespace platform::linux_rpc {

class connection;

/// The connections at present, in total and by address. Callable from any thread.
class connection_census {
public:
    /// Counts one more. False: a limit is reached, nothing is counted. An empty address counts for the total only.
    [[nodiscard]] bool enter(const std::string& address, const rpc_limits& limits);
    void leave(const std::string& address);

private:
    std::mutex mutex_;
    std::size_t total_ = 0;
    std::map<std::string, std::size_t> by_address_;
};

/// What the connections of one network thread share. Everything here is used on that thread only, but `events`' posting.
struct network_loop {
    static constexpr std::size_t buffer_size = std::size_t{128} * 1024;

    network_loop(server_core& shared_core, call_pool& shared_pool, connection_census& shared_census)
        : core(shared_core), pool(shared_pool), census(shared_census), buffer(buffer_size) {}

    server_core& core;
    call_pool& pool;
    connection_census& census;
    /// What was read last, of whichever connection: one that lacks nothing keeps no buffer of its own.
    std::vector<std::uint8_t> buffer;
    /// The answer of the call that is served on this thread at the moment.
    outgoing answer;
    std::set<std::shared_ptr<connection>> live;
    event_loop events;
};

}  // namespace platform::linux_rpc
