#include "platform/virtual_library/virtual_library.h"

#include <algorithm>
#include <utility>

#include "foundation/text/conversion.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/system.h"
#include "platform/virtual_library/disk.h"

namespace platform::tape_library {

namespace {

/// Holding this file open is holding the library.
std::unique_ptr<file> take_lock(const std::u16string& path) {
    std::unique_ptr<file> lock;
    const std::uint32_t code = system().files->open_file(path, file_access::read | file_access::write, file_share::none,
                                                         file_open_mode::open_always, lock);
    const std::string shown = text::wide_to_ansi_safe(path);
    if (code == error::sharing_violation || code == error::lock_violation) {
        throw library_error("Library file '" + shown + "': the library is in use already, here or by another process");
    }
    if (code != error::success) {
        throw library_error("Library file '" + shown + "' can't be opened: " + exc::win_error_text(code));
    }
    return lock;
}

personality read_personality(const std::u16string& folder) {
    const std::u16string path = join_path(folder, u"library.xml");
    const std::string shown = text::wide_to_ansi_safe(path);
    std::string content;
    if (const std::uint32_t code = read_whole(path, content); code != error::success) {
        throw library_error("Library file '" + shown + "' can't be read: " + exc::win_error_text(code));
    }
    return parse_personality(content, shown);
}

}  // namespace

std::shared_ptr<virtual_library> virtual_library::open(const std::u16string& folder) {
    personality value = read_personality(folder);
    const std::u16string state_path = resolve_path(folder, text::utf8_to_wide(value.state));
    std::unique_ptr<file> lock = take_lock(state_path + u".lock");
    std::shared_ptr<virtual_library> library(
        new virtual_library(std::move(value), state_path, join_path(folder, u"faults.xml"), std::move(lock)));
    library->core_.store.load(library->core_.elements);
    return library;
}

virtual_library::virtual_library(personality value, std::u16string state_path, std::u16string faults_path,
                                 std::unique_ptr<file> lock)
    : lock_(std::move(lock)), core_(std::move(value), std::move(state_path), std::move(faults_path)), changer_(core_, drives_) {
    std::uint16_t address = core_.made_of.drives.first;
    for (const drive_definition& each : core_.made_of.drive_units) {
        drives_.push_back(std::make_unique<drive_unit>(core_, units(), each, address++));
    }
}

virtual_library::~virtual_library() = default;

logical_unit& virtual_library::at(std::uint8_t unit) const {
    return unit == 0 ? const_cast<changer_unit&>(changer_) : static_cast<logical_unit&>(*drives_.at(unit - 1U));
}

void virtual_library::open_door() {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    core_.door_open = true;
}

void virtual_library::close_door() {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    core_.door_open = false;
    changer_.raise(sense::medium_may_have_changed);
}

bool virtual_library::open_ports() {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    if (changer_.removal_prevented()) {
        return false;
    }
    core_.ports_open = true;
    return true;
}

void virtual_library::close_ports() {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    core_.ports_open = false;
    changer_.raise(sense::import_export_accessed);
}

bool virtual_library::change_port(std::uint16_t port, std::optional<cartridge> content) {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    element* place = core_.elements.find(port);
    if (core_.elements.type_of(port) != ChangerIEPort || place->medium.has_value() == content.has_value() ||
        changer_.removal_prevented()) {
        return false;
    }
    std::swap(place->medium, content);
    if (core_.store.save(core_.elements) != error::success) {
        std::swap(place->medium, content);
        return false;
    }
    changer_.raise(sense::import_export_accessed);
    return true;
}

bool virtual_library::insert(std::uint16_t port, const std::string& barcode) {
    cartridge fresh = core_.elements.blank_cartridge(barcode);
    fresh.by_operator = true;
    return change_port(port, std::move(fresh));
}

bool virtual_library::remove(std::uint16_t port) {
    return change_port(port, std::nullopt);
}

std::optional<std::uint16_t> virtual_library::locate(std::string_view barcode) {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    return core_.elements.locate(barcode);
}

std::vector<cartridge_place> virtual_library::cartridges() {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    std::vector<cartridge_place> places;
    for (const element_group& group : core_.elements.groups()) {
        for (std::size_t index = 0; index < group.elements.size(); ++index) {
            if (const std::optional<cartridge>& medium = group.elements[index].medium) {
                places.push_back({static_cast<std::uint16_t>(group.first + index), medium->barcode});
            }
        }
    }
    return places;
}

void virtual_library::raise(std::uint8_t unit, const sense_code& attention) {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    at(unit).raise(attention);
}

void virtual_library::set_alert(std::uint8_t unit, std::uint8_t flag, bool active) {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    at(unit).set_alert(flag, active);
}

void virtual_library::set_exception(std::uint16_t element_address, const sense_code& code) {
    const std::lock_guard<std::mutex> guard(core_.mutex);
    if (element* place = core_.elements.find(element_address)) {
        place->exception = code;
    }
}

}  // namespace platform::tape_library
