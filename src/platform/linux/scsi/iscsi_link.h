#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "platform/device_stack/scsi_transport.h"
#include "platform/linux/scsi/iscsi_session.h"

namespace platform::linux_scsi {

/// A session with a target that is kept, and made anew when it was lost. Carries one command at a time; threads wait for each
/// other within their commands' deadlines. A command is never sent a second time, with one exception: a new session's first
/// report of a power-on or reset (unit attention 29) says nothing but that the session is new, and ends here.
class iscsi_link {
public:
    explicit iscsi_link(iscsi_endpoint endpoint);

    /// Sends a command to a logical unit of the target. Errors of the transport: 1167 the target can't be reached, 5 it refuses the
    /// log-in, 121 the deadline has passed, 1117 the connection was lost while the command ran.
    [[nodiscard]] device_stack::scsi_outcome execute(std::uint8_t lun, const device_stack::scsi_command& command);

    /// Why the last attempt to reach the target failed; empty when it did not.
    [[nodiscard]] std::string last_failure() const;

private:
    class turn;

    [[nodiscard]] std::uint32_t need_session(io_deadline deadline);
    [[nodiscard]] bool pause_before_attempt(io_deadline deadline) const;

    const iscsi_endpoint endpoint_;
    std::mutex turn_mutex_;
    std::condition_variable turn_ended_;
    bool in_use_ = false;

    // For whoever has the turn.
    std::unique_ptr<iscsi_session> session_;
    std::uint32_t connections_ = 0;  ///< made so far
    bool is_new_ = false;            ///< the session has not yet shown its power-on unit attention
    int failures_ = 0;               ///< attempts to connect that failed in a row
    io_clock::time_point last_attempt_;

    mutable std::mutex failure_mutex_;
    std::string failure_text_;
};

/// One logical unit reached by a link.
class iscsi_transport : public device_stack::scsi_transport {
public:
    iscsi_transport(std::shared_ptr<iscsi_link> link, std::uint8_t lun);

    [[nodiscard]] device_stack::scsi_outcome execute(const device_stack::scsi_command& command) override;

private:
    std::shared_ptr<iscsi_link> link_;
    std::uint8_t lun_;
};

}  // namespace platform::linux_scsi
