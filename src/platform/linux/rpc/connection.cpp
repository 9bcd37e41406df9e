#include "platform/linux/rpc/connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>

#include <algorithm>

namespace platform::linux_rpc {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

/// Pieces that one system call takes.
constexpr std::size_t pieces_at_once = 64;

class call_task final : public pool_task {
public:
    call_task(std::shared_ptr<connection> owner, asio::io_context& context, std::unique_ptr<rpc_call> call)
        : owner_(std::move(owner)), context_(context), call_(std::move(call)) {}

    void run() override {
        answer_ = serve(*call_);
        call_.reset();
    }
    void deliver() override {
        asio::post(context_,
                   [owner = std::move(owner_), answer = std::move(answer_)]() mutable { owner->finished(std::move(answer)); });
    }

private:
    std::shared_ptr<connection> owner_;
    asio::io_context& context_;
    std::unique_ptr<rpc_call> call_;
    outgoing answer_;
};

void set_option(int socket, int level, int name, int value) {
    // A socket that doesn't know the option works without it.
    (void)setsockopt(socket, level, name, &value, sizeof(value));
}

}  // namespace

bool connection_census::enter(const std::string& address, const rpc_limits& limits) {
    const std::lock_guard lock(mutex_);
    if (total_ >= limits.connections) {
        return false;
    }
    if (!address.empty()) {
        std::size_t& here = by_address_[address];
        if (here >= limits.connections_per_address) {
            if (here == 0) {
                by_address_.erase(address);
            }
            return false;
        }
        ++here;
    }
    ++total_;
    return true;
}

void connection_census::leave(const std::string& address) {
    const std::lock_guard lock(mutex_);
    --total_;
    const auto found = by_address_.find(address);
    if (found != by_address_.end() && --found->second == 0) {
        by_address_.erase(found);
    }
}

connection::connection(network_loop& loop, socket_type socket, connection_peer peer, std::string census_address, bool tcp)
    : loop_(loop),
      socket_(std::move(socket)),
      timer_(loop.context),
      census_address_(std::move(census_address)),
      tcp_(tcp),
      session_(loop.core, std::move(peer)),
      settled_(clock_type::now()),
      last_progress_(settled_) {}

connection::~connection() {
    loop_.census.leave(census_address_);
}

void connection::start() {
    if (!loop_.core.listening) {
        return;  // accepted in the moment of the stop
    }
    error_code failure;
    socket_.non_blocking(true, failure);
    if (tcp_) {
        // Answers are written whole: waiting for more to put into a segment only delays them.
        set_option(socket_.native_handle(), IPPROTO_TCP, TCP_NODELAY, 1);
        set_option(socket_.native_handle(), SOL_SOCKET, SO_KEEPALIVE, 1);
    }
    loop_.live.insert(shared_from_this());
    read_when_ready();
    watch_deadline();
}

void connection::retire() {
    if (closed_ || close_after_write_) {
        return;
    }
    close_after_write_ = true;
    if (!serving_ && !writing_) {
        send(outgoing(encode_shutdown()));
    }
}

template <typename Action>
void connection::guarded(Action action) {
    try {
        action();
    } catch (const std::exception& e) {
        close();
        loop_.core.report(std::string("A connection was closed: ") + e.what());
    }
}

void connection::read_when_ready() {
    // While an answer is due, no more than the next fragment is taken in: who doesn't wait has to hold the rest himself.
    const bool enough = serving_ && pending_.size() >= loop_.core.limits.fragment_bytes;
    if (reading_ || closed_ || end_of_input_ || writing_ || enough) {
        return;
    }
    reading_ = true;
    socket_.async_wait(socket_type::wait_read, [self = shared_from_this()](const error_code& failure) {
        self->reading_ = false;
        if (!self->closed_ && !failure) {
            self->guarded([&self] { self->on_readable(); });
        }
    });
}

