#pragma once

#include <cstdint>
#include <span>

#include "changer/changer_commands.h"
#include "changer/changer_interface.h"

/// Adds the element address assignment of a MODE SENSE(6) answer to the map: nothing but zeros for type 0, then first address
/// and count of transports, slots, ports and drives. False, and nothing added, when the page isn't there.
bool ParseElementAddressAssignment(std::span<const std::uint8_t> data, element_map_t& map);

/// Puts a device capabilities page into the record. False, with a line in the log, when it is another page.
bool ParseDeviceCapabilities(std::span<const std::uint8_t> page, GET_CHANGER_PARAMETERS& parameters);
