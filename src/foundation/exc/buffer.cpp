#include "foundation/exc/buffer.h"

#include <array>
#include <cstring>

#include "foundation/exc/exceptions.h"

namespace exc {

namespace {

constexpr std::size_t growth_step = std::size_t{1024} * 1024;

}  // namespace

void CBufWriter::write_bool(bool value) {
    const std::uint8_t byte = value ? 1 : 0;
    write_bytes(&byte, sizeof(byte));
}

void CBufWriter::write_int32(std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    const std::array<std::uint8_t, 4> bytes{static_cast<std::uint8_t>(bits & 0xFF), static_cast<std::uint8_t>((bits >> 8) & 0xFF),
                                            static_cast<std::uint8_t>((bits >> 16) & 0xFF), static_cast<std::uint8_t>(bits >> 24)};
    write_bytes(bytes.data(), bytes.size());
}

void CBufWriter::write_string(std::string_view value) {
    write_int32(static_cast<std::int32_t>(value.size()));
    write_bytes(value.data(), value.size());
}

void CBufWriter::write_bytes(const void* data, std::size_t size) {
    if (size == 0) {
        return;
    }
    const std::size_t needed = cursor_ + size;
    if (needed > buffer_->size()) {
        buffer_->resize((needed + growth_step - 1) / growth_step * growth_step);
    }
    std::memcpy(buffer_->data() + cursor_, data, size);
    cursor_ = needed;
}

bool CBufReader::read_bool() {
    try {
        std::uint8_t byte = 0;
        read_bytes(&byte, sizeof(byte));
        return byte != 0;
    } catch (std::exception& e) {
        rethrow_with_trace("Failed to extract boolean value from buffer.", e);
    }
}

std::int32_t CBufReader::read_int32() {
    try {
        std::array<std::uint8_t, 4> bytes{};
        read_bytes(bytes.data(), bytes.size());
        return static_cast<std::int32_t>(bytes[0] | (std::uint32_t{bytes[1]} << 8) | (std::uint32_t{bytes[2]} << 16) |
                                         (std::uint32_t{bytes[3]} << 24));
    } catch (std::exception& e) {
        rethrow_with_trace("Failed to extract integer value from buffer.", e);
    }
}

std::string CBufReader::read_string() {
    std::int32_t length = 0;
    try {
        length = read_int32();
    } catch (std::exception& e) {
        rethrow_with_trace("Failed to extract multi-byte string from buffer .", e);
    }
    if (length < 0 || length > string_limit_) {
        throw runtime_exc_t("Invalid length of the string '%1'.", text::to_string(length));
    }
    try {
        const std::uint8_t* bytes = take(static_cast<std::size_t>(length));
        const std::string_view whole(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
        return std::string(whole.substr(0, whole.find('\0')));
    } catch (std::exception& e) {
        rethrow_with_trace("Failed to extract multi-byte string from buffer .", e);
    }
}

void CBufReader::read_bytes(void* data, std::size_t size) {
    std::memcpy(data, take(size), size);
}

const std::uint8_t* CBufReader::take(std::size_t size) {
    if (buffer_ == nullptr) {
        throw runtime_exc_t("CBufReader buffer not initialized.");
    }
    if (size > buffer_->size() - cursor_) {
        throw runtime_exc_t("Out of the buffer, buffer size '%1', struct size '%2', buffer pointer '%3'.",
                            text::to_string(std::uint64_t{buffer_->size()}), text::to_string(std::uint64_t{size}),
                            text::to_string(std::uint64_t{cursor_}));
    }
    const std::uint8_t* bytes = buffer_->data() + cursor_;
    cursor_ += size;
    return bytes;
}

}  // namespace exc
