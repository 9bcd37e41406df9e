#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test_support {

/// Lays out stub data by hand: numbers are aligned to 4, strings are conformant and varying.
class stub_builder {
public:
    explicit stub_builder(bool little_endian = true) : little_endian_(little_endian) {}

    stub_builder& u32(std::uint32_t value) {
        while (bytes_.size() % 4 != 0) {
            bytes_.push_back(0);
        }
        for (unsigned index = 0; index < 4; ++index) {
            bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * (little_endian_ ? index : 3 - index))));
        }
        return *this;
    }

    stub_builder& units(const std::u16string& text) {
        for (const char16_t unit : text) {
            const auto low = static_cast<std::uint8_t>(unit & 0xFF);
            const auto high = static_cast<std::uint8_t>(unit >> 8);
            bytes_.push_back(little_endian_ ? low : high);
            bytes_.push_back(little_endian_ ? high : low);
        }
        return *this;
    }

    stub_builder& string(const std::u16string& text) {
        const auto count = static_cast<std::uint32_t>(text.size() + 1);
        return u32(count).u32(0).u32(count).units(text + u'\0');
    }

    stub_builder& raw(const std::vector<std::uint8_t>& bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return *this;
    }

    [[nodiscard]] const std::vector<std::uint8_t>& bytes() const { return bytes_; }

private:
    bool little_endian_;
    std::vector<std::uint8_t> bytes_;
};

}  // namespace test_support
