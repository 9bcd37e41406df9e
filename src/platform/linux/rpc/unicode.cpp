#include "platform/linux/rpc/unicode.h"

#include <locale.h>
#include <wctype.h>

#include "foundation/text/unicode.h"

namespace platform::linux_rpc {

namespace {

constexpr bool is_high_surrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

constexpr bool is_low_surrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Whether each surrogate is half of a pair.
bool is_well_formed(std::u16string_view text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (is_low_surrogate(text[at])) {
            return false;
        }
        if (is_high_surrogate(text[at])) {
            ++at;
            if (at == text.size() || !is_low_surrogate(text[at])) {
                return false;
            }
        }
    }
    return true;
}

/// The C library's table for one unit, independent of the process's locale. Letters that only resemble another one's upper
/// case (long s, dotless i, the micro sign) map there in the C library but not in the protocol's table: a mapping that
/// doesn't lead back is dropped. The final sigma is the one letter that both map without a way back.
char16_t upper_unit(char16_t unit) {
    if (unit < 0x80) {
        return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 0x20) : unit;
    }
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (utf8 == nullptr || is_high_surrogate(unit) || is_low_surrogate(unit)) {
        return unit;
    }
    constexpr char16_t final_sigma = 0x03C2;
    const wint_t upper = towupper_l(unit, utf8);
    if (upper > 0xFFFF || (towlower_l(upper, utf8) != unit && unit != final_sigma)) {
        return unit;
    }
    return static_cast<char16_t>(upper);
}

}  // namespace

bool utf8_to_utf16(std::string_view text, std::u16string& converted) {
    return text::unicode::decode_utf8(text, converted);
}

bool utf16_to_utf8(std::u16string_view text, std::string& converted) {
    if (!is_well_formed(text)) {
        return false;
    }
    converted = text::unicode::encode_utf8(text);
    return true;
}

std::vector<std::uint8_t> to_utf16le(std::u16string_view text) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() * 2);
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return bytes;
}

bool from_utf16le(std::span<const std::uint8_t> bytes, std::u16string& text) {
    if (bytes.size() % 2 != 0) {
        return false;
    }
    text.clear();
    text.reserve(bytes.size() / 2);
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        text.push_back(static_cast<char16_t>(bytes[at] | (bytes[at + 1] << 8)));
        if (text.back() == 0) {
            return false;
        }
    }
    return is_well_formed(text);
}

std::u16string upper_case(std::u16string_view text) {
    std::u16string upper(text);
    for (char16_t& unit : upper) {
        unit = upper_unit(unit);
    }
    return upper;
}

bool equal_without_case(std::string_view left, std::string_view right) {
    std::u16string wide_left;
    std::u16string wide_right;
    return utf8_to_utf16(left, wide_left) && utf8_to_utf16(right, wide_right) && upper_case(wide_left) == upper_case(wide_right);
}

std::string printable(std::u16string_view text) {
    std::u16string shown(text);
    for (char16_t& unit : shown) {
        if (unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || unit == 0x2028 || unit == 0x2029) {
            unit = u'?';
        }
    }
    std::string converted;
    return utf16_to_utf8(shown, converted) ? converted : "?";
}

}  // namespace platform::linux_rpc
