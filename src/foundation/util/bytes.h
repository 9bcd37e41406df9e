#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace util {

/// Loads and stores of numbers in byte spans. A load behind the end of the span reads the missing bytes as zero, so that a
/// decoder of device data stays defined on a short answer; a store behind the end is dropped.

[[nodiscard]] inline std::uint8_t load_u8(std::span<const std::uint8_t> bytes, std::size_t at) {
    return at < bytes.size() ? bytes[at] : std::uint8_t{0};
}

[[nodiscard]] inline std::uint16_t load_be16(std::span<const std::uint8_t> bytes, std::size_t at) {
    return static_cast<std::uint16_t>((load_u8(bytes, at) << 8) | load_u8(bytes, at + 1));
}

[[nodiscard]] inline std::uint32_t load_be24(std::span<const std::uint8_t> bytes, std::size_t at) {
    return (std::uint32_t{load_u8(bytes, at)} << 16) | load_be16(bytes, at + 1);
}

[[nodiscard]] inline std::uint32_t load_be32(std::span<const std::uint8_t> bytes, std::size_t at) {
    return (std::uint32_t{load_be16(bytes, at)} << 16) | load_be16(bytes, at + 2);
}

[[nodiscard]] inline std::uint64_t load_be64(std::span<const std::uint8_t> bytes, std::size_t at) {
    return (std::uint64_t{load_be32(bytes, at)} << 32) | load_be32(bytes, at + 4);
}

inline void store_u8(std::span<std::uint8_t> bytes, std::size_t at, std::uint8_t value) {
    if (at < bytes.size()) {
        bytes[at] = value;
    }
}

inline void store_be16(std::span<std::uint8_t> bytes, std::size_t at, std::uint16_t value) {
    store_u8(bytes, at, static_cast<std::uint8_t>(value >> 8));
    store_u8(bytes, at + 1, static_cast<std::uint8_t>(value & 0xFF));
}

inline void store_be24(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
    store_u8(bytes, at, static_cast<std::uint8_t>((value >> 16) & 0xFF));
    store_be16(bytes, at + 1, static_cast<std::uint16_t>(value & 0xFFFF));
}

inline void store_be32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
    store_be16(bytes, at, static_cast<std::uint16_t>(value >> 16));
    store_be16(bytes, at + 2, static_cast<std::uint16_t>(value & 0xFFFF));
}

inline void store_be64(std::span<std::uint8_t> bytes, std::size_t at, std::uint64_t value) {
    store_be32(bytes, at, static_cast<std::uint32_t>(value >> 32));
    store_be32(bytes, at + 4, static_cast<std::uint32_t>(value & 0xFFFFFFFF));
}

/// Part of a span that is really there: `count` bytes from `at`, fewer or none when the span ends before.
[[nodiscard]] inline std::span<const std::uint8_t> slice(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t count) {
    if (at >= bytes.size()) {
        return {};
    }
    return bytes.subspan(at, count < bytes.size() - at ? count : bytes.size() - at);
}

/// The bytes as text, all of them.
[[nodiscard]] inline std::string to_text(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// The bytes as text, up to the first NUL; all of them when there is none.
[[nodiscard]] inline std::string text_to_nul(std::span<const std::uint8_t> bytes) {
    std::size_t length = 0;
    while (length < bytes.size() && bytes[length] != 0) {
        ++length;
    }
    return to_text(bytes.first(length));
}

/// The text without the blanks at its end.
[[nodiscard]] inline std::string without_trailing_blanks(std::string text) {
    const std::size_t last = text.find_last_not_of(' ');
    text.erase(last == std::string::npos ? 0 : last + 1);
    return text;
}

/// A fixed-width record from the start of a span; bytes that the span lacks keep the record's zero.
template <typename Record>
[[nodiscard]] Record load_record(std::span<const std::uint8_t> bytes) {
    static_assert(std::is_trivially_copyable_v<Record>);
    Record record{};
    if (!bytes.empty()) {  // an empty span may have no address at all, which no copy may be given
        std::memcpy(&record, bytes.data(), bytes.size() < sizeof(Record) ? bytes.size() : sizeof(Record));
    }
    return record;
}

/// The bytes of a fixed-width record.
template <typename Record>
[[nodiscard]] std::span<const std::uint8_t> record_bytes(const Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    return {reinterpret_cast<const std::uint8_t*>(&record), sizeof(Record)};
}

template <typename Record>
[[nodiscard]] std::span<std::uint8_t> writable_bytes(Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    return {reinterpret_cast<std::uint8_t*>(&record), sizeof(Record)};
}

}  // namespace util
