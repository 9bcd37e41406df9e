#include "platform/virtual_library/personality.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "foundation/text/conversion.h"
#include "platform/virtual_library/xml_values.h"

namespace platform::tape_library {

namespace {

constexpr std::int64_t longest_time = 24LL * 60 * 60 * 1000;
constexpr std::uint64_t most_addresses = 0xFFFF;
constexpr std::size_t most_drives = 254;  // logical units 1 to 254 behind the changer
constexpr std::size_t barcode_size = 32;
constexpr std::uint64_t most_megabytes = 0xFFFFFFFF;  // log pages tell a capacity in 4 bytes
constexpr std::uint64_t most_lifetime_megabytes = ~std::uint64_t{0};
constexpr std::array<std::uint8_t, 7> known_log_pages{0x0C, 0x11, 0x12, 0x14, 0x17, 0x2E, 0x31};

constexpr std::array<std::pair<designator, const char*>, 4> designator_names{{{designator::vendor_specific, "vendor-specific"},
                                                                              {designator::t10_vendor, "t10-vendor"},
                                                                              {designator::naa, "naa"},
                                                                              {designator::scsi_name, "scsi-name"}}};

constexpr std::array<std::pair<drive_identifier, const char*>, 6> identifier_names{
    {{drive_identifier::none, "none"},
     {drive_identifier::t10_vendor, "t10-vendor"},
     {drive_identifier::vendor_serial, "vendor-serial"},
     {drive_identifier::vendor_full, "vendor-full"},
     {drive_identifier::tail, "tail"},
     {drive_identifier::naa, "naa"}}};

constexpr std::array<std::pair<const char*, std::int64_t timings::*>, 11> timing_fields{{{"move", &timings::move},
                                                                                         {"position", &timings::position},
                                                                                         {"inventory", &timings::inventory},
                                                                                         {"load", &timings::load},
                                                                                         {"unload", &timings::unload},
                                                                                         {"rewind", &timings::rewind},
                                                                                         {"ready", &timings::ready},
                                                                                         {"erase-short", &timings::erase_short},
                                                                                         {"erase-long", &timings::erase_long},
                                                                                         {"tension", &timings::tension},
                                                                                         {"format", &timings::format}}};

template <typename Value, std::size_t Count>
std::string name_of(const std::array<std::pair<Value, const char*>, Count>& names, Value value) {
    for (const auto& [each, name] : names) {
        if (each == value) {
            return name;
        }
    }
    return {};
}

template <typename Value, std::size_t Count>
Value value_of(const std::array<std::pair<Value, const char*>, Count>& names, const std::string& wanted, const xml_values& values,
               const std::string& attribute) {
    for (const auto& [value, name] : names) {
        if (name == wanted) {
            return value;
        }
    }
    values.fail("attribute '" + attribute + "': '" + wanted + "' isn't known");
}

element_range read_range(const xml_values& values, const winxml::node_t& node) {
    element_range range;
    range.first = static_cast<std::uint16_t>(values.number(node, "first", most_addresses));
    range.count = static_cast<std::uint16_t>(values.number(node, "count", most_addresses));
    return range;
}

void read_elements(const xml_values& values, const winxml::node_t& root, personality& value) {
    const winxml::node_t elements = winxml::find_element(root, "elements");
    if (!elements) {
        values.fail("there is no element 'elements'");
    }
    const std::array<std::pair<const char*, element_range*>, 4> ranges{
        {{"transports", &value.transports}, {"slots", &value.slots}, {"ports", &value.ports}, {"drives", &value.drives}}};
    for (const auto& [name, range] : ranges) {
        const winxml::node_t node = winxml::find_element(elements, name);
        if (!node) {
            values.fail(std::string("there is no element '") + name + "' in 'elements'");
        }
        *range = read_range(values, node);
    }
}

void read_drives(const xml_values& values, const winxml::node_t& root, personality& value) {
    const winxml::node_t drives = winxml::find_element(root, "drives");
    if (!drives) {
        return;
    }
    const drive_type standard;
    value.drive.worm_capable = values.flag_or(drives, "worm-capable", standard.worm_capable);
    value.drive.density_code = static_cast<std::uint8_t>(values.number_or(drives, "density", 0xFF, standard.density_code));
    value.drive.medium_type = static_cast<std::uint8_t>(values.number_or(drives, "medium-type", 0xFF, standard.medium_type));
    value.drive.worm_medium_type =
        static_cast<std::uint8_t>(values.number_or(drives, "worm-medium-type", 0xFF, standard.worm_medium_type));
    value.drive.maximum_block =
        static_cast<std::uint32_t>(values.number_or(drives, "maximum-block", 0xFFFFFF, standard.maximum_block));
    value.drive.minimum_block =
        static_cast<std::uint16_t>(values.number_or(drives, "minimum-block", 0xFFFF, standard.minimum_block));
    for (const winxml::node_t& node : values.children(drives)) {
        const drive_definition one;
        value.drive_units.push_back({values.text_or(node, "vendor", one.vendor), values.text_or(node, "product", one.product),
                                     values.text_or(node, "revision", one.revision), values.text(node, "serial")});
    }
}

void read_cartridges(const xml_values& values, const winxml::node_t& root, personality& value) {
    const winxml::node_t cartridges = winxml::find_element(root, "cartridges");
    if (!cartridges) {
        return;
    }
    value.capacity = static_cast<std::uint32_t>(values.number_or(cartridges, "capacity", most_megabytes, value.capacity));
    for (const winxml::node_t& node : values.children(cartridges)) {
        cartridge_definition one;
        one.barcode = values.text(node, "barcode");
        one.element = static_cast<std::uint16_t>(values.number(node, "element", most_addresses));
        one.write_protected = values.flag_or(node, "write-protected", false);
        one.worm = values.flag_or(node, "worm", false);
        one.cleaning = values.flag_or(node, "cleaning", false);
        if (values.find(node, "capacity")) {
            one.capacity = static_cast<std::uint32_t>(values.number(node, "capacity", most_megabytes));
        }
        one.used = static_cast<std::uint32_t>(values.number_or(node, "used", most_megabytes, 0));
        one.written = values.number_or(node, "written", most_lifetime_megabytes, 0);
        one.read = values.number_or(node, "read", most_lifetime_megabytes, 0);
        value.cartridges.push_back(std::move(one));
    }
}

void read_timings(const xml_values& values, const winxml::node_t& root, personality& value) {
    const winxml::node_t node = winxml::find_element(root, "timings");
    if (!node) {
        return;
    }
    for (const auto& [name, field] : timing_fields) {
        value.timings.*field = static_cast<std::int64_t>(values.number_or(node, name, static_cast<std::uint64_t>(longest_time), 0));
    }
}

void read_behaviour(const xml_values& values, const winxml::node_t& root, personality& value) {
    const winxml::node_t node = winxml::find_element(root, "behaviour");
    if (!node) {
        return;
    }
    if (const std::optional<std::string> names = values.find(node, "designators")) {
        value.designators.clear();
        for (const std::string& name : split_words(*names)) {
            value.designators.push_back(value_of(designator_names, name, values, "designators"));
        }
    }
    value.identifier =
        value_of(identifier_names, values.text_or(node, "drive-identifier", name_of(identifier_names, value.identifier)), values,
                 "drive-identifier");
    value.extra_bytes = static_cast<std::uint16_t>(values.number_or(node, "extra-bytes", 1024, value.extra_bytes));
    value.volume_tags = values.flag_or(node, "volume-tags", value.volume_tags);
    value.blank_empty_tags = values.flag_or(node, "blank-empty-tags", value.blank_empty_tags);
    value.medium_types = values.flag_or(node, "medium-types", value.medium_types);
    value.device_identifiers = values.flag_or(node, "device-identifiers", value.device_identifiers);
    value.power_on_attention = values.flag_or(node, "power-on-attention", value.power_on_attention);
    value.unload_on_move = values.flag_or(node, "unload-on-move", value.unload_on_move);
    value.track_storage_only = values.flag_or(node, "track-storage-only", value.track_storage_only);
    value.exchange = values.flag_or(node, "exchange", value.exchange);
    value.clear_alerts_on_read = values.flag_or(node, "clear-alerts-on-read", value.clear_alerts_on_read);
    value.refused = values.bytes_or_none(node, "refused-commands");
    if (values.find(node, "log-pages")) {
        value.log_pages = values.bytes_or_none(node, "log-pages");
    }
}

/// Texts in SCSI data are printable ASCII; nothing else can be sent.
void check_text(const xml_values& values, const std::string& what, const std::string& text, std::size_t longest) {
    if (text.size() > longest) {
        values.fail(what + " '" + text + "' is longer than " + text::to_string(static_cast<std::uint32_t>(longest)) +
                    " characters");
    }
    const auto unprintable = [](char character) { return character < ' ' || character > '~'; };
    if (std::any_of(text.begin(), text.end(), unprintable)) {
        values.fail(what + " holds a character that isn't printable ASCII");
    }
}

void check_ranges(const xml_values& values, const personality& value) {
    const std::array<std::pair<const char*, element_range>, 4> ranges{
        {{"transports", value.transports}, {"slots", value.slots}, {"ports", value.ports}, {"drives", value.drives}}};
    for (std::size_t one = 0; one < ranges.size(); ++one) {
        const element_range& range = ranges[one].second;
        const std::uint32_t end = std::uint32_t{range.first} + range.count;
        if (end > 0x10000) {
            values.fail(std::string(ranges[one].first) + " reach beyond the address 65535");
        }
        for (std::size_t other = 0; other < one; ++other) {
            const element_range& second = ranges[other].second;
            const bool apart = end <= second.first || std::uint32_t{second.first} + second.count <= range.first;
            if (range.count != 0 && second.count != 0 && !apart) {
                values.fail(std::string(ranges[other].first) + " and " + ranges[one].first + " share addresses");
            }
        }
    }
    if (value.transports.count == 0) {
        values.fail("a library needs a transport");
    }
    if (value.drive_units.size() != value.drives.count || value.drive_units.size() > most_drives) {
        values.fail("there are " + text::to_string(static_cast<std::uint32_t>(value.drive_units.size())) + " drives for " +
                    text::to_string(std::uint32_t{value.drives.count}) + " drive elements (at most 254)");
    }
}

/// Pages are announced in ascending order, and none twice.
void check_log_pages(const xml_values& values, const personality& value) {
    for (std::size_t at = 0; at < value.log_pages.size(); ++at) {
        const std::uint8_t page = value.log_pages[at];
        if (std::find(known_log_pages.begin(), known_log_pages.end(), page) == known_log_pages.end()) {
            values.fail("there is no log page " + text::to_string(std::uint32_t{page}));
        }
        if (at > 0 && value.log_pages[at - 1] >= page) {
            values.fail("the log pages aren't in ascending order");
        }
    }
}

bool within(const element_range& range, std::uint16_t address) {
    return address >= range.first && address - range.first < range.count;
}

void check_cartridges(const xml_values& values, const personality& value) {
    std::set<std::uint16_t> taken;
    std::set<std::string> labels;
    for (const cartridge_definition& one : value.cartridges) {
        check_text(values, "bar code", one.barcode, barcode_size);
        const std::string address = text::to_string(std::uint32_t{one.element});
        if (!within(value.slots, one.element) && !within(value.ports, one.element) && !within(value.drives, one.element)) {
            values.fail("cartridge '" + one.barcode + "': there is no slot, port or drive at address " + address);
        }
        if (!taken.insert(one.element).second) {
            values.fail("cartridge '" + one.barcode + "': address " + address + " holds another one");
        }
        if (!one.barcode.empty() && !labels.insert(one.barcode).second) {
            values.fail("bar code '" + one.barcode + "' is on two cartridges");
        }
        if (one.used > one.capacity.value_or(value.capacity)) {
            values.fail("cartridge '" + one.barcode + "': more is used than it has room for");
        }
    }
}

std::string attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + escape_attribute(value) + "\"";
}

std::string attribute(const char* name, std::int64_t value) {
    return attribute(name, text::to_string(value));
}

std::string flag(const char* name, bool value) {
    return attribute(name, std::string(value ? "true" : "false"));
}

std::string range_line(const char* name, const element_range& range) {
    return std::string("        <") + name + attribute("first", std::int64_t{range.first}) +
           attribute("count", std::int64_t{range.count}) + "/>\n";
}

std::string drives_text(const personality& value) {
    std::string text = "    <drives" + flag("worm-capable", value.drive.worm_capable) +
                       attribute("density", std::int64_t{value.drive.density_code}) +
                       attribute("medium-type", std::int64_t{value.drive.medium_type}) +
                       attribute("worm-medium-type", std::int64_t{value.drive.worm_medium_type}) +
                       attribute("maximum-block", std::int64_t{value.drive.maximum_block}) +
                       attribute("minimum-block", std::int64_t{value.drive.minimum_block}) + ">\n";
    for (const drive_definition& one : value.drive_units) {
        text += "        <drive" + attribute("vendor", one.vendor) + attribute("product", one.product) +
                attribute("revision", one.revision) + attribute("serial", one.serial) + "/>\n";
    }
    return text + "    </drives>\n";
}

std::string cartridges_text(const personality& value) {
    std::string text = "    <cartridges" + attribute("capacity", std::int64_t{value.capacity}) + ">\n";
    for (const cartridge_definition& one : value.cartridges) {
        text += "        <cartridge" + attribute("barcode", one.barcode) + attribute("element", std::int64_t{one.element});
        text += one.write_protected ? flag("write-protected", true) : "";
        text += one.worm ? flag("worm", true) : "";
        text += one.cleaning ? flag("cleaning", true) : "";
        text += one.capacity ? attribute("capacity", std::int64_t{*one.capacity}) : "";
        text += one.used != 0 ? attribute("used", std::int64_t{one.used}) : "";
        text += one.written != 0 ? attribute("written", text::to_string(one.written)) : "";
        text += one.read != 0 ? attribute("read", text::to_string(one.read)) : "";
        text += "/>\n";
    }
    return text + "    </cartridges>\n";
}

std::string numbers(const std::vector<std::uint8_t>& values) {
    std::string text;
    for (const std::uint8_t one : values) {
        text += (text.empty() ? "" : " ") + text::to_string(std::uint32_t{one});
    }
    return text;
}

std::string behaviour_text(const personality& value) {
    std::string designators;
    for (const designator one : value.designators) {
        designators += (designators.empty() ? "" : " ") + name_of(designator_names, one);
    }
    return "    <behaviour" + attribute("designators", designators) +
           attribute("drive-identifier", name_of(identifier_names, value.identifier)) +
           attribute("extra-bytes", std::int64_t{value.extra_bytes}) + flag("volume-tags", value.volume_tags) +
           flag("blank-empty-tags", value.blank_empty_tags) + flag("medium-types", value.medium_types) +
           flag("device-identifiers", value.device_identifiers) + flag("power-on-attention", value.power_on_attention) +
           flag("unload-on-move", value.unload_on_move) + flag("track-storage-only", value.track_storage_only) +
           flag("exchange", value.exchange) + flag("clear-alerts-on-read", value.clear_alerts_on_read) +
           attribute("refused-commands", numbers(value.refused)) + attribute("log-pages", numbers(value.log_pages)) + "/>\n";
}

}  // namespace

