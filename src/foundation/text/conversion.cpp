#include "foundation/text/conversion.h"

#include <algorithm>
#include <limits>

#include "foundation/exc/exceptions.h"
#include "foundation/text/unicode.h"
#include "platform/system.h"
#include "platform/text_encoding.h"

namespace text {

namespace {

/// The platform's forms work on terminated text, so what stands behind a terminator never takes part.
std::string_view to_terminator(std::string_view source) {
    return source.substr(0, source.find('\0'));
}

/// Whole blocks are looked at first: the compiler makes vector instructions of a loop without a way out.
std::u16string_view to_terminator(std::u16string_view source) {
    constexpr std::size_t block = 64;
    std::size_t at = 0;
    for (; source.size() - at >= block; at += block) {
        std::uint16_t found = 0;
        for (std::size_t i = 0; i < block; ++i) {
            found = static_cast<std::uint16_t>(found | (source[at + i] == 0 ? 1 : 0));
        }
        if (found != 0) {
            break;
        }
    }
    return source.substr(0, source.find(u'\0', at));
}

platform::text_encoding& encoding() {
    return *platform::system().text_encoding;
}

struct decimal {
    bool has_digits = false;
    bool negative = false;
    bool overflow = false;
    std::uint64_t magnitude = 0;
};

decimal read_decimal(const std::string& source) {
    decimal result;
    std::size_t i = 0;
    while (i < source.size() && (source[i] == ' ' || (source[i] >= '\t' && source[i] <= '\r'))) {
        ++i;
    }
    if (i < source.size() && (source[i] == '-' || source[i] == '+')) {
        result.negative = source[i] == '-';
        ++i;
    }
    constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
    for (; i < source.size() && source[i] >= '0' && source[i] <= '9'; ++i) {
        const auto digit = static_cast<std::uint64_t>(source[i] - '0');
        result.has_digits = true;
        result.overflow = result.overflow || result.magnitude > (largest - digit) / 10;
        result.magnitude = result.magnitude * 10 + digit;
    }
    return result;
}

[[noreturn]] void fail_unsigned(const std::string& source) {
    throw exc::runtime_exc_t("Cannot convert string value to unsigned integer. Given string: [%1].", source);
}

template <typename Unit>
Unit lower_ascii(Unit unit) {
    return unit >= Unit{'A'} && unit <= Unit{'Z'} ? static_cast<Unit>(unit + ('a' - 'A')) : unit;
}

template <typename Unit>
int compare_folded(std::basic_string_view<Unit> left, std::basic_string_view<Unit> right) {
    using order_unit = std::make_unsigned_t<std::conditional_t<sizeof(Unit) == 1, char, std::uint16_t>>;
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < common; ++i) {
        const auto l = static_cast<order_unit>(lower_ascii(left[i]));
        const auto r = static_cast<order_unit>(lower_ascii(right[i]));
        if (l != r) {
            return l < r ? -1 : 1;
        }
    }
    return left.size() == right.size() ? 0 : (left.size() < right.size() ? -1 : 1);
}

template <typename Unit>
bool starts_with_folded(std::basic_string_view<Unit> whole, std::basic_string_view<Unit> prefix) {
    return whole.size() >= prefix.size() && compare_folded(whole.substr(0, prefix.size()), prefix) == 0;
}

template <typename Unit>
bool ends_with_folded(std::basic_string_view<Unit> whole, std::basic_string_view<Unit> suffix) {
    return whole.size() >= suffix.size() && compare_folded(whole.substr(whole.size() - suffix.size()), suffix) == 0;
}

wide_string widen(const std::string& digits) {
    return {digits.begin(), digits.end()};
}

}  // namespace

std::string wide_to_utf8(std::u16string_view wide) {
    std::string result;
    // A terminator comes out as one byte of that value, and nothing else does: that is searched faster than the longer source.
    if (wide.empty() || (encoding().utf16_to_utf8(wide, result) && result.find('\0') == std::string::npos)) {
        return result;
    }
    const std::u16string_view source = to_terminator(wide);
    result.clear();
    if (!source.empty() && !encoding().utf16_to_utf8(source, result)) {
        throw exc::win_sys_exc_t("Unicode string cannot be converted to UTF8 string.", exc::last_error());
    }
    return result;
}

wide_string utf8_to_wide(std::string_view utf8) {
    const std::string_view source = to_terminator(utf8);
    wide_string result;
    if (!source.empty() && !encoding().utf8_to_utf16(source, result)) {
        throw exc::win_sys_exc_t("Multibyte UTF8 string cannot be converted to unicode string. Source string: [%1].", source,
                                 exc::last_error());
    }
    return result;
}

std::string wide_to_ansi(std::u16string_view wide) {
    const std::u16string_view source = to_terminator(wide);
    std::string result;
    if (!source.empty() && !encoding().utf16_to_ansi(source, result)) {
        throw exc::win_sys_exc_t("Unicode string cannot be converted to multibyte string.", exc::last_error());
    }
    return result;
}

wide_string ansi_to_wide(std::string_view ansi) {
    const std::string_view source = to_terminator(ansi);
    wide_string result;
    if (!source.empty() && !encoding().ansi_to_utf16(source, result)) {
        throw exc::win_sys_exc_t("Multibyte string cannot be converted to unicode string. Source string: [%1].", source,
                                 exc::last_error());
    }
    return result;
}

