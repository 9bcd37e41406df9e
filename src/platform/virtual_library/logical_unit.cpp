#include "platform/virtual_library/logical_unit.h"

#include <algorithm>

#include "foundation/util/bytes.h"
#include "platform/clock.h"
#include "platform/system.h"

namespace platform::tape_library {

namespace {

constexpr std::uint8_t all_pages = 0x3F;
constexpr std::uint8_t all_subpages = 0xFF;

}  // namespace

std::int64_t clock_now() {
    return system().clock->milliseconds();
}

bool command_request::wait_until(std::int64_t moment) const {
    const std::int64_t end = std::min(moment, deadline);
    const std::int64_t now = clock_now();
    if (end > now) {
        lock.unlock();
        system().clock->sleep(end - now);
        lock.lock();
    }
    return moment <= deadline;
}

nexus& logical_unit::connect() {
    nexus& fresh = initiators_.emplace_back();
    if (core_.made_of.power_on_attention) {
        fresh.attentions.push_back(sense::power_on);
    }
    return fresh;
}

void logical_unit::disconnect(const nexus& initiator) {
    if (reserved_by_ == &initiator) {
        reserved_by_ = nullptr;
    }
    forget(initiator);
    initiators_.remove_if([&initiator](const nexus& each) { return &each == &initiator; });
}

void logical_unit::raise(const sense_code& attention, const nexus* but) {
    for (nexus& each : initiators_) {
        const bool queued = std::find(each.attentions.begin(), each.attentions.end(), attention) != each.attentions.end();
        if (&each != but && !queued) {
            each.attentions.push_back(attention);
        }
    }
}

bool logical_unit::removal_prevented() const {
    return std::any_of(initiators_.begin(), initiators_.end(), [](const nexus& each) { return each.prevents_removal; });
}

void logical_unit::set_alert(std::uint8_t flag, bool raised) {
    alerts_.set(flag - 1U, raised);
    for (nexus& each : initiators_) {
        each.alerts_read.reset(flag - 1U);
    }
}

command_result logical_unit::serve(command_request& request) {
    settle();
    const std::uint8_t code = util::load_u8(request.cdb, 0);
    const command_traits& traits = traits_of(code);
    if (reserved_by_ != nullptr && reserved_by_ != &request.initiator && !traits.ignores_reservation) {
        return command_result::with_status(scsi_status::reservation_conflict);
    }
    if (!traits.ignores_attention && !request.initiator.attentions.empty()) {
        const sense_code attention = request.initiator.attentions.front();
        request.initiator.attentions.pop_front();
        return command_result::check(attention);
    }
    const std::vector<std::uint8_t>& refused = core_.made_of.refused;
    if (std::find(refused.begin(), refused.end(), code) != refused.end()) {
        return command_result::check(sense::invalid_opcode);
    }
    if (request.cdb.size() < traits.length) {
        return command_result::check(sense::invalid_field);
    }
    if (const std::optional<sense_data> work = occupied(); work && !traits.while_occupied) {
        return command_result::check(*work);
    }
    return dispatch(request);
}

command_result logical_unit::request_sense(command_request& request) {
    const bool descriptor = (request.cdb[1] & 0x01) != 0;
    sense_data data = condition();
    if (!request.initiator.attentions.empty()) {
        data = request.initiator.attentions.front();
        request.initiator.attentions.pop_front();
    }
    return command_result::with_data(descriptor ? descriptor_format(data) : fixed_format(data), request.cdb[4]);
}

std::optional<byte_vector> logical_unit::collect_mode_pages(std::uint8_t control, std::uint8_t page, std::uint8_t subpage) const {
    if (subpage != 0 && subpage != all_subpages) {
        return std::nullopt;
    }
    byte_vector collected;
    bool found = false;
    for (const std::uint8_t each : mode_pages()) {
        if (page == all_pages || page == each) {
            byte_vector bytes = mode_page(each);
            if (control == 1) {
                // Changeable values: no bit of any page can be changed.
                std::fill(bytes.begin() + 2, bytes.end(), std::uint8_t{0});
            }
            collected.insert(collected.end(), bytes.begin(), bytes.end());
            found = true;
        }
    }
    return found ? std::optional<byte_vector>(std::move(collected)) : std::nullopt;
}

/// MODE SENSE(6) and MODE SENSE(10): the same answer behind headers of two sizes.
command_result logical_unit::mode_sense(command_request& request) {
    const std::uint8_t control = request.cdb[2] >> 6;
    if (control == 3) {
        return command_result::check(sense::saving_not_supported);
    }
    const std::optional<byte_vector> pages = collect_mode_pages(control, request.cdb[2] & 0x3F, request.cdb[3]);
    if (!pages) {
        return command_result::check(sense::invalid_field);
    }
    const bool without_blocks = (request.cdb[1] & 0x08) != 0;
    const byte_vector blocks = without_blocks ? byte_vector{} : block_descriptor();
    const auto blocks_size = static_cast<std::uint8_t>(blocks.size());
    const bool long_form = request.cdb[0] == opcode::mode_sense_10;
    byte_vector reply = long_form ? byte_vector{0, 0, medium_type(), device_specific(), 0, 0, 0, blocks_size}
                                  : byte_vector{0, medium_type(), device_specific(), blocks_size};
    reply.insert(reply.end(), blocks.begin(), blocks.end());
    reply.insert(reply.end(), pages->begin(), pages->end());
    // The length tells the bytes behind it.
    if (long_form) {
        util::store_be16(reply, 0, static_cast<std::uint16_t>(reply.size() - 2));
        return command_result::with_data(std::move(reply), util::load_be16(request.cdb, 7));
    }
    reply[0] = static_cast<std::uint8_t>(reply.size() - 1);
    return command_result::with_data(std::move(reply), request.cdb[4]);
}

command_result logical_unit::prevent_allow(command_request& request) {
    const std::uint8_t wanted = request.cdb[4] & 0x03;
    if (wanted > 1) {
        return command_result::check(sense::invalid_field);
    }
    request.initiator.prevents_removal = wanted == 1;
    return command_result::good();
}

command_result logical_unit::reserve(command_request& request) {
    // Third-party, extent and element reservations aren't offered: only the whole unit can be reserved.
    if ((request.cdb[1] & 0x1F) != 0) {
        return command_result::check(sense::invalid_field);
    }
    reserved_by_ = &request.initiator;
    return command_result::good();
}

command_result logical_unit::release(command_request& request) {
    if ((request.cdb[1] & 0x1F) != 0) {
        return command_result::check(sense::invalid_field);
    }
    if (reserved_by_ == &request.initiator) {
        reserved_by_ = nullptr;
    }
    return command_result::good();
}

command_result logical_unit::report_luns(command_request& request) {
    const std::size_t units = core_.made_of.drive_units.size() + 1;
    byte_vector reply(8 + 8 * units);
    util::store_be32(reply, 0, static_cast<std::uint32_t>(8 * units));
    for (std::size_t unit = 0; unit < units; ++unit) {
        reply[8 + 8 * unit + 1] = static_cast<std::uint8_t>(unit);
    }
    return command_result::with_data(std::move(reply), util::load_be32(request.cdb, 6));
}

}  // namespace platform::tape_library
