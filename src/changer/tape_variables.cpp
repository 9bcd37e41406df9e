#include "changer/tape_variables.h"

#include <exception>
#include <string_view>

#include "foundation/win/win_reg_key.h"
#include "platform/registry.h"

bool gEnableScsiChanger = false;
std::uint16_t gUserSlotPortion = 50;
std::vector<std::u16string> gForbiddenSerialNames;
std::u16string gCustomChanger;
std::u16string gCustomPostfix;
std::u16string gDeviceSerialPostfix;
std::u16string gBarcodesPostfix;
bool gTapeAlertsEmulator = false;
bool gGenerateDriveNameFromAddressNumber = false;
bool gOldDeviceEnumerate = false;

std::int64_t read_not_ready_timeout() {
    std::uint32_t seconds = 0;
    try {
        const win::reg_key_ptr key = win::open_reg_key(std::u16string_view(tape_key_path), platform::registry_access::read);
        if (key && key->try_get_dword(std::u16string_view(u"TapeDeviceNotReadyTimeoutSec"), seconds)) {
            return seconds;
        }
    } catch (const std::exception&) {
        return default_not_ready_timeout;  // a value that can't be read counts as none
    }
    return default_not_ready_timeout;
}
