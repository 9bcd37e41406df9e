#pragma once

#include <nlohmann/json.hpp>
#include <ostream>

#include "console/output.h"

namespace console {

/// Members stay in the order in which they are set.
using json = nlohmann::ordered_json;

/// Texts of devices may not be UTF-8; what isn't is replaced.
inline void print_json(const output& out, const json& value) {
    out.stream << value.dump(2, ' ', false, json::error_handler_t::replace) << '\n';
}

}  // namespace console
