#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The tape code's process-wide settings. Filled once at start by the loaders of `host/tape_settings`, before any call is
/// served, and read without a lock afterwards. The owner's name, which changes while calls run, is not here: see
/// `command/owner.h`.

/// Key of the tape settings, below the local machine's root.
inline constexpr char16_t tape_key_path[] = u"SOFTWARE\\Tarno\\Tarno Backup Tape";

extern bool gEnableScsiChanger;                            ///< changers always use the SCSI backend
extern std::uint16_t gUserSlotPortion;                     ///< slots in one status request
extern std::vector<std::u16string> gForbiddenSerialNames;  ///< serial numbers of devices to leave out
extern std::u16string gCustomChanger;                      ///< device name of the changer with the custom postfix
extern std::u16string gCustomPostfix;                      ///< postfix with a running number for that changer's elements
extern std::u16string gDeviceSerialPostfix;                ///< added to every serial number shown
extern std::u16string gBarcodesPostfix;                    ///< added to every bar code shown
extern bool gTapeAlertsEmulator;                           ///< alerts come from a file
extern bool gGenerateDriveNameFromAddressNumber;           ///< drive names come from the logical unit number
extern bool gOldDeviceEnumerate;                           ///< stored, read by nothing

/// Default of "TapeDeviceNotReadyTimeoutSec", in seconds.
inline constexpr std::int64_t default_not_ready_timeout = 60;

/// Seconds to wait for a device that isn't ready: read from the registry at each call.
[[nodiscard]] std::int64_t read_not_ready_timeout();
