#include "platform/linux/settings_file.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "foundation/text/unicode.h"
#include "platform/registry.h"

namespace platform::linux_os {

namespace {

constexpr std::u16string_view first_line = u"Windows Registry Editor Version 5.00";
constexpr std::u16string_view machine_root = u"HKEY_LOCAL_MACHINE";

/// Limits of the Windows registry: what passes here passes there.
constexpr std::size_t max_key_name = 255;
constexpr std::size_t max_value_name = 16383;
constexpr std::size_t max_depth = 512;

bool is_blank(char16_t unit) {
    return unit == u' ' || unit == u'\t';
}

std::u16string_view without_leading_blanks(std::u16string_view text) {
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

std::u16string_view without_trailing_blanks(std::u16string_view text) {
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

bool equal_no_case(std::u16string_view left, std::u16string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char16_t a, char16_t b) { return text::unicode::to_lower(a) == text::unicode::to_lower(b); });
}

std::optional<std::uint32_t> hex_digit(char16_t unit) {
    const char16_t lower = text::unicode::to_lower(unit);
    if (unit >= u'0' && unit <= u'9') {
        return unit - u'0';
    }
    if (lower >= u'a' && lower <= u'f') {
        return lower - u'a' + 10U;
    }
    return std::nullopt;
}

/// One to `most` hexadecimal digits at the start of `text`, taken off it.
std::optional<std::uint32_t> take_hex_number(std::u16string_view& text, std::size_t most) {
    std::uint32_t number = 0;
    std::size_t digits = 0;
    while (digits < text.size()) {
        const std::optional<std::uint32_t> digit = hex_digit(text[digits]);
        if (!digit) {
            break;
        }
        if (++digits > most) {
            return std::nullopt;
        }
        number = (number << 4) | *digit;
    }
    if (digits == 0) {
        return std::nullopt;
    }
    text.remove_prefix(digits);
    return number;
}

std::u16string decode_utf16le(std::string_view bytes, const std::string& file) {
    if (bytes.size() % 2 != 0) {
        throw settings_error(file, 0, "The file is UTF-16, but its length is odd.");
    }
    std::u16string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        text.push_back(
            static_cast<char16_t>(static_cast<unsigned char>(bytes[at]) | (static_cast<unsigned char>(bytes[at + 1]) << 8)));
    }
    return text;
}

std::size_t line_of(std::u16string_view text, std::size_t position) {
    return 1 + static_cast<std::size_t>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(position), u'\n'));
}

std::u16string decode(std::string_view bytes, const std::string& file) {
    constexpr std::string_view utf16le_mark = "\xFF\xFE";
    constexpr std::string_view utf16be_mark = "\xFE\xFF";
    constexpr std::string_view utf8_mark = "\xEF\xBB\xBF";
    std::u16string text;
    if (bytes.starts_with(utf16le_mark)) {
        text = decode_utf16le(bytes.substr(utf16le_mark.size()), file);
    } else if (bytes.starts_with(utf16be_mark)) {
        throw settings_error(file, 0, "The file is big-endian UTF-16; only UTF-8 and little-endian UTF-16 are read.");
    } else if (!text::unicode::decode_utf8(bytes.starts_with(utf8_mark) ? bytes.substr(utf8_mark.size()) : bytes, text)) {
        throw settings_error(file, line_of(text, text.size()), "The text isn't well-formed UTF-8.");
    }
    const std::size_t nul = text.find(u'\0');
    if (nul != std::u16string::npos) {
        throw settings_error(file, line_of(text, nul), "The text holds a NUL character.");
    }
    return text;
}

/// Behind an entry, whether there is nothing but a comment.
bool is_end(std::u16string_view text) {
    text = without_leading_blanks(text);
    return text.empty() || text.front() == u';';
}

/// Reads the lines one after the other into a tree.
class parser {
public:
    parser(std::u16string_view text, const std::string& file) : rest_(text), file_(file) {}

    settings_key parse() {
        if (!next_line() || without_trailing_blanks(line_) != first_line) {
            line_number_ = 1;
            refuse("The first line must be \"Windows Registry Editor Version 5.00\".");
        }
        while (next_line()) {
            line_ = without_leading_blanks(line_);
            if (line_.empty() || line_.front() == u';') {
                continue;
            }
            if (line_.front() == u'[') {
                parse_key();
            } else {
                parse_value();
            }
        }
        return std::move(root_);
    }

private:
    [[noreturn]] void refuse(const std::string& reason) const { throw settings_error(file_, line_number_, reason); }

