#pragma once

#include <string>
#include <vector>

#include "platform/device_stack/scsi_transport.h"

namespace platform::device_stack {

/// One logical unit as the SCSI device map shows it: a leaf "Scsi Port p\Scsi Bus b\Target Id t\Logical Unit Id l".
struct device_map_leaf {
    scsi_location location;
    std::string type;           ///< "TapePeripheral" or "MediumChangerPeripheral"
    std::string device_name;    ///< "Tape0", "Changer0"...; empty for a unit that no class driver serves
    std::string serial_number;  ///< unit serial number page's text
};

}  // namespace platform::device_stack
