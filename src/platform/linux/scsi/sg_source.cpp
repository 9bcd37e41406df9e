#include "platform/linux/scsi/sg_source.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "platform/device_stack/scsi_commands.h"
#include "platform/errors.h"
#include "platform/linux/scsi/sg_transport.h"

namespace platform::linux_scsi {

namespace {

namespace fs = std::filesystem;

/// Host, channel, target and logical unit.
using unit_address = std::array<std::uint32_t, 4>;

constexpr std::int64_t look_seconds = 5;

/// A small file of sysfs. Attributes that the device doesn't have are missing, and one that it fails to give can't be read.
std::optional<std::string> read_attribute(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return file.bad() ? std::nullopt : std::optional(std::move(text));
}

std::string first_line(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

/// "2:0:3:1", the name of a device's folder.
std::optional<unit_address> parse_address(const std::string& text) {
    unit_address address{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < address.size(); ++i) {
        if (i != 0) {
            if (at == end || *at != ':') {
                return std::nullopt;
            }
            ++at;
        }
        const auto [behind, failure] = std::from_chars(at, end, address[i]);
        if (failure != std::errc()) {
            return std::nullopt;
        }
        at = behind;
    }
    return at == end ? std::optional(address) : std::nullopt;
}

/// False for a device that the kernel keeps only until its last user has gone, or has given up on.
bool is_usable(const std::optional<std::string>& state) {
    return !state || (first_line(*state) != "offline" && first_line(*state) != "transport-offline" &&
                      first_line(*state) != "cancel" && first_line(*state) != "deleted");
}

}  // namespace

struct sg_source::found_unit {
    unit_address address{};
    std::string node_path;
    device_stack::logical_unit_info info;
};

sg_source::sg_source(std::shared_ptr<sg_system> kernel, std::string sysfs_root, std::string device_root)
    : kernel_(std::move(kernel)),
      class_folder_(std::move(sysfs_root) + "/class/scsi_generic"),
      device_root_(std::move(device_root)) {}

std::string sg_source::read_serial(const std::string& device_folder, const std::string& node_path) {
    std::vector<std::uint8_t> page;
    if (const auto attribute = read_attribute(device_folder + "/vpd_pg80")) {
        page.assign(attribute->begin(), attribute->end());
    } else {
        // The kernel keeps no pages of devices that claim an old standard; many of them have this one all the same.
        std::uint32_t failure = 0;
        if (const auto transport = sg_transport::open(kernel_, node_path, failure)) {
            const auto outcome =
                device_stack::inquire_page(*transport, device_stack::vital_product_page::unit_serial_number, page, look_seconds);
            if (outcome.transport_error != 0 || outcome.scsi_status != 0) {
                page.clear();
            }
        }
    }
    return device_stack::serial_of_page(page);
}

/// Host numbers are counted up with each log-in and plug for as long as the machine runs, and a port has one byte: a number that
/// doesn't fit, or whose byte is taken, gets the highest free one.
std::uint8_t sg_source::port_of(std::uint32_t host) {
    const std::lock_guard lock(ports_mutex_);
    if (const auto known = ports_.find(host); known != ports_.end()) {
        return known->second;
    }
    const auto is_taken = [this](std::uint32_t port) {
        return std::any_of(ports_.begin(), ports_.end(), [port](const auto& entry) { return entry.second == port; });
    };
    std::uint32_t port = host;
    if (port > 0xFF || is_taken(port)) {
        for (port = 0xFF; port > 0 && is_taken(port); --port) {
        }
    }
    return ports_.emplace(host, static_cast<std::uint8_t>(port)).first->second;
}

bool sg_source::read_unit(const std::string& node_name, found_unit& found) {
    std::error_code failure;
    const std::string device_folder = class_folder_ + "/" + node_name + "/device";
    const std::optional<std::string> type = read_attribute(device_folder + "/type");
    const fs::path device = fs::read_symlink(device_folder, failure);
    const std::optional<unit_address> address = parse_address(device.filename().string());
    if (!type || !address || !is_usable(read_attribute(device_folder + "/state"))) {
        return false;
    }
    const std::string type_text = first_line(*type);
    if (type_text != std::to_string(device_stack::peripheral_type::tape) &&
        type_text != std::to_string(device_stack::peripheral_type::medium_changer)) {
        return false;
    }
    // Channel, target and unit have a byte each in a SCSI address.
    if ((*address)[1] > 0xFF || (*address)[2] > 0xFF || (*address)[3] > 0xFF) {
        return false;
    }
    found.address = *address;
    found.node_path = device_root_ + "/" + node_name;
    found.info.peripheral_type = static_cast<std::uint8_t>(std::stoi(type_text));
    found.info.serial = read_serial(device_folder, found.node_path);
    // Another device can take the address of one that was pulled, and does not take over its name.
    found.info.identity = device.filename().string() + " " + found.info.serial;
    found.info.location = {0, static_cast<std::uint8_t>((*address)[1]), static_cast<std::uint8_t>((*address)[2]),
                           static_cast<std::uint8_t>((*address)[3])};
    return true;
}

std::vector<sg_source::found_unit> sg_source::scan() {
    std::vector<found_unit> units;
    std::error_code failure;
    for (fs::directory_iterator entry(class_folder_, failure), end; !failure && entry != end; entry.increment(failure)) {
        found_unit found;
        if (read_unit(entry->path().filename().string(), found)) {
            units.push_back(std::move(found));
        }
    }
    std::sort(units.begin(), units.end(), [](const found_unit& a, const found_unit& b) { return a.address < b.address; });
    for (found_unit& found : units) {
        found.info.location.port = port_of(found.address[0]);
    }
    return units;
}

std::vector<device_stack::logical_unit_info> sg_source::enumerate() {
    std::vector<device_stack::logical_unit_info> infos;
    for (found_unit& found : scan()) {
        infos.push_back(std::move(found.info));
    }
    return infos;
}

std::shared_ptr<device_stack::scsi_transport> sg_source::open(const std::string& identity, std::uint32_t& failure) {
    // Node names are handed out anew when devices come and go: the node of a unit is looked up at each open.
    for (const found_unit& found : scan()) {
        if (found.info.identity == identity) {
            return sg_transport::open(kernel_, found.node_path, failure);
        }
    }
    failure = error::file_not_found;
    return nullptr;
}

}  // namespace platform::linux_scsi
