// The argument text of a call: the scan must agree with what the parser would nest and how many attributes it would gather, and
// whatever passes it must survive parsing, reading and printing.

#include <tinyxml.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include "foundation/exc/exceptions.h"
#include "foundation/text/unicode.h"
#include "foundation/winxml/nesting_scan.h"
#include "foundation/winxml/xml.h"
#include "platform/testing/fakes.h"
#include "support/parsed_shape.h"

namespace {

/// The parser recurses, so the comparison with it is for texts that can't smash the stack.
constexpr std::size_t largest_compared = 4096;

constexpr std::size_t any_number = std::numeric_limits<std::size_t>::max();

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void compare_with_parser(const std::string& text) {
    TiXmlDocument document;
    document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    const std::size_t depth = test_support::parsed_depth(document);
    const std::size_t attributes = test_support::most_attributes(document);
    if (depth > 0) {
        require(winxml::first_excess(text, {depth - 1, any_number}) == winxml::excess::depth);
    }
    if (attributes > 0) {
        require(winxml::first_excess(text, {any_number, attributes - 1}) == winxml::excess::attributes);
    }
    require(winxml::first_excess(text, {depth, attributes}) == winxml::excess::none);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static platform::testing::test_system system;
    system.log.clear();
    const std::u16string wide = text::unicode::decode_utf8_lenient({reinterpret_cast<const char*>(data), size});
    const std::string utf8 = text::unicode::encode_utf8(wide.substr(0, wide.find(u'\0')));
    if (utf8.size() <= largest_compared) {
        compare_with_parser(utf8);
    }
    try {
        const winxml::document_t document = winxml::parse_xml(wide);
        require(winxml::first_excess(utf8, {winxml::max_depth, winxml::max_attributes}) == winxml::excess::none);
        (void)winxml::serialize_xml(document);
        (void)winxml::get_wstring_argument(document, "SymLinkName");
        (void)winxml::get_int_argument(document, "SlotNum");
    } catch (const exc::exc_base_t&) {
        return 0;
    }
    return 0;
}
