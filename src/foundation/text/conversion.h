#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace text {

/// UTF-16 text: what the platform's wide interface and the wire carry. 16-bit units on every system.
using wide_string = std::u16string;

/// Conversions between text forms. Empty input gives empty output; a result is cut at its first terminator. Each failing
/// form throws `exc::win_sys_exc_t` with the last error.
[[nodiscard]] std::string wide_to_utf8(std::u16string_view wide);
[[nodiscard]] wide_string utf8_to_wide(std::string_view utf8);
[[nodiscard]] std::string wide_to_ansi(std::u16string_view wide);
[[nodiscard]] wide_string ansi_to_wide(std::string_view ansi);
[[nodiscard]] std::string ansi_to_utf8(std::string_view ansi);

/// Forms for text that goes into messages: they never throw a conversion failure. The result says instead that the
/// conversion failed; the second one appends the source's bytes, each widened to one unit.
[[nodiscard]] std::string wide_to_ansi_safe(std::u16string_view wide);
[[nodiscard]] wide_string utf8_to_wide_safe(std::string_view utf8);

/// For text that a device sent: each ill-formed sequence becomes U+FFFD. Never fails; cut at the first terminator too.
[[nodiscard]] wide_string utf8_to_wide_lenient(std::string_view utf8);

/// Numbers from text, base 10, as the C library's `strtoul` and its kin read them with a 32-bit `long`: leading white space
/// and a sign are accepted, what follows the digits is ignored, a sign before an unsigned number negates it modulo its
/// width, and a number out of range becomes the nearest end of the range. Only a text without a digit fails, with
/// `exc::runtime_exc_t`.
[[nodiscard]] std::uint32_t to_uint(const std::string& text);
[[nodiscard]] std::int32_t to_int(const std::string& text);
[[nodiscard]] std::uint64_t to_uint64(const std::string& text);
/// "true" is true, "false" and "0" are false, without regard to case; anything else is true.
[[nodiscard]] bool to_bool(const std::string& text);

/// Decimal, without grouping.
[[nodiscard]] std::string to_string(std::int32_t value);
[[nodiscard]] std::string to_string(std::uint32_t value);
[[nodiscard]] std::string to_string(std::int64_t value);
[[nodiscard]] std::string to_string(std::uint64_t value);
[[nodiscard]] wide_string to_wstring(std::int32_t value);
[[nodiscard]] wide_string to_wstring(std::uint32_t value);
[[nodiscard]] wide_string to_wstring(std::int64_t value);
[[nodiscard]] wide_string to_wstring(std::uint64_t value);

/// Patterns of a moment in text: year, month, day, hour, minute, second.
inline constexpr std::string_view time_pattern = "%Y-%m-%d %H:%M:%S";
inline constexpr std::u16string_view wide_time_pattern = u"%Y-%m-%d %H:%M:%S";

/// "0x" and eight lower-case hexadecimal digits.
[[nodiscard]] std::string format_hex(std::uint32_t value);

/// Order of two texts without regard to the case of ASCII letters: below, equal to or above 0.
[[nodiscard]] int compare_no_case(std::string_view left, std::string_view right);
[[nodiscard]] int compare_no_case(std::u16string_view left, std::u16string_view right);
[[nodiscard]] bool starts_with(std::string_view text, std::string_view prefix);
[[nodiscard]] bool starts_with(std::u16string_view text, std::u16string_view prefix);
[[nodiscard]] bool ends_with(std::string_view text, std::string_view suffix);
[[nodiscard]] bool ends_with(std::u16string_view text, std::u16string_view suffix);
/// Index of the first occurrence, -1 when there is none.
[[nodiscard]] std::int64_t find_substring(std::u16string_view text, std::u16string_view part);
/// Cuts at the first separator; false, outputs untouched, when it doesn't occur.
bool split_at(std::string_view text, char separator, std::string& left, std::string& right);
[[nodiscard]] std::string replace_all(std::string text, std::string_view from, std::string_view to);

}  // namespace text
