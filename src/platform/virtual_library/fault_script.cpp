#include "platform/virtual_library/fault_script.h"

#include <algorithm>
#include <array>

#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"
#include "platform/clock.h"
#include "platform/device_stack/scsi_codes.h"
#include "platform/system.h"
#include "platform/virtual_library/disk.h"

namespace platform::tape_library {

namespace {

namespace opcode = device_stack::opcode;

constexpr std::array<std::uint8_t, 3> discovery_opcodes{opcode::inquiry, opcode::request_sense, opcode::report_luns};

const std::vector<std::uint8_t> robot_opcodes{opcode::move_medium, opcode::exchange_medium, opcode::position_to_element,
                                              opcode::initialize_element_status, opcode::initialize_element_status_with_range};

const std::vector<std::uint8_t> medium_opcodes{opcode::test_unit_ready, opcode::rewind,        opcode::format_medium,
                                               opcode::erase_6,         opcode::read_position, opcode::read_attribute};

template <typename Container>
bool contains(const Container& container, std::uint8_t value) {
    return std::find(container.begin(), container.end(), value) != container.end();
}

/// The page that a command asks for.
std::optional<std::uint8_t> page_of(const std::vector<std::uint8_t>& cdb) {
    const std::uint8_t second = util::load_u8(cdb, 2);
    switch (util::load_u8(cdb, 0)) {
        case opcode::inquiry:
            return (util::load_u8(cdb, 1) & 0x01) != 0 ? std::optional<std::uint8_t>(second) : std::nullopt;
        case opcode::log_sense:
        case opcode::mode_sense_6:
        case opcode::mode_sense_10:
            return static_cast<std::uint8_t>(second & 0x3F);
        default:
            return std::nullopt;
    }
}

bool matches(const fault& one, std::uint8_t unit, const std::vector<std::uint8_t>& cdb) {
    const std::uint8_t code = util::load_u8(cdb, 0);
    if (one.unit && *one.unit != unit) {
        return false;
    }
    if (one.page && page_of(cdb) != one.page) {
        return false;
    }
    if (one.only_device_identifiers && (code != opcode::read_element_status || (util::load_u8(cdb, 6) & 0x01) == 0)) {
        return false;
    }
    if (!one.opcodes.empty()) {
        return contains(one.opcodes, code);
    }
    return one.kind == fault_kind::dead || one.page || !contains(discovery_opcodes, code);
}

/// The splitmix64 generator: small, of full period, the same on every system.
std::uint64_t next_number(std::uint64_t& state) {
    state += 0x9E3779B97F4A7C15ULL;
    std::uint64_t mixed = state;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9ULL;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBULL;
    return mixed ^ (mixed >> 31);
}

fault sense_fault(const sense_code& code) {
    fault one;
    one.sense = code;
    return one;
}

fault kind_fault(fault_kind kind) {
    fault one;
    one.kind = kind;
    return one;
}

/// One of the faults that chance may choose.
fault draw(std::uint64_t number, bool is_move, bool may_strand) {
    switch (number % (is_move ? 10 : 6)) {
        case 0:
            return kind_fault(fault_kind::busy);
        case 1:
            return kind_fault(fault_kind::fail_before);
        case 2:
            return kind_fault(fault_kind::lost_reply);
        case 3:
            return sense_fault(sense::becoming_ready);
        case 4:
            return sense_fault(sense::medium_may_have_changed);
        case 5:
            return sense_fault(sense::power_on);
        case 6: {
            fault after = sense_fault(sense::mechanical_error);
            after.kind = fault_kind::sense_after;
            return after;
        }
        case 7:
            return faults::half_move(false);
        case 8:
            return faults::half_move(may_strand);
        default:
            return faults::lost_move_reply();
    }
}

}  // namespace

namespace faults {

fault door_open() {
    fault one = sense_fault(sense::door_open);
    one.unit = std::uint8_t{0};
    one.opcodes = robot_opcodes;
    one.opcodes.push_back(opcode::test_unit_ready);
    one.times = 0;
    return one;
}

fault port_accessed(std::uint32_t commands) {
    fault one = sense_fault(sense::import_export_accessed);
    one.unit = std::uint8_t{0};
    one.times = commands;
    return one;
}

fault drive_not_ready(std::uint8_t unit, std::int64_t milliseconds) {
    fault one = sense_fault(sense::becoming_ready);
    one.unit = unit;
    one.opcodes = medium_opcodes;
    one.times = 0;
    one.lasts = milliseconds;
    return one;
}

fault alert(std::uint8_t unit, std::uint8_t flag, bool raised) {
    fault one = kind_fault(fault_kind::alert);
    one.unit = unit;
    one.flag = flag;
    one.raised = raised;
    return one;
}

fault no_device_identifiers() {
    fault one = sense_fault(sense::invalid_field);
    one.only_device_identifiers = true;
    one.times = 0;
    return one;
}

fault slow_robot(std::int64_t milliseconds) {
    fault one = kind_fault(fault_kind::delay);
    one.opcodes = robot_opcodes;
    one.milliseconds = milliseconds;
    one.times = 0;
    return one;
}

fault descriptor_length(std::uint16_t length) {
    fault one = kind_fault(fault_kind::patch_reply);
    one.opcodes = {opcode::read_element_status};
    one.offset = 10;
    one.bytes = {static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length & 0xFF)};
    one.times = 0;
    return one;
}

fault half_move(bool in_transport) {
    fault one = kind_fault(fault_kind::half_move);
    one.opcodes = {opcode::move_medium};
    one.in_transport = in_transport;
    return one;
}

fault lost_move_reply() {
    fault one = kind_fault(fault_kind::lost_reply);
    one.opcodes = {opcode::move_medium, opcode::exchange_medium};
    return one;
}

fault target_dead() {
    fault one = kind_fault(fault_kind::dead);
    one.error = error::device_not_connected;
    one.times = 0;
    return one;
}

}  // namespace faults

