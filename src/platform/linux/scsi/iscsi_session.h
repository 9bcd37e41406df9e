#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/device_stack/scsi_transport.h"
#include "platform/linux/scsi/iscsi_setting.h"

struct iscsi_context;

namespace platform::linux_scsi {

/// Deadlines of network traffic are real time: what they bound is the wait for another machine.
using io_clock = std::chrono::steady_clock;
using io_deadline = io_clock::time_point;

/// What a session needs to know of its target.
struct iscsi_endpoint {
    iscsi_portal portal;
    std::string target;  ///< empty: a discovery session
    std::string user;
    std::string password;
    std::string initiator;  ///< name of this machine's initiator
};

/// A target that discovery found.
struct iscsi_found_target {
    std::string name;
    std::vector<iscsi_portal> portals;
};

/// One iSCSI session: logged in when made, gone for good once it is broken. Each operation ends by its deadline, whatever the
/// target does. Used by one thread at a time.
class iscsi_session {
public:
    /// Resolves the portal's name, connects and logs in. Null by the deadline at the latest, with a system error number (1167
    /// nobody there, 5 log-in refused, 121 no answer in time) and a sentence for a person.
    [[nodiscard]] static std::unique_ptr<iscsi_session> connect(const iscsi_endpoint& endpoint, io_deadline deadline,
                                                                std::uint32_t& failure, std::string& reason);
    /// Logs out when the session is whole, which takes a second at most.
    ~iscsi_session();
    iscsi_session(const iscsi_session&) = delete;
    iscsi_session& operator=(const iscsi_session&) = delete;

    /// Sends one command. A failure of the transport leaves the session broken.
    [[nodiscard]] device_stack::scsi_outcome execute(std::uint8_t lun, const device_stack::scsi_command& command,
                                                     io_deadline deadline);

    /// The targets behind the portal of a discovery session. False: the session is broken.
    [[nodiscard]] bool discover(std::vector<iscsi_found_target>& targets, io_deadline deadline);

    /// Answers what the target has sent meanwhile, and makes it answer when nothing was said for a while, so that a connection
    /// that died in silence isn't found out by a command. Waits five seconds for the answer, and not beyond the deadline. False:
    /// the session is broken.
    [[nodiscard]] bool is_alive(io_deadline deadline);

private:
    struct progress;
    enum class waiting { done, timed_out, broken };

    iscsi_session() = default;
    [[nodiscard]] bool log_in(const iscsi_endpoint& endpoint, const std::string& address, io_deadline deadline,
                              std::uint32_t& failure, std::string& reason, std::string& redirected);
    [[nodiscard]] waiting wait_for(const progress& expected, io_deadline deadline);
    void watch_connection() const;
    void drop();
    [[nodiscard]] std::string last_message() const;

    iscsi_context* context_ = nullptr;
    bool logged_in_ = false;
    std::unique_ptr<progress> connected_;  ///< the library reports to it for as long as the connection lives
    io_clock::time_point last_traffic_;
};

}  // namespace platform::linux_scsi
