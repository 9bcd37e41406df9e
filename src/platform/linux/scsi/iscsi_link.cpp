#include "platform/linux/scsi/iscsi_link.h"

#include <algorithm>
#include <thread>

#include "platform/device_stack/scsi_commands.h"
#include "platform/device_stack/sense_error.h"
#include "platform/errors.h"

namespace platform::linux_scsi {

namespace {

using namespace std::chrono_literals;
using device_stack::scsi_command;
using device_stack::scsi_outcome;

constexpr auto connect_time = 5s;
/// Pause behind a failed attempt to connect, doubled with each further one.
constexpr std::chrono::milliseconds first_pause = 250ms;
constexpr std::chrono::milliseconds longest_pause = 2s;
constexpr int most_doublings = 3;
/// A target may have several such attentions queued for a new session: power-on, bus reset, device reset.
constexpr int most_attentions = 4;
constexpr std::int64_t longest_timeout = std::int64_t{7} * 24 * 60 * 60;

/// Commands that a unit carries out with an attention pending, and leaves it pending.
bool passes_attentions(const scsi_command& command) {
    return command.cdb[0] == device_stack::opcode::inquiry || command.cdb[0] == device_stack::opcode::report_luns ||
           command.cdb[0] == device_stack::opcode::request_sense;
}

bool is_power_on_attention(const scsi_outcome& outcome) {
    constexpr std::uint8_t power_on_or_reset = 0x29;
    return device_stack::is_check_condition(outcome, device_stack::sense_key::unit_attention) &&
           device_stack::decode_sense(outcome.sense)->asc == power_on_or_reset;
}

scsi_outcome transport_failure(std::uint32_t code) {
    scsi_outcome outcome;
    outcome.transport_error = code;
    return outcome;
}

}  // namespace

/// One command has the session at a time. Made of a plain mutex and a condition, because the thread sanitizer doesn't see a mutex
/// that is waited for by the steady clock.
class iscsi_link::turn {
public:
    turn(iscsi_link& link, io_deadline deadline) : link_(link) {
        std::unique_lock lock(link_.turn_mutex_);
        is_taken_ = link_.turn_ended_.wait_until(lock, deadline, [this] { return !link_.in_use_; });
        link_.in_use_ = link_.in_use_ || is_taken_;
    }
    ~turn() {
        if (is_taken_) {
            const std::lock_guard lock(link_.turn_mutex_);
            link_.in_use_ = false;
            link_.turn_ended_.notify_one();
        }
    }
    turn(const turn&) = delete;
    turn& operator=(const turn&) = delete;

    /// False: the deadline has passed before.
    [[nodiscard]] bool is_taken() const { return is_taken_; }

private:
    iscsi_link& link_;
    bool is_taken_ = false;
};

iscsi_link::iscsi_link(iscsi_endpoint endpoint) : endpoint_(std::move(endpoint)) {}

scsi_outcome iscsi_link::execute(std::uint8_t lun, const scsi_command& command) {
    const io_deadline deadline =
        io_clock::now() + std::chrono::seconds(std::clamp<std::int64_t>(command.timeout_seconds, 1, longest_timeout));
    const turn own(*this, deadline);
    if (!own.is_taken()) {
        return transport_failure(error::semaphore_timeout);
    }
    if (const std::uint32_t failure = need_session(deadline); failure != 0) {
        return transport_failure(failure);
    }
    scsi_outcome outcome = session_->execute(lun, command, deadline);
    for (int seen = 0; is_new_ && seen < most_attentions && is_power_on_attention(outcome); ++seen) {
        outcome = session_->execute(lun, command, deadline);
    }
    outcome.connection = connections_;
    if (outcome.transport_error != 0) {
        session_.reset();
    } else if (!passes_attentions(command)) {
        is_new_ = false;
    }
    return outcome;
}

std::uint32_t iscsi_link::need_session(io_deadline deadline) {
    if (session_ && session_->is_alive(deadline)) {
        return error::success;
    }
    session_.reset();
    if (io_clock::now() >= deadline) {
        const std::lock_guard lock(failure_mutex_);
        failure_text_ = "it gave no sign of life";
        return error::semaphore_timeout;
    }
    if (!pause_before_attempt(deadline)) {
        return error::device_not_connected;
    }
    std::uint32_t failure = error::success;
    std::string reason;
    session_ = iscsi_session::connect(endpoint_, std::min(deadline, io_clock::now() + connect_time), failure, reason);
    last_attempt_ = io_clock::now();
    failures_ = session_ ? 0 : failures_ + 1;
    connections_ += session_ ? 1 : 0;
    is_new_ = true;
    {
        const std::lock_guard lock(failure_mutex_);
        failure_text_ = session_ ? std::string() : reason;
    }
    return session_ ? error::success : failure;
}

bool iscsi_link::pause_before_attempt(io_deadline deadline) const {
    if (failures_ == 0) {
        return true;
    }
    const auto pause = std::min(longest_pause, first_pause * (1 << std::min(failures_ - 1, most_doublings)));
    const auto allowed = last_attempt_ + pause;
    if (allowed >= deadline) {
        return false;
    }
    std::this_thread::sleep_until(allowed);
    return true;
}

std::string iscsi_link::last_failure() const {
    const std::lock_guard lock(failure_mutex_);
    return failure_text_;
}

iscsi_transport::iscsi_transport(std::shared_ptr<iscsi_link> link, std::uint8_t lun) : link_(std::move(link)), lun_(lun) {}

scsi_outcome iscsi_transport::execute(const scsi_command& command) {
    return link_->execute(lun_, command);
}

}  // namespace platform::linux_scsi
