#include "platform/linux/rpc/connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace platform::linux_rpc {

namespace {

/// Pieces that one system call takes.
constexpr std::size_t pieces_at_once = 256;
/// Calls of one connection that are served on the network thread before the others of that thread have their turn.
constexpr int calls_a_turn = 8;
/// Fragments that are signed on the network thread in one go.
constexpr std::size_t fragments_at_once = 16;

class call_task final : public pool_task {
public:
    call_task(std::shared_ptr<connection> owner, event_loop& events, std::unique_ptr<rpc_call> call)
        : owner_(std::move(owner)), events_(events), call_(std::move(call)), call_id_(call_->call_id) {}

    void run() override {
        answer_ = serve(*call_);
        call_.reset();
    }
    void deliver() override {
        events_.post_action([owner = std::move(owner_), id = call_id_, answer = std::move(answer_)]() mutable {
            owner->finished(id, std::move(answer));
        });
    }

private:
    std::shared_ptr<connection> owner_;
    event_loop& events_;
    std::unique_ptr<rpc_call> call_;
    const std::uint32_t call_id_;
    outgoing answer_;
};

/// Counts PDUs. Fragments of a long request are counted together: a locked instruction for each would wait until it is copied.
class arrivals {
public:
    explicit arrivals(busy_counter& counter) : counter_(counter) {}
    ~arrivals() { tell(); }
    arrivals(const arrivals&) = delete;
    arrivals& operator=(const arrivals&) = delete;

    /// `last`: nothing more belongs to it, and the count is told before it has consequences.
    void add(bool last) {
        ++count_;
        if (last) {
            tell();
        }
    }

private:
    void tell() {
        if (count_ != 0) {
            counter_.add(std::exchange(count_, 0));
        }
    }

