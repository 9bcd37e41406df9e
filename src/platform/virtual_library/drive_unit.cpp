#include "platform/virtual_library/drive_unit.h"

#include <algorithm>
#include <utility>

#include "foundation/util/bytes.h"

namespace platform::tape_library {

namespace {

constexpr std::uint8_t tape_device = 0x01;
constexpr std::uint8_t page_compression = 0x0F;
constexpr std::uint8_t page_device_configuration = 0x10;
constexpr std::uint8_t page_partitions = 0x11;
constexpr std::uint8_t vital_page_capabilities = 0xB0;
constexpr std::uint8_t write_protected_bit = 0x80;
constexpr std::uint8_t buffered_mode = 0x10;
constexpr std::uint8_t maximum_object_identifier = 0x01;

// Service actions of READ POSITION, and the first byte of what it tells.
constexpr std::uint8_t position_short = 0x00;
constexpr std::uint8_t position_long = 0x06;
constexpr std::uint8_t position_extended = 0x08;
constexpr std::uint8_t beginning_of_partition = 0x80;

command_result checked(const sense_code& state) {
    return state == sense::none ? command_result::good() : command_result::check(state);
}

unit_identity identity_of(const drive_definition& definition) {
    // SAM-5, SPC-4, SSC-4.
    return {tape_device, definition.vendor, definition.product, definition.revision, definition.serial, {0x00A0, 0x0460, 0x0520}};
}

}  // namespace

std::uint64_t to_megabytes(std::uint64_t mebibytes) {
    return mebibytes * 1024 * 1024 / 1'000'000;
}

drive_unit::drive_unit(library_core& core, std::uint8_t number, const drive_definition& definition, std::uint16_t address)
    : logical_unit(core, number, identity_of(definition)), address_(address) {}

const command_table<drive_unit>& drive_unit::commands() {
    using self = drive_unit;
    constexpr command_traits always{.ignores_attention = true, .ignores_reservation = true, .while_occupied = true};
    constexpr command_traits report{.while_occupied = true};
    constexpr command_traits report_10{.length = 10, .while_occupied = true};
    constexpr command_traits unreserved{.ignores_reservation = true, .while_occupied = true};
    constexpr command_traits unreserved_10{.length = 10, .ignores_reservation = true, .while_occupied = true};
    constexpr command_traits luns{.length = 12, .ignores_attention = true, .ignores_reservation = true, .while_occupied = true};
    static const command_table<drive_unit> table(&self::refuse,
                                                 {
                                                     {opcode::test_unit_ready, &self::test_unit_ready, {}},
                                                     {opcode::rewind, &self::rewind, {}},
                                                     {opcode::request_sense, &self::request_sense, always},
                                                     {opcode::format_medium, &self::format_medium, {}},
                                                     {opcode::read_block_limits, &self::read_block_limits, report},
                                                     {opcode::inquiry, &self::inquiry, always},
                                                     {opcode::reserve_6, &self::reserve, report},
                                                     {opcode::release_6, &self::release, unreserved},
                                                     {opcode::erase_6, &self::erase, {}},
                                                     {opcode::mode_sense_6, &self::mode_sense, report},
                                                     {opcode::load_unload, &self::load_unload, {}},
                                                     {opcode::prevent_allow_medium_removal, &self::prevent_allow, report},
                                                     {opcode::read_position, &self::read_position, {.length = 10}},
                                                     {opcode::log_sense, &self::log_sense, unreserved_10},
                                                     {opcode::reserve_10, &self::reserve, report_10},
                                                     {opcode::release_10, &self::release, unreserved_10},
                                                     {opcode::mode_sense_10, &self::mode_sense, report_10},
                                                     {opcode::read_attribute, &self::read_attribute, {.length = 16}},
                                                     {opcode::report_luns, &self::report_luns, luns},
                                                 });
    return table;
}

const command_traits& drive_unit::traits_of(std::uint8_t code) const {
    return commands().at(code).traits;
}

command_result drive_unit::dispatch(command_request& request) {
    return (this->*commands().at(request.cdb[0]).serve)(request);
}

std::string drive_unit::shown_serial() const {
    return core_.faults.drive_serial().value_or(identity().serial);
}

const cartridge* drive_unit::threaded() const {
    const element& here = place();
    return here.medium && here.loaded ? &*here.medium : nullptr;
}

const cartridge* drive_unit::usable() const {
    return readiness() == sense::none ? threaded() : nullptr;
}

sense_code drive_unit::readiness() const {
    const cartridge* medium = threaded();
    if (medium == nullptr) {
        return sense::medium_not_present;
    }
    if (loading_) {
        return sense::becoming_ready;
    }
    return medium->cleaning ? sense::cleaning_cartridge : sense::none;
}

command_result drive_unit::test_unit_ready(command_request&) {
    return checked(readiness());
}

command_result drive_unit::read_block_limits(command_request& request) {
    if ((request.cdb[1] & maximum_object_identifier) != 0) {
        return command_result::check(sense::invalid_field);
    }
    byte_vector reply(6);
    util::store_be24(reply, 1, core_.made_of.drive.maximum_block);
    util::store_be16(reply, 4, core_.made_of.drive.minimum_block);
    return command_result::with_data(std::move(reply), 6);
}

/// The drive transfers no data: the tape is at its beginning whenever it can be asked.
command_result drive_unit::read_position(command_request& request) {
    const std::uint8_t form = request.cdb[1] & 0x1F;
    const std::uint16_t allocation = util::load_be16(request.cdb, 7);
    const bool known = form == position_short || form == position_long || form == position_extended;
    // The two older forms have a fixed length and no allocation length.
    if (!known || (form != position_extended && allocation != 0)) {
        return command_result::check(sense::invalid_field);
    }
    if (const sense_code state = readiness(); state != sense::none) {
        return command_result::check(state);
    }
    byte_vector reply(form == position_short ? 20 : 32);
    reply[0] = beginning_of_partition;
    if (form == position_extended) {
        util::store_be16(reply, 2, 32 - 4);
        return command_result::with_data(std::move(reply), allocation);
    }
    return command_result::with_data(std::move(reply), 32);
}

std::vector<std::uint8_t> drive_unit::more_vital_pages() const {
    return {vital_page_capabilities};
}

byte_vector drive_unit::vital_page_body(std::uint8_t) const {
    return {static_cast<std::uint8_t>(core_.made_of.drive.worm_capable ? 0x01 : 0x00), 0};
}

std::vector<std::uint8_t> drive_unit::mode_pages() const {
    return {page_compression, page_device_configuration, page_partitions};
}

byte_vector drive_unit::mode_page(std::uint8_t page) const {
    if (page == page_partitions) {
        // One partition and no more, whose size is told in units of a thousand million bytes; format and partition are recognised.
        const cartridge* medium = usable();
        byte_vector bytes{page, 8, 0, 0, 0x18, 0x03, 0x09, 0, 0, 0};
        const std::uint64_t gigabytes = medium == nullptr ? 0 : to_megabytes(medium->capacity) / 1000;
        util::store_be16(bytes, 8, static_cast<std::uint16_t>(std::min<std::uint64_t>(gigabytes, 0xFFFF)));
        return bytes;
    }
    byte_vector bytes(16);
    bytes[0] = page;
    bytes[1] = 14;
    if (page == page_compression) {
        bytes[2] = 0xC0;  // compression enabled, and capable of it
        bytes[3] = 0x80;  // decompression enabled
        bytes[7] = 0x01;  // algorithms: the drive's default
        bytes[11] = 0x01;
    } else {
        bytes[8] = 0x40;   // block identifiers are supported
        bytes[10] = 0x18;  // end of data is made by format, and on early warning the buffer is synchronised
        bytes[14] = 0x01;  // the default compression algorithm
    }
    return bytes;
}

std::uint8_t drive_unit::medium_type() const {
    const cartridge* medium = threaded();
    if (medium == nullptr || medium->cleaning) {
        return 0;
    }
    return medium->worm ? core_.made_of.drive.worm_medium_type : core_.made_of.drive.medium_type;
}

std::uint8_t drive_unit::device_specific() const {
    const cartridge* medium = threaded();
    const bool write_protected = medium != nullptr && medium->write_protected;
    return static_cast<std::uint8_t>(buffered_mode | (write_protected ? write_protected_bit : 0));
}

byte_vector drive_unit::block_descriptor() const {
    return {core_.made_of.drive.density_code, 0, 0, 0, 0, 0, 0, 0};
}

}  // namespace platform::tape_library
