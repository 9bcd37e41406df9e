#include "platform/device_stack/long_erase.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "platform/clock.h"
#include "platform/device_stack/scsi_commands.h"
#include "platform/device_stack/tape_sense.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace platform::device_stack {

namespace {

constexpr std::uint8_t whole_tape = 0x01;
constexpr std::uint8_t answer_at_start = 0x02;

constexpr std::int64_t first_pause = 1000;
constexpr std::int64_t longest_pause = 10'000;
/// A drive that does nothing but say that it is busy isn't erasing.
constexpr int most_busy_answers = 10;

scsi_outcome send_erase(scsi_transport& transport, std::uint8_t flags) {
    return send_without_data(transport, {opcode::erase_6, static_cast<std::uint8_t>(whole_tape | flags), 0, 0, 0, 0},
                             long_erase::longest_seconds);
}

bool is_busy(const scsi_outcome& outcome) {
    return outcome.transport_error == 0 &&
           (outcome.scsi_status == scsi_status::busy || outcome.scsi_status == scsi_status::task_set_full);
}

/// Other initiators' doings, warnings and the like come as unit attentions in the middle of an erase and don't touch it.
bool concerns_the_tape(const sense_code& code) {
    constexpr std::uint8_t medium_changed = 0x28;
    constexpr std::uint8_t reset = 0x29;
    constexpr std::uint8_t commands_cleared = 0x2F;
    constexpr std::uint8_t no_medium = 0x3A;
    constexpr std::uint8_t erase_failure = 0x51;
    switch (code.asc) {
        case medium_changed:
        case reset:
        case commands_cleared:
        case no_medium:
        case erase_failure:
            return true;
        default:
            return false;
    }
}

}  // namespace

long_erase::long_erase(scsi_transport& transport, std::string drive_name)
    : transport_(transport), drive_name_(std::move(drive_name)) {}

std::uint32_t long_erase::run() {
    // A drive that takes no notice of the flag answers at the end all the same: so the limit is the whole erase's here, too.
    const scsi_outcome begun = send_erase(transport_, answer_at_start);
    if (is_refused(begun)) {
        return tape_error_of(send_erase(transport_, 0));
    }
    if (const std::uint32_t failure = tape_error_of(begun); failure != error::success) {
        return failure;
    }
    connection_ = begun.connection;
    return follow();
}

std::uint32_t long_erase::follow() {
    clock& time = *system().clock;
    const std::int64_t deadline = time.seconds() + longest_seconds;
    int busy_answers = 0;
    for (std::int64_t pause = first_pause;; pause = std::min(pause * 2, longest_pause)) {
        std::uint32_t status = error::success;
        const progress seen = look(status);
        if (seen == progress::ended) {
            return status == error::success && may_be_reset_ ? error::bus_reset : status;
        }
        busy_answers = seen == progress::busy ? busy_answers + 1 : 0;
        if (busy_answers == most_busy_answers) {
            return error::busy;
        }
        if (time.seconds() >= deadline) {
            return error::semaphore_timeout;
        }
        time.sleep(pause);
    }
}

/// Sense data tells how far the drive has come, and what went wrong after its answer. Whether it has ended is for TEST UNIT READY
/// to say: some drives have no sense data to give while they work.
long_erase::progress long_erase::look(std::uint32_t& status) {
    const progress seen = ask_for_sense(status);
    return seen == progress::ended && status == error::success ? test_ready(status) : seen;
}

long_erase::progress long_erase::ask_for_sense(std::uint32_t& status) {
    constexpr std::uint8_t room = 252;
    std::vector<std::uint8_t> sense(room);
    const scsi_outcome outcome = receive(transport_, {opcode::request_sense, 0, 0, 0, room, 0}, sense, short_command_seconds);
    note_connection(outcome);
    if (is_busy(outcome)) {
        return progress::busy;
    }
    if (outcome.transport_error == 0 && outcome.scsi_status == scsi_status::check_condition) {
        return is_refused(outcome) ? progress::ended : judge(outcome.sense, status);
    }
    status = tape_error_of(outcome);
    if (status != error::success) {
        return progress::ended;
    }
    return judge(sense, status);
}

long_erase::progress long_erase::test_ready(std::uint32_t& status) {
    const scsi_outcome outcome = send_without_data(transport_, {opcode::test_unit_ready, 0, 0, 0, 0, 0}, short_command_seconds);
    note_connection(outcome);
    if (is_busy(outcome)) {
        return progress::busy;
    }
    if (outcome.transport_error == 0 && outcome.scsi_status == scsi_status::check_condition) {
        const progress seen = judge(outcome.sense, status);
        const std::optional<sense_code> code = decode_sense(outcome.sense);
        // The attention took the place of the answer.
        return seen == progress::ended && status == error::success && code && code->key == sense_key::unit_attention
                   ? progress::working
                   : seen;
    }
    status = tape_error_of(outcome);
    return progress::ended;
}

long_erase::progress long_erase::judge(std::span<const std::uint8_t> sense, std::uint32_t& status) {
    constexpr std::uint8_t becoming_ready = 0x01;
    const std::optional<sense_code> code = decode_sense(sense);
    status = error::success;
    if (!code) {
        return progress::ended;
    }
    if (!code->deferred && tells_operation_in_progress(*code)) {
        // A drive that has just been switched on is becoming ready as well.
        if (code->ascq != becoming_ready) {
            may_be_reset_ = false;
        }
        log_progress(sense);
        return progress::working;
    }
    // Without a fault, sense data may tell where the tape stands; that a past fault was overcome is no news either.
    const bool is_fault = code->key != sense_key::no_sense && code->key != sense_key::recovered_error;
    if (is_fault && (code->key != sense_key::unit_attention || concerns_the_tape(*code))) {
        status = tape_error_of_sense(sense);
    }
    return progress::ended;
}

void long_erase::note_connection(const scsi_outcome& outcome) {
    if (outcome.transport_error == 0 && outcome.connection != connection_) {
        connection_ = outcome.connection;
        may_be_reset_ = true;
    }
}

void long_erase::log_progress(std::span<const std::uint8_t> sense) {
    const int tenths = progress_of(sense).value_or(0) * 10 / 0x10000;
    if (tenths > shown_tenths_) {
        shown_tenths_ = tenths;
        g_log.LogInfo("%1: %2 percent of the tape is erased.", drive_name_,
                      text::to_string(static_cast<std::uint32_t>(tenths * 10)));
    }
}

}  // namespace platform::device_stack
