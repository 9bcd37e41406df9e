#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

/// Answers of tape drives, put together from their parts.
namespace tape_answers {

using bytes = std::vector<std::uint8_t>;

inline bytes be32(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>((value >> 16) & 0xFF),
            static_cast<std::uint8_t>((value >> 8) & 0xFF), static_cast<std::uint8_t>(value & 0xFF)};
}

inline bytes be64(std::uint64_t value) {
    bytes high = be32(static_cast<std::uint32_t>(value >> 32));
    const bytes low = be32(static_cast<std::uint32_t>(value & 0xFFFFFFFF));
    high.insert(high.end(), low.begin(), low.end());
    return high;
}

/// One attribute or log parameter.
struct numbered_value {
    std::uint16_t code;
    bytes value;
};

inline void append_code(bytes& to, std::uint16_t code) {
    to.push_back(static_cast<std::uint8_t>(code >> 8));
    to.push_back(static_cast<std::uint8_t>(code & 0xFF));
}

/// READ ATTRIBUTE, attribute values.
inline bytes attributes(std::initializer_list<numbered_value> values) {
    bytes list;
    for (const numbered_value& one : values) {
        append_code(list, one.code);
        list.push_back(0x80);
        append_code(list, static_cast<std::uint16_t>(one.value.size()));
        list.insert(list.end(), one.value.begin(), one.value.end());
    }
    bytes answer = be32(static_cast<std::uint32_t>(list.size()));
    answer.insert(answer.end(), list.begin(), list.end());
    return answer;
}

/// LOG SENSE.
inline bytes log_page(std::uint8_t page, std::initializer_list<numbered_value> parameters) {
    bytes answer = {page, 0, 0, 0};
    for (const numbered_value& one : parameters) {
        append_code(answer, one.code);
        answer.push_back(0x03);
        answer.push_back(static_cast<std::uint8_t>(one.value.size()));
        answer.insert(answer.end(), one.value.begin(), one.value.end());
    }
    answer[3] = static_cast<std::uint8_t>(answer.size() - 4);
    return answer;
}

/// MODE SENSE(6) with a block descriptor and a page.
inline bytes mode(std::uint8_t device_specific, std::uint8_t density, std::uint32_t block_size, const bytes& page) {
    const bytes size = be32(block_size);
    bytes answer = {0, 0, device_specific, 8, density, 0, 0, 0, 0, size[1], size[2], size[3]};
    answer.insert(answer.end(), page.begin(), page.end());
    answer[0] = static_cast<std::uint8_t>(answer.size() - 1);
    return answer;
}

}  // namespace tape_answers
