#include "foundation/text/unicode.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <type_traits>

namespace text::unicode {

namespace {

constexpr char16_t replacement = 0xFFFD;

constexpr bool is_high_surrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

constexpr bool is_low_surrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Long texts are nearly all ASCII. So many units at a time are converted as if they were; the compiler makes vector instructions
/// of the loops over them.
constexpr std::size_t units_at_once = 16;
/// Other characters that are converted before ASCII is looked for again.
constexpr std::size_t characters_at_once = 16;
constexpr std::size_t longest_character = 4;
/// What one step writes at most.
constexpr std::size_t largest_step = units_at_once + characters_at_once * longest_character;
/// Converted text waits for the next append in a buffer that stays in the first cache.
constexpr std::size_t buffered_units = 2048;

template <typename Unit>
constexpr std::uint64_t beyond_ascii = sizeof(Unit) == 1 ? 0x8080808080808080 : 0xFF80FF80FF80FF80;

/// As many units as there are in a word.
template <typename Unit>
std::uint64_t load_word(const Unit* units) {
    std::uint64_t word = 0;
    std::memcpy(&word, units, sizeof(word));
    return word;
}

/// How many of the next `units_at_once` units are ASCII, up to the first one that isn't.
template <typename Unit>
std::size_t leading_ascii(const Unit* units) {
    constexpr std::size_t step = sizeof(std::uint64_t) / sizeof(Unit);
    std::uint64_t all = 0;
    for (std::size_t at = 0; at < units_at_once; at += step) {
        all |= load_word(units + at);
    }
    if ((all & beyond_ascii<Unit>) == 0) {
        return units_at_once;
    }
    std::size_t at = 0;
    std::uint64_t others = 0;
    while ((others = load_word(units + at) & beyond_ascii<Unit>) == 0) {
        at += step;
    }
    const int bits = std::endian::native == std::endian::little ? std::countr_zero(others) : std::countl_zero(others);
    return at + static_cast<std::size_t>(bits) / (8 * sizeof(Unit));
}

/// Text on its way into a string: written behind `begin`, up to an end that the writer keeps.
template <typename Unit>
class buffered_text {
public:
    explicit buffered_text(std::basic_string<Unit>& text) : text_(text) {}

