#include "foundation/text/format_message.h"

#include <cstdint>
#include <limits>

namespace text {

namespace {

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

/// The signed decimal number at `at`, read as the C library's strtol does with a 32-bit `long`: leading white space and a
/// sign are accepted, and a number out of range becomes the nearest end of it. Moves `at` behind the digits; false, `at`
/// untouched, when there are none.
bool read_number(std::string_view pattern, std::size_t& at, std::int32_t& number) {
    std::size_t i = at;
    while (i < pattern.size() && is_space(pattern[i])) {
        ++i;
    }
    const bool negative = i < pattern.size() && pattern[i] == '-';
    if (i < pattern.size() && (pattern[i] == '-' || pattern[i] == '+')) {
        ++i;
    }
    if (i == pattern.size() || !is_digit(pattern[i])) {
        return false;
    }
    constexpr std::int64_t largest = std::numeric_limits<std::int32_t>::max();
    const std::int64_t limit = negative ? largest + 1 : largest;
    std::int64_t value = 0;
    for (; i < pattern.size() && is_digit(pattern[i]); ++i) {
        value = value * 10 + (pattern[i] - '0');
        if (value > limit) {
            value = limit;
        }
    }
    number = static_cast<std::int32_t>(negative ? -value : value);
    at = i;
    return true;
}

}  // namespace

std::string format_message(std::string_view pattern, std::initializer_list<std::string_view> arguments) {
    std::size_t total = pattern.size();
    for (const std::string_view argument : arguments) {
        total += argument.size();
    }
    std::string result;
    result.reserve(total);

    std::size_t at = 0;
    while (at < pattern.size()) {
        const std::size_t mark = pattern.find('%', at);
        result.append(pattern.substr(at, mark - at));
        if (mark == std::string_view::npos) {
            break;
        }
        at = mark + 1;
        std::int32_t number = 0;
        if (!read_number(pattern, at, number)) {
            result += '%';
        } else if (number >= 1 && static_cast<std::size_t>(number) <= arguments.size()) {
            result.append(arguments.begin()[number - 1]);
        } else {
            result += '%';
            result += std::to_string(number);
        }
    }
    return result;
}

}  // namespace text
