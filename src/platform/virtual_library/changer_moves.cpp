#include <algorithm>
#include <utility>

#include "foundation/util/bytes.h"
#include "platform/virtual_library/changer_unit.h"

namespace platform::tape_library {

/// An element that the robot can reach at the moment.
sense_code changer_unit::check_place(std::uint16_t address) const {
    const ELEMENT_TYPE type = core_.elements.type_of(address);
    if (type == AllElements) {
        return sense::invalid_element_address;
    }
    return type == ChangerIEPort && core_.ports_open ? sense::magazine_not_accessible : sense::none;
}

sense_code changer_unit::check_source(std::uint16_t address) const {
    const element& place = *core_.elements.find(address);
    if (!place.medium) {
        return sense::source_empty;
    }
    if (const drive_unit* drive = drive_at(address); drive != nullptr && place.loaded) {
        if (!core_.made_of.unload_on_move || drive->removal_prevented() || drive->holds_cartridge()) {
            return sense::removal_prevented;
        }
    }
    return sense::none;
}

/// A hand that holds a cartridge can only put that one down.
sense_code changer_unit::check_robot(std::uint16_t transport, std::uint16_t source) const {
    if (core_.door_open) {
        return sense::door_open;
    }
    const bool hand_full = core_.elements.find(transport)->medium.has_value();
    return hand_full && source != transport ? sense::mechanical_error : sense::none;
}

sense_code changer_unit::check_move(std::uint16_t transport, const step& wanted) const {
    for (const std::uint16_t address : {wanted.source, wanted.destination}) {
        if (const sense_code code = check_place(address); code != sense::none) {
            return code;
        }
    }
    if (core_.elements.type_of(wanted.destination) == ChangerTransport) {
        return sense::invalid_element_address;
    }
    if (const sense_code code = check_robot(transport, wanted.source); code != sense::none) {
        return code;
    }
    if (const sense_code code = check_source(wanted.source); code != sense::none) {
        return code;
    }
    // A move to where the cartridge already is moves nothing and is no error.
    const bool full = core_.elements.find(wanted.destination)->medium.has_value();
    return full && wanted.source != wanted.destination ? sense::destination_full : sense::none;
}

sense_code changer_unit::check_exchange(std::uint16_t transport, const step& first, const step& second) const {
    for (const std::uint16_t address : {first.source, first.destination, second.destination}) {
        if (const sense_code code = check_place(address); code != sense::none) {
            return code;
        }
        if (core_.elements.type_of(address) == ChangerTransport) {
            return sense::invalid_element_address;
        }
    }
    if (first.source == first.destination || first.destination == second.destination) {
        return sense::invalid_field;
    }
    if (const sense_code code = check_robot(transport, first.source); code != sense::none) {
        return code;
    }
    for (const std::uint16_t address : {first.source, first.destination}) {
        if (const sense_code code = check_source(address); code != sense::none) {
            return code;
        }
    }
    const bool full = core_.elements.find(second.destination)->medium.has_value();
    return full && second.destination != first.source ? sense::destination_full : sense::none;
}

std::int64_t changer_unit::duration(std::uint16_t source, const command_request& request) const {
    const bool ejects = core_.elements.find(source)->loaded;
    return core_.made_of.timings.move + (ejects ? core_.made_of.timings.unload : 0) + request.extra_time;
}

bool changer_unit::carry_out(const std::vector<step>& steps) {
    std::vector<std::pair<std::uint16_t, element>> former;
    for (const step& each : steps) {
        former.emplace_back(each.source, *core_.elements.find(each.source));
        former.emplace_back(each.destination, *core_.elements.find(each.destination));
    }
    // Taken out together and put in together: an exchange has both cartridges in the robot's hands for a moment.
    if (steps.size() == 1) {
        core_.elements.move(steps[0].source, steps[0].destination);
    } else {
        core_.elements.exchange(steps[0].source, steps[0].destination, steps[1].destination);
    }
    if (core_.store.save(core_.elements) != error::success) {
        for (auto& [address, content] : former) {
            *core_.elements.find(address) = content;
        }
        return false;
    }
    for (const step& each : steps) {
        if (drive_unit* drive = drive_at(each.source)) {
            drive->cartridge_left();
        }
    }
    for (const step& each : steps) {
        if (drive_unit* drive = drive_at(each.destination)) {
            drive->cartridge_arrived();
        }
    }
    return true;
}

/// The robot gives up on its way. Where the cartridge then is must be as durable as a finished move.
command_result changer_unit::stop_half_way(std::uint16_t transport, const step& wanted, bool in_transport) {
    if (in_transport && wanted.source != transport && !carry_out({{wanted.source, transport}})) {
        return command_result::check(sense::internal_failure);
    }
    return command_result::check(sense::mechanical_error);
}

command_result changer_unit::move_medium(command_request& request) {
    const std::optional<std::uint16_t> transport = transport_address(util::load_be16(request.cdb, 2));
    const step wanted{util::load_be16(request.cdb, 4), util::load_be16(request.cdb, 6)};
    if (!transport) {
        return command_result::check(sense::invalid_element_address);
    }
    if ((request.cdb[10] & 0x01) != 0) {
        return command_result::check(sense::invalid_field);
    }
    if (const sense_code code = check_move(*transport, wanted); code != sense::none) {
        return command_result::check(code);
    }
    const std::optional<bool> in_time = work(request, duration(wanted.source, request));
    if (!in_time) {
        return command_result::transport(error::semaphore_timeout);
    }
    // Time has passed without the lock: another move may have changed the elements.
    if (const sense_code code = check_move(*transport, wanted); code != sense::none) {
        return command_result::check(code);
    }
    if (request.stops_half_way) {
        return stop_half_way(*transport, wanted, *request.stops_half_way);
    }
    if (wanted.source != wanted.destination && !carry_out({wanted})) {
        return command_result::check(sense::internal_failure);
    }
    return *in_time ? command_result::good() : command_result::transport(error::semaphore_timeout);
}

command_result changer_unit::exchange_medium(command_request& request) {
    if (!core_.made_of.exchange) {
        return command_result::check(sense::invalid_opcode);
    }
    const std::optional<std::uint16_t> transport = transport_address(util::load_be16(request.cdb, 2));
    const step first{util::load_be16(request.cdb, 4), util::load_be16(request.cdb, 6)};
    const step second{first.destination, util::load_be16(request.cdb, 8)};
    if (!transport) {
        return command_result::check(sense::invalid_element_address);
    }
    if ((request.cdb[10] & 0x03) != 0) {
        return command_result::check(sense::invalid_field);
    }
    if (const sense_code code = check_exchange(*transport, first, second); code != sense::none) {
        return command_result::check(code);
    }
    const std::int64_t unload = core_.elements.find(second.source)->loaded ? core_.made_of.timings.unload : 0;
    const std::int64_t whole = duration(first.source, request) + core_.made_of.timings.move + unload;
    const std::optional<bool> in_time = work(request, whole);
    if (!in_time) {
        return command_result::transport(error::semaphore_timeout);
    }
    if (const sense_code code = check_exchange(*transport, first, second); code != sense::none) {
        return command_result::check(code);
    }
    if (!carry_out({first, second})) {
        return command_result::check(sense::internal_failure);
    }
    return *in_time ? command_result::good() : command_result::transport(error::semaphore_timeout);
}

}  // namespace platform::tape_library
