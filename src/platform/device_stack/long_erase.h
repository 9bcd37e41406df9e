#pragma once

#include <cstdint>
#include <string>

#include "platform/device_stack/scsi_transport.h"
#include "platform/device_stack/sense_error.h"

namespace platform::device_stack {

/// Overwrites a tape from its present position to its end, without holding the drive's only command slot for the hours that it
/// takes: the drive is asked to answer at the start, and then how far it has come, at growing distances, until it tells the end.
/// A drive that can't answer at the start gets the command once more, to be answered at the end.
class long_erase {
public:
    /// Limit of the whole: a day.
    static constexpr std::int64_t longest_seconds = std::int64_t{24} * 60 * 60;

    /// `drive_name` is for the log.
    long_erase(scsi_transport& transport, std::string drive_name);

    /// Blocks until the tape is erased or it is known that it isn't. 0, or a system error number: what the drive reported; that of
    /// the transport when the drive can't be asked any more; 1111 when the drive may have been reset without saying so;
    /// 121 when it still works after a day; 170 when it has been busy each time it was asked.
    [[nodiscard]] std::uint32_t run();

private:
    enum class progress { working, busy, ended };

    [[nodiscard]] std::uint32_t follow();
    [[nodiscard]] progress look(std::uint32_t& status);
    [[nodiscard]] progress ask_for_sense(std::uint32_t& status);
    [[nodiscard]] progress test_ready(std::uint32_t& status);
    [[nodiscard]] progress judge(std::span<const std::uint8_t> sense, std::uint32_t& status);
    void note_connection(const scsi_outcome& outcome);
    void log_progress(std::span<const std::uint8_t> sense);

    scsi_transport& transport_;
    const std::string drive_name_;
    std::uint32_t connection_ = 0;
    bool may_be_reset_ = false;  ///< the connection is another, and the drive has not shown since that it still erases
    int shown_tenths_ = 0;
};

}  // namespace platform::device_stack
