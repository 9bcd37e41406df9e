#include "changer/sense_decoder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "changer/sense_tables.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"

namespace sense {

const AscRangeRow asc_range_rows[] = {
    {0x40, 0x01, 0x7F, "Ram failure [0x%x]"},
    {0x40, 0x80, 0xFF, "Diagnostic failure on component [0x%x]"},
    {0x41, 0x01, 0xFF, "Data path failure [0x%x]"},
    {0x42, 0x01, 0xFF, "Power-on or self-test failure [0x%x]"},
    {0x4D, 0x00, 0xFF, "Tagged overlapped commands [0x%x]"},
    {0x70, 0x00, 0xFF, "Decompression exception short algorithm id of 0x%x"},
    {0x00, 0x00, 0x00, nullptr},
};

}  // namespace sense

namespace {

using byte_span = std::span<const std::uint8_t>;

constexpr std::array<const char*, 16> sense_key_texts = {
    "No Sense",       "Recovered Error", "Not Ready",   "Medium Error",       "Hardware Error", "Illegal Request",
    "Unit Attention", "Data Protect",    "Blank Check", "Vendor specific(9)", "Copy Aborted",   "Aborted Command",
    "Equal",          "Volume Overflow", "Miscompare",  "Completed",
};

constexpr std::uint8_t fixed_current = 0x70;
constexpr std::uint8_t fixed_deferred = 0x71;
constexpr std::uint8_t descriptor_current = 0x72;
constexpr std::uint8_t descriptor_deferred = 0x73;

enum class overflow_source : std::uint8_t { none, fixed, descriptor };

/// How the text of a response code begins, and what follows it. A deferred error in fixed format does without the additional
/// sense; the descriptor one has it.
struct response_form {
    std::uint8_t response_code;
    const char* text;
    bool additional_sense;
    overflow_source overflow;
};

constexpr std::array<response_form, 4> response_forms = {{
    {fixed_current, "Fixed format, current", true, overflow_source::fixed},
    {fixed_deferred, "Fixed format, <<<deferred>>>", false, overflow_source::fixed},
    {descriptor_current, "Descriptor format, current", true, overflow_source::descriptor},
    {descriptor_deferred, "Descriptor format, <<<deferred>>>", true, overflow_source::descriptor},
}};

struct status_row {
    std::uint8_t status;
    const char* text;
};

constexpr std::array<status_row, 11> status_rows = {{
    {0x00, "Good"},
    {0x02, "Check Condition"},
    {0x04, "Condition Met"},
    {0x08, "Busy"},
    {0x10, "Intermediate (obsolete)"},
    {0x14, "Intermediate-Condition Met (obsolete)"},
    {0x18, "Reservation Conflict"},
    {0x22, "Command Terminated (obsolete)"},
    {0x28, "Task set Full"},
    {0x30, "ACA Active"},
    {0x40, "Task Aborted"},
}};

/// "0x" and sixteen digits.
std::string wide_hex(std::uint8_t value) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text = "0x00000000000000";
    text += digits[value >> 4];
    text += digits[value & 0x0F];
    return text;
}

/// Bytes of fixed-format sense that its own length byte covers, when they're long enough to have one.
std::size_t fixed_sense_length(byte_span sense) {
    return std::min<std::size_t>(sense.size(), std::size_t{util::load_u8(sense, 7)} + 8);
}

bool data_overflow(overflow_source source, byte_span sense) {
    switch (source) {
        case overflow_source::fixed: {
            const std::size_t limit = sense.size() < 8 ? sense.size() : fixed_sense_length(sense);
            return limit > 2 && (sense[2] & 0x10) != 0;
        }
        case overflow_source::descriptor:
            return sense.size() > 4 && (sense[4] & 0x80) != 0;
        case overflow_source::none:
            break;
    }
    return false;
}

}  // namespace

bool NormalizeSense(byte_span sense, ScsiSenseHeader& header) {
    header = {};
    if (sense.empty() || (sense[0] & 0x70) != 0x70) {
        return false;
    }
    header.response_code = sense[0] & 0x7F;
    if (header.response_code < descriptor_current) {
        header.sense_key = util::load_u8(sense, 2) & 0x0F;
        if (sense.size() > 7) {
            const byte_span covered = sense.first(fixed_sense_length(sense));
            header.asc = util::load_u8(covered, 12);
            header.ascq = util::load_u8(covered, 13);
        }
    } else {
        header.sense_key = util::load_u8(sense, 1) & 0x0F;
        header.asc = util::load_u8(sense, 2);
        header.ascq = util::load_u8(sense, 3);
        header.additional_length = util::load_u8(sense, 7);
    }
    return true;
}

std::string DecodeSense(byte_span sense) {
    if (sense.empty()) {
        return "Sense buffer empty";
    }
    ScsiSenseHeader header;
    if (!NormalizeSense(sense, header)) {
        return {};
    }
    const auto form = std::find_if(response_forms.begin(), response_forms.end(),
                                   [&](const response_form& candidate) { return candidate.response_code == header.response_code; });
    const bool known = form != response_forms.end();
    std::string line = known ? std::string(form->text) : "Unknown response code: " + wide_hex(header.response_code);
    line += ";  Sense key: ";
    line += sense_key_texts[header.sense_key];
    if (known && data_overflow(form->overflow, sense)) {
        line += "<<<Sense data overflow>>>";
    }
    if (known && form->additional_sense) {
        line += ". " + DecodeAdditionalSense(header.asc, header.ascq);
    }
    return line;
}

std::string DecodeAdditionalSense(std::uint8_t asc, std::uint8_t ascq) {
    static constexpr char beginning[] = "Additional sense: ";
    std::string found;
    for (const sense::AscRangeRow* row = sense::asc_range_rows; row->text != nullptr; ++row) {
        if (row->asc == asc && row->lowest_ascq <= ascq && ascq <= row->highest_ascq) {
            found = std::string(beginning) + row->text + text::to_string(std::uint32_t{ascq});
        }
    }
    if (!found.empty()) {
        return found;
    }
    for (const sense::AscExactRow* row = sense::asc_exact_rows; row->text != nullptr; ++row) {
        if (row->asc == asc && row->ascq == ascq) {
            found = std::string(beginning) + row->text;
        }
    }
    if (!found.empty()) {
        return found;
    }
    // Codes and qualifiers from 0x80 on belong to the vendors.
    if (asc >= 0x80) {
        return "vendor specific ASC= " + wide_hex(asc) + ", ASCQ=" + wide_hex(ascq);
    }
    if (ascq >= 0x80) {
        return "ASC= " + wide_hex(asc) + ", vendor specific qualification ASCQ=" + wide_hex(ascq);
    }
    return "ASC= " + wide_hex(asc) + ", ASCQ=" + wide_hex(ascq);
}

std::string DecodeScsiStatus(std::uint8_t status) {
    const std::uint8_t code = status & 0x7E;
    const auto row =
        std::find_if(status_rows.begin(), status_rows.end(), [&](const status_row& candidate) { return candidate.status == code; });
    return row != status_rows.end() ? row->text : "Unknown";
}
