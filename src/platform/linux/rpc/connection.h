#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/call.h"
#include "platform/linux/rpc/fragment_scatter.h"
#include "platform/linux/rpc/network_loop.h"
#include "platform/linux/rpc/session.h"

namespace platform::linux_rpc {

/// One connection: moves bytes between its socket and its `session`, serves calls or hands them to the pool, and watches the time.
/// Lives on the thread of its loop; only the pool's task touches it from elsewhere, by posting the answer.
class connection final : public loop_client, public std::enable_shared_from_this<connection> {
public:
    /// Takes the socket over, which doesn't block. `census_address` is what the connection was counted under.
    connection(network_loop& loop, int socket, connection_peer peer, std::string census_address, bool tcp);
    ~connection() override;
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;

    void on_ready(std::uint32_t events) override;
    void on_turn() override;
    void on_time() override;

    void start();
    /// Takes no further call: ends at once, or when the calls in progress have been answered.
    void retire();
    /// The answer of a call that was being served.
    void finished(std::uint32_t call_id, outgoing answer);

private:
    struct call_in_progress {
        std::uint32_t id = 0;
        bool abandoned = false;
    };

    /// Runs an action of the loop; one that throws, for lack of memory, costs this connection and no other.
    template <typename Action>
    void guarded(Action action);
    [[nodiscard]] bool may_read() const;
    void read_on();
    void read_some();
    [[nodiscard]] bool read_to_places();
    /// Whether bytes were received; if not, what follows from that is done.
    [[nodiscard]] bool has_received(ssize_t received, std::size_t room);
    void take_read(std::span<std::uint8_t> data);
    [[nodiscard]] std::span<std::uint8_t> take_placed(fragment_scatter& scatter);
    void discard_input();
    void consume(std::span<std::uint8_t> data);
    [[nodiscard]] bool busy() const;
    bool concerns_call_in_progress(const pdu_header& header);
    void perform(session_step step);
    void serve_call(std::unique_ptr<rpc_call> call);
    void serve_here(std::unique_ptr<rpc_call> call);
    void serve_in_pool(std::unique_ptr<rpc_call> call);
    void answer_call(bool abandoned, outgoing answer);
    void send(outgoing answer);
    void begin_write(outgoing answer, std::size_t sent);
    void flush();
    bool next_pieces();
    bool write_pieces();
    void after_write();
    void resume();
    void linger();
    void close();
    [[nodiscard]] time_point deadline() const;
    void watch_deadline();

    network_loop& loop_;
    int socket_;
    const std::string census_address_;
    const bool tcp_;
    session session_;
    std::vector<std::uint8_t> pending_;  ///< received, not taken yet

    outgoing out_;
    std::size_t out_piece_ = 0;
    std::size_t out_offset_ = 0;
    std::vector<outgoing> waiting_;  ///< answers that others came before; nothing waits unless something is being written

    std::vector<call_in_progress> calls_;  ///< one at most, unless the client may multiplex
    int served_this_turn_ = 0;
    bool turn_is_due_ = false;   ///< there are requests left for it
    bool readable_ = false;      ///< there may be input that hasn't been read
    bool peer_is_done_ = false;  ///< and behind it the end or a failure, of which no further edge will tell
    bool writing_ = false;
    bool end_of_input_ = false;
    bool close_after_write_ = false;  ///< and takes no further PDU
    bool failed_ = false;             ///< with no regard to calls in progress
    bool lingering_ = false;
    bool closed_ = false;
    time_point settled_;  ///< when the session was last seen established; until it is, when the connection was made
    time_point last_progress_;
    time_point watched_deadline_ = time_point::max();  ///< the moment that the loop wakes the connection at
};

}  // namespace platform::linux_rpc
