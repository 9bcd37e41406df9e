#include "drive/device_enumerator.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "changer/tape_variables.h"
#include "drive/serial_numbers.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/win/win_reg_key.h"
#include "platform/devices.h"
#include "platform/errors.h"
#include "platform/plug_and_play.h"
#include "platform/system.h"

namespace {

constexpr char tape_peripheral[] = "TapePeripheral";
constexpr char changer_peripheral[] = "MediumChangerPeripheral";
constexpr char driverless_changer_prefix[] = "unknownChanger0";
constexpr char link_prefix[] = "\\\\.\\";

constexpr char device_map_path[] = "HARDWARE\\DEVICEMAP\\Scsi";

/// What the keys of each level of the device map begin with, the root's children first.
constexpr std::array<std::string_view, 4> device_map_levels = {"Scsi Port", "Scsi Bus", "Target Id", "Logical Unit Id"};

win::reg_key_ptr open_map_key(const std::string& path) {
    const win::reg_key_ptr key = win::open_reg_key(text::utf8_to_wide(path), platform::registry_access::read);
    if (!key) {
        throw exc::win_sys_exc_t("Failed to open subkey. Path: [%1].", path, platform::error::file_not_found);
    }
    return key;
}

/// Walks the device map for the devices of one peripheral type.
class scsi_map_walker {
public:
    scsi_map_walker(const std::string& peripheral_type, std::vector<std::string>& links)
        : peripheral_type_(peripheral_type), links_(links) {}

    void walk() { walk_level(open_map_key(device_map_path), device_map_path, 0); }

private:
    void walk_level(const win::reg_key_ptr& key, const std::string& path, std::size_t level) {
        if (level == device_map_levels.size()) {
            take_leaf(*key);
            return;
        }
        const std::string_view prefix = device_map_levels[level];
        for (const std::string& name : key->subkeys()) {
            if (name.size() < prefix.size() ||
                text::compare_no_case(std::string_view(name).substr(0, prefix.size()), prefix) != 0) {
                continue;
            }
            const std::string child = path + "\\" + name;
            walk_level(open_map_key(child), child, level + 1);
        }
    }

    void take_leaf(const win::win_reg_key_t& key) {
        std::string type;
        // A missing value leaves its text empty.
        static_cast<void>(key.try_get_string("DeviceType", type));
        if (type.empty()) {
            static_cast<void>(key.try_get_string("Type", type));
        }
        if (type != peripheral_type_) {
            return;
        }
        std::string device_name;
        std::u16string serial;
        static_cast<void>(key.try_get_string("DeviceName", device_name));
        static_cast<void>(key.try_get_string(std::u16string_view(u"SerialNumber"), serial));
        if (device_name.empty() || SerialNumberRules::IsForbidden(serial)) {
            return;
        }
        const std::string link = link_prefix + device_name;
        if (std::find(links_.begin(), links_.end(), link) == links_.end()) {
            links_.push_back(link);
        }
    }

    const std::string& peripheral_type_;
    std::vector<std::string>& links_;
};

bool work_without_drivers() {
    g_log.LogInfo("Work %1 drivers.", gEnableScsiChanger ? "without" : "with");
    return gEnableScsiChanger;
}

/// Whether a plug-and-play node is a changer in good health that no driver serves. A node whose health can't be asked for
/// counts as healthy.
bool is_driverless(const platform::changer_node& node) {
    const bool healthy = !node.detail_known || node.problem == std::uint32_t{0};
    return healthy && node.service_size == 0;
}

}  // namespace

namespace CDeviceEnumerator {

std::vector<std::string> FindTapeDrives() {
    return FindDevicesByPeripheralType(tape_peripheral, false);
}

std::vector<std::string> FindMediumChangers(bool include_driverless) {
    return FindDevicesByPeripheralType(changer_peripheral, include_driverless);
}

std::vector<std::string> FindDevicesByPeripheralType(const std::string& peripheral_type, bool include_driverless) {
    std::vector<std::string> links;
    scsi_map_walker(peripheral_type, links).walk();
    if (peripheral_type == changer_peripheral && (include_driverless || work_without_drivers())) {
        FindDriverlessChangers(links);
    }
    return links;
}

void FindDriverlessChangers(std::vector<std::string>& links) {
    std::uint32_t number = 0;
    for (const platform::changer_node& node : platform::system().plug_and_play->medium_changers()) {
        if (!is_driverless(node)) {
            continue;
        }
        links.push_back(DefineDeviceLink(text::wide_to_ansi(node.object_name), driverless_changer_prefix, number));
        ++number;
    }
}

std::string DefineDeviceLink(const std::string& target, const std::string& prefix, std::uint32_t number) {
    namespace dos_device = platform::dos_device;
    platform::devices& devices = *platform::system().devices;
    const std::string name = prefix + text::to_string(number);
    const std::string link = link_prefix + name;
    std::string present;
    if (devices.query_dos_device(name, present)) {
        if (present == target) {
            g_log.LogInfo("Find unknown device = %1", name);
            return link;
        }
        // A name left over from a device that has gone. When it can't be removed, the new definition still covers it.
        if (!devices.define_dos_device(dos_device::raw_target_path | dos_device::remove_definition, name, {})) {
            g_log.LogError("Cannot delete %1, %2", name, exc::with_error_text(exc::last_error()));
        }
    }
    if (!devices.define_dos_device(dos_device::raw_target_path, name, target)) {
        const std::uint32_t code = exc::last_error();
        throw exc::win_sys_exc_t("Problem with adding %1 to %2 %3", target, name, exc::with_error_text(code), code);
    }
    return link;
}

}  // namespace CDeviceEnumerator
