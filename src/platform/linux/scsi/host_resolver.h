#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/linux/scsi/iscsi_setting.h"

namespace platform::linux_scsi {

/// The portal's numeric addresses as "address:port", in the system's order of preference. Empty when the name can't be resolved
/// by the deadline, with a sentence for a person. A numeric address asks no name server.
[[nodiscard]] std::vector<std::string> resolve_portal(const iscsi_portal& portal, std::chrono::steady_clock::time_point deadline,
                                                      std::string& reason);

}  // namespace platform::linux_scsi
