#pragma once

#include <cstddef>
#include <string>

namespace winxml {

/// True if TinyXML, given this text with an unknown encoding, would come to nest elements deeper than `limit`. The parser and
/// its document's destruction recurse once for each level, so a text must pass here before the parser sees it. Follows the
/// parser's own reading, its leniencies and oddities included, and stops where the parser would: what stands in comments,
/// CDATA sections, attribute values or behind an error doesn't count. One pass, no recursion.
///
/// The text should be well-formed UTF-8 (or any single-byte encoding) and ends at its first terminator.
[[nodiscard]] bool nests_deeper_than(const std::string& text, std::size_t limit);

}  // namespace winxml
