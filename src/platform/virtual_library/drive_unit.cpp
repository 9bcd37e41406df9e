#include "platform/virtual_library/drive_unit.h"

#include "foundation/util/bytes.h"

namespace platform::tape_library {

namespace {

constexpr std::uint8_t tape_device = 0x01;
constexpr std::uint8_t page_compression = 0x0F;
constexpr std::uint8_t page_device_configuration = 0x10;
constexpr std::uint8_t vital_page_capabilities = 0xB0;
constexpr std::uint8_t write_protected_bit = 0x80;
constexpr std::uint8_t buffered_mode = 0x10;

unit_identity identity_of(const drive_definition& definition) {
    // SAM-5, SPC-4, SSC-4.
    return {tape_device, definition.vendor, definition.product, definition.revision, definition.serial, {0x00A0, 0x0460, 0x0520}};
}

}  // namespace

drive_unit::drive_unit(library_core& core, std::uint8_t number, const drive_definition& definition, std::uint16_t address)
    : logical_unit(core, number, identity_of(definition)), address_(address) {}

const command_table<drive_unit>& drive_unit::commands() {
    using self = drive_unit;
    static const command_table<drive_unit> table(&self::refuse, {
                                                                    {opcode::test_unit_ready, &self::test_unit_ready, {6}},
                                                                    {opcode::rewind, &self::rewind, {6}},
                                                                    {opcode::request_sense, &self::request_sense, {6, true, true}},
                                                                    {opcode::read_block_limits, &self::read_block_limits, {6}},
                                                                    {opcode::inquiry, &self::inquiry, {6, true, true}},
                                                                    {opcode::reserve_6, &self::reserve, {6}},
                                                                    {opcode::release_6, &self::release, {6, false, true}},
                                                                    {opcode::mode_sense_6, &self::mode_sense_6, {6}},
                                                                    {opcode::load_unload, &self::load_unload, {6}},
                                                                    {opcode::prevent_allow, &self::prevent_allow, {6}},
                                                                    {opcode::log_sense, &self::log_sense, {10, false, true}},
                                                                    {opcode::reserve_10, &self::reserve, {10}},
                                                                    {opcode::release_10, &self::release, {10, false, true}},
                                                                    {opcode::mode_sense_10, &self::mode_sense_10, {10}},
                                                                    {opcode::report_luns, &self::report_luns, {12, true, true}},
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

void drive_unit::cartridge_arrived() {
    loading_ = true;
    ready_at_ = clock_now() + core_.made_of.timings.load;
    loaded_by_ = nullptr;
    settle();
}

void drive_unit::cartridge_left() {
    loading_ = false;
}

void drive_unit::settle() {
    if (loading_ && clock_now() >= ready_at_) {
        loading_ = false;
        raise(sense::medium_may_have_changed, loaded_by_);
    }
}

void drive_unit::forget(const nexus& initiator) {
    if (loaded_by_ == &initiator) {
        loaded_by_ = nullptr;
    }
}

sense_code drive_unit::readiness() const {
    const element& here = place();
    if (!here.medium || !here.loaded) {
        return sense::medium_not_present;
    }
    if (loading_) {
        return sense::becoming_ready;
    }
    return here.medium->cleaning ? sense::cleaning_cartridge : sense::none;
}

command_result drive_unit::test_unit_ready(command_request&) {
    const sense_code state = readiness();
    return state == sense::none ? command_result::good() : command_result::check(state);
}

command_result drive_unit::rewind(command_request& request) {
    if (const sense_code state = readiness(); state != sense::none) {
        return command_result::check(state);
    }
    const bool immediate = (request.cdb[1] & 0x01) != 0;
    if (!immediate && !request.wait_until(clock_now() + core_.made_of.timings.rewind + request.extra_time)) {
        return command_result::transport(error::semaphore_timeout);
    }
    return command_result::good();
}

command_result drive_unit::read_block_limits(command_request&) {
    byte_vector reply(6);
    util::store_be24(reply, 1, core_.made_of.drive.maximum_block);
    util::store_be16(reply, 4, core_.made_of.drive.minimum_block);
    return command_result::with_data(std::move(reply), 6);
}

bool drive_unit::set_loaded(bool loaded) {
    element& here = *core_.elements.find(address_);
    const bool former = here.loaded;
    here.loaded = loaded;
    if (core_.store.save(core_.elements) == error::success) {
        return true;
    }
    here.loaded = former;
    return false;
}

command_result drive_unit::load_unload(command_request& request) {
    if (!place().medium) {
        return command_result::check(sense::medium_not_present);
    }
    return (request.cdb[4] & 0x01) != 0 ? load(request) : unload(request);
}

command_result drive_unit::load(command_request& request) {
    if (!place().loaded) {
        if (!set_loaded(true)) {
            return command_result::check(sense::internal_failure);
        }
        loading_ = true;
        ready_at_ = clock_now() + core_.made_of.timings.load;
        loaded_by_ = &request.initiator;
    }
    const bool immediate = (request.cdb[1] & 0x01) != 0;
    if (!immediate && loading_ && !request.wait_until(ready_at_)) {
        return command_result::transport(error::semaphore_timeout);
    }
    settle();
    return command_result::good();
}

command_result drive_unit::unload(command_request& request) {
    if (removal_prevented()) {
        return command_result::check(sense::removal_prevented);
    }
    if (!place().loaded) {
        return command_result::good();
    }
    const bool immediate = (request.cdb[1] & 0x01) != 0;
    const bool in_time = immediate || request.wait_until(clock_now() + core_.made_of.timings.unload);
    // Time has passed without the lock: the robot may have taken the cartridge meanwhile.
    if (place().medium && place().loaded) {
        if (!set_loaded(false)) {
            return command_result::check(sense::internal_failure);
        }
        loading_ = false;
    }
    return in_time ? command_result::good() : command_result::transport(error::semaphore_timeout);
}

std::vector<std::uint8_t> drive_unit::more_vital_pages() const {
    return {vital_page_capabilities};
}

byte_vector drive_unit::vital_page_body(std::uint8_t) const {
    return {static_cast<std::uint8_t>(core_.made_of.drive.worm_capable ? 0x01 : 0x00), 0};
}

std::vector<std::uint8_t> drive_unit::mode_pages() const {
    return {page_compression, page_device_configuration};
}

byte_vector drive_unit::mode_page(std::uint8_t page) const {
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
    const element& here = place();
    if (!here.medium || !here.loaded) {
        return 0;
    }
    return here.medium->worm ? core_.made_of.drive.worm_medium_type : core_.made_of.drive.medium_type;
}

std::uint8_t drive_unit::device_specific() const {
    const element& here = place();
    const bool write_protected = here.medium && here.loaded && here.medium->write_protected;
    return static_cast<std::uint8_t>(buffered_mode | (write_protected ? write_protected_bit : 0));
}

byte_vector drive_unit::block_descriptor() const {
    return {core_.made_of.drive.density_code, 0, 0, 0, 0, 0, 0, 0};
}

}  // namespace platform::tape_library
