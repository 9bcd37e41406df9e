#include "console/call_codec.h"

#include <cstddef>

namespace console {

namespace {

void append_u32(std::vector<std::uint8_t>& stub, std::size_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        stub.push_back(static_cast<std::uint8_t>((value >> shift) & 0xFFU));
    }
}

void append_string(std::vector<std::uint8_t>& stub, std::u16string_view text) {
    const std::size_t units = text.size() + 1;
    append_u32(stub, units);
    append_u32(stub, 0);
    append_u32(stub, units);
    for (const char16_t unit : text) {
        stub.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        stub.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    stub.insert(stub.end(), 2, 0);
    stub.resize((stub.size() + 3) / 4 * 4, 0);
}

/// Reads an answer's parts in order; `ok()` turns false, for good, at the first part that isn't there.
class answer_reader {
public:
    explicit answer_reader(std::span<const std::uint8_t> stub) : stub_(stub) {}

    [[nodiscard]] bool ok() const { return ok_; }

    std::uint32_t read_u32() {
        position_ = (position_ + 3) / 4 * 4;
        std::uint32_t value = 0;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            value |= std::uint32_t{read_u8()} << shift;
        }
        return value;
    }

    std::uint8_t read_u8() {
        if (position_ >= stub_.size()) {
            ok_ = false;
            return 0;
        }
        return stub_[position_++];
    }

    /// A counted string without its terminator.
    std::u16string read_string() {
        const std::uint32_t maximum = read_u32();
        const std::uint32_t offset = read_u32();
        const std::uint32_t units = read_u32();
        if (!ok_ || offset != 0 || units == 0 || units > maximum || units > (stub_.size() - position_) / 2) {
            ok_ = false;
            return {};
        }
        std::u16string text(units, u'\0');
        for (char16_t& unit : text) {
            unit = static_cast<char16_t>(stub_[position_] | (stub_[position_ + 1] << 8));
            position_ += 2;
        }
        text.pop_back();
        return text;
    }

private:
    std::span<const std::uint8_t> stub_;
    std::size_t position_ = 0;
    bool ok_ = true;
};

}  // namespace

std::vector<std::uint8_t> encode_call(std::u16string_view procedure, std::u16string_view input) {
    std::vector<std::uint8_t> stub;
    stub.reserve(2 * (procedure.size() + input.size()) + 40);
    append_string(stub, procedure);
    append_string(stub, input);
    return stub;
}

std::optional<call_answer> decode_answer(std::span<const std::uint8_t> stub) {
    answer_reader reader(stub);
    call_answer answer;
    if (reader.read_u32() != 0) {
        answer.output = reader.read_string();
    }
    // The result record is aligned to 4: its one-byte flag, padding, then the message's referent.
    const std::uint32_t flag_and_padding = reader.read_u32();
    answer.success = (flag_and_padding & 0xFFU) != 0;
    if (reader.read_u32() != 0) {
        answer.error_message = reader.read_string();
    }
    if (!reader.ok()) {
        return std::nullopt;
    }
    return answer;
}

}  // namespace console
