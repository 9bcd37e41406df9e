#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/winxml/xml.h"

namespace platform::tape_library {

/// Attribute readers of the library's files. All throw `library_error` with a reason; the caller's file name is in front.
class xml_values {
public:
    explicit xml_values(std::string path) : path_(std::move(path)) {}

    /// Parses the text, which may hold comments and a declaration; the root element must bear the name.
    [[nodiscard]] winxml::node_t root(std::string_view xml, std::string_view name) const;

    [[nodiscard]] std::vector<winxml::node_t> children(const winxml::node_t& node) const;

    [[nodiscard]] std::optional<std::string> find(const winxml::node_t& node, std::string_view name) const;
    [[nodiscard]] std::string text(const winxml::node_t& node, std::string_view name) const;
    [[nodiscard]] std::string text_or(const winxml::node_t& node, std::string_view name, const std::string& other) const;
    /// Decimal, or hexadecimal behind "0x"; at most `maximum`.
    [[nodiscard]] std::uint64_t number(const winxml::node_t& node, std::string_view name, std::uint64_t maximum) const;
    [[nodiscard]] std::uint64_t number_or(const winxml::node_t& node, std::string_view name, std::uint64_t maximum,
                                          std::uint64_t other) const;
    /// "true" or "false".
    [[nodiscard]] bool flag_or(const winxml::node_t& node, std::string_view name, bool other) const;
    /// Numbers of one byte, separated by blanks.
    [[nodiscard]] std::vector<std::uint8_t> bytes_or_none(const winxml::node_t& node, std::string_view name) const;

    /// Throws with the file's name and the reason.
    [[noreturn]] void fail(const std::string& reason) const;

private:
    [[nodiscard]] std::uint64_t parse_number(const std::string& value, std::string_view name, std::uint64_t maximum) const;

    std::string path_;
};

/// A text as it stands in an attribute: the five entities replaced.
[[nodiscard]] std::string escape_attribute(std::string_view text);

/// The words of a text, separated by blanks.
[[nodiscard]] std::vector<std::string> split_words(std::string_view text);

}  // namespace platform::tape_library
