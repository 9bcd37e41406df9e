#include "host/tape_settings.h"

#include <optional>
#include <utility>
#include <vector>

#include "changer/tape_variables.h"
#include "command/owner.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/win/win_reg_key.h"

namespace tape_settings {

namespace {

win::reg_key_ptr open_for_reading(const std::u16string& key_path) {
    try {
        return win::open_reg_key(key_path, platform::registry_access::read);
    } catch (const exc::win_sys_exc_t&) {
        return {};
    }
}

std::optional<std::u16string> read_text(const win::reg_key_ptr& key, std::u16string_view name) {
    std::u16string value;
    if (!key || !key->try_get_string(name, value)) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::u16string> read_text(const std::u16string& key_path, std::u16string_view name) {
    return read_text(open_for_reading(key_path), name);
}

std::optional<std::uint32_t> read_number(const win::reg_key_ptr& key, std::u16string_view name) {
    std::uint32_t value = 0;
    if (!key || !key->try_get_dword(name, value)) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::uint32_t> read_number(const std::u16string& key_path, std::u16string_view name) {
    return read_number(open_for_reading(key_path), name);
}

/// Pieces between semicolons; the last one is kept even when it is empty.
std::vector<std::u16string> split_list(const std::u16string& text) {
    std::vector<std::u16string> pieces;
    std::size_t start = 0;
    for (std::size_t end = text.find(u';'); end != std::u16string::npos; end = text.find(u';', start)) {
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

struct loader {
    const char* values;
    void (*load)(const std::u16string& key_path);
};

/// In the order of the start.
constexpr loader loaders[] = {
    {"CustomPostfix", LoadCustomChanger},
    {"TapeDeviceSerialNumberPostfix", LoadDeviceSerialPostfix},
    {"BarcodesPostfix", LoadBarcodesPostfix},
    {"EnableScsiChanger", LoadEnableScsiChanger},
    {"UserSlotPortion", LoadUserSlotPortion},
    {"BackupServer, ManyOwners", LoadOwnerSettings},
    {"TapeAlertsEmulator", LoadTapeAlertsEmulator},
    {"OldDeviceEnumerate", LoadOldDeviceEnumerate},
    {"ForbiddenSerialNames", LoadForbiddenSerialNames},
    {"GenerateDriveNameFromAddressNumber", LoadGenerateDriveNameFromAddressNumber},
};

}  // namespace

void LoadCustomChanger(const std::u16string& key_path) {
    // The postfix's text is taken for the changer's name and the postfix stays empty. Installations rely on what this yields,
    // so it stays.
    const std::optional<std::u16string> postfix = read_text(key_path, u"CustomPostfix");
    if (!postfix) {
        g_log.LogInfo("No adding postfix for drives serial names.");
        return;
    }
    gCustomChanger = *postfix;
    gCustomPostfix.clear();
    g_log.LogInfo("For changer [%1] set serial name postfix [%2] for drives.", text::wide_to_utf8(gCustomChanger),
                  text::wide_to_utf8(gCustomPostfix));
}

void LoadDeviceSerialPostfix(const std::u16string& key_path) {
    if (const auto postfix = read_text(key_path, u"TapeDeviceSerialNumberPostfix")) {
        gDeviceSerialPostfix = *postfix;
        g_log.LogInfo("Adding postfix for devices serial names = %1.", text::wide_to_utf8(*postfix));
    }
}

void LoadBarcodesPostfix(const std::u16string& key_path) {
    if (const auto postfix = read_text(key_path, u"BarcodesPostfix")) {
        gBarcodesPostfix = *postfix;
        g_log.LogInfo("Adding postfix for barcodes = %1.", text::wide_to_utf8(*postfix));
    }
}

void LoadEnableScsiChanger(const std::u16string& key_path) {
    gEnableScsiChanger = false;
    if (const auto value = read_number(key_path, u"EnableScsiChanger")) {
        gEnableScsiChanger = *value != 0;
        g_log.LogInfo("=======Find EnableScsiChanger key.======");
    }
    g_log.LogInfo(gEnableScsiChanger ? "Work without driver. Use scsi." : "Work without scsi. Use driver.");
}

void LoadUserSlotPortion(const std::u16string& key_path) {
    if (const auto value = read_number(key_path, u"UserSlotPortion")) {
        gUserSlotPortion = exc::narrow_to_u16(*value);
        g_log.LogInfo("User set new slot portion: %1", text::to_string(*value));
    }
}

void LoadOwnerSettings(const std::u16string& key_path) {
    const win::reg_key_ptr key = open_for_reading(key_path);
    const std::optional<std::u16string> owner = read_text(key, owner_value_name);
    LoadOwner(key_path, owner.value_or(std::u16string()), false);
    if (owner) {
        g_log.LogInfo("Host name setting were read from registry. [%1].", text::wide_to_utf8(*owner));
    } else {
        g_log.LogInfo("Host name was not found in registry.");
    }
    if (read_number(key, u"ManyOwners") == 1u) {
        g_log.LogInfo("Many hosts regime is turned on");
        LoadOwner(key_path, owner.value_or(std::u16string()), true);
    } else {
        g_log.LogInfo("Many hosts regime is off.");
    }
}

void LoadTapeAlertsEmulator(const std::u16string& key_path) {
    gTapeAlertsEmulator = read_number(key_path, u"TapeAlertsEmulator").value_or(0) != 0;
    if (gTapeAlertsEmulator) {
        g_log.LogInfo("Use Tape Alerts Emulator.");
    }
}

void LoadOldDeviceEnumerate(const std::u16string& key_path) {
    if (read_number(key_path, u"OldDeviceEnumerate").value_or(0) != 0) {
        g_log.LogInfo("User have set old style device enumerate");
        gOldDeviceEnumerate = true;
    }
}

void LoadForbiddenSerialNames(const std::u16string& key_path) {
    const auto list = read_text(key_path, u"ForbiddenSerialNames");
    if (!list) {
        return;
    }
    gForbiddenSerialNames = split_list(*list);
    g_log.LogInfo("=======Find ForbiddenSerialNames key.======");
    for (const std::u16string& name : gForbiddenSerialNames) {
        g_log.LogInfo(text::wide_to_utf8(name));
    }
}

void LoadGenerateDriveNameFromAddressNumber(const std::u16string& key_path) {
    if (const auto value = read_number(key_path, u"GenerateDriveNameFromAddressNumber")) {
        gGenerateDriveNameFromAddressNumber = *value != 0;
        g_log.LogInfo("=======Generate drive name from address number on.======");
    }
}

void LoadAll(const std::u16string& key_path) {
    for (const loader& one : loaders) {
        try {
            one.load(key_path);
        } catch (std::exception& e) {
            exc::rethrow_with_trace("Failed to load tape settings. Values: [%1].", one.values, e);
        }
    }
}

}  // namespace tape_settings
