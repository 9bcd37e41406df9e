#pragma once

#include <cstdint>
#include <span>

#include "platform/devices.h"

namespace platform {

/// What a tape drive does and tells, on a handle of `devices::open_device`.
///
/// Every operation returns a status, 0 for success, and leaves a status other than 0 in the calling thread's last error as well.
/// The statuses that callers tell apart: 15 the device is no such drive any more, 19 write-protected, 21 not ready, 50 the drive
/// doesn't know the command, 1100 end of the medium, 1101 filemark, 1110 the medium was changed, 1111 the drive was reset, 1112 no
/// medium, 1117 the drive or the way to it failed; 6 for a handle that isn't open, 1 for a device that is no tape drive. Each
/// command is sent once: none is repeated after a failure. Callable from any thread.
class tape_functions {
public:
    virtual ~tape_functions() = default;

    /// Fills `record` with a TAPE_GET_MEDIA_PARAMETERS or TAPE_GET_DRIVE_PARAMETERS (tape_records.h), by `operation`. `size`
    /// receives the record's size; an implementation may fail with 234 where it came in smaller than that, which only sets it
    /// right. On failure `record` means nothing. Blocks for a minute at most.
    [[nodiscard]] virtual std::uint32_t get_parameters(device_handle device, std::uint32_t operation, std::uint32_t& size,
                                                       std::span<std::uint8_t> record) = 0;

    /// TAPE_LOAD to TAPE_FORMAT; 87 for any other operation. With `immediate` it returns once the drive has begun; otherwise it
    /// blocks until the drive has finished, for minutes.
    [[nodiscard]] virtual std::uint32_t prepare(device_handle device, std::uint32_t operation, bool immediate) = 0;

    /// Moves the tape: TAPE_REWIND; 50 for any other method. Blocks for minutes unless `immediate`.
    [[nodiscard]] virtual std::uint32_t set_position(device_handle device, std::uint32_t method, std::uint32_t partition,
                                                     std::uint64_t offset, bool immediate) = 0;

    /// Erases from the present position: TAPE_ERASE_SHORT marks the end of data there, TAPE_ERASE_LONG overwrites all the rest and
    /// may take hours, up to a day. 87 for any other type. Without `immediate` it blocks until the drive has finished.
    [[nodiscard]] virtual std::uint32_t erase(device_handle device, std::uint32_t type, bool immediate) = 0;

    /// Whether the drive is ready with a medium in it: 0, or why not.
    [[nodiscard]] virtual std::uint32_t get_status(device_handle device) = 0;
};

}  // namespace platform
