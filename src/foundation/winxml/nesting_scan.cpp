#include "foundation/winxml/nesting_scan.h"

#include <tinyxml.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

#include "foundation/text/conversion.h"

namespace winxml {

namespace {

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/// Every byte from 127 up counts as a letter.
bool is_name_start(char c) {
    const auto byte = static_cast<unsigned char>(c);
    const char folded = lower(c);
    return byte >= 127 || (folded >= 'a' && folded <= 'z') || c == '_';
}

bool is_name_part(char c) {
    return is_name_start(c) || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == ':';
}

bool is_hex_digit(char c) {
    const char folded = lower(c);
    return (c >= '0' && c <= '9') || (folded >= 'a' && folded <= 'f');
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

/// Walks over the text as the parser does. The operations named `pass_` move the position behind what they name and tell whether
/// the parser would go on; false means that it stops with an error or at the end of the text.
class nesting_scan {
public:
    nesting_scan(const char* text, const parse_limits& limits) : at_(text), limits_(limits) {}

    excess run();

private:
    enum class step { go_on, stop, too_deep, too_many_attributes };

    bool looking_at(std::string_view tag) const { return std::strncmp(at_, tag.data(), tag.size()) == 0; }
    bool looking_at_no_case(std::string_view tag) const;
    void skip_space();
    bool skip_to(std::string_view tag);
    bool pass_name(std::string_view& name);
    bool pass_character();
    bool pass_reference();
    bool pass_quoted_to(char end);
    bool pass_attribute(std::string_view& name);
    step pass_attribute_of_element();
    bool pass_declaration();
    void settle_encoding(const char* declaration);
    bool pass_comment();
    bool pass_cdata();
    bool pass_unknown();
    bool pass_text();
    bool pass_end_tag();
    step pass_start_tag();
    step pass_node();

    const char* at_;
    parse_limits limits_;
    bool utf8_ = false;
    /// The encoding is settled by a byte order mark or by the first declaration, not again.
    bool encoding_known_ = false;
    std::vector<std::string_view> open_;
    std::vector<std::string_view> attributes_;  ///< of the element whose start tag is being read
};

bool nesting_scan::looking_at_no_case(std::string_view tag) const {
    for (std::size_t i = 0; i < tag.size(); ++i) {
        if (lower(at_[i]) != lower(tag[i])) {
            return false;
        }
    }
    return true;
}

/// In UTF-8 a byte order mark, and the two code points that are none, count as white space too.
void nesting_scan::skip_space() {
    constexpr std::array<std::string_view, 3> marks{"\xEF\xBB\xBF", "\xEF\xBF\xBE", "\xEF\xBF\xBF"};
    for (;;) {
        if (is_space(*at_)) {
            ++at_;
        } else if (utf8_ && (looking_at(marks[0]) || looking_at(marks[1]) || looking_at(marks[2]))) {
            at_ += marks[0].size();
        } else {
            return;
        }
    }
}

/// Behind the next `tag`; at the end of the text if there is none.
bool nesting_scan::skip_to(std::string_view tag) {
    const char* found = std::strstr(at_, tag.data());
    if (found == nullptr) {
        at_ += std::strlen(at_);
        return false;
    }
    at_ = found + tag.size();
    return true;
}

bool nesting_scan::pass_name(std::string_view& name) {
    const char* start = at_;
    if (!is_name_start(*at_)) {
        return false;
    }
    while (is_name_part(*at_)) {
        ++at_;
    }
    name = {start, static_cast<std::size_t>(at_ - start)};
    return *at_ != '\0';
}

/// A character reference ends at the next semicolon, wherever that is, and its digits are read backwards from there to the
/// nearest 'x' or '#'. So what stands between the reference's start and that mark is swallowed.
bool nesting_scan::pass_reference() {
    const bool hexadecimal = at_[2] == 'x';
    const char* first = hexadecimal ? at_ + 3 : at_ + 2;
    const char* end = *first == '\0' ? nullptr : std::strchr(first, ';');
    if (end == nullptr) {
        return false;
    }
    const char mark = hexadecimal ? 'x' : '#';
    for (const char* digit = end - 1; *digit != mark; --digit) {
        if (hexadecimal ? !is_hex_digit(*digit) : !is_digit(*digit)) {
            return false;
        }
    }
    at_ = end + 1;
    return true;
}

bool nesting_scan::pass_character() {
    if (*at_ == '&' && at_[1] == '#' && at_[2] != '\0') {
        return pass_reference();
    }
    std::size_t length = 1;
    if (utf8_) {
        const auto lead = static_cast<unsigned char>(*at_);
        length = lead < 0xC2 || lead > 0xF4 ? 1U : (lead < 0xE0 ? 2U : (lead < 0xF0 ? 3U : 4U));
    }
    for (; length > 0 && *at_ != '\0'; --length) {
        ++at_;
    }
    return true;
}

bool nesting_scan::pass_quoted_to(char end) {
    while (*at_ != '\0' && *at_ != end) {
        if (!pass_character()) {
            return false;
        }
    }
    if (*at_ == '\0') {
        return false;
    }
    ++at_;
    return *at_ != '\0';
}

bool nesting_scan::pass_attribute(std::string_view& name) {
    if (!pass_name(name)) {
        return false;
    }
    skip_space();
    if (*at_ != '=') {
        return false;
    }
    ++at_;
    skip_space();
    const char quote = *at_;
    if (quote == '\'' || quote == '"') {
        ++at_;
        return pass_quoted_to(quote);
    }
    while (*at_ != '\0' && !is_space(*at_) && *at_ != '/' && *at_ != '>') {
        if (*at_ == '\'' || *at_ == '"') {
            return false;
        }
        ++at_;
    }
    return *at_ != '\0';
}

bool nesting_scan::pass_declaration() {
    const char* const start = at_;
    at_ += std::strlen("<?xml");
    while (*at_ != '\0') {
        if (*at_ == '>') {
            ++at_;
            settle_encoding(start);
            return true;
        }
        skip_space();
        if (looking_at_no_case("version") || looking_at_no_case("encoding") || looking_at_no_case("standalone")) {
            std::string_view name;
            if (!pass_attribute(name)) {
                return false;
            }
            continue;
        }
        while (*at_ != '\0' && *at_ != '>' && !is_space(*at_)) {
            ++at_;
        }
    }
    return false;
}

/// The first declaration of the document's level tells the encoding. Its value may be written with references, so the parser
/// itself is asked what it reads there; a declaration nests nothing.
void nesting_scan::settle_encoding(const char* declaration) {
    if (encoding_known_ || !open_.empty()) {
        return;
    }
    TiXmlDocument document;
    document.Parse(std::string(declaration, at_).c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    const TiXmlDeclaration* parsed = document.FirstChild() == nullptr ? nullptr : document.FirstChild()->ToDeclaration();
    const std::string_view encoding = parsed == nullptr ? std::string_view() : std::string_view(parsed->Encoding());
    utf8_ = encoding.empty() || text::starts_with(encoding, std::string_view("utf-8")) ||
            text::starts_with(encoding, std::string_view("utf8"));
    encoding_known_ = true;
}

bool nesting_scan::pass_comment() {
    at_ += std::strlen("<!--");
    skip_to("-->");
    return *at_ != '\0';
}

bool nesting_scan::pass_cdata() {
    at_ += std::strlen("<![CDATA[");
    skip_to("]]>");
    return *at_ != '\0';
}

bool nesting_scan::pass_unknown() {
    ++at_;
    skip_to(">");
    return *at_ != '\0';
}

/// Stops in front of the '<' that ends the text.
bool nesting_scan::pass_text() {
    while (*at_ != '\0' && *at_ != '<') {
        if (is_space(*at_)) {
            ++at_;
        } else if (!pass_character()) {
            return false;
        }
    }
    return *at_ != '\0';
}

bool nesting_scan::pass_end_tag() {
    at_ += std::strlen("</");
    if (!looking_at(open_.back())) {
        return false;
    }
    at_ += open_.back().size();
    open_.pop_back();
    skip_space();
    if (*at_ != '>') {
        return false;
    }
    ++at_;
    return true;
}

/// The parser gives up at a name that the element has already.
nesting_scan::step nesting_scan::pass_attribute_of_element() {
    std::string_view name;
    if (!pass_attribute(name) || std::find(attributes_.begin(), attributes_.end(), name) != attributes_.end()) {
        return step::stop;
    }
    if (attributes_.size() >= limits_.attributes) {
        return step::too_many_attributes;
    }
    attributes_.push_back(name);
    return step::go_on;
}

nesting_scan::step nesting_scan::pass_start_tag() {
    if (open_.size() >= limits_.depth) {
        return step::too_deep;
    }
    ++at_;
    skip_space();
    std::string_view name;
    if (!pass_name(name)) {
        return step::stop;
    }
    attributes_.clear();
    for (;;) {
        skip_space();
        if (*at_ == '/') {
            ++at_;
            if (*at_ != '>') {
                return step::stop;
            }
            ++at_;
            return step::go_on;
        }
        if (*at_ == '>') {
            ++at_;
            open_.push_back(name);
            return step::go_on;
        }
        const step next = pass_attribute_of_element();
        if (next != step::go_on) {
            return next;
        }
    }
}

/// One node that starts with '<', at the document's level or below.
nesting_scan::step nesting_scan::pass_node() {
    if (looking_at_no_case("<?xml")) {
        return pass_declaration() ? step::go_on : step::stop;
    }
    bool passed = false;
    if (looking_at("<!--")) {
        passed = pass_comment();
    } else if (looking_at("<![CDATA[")) {
        passed = pass_cdata();
    } else if (is_name_start(at_[1])) {
        return pass_start_tag();
    } else {
        passed = pass_unknown();
    }
    return passed ? step::go_on : step::stop;
}

excess nesting_scan::run() {
    if (looking_at("\xEF\xBB\xBF")) {
        utf8_ = true;
        encoding_known_ = true;
    }
    for (;;) {
        skip_space();
        step next = step::go_on;
        if (*at_ == '\0') {
            next = step::stop;
        } else if (open_.empty()) {
            next = *at_ == '<' ? pass_node() : step::stop;
        } else if (*at_ != '<') {
            next = pass_text() ? step::go_on : step::stop;
        } else if (looking_at("</")) {
            next = pass_end_tag() ? step::go_on : step::stop;
        } else {
            next = pass_node();
        }
        switch (next) {
            case step::go_on:
                break;
            case step::stop:
                return excess::none;
            case step::too_deep:
                return excess::depth;
            case step::too_many_attributes:
                return excess::attributes;
        }
    }
}

}  // namespace

excess first_excess(const std::string& text, const parse_limits& limits) {
    return nesting_scan(text.c_str(), limits).run();
}

}  // namespace winxml
