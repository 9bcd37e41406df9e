#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "drive/tape_alert_tables.h"

/// TapeAlert: what drives and libraries say of their own health, in yes-or-no flags on a log page (SSC, SMC: page 0x2E). Read on
/// demand, nothing polls. A device may clear a flag once it has told it.

using TapeAlertList = std::vector<TapeAlert>;

/// The flags that are set, in the order of the page. Opens the device for the length of the call and sends it one LOG SENSE, of up
/// to 20 seconds. Throws nothing for a device fault: the list is empty then, and the log says why unless the device just doesn't
/// answer the page.
[[nodiscard]] TapeAlertList ReadTapeAlerts(const std::string& link_name, bool is_changer);

/// The flags that are set in a TapeAlert log page. Empty when it isn't one; what the page claims beyond its bytes isn't set.
[[nodiscard]] TapeAlertList DecodeTapeAlertPage(std::span<const std::uint8_t> page, bool is_changer);

/// The `alerts` document: an `alert` for each flag, with `id`, `severity`, `message` and numbered `action` children. From the
/// device, or from the emulator when `gTapeAlertsEmulator` is set. UTF-8.
[[nodiscard]] std::string WriteAlertsXml(const std::string& link_name, bool is_changer);
