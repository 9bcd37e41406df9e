#include "platform/virtual_library/create_library.h"

#include <algorithm>

#include "foundation/text/conversion.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/system.h"
#include "platform/virtual_library/disk.h"

namespace platform::tape_library {

namespace {

std::string padded(std::uint32_t number, std::size_t digits) {
    std::string text = text::to_string(number);
    return text.size() < digits ? std::string(digits - text.size(), '0') + text : text;
}

}  // namespace

personality make_personality(const library_options& options) {
    personality value;
    value.serial = options.serial;
    value.ports.count = options.ports;
    value.drives.count = options.drives;
    value.drives.first = static_cast<std::uint16_t>(std::max(0x100, value.ports.first + options.ports));
    value.slots.count = options.slots;
    value.slots.first = static_cast<std::uint16_t>(std::max(0x1000, value.drives.first + options.drives));
    for (std::uint32_t number = 1; number <= options.drives; ++number) {
        drive_definition drive;
        drive.serial = options.drive_serial + padded(number, 4);
        value.drive_units.push_back(std::move(drive));
    }
    for (std::uint16_t number = 0; number < options.cartridges; ++number) {
        cartridge_definition cartridge;
        cartridge.barcode = options.barcode + padded(number + 1U, 3) + options.barcode_suffix;
        cartridge.element = static_cast<std::uint16_t>(value.slots.first + number);
        value.cartridges.push_back(std::move(cartridge));
    }
    return value;
}

void create_library(const std::u16string& folder, const personality& value) {
    const std::u16string path = join_path(folder, u"library.xml");
    const std::string shown = text::wide_to_utf8(path);
    check_personality(value, shown);
    std::uint32_t code = system().files->create_folder(folder);
    if (code == error::success || code == error::already_exists) {
        code = write_durably(path, personality_text(value));
    }
    if (code != error::success) {
        throw library_error("Library file '" + shown + "' can't be written: " + exc::win_error_text(code));
    }
}

void create_library(const std::u16string& folder, const library_options& options) {
    create_library(folder, make_personality(options));
}

}  // namespace platform::tape_library
