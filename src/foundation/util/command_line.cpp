#include "foundation/util/command_line.h"

#include <algorithm>

#include "foundation/text/conversion.h"

namespace util {

std::optional<std::size_t> find_switch(const std::vector<std::u16string>& command_line, std::u16string_view name) {
    const auto found = std::find_if(command_line.begin(), command_line.end(),
                                    [&](std::u16string_view element) { return text::compare_no_case(element, name) == 0; });
    if (found == command_line.end()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - command_line.begin());
}

}  // namespace util
