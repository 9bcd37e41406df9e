#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform::linux_rpc {

/// Strict text conversions for names and passwords: malformed text is refused, never repaired, because two different inputs
/// must not become one account. They need no installed system set, so that the account tool can use them.

/// False on bytes that aren't well-formed UTF-8 (overlong forms and surrogates included).
[[nodiscard]] bool utf8_to_utf16(std::string_view text, std::u16string& converted);
/// False on a lone surrogate.
[[nodiscard]] bool utf16_to_utf8(std::u16string_view text, std::string& converted);

/// The units as they go over the wire, low byte first.
[[nodiscard]] std::vector<std::uint8_t> to_utf16le(std::u16string_view text);
/// False when the bytes are odd in number, hold a NUL or a lone surrogate.
[[nodiscard]] bool from_utf16le(std::span<const std::uint8_t> bytes, std::u16string& text);

/// Upper case unit by unit, as NTLM's key derivation has it: one unit never becomes two, and a letter without an upper case of
/// its own stays as it is.
[[nodiscard]] std::u16string upper_case(std::u16string_view text);
/// Whether two UTF-8 texts are the same without regard to case; malformed ones are the same as nothing.
[[nodiscard]] bool equal_without_case(std::string_view left, std::string_view right);

/// The text for a log line: control characters, which could start a line of their own, become question marks.
[[nodiscard]] std::string printable(std::u16string_view text);

}  // namespace platform::linux_rpc
