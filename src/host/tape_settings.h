#pragma once

#include <string>

/// Loaders of the tape key's values into the process-wide variables of `changer/tape_variables.h` and `command/owner.h`. Each
/// takes the key's path, leaves the default where the value is absent, and logs what it found. A key that can't be opened
/// counts as one without values. A value of an unexpected type throws, and so does a slot portion above 65535: both end the
/// start.
namespace tape_settings {

void LoadCustomChanger(const std::u16string& key_path);
void LoadDeviceSerialPostfix(const std::u16string& key_path);
void LoadBarcodesPostfix(const std::u16string& key_path);
void LoadEnableScsiChanger(const std::u16string& key_path);
void LoadUserSlotPortion(const std::u16string& key_path);
void LoadOwnerSettings(const std::u16string& key_path);
void LoadTapeAlertsEmulator(const std::u16string& key_path);
void LoadOldDeviceEnumerate(const std::u16string& key_path);
void LoadForbiddenSerialNames(const std::u16string& key_path);
void LoadGenerateDriveNameFromAddressNumber(const std::u16string& key_path);

/// All of them, in the order of the start. A failure's trace names the values of the loader that it came from.
void LoadAll(const std::u16string& key_path);

}  // namespace tape_settings