void check_personality(const personality& value, const std::string& path) {
    const xml_values values(path);
    check_text(values, "vendor", value.vendor, 8);
    check_text(values, "product", value.product, 16);
    check_text(values, "revision", value.revision, 4);
    check_text(values, "serial number", value.serial, 32);
    for (const drive_definition& one : value.drive_units) {
        check_text(values, "drive vendor", one.vendor, 8);
        check_text(values, "drive product", one.product, 16);
        check_text(values, "drive revision", one.revision, 4);
        check_text(values, "drive serial number", one.serial, 32);
    }
    if (value.state.empty()) {
        values.fail("the path of the state file is empty");
    }
    check_ranges(values, value);
    check_log_pages(values, value);
    check_cartridges(values, value);
}

personality parse_personality(std::string_view xml, const std::string& path) {
    const xml_values values(path);
    const winxml::node_t root = values.root(xml, "library");
    personality value;
    value.vendor = values.text_or(root, "vendor", value.vendor);
    value.product = values.text_or(root, "product", value.product);
    value.revision = values.text_or(root, "revision", value.revision);
    value.serial = values.text(root, "serial");
    value.state = values.text_or(root, "state", value.state);
    read_elements(values, root, value);
    read_drives(values, root, value);
    read_cartridges(values, root, value);
    read_timings(values, root, value);
    read_behaviour(values, root, value);
    check_personality(value, path);
    return value;
}

std::string personality_text(const personality& value) {
    std::string text = "<library" + attribute("vendor", value.vendor) + attribute("product", value.product) +
                       attribute("revision", value.revision) + attribute("serial", value.serial) + attribute("state", value.state) +
                       ">\n    <elements>\n" + range_line("transports", value.transports) + range_line("slots", value.slots) +
                       range_line("ports", value.ports) + range_line("drives", value.drives) + "    </elements>\n";
    text += drives_text(value) + cartridges_text(value);
    text += "    <timings";
    for (const auto& [name, field] : timing_fields) {
        text += attribute(name, value.timings.*field);
    }
    return text + "/>\n" + behaviour_text(value) + "</library>\n";
}

}  // namespace platform::tape_library
