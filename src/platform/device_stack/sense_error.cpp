#include "platform/device_stack/sense_error.h"

#include "foundation/util/bytes.h"
#include "platform/errors.h"

namespace platform::device_stack {

namespace {

constexpr int any = -1;

struct sense_rule {
    int key;
    int asc;
    int ascq;
    std::uint32_t system_error;
};

// The first rule that fits decides. The causes of "not ready" that have a number of their own stand before the key's rule.
constexpr sense_rule sense_rules[] = {
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

std::uint32_t error_of_sense(std::span<const std::uint8_t> sense) {
    const std::optional<sense_code> code = decode_sense(sense);
    if (!code) {
        return error::io_device;
    }
    for (const sense_rule& rule : sense_rules) {
        if (fits(rule.key, code->key) && fits(rule.asc, code->asc) && fits(rule.ascq, code->ascq)) {
            return rule.system_error;
        }
    }
    return error::io_device;
}

}  // namespace

std::optional<sense_code> decode_sense(std::span<const std::uint8_t> sense) {
    switch (util::load_u8(sense, 0) & 0x7F) {
        case 0x70:
        case 0x71:
            return sense_code{static_cast<std::uint8_t>(util::load_u8(sense, 2) & 0x0F), util::load_u8(sense, 12),
                              util::load_u8(sense, 13)};
        case 0x72:
        case 0x73:
            return sense_code{static_cast<std::uint8_t>(util::load_u8(sense, 1) & 0x0F), util::load_u8(sense, 2),
                              util::load_u8(sense, 3)};
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

std::uint32_t system_error_of(const scsi_outcome& outcome) {
    if (outcome.transport_error != 0) {
        return outcome.transport_error;
    }
    switch (outcome.scsi_status) {
        case scsi_status::good:
        case scsi_status::condition_met:
            return error::success;
        case scsi_status::check_condition:
            return error_of_sense(outcome.sense);
        case scsi_status::busy:
        case scsi_status::reservation_conflict:
        case scsi_status::task_set_full:
            return error::busy;
        default:
            return error::io_device;
    }
}

}  // namespace platform::device_stack
