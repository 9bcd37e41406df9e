#include "platform/device_stack/sense_error.h"

#include <algorithm>

#include "foundation/util/bytes.h"
#include "platform/errors.h"

namespace platform::device_stack {

namespace {

constexpr int any = any_sense;

// The causes of "not ready" that have a number of their own stand before the key's rule.
constexpr sense_rule changer_rules[] = {
    {sense_key::no_sense, any, any, error::success},
    {sense_key::recovered_error, any, any, error::success},
    {any, 0x3B, 0x0E, error::source_element_empty},
    {any, 0x3B, 0x0D, error::destination_element_full},
    {any, 0x21, 0x01, error::illegal_element_address},
    {any, 0x3B, 0x11, error::magazine_not_present},
    {any, 0x04, 0x18, error::device_door_open},
    {any, 0x28, 0x00, error::media_changed},
    {any, 0x29, any, error::bus_reset},
    {any, 0x3A, any, error::no_media_in_drive},
    {sense_key::not_ready, any, any, error::not_ready},
};

bool fits(int wanted, std::uint8_t value) {
    return wanted == any || wanted == value;
}

}  // namespace

std::uint32_t system_error_of(const sense_code& code, std::span<const sense_rule> rules) {
    const auto rule = std::find_if(rules.begin(), rules.end(), [&code](const sense_rule& one) {
        return fits(one.key, code.key) && fits(one.asc, code.asc) && fits(one.ascq, code.ascq);
    });
    return rule != rules.end() ? rule->system_error : error::io_device;
}

std::optional<sense_code> decode_sense(std::span<const std::uint8_t> sense) {
    const std::uint8_t response = util::load_u8(sense, 0) & 0x7F;
    switch (response) {
        case 0x70:
        case 0x71:
            return sense_code{static_cast<std::uint8_t>(util::load_u8(sense, 2) & 0x0F), util::load_u8(sense, 12),
                              util::load_u8(sense, 13), response == 0x71};
        case 0x72:
        case 0x73:
            return sense_code{static_cast<std::uint8_t>(util::load_u8(sense, 1) & 0x0F), util::load_u8(sense, 2),
                              util::load_u8(sense, 3), response == 0x73};
        default:
            return std::nullopt;
    }
}

bool is_check_condition(const scsi_outcome& outcome, std::uint8_t key) {
    if (outcome.transport_error != 0 || outcome.scsi_status != scsi_status::check_condition) {
        return false;
    }
    const std::optional<sense_code> code = decode_sense(outcome.sense);
    return code && code->key == key;
}

std::uint32_t system_error_without_sense(const scsi_outcome& outcome) {
    if (outcome.transport_error != 0) {
        return outcome.transport_error;
    }
    switch (outcome.scsi_status) {
        case scsi_status::good:
        case scsi_status::condition_met:
            return error::success;
        case scsi_status::busy:
        case scsi_status::reservation_conflict:
        case scsi_status::task_set_full:
            return error::busy;
        default:
            return error::io_device;
    }
}

std::uint32_t system_error_of(const scsi_outcome& outcome) {
    if (outcome.transport_error != 0 || outcome.scsi_status != scsi_status::check_condition) {
        return system_error_without_sense(outcome);
    }
    const std::optional<sense_code> code = decode_sense(outcome.sense);
    return code ? system_error_of(*code, changer_rules) : error::io_device;
}

}  // namespace platform::device_stack
