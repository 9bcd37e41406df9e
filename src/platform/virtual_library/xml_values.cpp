#include "platform/virtual_library/xml_values.h"

#include "foundation/text/conversion.h"
#include "platform/virtual_library/personality.h"

namespace platform::tape_library {

namespace {

/// Value of one digit, 99 for none.
unsigned digit_value(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned>(digit - '0');
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<unsigned>(digit - 'a' + 10);
    }
    if (digit >= 'A' && digit <= 'F') {
        return static_cast<unsigned>(digit - 'A' + 10);
    }
    return 99;
}

/// The text without comments and processing instructions: the XML layer's lists of children take elements only.
std::string without_remarks(std::string_view xml) {
    std::string bare;
    bare.reserve(xml.size());
    std::size_t at = 0;
    while (at < xml.size()) {
        const std::string_view rest = xml.substr(at);
        const std::string_view ending = rest.starts_with("<!--") ? "-->" : rest.starts_with("<?") ? "?>" : "";
        const std::size_t end = ending.empty() ? std::string_view::npos : rest.find(ending);
        if (end != std::string_view::npos) {
            at += end + ending.size();
        } else {
            const std::size_t next = std::min(rest.find('<', 1), rest.size());
            bare += rest.substr(0, next);
            at += next;
        }
    }
    return bare;
}

}  // namespace

void xml_values::fail(const std::string& reason) const {
    throw library_error("Library file '" + path_ + "': " + reason);
}

winxml::node_t xml_values::root(std::string_view xml, std::string_view name) const {
    try {
        const winxml::document_t document = winxml::parse_xml(text::utf8_to_wide(without_remarks(xml)));
        for (const winxml::node_t& node : winxml::child_elements(winxml::document_node(document))) {
            if (winxml::element_name(node) == name) {
                return node;
            }
        }
    } catch (const exc::exc_base_t& problem) {
        fail(problem.messages().front().text);
    }
    fail("the root element isn't '" + std::string(name) + "'");
}

std::vector<winxml::node_t> xml_values::children(const winxml::node_t& node) const {
    try {
        return winxml::child_elements(node);
    } catch (const exc::exc_base_t&) {
        fail("element '" + winxml::element_name(node) + "' holds something else than elements");
    }
}

std::optional<std::string> xml_values::find(const winxml::node_t& node, std::string_view name) const {
    try {
        return winxml::get_attribute(node, name);
    } catch (const exc::exc_base_t&) {
        return std::nullopt;
    }
}

std::string xml_values::text(const winxml::node_t& node, std::string_view name) const {
    if (std::optional<std::string> value = find(node, name)) {
        return *value;
    }
    fail("element '" + winxml::element_name(node) + "' lacks the attribute '" + std::string(name) + "'");
}

std::string xml_values::text_or(const winxml::node_t& node, std::string_view name, const std::string& other) const {
    return find(node, name).value_or(other);
}

std::uint64_t xml_values::parse_number(const std::string& value, std::string_view name, std::uint64_t maximum) const {
    const bool hexadecimal = value.starts_with("0x") || value.starts_with("0X");
    const unsigned base = hexadecimal ? 16 : 10;
    const std::string_view digits = std::string_view(value).substr(hexadecimal ? 2 : 0);
    std::uint64_t number = 0;
    bool good = !digits.empty();
    bool fits = true;
    for (const char digit : digits) {
        const unsigned one = digit_value(digit);
        good = good && one < base;
        fits = fits && number <= (~std::uint64_t{0} - one) / base;
        number = number * base + one;
    }
    if (!good) {
        fail("attribute '" + std::string(name) + "': '" + value + "' isn't a number");
    }
    if (!fits || number > maximum) {
        fail("attribute '" + std::string(name) + "': " + value + " is above " + text::to_string(maximum));
    }
    return number;
}

std::uint64_t xml_values::number(const winxml::node_t& node, std::string_view name, std::uint64_t maximum) const {
    return parse_number(text(node, name), name, maximum);
}

std::uint64_t xml_values::number_or(const winxml::node_t& node, std::string_view name, std::uint64_t maximum,
                                    std::uint64_t other) const {
    const std::optional<std::string> value = find(node, name);
    return value ? parse_number(*value, name, maximum) : other;
}

bool xml_values::flag_or(const winxml::node_t& node, std::string_view name, bool other) const {
    const std::optional<std::string> value = find(node, name);
    if (!value) {
        return other;
    }
    if (*value != "true" && *value != "false") {
        fail("attribute '" + std::string(name) + "': '" + *value + "' is neither true nor false");
    }
    return *value == "true";
}

std::vector<std::uint8_t> xml_values::bytes_or_none(const winxml::node_t& node, std::string_view name) const {
    std::vector<std::uint8_t> bytes;
    for (const std::string& word : split_words(text_or(node, name, ""))) {
        bytes.push_back(static_cast<std::uint8_t>(parse_number(word, name, 0xFF)));
    }
    return bytes;
}

std::string escape_attribute(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char character : text) {
        switch (character) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&apos;";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

std::vector<std::string> split_words(std::string_view text) {
    std::vector<std::string> words;
    std::size_t at = 0;
    while ((at = text.find_first_not_of(' ', at)) != std::string_view::npos) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        words.emplace_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

}  // namespace platform::tape_library
