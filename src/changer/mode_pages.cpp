#include "changer/mode_pages.h"

#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"

namespace {

constexpr std::uint8_t page_element_address_assignment = 0x1D;
constexpr std::uint8_t page_device_capabilities = 0x1F;

/// From the end of the mode data, as its length byte counts it, back to the page's start.
constexpr std::uint8_t assignment_page_distance = 19;

constexpr int element_types = 4;

}  // namespace

bool ParseElementAddressAssignment(std::span<const std::uint8_t> data, element_map_t& map) {
    // The page is the last thing in the answer, whatever a device puts in front of it.
    std::size_t position = static_cast<std::uint8_t>(util::load_u8(data, 0) - assignment_page_distance);
    // Not a comparison: some devices set further bits in the page code.
    if ((util::load_u8(data, position) & page_element_address_assignment) != page_element_address_assignment) {
        return false;
    }
    map.first_addresses.push_back(0);
    map.counts.push_back(0);
    for (int type = 0; type < element_types; ++type) {
        map.first_addresses.push_back(util::load_be16(data, position + 2));
        map.counts.push_back(util::load_be16(data, position + 4));
        position += 4;
    }
    return true;
}

bool ParseDeviceCapabilities(std::span<const std::uint8_t> page, GET_CHANGER_PARAMETERS& parameters) {
    const std::uint8_t code = util::load_u8(page, 0);
    if ((code & page_device_capabilities) != page_device_capabilities) {
        g_log.LogInfo("It's not ModeDeviceCapabilities. It's %1 ", text::to_string(std::uint32_t{code}));
        return false;
    }
    const auto capability = [&](std::size_t at) { return static_cast<std::uint8_t>(util::load_u8(page, at) & 0x0F); };
    parameters.PositionCapabilities = capability(2);
    parameters.MoveFromTransport = capability(4);
    parameters.MoveFromSlot = capability(5);
    parameters.MoveFromIePort = capability(6);
    parameters.MoveFromDrive = capability(7);
    return true;
}
