#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/device_stack/scsi_codes.h"
#include "platform/device_stack/scsi_transport.h"

namespace platform::device_stack {

namespace sense_key {
inline constexpr std::uint8_t no_sense = 0x0;
inline constexpr std::uint8_t recovered_error = 0x1;
inline constexpr std::uint8_t not_ready = 0x2;
inline constexpr std::uint8_t illegal_request = 0x5;
inline constexpr std::uint8_t unit_attention = 0x6;
inline constexpr std::uint8_t data_protect = 0x7;
inline constexpr std::uint8_t blank_check = 0x8;
inline constexpr std::uint8_t volume_overflow = 0xD;
}  // namespace sense_key

/// The three numbers that tell a fault, and whose fault it is.
struct sense_code {
    std::uint8_t key = 0;
    std::uint8_t asc = 0;   ///< additional sense code
    std::uint8_t ascq = 0;  ///< its qualifier
    /// The fault is an earlier command's, which had ended before it came up; the command that brings it was not carried out.
    bool deferred = false;
};

inline constexpr int any_sense = -1;

/// What a fault means to a class driver's callers. `any_sense` stands for every number.
struct sense_rule {
    int key;
    int asc;
    int ascq;
    std::uint32_t system_error;
};

/// The system error number of a fault by a class driver's table: the first rule that fits decides; 1117 when none does.
[[nodiscard]] std::uint32_t system_error_of(const sense_code& code, std::span<const sense_rule> rules);

/// Reads sense bytes in fixed or descriptor format, current or deferred (SPC-4 clause 4.5). Bytes that did not come count as
/// zero. Nothing when the response code is none of the four.
[[nodiscard]] std::optional<sense_code> decode_sense(std::span<const std::uint8_t> sense);

/// True when the command ended in CHECK CONDITION with this key.
[[nodiscard]] bool is_check_condition(const scsi_outcome& outcome, std::uint8_t key);

/// The system error number of an outcome that isn't a CHECK CONDITION; 0 when the command did its work.
[[nodiscard]] std::uint32_t system_error_without_sense(const scsi_outcome& outcome);

/// The system error number that the changer class and the port report for an outcome; 0 when the command did its work. A recovered
/// error is work done.
[[nodiscard]] std::uint32_t system_error_of(const scsi_outcome& outcome);

}  // namespace platform::device_stack
