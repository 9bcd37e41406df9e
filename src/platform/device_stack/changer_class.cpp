#include "platform/device_stack/changer_class.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "foundation/util/bytes.h"
#include "platform/device_stack/element_status.h"
#include "platform/device_stack/scsi_commands.h"
#include "platform/device_stack/sense_error.h"
#include "platform/devices.h"
#include "platform/errors.h"
#include "platform/scsi_records.h"

namespace platform::device_stack {

namespace {

/// A robot that has to fetch from the far end of a row of frames takes minutes; taking stock of one takes up to hours.
constexpr std::int64_t move_seconds = 10 * 60;
constexpr std::int64_t initialize_seconds = 4 * 60 * 60;
constexpr std::int64_t element_status_seconds = 5 * 60;

/// One READ ELEMENT STATUS asks for no more than this, so that its data stays within what every host adapter carries at once.
constexpr std::uint16_t elements_at_once = 400;
constexpr std::size_t largest_allocation = 0xFFFF;
/// Room for a descriptor with both volume tags, and for the designator of a drive.
constexpr std::size_t descriptor_room = 96;
constexpr std::size_t drive_descriptor_room = 192;
/// Report head and one page head for each type.
constexpr std::size_t heads_room = 8 + 4 * 8;

/// A 16-bit number as it stands in a command descriptor block.
constexpr std::uint8_t high(std::uint16_t value) {
    return static_cast<std::uint8_t>(value >> 8);
}
constexpr std::uint8_t low(std::uint16_t value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}

void copy_columns(std::span<const std::uint8_t> data, std::size_t at, std::span<std::uint8_t> field) {
    const auto column = util::slice(data, at, field.size());
    std::copy(column.begin(), column.end(), field.begin());
}

template <typename Record>
std::uint32_t give(const Record& record, std::span<std::uint8_t> output, std::uint32_t& returned) {
    std::memcpy(output.data(), &record, sizeof(record));
    returned = sizeof(record);
    return error::success;
}

/// The robot's address. A robot that the map counts as none is still the one at the map's address.
std::optional<std::uint16_t> transport_address(const element_map& map, const CHANGER_ELEMENT& element) {
    if (element.ElementType == ChangerTransport && element.ElementAddress == 0) {
        return map.first(ChangerTransport);
    }
    return map.address_of(element);
}

/// Capabilities page (SMC-3 clause 7.3.3): which types store, and what a move or an exchange from each type can reach.
void take_capabilities(std::span<const std::uint8_t> page, GET_CHANGER_PARAMETERS& parameters) {
    constexpr std::uint8_t every_type = 0x0F;
    const auto reach = [page](std::size_t at) { return static_cast<std::uint8_t>(util::load_u8(page, at) & every_type); };
    constexpr std::array<std::uint32_t, 4> storage_features = {CHANGER_STORAGE_TRANSPORT, CHANGER_STORAGE_SLOT,
                                                               CHANGER_STORAGE_IEPORT, CHANGER_STORAGE_DRIVE};
    for (std::size_t type = 0; type < storage_features.size(); ++type) {
        if ((reach(2) & (1U << type)) != 0) {
            parameters.Features0 |= storage_features[type];
        }
    }
    parameters.PositionCapabilities = reach(2);
    parameters.MoveFromTransport = reach(4);
    parameters.MoveFromSlot = reach(5);
    parameters.MoveFromIePort = reach(6);
    parameters.MoveFromDrive = reach(7);
    parameters.ExchangeFromTransport = reach(12);
    parameters.ExchangeFromSlot = reach(13);
    parameters.ExchangeFromIePort = reach(14);
    parameters.ExchangeFromDrive = reach(15);
    if ((reach(12) | reach(13) | reach(14) | reach(15)) != 0) {
        parameters.Features0 |= CHANGER_EXCHANGE_MEDIA;
    }
}

/// True when a report that was cut short holds all that was asked for nevertheless. Some devices report every element from the
/// first address on, whatever count they are asked for.
bool is_complete(const element_status_report& report, std::size_t asked) {
    return report.elements.size() > asked || (report.elements.size() == asked && !report.last_is_partial);
}

}  // namespace

changer_class::changer_class(std::shared_ptr<scsi_transport> transport, const scsi_location& location, std::uint32_t device_number)
    : storage_class(std::move(transport), location, FILE_DEVICE_CHANGER, device_number) {}

std::uint32_t changer_class::control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                                     std::uint32_t& returned) {
    returned = 0;
    switch (code) {
        case ioctl::changer_get_parameters:
            return get_parameters(output, returned);
        case ioctl::changer_get_status:
            return get_status();
        case ioctl::changer_get_product_data:
            return get_product_data(output, returned);
        case ioctl::changer_get_element_status:
            return get_element_status(input, output, returned);
        case ioctl::changer_initialize_element_status:
            return initialize_element_status(input);
        case ioctl::changer_exchange_medium:
            return exchange_medium(input);
        case ioctl::changer_move_medium:
            return move_medium(input);
        default:
            return storage_class::control(code, input, output, returned);
    }
}

