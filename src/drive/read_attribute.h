#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "drive/drive_handle.h"

/// Decoding of what READ ATTRIBUTE (SPC-4, medium auxiliary memory) brought: the length of the attribute list in four bytes, then
/// the attributes, each of an identifier in two bytes, a format byte, the value's length in two bytes and the value. All numbers
/// are big-endian. Nothing is read but the bytes given, whatever the lengths in them claim.

/// Value of the first attribute with this identifier; it may be empty. Nothing when there is none, or when its value doesn't lie
/// wholly within the bytes.
[[nodiscard]] std::optional<std::span<const std::uint8_t>> FindAttribute(std::span<const std::uint8_t> received,
                                                                         std::uint16_t identifier);

/// Whether the medium type attribute is there and its first byte tells of a medium that can be written only once.
[[nodiscard]] bool DecodeWormMedium(std::span<const std::uint8_t> received);

/// The two lifetime counts. A value longer than eight bytes counts by its first eight, a shorter one is the number that its bytes
/// make.
[[nodiscard]] TapeUsageStatistic DecodeUsageStatistic(std::span<const std::uint8_t> received);
