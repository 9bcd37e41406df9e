#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace platform::device_stack {

/// The answer to a query for device identifiers, made from a device identification page (SPC-4 clause 7.8.6): a
/// STORAGE_DEVICE_ID_DESCRIPTOR and, from byte 12 on, a STORAGE_IDENTIFIER for each designation descriptor that came whole.
[[nodiscard]] std::vector<std::uint8_t> describe_identifiers(std::span<const std::uint8_t> page);

}  // namespace platform::device_stack
