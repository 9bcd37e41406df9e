#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace console {

/// The client's side of the interface's stub data for `DoRpc`, little-endian NDR (C706 chapter 14; see docs/protocol.md).

/// Parameters of the request: two zero-terminated strings.
[[nodiscard]] std::vector<std::uint8_t> encode_call(std::u16string_view procedure, std::u16string_view input);

struct call_answer {
    bool success = false;
    std::optional<std::u16string> output;
    std::optional<std::u16string> error_message;
};

/// Nothing when the bytes aren't an answer.
[[nodiscard]] std::optional<call_answer> decode_answer(std::span<const std::uint8_t> stub);

}  // namespace console