void connection::on_readable() {
    if (lingering_) {
        discard_input();
        return;
    }
    if (writing_) {
        return;  // taken up again when the answer is out
    }
    const std::size_t kept = pending_.size();
    std::copy(pending_.begin(), pending_.end(), loop_.buffer.begin());
    const std::size_t room =
        serving_ ? std::min<std::size_t>(loop_.core.limits.fragment_bytes, loop_.buffer.size() - kept) : loop_.buffer.size() - kept;
    error_code failure;
    const std::size_t received = socket_.read_some(asio::buffer(loop_.buffer.data() + kept, room), failure);
    if (failure == asio::error::would_block || failure == asio::error::interrupted) {
        read_when_ready();
        return;
    }
    if (failure == asio::error::eof && serving_) {
        end_of_input_ = true;  // whoever closed only one direction still gets the answers
        return;
    }
    if (failure) {
        close();
        return;
    }
    last_progress_ = clock_type::now();
    pending_.clear();
    consume(std::span(loop_.buffer).first(kept + received));
    if (closed_) {
        return;
    }
    if (tcp_ && (!pending_.empty() || session_.request_incomplete())) {
        // The client's stack may hold the rest back until this part is acknowledged.
        set_option(socket_.native_handle(), IPPROTO_TCP, TCP_QUICKACK, 1);
    }
    read_when_ready();
    watch_deadline();
}

void connection::discard_input() {
    error_code failure;
    do {
        (void)socket_.read_some(asio::buffer(loop_.buffer), failure);
    } while (!failure);
    if (failure == asio::error::would_block || failure == asio::error::interrupted) {
        read_when_ready();
    } else {
        close();
    }
}

/// Takes the PDUs that are whole; keeps what is left in `pending_`.
void connection::consume(std::span<std::uint8_t> data) {
    if (!serving_ && session_.established()) {
        settled_ = clock_type::now();  // what comes now may begin another authentication, which has the time to bind again
    }
    while (!closed_ && !writing_ && !close_after_write_) {
        const auto header = decode_header(data);
        if (!header) {
            break;
        }
        if (auto verdict = session_.judge_header(*header)) {
            if (serving_) {
                break;  // the answer that is due goes first
            }
            perform(std::move(*verdict));
            return;
        }
        if (data.size() < header->fragment_length || (serving_ && !take_out_of_turn(*header))) {
            break;
        }
        const std::span<std::uint8_t> pdu = data.first(header->fragment_length);
        data = data.subspan(pdu.size());
        if (!serving_) {
            perform(session_.take(*header, pdu));
        }
    }
    if (closed_ || lingering_) {
        return;
    }
    pending_.assign(data.begin(), data.end());
    if (pending_.empty() && pending_.capacity() > loop_.core.limits.fragment_bytes) {
        pending_.shrink_to_fit();
    }
}

/// Cancels and abandonments are heard while a call is served. False: this PDU waits for its turn.
bool connection::take_out_of_turn(const pdu_header& header) {
    if (!session::cancels(header)) {
        return false;
    }
    abandoned_ = abandoned_ || (header.type == pdu_type::orphaned && header.call_id == serving_id_);
    return true;
}

void connection::perform(session_step step) {
    close_after_write_ = close_after_write_ || step.close;
    if (!step.answer.empty()) {
        send(outgoing(std::move(step.answer)));
    } else if (step.close) {
        linger();
    } else if (step.call) {
        serve_call(std::move(step.call));
    }
}

void connection::serve_call(std::unique_ptr<rpc_call> call) {
    const std::uint32_t id = call->call_id;
    const std::uint16_t context_id = call->context_id;
    const bool answered = call->answered;
    serving_id_ = id;
    abandoned_ = false;
    std::unique_ptr<pool_task> task = std::make_unique<call_task>(shared_from_this(), loop_.context, std::move(call));
    serving_ = loop_.core.listening && loop_.pool.start(task);
    if (serving_) {
        return;
    }
    loop_.core.report("A call was refused: the server takes no more at the moment.");
    if (answered) {
        send(outgoing(encode_fault(id, context_id, pdu_flag::did_not_execute, fault_status::server_too_busy)));
    }
}

void connection::finished(outgoing answer) {
    serving_ = false;
    loop_.core.counters.calls_out.fetch_add(1, std::memory_order_relaxed);
    if (!closed_) {
        guarded([this, &answer] { answer_call(std::move(answer)); });
    }
}

void connection::answer_call(outgoing answer) {
    last_progress_ = clock_type::now();
    // A signed answer goes out even when the call was abandoned, as one does that crosses with the abandonment: the client
    // throws it away, but its signature is one of a sequence.
    if (answer.pieces.empty() || (abandoned_ && !answer.numbered)) {
        after_write();
    } else {
        send(std::move(answer));
    }
    if (!closed_ && !writing_) {
        resume();
    }
    watch_deadline();
}

