#include "drive/serial_numbers.h"

#include <algorithm>

#include "changer/tape_variables.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"

namespace SerialNumberRules {

std::u16string ShownDeviceSerial(const std::u16string& serial) {
    return serial + gDeviceSerialPostfix;
}

CElementSerials::CElementSerials(custom_postfix custom, const std::u16string& changer_device_name) {
    if (custom == custom_postfix::for_custom_changer && changer_device_name == gCustomChanger) {
        local_postfix_ = gCustomPostfix;
    }
}

std::u16string CElementSerials::Next(const std::u16string& serial, ELEMENT_TYPE type) {
    const std::uint32_t number = counter_++;
    if (!gDeviceSerialPostfix.empty() && type == ChangerDrive) {
        return serial + gDeviceSerialPostfix;
    }
    return local_postfix_.empty() ? serial : serial + local_postfix_ + text::to_wstring(number);
}

std::u16string ShownBarcode(std::span<const std::uint8_t> primary_volume_id) {
    const std::string barcode = util::without_trailing_blanks(util::text_to_nul(primary_volume_id));
    const std::u16string shown = text::utf8_to_wide_lenient(barcode);
    return shown.empty() ? shown : shown + gBarcodesPostfix;
}

bool IsForbidden(const std::u16string& serial) {
    return std::find(gForbiddenSerialNames.begin(), gForbiddenSerialNames.end(), serial) != gForbiddenSerialNames.end();
}

}  // namespace SerialNumberRules
