#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/changer_records.h"
#include "platform/device_stack/element_map.h"

namespace platform::device_stack {

/// What an answer to READ ELEMENT STATUS holds (SMC-3 clause 6.11).
struct element_status_report {
    std::vector<CHANGER_ELEMENT_STATUS_EX> elements;  ///< in the order of the answer; descriptors that came in part are left out
    std::uint32_t next_address = 0;                   ///< one behind the highest device address among them; 0 when there are none
    std::size_t available = 0;                        ///< bytes that the whole report takes, its header included
};

/// Decodes an answer. Looks at nothing that did not come, whatever its lengths claim. With a type other than AllElements, pages
/// of another type are passed over.
[[nodiscard]] element_status_report decode_element_status(std::span<const std::uint8_t> answer, ELEMENT_TYPE type,
                                                          const element_map& map);

}  // namespace platform::device_stack
