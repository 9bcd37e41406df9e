#include "foundation/util/command_line.h"

#include <algorithm>

#include "foundation/text/conversion.h"

namespace util {

std::optional<std::size_t> find_switch(const command_line_t& command_line, std::u16string_view name) {
    const auto found = std::find_if(command_line.begin(), command_line.end(),
                                    [&](std::u16string_view word) { return text::compare_no_case(word, name) == 0; });
    if (found == command_line.end()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - command_line.begin());
}

std::optional<std::u16string> find_switch_value(const command_line_t& command_line, std::u16string_view name) {
    const std::optional<std::size_t> index = find_switch(command_line, name);
    if (!index || *index + 1 >= command_line.size()) {
        return std::nullopt;
    }
    return command_line[*index + 1];
}

}  // namespace util
