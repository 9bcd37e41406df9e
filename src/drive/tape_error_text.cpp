#include <array>
#include <string_view>

#include "drive/drive_handle.h"
#include "foundation/exc/exceptions.h"

namespace {

struct tape_error {
    std::uint32_t status;
    std::string_view text;
};

constexpr std::array<tape_error, 18> tape_errors = {{
    {0, "No error"},
    {19, "The media is write protected"},
    {20, "The system cannot find the device specified"},
    {21, "The device is not ready"},
    {50, "The tape driver does not support a requested function"},
    {1100, "The end-of-tape marker was reached during an operation"},
    {1101, "A filemark was reached during an operation"},
    {1102, "An attempt to access data before the beginning-of-medium marker failed"},
    {1103, "A setmark was reached during an operation"},
    {1104, "The end-of-data marker was reached during an operation"},
    {1105, "The tape could not be partitioned"},
    {1106, "The block size is incorrect on a new tape in a multivolume partition"},
    {1107, "The partition information could not be found when a tape was being loaded"},
    {1108, "An attempt to lock the ejection mechanism failed"},
    {1109, "An attempt to unload the tape failed"},
    {1110, "The tape that was in the drive has been replaced or removed"},
    {1111, "A reset condition was detected on the bus"},
    {1112, "There is no media in the drive"},
}};

}  // namespace

std::string TapeErrorText(std::uint32_t status) {
    for (const tape_error& known : tape_errors) {
        if (known.status == status) {
            return std::string(known.text);
        }
    }
    return text::format_message("Tape error: '%1' (%2) ", exc::win_error_text(status), text::to_string(status));
}
