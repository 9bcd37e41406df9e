#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace console {

/// Text of devices and of the server as a terminal may get it: what isn't UTF-8, and control characters, which could do anything to
/// a terminal, become '?'. Line ends and tabs stay.
[[nodiscard]] std::string printable(std::string_view text);
/// The same for a place within a line: line ends and tabs, with the blanks behind them, become one blank.
[[nodiscard]] std::string printable_in_line(std::string_view text);
/// Columns of a terminal that a printable text takes: none for marks that go onto the letter before them, two for the wide letters
/// of East Asia.
[[nodiscard]] std::size_t columns_of(std::string_view text);

}  // namespace console
