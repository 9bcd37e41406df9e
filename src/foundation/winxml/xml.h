#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/text/conversion.h"

class TiXmlDocument;
class TiXmlElement;

namespace winxml {

/// A shared XML document. One thread uses it at a time.
using document_t = boost::shared_ptr<TiXmlDocument>;

/// Handle of one element, or of the document itself as a parent; keeps the document alive. Compares as false when absent.
class node_t {
public:
    node_t() = default;

    explicit operator bool() const { return element_ != nullptr || is_document_; }
    [[nodiscard]] const document_t& document() const { return document_; }

private:
    friend struct node_access;
    node_t(document_t document, TiXmlElement* element) : document_(std::move(document)), element_(element) {}

    document_t document_;
    TiXmlElement* element_ = nullptr;
    bool is_document_ = false;
};

/// Deepest nesting of elements that `parse_xml` accepts. Deeper text is refused before the parser, whose work and
/// destruction are recursive, sees it.
inline constexpr std::size_t max_depth = 256;
/// Most attributes of one element that `parse_xml` accepts. The parser's work on an element grows with the square of their number.
inline constexpr std::size_t max_attributes = 256;

/// An empty document.
[[nodiscard]] document_t create_document();
/// Throws `exc::exc_base_t` for text that isn't well-formed or exceeds a limit.
[[nodiscard]] document_t parse_xml(std::u16string_view text);
[[nodiscard]] document_t load_xml_file(const text::wide_string& path);
/// UTF-8, without a declaration and without white space between elements.
[[nodiscard]] std::string serialize_xml(const document_t& document);
[[nodiscard]] std::string serialize_xml(const node_t& node);

[[nodiscard]] node_t document_node(const document_t& document);
node_t add_element(const node_t& parent, std::string_view name);
/// A child by name: exact first, else without regard to case, with a warning. Absent when there is none.
[[nodiscard]] node_t find_element(const node_t& parent, std::string_view name);
/// The same; throws when there is none.
[[nodiscard]] node_t get_element(const node_t& parent, std::string_view name);
[[nodiscard]] std::vector<node_t> child_elements(const node_t& parent);
[[nodiscard]] std::string element_name(const node_t& node);
/// The element's text content, for records whose values are child text.
void set_text(const node_t& node, std::string_view value);
/// That text; empty when there is none.
[[nodiscard]] std::string get_text(const node_t& node);

void set_attribute(const node_t& node, std::string_view name, std::string_view value);
void set_attribute(const node_t& node, std::string_view name, const char* value);
void set_attribute(const node_t& node, std::string_view name, bool value);
void set_attribute(const node_t& node, std::string_view name, std::int32_t value);
[[nodiscard]] std::string get_attribute(const node_t& node, std::string_view name);

/// A text as it is quoted in a message: whole up to 128 bytes, else its first 128 and its length.
[[nodiscard]] std::string cut_for_message(std::string_view text);

/// The arguments of a call: children of `InputArguments`, each with its value in the attribute `value`. All getters throw
/// `exc::exc_base_t` or its kin when the argument is missing.
[[nodiscard]] node_t find_argument(const document_t& document, std::string_view name);
[[nodiscard]] node_t get_argument(const document_t& document, std::string_view name);
[[nodiscard]] std::string get_argument_value(const document_t& document, std::string_view name);
[[nodiscard]] text::wide_string get_wstring_argument(const document_t& document, std::string_view name);
[[nodiscard]] std::string get_string_argument(const document_t& document, std::string_view name);
[[nodiscard]] std::int32_t get_int_argument(const document_t& document, std::string_view name);
[[nodiscard]] bool get_bool_argument(const document_t& document, std::string_view name);
[[nodiscard]] std::uint64_t get_uint64_argument(const document_t& document, std::string_view name);

}  // namespace winxml
