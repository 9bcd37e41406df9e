#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The words of the command line, the program first.
using command_line_t = std::vector<std::u16string>;

/// Index of the first word that equals the switch, without regard to case, wherever it stands.
[[nodiscard]] std::optional<std::size_t> FindSwitch(const command_line_t& command_line, std::u16string_view name);

/// The word behind the switch; nothing when the switch is missing or stands last.
[[nodiscard]] std::optional<std::u16string> FindSwitchValue(const command_line_t& command_line, std::u16string_view name);
