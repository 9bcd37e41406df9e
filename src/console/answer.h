#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/winxml/xml.h"

namespace console {

/// Reading what procedures answer. An answer that isn't what it should be throws `failure` with `exit_code::bad_answer`.

/// The value of the output element `name`.
[[nodiscard]] std::string value_of(const std::string& answer, std::string_view name);
/// The root element, named `root`, of the record document that is the value of the output element `name`.
[[nodiscard]] winxml::node_t record_of(const std::string& answer, std::string_view name, std::string_view root);

/// Attributes of a record. They throw what the XML layer throws: for use within `understand`.
[[nodiscard]] std::uint32_t number_of(const winxml::node_t& node, std::string_view attribute);
[[nodiscard]] std::int64_t long_number_of(const winxml::node_t& node, std::string_view attribute);
/// Empty for an attribute that isn't there.
[[nodiscard]] std::string attribute_or_empty(const winxml::node_t& node, std::string_view attribute);

}  // namespace console
