#include "platform/device_stack/tape_class.h"

#include <iterator>
#include <string>
#include <vector>

#include "foundation/util/bytes.h"
#include "platform/device_stack/long_erase.h"
#include "platform/device_stack/scsi_commands.h"
#include "platform/device_stack/tape_capacity.h"
#include "platform/device_stack/tape_sense.h"
#include "platform/device_stack/time_budget.h"
#include "platform/errors.h"
#include "platform/scsi_records.h"

namespace platform::device_stack {

namespace {

constexpr std::int64_t minute = 60;

/// What the slowest drives of each kind take, and some more: a rewind from the far end; the first load of a new cartridge by a
/// drive that measures it first, which the newest do for two hours; winding the whole tape forth and back; laying out its format.
constexpr std::int64_t rewind_seconds = 20 * minute;
constexpr std::int64_t load_seconds = 150 * minute;
constexpr std::int64_t unload_seconds = 20 * minute;
constexpr std::int64_t tension_seconds = 60 * minute;
constexpr std::int64_t format_seconds = 240 * minute;
constexpr std::int64_t short_erase_seconds = 20 * minute;

/// The flag of LOAD UNLOAD, REWIND and FORMAT MEDIUM that asks for an answer at the start.
constexpr std::uint8_t answer_at_start = 0x01;
constexpr std::uint8_t erase_answer_at_start = 0x02;
constexpr std::uint8_t erase_whole_tape = 0x01;

/// A transfer length has three bytes: what a drive without an upper limit can be asked for.
constexpr std::uint32_t longest_block = 0xFFFFFF;

namespace mode_page {
constexpr std::uint8_t data_compression = 0x0F;
constexpr std::uint8_t device_configuration = 0x10;
constexpr std::uint8_t medium_partitions = 0x11;
constexpr std::uint8_t all = 0x3F;
}  // namespace mode_page

/// One operation of `prepare`, in the order of their numbers.
struct prepare_command {
    std::uint8_t code;
    std::uint8_t action;  ///< byte 4
    bool can_answer_at_start;
    std::int64_t timeout_seconds;
    /// What it means here that the medium can't be ejected: only an unload was to eject it.
    std::uint32_t removal_error;
};
constexpr prepare_command prepare_commands[] = {
    {opcode::load_unload, 0x01, true, load_seconds, error::io_device},
    {opcode::load_unload, 0x00, true, unload_seconds, error::unable_to_unload_media},
    {opcode::load_unload, 0x03, true, tension_seconds, error::io_device},
    {opcode::prevent_allow_medium_removal, 0x01, false, short_command_seconds, error::unable_to_lock_media},
    {opcode::prevent_allow_medium_removal, 0x00, false, short_command_seconds, error::unable_to_lock_media},
    {opcode::format_medium, 0x00, true, format_seconds, error::io_device},
};
static_assert(TAPE_LOAD == 0 && TAPE_UNLOAD == 1 && TAPE_TENSION == 2 && TAPE_LOCK == 3 && TAPE_UNLOCK == 4 && TAPE_FORMAT == 5 &&
              std::size(prepare_commands) == TAPE_FORMAT + 1);

/// What MODE SENSE(6) tells of medium and drive (SPC-4 clause 7.5.4, SSC-4 clause 8.3.1).
struct mode_data {
    bool is_write_protected = false;
    std::uint8_t density = 0;
    std::uint32_t block_size = 0;
    std::vector<std::uint8_t> page;  ///< the page that was asked for, from its code byte on; empty when it didn't come
};

/// Asks for a page along with the block descriptor.
scsi_outcome sense_mode(scsi_transport& transport, std::uint8_t page, std::int64_t timeout_seconds, mode_data& mode) {
    constexpr std::uint8_t room = 252;
    constexpr std::size_t header = 4;
    constexpr std::size_t whole_descriptor = 8;
    constexpr std::uint8_t write_protected = 0x80;
    std::vector<std::uint8_t> answer(room);
    scsi_outcome outcome = receive(transport, {opcode::mode_sense_6, 0, page, 0, room, 0}, answer, timeout_seconds);
    mode = {};
    mode.is_write_protected = (util::load_u8(answer, 2) & write_protected) != 0;
    const std::size_t descriptors = util::load_u8(answer, 3);
    if (descriptors >= whole_descriptor) {
        mode.density = util::load_u8(answer, header);
        mode.block_size = util::load_be24(answer, header + 5);
    }
    const auto found = util::slice(answer, header + descriptors, answer.size());
    if (found.size() >= 2 && (found[0] & 0x3F) == page) {
        const auto whole = util::slice(found, 0, std::size_t{2} + found[1]);
        mode.page.assign(whole.begin(), whole.end());
    }
    return outcome;
}

/// The mode data that comes with the first of these pages which the drive has.
std::uint32_t sense_first_mode(scsi_transport& transport, std::initializer_list<std::uint8_t> pages, const time_budget& time,
                               mode_data& mode) {
    std::uint32_t failure = error::not_supported;
    for (const std::uint8_t page : pages) {
        const scsi_outcome outcome = sense_mode(transport, page, time.seconds_left(), mode);
        failure = tape_error_of(outcome);
        if (!is_refused(outcome)) {
            break;
        }
    }
    return failure;
}

/// A page that a drive need not have: empty when it refuses.
std::uint32_t sense_optional_page(scsi_transport& transport, std::uint8_t page, const time_budget& time,
                                  std::vector<std::uint8_t>& found) {
    mode_data mode;
    const scsi_outcome outcome = sense_mode(transport, page, time.seconds_left(), mode);
    found.clear();
    if (is_refused(outcome)) {
        return error::success;
    }
    found = std::move(mode.page);
    return tape_error_of(outcome);
}

std::uint32_t test_ready(scsi_transport& transport, std::int64_t timeout_seconds) {
    return tape_error_of(send_without_data(transport, {opcode::test_unit_ready, 0, 0, 0, 0, 0}, timeout_seconds));
}

/// READ BLOCK LIMITS (SSC-4 clause 7.5).
std::uint32_t read_block_limits(scsi_transport& transport, const time_budget& time, TAPE_GET_DRIVE_PARAMETERS& drive) {
    std::vector<std::uint8_t> limits(6);
    const std::size_t whole = limits.size();
    const scsi_outcome outcome = receive(transport, {opcode::read_block_limits, 0, 0, 0, 0, 0}, limits, time.seconds_left());
    if (const std::uint32_t failure = tape_error_of(outcome); failure != error::success) {
        return failure;
    }
    if (limits.size() < whole) {
        return error::io_device;
    }
    const std::uint32_t longest = util::load_be24(limits, 1);
    drive.MaximumBlockSize = longest != 0 ? longest : longest_block;
    drive.MinimumBlockSize = util::load_be16(limits, 4);
    return error::success;
}

/// Data compression page: whether the drive can compress, and whether it does.
void take_compression(std::span<const std::uint8_t> page, TAPE_GET_DRIVE_PARAMETERS& drive) {
    constexpr std::uint8_t enabled = 0x80;
    constexpr std::uint8_t capable = 0x40;
    const std::uint8_t flags = util::load_u8(page, 2);
    if ((flags & capable) != 0) {
        drive.FeaturesLow |= TAPE_DRIVE_COMPRESSION;
        drive.Compression = (flags & enabled) != 0 ? 1 : 0;
    }
}

/// Device configuration page: setmarks, and what fits between early warning and the end.
void take_configuration(std::span<const std::uint8_t> page, TAPE_GET_DRIVE_PARAMETERS& drive) {
    constexpr std::uint8_t report_setmarks = 0x20;
    if ((util::load_u8(page, 8) & report_setmarks) != 0) {
        drive.FeaturesLow |= TAPE_DRIVE_REPORT_SMKS;
        drive.ReportSetmarks = 1;
    }
    drive.EOTWarningZoneSize = util::load_be24(page, 11);
}

}  // namespace

tape_class::tape_class(std::shared_ptr<scsi_transport> transport, const scsi_location& location, std::uint32_t device_number)
    : storage_class(std::move(transport), location, FILE_DEVICE_TAPE, device_number), device_number_(device_number) {}

std::uint32_t tape_class::get_status() {
    return test_ready(transport(), short_command_seconds);
}

std::uint32_t tape_class::get_media_parameters(TAPE_GET_MEDIA_PARAMETERS& media) {
    const time_budget time(short_command_seconds);
    // MODE SENSE needs no medium: whether there is one is told by this alone.
    if (const std::uint32_t failure = test_ready(transport(), time.seconds_left()); failure != error::success) {
        return failure;
    }
    mode_data mode;
    const std::uint32_t failure =
        sense_first_mode(transport(), {mode_page::medium_partitions, mode_page::device_configuration, mode_page::all}, time, mode);
    if (failure != error::success) {
        return failure;
    }
    tape_capacity capacity;
    if (const std::uint32_t failed = read_capacity(transport(), mode.density, time, capacity); failed != 0) {
        return failed;
    }
    media = {};
    media.Capacity = capacity.maximum.value_or(0);
    media.Remaining = capacity.remaining.value_or(0);
    media.BlockSize = mode.block_size;
    const bool tells_partitions = !mode.page.empty() && (mode.page[0] & 0x3F) == mode_page::medium_partitions;
    media.PartitionCount = 1 + (tells_partitions ? util::load_u8(mode.page, 3) : 0);
    media.WriteProtected = mode.is_write_protected ? 1 : 0;
    return error::success;
}

std::uint32_t tape_class::get_drive_parameters(TAPE_GET_DRIVE_PARAMETERS& drive) {
    const time_budget time(short_command_seconds);
    drive = {};
    if (const std::uint32_t failure = read_block_limits(transport(), time, drive); failure != error::success) {
        return failure;
    }
    mode_data mode;
    std::uint32_t failure = sense_first_mode(transport(), {mode_page::device_configuration, mode_page::all}, time, mode);
    if (failure != error::success) {
        return failure;
    }
    drive.DefaultBlockSize = mode.block_size;
    take_configuration(mode.page, drive);
    std::vector<std::uint8_t> page;
    failure = sense_optional_page(transport(), mode_page::data_compression, time, page);
    if (failure != error::success) {
        return failure;
    }
    take_compression(page, drive);
    failure = sense_optional_page(transport(), mode_page::medium_partitions, time, page);
    if (failure != error::success) {
        return failure;
    }
    drive.MaximumPartitionCount = std::uint32_t{1} + util::load_u8(page, 2);
    return error::success;
}

std::uint32_t tape_class::prepare(std::uint32_t operation, bool immediate) {
    if (operation >= std::size(prepare_commands)) {
        return error::invalid_parameter;
    }
    const prepare_command& command = prepare_commands[operation];
    const std::uint8_t flags = immediate && command.can_answer_at_start ? answer_at_start : 0;
    const std::uint32_t status =
        tape_error_of(send_without_data(transport(), {command.code, flags, 0, 0, command.action, 0}, command.timeout_seconds));
    return status == error::unable_to_unload_media ? command.removal_error : status;
}

std::uint32_t tape_class::set_position(std::uint32_t method, bool immediate) {
    if (method != TAPE_REWIND) {
        return error::not_supported;
    }
    const std::uint8_t flags = immediate ? answer_at_start : 0;
    return tape_error_of(send_without_data(transport(), {opcode::rewind, flags, 0, 0, 0, 0}, rewind_seconds));
}

std::uint32_t tape_class::erase(std::uint32_t type, bool immediate) {
    if (type != TAPE_ERASE_SHORT && type != TAPE_ERASE_LONG) {
        return error::invalid_parameter;
    }
    if (type == TAPE_ERASE_LONG && !immediate) {
        return long_erase(transport(), "Tape" + std::to_string(device_number_)).run();
    }
    const auto flags =
        static_cast<std::uint8_t>((type == TAPE_ERASE_LONG ? erase_whole_tape : 0) | (immediate ? erase_answer_at_start : 0));
    return tape_error_of(send_without_data(transport(), {opcode::erase_6, flags, 0, 0, 0, 0},
                                           type == TAPE_ERASE_LONG ? long_erase::longest_seconds : short_erase_seconds));
}

}  // namespace platform::device_stack