fault_script::fault_script(std::u16string path) : path_(std::move(path)) {}

void fault_script::arm(fault_set& set, const fault& one) {
    set.faults.push_back({one, 0, 0, one.lasts == 0 ? 0 : system().clock->milliseconds() + one.lasts});
}

void fault_script::arm_seed(fault_set& set, const seeded_faults& seeded) {
    set.seeded = seeded;
    set.generator = seeded.seed;
}

void fault_script::add(const fault& one) {
    const std::lock_guard<std::mutex> guard(mutex_);
    arm(added_, one);
}

void fault_script::seed(const seeded_faults& seeded) {
    const std::lock_guard<std::mutex> guard(mutex_);
    arm_seed(added_, seeded);
}

void fault_script::set_drive_serial(std::optional<std::string> serial) {
    const std::lock_guard<std::mutex> guard(mutex_);
    added_.drive_serial = std::move(serial);
}

void fault_script::clear() {
    const std::lock_guard<std::mutex> guard(mutex_);
    added_ = {};
}

std::optional<std::string> fault_script::drive_serial() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return added_.drive_serial ? added_.drive_serial : of_file_.drive_serial;
}

fault_decision fault_script::decide(std::uint8_t unit, const std::vector<std::uint8_t>& cdb) {
    const std::lock_guard<std::mutex> guard(mutex_);
    refresh();
    fault_decision decision;
    consult(of_file_, unit, cdb, decision);
    consult(added_, unit, cdb, decision);
    return decision;
}

std::optional<std::uint32_t> fault_script::died(std::uint8_t unit, const std::vector<std::uint8_t>& cdb) {
    const std::lock_guard<std::mutex> guard(mutex_);
    refresh();
    for (const fault_set* set : {&of_file_, &added_}) {
        for (const armed_fault& each : set->faults) {
            const bool strikes = each.passed >= each.what.skip && !each.over();
            if (each.what.kind == fault_kind::dead && strikes && matches(each.what, unit, cdb)) {
                return each.what.error;
            }
        }
    }
    return std::nullopt;
}

bool fault_script::armed_fault::over() const {
    return (what.times != 0 && struck >= what.times) || (until != 0 && system().clock->milliseconds() >= until);
}

/// Every matching fault counts the command, so that "the third move" means the same whatever else goes wrong; the first that
/// strikes decides. Delays add up, and every alert counts.
void fault_script::consult(fault_set& set, std::uint8_t unit, const std::vector<std::uint8_t>& cdb, fault_decision& decision) {
    for (armed_fault& each : set.faults) {
        if (!matches(each.what, unit, cdb) || each.over()) {
            continue;
        }
        if (each.passed < each.what.skip) {
            ++each.passed;
        } else if (each.what.kind == fault_kind::delay) {
            ++each.struck;
            decision.delay += each.what.milliseconds;
        } else if (each.what.kind == fault_kind::alert) {
            ++each.struck;
            decision.alerts.push_back({each.what.flag, each.what.raised});
        } else if (!decision.hit) {
            ++each.struck;
            decision.hit = each.what;
        }
    }
    const std::uint8_t code = util::load_u8(cdb, 0);
    if (set.seeded && !contains(discovery_opcodes, code)) {
        const bool strikes = next_number(set.generator) % 1000 < set.seeded->per_mille;
        const std::uint64_t which = next_number(set.generator);
        if (strikes && !decision.hit) {
            decision.hit = draw(which, code == opcode::move_medium, set.seeded->may_strand);
        }
    }
}

}  // namespace platform::tape_library
