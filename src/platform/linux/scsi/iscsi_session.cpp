#include "platform/linux/scsi/iscsi_session.h"

#include <iscsi/iscsi.h>
#include <iscsi/scsi-lowlevel.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "foundation/util/bytes.h"
#include "platform/errors.h"
#include "platform/linux/scsi/host_resolver.h"

namespace platform::linux_scsi {

namespace {

using namespace std::chrono_literals;
using device_stack::data_direction;
using device_stack::scsi_command;
using device_stack::scsi_outcome;

constexpr auto logout_time = 1s;
/// A session that was silent for so long is asked whether it still lives, and has so long to say so.
constexpr auto silence_before_ping = 5s;
constexpr auto ping_time = 5s;
/// The library wants to be called now and then even if nothing happens on the connection.
constexpr auto longest_poll = 1s;
/// A target may send its initiator to another portal; one that sends it round in circles isn't followed.
constexpr int most_redirections = 2;

int milliseconds_until(io_deadline deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - io_clock::now());
    return static_cast<int>(std::clamp<std::chrono::milliseconds>(left, 0ms, longest_poll).count());
}

struct task_deleter {
    void operator()(scsi_task* task) const { scsi_free_scsi_task(task); }
};
using task_ptr = std::unique_ptr<scsi_task, task_deleter>;

scsi_outcome transport_failure(std::uint32_t code) {
    scsi_outcome outcome;
    outcome.transport_error = code;
    return outcome;
}

/// On CHECK CONDITION the task's data is the sense, behind its length in two bytes.
std::vector<std::uint8_t> sense_of(const scsi_task& task) {
    const std::span<const std::uint8_t> data(
        task.datain.data, task.datain.data == nullptr ? 0 : static_cast<std::size_t>(std::max(task.datain.size, 0)));
    const auto sense = util::slice(data, 2, util::load_be16(data, 0));
    return {sense.begin(), sense.end()};
}

int transfer_of(const scsi_command& command) {
    if (command.data.empty()) {
        return SCSI_XFER_NONE;
    }
    switch (command.direction) {
        case data_direction::from_device:
            return SCSI_XFER_READ;
        case data_direction::to_device:
            return SCSI_XFER_WRITE;
        default:
            return SCSI_XFER_NONE;
    }
}

/// Room for an answer that a command block promises (SPC-4, SMC-3, SSC-4: allocation length); 0 for commands that have none.
std::size_t allocation_length(const scsi_command& command) {
    const std::span<const std::uint8_t> cdb(command.cdb);
    switch (cdb[0]) {
        case 0x12:  // INQUIRY
            return util::load_be16(cdb, 3);
        case 0x03:  // REQUEST SENSE
        case 0x1A:  // MODE SENSE(6)
            return cdb[4];
        case 0x4D:  // LOG SENSE
        case 0x5A:  // MODE SENSE(10)
            return util::load_be16(cdb, 7);
        case 0xB8:  // READ ELEMENT STATUS
            return util::load_be24(cdb, 7);
        case 0x8C:  // READ ATTRIBUTE
            return util::load_be32(cdb, 10);
        default:
            return 0;
    }
}

/// Bytes that the target is told to expect to send. Some targets refuse a command whose block promises more room than the
/// transfer has, instead of cutting their answer; so such a command gets the room that it speaks of, and the answer is cut here.
int expected_length(const scsi_command& command, int transfer) {
    constexpr std::size_t most = 1U << 20U;
    if (transfer == SCSI_XFER_NONE) {
        return 0;
    }
    const std::size_t promised = transfer == SCSI_XFER_READ ? std::min(allocation_length(command), most) : 0;
    return static_cast<int>(std::max(command.data.size(), promised));
}

std::uint32_t moved(const scsi_task& task, const scsi_command& command) {
    if (task.xfer_dir == SCSI_XFER_READ) {
        const auto came = static_cast<std::size_t>(std::max(task.datain.size, 0));
        const std::size_t count = task.datain.data == nullptr ? 0 : std::min(came, command.data.size());
        std::copy_n(task.datain.data, count, command.data.begin());
        return static_cast<std::uint32_t>(count);
    }
    if (task.xfer_dir == SCSI_XFER_WRITE) {
        const std::size_t left = task.residual_status == SCSI_RESIDUAL_UNDERFLOW ? task.residual : 0;
        return static_cast<std::uint32_t>(command.data.size() - std::min(left, command.data.size()));
    }
    return 0;
}

}  // namespace

/// What an operation of the library has come to.
struct iscsi_session::progress {
    bool done = false;
    int status = SCSI_STATUS_ERROR;
    std::vector<iscsi_found_target> targets;

