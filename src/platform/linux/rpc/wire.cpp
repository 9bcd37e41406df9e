#include "platform/linux/rpc/wire.h"

#include <algorithm>

namespace platform::linux_rpc {

namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";

int digit_value(char digit) {
    if (digit >= 'A' && digit <= 'F') {
        digit = static_cast<char>(digit - 'A' + 'a');
    }
    const std::size_t found = hex_digits.find(digit);
    return found == std::string_view::npos ? -1 : static_cast<int>(found);
}

bool is_dash_position(std::size_t at) {
    return at == 8 || at == 13 || at == 18 || at == 23;
}

/// Turns the first three fields of a UUID around: from the text's order to little-endian, or back.
uuid_bytes swap_fields(uuid_bytes uuid) {
    std::reverse(uuid.begin(), uuid.begin() + 4);
    std::swap(uuid[4], uuid[5]);
    std::swap(uuid[6], uuid[7]);
    return uuid;
}

}  // namespace

uuid_bytes uuid_from_text(std::string_view text) {
    uuid_bytes uuid{};
    if (text.size() != 36) {
        return uuid;
    }
    std::size_t digits = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (is_dash_position(i)) {
            if (text[i] != '-') {
                return {};
            }
            continue;
        }
        const int value = digit_value(text[i]);
        if (value < 0) {
            return {};
        }
        uuid[digits / 2] = static_cast<std::uint8_t>(uuid[digits / 2] << 4 | value);
        ++digits;
    }
    return uuid;
}

std::string uuid_to_text(const uuid_bytes& uuid) {
    std::string text;
    for (const std::uint8_t byte : uuid) {
        if (is_dash_position(text.size())) {
            text += '-';
        }
        text += hex_digits[byte >> 4];
        text += hex_digits[byte & 15];
    }
    return text;
}

bool wire_reader::need(std::size_t count) {
    if (failed_ || remaining() < count) {
        failed_ = true;
        return false;
    }
    return true;
}

std::uint8_t wire_reader::u8() {
    return need(1) ? bytes_[at_++] : std::uint8_t{0};
}

std::uint16_t wire_reader::u16() {
    if (!need(2)) {
        return 0;
    }
    const unsigned first = bytes_[at_];
    const unsigned second = bytes_[at_ + 1];
    at_ += 2;
    return static_cast<std::uint16_t>(little_endian_ ? second << 8 | first : first << 8 | second);
}

std::uint32_t wire_reader::u32() {
    if (!need(4)) {
        return 0;
    }
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value = value << 8 | bytes_[little_endian_ ? at_ + 3 - i : at_ + i];
    }
    at_ += 4;
    return value;
}

uuid_bytes wire_reader::uuid() {
    uuid_bytes value{};
    if (need(value.size())) {
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(at_), value.size(), value.begin());
        at_ += value.size();
    }
    return little_endian_ ? swap_fields(value) : value;
}

syntax_id wire_reader::syntax() {
    syntax_id value;
    value.uuid = uuid();
    // One 32-bit number on the wire, the major version in its lower half.
    const std::uint32_t version = u32();
    value.major = static_cast<std::uint16_t>(version & 0xFFFF);
    value.minor = static_cast<std::uint16_t>(version >> 16);
    return value;
}

std::span<const std::uint8_t> wire_reader::bytes(std::size_t count) {
    if (!need(count)) {
        return {};
    }
    at_ += count;
    return bytes_.subspan(at_ - count, count);
}

void wire_reader::skip(std::size_t count) {
    if (need(count)) {
        at_ += count;
    }
}

void wire_reader::align(std::size_t boundary) {
    skip((boundary - at_ % boundary) % boundary);
}

void wire_writer::u16(std::uint16_t value) {
    out_.push_back(static_cast<std::uint8_t>(value & 0xFF));
    out_.push_back(static_cast<std::uint8_t>(value >> 8));
}

void wire_writer::u32(std::uint32_t value) {
    u16(static_cast<std::uint16_t>(value & 0xFFFF));
    u16(static_cast<std::uint16_t>(value >> 16));
}

void wire_writer::uuid(const uuid_bytes& value) {
    bytes(swap_fields(value));
}

void wire_writer::syntax(const syntax_id& value) {
    uuid(value.uuid);
    u16(value.major);
    u16(value.minor);
}

void wire_writer::bytes(std::span<const std::uint8_t> value) {
    out_.insert(out_.end(), value.begin(), value.end());
}

void wire_writer::zeros(std::size_t count) {
    out_.resize(out_.size() + count);
}

void wire_writer::align(std::size_t boundary) {
    zeros((boundary - out_.size() % boundary) % boundary);
}

void wire_writer::patch_u16(std::size_t at, std::uint16_t value) {
    store_le16(out_, at, value);
}

void store_le16(std::span<std::uint8_t> bytes, std::size_t at, std::uint16_t value) {
    bytes[at] = static_cast<std::uint8_t>(value & 0xFF);
    bytes[at + 1] = static_cast<std::uint8_t>(value >> 8);
}

void store_le32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
    store_le16(bytes, at, static_cast<std::uint16_t>(value & 0xFFFF));
    store_le16(bytes, at + 2, static_cast<std::uint16_t>(value >> 16));
}

}  // namespace platform::linux_rpc
