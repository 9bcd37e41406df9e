#include "changer/changer_commands.h"

#include <stdexcept>

#include "changer/changer_interface.h"
#include "foundation/exc/exceptions.h"
#include "foundation/text/conversion.h"

namespace {

constexpr std::uint8_t operation_mode_sense_6 = 0x1A;
constexpr std::uint8_t operation_move_medium = 0xA5;
constexpr std::uint8_t operation_read_element_status = 0xB8;

constexpr std::uint8_t disable_block_descriptors = 0x08;
constexpr std::uint8_t mode_sense_allocation = 0x18;
constexpr std::uint8_t volume_tags = 0x10;
constexpr std::uint16_t all_drives = 500;

std::uint16_t at(const std::vector<std::uint16_t>& values, std::uint32_t type) {
    if (type >= values.size()) {
        throw std::out_of_range("invalid vector<T> subscript");
    }
    return values[type];
}

/// The device's address of an element. One that 16 bits don't hold is refused: cut to them it would name some other element, and a
/// cartridge there would move.
std::uint16_t raised(const element_map_t& map, ELEMENT_TYPE type, std::uint32_t address) {
    constexpr std::uint32_t last_address = 0xFFFF;
    const std::uint16_t first = map.first(type);
    if (address > last_address - first) {
        throw exc::runtime_exc_t("There is no %1 #%2: the changer has no such address.", ElementTypeName(type),
                                 text::to_string(address));
    }
    return static_cast<std::uint16_t>(first + address);
}

constexpr std::uint8_t high(std::uint16_t value) {
    return static_cast<std::uint8_t>(value >> 8);
}

constexpr std::uint8_t low(std::uint16_t value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}

void send_read_element_status(CScsiPassThrough& request, std::uint8_t options, std::uint16_t start, std::uint16_t count,
                              std::uint8_t device_identifiers) {
    request.SetCdb({operation_read_element_status, options, high(start), low(start), high(count), low(count), device_identifiers, 0,
                    high(element_status_allocation), low(element_status_allocation), 0, 0});
    request.Execute();
}

}  // namespace

std::uint16_t element_map_t::first(std::uint32_t type) const {
    return at(first_addresses, type);
}

std::uint16_t element_map_t::count(std::uint32_t type) const {
    return at(counts, type);
}

void ReadElementStatus(CScsiPassThrough& request, std::uint16_t address, ELEMENT_TYPE type, std::uint16_t count,
                       const element_map_t& map, bool device_identifiers) {
    const std::uint8_t identifiers = type == ChangerDrive && device_identifiers ? 1 : 0;
    send_read_element_status(request, static_cast<std::uint8_t>(type | volume_tags), raised(map, type, address), count,
                             identifiers);
}

void ReadDriveElementStatus(CScsiPassThrough& request, const element_map_t& map, bool device_identifiers) {
    send_read_element_status(request, volume_tags | ChangerDrive, map.first(ChangerDrive), all_drives, device_identifiers ? 1 : 0);
}

void MoveMediumCommand(CScsiPassThrough& request, std::uint32_t source, ELEMENT_TYPE source_type, std::uint32_t destination,
                       ELEMENT_TYPE destination_type, const element_map_t& map) {
    const std::uint16_t transport = map.first(ChangerTransport);
    const std::uint16_t from = raised(map, source_type, source);
    const std::uint16_t to = raised(map, destination_type, destination);
    request.SetCdb(
        {operation_move_medium, 0, high(transport), low(transport), high(from), low(from), high(to), low(to), 0, 0, 0, 0});
    request.Execute();
}

void ModeSensePage(CScsiPassThrough& request, std::uint8_t page) {
    request.SetCdb({operation_mode_sense_6, disable_block_descriptors, page, 0, mode_sense_allocation, 0});
    request.Execute();
}