void connection::send(outgoing answer) {
    loop_.core.counters.pdus_out.fetch_add(answer.pdus, std::memory_order_relaxed);
    out_ = std::move(answer);
    out_piece_ = 0;
    out_offset_ = 0;
    writing_ = true;
    flush();
}

void connection::flush() {
    if (!write_pieces()) {
        return;
    }
    writing_ = false;
    out_ = outgoing();
    after_write();
}

/// Writes as much as the socket takes. True: everything is out.
bool connection::write_pieces() {
    while (out_piece_ < out_.pieces.size()) {
        std::vector<asio::const_buffer> buffers;
        for (std::size_t i = out_piece_; i < out_.pieces.size() && buffers.size() < pieces_at_once; ++i) {
            buffers.emplace_back(out_.pieces[i].data(), out_.pieces[i].size());
        }
        buffers[0] += out_offset_;
        error_code failure;
        std::size_t written = socket_.write_some(buffers, failure);
        if (failure == asio::error::would_block) {
            socket_.async_wait(socket_type::wait_write, [self = shared_from_this()](const error_code& cancelled) {
                if (!self->closed_ && !cancelled) {
                    self->guarded([&self] { self->on_writable(); });
                }
            });
            return false;
        }
        if (failure && failure != asio::error::interrupted) {
            close();
            return false;
        }
        last_progress_ = written == 0 ? last_progress_ : clock_type::now();
        for (; out_piece_ < out_.pieces.size() && written >= out_.pieces[out_piece_].size() - out_offset_; ++out_piece_) {
            written -= out_.pieces[out_piece_].size() - out_offset_;
            out_offset_ = 0;
        }
        out_offset_ += written;
    }
    return true;
}

void connection::on_writable() {
    flush();
    if (!closed_ && !writing_) {
        resume();
    }
    watch_deadline();
}

void connection::after_write() {
    if (close_after_write_) {
        linger();
    }
}

/// Goes on with what came in meanwhile.
void connection::resume() {
    if (!pending_.empty() && !close_after_write_) {
        const std::size_t kept = pending_.size();
        std::copy(pending_.begin(), pending_.end(), loop_.buffer.begin());
        pending_.clear();
        consume(std::span(loop_.buffer).first(kept));
    }
    if (end_of_input_ && !serving_ && !writing_) {
        close();
    }
    read_when_ready();
}

/// Closing at once, with input unread, would make the peer's system throw the last answer away. So the output is ended, and
/// the peer gets a little time to end its own.
void connection::linger() {
    if (closed_ || lingering_) {
        return;
    }
    lingering_ = true;
    pending_ = {};
    last_progress_ = clock_type::now();
    error_code ignored;
    socket_.shutdown(socket_type::shutdown_send, ignored);
    read_when_ready();
}

void connection::close() {
    if (closed_) {
        return;
    }
    closed_ = true;
    error_code ignored;
    socket_.close(ignored);
    timer_.cancel(ignored);
    loop_.live.erase(shared_from_this());
}

connection::clock_type::time_point connection::deadline() const {
    const rpc_limits& limits = loop_.core.limits;
    if (lingering_) {
        return last_progress_ + limits.linger_time;
    }
    if (writing_) {
        return last_progress_ + limits.write_time;
    }
    if (serving_) {
        return clock_type::time_point::max();
    }
    if (!session_.established()) {
        return settled_ + limits.bind_time;
    }
    const bool incomplete = !pending_.empty() || session_.request_incomplete();
    return last_progress_ + (incomplete ? limits.fragment_time : limits.idle_time);
}

/// The timer is moved only when it would come too late: most deadlines are pushed back before they are due.
void connection::watch_deadline() {
    if (closed_) {
        return;
    }
    const auto due = deadline();
    if (due == clock_type::time_point::max() || (timer_armed_ && timer_at_ <= due)) {
        return;
    }
    timer_armed_ = true;
    timer_at_ = due;
    timer_.expires_at(due);
    timer_.async_wait([self = shared_from_this()](const error_code& cancelled) {
        if (!cancelled) {
            self->on_timer();
        }
    });
}

void connection::on_timer() {
    timer_armed_ = false;
    if (closed_) {
        return;
    }
    if (clock_type::now() >= deadline()) {
        if (writing_ || lingering_) {
            // Otherwise the system would go on trying to get rid of what the peer doesn't take.
            const ::linger at_once{1, 0};
            (void)setsockopt(socket_.native_handle(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
        }
        close();
        return;
    }
    watch_deadline();
}

}  // namespace platform::linux_rpc