    static std::string shown(std::u16string_view text) {
        constexpr std::size_t most = 60;
        return "'" + text::unicode::encode_utf8(text.substr(0, most)) + (text.size() > most ? "...'" : "'");
    }

    bool next_line() {
        if (rest_.empty()) {
            return false;
        }
        const std::size_t end = std::min(rest_.find(u'\n'), rest_.size());
        line_ = rest_.substr(0, end);
        rest_.remove_prefix(std::min(end + 1, rest_.size()));
        if (!line_.empty() && line_.back() == u'\r') {
            line_.remove_suffix(1);
        }
        ++line_number_;
        return true;
    }

    /// Behind what was read, a line may hold a comment and nothing else.
    void require_end(std::u16string_view text) const {
        if (!is_end(text)) {
            refuse("Behind the end of the entry stands " + shown(without_leading_blanks(text)) + ".");
        }
    }

    /// Where the key's name ends: at the first bracket with nothing but a comment behind it. A name may hold brackets, and so may a
    /// comment.
    std::size_t name_end() const {
        std::size_t last = std::u16string_view::npos;
        for (std::size_t at = line_.find(u']'); at != std::u16string_view::npos; at = line_.find(u']', at + 1)) {
            last = at;
            if (is_end(line_.substr(at + 1))) {
                break;
            }
        }
        if (last == std::u16string_view::npos) {
            refuse("The key's name isn't closed by ']'.");
        }
        require_end(line_.substr(last + 1));
        return last;
    }

    void parse_key() {
        const std::size_t end = name_end();
        std::u16string_view name = line_.substr(1, end - 1);
        const bool removes = name.starts_with(u'-');
        name.remove_prefix(removes ? 1 : 0);
        const std::size_t root_end = std::min(name.find(u'\\'), name.size());
        if (!equal_no_case(name.substr(0, root_end), machine_root)) {
            refuse("The root " + shown(name.substr(0, root_end)) + " isn't read here; only HKEY_LOCAL_MACHINE is.");
        }
        const std::vector<std::u16string> path = key_path(name.substr(root_end));
        if (removes) {
            if (path.empty()) {
                refuse("The root itself can't be removed.");
            }
            remove_key(root_, path);
            key_ = nullptr;
            return;
        }
        key_ = &make_key(root_, path);
        note_line(path);
    }

    /// The keys on the way count as named, too.
    void note_line(const std::vector<std::u16string>& path) {
        settings_key* at = &root_;
        for (const std::u16string& part : path) {
            at = &at->keys.find(part)->second;
            if (at->line == 0) {
                at->line = line_number_;
            }
        }
    }

    /// `text` is empty or starts with a backslash.
    std::vector<std::u16string> key_path(std::u16string_view text) const {
        std::vector<std::u16string> path;
        while (!text.empty()) {
            text.remove_prefix(1);
            const std::size_t end = std::min(text.find(u'\\'), text.size());
            if (end == 0) {
                refuse("The key's path holds an empty name.");
            }
            if (end > max_key_name) {
                refuse("The key's name " + shown(text.substr(0, end)) + " has more than 255 characters.");
            }
            path.emplace_back(text.substr(0, end));
            text.remove_prefix(end);
        }
        if (path.size() > max_depth) {
            refuse("The key lies deeper than 512 levels.");
        }
        return path;
    }

    void parse_value() {
        std::u16string_view text = line_;
        std::u16string name;
        if (text.front() == u'@') {
            text.remove_prefix(1);
        } else if (text.front() == u'"') {
            name = take_string(text);
            if (name.size() > max_value_name) {
                refuse("The value's name has more than 16383 characters.");
            }
        } else {
            refuse("Neither a key nor a value: " + shown(text) + ".");
        }
        text = without_leading_blanks(text);
        if (!text.starts_with(u'=')) {
            refuse("Behind the value's name stands no '='.");
        }
        text = without_leading_blanks(text.substr(1));
        if (key_ == nullptr) {
            refuse("The value belongs to no key.");
        }
        if (text.starts_with(u'-')) {
            require_end(text.substr(1));
            const auto present = key_->values.find(name);
            if (present != key_->values.end()) {
                key_->values.erase(present);
            }
            return;
        }
        key_->values[name] = parse_data(text);
    }

