#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace util {

/// The words of a command line, the program first.
using command_line_t = std::vector<std::u16string>;

/// Index of the first word that equals the switch without regard to case; nothing when there is none. Any word counts, whatever
/// its place, the value of another switch included.
[[nodiscard]] std::optional<std::size_t> find_switch(const command_line_t& command_line, std::u16string_view name);

/// The word behind the switch; nothing when the switch is missing or stands last.
[[nodiscard]] std::optional<std::u16string> find_switch_value(const command_line_t& command_line, std::u16string_view name);

}  // namespace util
