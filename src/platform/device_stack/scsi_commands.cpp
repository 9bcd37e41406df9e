#include "platform/device_stack/scsi_commands.h"

#include <algorithm>

#include "foundation/util/bytes.h"

namespace platform::device_stack {

namespace {

/// What every device takes as an INQUIRY allocation: old ones look at one byte of it and want it even.
constexpr std::uint16_t first_inquiry_length = 252;
constexpr std::uint8_t mode_sense_length = 252;

scsi_command make_command(std::initializer_list<std::uint8_t> cdb, std::int64_t timeout_seconds) {
    scsi_command command;
    std::copy(cdb.begin(), cdb.end(), command.cdb.begin());
    command.cdb_length = static_cast<std::uint8_t>(cdb.size());
    command.timeout_seconds = timeout_seconds;
    return command;
}

scsi_outcome inquire_with_length(scsi_transport& transport, std::uint8_t evpd, std::uint8_t page, std::uint16_t length,
                                 std::vector<std::uint8_t>& data, std::int64_t timeout_seconds) {
    data.assign(length, 0);
    return receive(
        transport,
        {opcode::inquiry, evpd, page, static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length & 0xFF), 0x00}, data,
        timeout_seconds);
}

}  // namespace

scsi_outcome send_without_data(scsi_transport& transport, std::initializer_list<std::uint8_t> cdb, std::int64_t timeout_seconds) {
    return transport.execute(make_command(cdb, timeout_seconds));
}

scsi_outcome receive(scsi_transport& transport, std::initializer_list<std::uint8_t> cdb, std::vector<std::uint8_t>& data,
                     std::int64_t timeout_seconds) {
    scsi_command command = make_command(cdb, timeout_seconds);
    command.direction = data_direction::from_device;
    command.data = data;
    scsi_outcome outcome = transport.execute(command);
    data.resize(outcome.transport_error == 0 ? std::min<std::size_t>(outcome.transferred, data.size()) : 0);
    return outcome;
}

scsi_outcome inquire(scsi_transport& transport, std::vector<std::uint8_t>& data, std::int64_t timeout_seconds) {
    return inquire_with_length(transport, 0, 0, first_inquiry_length, data, timeout_seconds);
}

scsi_outcome inquire_page(scsi_transport& transport, std::uint8_t page, std::vector<std::uint8_t>& data,
                          std::int64_t timeout_seconds) {
    scsi_outcome outcome = inquire_with_length(transport, 1, page, first_inquiry_length, data, timeout_seconds);
    const std::size_t whole = std::size_t{4} + util::load_be16(data, 2);
    if (outcome.transport_error == 0 && outcome.scsi_status == 0 && whole > first_inquiry_length &&
        data.size() >= first_inquiry_length) {
        const auto length = static_cast<std::uint16_t>(std::min<std::size_t>(whole, 0xFFFF));
        outcome = inquire_with_length(transport, 1, page, length, data, timeout_seconds);
    }
    if (data.size() < 4 || data[1] != page) {
        data.clear();
    }
    data.resize(std::min<std::size_t>(data.size(), std::size_t{4} + util::load_be16(data, 2)));
    return outcome;
}

scsi_outcome sense_mode_page(scsi_transport& transport, std::uint8_t code, std::vector<std::uint8_t>& page) {
    constexpr std::uint8_t disable_block_descriptors = 0x08;
    page.assign(mode_sense_length, 0);
    scsi_outcome outcome =
        receive(transport, {opcode::mode_sense_6, disable_block_descriptors, code, 0x00, mode_sense_length, 0x00}, page,
                short_command_seconds);
    // Some devices send their block descriptors all the same.
    const std::size_t start = std::size_t{4} + util::load_u8(page, 3);
    if (page.size() < start + 2 || (page[start] & 0x3F) != code) {
        page.clear();
        return outcome;
    }
    page.erase(page.begin(), page.begin() + static_cast<std::ptrdiff_t>(start));
    page.resize(std::min<std::size_t>(page.size(), std::size_t{2} + page[1]));
    return outcome;
}

std::string serial_of_page(std::span<const std::uint8_t> page) {
    return util::text_to_nul(util::slice(page, 4, util::load_be16(page, 2)));
}

}  // namespace platform::device_stack
