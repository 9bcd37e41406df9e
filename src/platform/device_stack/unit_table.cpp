#include "platform/device_stack/unit_table.h"

#include <algorithm>

#include "foundation/util/bytes.h"
#include "platform/device_stack/scsi_commands.h"

namespace platform::device_stack {

namespace {

std::string port_object_name(const scsi_location& location) {
    return "\\Device\\Scsi\\tarno1Port" + std::to_string(location.port) + "Path" + std::to_string(location.path) + "Target" +
           std::to_string(location.target) + "Lun" + std::to_string(location.lun);
}

/// Devices justify their serial numbers to the left or to the right of a fixed field.
std::string without_padding(const std::string& serial) {
    const std::string text = util::without_trailing_blanks(serial);
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

}  // namespace

unit_table::unit_table(const std::vector<std::string>& without_driver) {
    for (const std::string& serial : without_driver) {
        without_driver_.insert(without_padding(serial));
    }
}

bool unit_table::is_driven(const logical_unit_info& info) const {
    return info.peripheral_type != peripheral_type::medium_changer || !without_driver_.contains(without_padding(info.serial));
}

unit_list unit_table::name_units(const std::vector<std::vector<logical_unit_info>>& found) {
    unit_list units;
    for (std::size_t source = 0; source < found.size(); ++source) {
        for (const logical_unit_info& info : found[source]) {
            const bool is_tape = info.peripheral_type == peripheral_type::tape;
            if (!is_tape && info.peripheral_type != peripheral_type::medium_changer) {
                continue;
            }
            unit named;
            named.source = source;
            named.info = info;
            named.location = info.location;
            named.location.port =
                static_cast<std::uint8_t>(ports_.number_of({source, info.location.port}, info.location.port) & 0xFF);
            named.port_object = port_object_name(named.location);
            if (is_driven(info)) {
                named.number = (is_tape ? tapes_ : changers_).number_of({source, info.identity});
                named.device_name = (is_tape ? "Tape" : "Changer") + std::to_string(named.number);
                named.class_object = "\\Device\\" + named.device_name;
            }
            units.push_back(std::move(named));
        }
    }
    return units;
}

}  // namespace platform::device_stack