    static void finish(iscsi_context* /*context*/, int status, void* /*data*/, void* self) {
        auto& that = *static_cast<progress*>(self);
        that.status = status;
        that.done = true;
    }

    static void finish_discovery(iscsi_context* context, int status, void* data, void* self) {
        auto& that = *static_cast<progress*>(self);
        const auto* found = static_cast<const iscsi_discovery_address*>(status == SCSI_STATUS_GOOD ? data : nullptr);
        for (; found != nullptr; found = found->next) {
            iscsi_found_target target;
            target.name = found->target_name;
            for (const iscsi_target_portal* portal = found->portals; portal != nullptr; portal = portal->next) {
                // The number of the portal's group follows the address.
                const std::string text = portal->portal;
                if (const auto parsed = parse_iscsi_portal(std::string_view(text).substr(0, text.find(',')))) {
                    target.portals.push_back(*parsed);
                }
            }
            that.targets.push_back(std::move(target));
        }
        finish(context, status, data, self);
    }
};

std::unique_ptr<iscsi_session> iscsi_session::connect(const iscsi_endpoint& endpoint, io_deadline deadline, std::uint32_t& failure,
                                                      std::string& reason) {
    failure = error::device_not_connected;
    std::vector<std::string> addresses = resolve_portal(endpoint.portal, deadline, reason);
    int redirections = 0;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        std::unique_ptr<iscsi_session> session(new iscsi_session);
        std::string redirected;
        if (session->log_in(endpoint, addresses[i], deadline, failure, reason, redirected)) {
            return session;
        }
        if (!redirected.empty() && redirections++ < most_redirections) {
            addresses.push_back(std::move(redirected));
        }
    }
    return nullptr;
}

bool iscsi_session::log_in(const iscsi_endpoint& endpoint, const std::string& address, io_deadline deadline, std::uint32_t& failure,
                           std::string& reason, std::string& redirected) {
    connected_ = std::make_unique<progress>();
    context_ = iscsi_create_context(endpoint.initiator.c_str());
    if (context_ == nullptr) {
        failure = error::not_enough_memory;
        reason = "no memory for a session";
        return false;
    }
    // A lost session is made anew by its owner, who bounds the wait; the library would try for ever.
    iscsi_set_noautoreconnect(context_, 1);
    iscsi_set_session_type(context_, endpoint.target.empty() ? ISCSI_SESSION_DISCOVERY : ISCSI_SESSION_NORMAL);
    if (!endpoint.target.empty()) {
        iscsi_set_targetname(context_, endpoint.target.c_str());
    }
    if (!endpoint.user.empty()) {
        iscsi_set_initiator_username_pwd(context_, endpoint.user.c_str(), endpoint.password.c_str());
    }
    const auto failed = [&](waiting how, std::uint32_t code, const char* what) {
        failure = how == waiting::timed_out ? error::semaphore_timeout : code;
        reason = std::string(what) + " " + address + (how == waiting::timed_out ? " took too long" : " failed: " + last_message());
        drop();
        return false;
    };
    waiting how = waiting::broken;
    if (iscsi_connect_async(context_, address.c_str(), progress::finish, connected_.get()) == 0) {
        how = wait_for(*connected_, deadline);
    }
    if (how != waiting::done || connected_->status != SCSI_STATUS_GOOD) {
        return failed(how, error::device_not_connected, "the connection to");
    }
    watch_connection();
    progress login;
    how = waiting::broken;
    if (iscsi_login_async(context_, progress::finish, &login) == 0) {
        how = wait_for(login, deadline);
    }
    if (how == waiting::done && login.status == SCSI_STATUS_REDIRECT) {
        const char* elsewhere = iscsi_get_target_address(context_);
        redirected = elsewhere == nullptr ? "" : elsewhere;
        redirected.erase(std::min(redirected.find(','), redirected.size()));
    }
    if (how != waiting::done || login.status != SCSI_STATUS_GOOD) {
        const bool unwelcome = last_message().find("Authentication") != std::string::npos;
        return failed(how, unwelcome ? error::access_denied : error::device_not_connected, "the log-in at");
    }
    logged_in_ = true;
    last_traffic_ = io_clock::now();
    return true;
}

iscsi_session::~iscsi_session() {
    if (context_ != nullptr && logged_in_) {
        progress logout;
        if (iscsi_logout_async(context_, progress::finish, &logout) == 0) {
            static_cast<void>(wait_for(logout, io_clock::now() + logout_time));
        }
        drop();
    }
}

void iscsi_session::drop() {
    if (context_ != nullptr) {
        iscsi_destroy_context(context_);
        context_ = nullptr;
    }
    logged_in_ = false;
}

