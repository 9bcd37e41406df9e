#include "platform/device_stack/storage_port.h"

#include <algorithm>
#include <cstring>

#include "foundation/util/bytes.h"
#include "platform/device_stack/device_identifiers.h"
#include "platform/device_stack/scsi_commands.h"
#include "platform/device_stack/sense_error.h"
#include "platform/devices.h"
#include "platform/errors.h"
#include "platform/scsi_records.h"

namespace platform::device_stack {

namespace {

constexpr std::size_t header_size = sizeof(SCSI_PASS_THROUGH);
/// The port takes no command that may run for more than thirty hours, and none without a limit.
constexpr std::uint32_t longest_timeout = 30 * 60 * 60;
/// Head of every property descriptor: its version and size.
constexpr std::size_t descriptor_head = 8;

/// True when `length` bytes at `offset` lie within `size`, without wrapping around.
bool lies_within(std::uint32_t offset, std::uint32_t length, std::size_t size) {
    return offset <= size && length <= size - offset;
}

/// What both forms demand of a block.
bool is_acceptable(const SCSI_PASS_THROUGH& request, std::size_t room) {
    if (request.Length != header_size || request.CdbLength == 0 || request.CdbLength > sizeof(request.Cdb) ||
        request.DataIn > SCSI_DATA_NONE || request.TimeOutValue == 0 || request.TimeOutValue > longest_timeout) {
        return false;
    }
    return request.SenseInfoLength == 0 ||
           (request.SenseInfoOffset >= header_size && lies_within(request.SenseInfoOffset, request.SenseInfoLength, room));
}

bool moves_data(const SCSI_PASS_THROUGH& request) {
    return request.DataIn != SCSI_DATA_NONE && request.DataTransferLength != 0;
}

/// What the buffered form demands of its data area: behind the header and the sense area, and within the buffer that the
/// data goes into or comes from.
bool has_acceptable_data_area(const SCSI_PASS_THROUGH& request, std::size_t input_size, std::size_t output_size) {
    if (!moves_data(request)) {
        return true;
    }
    if (request.DataBufferOffset < header_size) {
        return false;
    }
    if (request.SenseInfoLength != 0 && !lies_within(request.SenseInfoOffset, request.SenseInfoLength, request.DataBufferOffset)) {
        return false;
    }
    return lies_within(request.DataBufferOffset, request.DataTransferLength,
                       request.DataIn == SCSI_DATA_IN ? output_size : input_size);
}

scsi_command command_of(const SCSI_PASS_THROUGH& request, std::span<std::uint8_t> data) {
    scsi_command command;
    std::copy(std::begin(request.Cdb), std::end(request.Cdb), command.cdb.begin());
    command.cdb_length = request.CdbLength;
    command.timeout_seconds = request.TimeOutValue;
    if (moves_data(request)) {
        command.direction = request.DataIn == SCSI_DATA_IN ? data_direction::from_device : data_direction::to_device;
        command.data = data;
    }
    return command;
}

/// Writes the outcome into header and sense area; tells how many bytes of the block carry an answer when no data does.
std::uint32_t answer_block(SCSI_PASS_THROUGH& request, const scsi_outcome& outcome, const scsi_location& location,
                           std::span<std::uint8_t> block) {
    request.ScsiStatus = outcome.scsi_status;
    request.PathId = location.path;
    request.TargetId = location.target;
    request.Lun = location.lun;
    const std::size_t sense_size = std::min<std::size_t>(outcome.sense.size(), request.SenseInfoLength);
    request.SenseInfoLength = static_cast<std::uint8_t>(sense_size);
    request.DataTransferLength = std::min(outcome.transferred, moves_data(request) ? request.DataTransferLength : 0);
    std::memcpy(block.data(), &request, header_size);
    std::copy_n(outcome.sense.begin(), sense_size, block.begin() + (sense_size == 0 ? 0 : request.SenseInfoOffset));
    return std::max(static_cast<std::uint32_t>(header_size),
                    sense_size == 0 ? 0 : request.SenseInfoOffset + static_cast<std::uint32_t>(sense_size));
}

template <typename Record>
std::uint32_t give(const Record& record, std::span<std::uint8_t> output, std::uint32_t& returned) {
    if (output.size() < sizeof(record)) {
        return error::insufficient_buffer;
    }
    std::memcpy(output.data(), &record, sizeof(record));
    returned = sizeof(record);
    return error::success;
}

}  // namespace

storage_port::storage_port(std::shared_ptr<scsi_transport> transport, const scsi_location& location)
    : transport_(std::move(transport)), location_(location) {}

std::uint32_t storage_port::control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                                    std::uint32_t& returned) {
    returned = 0;
    switch (code) {
        case ioctl::scsi_pass_through:
            return pass_through(input, output, returned);
        case ioctl::scsi_get_address:
            return get_address(output, returned);
        case ioctl::storage_query_property:
            return query_property(input, output, returned);
        case ioctl::storage_media_removal:
            return media_removal(input);
        default:
            return error::invalid_function;
    }
}