    settings_value parse_data(std::u16string_view text) {
        if (text.starts_with(u'"')) {
            const std::u16string content = take_string(text);
            require_end(text);
            return text_value(registry_type::string, content);
        }
        constexpr std::u16string_view dword_mark = u"dword:";
        if (equal_no_case(text.substr(0, dword_mark.size()), dword_mark)) {
            return parse_dword(text.substr(dword_mark.size()));
        }
        constexpr std::u16string_view hex_mark = u"hex";
        if (equal_no_case(text.substr(0, hex_mark.size()), hex_mark)) {
            return parse_hex(text.substr(hex_mark.size()));
        }
        refuse("The data " + shown(text) + " is neither a string in quotes nor dword:, hex:, hex(...): or -.");
    }

    /// The string at the start of `text`, taken off it with its quotes.
    std::u16string take_string(std::u16string_view& text) const {
        std::u16string content;
        std::size_t at = 1;
        while (at < text.size() && text[at] != u'"') {
            if (text[at] == u'\\') {
                ++at;
                if (at < text.size() && text[at] != u'\\' && text[at] != u'"') {
                    refuse("The backslash in front of " + shown(text.substr(at, 1)) +
                           " is no escape; a backslash within quotes is written as \\\\.");
                }
            }
            if (at < text.size()) {
                content.push_back(text[at]);
                ++at;
            }
        }
        if (at >= text.size()) {
            refuse("The string isn't closed by '\"' on its line.");
        }
        text.remove_prefix(at + 1);
        return content;
    }

    settings_value parse_dword(std::u16string_view text) const {
        text = without_leading_blanks(text);
        const std::optional<std::uint32_t> number = take_hex_number(text, 8);
        if (!number) {
            refuse("Behind dword: stand one to eight hexadecimal digits.");
        }
        require_end(text);
        settings_value value{registry_type::dword, {}};
        for (int shift = 0; shift < 32; shift += 8) {
            value.data.push_back(static_cast<std::uint8_t>((*number >> shift) & 0xFF));
        }
        return value;
    }

    /// `text` stands behind "hex".
    settings_value parse_hex(std::u16string_view text) {
        settings_value value{registry_type::binary, {}};
        if (text.starts_with(u'(')) {
            text.remove_prefix(1);
            const std::optional<std::uint32_t> type = take_hex_number(text, 8);
            if (!type || !text.starts_with(u')')) {
                refuse("Within hex(...) stands the type's number in hexadecimal digits.");
            }
            value.type = *type;
            text.remove_prefix(1);
        }
        if (!text.starts_with(u':')) {
            refuse("Behind hex stands no ':'.");
        }
        const std::size_t started = line_number_;
        take_bytes(text.substr(1), value.data);
        require_size(started, value);
        return value;
    }

    /// Bytes of two hexadecimal digits, separated by commas, over as many lines as end in a backslash.
    void take_bytes(std::u16string_view text, std::vector<std::uint8_t>& bytes) {
        bool expects_byte = false;  // a comma came last
        while (true) {
            text = without_leading_blanks(text);
            if (text.starts_with(u'\\')) {
                require_end(text.substr(1));
                if (!next_line()) {
                    refuse("The bytes end in a backslash, but no line follows.");
                }
                text = line_;
                continue;
            }
            if (text.empty() || text.front() == u';') {
                break;
            }
            if (!bytes.empty() && !expects_byte) {
                if (text.front() != u',') {
                    refuse("Between two bytes stands no comma, but " + shown(text) + ".");
                }
                text.remove_prefix(1);
                expects_byte = true;
                continue;
            }
            const std::optional<std::uint32_t> byte = take_hex_number(text, 2);
            if (!byte) {
                refuse("A byte has one or two hexadecimal digits; here stands " + shown(text) + ".");
            }
            bytes.push_back(static_cast<std::uint8_t>(*byte));
            expects_byte = false;
        }
        if (expects_byte) {
            refuse("Behind the last comma stands no byte.");
        }
    }