    busy_counter& counter_;
    std::uint32_t count_ = 0;
};

void set_option(int socket, int level, int name, int value) {
    // A socket that doesn't know the option works without it.
    (void)setsockopt(socket, level, name, &value, sizeof(value));
}

bool would_block(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
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

connection::connection(network_loop& loop, int socket, connection_peer peer, std::string census_address, bool tcp)
    : loop_(loop),
      socket_(socket),
      census_address_(std::move(census_address)),
      tcp_(tcp),
      session_(loop.core, std::move(peer)),
      settled_(event_loop::clock::now()),
      last_progress_(settled_) {}

connection::~connection() {
    if (socket_ >= 0) {
        (void)::close(socket_);
    }
    loop_.census.leave(census_address_);
}

void connection::start() {
    if (!loop_.core.listening) {
        return;  // accepted in the moment of the stop
    }
    if (tcp_) {
        // Answers are written whole: waiting for more to put into a segment only delays them.
        set_option(socket_, IPPROTO_TCP, TCP_NODELAY, 1);
        set_option(socket_, SOL_SOCKET, SO_KEEPALIVE, 1);
    }
    // Both directions for good: each side's edges are told once, and no call has to ask for them again.
    if (!loop_.events.watch(*this, socket_, EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET)) {
        return;
    }
    loop_.live.insert(shared_from_this());
    watch_deadline();
}

void connection::retire() {
    if (closed_ || close_after_write_) {
        return;
    }
    close_after_write_ = true;
    if (calls_.empty() && !writing_) {
        send(outgoing(encode_shutdown()));
        watch_deadline();
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

void connection::on_ready(std::uint32_t events) {
    guarded([this, events] {
        if ((events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) {
            readable_ = true;
            peer_is_done_ = peer_is_done_ || (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
        }
        served_this_turn_ = 0;
        if (writing_ && (events & (EPOLLOUT | EPOLLHUP | EPOLLERR)) != 0) {
            flush();
            if (!closed_ && !writing_) {
                resume();
            }
        }
        if (readable_ && may_read()) {
            read_some();
        }
        if (!closed_) {
            watch_deadline();
        }
    });
}

void connection::on_turn() {
    guarded([this] {
        served_this_turn_ = 0;
        turn_is_due_ = false;
        if (writing_) {
            flush();
        }
        if (!closed_ && !writing_) {
            resume();
        }
        if (!closed_) {
            watch_deadline();
        }
    });
}

/// Whether no further request is taken before an answer is there.
bool connection::busy() const {
    return calls_.size() >= (session_.multiplexed() ? loop_.core.limits.multiplexed_calls : 1);
}

bool connection::may_read() const {
    // While an answer or a turn is due, no more than the next fragment is taken in: who doesn't wait has to hold the rest himself.
    const bool enough = pending_.size() >= (busy() ? loop_.core.limits.fragment_bytes : loop_.buffer.size() / 2);
    return !closed_ && !end_of_input_ && !writing_ && !enough;
}

/// There are no further edges for what is there already, so that another read is the connection's own affair.
void connection::read_on() {
    if (readable_ && may_read()) {
        loop_.events.give_turn(*this);
    }
}

void connection::read_some() {
    if (lingering_) {
        discard_input();
        return;
    }
    if (read_to_places()) {
        return;
    }
    const std::size_t kept = pending_.size();
    std::copy(pending_.begin(), pending_.end(), loop_.buffer.begin());
    const std::size_t room =
        busy() ? std::min<std::size_t>(loop_.core.limits.fragment_bytes, loop_.buffer.size() - kept) : loop_.buffer.size() - kept;
    const ssize_t received = recv(socket_, loop_.buffer.data() + kept, room, 0);
    if (has_received(received, room)) {
        take_read(std::span(loop_.buffer).first(kept + static_cast<std::size_t>(received)));
    }
}

bool connection::has_received(ssize_t received, std::size_t room) {
    if (received < 0 && errno == EINTR) {
        read_on();
    } else if (received < 0 && would_block(errno)) {
        readable_ = false;
    } else if (received == 0 && (!calls_.empty() || turn_is_due_)) {
        end_of_input_ = true;  // whoever closed only one direction still gets the answers
    } else if (received <= 0) {
        close();
    } else {
        // Less than there is room for is all there is, and more of it comes with an edge of its own. The end has none to come.
        readable_ = static_cast<std::size_t>(received) == room || peer_is_done_;
        last_progress_ = loop_.events.now();
        return true;
    }
    return false;
}

/// The stub data of a long request goes straight to its place. False: what comes next is to be looked at first.
bool connection::read_to_places() {
    const auto places = busy() ? std::nullopt : session_.next_places();
    if (!places) {
        return false;
    }
    if (!pending_.empty()) {
        const auto header = decode_header(pending_);
        const std::size_t expected = std::min(places->fragment_stub, places->memory.size());
        if (pending_.size() < request_header_size || !session_.goes_on(*header, expected) ||
            pending_.size() >= header->fragment_length) {
            return false;
        }
    }
    fragment_scatter scatter(places->memory, places->fragment_stub, pending_, loop_.buffer.size());
    const std::span<iovec> vectors = scatter.vectors();
    msghdr message{};
    message.msg_iov = vectors.data();
    message.msg_iovlen = vectors.size();
    const ssize_t received = recvmsg(socket_, &message, 0);
    if (has_received(received, scatter.room())) {
        scatter.received(static_cast<std::size_t>(received));
        take_read(take_placed(scatter));
    }
    return true;
}

/// Takes the fragments that are what they were expected to be. What is left stands in the loop's buffer.
std::span<std::uint8_t> connection::take_placed(fragment_scatter& scatter) {
    arrivals taken(loop_.core.counters.pdus_in);
    for (;;) {
        const fragment_scatter::fragment fragment = scatter.front();
        const auto header = decode_header(fragment.head);
        if (!fragment.whole || !session_.goes_on(*header, fragment.stub.size())) {
            return scatter.behind(0, loop_.buffer);
        }
        // The call may be over, and its memory with it, when the last one was taken.
        const bool last = header->has(pdu_flag::last);
        const std::span<std::uint8_t> rest = last ? scatter.behind(1, loop_.buffer) : std::span<std::uint8_t>();
        session_step step = session_.take_placed(*header, fragment.stub);
        taken.add(!session_.request_incomplete());
        const bool ends = last || step.close;
        perform(std::move(step));
        if (ends) {
            return rest;
        }
        scatter.take_front();
    }
}

/// Takes what was received, with what was kept of the last time in front of it. It stands in the loop's buffer.
void connection::take_read(std::span<std::uint8_t> data) {
    pending_.clear();
    consume(data);
    if (closed_) {
        return;
    }
    if (tcp_ && (!pending_.empty() || session_.request_incomplete())) {
        // The client's stack may hold the rest back until this part is acknowledged.
        set_option(socket_, IPPROTO_TCP, TCP_QUICKACK, 1);
    }
    read_on();
}

/// A part at a time: whoever sends without end costs the others their turns no longer than any other peer does.
void connection::discard_input() {
    const ssize_t received = recv(socket_, loop_.buffer.data(), loop_.buffer.size(), 0);
    if (received > 0 || (received < 0 && errno == EINTR)) {
        read_on();
    } else if (received < 0 && would_block(errno)) {
        readable_ = false;
    } else {
        close();
    }
}

/// Takes the PDUs that are whole; keeps what is left in `pending_`.
void connection::consume(std::span<std::uint8_t> data) {
    if (calls_.empty() && session_.established()) {
        settled_ = loop_.events.now();  // what comes now may begin another authentication, which has the time to bind again
    }
    arrivals taken(loop_.core.counters.pdus_in);
    while (!closed_ && !writing_ && !close_after_write_) {
        const auto header = decode_header(data);
        if (!header) {
            break;
        }
        if (auto verdict = session_.judge_header(*header)) {
            if (!calls_.empty()) {
                break;  // the answers that are due go first
            }
            perform(std::move(*verdict));
            return;
        }
        if (data.size() < header->fragment_length) {
            break;
        }
        const bool heard = concerns_call_in_progress(*header) && header->auth_length == 0;
        if (busy() && (!session::cancels(*header) || header->auth_length != 0)) {
            break;
        }
        if (served_this_turn_ == calls_a_turn) {
            turn_is_due_ = true;
            loop_.events.give_turn(*this);
            break;
        }
        const std::span<std::uint8_t> pdu = data.first(header->fragment_length);
        data = data.subspan(pdu.size());
        if (!heard) {
            session_step step = session_.take_lending(*header, pdu);
            taken.add(!session_.request_incomplete());
            perform(std::move(step));
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

/// Cancels and abandonments are heard while their call is served.
bool connection::concerns_call_in_progress(const pdu_header& header) {
    if (!session::cancels(header)) {
        return false;
    }
    const auto call = std::ranges::find(calls_, header.call_id, &call_in_progress::id);
    if (call == calls_.end()) {
        return false;
    }
    call->abandoned = call->abandoned || header.type == pdu_type::orphaned;
    return true;
}

void connection::perform(session_step step) {
    close_after_write_ = close_after_write_ || step.close;
    failed_ = failed_ || step.close;
    if (!step.answer.empty()) {
        send(outgoing(std::move(step.answer)));
    } else if (step.close) {
        linger();
    } else if (step.call) {
        serve_call(std::move(step.call));
    }
}

void connection::serve_call(std::unique_ptr<rpc_call> call) {
    if (loop_.core.listening && !call->may_wait()) {
        serve_here(std::move(call));
    } else {
        serve_in_pool(std::move(call));
    }
}

/// On the network thread: handing such a call to another one would take longer than serving it.
void connection::serve_here(std::unique_ptr<rpc_call> call) {
    ++served_this_turn_;
    serve(*call, loop_.answer);
    session_.take_back(std::move(call));
    loop_.core.counters.calls_out.add(1);
    if (loop_.answer.empty()) {
        return;
    }
    (void)loop_.answer.sign_more(fragments_at_once);
    loop_.core.counters.pdus_out.add(loop_.answer.pdus);
    ssize_t sent = 0;
    if (loop_.answer.pieces.size() == 1 && !loop_.answer.rest) {
        const std::span<const std::uint8_t> all = loop_.answer.pieces[0];
        sent = ::send(socket_, all.data(), all.size(), MSG_NOSIGNAL);
        if (sent == static_cast<ssize_t>(all.size())) {
            last_progress_ = loop_.events.now();
            return;
        }
    }
    begin_write(std::exchange(loop_.answer, {}), sent > 0 ? static_cast<std::size_t>(sent) : 0);
}

void connection::serve_in_pool(std::unique_ptr<rpc_call> call) {
    const std::uint32_t id = call->call_id;
    const std::uint16_t context_id = call->context_id;
    const bool answered = call->answered;
    call->own_stub();
    std::unique_ptr<pool_task> task = std::make_unique<call_task>(shared_from_this(), loop_.events, std::move(call));
    calls_.push_back({id, false});
    if (loop_.core.listening && loop_.pool.start(task)) {
        return;
    }
    calls_.pop_back();
    loop_.core.report("A call was refused: the server takes no more at the moment.");
    if (answered) {
        send(outgoing(encode_fault(id, context_id, pdu_flag::did_not_execute, fault_status::server_too_busy)));
    }
}

void connection::finished(std::uint32_t call_id, outgoing answer) {
    const auto call = std::ranges::find(calls_, call_id, &call_in_progress::id);
    const bool abandoned = call->abandoned;
    calls_.erase(call);
    loop_.core.counters.calls_out.add(1);
    if (!closed_ && !lingering_) {
        guarded([&] { answer_call(abandoned, std::move(answer)); });
    }
}

void connection::answer_call(bool abandoned, outgoing answer) {
    served_this_turn_ = 0;
    // A signed answer goes out even when the call was abandoned, as one does that crosses with the abandonment: the client
    // throws it away, but its signature is one of a sequence.
    const bool unwanted = answer.empty() || (abandoned && !answer.numbered);
    if (writing_) {
        if (!unwanted) {
            waiting_.push_back(std::move(answer));
        }
        return;
    }
    last_progress_ = loop_.events.now();
    if (unwanted) {
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
    (void)answer.sign_more(fragments_at_once);
    loop_.core.counters.pdus_out.add(answer.pdus);
    begin_write(std::move(answer), 0);
}

/// Writes an answer whose first bytes are out already.
void connection::begin_write(outgoing answer, std::size_t sent) {
    out_ = std::move(answer);
    out_piece_ = 0;
    out_offset_ = sent;
    writing_ = true;
    flush();
}

void connection::flush() {
    for (bool more = true; more;) {
        if (!write_pieces()) {
            return;
        }
        const bool signed_here = out_.rest.has_value();
        more = next_pieces();
        if (more && signed_here) {
            loop_.events.give_turn(*this);  // others' turns lie between long answers' parts
            return;
        }
    }
    writing_ = false;
    out_ = outgoing();
    after_write();
}

/// What is to be written when everything so far is out. False: there is nothing.
bool connection::next_pieces() {
    if (!out_.rest) {
        if (waiting_.empty()) {
            return false;
        }
        out_ = std::move(waiting_.front());
        waiting_.erase(waiting_.begin());
    }
    (void)out_.sign_more(fragments_at_once);
    loop_.core.counters.pdus_out.add(out_.pdus);
    out_piece_ = 0;
    out_offset_ = 0;
    return true;
}

/// Writes as much as the socket takes. True: everything is out.
bool connection::write_pieces() {
    while (out_piece_ < out_.pieces.size()) {
        std::array<iovec, pieces_at_once> vectors;
        std::size_t count = 0;
        for (std::size_t i = out_piece_; i < out_.pieces.size() && count < vectors.size(); ++i, ++count) {
            const std::span<const std::uint8_t> rest = out_.pieces[i].subspan(count == 0 ? out_offset_ : 0);
            vectors[count] = {const_cast<std::uint8_t*>(rest.data()), rest.size()};
        }
        msghdr message{};
        message.msg_iov = vectors.data();
        message.msg_iovlen = count;
        const ssize_t result = sendmsg(socket_, &message, MSG_NOSIGNAL);
        if (result < 0 && would_block(errno)) {
            return false;  // room makes an edge
        }
        if (result < 0 && errno != EINTR) {
            close();
            return false;
        }
        std::size_t written = result > 0 ? static_cast<std::size_t>(result) : 0;
        last_progress_ = written == 0 ? last_progress_ : loop_.events.now();
        for (; out_piece_ < out_.pieces.size() && written >= out_.pieces[out_piece_].size() - out_offset_; ++out_piece_) {
            written -= out_.pieces[out_piece_].size() - out_offset_;
            out_offset_ = 0;
        }
        out_offset_ += written;
    }
    return true;
}

void connection::after_write() {
    if (close_after_write_ && (failed_ || calls_.empty())) {
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
    if (end_of_input_ && calls_.empty() && !writing_ && !turn_is_due_) {
        close();
    }
    if (served_this_turn_ == calls_a_turn) {
        read_on();
    } else if (readable_ && may_read()) {
        read_some();
    }
}

/// Closing at once, with input unread, would make the peer's system throw the last answer away. So the output is ended, and
/// the peer gets a little time to end its own.
void connection::linger() {
    if (closed_ || lingering_) {
        return;
    }
    lingering_ = true;
    pending_ = {};
    last_progress_ = loop_.events.now();
    (void)shutdown(socket_, SHUT_WR);
    read_on();
}

void connection::close() {
    if (closed_) {
        return;
    }
    closed_ = true;
    const std::shared_ptr<connection> self = shared_from_this();
    loop_.events.forget(*this, self);
    (void)::close(socket_);
    socket_ = -1;
    loop_.live.erase(self);
}

connection::time_point connection::deadline() const {
    const rpc_limits& limits = loop_.core.limits;
    if (lingering_) {
        return last_progress_ + limits.linger_time;
    }
    if (writing_) {
        return last_progress_ + limits.write_time;
    }
    if (!calls_.empty() && !(session_.multiplexed() && session_.request_incomplete())) {
        return time_point::max();
    }
    if (!session_.established()) {
        return settled_ + limits.bind_time;
    }
    const bool incomplete = !pending_.empty() || session_.request_incomplete();
    return last_progress_ + (incomplete ? limits.fragment_time : limits.idle_time);
}

/// The moment is moved only when it would come too late: most deadlines are pushed back before they are due.
void connection::watch_deadline() {
    if (closed_) {
        return;
    }
    const time_point due = deadline();
    if (due < watched_deadline_) {
        watched_deadline_ = due;
        loop_.events.wake_at(*this, due);
    }
}

void connection::on_time() {
    watched_deadline_ = time_point::max();
    if (closed_) {
        return;
    }
    if (event_loop::clock::now() >= deadline()) {
        if (writing_ || lingering_) {
            // Otherwise the system would go on trying to get rid of what the peer doesn't take.
            const ::linger at_once{1, 0};
            (void)setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
        }
        close();
        return;
    }
    watch_deadline();
}

}  // namespace platform::linux_rpc
