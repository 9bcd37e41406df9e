#pragma once

#include <string>
#include <string_view>

namespace text {

/// Plain copies between the widths for text that is ASCII, which nearly all of the system's long texts are. They are made for many
/// megabytes: the source is read once, the target is written once.

/// Appends ASCII text, each byte as one unit.
void append_widened_ascii(std::u16string& out, std::string_view ascii);

/// Appends the text's leading ASCII units, each as one byte, and returns how many there are: all, or those in front of the first
/// unit that isn't ASCII.
[[nodiscard]] std::size_t append_narrowed_ascii(std::string& out, std::u16string_view text);

}  // namespace text
