#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "foundation/util/bytes.h"

namespace platform::linux_rpc {

/// Little-endian counterparts of `util`'s accessors, with the same rule: missing bytes read as zero, a store behind the end is
/// dropped.

[[nodiscard]] inline std::uint16_t load_le16(std::span<const std::uint8_t> bytes, std::size_t at) {
    return static_cast<std::uint16_t>(util::load_u8(bytes, at) | (util::load_u8(bytes, at + 1) << 8));
}

[[nodiscard]] inline std::uint32_t load_le32(std::span<const std::uint8_t> bytes, std::size_t at) {
    return load_le16(bytes, at) | (std::uint32_t{load_le16(bytes, at + 2)} << 16);
}

inline void store_le16(std::span<std::uint8_t> bytes, std::size_t at, std::uint16_t value) {
    util::store_u8(bytes, at, static_cast<std::uint8_t>(value & 0xFF));
    util::store_u8(bytes, at + 1, static_cast<std::uint8_t>(value >> 8));
}

inline void store_le32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
    store_le16(bytes, at, static_cast<std::uint16_t>(value & 0xFFFF));
    store_le16(bytes, at + 2, static_cast<std::uint16_t>(value >> 16));
}

inline void store_le64(std::span<std::uint8_t> bytes, std::size_t at, std::uint64_t value) {
    store_le32(bytes, at, static_cast<std::uint32_t>(value & 0xFFFFFFFF));
    store_le32(bytes, at + 4, static_cast<std::uint32_t>(value >> 32));
}

}  // namespace platform::linux_rpc
