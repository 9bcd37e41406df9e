#pragma once

#include <cstdint>
#include <vector>

#include "changer/changer_interface.h"
#include "changer/scsi_pass_through.h"

/// The element address map of a changer: the first address and the count of each element type, by type number. Empty until
/// it was read; a type that it lacks fails with the standard out-of-range failure.
struct element_map_t {
    std::vector<std::uint16_t> first_addresses;
    std::vector<std::uint16_t> counts;

    [[nodiscard]] std::uint16_t first(std::uint32_t type) const;
    [[nodiscard]] std::uint16_t count(std::uint32_t type) const;
};

/// Bytes that a device may send for an element status command.
inline constexpr std::uint16_t element_status_allocation = 0x0F00;

/// READ ELEMENT STATUS (SMC-3) of `count` elements from the zero-based address on, with volume tags. `device_identifiers` asks
/// for DVCID and counts for drives only. Runs the request.
void ReadElementStatus(CScsiPassThrough& request, std::uint16_t address, ELEMENT_TYPE type, std::uint16_t count,
                       const element_map_t& map, bool device_identifiers);

/// READ ELEMENT STATUS of up to 500 drives. Runs the request.
void ReadDriveElementStatus(CScsiPassThrough& request, const element_map_t& map, bool device_identifiers);

/// MOVE MEDIUM by the first transport, zero-based addresses. Runs the request.
void MoveMediumCommand(CScsiPassThrough& request, std::uint32_t source, ELEMENT_TYPE source_type, std::uint32_t destination,
                       ELEMENT_TYPE destination_type, const element_map_t& map);

/// MODE SENSE(6) of one page without block descriptors, 24 bytes. Runs the request.
void ModeSensePage(CScsiPassThrough& request, std::uint8_t page);
