#include "platform/virtual_library/inventory.h"

#include <algorithm>
#include <utility>

#include "foundation/text/conversion.h"
#include "platform/virtual_library/xml_values.h"

namespace platform::tape_library {

namespace {

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
    text += "/>\n";
}

}  // namespace

inventory::inventory(const personality& made_of) : track_storage_only_(made_of.track_storage_only) {
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
        place.medium = cartridge{one.barcode, one.write_protected, one.worm, one.cleaning, std::nullopt, type == ChangerIEPort};
        place.loaded = type == ChangerDrive;
    }
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
    place.medium = std::move(medium);
    place.loaded = type_of(address) == ChangerDrive;
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
    return text + "</state>\n";
}

void inventory::from_text(std::string_view text, const std::string& path) {
    const xml_values values(path);
    const winxml::node_t root = values.root(text, "state");
    if (values.number(root, "version", 0xFF) != 1) {
        values.fail("the version of the state isn't 1");
    }
    for (element_group& each : groups_) {
        std::fill(each.elements.begin(), each.elements.end(), element{});
    }
    for (const winxml::node_t& node : values.children(root)) {
        const auto address = static_cast<std::uint16_t>(values.number(node, "element", 0xFFFF));
        element* place = find(address);
        const std::string shown = text::to_string(std::uint32_t{address});
        if (place == nullptr) {
            values.fail("the library has no element " + shown);
        }
        if (place->medium) {
            values.fail("two cartridges are in element " + shown);
        }
        cartridge one;
        one.barcode = values.text(node, "barcode");
        if (values.text(node, "source") != "none") {
            one.source = static_cast<std::uint16_t>(values.number(node, "source", 0xFFFF));
        }
        one.write_protected = values.flag_or(node, "write-protected", false);
        one.worm = values.flag_or(node, "worm", false);
        one.cleaning = values.flag_or(node, "cleaning", false);
        one.by_operator = values.flag_or(node, "by-operator", false);
        place->medium = std::move(one);
        place->loaded = type_of(address) == ChangerDrive && values.flag_or(node, "loaded", true);
    }
}

}  // namespace platform::tape_library
