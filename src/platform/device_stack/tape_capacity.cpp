#include "platform/device_stack/tape_capacity.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "foundation/util/bytes.h"
#include "platform/device_stack/scsi_commands.h"
#include "platform/device_stack/tape_sense.h"
#include "platform/errors.h"

namespace platform::device_stack {

namespace {

constexpr std::uint64_t mebibyte = 1'048'576;
/// What the standard's log pages count in.
constexpr std::uint64_t megabyte = 1'000'000;

constexpr std::uint8_t sequential_access_page = 0x0C;
constexpr std::uint8_t volume_statistics_page = 0x17;
constexpr std::uint8_t tape_capacity_page = 0x31;

/// A number of 1 to 8 bytes. One with all bits set is a drive's word for "unknown".
std::optional<std::uint64_t> number_of(std::span<const std::uint8_t> value) {
    if (value.empty() || value.size() > sizeof(std::uint64_t) ||
        std::all_of(value.begin(), value.end(), [](std::uint8_t byte) { return byte == 0xFF; })) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (const std::uint8_t byte : value) {
        number = (number << 8) | byte;
    }
    return number;
}

std::optional<std::uint64_t> in_bytes(std::optional<std::uint64_t> count, std::uint64_t unit) {
    if (!count || *count > std::numeric_limits<std::uint64_t>::max() / unit) {
        return std::nullopt;
    }
    return *count * unit;
}

/// A number behind a 16-bit code in a list of entries, each a head and a value. Where the value's length stands in the head, and in
/// how many bytes, differs from list to list.
struct list_form {
    std::size_t head;
    std::size_t length_at;
    std::size_t length_size;
};
constexpr list_form attribute_list{5, 3, 2};
constexpr list_form parameter_list{4, 3, 1};

std::optional<std::uint64_t> find_number(std::span<const std::uint8_t> list, const list_form& form, std::uint16_t code) {
    for (std::size_t at = 0; at + form.head <= list.size();) {
        const std::size_t length =
            form.length_size == 2 ? util::load_be16(list, at + form.length_at) : util::load_u8(list, at + form.length_at);
        if (at + form.head + length > list.size()) {
            break;  // cut short, or its length lies
        }
        if (util::load_be16(list, at) == code) {
            return number_of(list.subspan(at + form.head, length));
        }
        at += form.head + length;
    }
    return std::nullopt;
}

std::optional<std::uint64_t> difference(std::optional<std::uint64_t> whole, std::optional<std::uint64_t> part) {
    return whole && part && *part <= *whole ? std::optional(*whole - *part) : std::nullopt;
}

/// The drives whose page 31h is known to count in mebibytes; others have other pages, or other units, under that number.
bool is_linear_tape_open(std::uint8_t density) {
    return density >= 0x40 && density <= 0x60;
}

/// What is known already stands.
void take(tape_capacity& known, const tape_capacity& told) {
    known.maximum = known.maximum ? known.maximum : told.maximum;
    known.remaining = known.remaining ? known.remaining : told.remaining;
}

bool is_complete(const tape_capacity& capacity) {
    return capacity.maximum && capacity.remaining;
}

/// A drive that can't reach the memory in the cartridge may know the capacity from elsewhere.
bool is_memory_fault(const scsi_outcome& outcome) {
    if (outcome.transport_error != 0 || outcome.scsi_status != scsi_status::check_condition) {
        return false;
    }
    const std::optional<sense_code> code = decode_sense(outcome.sense);
    return code && ((code->asc == 0x04 && code->ascq == 0x10) || (code->asc == 0x11 && code->ascq == 0x12));
}

scsi_outcome read_attributes(scsi_transport& transport, std::int64_t timeout_seconds, std::vector<std::uint8_t>& answer) {
    constexpr std::uint16_t room = 1024;
    answer.assign(room, 0);
    return receive(transport,
                   {opcode::read_attribute, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(room >> 8),
                    static_cast<std::uint8_t>(room & 0xFF), 0, 0},
                   answer, timeout_seconds);
}

scsi_outcome read_log_page(scsi_transport& transport, std::uint8_t page, std::int64_t timeout_seconds,
                           std::vector<std::uint8_t>& answer) {
    constexpr std::uint8_t cumulative_values = 0x40;
    constexpr std::uint16_t room = 4096;
    answer.assign(room, 0);
    return receive(transport,
                   {opcode::log_sense, 0, static_cast<std::uint8_t>(cumulative_values | page), 0, 0, 0, 0,
                    static_cast<std::uint8_t>(room >> 8), static_cast<std::uint8_t>(room & 0xFF), 0},
                   answer, timeout_seconds);
}

}  // namespace

tape_capacity decode_capacity_attributes(std::span<const std::uint8_t> answer) {
    constexpr std::uint16_t remaining_capacity = 0x0000;
    constexpr std::uint16_t maximum_capacity = 0x0001;
    const auto list = util::slice(answer, 4, util::load_be32(answer, 0));
    return {in_bytes(find_number(list, attribute_list, maximum_capacity), mebibyte),
            in_bytes(find_number(list, attribute_list, remaining_capacity), mebibyte)};
}

tape_capacity decode_capacity_page(std::span<const std::uint8_t> answer) {
    const auto list = util::slice(answer, 4, util::load_be16(answer, 2));
    const auto parameter = [&list](std::uint16_t code, std::uint64_t unit) {
        return in_bytes(find_number(list, parameter_list, code), unit);
    };
    switch (util::load_u8(answer, 0) & 0x3F) {
        case volume_statistics_page: {
            const auto native = parameter(0x0016, megabyte);
            return {native, difference(native, parameter(0x0017, megabyte))};
        }
        case sequential_access_page: {
            // From the beginning to early warning, and to the end of the data.
            const auto native = parameter(0x0005, megabyte);
            return {native, difference(native, parameter(0x0004, megabyte))};
        }
        case tape_capacity_page:
            return {parameter(0x0003, mebibyte), parameter(0x0001, mebibyte)};
        default:
            return {};
    }
}

std::uint32_t read_capacity(scsi_transport& transport, std::uint8_t density, const time_budget& time, tape_capacity& capacity) {
    std::vector<std::uint8_t> answer;
    scsi_outcome outcome = read_attributes(transport, time.seconds_left(), answer);
    if (const std::uint32_t failure = tape_error_of(outcome); failure == error::success) {
        take(capacity, decode_capacity_attributes(answer));
    } else if (!is_refused(outcome) && !is_memory_fault(outcome)) {
        return failure;
    }
    for (const std::uint8_t page : {volume_statistics_page, sequential_access_page, tape_capacity_page}) {
        if (is_complete(capacity) || (page == tape_capacity_page && !is_linear_tape_open(density))) {
            break;
        }
        outcome = read_log_page(transport, page, time.seconds_left(), answer);
        if (const std::uint32_t failure = tape_error_of(outcome); failure == error::success) {
            if ((util::load_u8(answer, 0) & 0x3F) == page) {
                take(capacity, decode_capacity_page(answer));
            }
        } else if (!is_refused(outcome)) {
            return failure;
        }
    }
    return error::success;
}

}  // namespace platform::device_stack
