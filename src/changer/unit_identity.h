#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/devices.h"

/// Who a device says it is, drive or changer alike. The link name is for messages.

/// Sends INQUIRY (SPC-4) for a page, or for the standard data with page 0 and `vital_product_data` false. The bytes that came,
/// with zeros behind them. Throws `exc::win_sys_exc_t` when the request can't be sent; what the device makes of it isn't looked at.
[[nodiscard]] std::vector<std::uint8_t> SendInquiry(platform::device_handle device, std::uint8_t page, bool vital_product_data,
                                                    const std::string& link_name);

/// Serial number from the unit serial number page, blanks kept. Empty, with the reason in the log, when it can't be read.
[[nodiscard]] std::u16string ReadUnitSerialPage(platform::device_handle device, const std::string& link_name);

/// Serial number from the device's identifiers: the last word of the first vendor identification. Empty, with the reason in
/// the log, when it can't be read; empty when there is none.
[[nodiscard]] std::u16string ReadStoragePropertySerial(platform::device_handle device, const std::string& link_name);

/// What stands behind the text's last blank, its trailing blanks left out; all of it when it has no blank.
[[nodiscard]] std::string LastWord(const std::string& text);

/// A vendor identification's last word, followed by the blanks at the identification's end.
[[nodiscard]] std::string LastWordWithBlanks(const std::string& identification);