std::uint32_t changer_class::need_map() {
    constexpr std::uint8_t element_address_assignment = 0x1D;
    if (map_) {
        return error::success;
    }
    std::vector<std::uint8_t> page;
    const scsi_outcome outcome = sense_mode_page(transport(), element_address_assignment, page);
    if (const std::uint32_t failure = system_error_of(outcome); failure != 0) {
        return failure;
    }
    map_ = element_map::decode(page);
    return map_ ? error::success : error::io_device;
}

std::uint32_t changer_class::get_parameters(std::span<std::uint8_t> output, std::uint32_t& returned) {
    constexpr std::uint8_t transport_geometry = 0x1E;
    constexpr std::uint8_t device_capabilities = 0x1F;
    GET_CHANGER_PARAMETERS parameters;
    if (output.size() < sizeof(parameters)) {
        return error::insufficient_buffer;
    }
    if (const std::uint32_t failure = need_map(); failure != 0) {
        return failure;
    }
    parameters.Size = sizeof(parameters);
    parameters.NumberTransportElements = map_->count(ChangerTransport);
    parameters.NumberStorageElements = map_->count(ChangerSlot);
    parameters.NumberIEElements = map_->count(ChangerIEPort);
    parameters.NumberDataTransferElements = map_->count(ChangerDrive);
    parameters.FirstTransportNumber = map_->first(ChangerTransport);
    parameters.FirstSlotNumber = map_->first(ChangerSlot);
    parameters.FirstIEPortNumber = map_->first(ChangerIEPort);
    parameters.FirstDriveNumber = map_->first(ChangerDrive);
    std::vector<std::uint8_t> page;
    if (const std::uint32_t failure = system_error_of(sense_mode_page(transport(), device_capabilities, page)); failure != 0) {
        return failure;
    }
    if (page.empty()) {
        return error::io_device;
    }
    take_capabilities(page, parameters);
    // Only robots that can turn a cartridge over need this page, and many don't have it.
    const scsi_outcome geometry = sense_mode_page(transport(), transport_geometry, page);
    if (const std::uint32_t failure = system_error_of(geometry); failure == 0) {
        if ((util::load_u8(page, 2) & 0x01) != 0) {
            parameters.Features0 |= CHANGER_MEDIUM_FLIP;
        }
    } else if (!is_check_condition(geometry, sense_key::illegal_request)) {
        return failure;
    }
    return give(parameters, output, returned);
}

std::uint32_t changer_class::get_status() {
    return system_error_of(send_without_data(transport(), {opcode::test_unit_ready, 0, 0, 0, 0, 0}, short_command_seconds));
}

std::uint32_t changer_class::get_product_data(std::span<std::uint8_t> output, std::uint32_t& returned) {
    CHANGER_PRODUCT_DATA product;
    if (output.size() < sizeof(product)) {
        return error::insufficient_buffer;
    }
    std::vector<std::uint8_t> data;
    if (const std::uint32_t failure = system_error_of(inquire(transport(), data)); failure != 0) {
        return failure;
    }
    copy_columns(data, 8, product.VendorId);
    copy_columns(data, 16, product.ProductId);
    copy_columns(data, 32, product.Revision);
    product.DeviceType = util::load_u8(data, 0) & 0x1F;
    // A device without this page has no serial number to tell, which is no failure.
    const scsi_outcome outcome = inquire_page(transport(), vital_product_page::unit_serial_number, data);
    if (outcome.transport_error != 0) {
        return outcome.transport_error;
    }
    copy_columns(data, 4, product.SerialNumber);
    return give(product, output, returned);
}

