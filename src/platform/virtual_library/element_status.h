#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "platform/virtual_library/inventory.h"
#include "platform/virtual_library/logical_unit.h"

namespace platform::tape_library {

/// What a READ ELEMENT STATUS asks for.
struct element_status_request {
    std::uint8_t type = 0;  ///< element type code, 0 for all
    std::uint16_t first = 0;
    std::uint16_t count = 0;
    bool volume_tags = false;
    bool device_identifiers = false;
    std::uint32_t allocation = 0;
};

/// What the report needs to know beyond the inventory.
struct element_status_facts {
    std::function<unit_identity(std::uint16_t)> drive_identity;  ///< of the drive at an address, its serial as it is told
    std::function<bool(std::uint16_t)> drive_blocked;            ///< the robot can't take what is in the drive
    bool ports_open = false;
};

/// The report (SMC-3): header, and a page for each run of elements of one type, in ascending order of addresses. The header and
/// the pages count all that meets the request; of descriptors, only whole ones that fit the allocation length are there.
/// Nothing when no element of the type has the first address or a higher one. The work is that of the elements delivered.
[[nodiscard]] std::optional<byte_vector> build_element_status(const inventory& elements, const personality& made_of,
                                                              const element_status_request& wanted,
                                                              const element_status_facts& facts);

}  // namespace platform::tape_library
