#pragma once

#include <string>

#include "platform/devices.h"

/// Opens a tape drive by its link name, once and without waiting. `invalid_device` on failure: the log says so, and the reason is
/// still in the last error.
[[nodiscard]] platform::device_handle OpenDrive(const std::string& link_name);
