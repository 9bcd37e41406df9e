#include "host/interface_codec.h"

#include <bit>
#include <cstring>

namespace interface_codec {

namespace {

constexpr std::size_t alignment = 4;

/// Referent identifiers of non-null pointers: any numbers but 0 that differ within one answer.
constexpr std::uint32_t first_referent = 0x00020000;
constexpr std::uint32_t second_referent = 0x00020004;

constexpr std::size_t string_head_size = 12;  ///< maximum count, offset, actual count
constexpr std::size_t result_size = 8;        ///< success, three bytes of padding, pointer

constexpr std::size_t aligned(std::size_t size) {
    return (size + alignment - 1) / alignment * alignment;
}

std::uint32_t load_u32(std::span<const std::uint8_t> bytes, bool little_endian) {
    std::uint32_t value = 0;
    for (std::size_t index = 0; index < 4; ++index) {
        value |= std::uint32_t{bytes[index]} << (8 * (little_endian ? index : 3 - index));
    }
    return value;
}

char16_t load_unit(std::span<const std::uint8_t> bytes, std::size_t at, bool little_endian) {
    const std::uint8_t low = bytes[at + (little_endian ? 0 : 1)];
    const std::uint8_t high = bytes[at + (little_endian ? 1 : 0)];
    return static_cast<char16_t>(low | (high << 8));
}

std::size_t string_size(const std::u16string& text) {
    return string_head_size + (text.size() + 1) * sizeof(char16_t);
}

std::size_t message_size(const InvokeResult& result) {
    return result.errorMessage ? string_size(*result.errorMessage) : 0;
}

/// Lays values into a buffer of the right size and of any content: every byte is written, what lies between values as zero.
class reply_writer {
public:
    explicit reply_writer(std::span<std::uint8_t> reply) : reply_(reply) {}

    void write_u32(std::uint32_t value) {
        align();
        for (std::size_t index = 0; index < 4; ++index) {
            reply_[position_ + index] = static_cast<std::uint8_t>(value >> (8 * index));
        }
        position_ += 4;
    }

    void write_string(const std::u16string& text) {
        const auto count = static_cast<std::uint32_t>(text.size() + 1);
        write_u32(count);
        write_u32(0);
        write_u32(count);
        // With its terminator.
        const std::span<std::uint8_t> units = reply_.subspan(position_, count * sizeof(char16_t));
        if constexpr (std::endian::native == std::endian::little) {
            std::memcpy(units.data(), text.c_str(), units.size());
        } else {
            for (std::size_t index = 0; index < count; ++index) {
                units[2 * index] = static_cast<std::uint8_t>(text.c_str()[index] & 0xFF);
                units[2 * index + 1] = static_cast<std::uint8_t>(text.c_str()[index] >> 8);
            }
        }
        position_ += units.size();
    }

    void write_result(const InvokeResult& result) {
        write_u32(result.success ? 1 : 0);
        write_u32(result.errorMessage ? second_referent : 0);
        if (result.errorMessage) {
            write_string(*result.errorMessage);
        }
    }

private:
    void align() {
        for (; position_ % alignment != 0; ++position_) {
            reply_[position_] = 0;
        }
    }

    std::span<std::uint8_t> reply_;
    std::size_t position_ = 0;
};

}  // namespace

void request_reader::align() {
    position_ = aligned(position_);
}

std::span<const std::uint8_t> request_reader::take(std::size_t size) {
    if (position_ > stub_.size() || size > stub_.size() - position_) {
        throw bad_stub_data();
    }
    const std::span<const std::uint8_t> taken = stub_.subspan(position_, size);
    position_ += size;
    return taken;
}

std::uint32_t request_reader::read_long() {
    align();
    return load_u32(take(4), little_endian_);
}

request_text request_reader::read_string() {
    const std::uint32_t maximum = read_long();
    const std::uint32_t offset = read_long();
    const std::uint32_t count = read_long();
    if (offset != 0 || count == 0 || count > maximum || count > stub_.size() / sizeof(char16_t)) {
        throw bad_stub_data();
    }
    const std::span<const std::uint8_t> bytes = take(std::size_t{count} * sizeof(char16_t));
    if (load_unit(bytes, bytes.size() - sizeof(char16_t), little_endian_) != 0) {
        throw bad_stub_data();
    }
    if (little_endian_ && std::endian::native == std::endian::little &&
        reinterpret_cast<std::uintptr_t>(bytes.data()) % alignof(char16_t) == 0) {
        return request_text(std::u16string_view(reinterpret_cast<const char16_t*>(bytes.data()), count - 1));
    }
    std::u16string copy(count - 1, u'\0');
    for (std::size_t index = 0; index < copy.size(); ++index) {
        copy[index] = load_unit(bytes, index * sizeof(char16_t), little_endian_);
    }
    return request_text(std::move(copy));
}

std::span<const std::uint8_t> request_reader::read_bytes(std::uint32_t size) {
    if (read_long() != size) {
        throw bad_stub_data();
    }
    return take(size);
}

std::size_t DoRpcReplySize(const std::optional<std::u16string>& output, const InvokeResult& result) {
    const std::size_t output_size = output ? string_size(*output) : 0;
    return aligned(4 + output_size) + result_size + message_size(result);
}

void WriteDoRpcReply(std::span<std::uint8_t> reply, const std::optional<std::u16string>& output, const InvokeResult& result) {
    reply_writer writer(reply);
    writer.write_u32(output ? first_referent : 0);
    if (output) {
        writer.write_string(*output);
    }
    writer.write_result(result);
}

std::size_t DoRpcWithBinaryReplySize(const InvokeResult& result) {
    return 12 + result_size + message_size(result);
}

void WriteDoRpcWithBinaryReply(std::span<std::uint8_t> reply, const InvokeResult& result) {
    reply_writer writer(reply);
    writer.write_u32(0);
    writer.write_u32(0);
    writer.write_u32(0);
    writer.write_result(result);
}

std::size_t ResultReplySize(const InvokeResult& result) {
    return result_size + message_size(result);
}

void WriteResultReply(std::span<std::uint8_t> reply, const InvokeResult& result) {
    reply_writer writer(reply);
    writer.write_result(result);
}

}  // namespace interface_codec
