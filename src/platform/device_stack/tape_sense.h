#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/device_stack/scsi_transport.h"
#include "platform/device_stack/sense_error.h"

namespace platform::device_stack {

/// The system error number that the tape class reports for an outcome; 0 when the command did its work. A recovered error is work
/// done, unless it is an earlier command's: then this one was not carried out.
[[nodiscard]] std::uint32_t tape_error_of(const scsi_outcome& outcome);

/// The same for sense bytes that a drive gave, as they come with CHECK CONDITION or as the data of REQUEST SENSE.
[[nodiscard]] std::uint32_t tape_error_of_sense(std::span<const std::uint8_t> sense);

/// True when the drive refused the command or a field of it, having done nothing.
[[nodiscard]] bool is_refused(const scsi_outcome& outcome);

/// True when the sense tells that a command which was answered at its start is still being carried out.
[[nodiscard]] bool tells_operation_in_progress(const sense_code& code);

/// How far an operation has come, in 65536ths (SPC-4 clause 4.5.2.4.4), where the sense bytes tell.
[[nodiscard]] std::optional<std::uint16_t> progress_of(std::span<const std::uint8_t> sense);

}  // namespace platform::device_stack
