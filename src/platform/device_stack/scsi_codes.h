#pragma once

#include <cstdint>

namespace platform::device_stack {

/// Operation codes (SPC-4, SMC-3, SSC-4).
namespace opcode {
inline constexpr std::uint8_t test_unit_ready = 0x00;
inline constexpr std::uint8_t rewind = 0x01;
inline constexpr std::uint8_t request_sense = 0x03;
inline constexpr std::uint8_t format_medium = 0x04;
inline constexpr std::uint8_t read_block_limits = 0x05;
inline constexpr std::uint8_t initialize_element_status = 0x07;
inline constexpr std::uint8_t inquiry = 0x12;
inline constexpr std::uint8_t reserve_6 = 0x16;
inline constexpr std::uint8_t release_6 = 0x17;
inline constexpr std::uint8_t erase_6 = 0x19;
inline constexpr std::uint8_t mode_sense_6 = 0x1A;
inline constexpr std::uint8_t load_unload = 0x1B;
inline constexpr std::uint8_t prevent_allow_medium_removal = 0x1E;
inline constexpr std::uint8_t position_to_element = 0x2B;
inline constexpr std::uint8_t read_position = 0x34;
inline constexpr std::uint8_t initialize_element_status_with_range = 0x37;
inline constexpr std::uint8_t log_sense = 0x4D;
inline constexpr std::uint8_t reserve_10 = 0x56;
inline constexpr std::uint8_t release_10 = 0x57;
inline constexpr std::uint8_t mode_sense_10 = 0x5A;
inline constexpr std::uint8_t read_attribute = 0x8C;
inline constexpr std::uint8_t report_luns = 0xA0;
inline constexpr std::uint8_t move_medium = 0xA5;
inline constexpr std::uint8_t exchange_medium = 0xA6;
inline constexpr std::uint8_t read_element_status = 0xB8;
}  // namespace opcode

/// SCSI status codes (SAM-5 clause 5.3).
namespace scsi_status {
inline constexpr std::uint8_t good = 0x00;
inline constexpr std::uint8_t check_condition = 0x02;
inline constexpr std::uint8_t condition_met = 0x04;
inline constexpr std::uint8_t busy = 0x08;
inline constexpr std::uint8_t reservation_conflict = 0x18;
inline constexpr std::uint8_t task_set_full = 0x28;
}  // namespace scsi_status

}  // namespace platform::device_stack