std::uint32_t changer_class::get_element_status(std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                                                std::uint32_t& returned) {
    if (input.size() < sizeof(CHANGER_READ_ELEMENT_STATUS)) {
        return error::invalid_parameter;
    }
    const auto request = util::load_record<CHANGER_READ_ELEMENT_STATUS>(input);
    const std::size_t count = request.NumberOfElements;
    if (count > 0xFFFF || request.Element.ElementType > ChangerDrive) {
        return error::invalid_parameter;
    }
    if (count == 0) {
        returned = 0;
        return error::success;
    }
    if (output.size() < count * CHANGER_ELEMENT_STATUS_SIZE) {
        return error::insufficient_buffer;
    }
    if (const std::uint32_t failure = need_map(); failure != 0) {
        return failure;
    }
    const std::optional<std::uint16_t> first = map_->address_of(request.Element);
    if (!first) {
        return error::illegal_element_address;
    }
    std::vector<CHANGER_ELEMENT_STATUS_EX> elements;
    if (const std::uint32_t failure = read_elements(request, *first, elements); failure != 0) {
        return failure;
    }
    // The caller tells the two record forms apart by the size of the answer, so that elements which the device left out are
    // made up for by zero records in the long form.
    const bool long_form = output.size() >= count * sizeof(CHANGER_ELEMENT_STATUS_EX);
    const std::size_t record_size = long_form ? sizeof(CHANGER_ELEMENT_STATUS_EX) : CHANGER_ELEMENT_STATUS_SIZE;
    elements.resize(long_form ? count : std::min(elements.size(), count));
    std::size_t at = 0;
    for (CHANGER_ELEMENT_STATUS_EX& element : elements) {
        if (!long_form) {
            element.Flags &= ~ELEMENT_STATUS_PRODUCT_DATA;
        }
        std::memcpy(&output[at], &element, record_size);
        at += record_size;
    }
    returned = static_cast<std::uint32_t>(at);
    return error::success;
}

std::uint32_t changer_class::read_elements(const CHANGER_READ_ELEMENT_STATUS& request, std::uint16_t first,
                                           std::vector<CHANGER_ELEMENT_STATUS_EX>& elements) {
    const auto type = static_cast<ELEMENT_TYPE>(request.Element.ElementType);
    const std::size_t room = type == ChangerDrive || type == AllElements ? drive_descriptor_room : descriptor_room;
    std::uint32_t next = first;
    std::uint32_t remaining = std::min<std::uint32_t>(request.NumberOfElements, map_->count(type) - request.Element.ElementAddress);
    elements.reserve(remaining);
    std::vector<std::uint8_t> answer;
    while (remaining != 0 && next <= 0xFFFF) {
        const auto asked = static_cast<std::uint16_t>(std::min<std::uint32_t>(remaining, elements_at_once));
        const auto address = static_cast<std::uint16_t>(next);
        std::size_t allocation = std::min(heads_room + asked * room, largest_allocation);
        if (const std::uint32_t failure = read_report(request, address, asked, allocation, answer); failure != 0) {
            return failure;
        }
        element_status_report report = decode_element_status(answer, type, *map_);
        if (report.available > allocation && allocation < largest_allocation && !is_complete(report, asked)) {
            allocation = std::min(report.available, largest_allocation);
            if (const std::uint32_t failure = read_report(request, address, asked, allocation, answer); failure != 0) {
                return failure;
            }
            report = decode_element_status(answer, type, *map_);
        }
        const bool cut_short = report.available > allocation;
        if (cut_short && report.last_is_partial && !report.elements.empty()) {
            // It comes whole with the next part.
            report.elements.pop_back();
        }
        const auto came = static_cast<std::uint32_t>(std::min<std::size_t>(report.elements.size(), asked));
        elements.insert(elements.end(), report.elements.begin(), report.elements.begin() + came);
        remaining -= came;
        if (came == 0 || (came < asked && !cut_short)) {
            break;  // the device has no more
        }
        const CHANGER_ELEMENT& last = elements.back().Element;
        const std::uint32_t behind =
            ((map_->first(static_cast<ELEMENT_TYPE>(last.ElementType)) + last.ElementAddress) & 0xFFFF) + 1;
        if (behind <= next) {
            break;  // it reports the same elements again
        }
        next = behind;
    }
    return error::success;
}

