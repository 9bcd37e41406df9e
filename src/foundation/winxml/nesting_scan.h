#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace winxml {

/// What the parser is to be spared.
struct parse_limits {
    std::size_t depth;       ///< elements nested in each other
    std::size_t attributes;  ///< attributes of one element
};

enum class excess : std::uint8_t { none, depth, attributes };

/// Tells whether TinyXML, given this text with an unknown encoding, would come to exceed a limit, and which one it would exceed
/// first. The parser and its document's destruction recurse once for each level, and each attribute is compared with all that
/// its element already has, so a text must pass here before the parser sees it. Follows the parser's own reading, its leniencies
/// and oddities included, and stops where the parser would: what stands in comments, CDATA sections, attribute values or behind
/// an error doesn't count. One pass, no recursion.
///
/// The text should be well-formed UTF-8 (or any single-byte encoding) and ends at its first terminator.
[[nodiscard]] excess first_excess(const std::string& text, const parse_limits& limits);

}  // namespace winxml
