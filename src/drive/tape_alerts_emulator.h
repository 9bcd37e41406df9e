#pragma once

#include <string>

#include "drive/tape_alerts.h"

/// Alerts out of a file instead of a device, for trying a console out: `TapeAlerts.xml` in the folder of the running program. Its
/// root `TapeAlerts` has one child for each alert, of any name, with the attributes
///
///     deviceSymLink   the link name of the device that has the alert; case doesn't count
///     deviceType      "Drive" or "Changer": the table that the alert is from; case doesn't count, any other word is no alert
///     alertCode       the flag's number, decimal
///
/// The file is read again at each call, so it can be changed while the service runs.
namespace CTapeAlertsEmulator {

/// The device's alerts in order of the file. Throws nothing for a fault of the file: the log tells it, and the list is empty.
[[nodiscard]] TapeAlertList Read(const std::string& link_name);

}  // namespace CTapeAlertsEmulator