std::string ansi_to_utf8(std::string_view ansi) {
    return wide_to_utf8(ansi_to_wide(ansi));
}

std::string wide_to_ansi_safe(std::u16string_view wide) {
    try {
        return wide_to_ansi(wide);
    } catch (const exc::exc_base_t&) {
        return "UNICODE->ANSI failed";
    }
}

wide_string utf8_to_wide_safe(std::string_view utf8) {
    try {
        return utf8_to_wide(utf8);
    } catch (const exc::exc_base_t&) {
        wide_string result = u"UTF8 -> UTF16 failed. Raw: ";
        for (const char byte : to_terminator(utf8)) {
            result += static_cast<char16_t>(static_cast<std::uint8_t>(byte));
        }
        return result;
    }
}

wide_string utf8_to_wide_lenient(std::string_view utf8) {
    return unicode::decode_utf8_lenient(to_terminator(utf8));
}

std::uint32_t to_uint(const std::string& source) {
    const decimal number = read_decimal(source);
    if (!number.has_digits) {
        fail_unsigned(source);
    }
    constexpr std::uint32_t largest = std::numeric_limits<std::uint32_t>::max();
    if (number.overflow || number.magnitude > largest) {
        return largest;
    }
    const auto value = static_cast<std::uint32_t>(number.magnitude);
    return number.negative ? 0U - value : value;
}

std::int32_t to_int(const std::string& source) {
    const decimal number = read_decimal(source);
    if (!number.has_digits) {
        throw exc::runtime_exc_t("Cannot convert string value to signed integer. Given string: [%1].", source);
    }
    constexpr std::int64_t largest = std::numeric_limits<std::int32_t>::max();
    const std::int64_t limit = number.negative ? largest + 1 : largest;
    const std::int64_t value = number.overflow || number.magnitude > static_cast<std::uint64_t>(limit)
                                   ? limit
                                   : static_cast<std::int64_t>(number.magnitude);
    return static_cast<std::int32_t>(number.negative ? -value : value);
}

std::uint64_t to_uint64(const std::string& source) {
    const decimal number = read_decimal(source);
    if (!number.has_digits) {
        fail_unsigned(source);
    }
    if (number.overflow) {
        return std::numeric_limits<std::uint64_t>::max();
    }
    return number.negative ? 0U - number.magnitude : number.magnitude;
}

bool to_bool(const std::string& source) {
    return compare_no_case(source, std::string_view("false")) != 0 && source != "0";
}

std::string to_string(std::int32_t value) {
    return std::to_string(value);
}

std::string to_string(std::uint32_t value) {
    return std::to_string(value);
}

std::string to_string(std::int64_t value) {
    return std::to_string(value);
}

std::string to_string(std::uint64_t value) {
    return std::to_string(value);
}

wide_string to_wstring(std::int32_t value) {
    return widen(to_string(value));
}

wide_string to_wstring(std::uint32_t value) {
    return widen(to_string(value));
}

wide_string to_wstring(std::int64_t value) {
    return widen(to_string(value));
}

wide_string to_wstring(std::uint64_t value) {
    return widen(to_string(value));
}

std::string format_hex(std::uint32_t value) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result = "0x00000000";
    for (std::size_t i = 0; i < 8; ++i) {
        result[9 - i] = digits[(value >> (4 * i)) & 0xF];
    }
    return result;
}

int compare_no_case(std::string_view left, std::string_view right) {
    return compare_folded(left, right);
}

int compare_no_case(std::u16string_view left, std::u16string_view right) {
    return compare_folded(left, right);
}

bool starts_with(std::string_view whole, std::string_view prefix) {
    return starts_with_folded(whole, prefix);
}

bool starts_with(std::u16string_view whole, std::u16string_view prefix) {
    return starts_with_folded(whole, prefix);
}

bool ends_with(std::string_view whole, std::string_view suffix) {
    return ends_with_folded(whole, suffix);
}

bool ends_with(std::u16string_view whole, std::u16string_view suffix) {
    return ends_with_folded(whole, suffix);
}

std::int64_t find_substring(std::u16string_view whole, std::u16string_view part) {
    const std::size_t at = whole.find(part);
    return at == std::u16string_view::npos ? -1 : static_cast<std::int64_t>(at);
}

bool split_at(std::string_view whole, char separator, std::string& left, std::string& right) {
    const std::size_t at = whole.find(separator);
    if (at == std::string_view::npos) {
        return false;
    }
    const std::string head(whole.substr(0, at));
    right = std::string(whole.substr(at + 1));
    left = head;
    return true;
}

std::string replace_all(std::string whole, std::string_view from, std::string_view to) {
    if (from.empty() || whole.find(from) == std::string::npos) {
        return whole;
    }
    std::string result;
    result.reserve(whole.size());
    std::size_t at = 0;
    for (std::size_t hit = whole.find(from); hit != std::string::npos; hit = whole.find(from, at)) {
        result.append(whole, at, hit - at);
        result.append(to);
        at = hit + from.size();
    }
    result.append(whole, at);
    return result;
}

}  // namespace text
