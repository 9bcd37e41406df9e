#include "platform/virtual_library/inventory.h"

#include <algorithm>
#include <utility>

#include "foundation/text/conversion.h"

namespace platform::tape_library {

namespace {

constexpr std::uint64_t most_32_bits = 0xFFFFFFFF;
constexpr std::uint64_t most_64_bits = ~std::uint64_t{0};

void append_attribute(std::string& text, const char* name, std::string_view value) {
    text.append(" ").append(name).append("=\"").append(value).append("\"");
}

void append_flag(std::string& text, const char* name, bool value) {
    append_attribute(text, name, value ? "true" : "false");
}

/// All attributes are always written: a reader tells a cut file from a short one.
void append_cartridge(std::string& text, std::uint32_t address, const element& one) {
    text += "<cartridge";
    append_attribute(text, "element", text::to_string(address));
    append_attribute(text, "barcode", escape_attribute(one.medium->barcode));
    append_attribute(text, "source", one.medium->source ? text::to_string(std::uint32_t{*one.medium->source}) : "none");
    append_flag(text, "write-protected", one.medium->write_protected);
    append_flag(text, "worm", one.medium->worm);
    append_flag(text, "cleaning", one.medium->cleaning);
    append_flag(text, "by-operator", one.medium->by_operator);
    append_flag(text, "loaded", one.loaded);
    append_attribute(text, "capacity", text::to_string(one.medium->capacity));
    append_attribute(text, "used", text::to_string(one.medium->used));
    append_attribute(text, "written", text::to_string(one.medium->written));
    append_attribute(text, "read", text::to_string(one.medium->read));
    append_attribute(text, "loads", text::to_string(one.medium->loads));
    text += "/>\n";
}

void append_drive(std::string& text, std::uint32_t address, const element& one) {
    text += "<drive";
    append_attribute(text, "element", text::to_string(address));
    append_attribute(text, "loads", text::to_string(one.loads));
    append_attribute(text, "cleanings", text::to_string(one.cleanings));
    text += "/>\n";
}

}  // namespace

inventory::inventory(const personality& made_of) : track_storage_only_(made_of.track_storage_only), capacity_(made_of.capacity) {
    const std::array<std::pair<ELEMENT_TYPE, element_range>, 4> ranges{{{ChangerTransport, made_of.transports},
                                                                        {ChangerSlot, made_of.slots},
                                                                        {ChangerIEPort, made_of.ports},
                                                                        {ChangerDrive, made_of.drives}}};
    for (std::size_t at = 0; at < ranges.size(); ++at) {
        groups_[at] = {ranges[at].first, ranges[at].second.first, std::vector<element>(ranges[at].second.count)};
    }
    std::stable_sort(groups_.begin(), groups_.end(),
                     [](const element_group& left, const element_group& right) { return left.first < right.first; });
    for (const cartridge_definition& one : made_of.cartridges) {
        const ELEMENT_TYPE type = type_of(one.element);
        element& place = *find(one.element);
        cartridge medium = blank_cartridge(one.barcode);
        medium.write_protected = one.write_protected;
        medium.worm = one.worm;
        medium.cleaning = one.cleaning;
        medium.by_operator = type == ChangerIEPort;
        medium.capacity = one.capacity.value_or(capacity_);
        medium.used = one.used;
        medium.written = one.written;
        medium.read = one.read;
        place.medium = std::move(medium);
        place.loaded = type == ChangerDrive;
    }
}

cartridge inventory::blank_cartridge(const std::string& barcode) const {
    cartridge one;
    one.barcode = barcode;
    one.capacity = capacity_;
    return one;
}

const element_group& inventory::group(ELEMENT_TYPE type) const {
    return *std::find_if(groups_.begin(), groups_.end(), [type](const element_group& each) { return each.type == type; });
}

const element_group* inventory::group_of(std::uint16_t address) const {
    for (const element_group& each : groups_) {
        if (each.has(address)) {
            return &each;
        }
    }
    return nullptr;
}

const element* inventory::find(std::uint16_t address) const {
    const element_group* owner = group_of(address);
    return owner == nullptr ? nullptr : &owner->elements[static_cast<std::size_t>(address - owner->first)];
}

element* inventory::find(std::uint16_t address) {
    return const_cast<element*>(std::as_const(*this).find(address));
}

ELEMENT_TYPE inventory::type_of(std::uint16_t address) const {
    const element_group* owner = group_of(address);
    return owner == nullptr ? AllElements : owner->type;
}

std::optional<std::uint16_t> inventory::locate(std::string_view barcode) const {
    for (const element_group& each : groups_) {
        for (std::size_t at = 0; at < each.elements.size(); ++at) {
            if (each.elements[at].medium && each.elements[at].medium->barcode == barcode) {
                return static_cast<std::uint16_t>(each.first + at);
            }
        }
    }
    return std::nullopt;
}

cartridge inventory::take(std::uint16_t address) {
    element& place = *find(address);
    cartridge medium = std::move(*place.medium);
    place.medium.reset();
    place.loaded = false;
    medium.by_operator = false;
    const ELEMENT_TYPE type = type_of(address);
    if (type == ChangerSlot || (!track_storage_only_ && type != ChangerTransport)) {
        medium.source = address;
    }
    return medium;
}

void inventory::put(cartridge medium, std::uint16_t address) {
    element& place = *find(address);
    place.loaded = type_of(address) == ChangerDrive;
    if (place.loaded) {
        ++medium.loads;
        ++place.loads;
        place.cleanings += medium.cleaning ? 1U : 0U;
    }
    place.medium = std::move(medium);
}

void inventory::move(std::uint16_t source, std::uint16_t destination) {
    put(take(source), destination);
}

void inventory::exchange(std::uint16_t source, std::uint16_t first_destination, std::uint16_t second_destination) {
    cartridge first = take(source);
    cartridge second = take(first_destination);
    put(std::move(first), first_destination);
    put(std::move(second), second_destination);
}

std::string inventory::to_text() const {
    std::string text = "<state version=\"1\">\n";
    for (const element_group& each : groups_) {
        for (std::size_t at = 0; at < each.elements.size(); ++at) {
            if (each.elements[at].medium) {
                append_cartridge(text, static_cast<std::uint32_t>(each.first + at), each.elements[at]);
            }
        }
    }
    const element_group& drives = group(ChangerDrive);
    for (std::size_t at = 0; at < drives.elements.size(); ++at) {
        if (drives.elements[at].loads != 0) {
            append_drive(text, static_cast<std::uint32_t>(drives.first + at), drives.elements[at]);
        }
    }
    return text + "</state>\n";
}

void inventory::from_text(std::string_view text, const std::string& path) {
    const xml_values values(path);
    const winxml::node_t root = values.root(text, "state");
    if (values.number(root, "version", 0xFF) != 1) {
        values.fail("the version of the state isn't 1");
    }
    std::map<std::string, cartridge> known;
    for (element_group& each : groups_) {
        for (element& one : each.elements) {
            if (one.medium && !one.medium->barcode.empty()) {
                known.emplace(one.medium->barcode, *one.medium);
            }
            one = {};
        }
    }
    for (const winxml::node_t& node : values.children(root)) {
        if (winxml::element_name(node) == "drive") {
            read_drive(values, node);
        } else {
            read_cartridge(values, node, known);
        }
    }
}

/// A state that was written before cartridges had a capacity leaves them the one that the personality gives them.
void inventory::read_cartridge(const xml_values& values, const winxml::node_t& node,
                               const std::map<std::string, cartridge>& known) {
    const auto address = static_cast<std::uint16_t>(values.number(node, "element", 0xFFFF));
    element* place = find(address);
    const std::string shown = text::to_string(std::uint32_t{address});
    if (place == nullptr) {
        values.fail("the library has no element " + shown);
    }
    if (place->medium) {
        values.fail("two cartridges are in element " + shown);
    }
    const std::string barcode = values.text(node, "barcode");
    const auto first_known = known.find(barcode);
    cartridge one = first_known != known.end() ? first_known->second : blank_cartridge(barcode);
    one.source.reset();
    if (values.text(node, "source") != "none") {
        one.source = static_cast<std::uint16_t>(values.number(node, "source", 0xFFFF));
    }
    one.write_protected = values.flag_or(node, "write-protected", false);
    one.worm = values.flag_or(node, "worm", false);
    one.cleaning = values.flag_or(node, "cleaning", false);
    one.by_operator = values.flag_or(node, "by-operator", false);
    one.capacity = static_cast<std::uint32_t>(values.number_or(node, "capacity", most_32_bits, one.capacity));
    one.used = static_cast<std::uint32_t>(values.number_or(node, "used", one.capacity, std::min(one.used, one.capacity)));
    one.written = values.number_or(node, "written", most_64_bits, one.written);
    one.read = values.number_or(node, "read", most_64_bits, one.read);
    one.loads = static_cast<std::uint32_t>(values.number_or(node, "loads", most_32_bits, 0));
    place->medium = std::move(one);
    place->loaded = type_of(address) == ChangerDrive && values.flag_or(node, "loaded", true);
}

void inventory::read_drive(const xml_values& values, const winxml::node_t& node) {
    const auto address = static_cast<std::uint16_t>(values.number(node, "element", 0xFFFF));
    if (type_of(address) != ChangerDrive) {
        values.fail("the library has no drive at element " + text::to_string(std::uint32_t{address}));
    }
    element& place = *find(address);
    place.loads = static_cast<std::uint32_t>(values.number(node, "loads", most_32_bits));
    place.cleanings = static_cast<std::uint32_t>(values.number(node, "cleanings", most_32_bits));
}

}  // namespace platform::tape_library
