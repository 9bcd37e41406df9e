#include "console/answer.h"

#include <exception>

#include "console/connection.h"
#include "foundation/text/conversion.h"

namespace console {

std::string value_of(const std::string& answer, std::string_view name) {
    return understand([&] {
        const winxml::document_t document = winxml::parse_xml(text::utf8_to_wide(answer));
        const winxml::node_t root = winxml::get_element(winxml::document_node(document), "OutputArguments");
        return winxml::get_attribute(winxml::get_element(root, name), "value");
    });
}

winxml::node_t record_of(const std::string& answer, std::string_view name, std::string_view root) {
    const std::string record = value_of(answer, name);
    return understand(
        [&] { return winxml::get_element(winxml::document_node(winxml::parse_xml(text::utf8_to_wide(record))), root); });
}

std::uint32_t number_of(const winxml::node_t& node, std::string_view attribute) {
    return text::to_uint(winxml::get_attribute(node, attribute));
}

std::int64_t long_number_of(const winxml::node_t& node, std::string_view attribute) {
    return static_cast<std::int64_t>(text::to_uint64(winxml::get_attribute(node, attribute)));
}

std::string attribute_or_empty(const winxml::node_t& node, std::string_view attribute) {
    try {
        return winxml::get_attribute(node, attribute);
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace console
