#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace platform {

/// The English sentence that goes with a system error number, an RPC status or a COM result, UTF-8, without a line end.
/// Nothing for numbers that no part of the system produces. A COM result that wraps a system error number (0x8007 in its
/// upper half) has that number's sentence. For systems that have no such texts of their own.
[[nodiscard]] std::optional<std::string_view> english_error_text(std::uint32_t code);

}  // namespace platform
