#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace util {

/// Index of the first element that equals the switch without regard to case; nothing when there is none. Any element counts,
/// whatever its place, the value of another switch included.
[[nodiscard]] std::optional<std::size_t> find_switch(const std::vector<std::u16string>& command_line, std::u16string_view name);

}  // namespace util
