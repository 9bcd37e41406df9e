#pragma once

#include <string>
#include <string_view>

namespace text::unicode {

/// The encoding forms as such (Unicode chapter 3, RFC 3629), the same on every system: no platform, no locale, no last error.
/// Implementations of the platform's text conversions stand on them.

/// Each unit that is no half of a surrogate pair becomes U+FFFD.
[[nodiscard]] std::string encode_utf8(std::u16string_view text);

/// False on bytes that aren't well-formed: stray or missing continuation bytes, overlong forms, encoded surrogates, what lies
/// beyond U+10FFFF. `decoded` then holds what came before.
[[nodiscard]] bool decode_utf8(std::string_view bytes, std::u16string& decoded);

/// The same, with U+FFFD for each longest start of a sequence that can't be completed.
[[nodiscard]] std::u16string decode_utf8_lenient(std::string_view bytes);

/// The lower-case letter of an upper-case letter of the basic plane, any other unit itself.
[[nodiscard]] char16_t to_lower(char16_t unit);

}  // namespace text::unicode