std::uint32_t storage_port::pass_through(std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                                         std::uint32_t& returned) {
    if (input.size() < header_size) {
        return error::invalid_parameter;
    }
    if (output.size() < header_size) {
        return error::insufficient_buffer;
    }
    auto request = util::load_record<SCSI_PASS_THROUGH>(input);
    if (!is_acceptable(request, output.size()) || !has_acceptable_data_area(request, input.size(), output.size())) {
        return error::invalid_parameter;
    }
    std::vector<std::uint8_t> outgoing;
    std::span<std::uint8_t> area;
    if (moves_data(request)) {
        if (request.DataIn == SCSI_DATA_IN) {
            area = output.subspan(request.DataBufferOffset, request.DataTransferLength);
        } else {
            const auto data = input.subspan(request.DataBufferOffset, request.DataTransferLength);
            outgoing.assign(data.begin(), data.end());
            area = outgoing;
        }
    }
    const scsi_outcome outcome = transport_->execute(command_of(request, area));
    if (outcome.transport_error != 0) {
        return outcome.transport_error;
    }
    // The block is answered as if in place: what the request held in front of the data comes back with the answer.
    if (input.data() != output.data()) {
        const std::size_t head = request.DataIn == SCSI_DATA_IN && moves_data(request) ? request.DataBufferOffset : output.size();
        std::memmove(output.data(), input.data(), std::min({head, input.size(), output.size()}));
    }
    const bool came = request.DataIn == SCSI_DATA_IN && moves_data(request) && outcome.transferred != 0;
    returned = answer_block(request, outcome, location_, output);
    if (came) {
        returned = request.DataBufferOffset + request.DataTransferLength;
    }
    return error::success;
}

std::uint32_t storage_port::pass_through_direct(std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                                                std::uint32_t& returned) {
    returned = 0;
    if (block.size() < header_size) {
        return error::invalid_parameter;
    }
    auto request = util::load_record<SCSI_PASS_THROUGH>(block);
    if (!is_acceptable(request, block.size()) || (moves_data(request) && request.DataTransferLength > data.size())) {
        return error::invalid_parameter;
    }
    const auto area = moves_data(request) ? data.first(request.DataTransferLength) : std::span<std::uint8_t>();
    const scsi_outcome outcome = transport_->execute(command_of(request, area));
    if (outcome.transport_error != 0) {
        return outcome.transport_error;
    }
    // The block's own address field is too narrow for an address here; no driver reads it.
    request.DataBufferOffset = 0;
    returned = answer_block(request, outcome, location_, block);
    return error::success;
}

std::uint32_t storage_port::get_address(std::span<std::uint8_t> output, std::uint32_t& returned) const {
    SCSI_ADDRESS address;
    address.Length = sizeof(address);
    address.PortNumber = location_.port;
    address.PathId = location_.path;
    address.TargetId = location_.target;
    address.Lun = location_.lun;
    return give(address, output, returned);
}

std::uint32_t storage_port::query_property(std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                                           std::uint32_t& returned) {
    constexpr std::uint32_t query_value = 0;
    constexpr std::uint32_t query_exists = 1;
    if (input.size() < offsetof(STORAGE_PROPERTY_QUERY, AdditionalParameters)) {
        return error::invalid_parameter;
    }
    const auto query = util::load_record<STORAGE_PROPERTY_QUERY>(input);
    if (query.PropertyId != StorageDeviceIdProperty || query.QueryType > query_exists) {
        return error::not_supported;
    }
    if (query.QueryType == query_value && output.size() < descriptor_head) {
        return error::insufficient_buffer;
    }
    std::vector<std::uint8_t> page;
    const scsi_outcome outcome = inquire_page(*transport_, vital_product_page::device_identification, page);
    if (is_check_condition(outcome, sense_key::illegal_request)) {
        return error::not_supported;
    }
    if (const std::uint32_t failure = system_error_of(outcome); failure != 0) {
        return failure;
    }
    if (page.empty()) {
        return error::not_supported;
    }
    if (query.QueryType == query_exists) {
        return error::success;
    }
    // A buffer that is too small gets the beginning, which tells the whole size.
    const std::vector<std::uint8_t> answer = describe_identifiers(page);
    returned = static_cast<std::uint32_t>(std::min(answer.size(), output.size()));
    std::copy_n(answer.begin(), returned, output.begin());
    return error::success;
}

std::uint32_t storage_port::media_removal(std::span<const std::uint8_t> input) {
    if (input.empty()) {
        return error::invalid_parameter;
    }
    const std::uint8_t prevent = input[0] != 0 ? 1 : 0;
    const scsi_outcome outcome =
        send_without_data(*transport_, {opcode::prevent_allow_medium_removal, 0, 0, 0, prevent, 0}, short_command_seconds);
    if (is_check_condition(outcome, sense_key::illegal_request)) {
        return error::not_supported;
    }
    return system_error_of(outcome);
}

}  // namespace platform::device_stack
