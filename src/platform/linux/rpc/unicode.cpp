#include "platform/linux/rpc/unicode.h"

#include <locale.h>
#include <wctype.h>

#include <array>

namespace platform::linux_rpc {

namespace {

constexpr bool is_high_surrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

constexpr bool is_low_surrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Length of the UTF-8 sequence that a byte starts, 0 for none, with the payload bits of the byte.
std::size_t sequence_length(std::uint8_t lead, char32_t& bits) {
    if (lead < 0x80) {
        bits = lead;
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        bits = lead & 0x1FU;
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        bits = lead & 0x0FU;
        return 3;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        bits = lead & 0x07U;
        return 4;
    }
    return 0;
}

void append_utf8(char32_t point, std::string& text) {
    const auto put = [&text](char32_t byte) { text.push_back(static_cast<char>(static_cast<std::uint8_t>(byte))); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0 | (point >> 6));
        put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        put(0xE0 | (point >> 12));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    } else {
        put(0xF0 | (point >> 18));
        put(0x80 | ((point >> 12) & 0x3F));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    }
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
    static constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    converted.clear();
    converted.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        char32_t point = 0;
        const std::size_t length = sequence_length(static_cast<std::uint8_t>(text[at]), point);
        if (length == 0 || length > text.size() - at) {
            return false;
        }
        for (std::size_t i = 1; i < length; ++i) {
            const auto next = static_cast<std::uint8_t>(text[at + i]);
            if ((next & 0xC0U) != 0x80U) {
                return false;
            }
            point = (point << 6) | (next & 0x3FU);
        }
        if (point < smallest[length] || point > 0x10FFFF || is_high_surrogate(point) || is_low_surrogate(point)) {
            return false;
        }
        if (point < 0x10000) {
            converted.push_back(static_cast<char16_t>(point));
        } else {
            converted.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
            converted.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
        }
        at += length;
    }
    return true;
}

bool utf16_to_utf8(std::u16string_view text, std::string& converted) {
    converted.clear();
    converted.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        char32_t point = text[at];
        if (is_low_surrogate(point)) {
            return false;
        }
        if (is_high_surrogate(point)) {
            if (at + 1 == text.size() || !is_low_surrogate(text[at + 1])) {
                return false;
            }
            point = 0x10000 + ((point - 0xD800) << 10) + (text[++at] - 0xDC00U);
        }
        append_utf8(point, converted);
    }
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
    std::string well_formed;
    return utf16_to_utf8(text, well_formed);
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
