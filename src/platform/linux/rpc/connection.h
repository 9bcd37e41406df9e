#pragma once

#include "platform/linux/rpc/network_loop.h"

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/call.h"
#include "platform/linux/rpc/session.h"

namespace platform::linux_rpc {

/// One connection: moves bytes between its socket and its `session`, hands calls to the pool and watches the time. Lives on
/// the thread of its loop; only the pool's task touches it from elsewhere, by posting the answer.
class connection final : public std::enable_shared_from_this<connection> {
public:
    using socket_type = boost::asio::generic::stream_protocol::socket;

    /// `census_address` is what the connection was counted under.
    connection(network_loop& loop, socket_type socket, connection_peer peer, std::string census_address, bool tcp);
    ~connection();
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;

    void start();
    /// Takes no further call: ends at once, or when the call in progress has been answered.
    void retire();
    /// The answer of the call that was being served.
    void finished(outgoing answer);

private:
    using clock_type = std::chrono::steady_clock;

    /// Runs an action of the loop; one that throws, for lack of memory, costs this connection and no other.
    template <typename Action>
    void guarded(Action action);
    void read_when_ready();
    void on_readable();
    void discard_input();
    void consume(std::span<std::uint8_t> data);
    bool take_out_of_turn(const pdu_header& header);
    void perform(session_step step);
    void serve_call(std::unique_ptr<rpc_call> call);
    void answer_call(outgoing answer);
    void send(outgoing answer);
    void flush();
    bool write_pieces();
    void on_writable();
    void after_write();
    void resume();
    void linger();
    void close();
    [[nodiscard]] clock_type::time_point deadline() const;
    void watch_deadline();
    void on_timer();

    network_loop& loop_;
    socket_type socket_;
    boost::asio::steady_timer timer_;
    const std::string census_address_;
    const bool tcp_;
    session session_;
    std::vector<std::uint8_t> pending_;  ///< received, not taken yet

    outgoing out_;
    std::size_t out_piece_ = 0;
    std::size_t out_offset_ = 0;

    std::uint32_t serving_id_ = 0;
    bool reading_ = false;
    bool serving_ = false;
    bool abandoned_ = false;
    bool writing_ = false;
    bool end_of_input_ = false;
    bool close_after_write_ = false;
    bool lingering_ = false;
    bool closed_ = false;
    bool timer_armed_ = false;
    clock_type::time_point settled_;  ///< when the session was last seen established; until it is, when the connection was made
    clock_type::time_point last_progress_;
    clock_type::time_point timer_at_;
};

}  // namespace platform::linux_rpc