    /// Sizes that a type prescribes, checked so that a slip of the pen is told from its line and not by a later reader.
    void require_size(std::size_t started, const settings_value& value) const {
        const auto require = [this, started](bool right, const char* reason) {
            if (!right) {
                throw settings_error(file_, started, reason);
            }
        };
        switch (value.type) {
            case registry_type::string:
            case registry_type::expand_string:
            case registry_type::multi_string:
                require(value.data.size() % 2 == 0, "A text is UTF-16; its bytes must be even in number.");
                break;
            case registry_type::dword:
                require(value.data.size() == 4, "A value of type 4 has four bytes.");
                break;
            case registry_type::qword:
                require(value.data.size() == 8, "A value of type b has eight bytes.");
                break;
            default:
                break;
        }
    }

    std::u16string_view rest_;
    const std::string& file_;
    std::u16string_view line_;
    std::size_t line_number_ = 0;
    settings_key root_;
    settings_key* key_ = nullptr;
};

constexpr std::string_view line_end = "\r\n";

std::string quoted(std::u16string_view text) {
    std::string written = "\"";
    for (const char unit : text::unicode::encode_utf8(text)) {
        if (unit == '\\' || unit == '"') {
            written.push_back('\\');
        }
        written.push_back(unit);
    }
    return written + '"';
}

/// Whether a text value can be written in quotes and come back as it was.
bool can_be_quoted(const settings_value& value) {
    if (value.type != registry_type::string) {
        return false;
    }
    const std::u16string text = value_text(value);
    std::u16string back;
    const bool control = std::any_of(text.begin(), text.end(), [](char16_t unit) { return unit < 0x20; });
    return !control && text_value(registry_type::string, text) == value &&
           text::unicode::decode_utf8(text::unicode::encode_utf8(text), back) && back == text;
}

std::string hex_number(std::uint64_t number, std::size_t digits) {
    std::string text(digits, '0');
    for (std::size_t at = digits; at-- > 0; number >>= 4) {
        text[at] = "0123456789abcdef"[number & 0xF];
    }
    return text;
}

std::string format_data(const settings_value& value) {
    if (can_be_quoted(value)) {
        return quoted(value_text(value));
    }
    if (value.type == registry_type::dword && value.data.size() == 4) {
        std::uint32_t number = 0;
        for (std::size_t at = 4; at-- > 0;) {
            number = (number << 8) | value.data[at];
        }
        return "dword:" + hex_number(number, 8);
    }
    std::string text = "hex";
    if (value.type != registry_type::binary) {
        text += "(" + hex_number(value.type, 8).substr(std::min<std::size_t>(hex_number(value.type, 8).find_first_not_of('0'), 7)) +
                ")";
    }
    text += ":";
    constexpr std::size_t bytes_in_a_line = 24;
    for (std::size_t at = 0; at < value.data.size(); ++at) {
        if (at > 0) {
            text += at % bytes_in_a_line == 0 ? ",\\\r\n  " : ",";
        }
        text += hex_number(value.data[at], 2);
    }
    return text;
}

void format_key(const settings_key& key, const std::string& path, std::string& text) {
    text.append(line_end).append("[").append(path).append("]").append(line_end);
    for (const auto& [name, value] : key.values) {
        text.append(name.empty() ? "@" : quoted(name)).append("=").append(format_data(value)).append(line_end);
    }
    for (const auto& [name, child] : key.keys) {
        format_key(child, path + "\\" + text::unicode::encode_utf8(name), text);
    }
}

}  // namespace

settings_error::settings_error(std::string file, std::size_t line, std::string reason)
    : std::runtime_error(file + ":" + (line > 0 ? std::to_string(line) + ":" : "") + " " + reason),
      file_(std::move(file)),
      line_(line),
      reason_(std::move(reason)) {}

settings_key parse_settings(std::string_view bytes, const std::string& file) {
    const std::u16string text = decode(bytes, file);
    return parser(text, file).parse();
}

std::string format_settings(const settings_key& root) {
    std::string text = text::unicode::encode_utf8(first_line).append(line_end);
    for (const auto& [name, child] : root.keys) {
        format_key(child, text::unicode::encode_utf8(machine_root) + "\\" + text::unicode::encode_utf8(name), text);
    }
    return text;
}

}  // namespace platform::linux_os