std::string iscsi_session::last_message() const {
    const char* message = context_ == nullptr ? nullptr : iscsi_get_error(context_);
    std::string text = message == nullptr ? "" : message;
    text.erase(text.find_last_not_of("\r\n .") + 1);
    return text.empty() ? "no reason given" : text;
}

/// A target whose machine has died says nothing more: without probes of the connection, a command of many hours would wait for
/// its whole time-out.
void iscsi_session::watch_connection() const {
    const int connection = iscsi_get_fd(context_);
    const auto set = [connection](int level, int option, int value) {
        static_cast<void>(setsockopt(connection, level, option, &value, sizeof(value)));
    };
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, 30);
    set(IPPROTO_TCP, TCP_KEEPINTVL, 10);
    set(IPPROTO_TCP, TCP_KEEPCNT, 3);
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, 60'000);
    set(IPPROTO_TCP, TCP_NODELAY, 1);
}

iscsi_session::waiting iscsi_session::wait_for(const progress& expected, io_deadline deadline) {
    while (!expected.done) {
        if (io_clock::now() >= deadline) {
            return waiting::timed_out;
        }
        pollfd entry{};
        entry.fd = iscsi_get_fd(context_);
        entry.events = static_cast<short>(iscsi_which_events(context_));
        const int ready = poll(&entry, 1, milliseconds_until(deadline));
        if (ready < 0 && errno != EINTR) {
            return waiting::broken;
        }
        if (iscsi_service(context_, ready > 0 ? entry.revents : 0) < 0) {
            return expected.done ? waiting::done : waiting::broken;
        }
    }
    return waiting::done;
}

scsi_outcome iscsi_session::execute(std::uint8_t lun, const scsi_command& command, io_deadline deadline) {
    auto cdb = command.cdb;
    const int transfer = transfer_of(command);
    const task_ptr task(scsi_create_task(command.cdb_length, cdb.data(), transfer, expected_length(command, transfer)));
    iscsi_data outgoing{command.data.size(), command.data.data()};
    progress sent;
    if (!task || iscsi_scsi_command_async(context_, lun, task.get(), progress::finish,
                                          transfer == SCSI_XFER_WRITE ? &outgoing : nullptr, &sent) != 0) {
        drop();
        return transport_failure(error::device_not_connected);
    }
    const waiting how = wait_for(sent, deadline);
    last_traffic_ = io_clock::now();
    if (how != waiting::done || sent.status < 0 || sent.status > 0xFF) {
        // The target may still be at work on it. Ending the session makes it give the command up, and takes the library's
        // hands off the buffers.
        drop();
        return transport_failure(how == waiting::timed_out ? error::semaphore_timeout : error::io_device);
    }
    scsi_outcome outcome;
    outcome.scsi_status = static_cast<std::uint8_t>(sent.status);
    if (sent.status == SCSI_STATUS_CHECK_CONDITION) {
        outcome.sense = sense_of(*task);
    } else {
        outcome.transferred = moved(*task, command);
    }
    return outcome;
}

bool iscsi_session::discover(std::vector<iscsi_found_target>& targets, io_deadline deadline) {
    progress sent;
    waiting how = waiting::broken;
    if (iscsi_discovery_async(context_, progress::finish_discovery, &sent) == 0) {
        how = wait_for(sent, deadline);
    }
    if (how != waiting::done || sent.status != SCSI_STATUS_GOOD) {
        drop();
        return false;
    }
    targets = std::move(sent.targets);
    return true;
}

bool iscsi_session::is_alive(io_deadline deadline) {
    if (context_ == nullptr) {
        return false;
    }
    pollfd entry{};
    entry.fd = iscsi_get_fd(context_);
    entry.events = POLLIN;
    // What has come in the meantime: questions whether this side lives, and the end of the connection.
    while (poll(&entry, 1, 0) > 0) {
        if ((entry.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0 || iscsi_service(context_, entry.revents) < 0 ||
            iscsi_is_logged_in(context_) == 0 || iscsi_get_fd(context_) != entry.fd || connected_->status != SCSI_STATUS_GOOD) {
            drop();
            return false;
        }
    }
    if (io_clock::now() - last_traffic_ < silence_before_ping) {
        return true;
    }
    progress ping;
    if (iscsi_nop_out_async(context_, progress::finish, nullptr, 0, &ping) != 0 ||
        wait_for(ping, std::min(deadline, io_clock::now() + ping_time)) != waiting::done || ping.status != SCSI_STATUS_GOOD) {
        drop();
        return false;
    }
    last_traffic_ = io_clock::now();
    return true;
}

}  // namespace platform::linux_scsi
