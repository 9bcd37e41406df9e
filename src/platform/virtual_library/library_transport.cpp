#include <algorithm>
#include <utility>

#include "platform/clock.h"
#include "platform/system.h"
#include "platform/virtual_library/virtual_library.h"

namespace platform::tape_library {

using device_stack::data_direction;
using device_stack::scsi_command;
using device_stack::scsi_outcome;

/// One initiator's connection to one unit.
class library_transport : public device_stack::scsi_transport {
public:
    library_transport(std::shared_ptr<virtual_library> library, logical_unit& unit)
        : library_(std::move(library)), unit_(unit), nexus_(connect()) {}

    ~library_transport() override {
        const std::lock_guard<std::mutex> guard(library_->core_.mutex);
        unit_.disconnect(nexus_);
    }

    [[nodiscard]] scsi_outcome execute(const scsi_command& command) override { return library_->execute(unit_, nexus_, command); }

private:
    nexus& connect() {
        const std::lock_guard<std::mutex> guard(library_->core_.mutex);
        return unit_.connect();
    }

    std::shared_ptr<virtual_library> library_;
    logical_unit& unit_;
    nexus& nexus_;
};

namespace {

command_result result_of(const fault& hit) {
    switch (hit.kind) {
        case fault_kind::busy:
            return command_result::with_status(scsi_status::busy);
        case fault_kind::reservation_conflict:
            return command_result::with_status(scsi_status::reservation_conflict);
        case fault_kind::fail_before:
        case fault_kind::lost_reply:
        case fault_kind::dead:
            return command_result::transport(hit.error);
        default:
            return command_result::check(hit.sense);
    }
}

/// Whether the fault leaves the command itself undone.
bool instead_of_command(fault_kind kind) {
    switch (kind) {
        case fault_kind::sense:
        case fault_kind::busy:
        case fault_kind::reservation_conflict:
        case fault_kind::fail_before:
        case fault_kind::dead:
            return true;
        default:
            return false;
    }
}

/// What the fault makes of a command that was carried out.
void spoil(const fault& hit, command_result& result) {
    switch (hit.kind) {
        case fault_kind::sense_after:
        case fault_kind::lost_reply:
            result = result_of(hit);
            break;
        case fault_kind::cut_reply:
            result.data.resize(std::min<std::size_t>(result.data.size(), hit.offset));
            break;
        case fault_kind::replace_reply:
            if (result.status == scsi_status::good && result.transport_error == error::success) {
                result.data = hit.bytes;
            }
            break;
        case fault_kind::patch_reply:
            for (std::size_t at = 0; at < hit.bytes.size() && hit.offset + at < result.data.size(); ++at) {
                result.data[hit.offset + at] = hit.bytes[at];
            }
            break;
        default:
            break;
    }
}

scsi_outcome to_outcome(const command_result& result, const scsi_command& command) {
    scsi_outcome outcome;
    outcome.transport_error = result.transport_error;
    outcome.scsi_status = result.status;
    if (result.transport_error != error::success) {
        outcome.scsi_status = scsi_status::good;
        return outcome;
    }
    if (result.status == scsi_status::check_condition) {
        outcome.sense = fixed_format(result.sense);
    }
    if (command.direction == data_direction::from_device) {
        const std::size_t count = std::min(result.data.size(), command.data.size());
        std::copy_n(result.data.begin(), count, command.data.begin());
        outcome.transferred = static_cast<std::uint32_t>(count);
    }
    return outcome;
}

}  // namespace

std::shared_ptr<device_stack::scsi_transport> virtual_library::connect(std::uint8_t unit) {
    return std::make_shared<library_transport>(shared_from_this(), at(unit));
}

scsi_outcome virtual_library::execute(logical_unit& unit, nexus& initiator, const scsi_command& command) {
    const std::int64_t deadline = clock_now() + std::max<std::int64_t>(command.timeout_seconds, 0) * 1000;
    const byte_vector cdb(command.cdb.begin(), command.cdb.begin() + std::min<std::size_t>(command.cdb_length, command.cdb.size()));
    const fault_decision decision = core_.faults.decide(unit.number(), cdb);

    std::unique_lock<std::mutex> lock(core_.mutex);
    for (const fault_decision::alert_change& each : decision.alerts) {
        unit.set_alert(each.flag, each.raised);
    }
    const std::int64_t begin = clock_now();
    command_request request{cdb, initiator, lock, deadline, 0, {}};
    if (!cdb.empty() && unit.robot_works(cdb[0])) {
        request.extra_time = decision.delay;
    } else if (decision.delay > 0 && !request.wait_until(clock_now() + decision.delay)) {
        return to_outcome(command_result::transport(error::semaphore_timeout), command);
    }
    command_result result;
    if (decision.hit && instead_of_command(decision.hit->kind)) {
        // Silence may end with the deadline; the answer is the same.
        (void)request.wait_until(clock_now() + decision.hit->milliseconds);
        result = result_of(*decision.hit);
    } else {
        if (decision.hit && decision.hit->kind == fault_kind::half_move) {
            request.stops_half_way = decision.hit->in_transport;
        }
        result = unit.serve(request);
        if (decision.hit) {
            spoil(*decision.hit, result);
        }
        if (clock_now() != begin) {
            // A unit that was pulled while it worked can't answer any more.
            if (const std::optional<std::uint32_t> code = core_.faults.died(unit.number(), cdb)) {
                result = command_result::transport(*code);
            }
        }
    }
    return to_outcome(result, command);
}

}  // namespace platform::tape_library
