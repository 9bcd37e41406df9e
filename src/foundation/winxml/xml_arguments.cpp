#include <locale>
#include <sstream>

#include "foundation/exc/exceptions.h"
#include "foundation/winxml/xml.h"

namespace winxml {

namespace {

constexpr std::string_view arguments_element = "InputArguments";
constexpr std::string_view value_attribute = "value";

/// The value of an argument, converted; `failure` is the sentence that names the kind of value.
template <typename Convert>
auto typed_argument(const document_t& document, std::string_view name, std::string_view failure, Convert convert) {
    try {
        return convert(get_argument_value(document, name));
    } catch (std::exception& e) {
        exc::rethrow_with_trace(failure, name, e);
    }
}

/// A stream's reading: 0 for a text that doesn't begin with a number, the largest number for one that is too large.
std::uint64_t uint64_from_stream(const std::string& digits) {
    std::istringstream stream(digits);
    stream.imbue(std::locale::classic());
    std::uint64_t number = 0;
    stream >> number;
    return number;
}

}  // namespace

node_t find_argument(const document_t& document, std::string_view name) {
    try {
        return find_element(get_element(document_node(document), arguments_element), name);
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to find argument node '%1'.", name, e);
    }
}

node_t get_argument(const document_t& document, std::string_view name) {
    node_t found = find_argument(document, name);
    if (!found) {
        throw exc::runtime_exc_t("Value of the argument '%1' is not defined.", name);
    }
    return found;
}

std::string get_argument_value(const document_t& document, std::string_view name) {
    return get_attribute(get_argument(document, name), value_attribute);
}

text::wide_string get_wstring_argument(const document_t& document, std::string_view name) {
    return typed_argument(document, name, "Failed to retrieve value of the unicode attribute '%1'.",
                          [](const std::string& value) { return text::utf8_to_wide(value); });
}

std::string get_string_argument(const document_t& document, std::string_view name) {
    return typed_argument(document, name, "Failed to retrieve value of the multibyte attribute '%1'.",
                          [](const std::string& value) { return text::wide_to_utf8(text::utf8_to_wide(value)); });
}

std::int32_t get_int_argument(const document_t& document, std::string_view name) {
    return typed_argument(document, name, "Failed to retrieve value of the integer attribute '%1'.",
                          [](const std::string& value) { return text::to_int(value); });
}

bool get_bool_argument(const document_t& document, std::string_view name) {
    return typed_argument(document, name, "Failed to retrieve value of the boolean attribute '%1'.",
                          [](const std::string& value) { return text::to_bool(value); });
}

std::uint64_t get_uint64_argument(const document_t& document, std::string_view name) {
    return typed_argument(document, name, "Failed to retrieve value of the UInt64 attribute '%1'.", uint64_from_stream);
}

}  // namespace winxml
