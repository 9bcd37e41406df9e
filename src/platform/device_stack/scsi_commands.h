#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "platform/device_stack/scsi_codes.h"
#include "platform/device_stack/scsi_transport.h"

namespace platform::device_stack {

/// The commands that the drivers send on their own account. Numbers in the blocks are big-endian.

namespace vital_product_page {
inline constexpr std::uint8_t unit_serial_number = 0x80;
inline constexpr std::uint8_t device_identification = 0x83;
}  // namespace vital_product_page

/// Peripheral device types (INQUIRY byte 0, low five bits).
namespace peripheral_type {
inline constexpr std::uint8_t tape = 0x01;
inline constexpr std::uint8_t medium_changer = 0x08;
}  // namespace peripheral_type

/// Seconds that a command which moves nothing may take.
inline constexpr std::int64_t short_command_seconds = 60;

/// A command without data. Bytes of the block that aren't named are zero.
[[nodiscard]] scsi_outcome send_without_data(scsi_transport& transport, std::initializer_list<std::uint8_t> cdb,
                                             std::int64_t timeout_seconds);

/// A command that brings data: `data` has room for the most that may come, and is cut to what came.
[[nodiscard]] scsi_outcome receive(scsi_transport& transport, std::initializer_list<std::uint8_t> cdb,
                                   std::vector<std::uint8_t>& data, std::int64_t timeout_seconds);

/// Standard INQUIRY data.
[[nodiscard]] scsi_outcome inquire(scsi_transport& transport, std::vector<std::uint8_t>& data,
                                   std::int64_t timeout_seconds = short_command_seconds);

/// One page of vital product data, whole, its 4-byte head included. A page of another code is an answer without data.
[[nodiscard]] scsi_outcome inquire_page(scsi_transport& transport, std::uint8_t page, std::vector<std::uint8_t>& data,
                                        std::int64_t timeout_seconds = short_command_seconds);

/// A mode page by MODE SENSE(6) without block descriptors: `page` is the page itself from its code byte on, empty when the
/// answer holds no page of that code.
[[nodiscard]] scsi_outcome sense_mode_page(scsi_transport& transport, std::uint8_t code, std::vector<std::uint8_t>& page);

/// The serial number in a unit serial number page, trailing blanks kept, cut at its first NUL.
[[nodiscard]] std::string serial_of_page(std::span<const std::uint8_t> page);

}  // namespace platform::device_stack
