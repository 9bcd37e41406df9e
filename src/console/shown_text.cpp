#include "console/shown_text.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace console {

namespace {

struct code_range {
    std::uint32_t first;
    std::uint32_t last;
};

/// Marks without a width of their own, of the scripts that names and labels are written in.
constexpr std::array<code_range, 14> marks = {{{0x0300, 0x036F},
                                               {0x0483, 0x0489},
                                               {0x0591, 0x05BD},
                                               {0x0610, 0x061A},
                                               {0x064B, 0x065F},
                                               {0x0900, 0x0902},
                                               {0x0E31, 0x0E31},
                                               {0x0E34, 0x0E3A},
                                               {0x0E47, 0x0E4E},
                                               {0x1AB0, 0x1AFF},
                                               {0x200B, 0x200F},
                                               {0x20D0, 0x20FF},
                                               {0xFE00, 0xFE0F},
                                               {0xFE20, 0xFE2F}}};
/// The blocks of wide letters and symbols.
constexpr std::array<code_range, 10> wide = {{{0x1100, 0x115F},
                                              {0x2E80, 0x303E},
                                              {0x3041, 0xA4CF},
                                              {0xAC00, 0xD7A3},
                                              {0xF900, 0xFAFF},
                                              {0xFE30, 0xFE6F},
                                              {0xFF00, 0xFF60},
                                              {0xFFE0, 0xFFE6},
                                              {0x1F300, 0x1FAFF},
                                              {0x20000, 0x3FFFD}}};

template <std::size_t Count>
bool lies_in(const std::array<code_range, Count>& ranges, std::uint32_t code) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [code](const code_range& range) { return code >= range.first && code <= range.last; });
}

struct letter {
    std::uint32_t code = 0;
    std::size_t bytes = 1;
    bool good = false;
};

/// The first letter of a text that isn't empty.
letter first_letter(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t bytes = lead < 0x80                   ? 1
                              : lead >= 0xC2 && lead < 0xE0 ? 2
                              : lead >= 0xE0 && lead < 0xF0 ? 3
                              : lead >= 0xF0 && lead < 0xF5 ? 4
                                                            : 0;
    if (bytes == 0 || bytes > text.size()) {
        return {};
    }
    std::uint32_t code = bytes == 1 ? lead : lead & (0x7FU >> bytes);
    for (std::size_t i = 1; i < bytes; ++i) {
        const auto unit = static_cast<unsigned char>(text[i]);
        if ((unit & 0xC0U) != 0x80U) {
            return {};
        }
        code = code << 6U | (unit & 0x3FU);
    }
    constexpr std::array<std::uint32_t, 5> smallest = {0, 0, 0x80, 0x800, 0x10000};
    const bool good = code >= smallest[bytes] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return good ? letter{code, bytes, true} : letter{};
}

bool controls(std::uint32_t code) {
    constexpr code_range directions{0x202A, 0x202E};
    constexpr code_range isolates{0x2066, 0x2069};
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= directions.first && code <= directions.last) ||
           (code >= isolates.first && code <= isolates.last);
}

}  // namespace

std::string printable(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const letter next = first_letter(text);
        const bool stays = next.good && (!controls(next.code) || next.code == '\n' || next.code == '\t');
        shown += stays ? text.substr(0, next.bytes) : std::string_view("?");
        text.remove_prefix(next.bytes);
    }
    return shown;
}

std::string printable_in_line(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    std::string shown;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of("\t\r\n"), text.size());
        shown += printable(text.substr(0, end));
        text.remove_prefix(end);
        const std::size_t next = std::min(text.find_first_not_of(blanks), text.size());
        text.remove_prefix(next);
        if (next != 0 && !text.empty()) {
            shown += ' ';
        }
    }
    return shown;
}

std::size_t columns_of(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const letter next = first_letter(text);
        columns += lies_in(marks, next.code) ? 0 : lies_in(wide, next.code) ? 2 : 1;
        text.remove_prefix(next.bytes);
    }
    return columns;
}

}  // namespace console
