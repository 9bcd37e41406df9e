#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace text {

/// Fills `%1`, `%2` ... of a pattern with text arguments. `%` and a number that names no argument stay as they stand; a
/// `%` without a number is a plain character. There is no escape, and an argument's text is not looked at again.
[[nodiscard]] std::string format_message(std::string_view pattern, std::initializer_list<std::string_view> arguments);

template <typename... Arguments>
[[nodiscard]] std::string format_message(std::string_view pattern, const Arguments&... arguments) {
    return format_message(pattern, {std::string_view(arguments)...});
}

}  // namespace text
