#include "platform/virtual_library/changer_unit.h"

#include <algorithm>
#include <utility>

#include "foundation/util/bytes.h"
#include "platform/virtual_library/element_status.h"

namespace platform::tape_library {

namespace {

constexpr std::uint8_t changer_device = 0x08;
constexpr std::uint8_t page_addresses = 0x1D;
constexpr std::uint8_t page_geometry = 0x1E;
constexpr std::uint8_t page_capabilities = 0x1F;

// Bits of the capabilities page: which types a move may end at.
constexpr std::uint8_t to_slots_ports_drives = 0x0E;

unit_identity identity_of(const personality& made_of) {
    // SAM-5, SPC-4, SMC-3.
    return {changer_device, made_of.vendor, made_of.product, made_of.revision, made_of.serial, {0x00A0, 0x0460, 0x0480}};
}

}  // namespace

changer_unit::changer_unit(library_core& core, const drive_list& drives)
    : logical_unit(core, 0, identity_of(core.made_of)), drives_(drives) {}

const command_table<changer_unit>& changer_unit::commands() {
    using self = changer_unit;
    static const command_table<changer_unit> table(
        &self::refuse, {
                           {opcode::test_unit_ready, &self::test_unit_ready, {6}},
                           {opcode::request_sense, &self::request_sense, {6, true, true}},
                           {opcode::initialize_element_status, &self::take_inventory, {6, false, false, true}},
                           {opcode::inquiry, &self::inquiry, {6, true, true}},
                           {opcode::reserve_6, &self::reserve, {6}},
                           {opcode::release_6, &self::release, {6, false, true}},
                           {opcode::mode_sense_6, &self::mode_sense, {6}},
                           {opcode::prevent_allow_medium_removal, &self::prevent_allow, {6}},
                           {opcode::position_to_element, &self::position_to_element, {10, false, false, true}},
                           {opcode::initialize_element_status_with_range, &self::take_inventory, {10, false, false, true}},
                           {opcode::log_sense, &self::log_sense, {10, false, true}},
                           {opcode::reserve_10, &self::reserve, {10}},
                           {opcode::release_10, &self::release, {10, false, true}},
                           {opcode::mode_sense_10, &self::mode_sense, {10}},
                           {opcode::report_luns, &self::report_luns, {12, true, true}},
                           {opcode::move_medium, &self::move_medium, {12, false, false, true}},
                           {opcode::exchange_medium, &self::exchange_medium, {12, false, false, true}},
                           {opcode::read_element_status, &self::read_element_status, {12}},
                       });
    return table;
}

const command_traits& changer_unit::traits_of(std::uint8_t code) const {
    return commands().at(code).traits;
}

command_result changer_unit::dispatch(command_request& request) {
    return (this->*commands().at(request.cdb[0]).serve)(request);
}

/// What the drives do decides which cartridges can be taken.
void changer_unit::settle() {
    for (const auto& drive : drives_) {
        drive->bring_up_to_date();
    }
}

std::vector<std::uint8_t> changer_unit::mode_pages() const {
    return {page_addresses, page_geometry, page_capabilities};
}

byte_vector changer_unit::mode_page(std::uint8_t page) const {
    const personality& made_of = core_.made_of;
    if (page == page_addresses) {
        byte_vector bytes(20);
        bytes[0] = page;
        bytes[1] = 18;
        std::size_t at = 2;
        for (const element_range& range : {made_of.transports, made_of.slots, made_of.ports, made_of.drives}) {
            util::store_be16(bytes, at, range.first);
            util::store_be16(bytes, at + 2, range.count);
            at += 4;
        }
        return bytes;
    }
    if (page == page_geometry) {
        // Two bytes for each transport: it can't rotate a medium, and its number in its set.
        const std::size_t transports = std::min<std::size_t>(made_of.transports.count, 120);
        byte_vector bytes{page, static_cast<std::uint8_t>(2 * transports)};
        for (std::size_t number = 0; number < transports; ++number) {
            bytes.insert(bytes.end(), {0, static_cast<std::uint8_t>(number)});
        }
        return bytes;
    }
    byte_vector bytes(20);
    bytes[0] = page;
    bytes[1] = 18;
    bytes[2] = to_slots_ports_drives;  // these store a medium; the transport only carries it
    std::fill(bytes.begin() + 4, bytes.begin() + 8, to_slots_ports_drives);
    if (made_of.exchange) {
        std::fill(bytes.begin() + 13, bytes.begin() + 16, to_slots_ports_drives);
    }
    return bytes;
}

command_result changer_unit::test_unit_ready(command_request&) {
    return core_.door_open ? command_result::check(sense::door_open) : command_result::good();
}

std::optional<std::uint16_t> changer_unit::transport_address(std::uint16_t named) const {
    const element_group& transports = core_.elements.group(ChangerTransport);
    if (transports.has(named)) {
        return named;
    }
    return named == 0 ? std::optional<std::uint16_t>(transports.first) : std::nullopt;
}

drive_unit* changer_unit::drive_at(std::uint16_t address) const {
    const element_group& drives = core_.elements.group(ChangerDrive);
    return drives.has(address) ? drives_[static_cast<std::size_t>(address - drives.first)].get() : nullptr;
}

std::optional<bool> changer_unit::work(const command_request& request, std::int64_t duration) {
    const std::int64_t begin = std::max(clock_now(), core_.robot_free_at);
    const std::int64_t end = begin + duration;
    if (begin > request.deadline) {
        // Given up before its turn comes: it must not keep the robot from those that wait behind it.
        (void)request.wait_until(begin);
        return std::nullopt;
    }
    core_.robot_free_at = end;
    (void)request.wait_until(begin);
    const bool in_time = request.wait_until(end);
    settle();
    return in_time;
}

command_result changer_unit::take_inventory(command_request& request) {
    if (core_.door_open) {
        return command_result::check(sense::door_open);
    }
    const std::optional<bool> in_time = work(request, core_.made_of.timings.inventory + request.extra_time);
    if (!in_time.value_or(false)) {
        return command_result::transport(error::semaphore_timeout);
    }
    stow_stranded();
    return command_result::good();
}

/// A robot that checks its elements brings a cartridge in its hand back to where it came from, if that place is still free.
void changer_unit::stow_stranded() {
    const element_group& transports = core_.elements.group(ChangerTransport);
    for (std::uint32_t address = transports.first; address < transports.end(); ++address) {
        const element* hand = core_.elements.find(static_cast<std::uint16_t>(address));
        if (!hand->medium || !hand->medium->source) {
            continue;
        }
        const std::uint16_t home = *hand->medium->source;
        const element* place = core_.elements.find(home);
        if (place != nullptr && !place->medium) {
            (void)carry_out({{static_cast<std::uint16_t>(address), home}});
        }
    }
}

command_result changer_unit::position_to_element(command_request& request) {
    const std::optional<std::uint16_t> transport = transport_address(util::load_be16(request.cdb, 2));
    const std::uint16_t destination = util::load_be16(request.cdb, 4);
    const ELEMENT_TYPE type = core_.elements.type_of(destination);
    if (!transport || type == AllElements || type == ChangerTransport) {
        return command_result::check(sense::invalid_element_address);
    }
    if ((request.cdb[8] & 0x01) != 0) {
        return command_result::check(sense::invalid_field);
    }
    if (core_.door_open) {
        return command_result::check(sense::door_open);
    }
    const std::optional<bool> in_time = work(request, core_.made_of.timings.position + request.extra_time);
    return in_time.value_or(false) ? command_result::good() : command_result::transport(error::semaphore_timeout);
}

/// Starting address, count and element types of READ ELEMENT STATUS are judged by `build_element_status`.
command_result changer_unit::read_element_status(command_request& request) {
    element_status_request wanted;
    wanted.type = request.cdb[1] & 0x0F;
    wanted.volume_tags = (request.cdb[1] & 0x10) != 0;
    wanted.first = util::load_be16(request.cdb, 2);
    wanted.count = util::load_be16(request.cdb, 4);
    wanted.device_identifiers = (request.cdb[6] & 0x01) != 0;
    wanted.allocation = util::load_be24(request.cdb, 7);
    const personality& made_of = core_.made_of;
    if (wanted.type > ChangerDrive || (wanted.volume_tags && !made_of.volume_tags) ||
        (wanted.device_identifiers && !made_of.device_identifiers)) {
        return command_result::check(sense::invalid_field);
    }
    const auto drive_identity = [this](std::uint16_t address) {
        const drive_unit& drive = *drive_at(address);
        unit_identity identity = drive.identity();
        identity.serial = drive.shown_serial();
        return identity;
    };
    const auto drive_blocked = [this](std::uint16_t address) {
        const element& place = *core_.elements.find(address);
        const drive_unit& drive = *drive_at(address);
        return place.loaded && (!core_.made_of.unload_on_move || drive.removal_prevented() || drive.holds_cartridge());
    };
    std::optional<byte_vector> reply =
        build_element_status(core_.elements, made_of, wanted, {drive_identity, drive_blocked, core_.ports_open});
    return reply ? command_result::with_data(std::move(*reply), wanted.allocation)
                 : command_result::check(sense::invalid_element_address);
}

}  // namespace platform::tape_library
