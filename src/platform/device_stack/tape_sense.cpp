#include "platform/device_stack/tape_sense.h"

#include <algorithm>
#include <iterator>

#include "foundation/util/bytes.h"
#include "platform/errors.h"

namespace platform::device_stack {

namespace {

constexpr int any = any_sense;

/// Why the tape stopped, whatever the key, stands before what the keys mean. A drive that was locked against removal (53/02) or
/// can't load or eject (53/00) has failed to eject: `tape_class` says it otherwise where something else was asked for.
constexpr sense_rule tape_rules[] = {
    {any, 0x00, 0x01, error::filemark_detected},
    {any, 0x00, 0x02, error::end_of_media},
    {any, 0x00, 0x03, error::setmark_detected},
    {any, 0x00, 0x04, error::beginning_of_media},
    {any, 0x00, 0x05, error::no_data_detected},
    {sense_key::no_sense, any, any, error::success},
    {sense_key::recovered_error, any, any, error::success},
    {any, 0x3A, any, error::no_media_in_drive},
    {any, 0x27, any, error::write_protect},
    {any, 0x53, any, error::unable_to_unload_media},
    {sense_key::unit_attention, 0x28, any, error::media_changed},
    // Parameters or microcode changed, commands cleared: after any of them the drive has to be looked at anew, as after a reset.
    {sense_key::unit_attention, any, any, error::bus_reset},
    {any, 0x29, any, error::bus_reset},
    {any, 0x3B, 0x01, error::beginning_of_media},
    {any, 0x3B, 0x02, error::end_of_media},
    // It doesn't answer to those in front of it.
    {any, 0x05, 0x00, error::bad_unit},
    {sense_key::not_ready, any, any, error::not_ready},
    // The command, a field of it, or a field of its parameters.
    {sense_key::illegal_request, 0x20, any, error::not_supported},
    {sense_key::illegal_request, 0x22, any, error::not_supported},
    {sense_key::illegal_request, 0x24, any, error::not_supported},
    {sense_key::illegal_request, 0x26, any, error::not_supported},
    // Nothing is at that logical unit number any more.
    {sense_key::illegal_request, 0x25, any, error::invalid_drive},
    // Security has closed the drive: write protection isn't why.
    {sense_key::data_protect, 0x74, any, error::io_device},
    {sense_key::data_protect, any, any, error::write_protect},
    {sense_key::blank_check, any, any, error::no_data_detected},
    {sense_key::volume_overflow, any, any, error::end_of_media},
};

struct additional_sense {
    std::uint8_t asc;
    std::uint8_t ascq;
};

constexpr additional_sense in_progress[] = {
    {0x00, 0x16},  // operation
    {0x00, 0x18},  // erase
    {0x04, 0x01},  // becoming ready
    {0x04, 0x04},  // format
    {0x04, 0x07},  // operation
    {0x04, 0x08},  // long write
};

/// The descriptor of this type in sense bytes of descriptor format, its head included; empty when there is none.
std::span<const std::uint8_t> descriptor_of(std::span<const std::uint8_t> sense, std::uint8_t type) {
    constexpr std::size_t head = 8;
    const std::size_t end = std::min<std::size_t>(sense.size(), head + util::load_u8(sense, 7));
    for (std::size_t at = head; at + 2 <= end;) {
        const std::size_t size = std::size_t{2} + sense[at + 1];
        if (sense[at] == type) {
            return sense.subspan(at, std::min(size, end - at));
        }
        at += size;
    }
    return {};
}

bool is_descriptor_format(std::span<const std::uint8_t> sense) {
    return (util::load_u8(sense, 0) & 0x7E) == 0x72;
}

/// Old drives tell a mark or the end of the medium by these bits alone, without an additional sense code.
std::uint32_t error_of_stream_bits(std::span<const std::uint8_t> sense) {
    constexpr std::uint8_t stream_commands = 0x04;
    constexpr std::uint8_t filemark = 0x80;
    constexpr std::uint8_t end_of_medium = 0x40;
    const std::uint8_t bits =
        is_descriptor_format(sense) ? util::load_u8(descriptor_of(sense, stream_commands), 3) : util::load_u8(sense, 2);
    if ((bits & filemark) != 0) {
        return error::filemark_detected;
    }
    return (bits & end_of_medium) != 0 ? error::end_of_media : error::success;
}

}  // namespace

std::uint32_t tape_error_of_sense(std::span<const std::uint8_t> sense) {
    const std::optional<sense_code> code = decode_sense(sense);
    if (!code) {
        return error::io_device;
    }
    if (code->key == sense_key::no_sense && code->asc == 0 && code->ascq == 0) {
        return error_of_stream_bits(sense);
    }
    const std::uint32_t found = system_error_of(*code, tape_rules);
    return found == error::success && code->deferred ? error::io_device : found;
}

std::uint32_t tape_error_of(const scsi_outcome& outcome) {
    const bool has_sense = outcome.transport_error == 0 && outcome.scsi_status == scsi_status::check_condition;
    return has_sense ? tape_error_of_sense(outcome.sense) : system_error_without_sense(outcome);
}

bool is_refused(const scsi_outcome& outcome) {
    return is_check_condition(outcome, sense_key::illegal_request) && tape_error_of(outcome) == error::not_supported;
}

bool tells_operation_in_progress(const sense_code& code) {
    return (code.key == sense_key::no_sense || code.key == sense_key::not_ready) &&
           std::any_of(std::begin(in_progress), std::end(in_progress),
                       [&code](const additional_sense& one) { return one.asc == code.asc && one.ascq == code.ascq; });
}

std::optional<std::uint16_t> progress_of(std::span<const std::uint8_t> sense) {
    constexpr std::uint8_t sense_key_specific = 0x02;
    constexpr std::size_t specific_size = 3;
    constexpr std::uint8_t valid = 0x80;
    const std::span<const std::uint8_t> specific = is_descriptor_format(sense)
                                                       ? util::slice(descriptor_of(sense, sense_key_specific), 4, specific_size)
                                                       : util::slice(sense, 15, specific_size);
    if (specific.size() < specific_size || (specific[0] & valid) == 0) {
        return std::nullopt;
    }
    return util::load_be16(specific, 1);
}

}  // namespace platform::device_stack
