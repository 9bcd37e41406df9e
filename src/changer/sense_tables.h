#pragma once

#include <cstdint>

/// Texts of additional sense codes. Each table ends with a row without a text.
namespace sense {

/// The text of one code and qualifier.
struct AscExactRow {
    std::uint8_t asc;
    std::uint8_t ascq;
    const char* text;
};

/// The text of a code for a range of qualifiers. The "%x" in the texts is not a format: it is shown as it stands.
struct AscRangeRow {
    std::uint8_t asc;
    std::uint8_t lowest_ascq;
    std::uint8_t highest_ascq;
    const char* text;
};

extern const AscExactRow asc_exact_rows[];
extern const AscRangeRow asc_range_rows[];

}  // namespace sense