std::uint32_t changer_class::read_report(const CHANGER_READ_ELEMENT_STATUS& request, std::uint16_t first, std::uint16_t count,
                                         std::size_t allocation, std::vector<std::uint8_t>& answer) {
    constexpr std::uint8_t volume_tag = 0x10;
    constexpr std::uint8_t device_identifier = 0x01;
    const auto type_byte = static_cast<std::uint8_t>(request.Element.ElementType | (request.VolumeTagInfo != 0 ? volume_tag : 0));
    const bool may_hold_drives = request.Element.ElementType == ChangerDrive || request.Element.ElementType == AllElements;
    const auto send = [&](std::uint8_t identifier) {
        answer.assign(allocation, 0);
        return receive(transport(),
                       {opcode::read_element_status, type_byte, high(first), low(first), high(count), low(count), identifier,
                        static_cast<std::uint8_t>(allocation >> 16), static_cast<std::uint8_t>((allocation >> 8) & 0xFF),
                        static_cast<std::uint8_t>(allocation & 0xFF), 0, 0},
                       answer, element_status_seconds);
    };
    if (may_hold_drives && identifies_drives_) {
        const scsi_outcome outcome = send(device_identifier);
        if (!is_check_condition(outcome, sense_key::illegal_request)) {
            return system_error_of(outcome);
        }
        // Either the device can't identify its drives or it refuses the elements asked for: the next try tells.
        const std::uint32_t failure = system_error_of(send(0));
        identifies_drives_ = failure != 0;
        return failure;
    }
    return system_error_of(send(0));
}

std::uint32_t changer_class::initialize_element_status(std::span<const std::uint8_t> input) {
    // Without elements named, all of them are meant.
    CHANGER_INITIALIZE_ELEMENT_STATUS request;
    if (input.size() >= sizeof(request)) {
        request = util::load_record<CHANGER_INITIALIZE_ELEMENT_STATUS>(input);
    }
    if (request.Element.ElementType != AllElements) {
        if (const std::uint32_t failure = need_map(); failure != 0) {
            return failure;
        }
        const std::optional<std::uint16_t> first = map_->address_of(request.Element);
        if (!first) {
            return error::illegal_element_address;
        }
        const auto count = static_cast<std::uint16_t>(std::min<std::uint32_t>(request.NumberOfElements, 0xFFFF));
        constexpr std::uint8_t range = 0x01;
        const scsi_outcome outcome = send_without_data(
            transport(),
            {opcode::initialize_element_status_with_range, range, high(*first), low(*first), 0, 0, high(count), low(count), 0, 0},
            initialize_seconds);
        if (!is_check_condition(outcome, sense_key::illegal_request)) {
            return system_error_of(outcome);
        }
    }
    return system_error_of(send_without_data(transport(), {opcode::initialize_element_status, 0, 0, 0, 0, 0}, initialize_seconds));
}

std::uint32_t changer_class::exchange_medium(std::span<const std::uint8_t> input) {
    if (input.size() < sizeof(CHANGER_EXCHANGE_MEDIUM)) {
        return error::invalid_parameter;
    }
    const auto request = util::load_record<CHANGER_EXCHANGE_MEDIUM>(input);
    if (const std::uint32_t failure = need_map(); failure != 0) {
        return failure;
    }
    const auto transport_at = transport_address(*map_, request.Transport);
    const auto source = map_->address_of(request.Source);
    const auto first = map_->address_of(request.Destination1);
    const auto second = map_->address_of(request.Destination2);
    if (!transport_at || !source || !first || !second) {
        return error::illegal_element_address;
    }
    const auto invert = static_cast<std::uint8_t>((request.Flip1 != 0 ? 0x02 : 0) | (request.Flip2 != 0 ? 0x01 : 0));
    return system_error_of(send_without_data(transport(),
                                             {opcode::exchange_medium, 0, high(*transport_at), low(*transport_at), high(*source),
                                              low(*source), high(*first), low(*first), high(*second), low(*second), invert, 0},
                                             move_seconds));
}

std::uint32_t changer_class::move_medium(std::span<const std::uint8_t> input) {
    if (input.size() < sizeof(CHANGER_MOVE_MEDIUM)) {
        return error::invalid_parameter;
    }
    const auto request = util::load_record<CHANGER_MOVE_MEDIUM>(input);
    if (const std::uint32_t failure = need_map(); failure != 0) {
        return failure;
    }
    const auto transport_at = transport_address(*map_, request.Transport);
    const auto source = map_->address_of(request.Source);
    const auto destination = map_->address_of(request.Destination);
    if (!transport_at || !source || !destination) {
        return error::illegal_element_address;
    }
    const std::uint8_t invert = request.Flip != 0 ? 0x01 : 0x00;
    return system_error_of(send_without_data(transport(),
                                             {opcode::move_medium, 0, high(*transport_at), low(*transport_at), high(*source),
                                              low(*source), high(*destination), low(*destination), 0, 0, invert, 0},
                                             move_seconds));
}

}  // namespace platform::device_stack
