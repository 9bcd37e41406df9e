#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "changer/changer_interface.h"

/// How the settings change what a console is shown of serial numbers and bar codes, and which devices they hide. Reads the
/// settings of changer/tape_variables.h; none of this fails.
namespace SerialNumberRules {

/// Serial number of a drive by itself, or of a changer, as shown.
[[nodiscard]] std::u16string ShownDeviceSerial(const std::u16string& serial);

/// Whether the elements of a record can take the custom postfix: the drives' status record, and the general one for drives.
enum class custom_postfix : bool { never, for_custom_changer };

/// Shows the serial numbers of one record's elements, in order.
class CElementSerials {
public:
    /// `changer_device_name` is the name of the changer that the elements belong to.
    CElementSerials(custom_postfix custom, const std::u16string& changer_device_name);
    /// The next element's serial number as shown.
    [[nodiscard]] std::u16string Next(const std::u16string& serial, ELEMENT_TYPE type);

private:
    std::u16string local_postfix_;
    std::uint32_t counter_ = 0;
};

/// Bar code as shown: text up to the field's first NUL without trailing blanks, with the bar code postfix unless it is empty.
[[nodiscard]] std::u16string ShownBarcode(std::span<const std::uint8_t> primary_volume_id);

/// Whether a device with this serial number is to be left out of the enumeration.
[[nodiscard]] bool IsForbidden(const std::u16string& serial);

}  // namespace SerialNumberRules