    [[nodiscard]] Unit* begin() { return buffer_.data(); }
    /// Where up to `largest_step` units may be written next.
    [[nodiscard]] Unit* room_behind(Unit* end) {
        return static_cast<std::size_t>(end - begin()) <= buffered_units - largest_step ? end : flush(end);
    }
    Unit* flush(Unit* end) {
        text_.append(begin(), static_cast<std::size_t>(end - begin()));
        return begin();
    }

private:
    std::basic_string<Unit>& text_;
    std::array<Unit, buffered_units> buffer_;
};

/// Converts the ASCII characters that the rest of a text starts with, up to `units_at_once`, and returns how many those were. What
/// is written behind them means nothing. A shorter rest is left alone.
template <typename From, typename To>
std::size_t convert_ascii(std::basic_string_view<From> text, std::size_t at, To* end) {
    if (text.size() - at < units_at_once) {
        return 0;
    }
    const From* const source = text.data() + at;
    for (std::size_t i = 0; i < units_at_once; ++i) {
        end[i] = static_cast<To>(static_cast<std::make_unsigned_t<From>>(source[i]));
    }
    return leading_ascii(source);
}

/// Whether there is a character next that is converted by itself: any but ASCII, and all of a short rest.
template <typename Unit>
bool stands_alone(std::basic_string_view<Unit> text, std::size_t at) {
    return at < text.size() && (text.size() - at < units_at_once || static_cast<std::make_unsigned_t<Unit>>(text[at]) >= 0x80);
}

std::size_t put_utf8(char* out, char32_t point) {
    const auto byte = [](char32_t value) { return static_cast<char>(static_cast<unsigned char>(value)); };
    if (point < 0x80) {
        out[0] = byte(point);
        return 1;
    }
    if (point < 0x800) {
        out[0] = byte(0xC0 | (point >> 6));
        out[1] = byte(0x80 | (point & 0x3F));
        return 2;
    }
    if (point < 0x10000) {
        out[0] = byte(0xE0 | (point >> 12));
        out[1] = byte(0x80 | ((point >> 6) & 0x3F));
        out[2] = byte(0x80 | (point & 0x3F));
        return 3;
    }
    out[0] = byte(0xF0 | (point >> 18));
    out[1] = byte(0x80 | ((point >> 12) & 0x3F));
    out[2] = byte(0x80 | ((point >> 6) & 0x3F));
    out[3] = byte(0x80 | (point & 0x3F));
    return 4;
}

std::size_t put_utf16(char16_t* out, char32_t point) {
    if (point < 0x10000) {
        out[0] = static_cast<char16_t>(point);
        return 1;
    }
    out[0] = static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
    out[1] = static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
    return 2;
}

/// Length of a sequence by its first byte, with the range that its second byte must lie in (Unicode table 3-7).
struct lead_rule {
    std::uint8_t first;
    std::uint8_t last;
    std::uint8_t length;
    std::uint8_t second_low;
    std::uint8_t second_high;
};
constexpr lead_rule lead_rules[] = {
    {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF}, {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F},
    {0xEE, 0xEF, 3, 0x80, 0xBF}, {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

/// The rule for each first byte.
constexpr std::array<lead_rule, 256> rule_of_lead = [] {
    std::array<lead_rule, 256> rules{};
    for (const lead_rule& rule : lead_rules) {
        std::fill(rules.begin() + rule.first, rules.begin() + rule.last + 1, rule);
    }
    return rules;
}();

/// Takes the sequence at `at`, of which there is a byte at least. False: it isn't well-formed, and only its longest start that
/// could still have become a sequence is taken.
inline bool take_sequence(std::string_view bytes, std::size_t& at, char32_t& point) {
    const auto take_byte = [&](std::uint8_t low, std::uint8_t high) {
        if (at == bytes.size()) {
            return false;
        }
        const auto byte = static_cast<std::uint8_t>(bytes[at]);
        if (byte < low || byte > high) {
            return false;
        }
        point = (point << 6) | (byte & 0x3F);
        ++at;
        return true;
    };
    const auto lead = static_cast<std::uint8_t>(bytes[at++]);
    if (lead < 0x80) {
        point = lead;
        return true;
    }
    const lead_rule& rule = rule_of_lead[lead];
    point = lead & (0x7FU >> rule.length);
    return rule.length != 0 && take_byte(rule.second_low, rule.second_high) && (rule.length < 3 || take_byte(0x80, 0xBF)) &&
           (rule.length < 4 || take_byte(0x80, 0xBF));
}

/// Decodes up to the end or the first sequence that isn't well-formed, and returns how many bytes that took.
std::size_t decode_well_formed(std::string_view bytes, std::u16string& decoded) {
    buffered_text<char16_t> out(decoded);
    char16_t* end = out.begin();
    std::size_t at = 0;
    bool well_formed = true;
    while (well_formed && at < bytes.size()) {
        end = out.room_behind(end);
        const std::size_t plain = convert_ascii(bytes, at, end);
        end += plain;
        at += plain;
        if (plain == units_at_once) {
            continue;
        }
        for (std::size_t i = 0; i < characters_at_once && stands_alone(bytes, at); ++i) {
            std::size_t behind = at;
            char32_t point = 0;
            well_formed = take_sequence(bytes, behind, point);
            if (!well_formed) {
                break;
            }
            end += put_utf16(end, point);
            at = behind;
        }
    }
    out.flush(end);
    return at;
}

/// A run of upper-case letters, each `step` units behind the last, whose lower-case letters lie `distance` further on.
struct case_run {
    char16_t first;
    char16_t last;
    int step;
    int distance;
};
constexpr case_run case_runs[] = {
    {0x0041, 0x005A, 1, 32},     {0x00C0, 0x00D6, 1, 32},     {0x00D8, 0x00DE, 1, 32},     {0x0100, 0x012E, 2, 1},
    {0x0130, 0x0130, 1, -199},   {0x0132, 0x0136, 2, 1},      {0x0139, 0x0147, 2, 1},      {0x014A, 0x0176, 2, 1},
    {0x0178, 0x0178, 1, -121},   {0x0179, 0x017D, 2, 1},      {0x0181, 0x0181, 1, 210},    {0x0182, 0x0184, 2, 1},
    {0x0186, 0x0186, 1, 206},    {0x0187, 0x0187, 1, 1},      {0x0189, 0x018A, 1, 205},    {0x018B, 0x018B, 1, 1},
    {0x018E, 0x018E, 1, 79},     {0x018F, 0x018F, 1, 202},    {0x0190, 0x0190, 1, 203},    {0x0191, 0x0191, 1, 1},
    {0x0193, 0x0193, 1, 205},    {0x0194, 0x0194, 1, 207},    {0x0196, 0x0196, 1, 211},    {0x0197, 0x0197, 1, 209},
    {0x0198, 0x0198, 1, 1},      {0x019C, 0x019C, 1, 211},    {0x019D, 0x019D, 1, 213},    {0x019F, 0x019F, 1, 214},
    {0x01A0, 0x01A4, 2, 1},      {0x01A6, 0x01A6, 1, 218},    {0x01A7, 0x01A7, 1, 1},      {0x01A9, 0x01A9, 1, 218},
    {0x01AC, 0x01AC, 1, 1},      {0x01AE, 0x01AE, 1, 218},    {0x01AF, 0x01AF, 1, 1},      {0x01B1, 0x01B2, 1, 217},
    {0x01B3, 0x01B5, 2, 1},      {0x01B7, 0x01B7, 1, 219},    {0x01B8, 0x01B8, 1, 1},      {0x01BC, 0x01BC, 1, 1},
    {0x01C4, 0x01C4, 1, 2},      {0x01C5, 0x01C5, 1, 1},      {0x01C7, 0x01C7, 1, 2},      {0x01C8, 0x01C8, 1, 1},
    {0x01CA, 0x01CA, 1, 2},      {0x01CB, 0x01DB, 2, 1},      {0x01DE, 0x01EE, 2, 1},      {0x01F1, 0x01F1, 1, 2},
    {0x01F2, 0x01F4, 2, 1},      {0x01F6, 0x01F6, 1, -97},    {0x01F7, 0x01F7, 1, -56},    {0x01F8, 0x021E, 2, 1},
    {0x0220, 0x0220, 1, -130},   {0x0222, 0x0232, 2, 1},      {0x023A, 0x023A, 1, 10795},  {0x023B, 0x023B, 1, 1},
    {0x023D, 0x023D, 1, -163},   {0x023E, 0x023E, 1, 10792},  {0x0241, 0x0241, 1, 1},      {0x0243, 0x0243, 1, -195},
    {0x0244, 0x0244, 1, 69},     {0x0245, 0x0245, 1, 71},     {0x0246, 0x024E, 2, 1},      {0x0370, 0x0372, 2, 1},
    {0x0376, 0x0376, 1, 1},      {0x037F, 0x037F, 1, 116},    {0x0386, 0x0386, 1, 38},     {0x0388, 0x038A, 1, 37},
    {0x038C, 0x038C, 1, 64},     {0x038E, 0x038F, 1, 63},     {0x0391, 0x03A1, 1, 32},     {0x03A3, 0x03AB, 1, 32},
    {0x03CF, 0x03CF, 1, 8},      {0x03D8, 0x03EE, 2, 1},      {0x03F4, 0x03F4, 1, -60},    {0x03F7, 0x03F7, 1, 1},
    {0x03F9, 0x03F9, 1, -7},     {0x03FA, 0x03FA, 1, 1},      {0x03FD, 0x03FF, 1, -130},   {0x0400, 0x040F, 1, 80},
    {0x0410, 0x042F, 1, 32},     {0x0460, 0x0480, 2, 1},      {0x048A, 0x04BE, 2, 1},      {0x04C0, 0x04C0, 1, 15},
    {0x04C1, 0x04CD, 2, 1},      {0x04D0, 0x052E, 2, 1},      {0x0531, 0x0556, 1, 48},     {0x10A0, 0x10C5, 1, 7264},
    {0x10C7, 0x10C7, 1, 7264},   {0x10CD, 0x10CD, 1, 7264},   {0x13A0, 0x13EF, 1, 38864},  {0x13F0, 0x13F5, 1, 8},
    {0x1C90, 0x1CBA, 1, -3008},  {0x1CBD, 0x1CBF, 1, -3008},  {0x1E00, 0x1E94, 2, 1},      {0x1E9E, 0x1E9E, 1, -7615},
    {0x1EA0, 0x1EFE, 2, 1},      {0x1F08, 0x1F0F, 1, -8},     {0x1F18, 0x1F1D, 1, -8},     {0x1F28, 0x1F2F, 1, -8},
    {0x1F38, 0x1F3F, 1, -8},     {0x1F48, 0x1F4D, 1, -8},     {0x1F59, 0x1F5F, 2, -8},     {0x1F68, 0x1F6F, 1, -8},
    {0x1F88, 0x1F8F, 1, -8},     {0x1F98, 0x1F9F, 1, -8},     {0x1FA8, 0x1FAF, 1, -8},     {0x1FB8, 0x1FB9, 1, -8},
    {0x1FBA, 0x1FBB, 1, -74},    {0x1FBC, 0x1FBC, 1, -9},     {0x1FC8, 0x1FCB, 1, -86},    {0x1FCC, 0x1FCC, 1, -9},
    {0x1FD8, 0x1FD9, 1, -8},     {0x1FDA, 0x1FDB, 1, -100},   {0x1FE8, 0x1FE9, 1, -8},     {0x1FEA, 0x1FEB, 1, -112},
    {0x1FEC, 0x1FEC, 1, -7},     {0x1FF8, 0x1FF9, 1, -128},   {0x1FFA, 0x1FFB, 1, -126},   {0x1FFC, 0x1FFC, 1, -9},
    {0x2126, 0x2126, 1, -7517},  {0x212A, 0x212A, 1, -8383},  {0x212B, 0x212B, 1, -8262},  {0x2132, 0x2132, 1, 28},
    {0x2160, 0x216F, 1, 16},     {0x2183, 0x2183, 1, 1},      {0x24B6, 0x24CF, 1, 26},     {0x2C00, 0x2C2F, 1, 48},
    {0x2C60, 0x2C60, 1, 1},      {0x2C62, 0x2C62, 1, -10743}, {0x2C63, 0x2C63, 1, -3814},  {0x2C64, 0x2C64, 1, -10727},
    {0x2C67, 0x2C6B, 2, 1},      {0x2C6D, 0x2C6D, 1, -10780}, {0x2C6E, 0x2C6E, 1, -10749}, {0x2C6F, 0x2C6F, 1, -10783},
    {0x2C70, 0x2C70, 1, -10782}, {0x2C72, 0x2C72, 1, 1},      {0x2C75, 0x2C75, 1, 1},      {0x2C7E, 0x2C7F, 1, -10815},
    {0x2C80, 0x2CE2, 2, 1},      {0x2CEB, 0x2CED, 2, 1},      {0x2CF2, 0x2CF2, 1, 1},      {0xA640, 0xA66C, 2, 1},
    {0xA680, 0xA69A, 2, 1},      {0xA722, 0xA72E, 2, 1},      {0xA732, 0xA76E, 2, 1},      {0xA779, 0xA77B, 2, 1},
    {0xA77D, 0xA77D, 1, -35332}, {0xA77E, 0xA786, 2, 1},      {0xA78B, 0xA78B, 1, 1},      {0xA78D, 0xA78D, 1, -42280},
    {0xA790, 0xA792, 2, 1},      {0xA796, 0xA7A8, 2, 1},      {0xA7AA, 0xA7AA, 1, -42308}, {0xA7AB, 0xA7AB, 1, -42319},
    {0xA7AC, 0xA7AC, 1, -42315}, {0xA7AD, 0xA7AD, 1, -42305}, {0xA7AE, 0xA7AE, 1, -42308}, {0xA7B0, 0xA7B0, 1, -42258},
    {0xA7B1, 0xA7B1, 1, -42282}, {0xA7B2, 0xA7B2, 1, -42261}, {0xA7B3, 0xA7B3, 1, 928},    {0xA7B4, 0xA7C2, 2, 1},
    {0xA7C4, 0xA7C4, 1, -48},    {0xA7C5, 0xA7C5, 1, -42307}, {0xA7C6, 0xA7C6, 1, -35384}, {0xA7C7, 0xA7C9, 2, 1},
    {0xA7D0, 0xA7D0, 1, 1},      {0xA7D6, 0xA7D8, 2, 1},      {0xA7F5, 0xA7F5, 1, 1},      {0xFF21, 0xFF3A, 1, 32},
};

}  // namespace

std::string encode_utf8(std::u16string_view text) {
    std::string encoded;
    encoded.reserve(text.size() + text.size() / 8);
    buffered_text<char> out(encoded);
    char* end = out.begin();
    std::size_t at = 0;
    while (at < text.size()) {
        end = out.room_behind(end);
        const std::size_t plain = convert_ascii(text, at, end);
        end += plain;
        at += plain;
        if (plain == units_at_once) {
            continue;
        }
        for (std::size_t i = 0; i < characters_at_once && stands_alone(text, at); ++i) {
            const char16_t unit = text[at];
            ++at;
            if (is_high_surrogate(unit) && at < text.size() && is_low_surrogate(text[at])) {
                end += put_utf8(end, 0x10000 + ((char32_t{unit} - 0xD800) << 10) + (char32_t{text[at]} - 0xDC00));
                ++at;
            } else {
                end += put_utf8(end, is_high_surrogate(unit) || is_low_surrogate(unit) ? replacement : unit);
            }
        }
    }
    out.flush(end);
    return encoded;
}

bool decode_utf8(std::string_view bytes, std::u16string& decoded) {
    decoded.clear();
    decoded.reserve(bytes.size());
    return decode_well_formed(bytes, decoded) == bytes.size();
}

std::u16string decode_utf8_lenient(std::string_view bytes) {
    std::u16string decoded;
    decoded.reserve(bytes.size());
    while (true) {
        bytes.remove_prefix(decode_well_formed(bytes, decoded));
        if (bytes.empty()) {
            return decoded;
        }
        decoded.push_back(replacement);
        std::size_t taken = 0;
        char32_t point = 0;
        (void)take_sequence(bytes, taken, point);
        bytes.remove_prefix(taken);
    }
}

char16_t to_lower(char16_t unit) {
    if (unit < 0x80) {
        return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit;
    }
    const case_run* run = std::lower_bound(std::begin(case_runs), std::end(case_runs), unit,
                                           [](const case_run& entry, char16_t key) { return entry.last < key; });
    if (run == std::end(case_runs) || unit < run->first || (unit - run->first) % run->step != 0) {
        return unit;
    }
    return static_cast<char16_t>(unit + run->distance);
}

}  // namespace text::unicode
