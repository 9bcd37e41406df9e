#pragma once

#include <cstdint>

#include "platform/device_stack/storage_class.h"
#include "platform/tape_records.h"

namespace platform::device_stack {

/// The class driver of tape drives: the tape functions of one open drive, carried out by the commands of sequential-access devices.
/// A command is sent once: what the drive reports, unit attentions too, is the caller's to handle. All operations return a system
/// error number, 0 for success; they and their errors are those of `tape_functions`. The driver keeps nothing between calls.
class tape_class : public storage_class {
public:
    tape_class(std::shared_ptr<scsi_transport> transport, const scsi_location& location, std::uint32_t device_number);

    /// The medium in the drive, once the drive says that it is ready. What the drive doesn't tell of the capacity is 0.
    [[nodiscard]] std::uint32_t get_media_parameters(TAPE_GET_MEDIA_PARAMETERS& media);
    /// What the drive can do. Needs no medium.
    [[nodiscard]] std::uint32_t get_drive_parameters(TAPE_GET_DRIVE_PARAMETERS& drive);
    [[nodiscard]] std::uint32_t prepare(std::uint32_t operation, bool immediate);
    [[nodiscard]] std::uint32_t set_position(std::uint32_t method, bool immediate);
    [[nodiscard]] std::uint32_t erase(std::uint32_t type, bool immediate);
    [[nodiscard]] std::uint32_t get_status();

private:
    std::uint32_t device_number_;
};

}  // namespace platform::device_stack
