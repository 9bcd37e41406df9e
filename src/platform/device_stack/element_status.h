#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/changer_records.h"
#include "platform/device_stack/element_map.h"

namespace platform::device_stack {

/// What an answer to READ ELEMENT STATUS holds (SMC-3 clause 6.11).
struct element_status_report {
    std::vector<CHANGER_ELEMENT_STATUS_EX> elements;  ///< in the order of the answer
    bool last_is_partial = false;                     ///< the answer ended inside the last one's descriptor, behind its state
    std::size_t available = 0;                        ///< bytes that the whole report takes, its header included
};

/// Decodes an answer. Looks at nothing that did not come, whatever its lengths claim; of a descriptor that came in part the
/// element's state is taken, but no identifier that isn't whole. With a type other than AllElements, pages
/// of another type are passed over.
[[nodiscard]] element_status_report decode_element_status(std::span<const std::uint8_t> answer, ELEMENT_TYPE type,
                                                          const element_map& map);

}  // namespace platform::device_stack
