#pragma once

#include <exception>
#include <string_view>

namespace diagnostics {

/// Tells whoever has started the program, on standard error, what an action could not do. The log has it as well; but nobody who
/// waits at a terminal looks there after an action that ended as if all were well.
void TellFailure(std::string_view text, const std::exception& failure);

}  // namespace diagnostics
