#include "console/commands.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ostream>
#include <string_view>

#include "console/answer.h"
#include "console/json_output.h"
#include "console/shown_text.h"
#include "console/table.h"
#include "foundation/text/conversion.h"

namespace console {

namespace {

json to_json(const changer_view& view) {
    json object = {{"link", view.link}};
    if (!view.error.empty()) {
        object["error"] = view.error;
        return object;
    }
    object["name"] = view.name;
    object["vendor"] = view.vendor;
    object["product"] = view.product;
    object["revision"] = view.revision;
    object["serial"] = view.serial;
    object["slots"] = view.slots;
    object["ports"] = view.ports;
    object["drives"] = view.drives;
    return object;
}

json to_json(const element_view& view) {
    json object = {{"element", to_text(view.element)}, {"full", view.full}, {"barcode", view.barcode}};
    if (view.element.kind == element_kind::drive) {
        object["serial"] = view.serial;
    }
    if (view.has_source) {
        object["source"] = to_text(view.source);
    }
    if (view.abnormal) {
        object["exception"] = view.exception_code;
    }
    return object;
}

std::string state_of(const element_view& view) {
    std::string state = view.full ? "full" : "empty";
    if (view.abnormal) {
        std::array<char, 32> code{};
        std::snprintf(code.data(), code.size(), ", exception %02X/%02X", (view.exception_code >> 8) & 0xFFU,
                      view.exception_code & 0xFFU);
        state += code.data();
    }
    return state;
}

/// Names become those of XML elements.
bool can_name_an_argument(const std::string& name) {
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
    constexpr std::string_view others = "0123456789.-";
    return !name.empty() && letters.find(name.front()) != std::string_view::npos &&
           std::all_of(name.begin(), name.end(), [&](char unit) {
               return letters.find(unit) != std::string_view::npos || others.find(unit) != std::string_view::npos;
           });
}

void report_move(const output& out, const element_reference& from, const element_reference& to) {
    if (out.json) {
        print_json(out, {{"moved", true}, {"from", to_text(from)}, {"to", to_text(to)}});
    } else {
        out.stream << "Moved " << to_text(from) << " to " << to_text(to) << ".\n";
    }
}

}  // namespace

void list_changers(library_view& library, const output& out) {
    const std::vector<changer_view> views = library.changers();
    if (out.json) {
        json list = json::array();
        std::transform(views.begin(), views.end(), std::back_inserter(list),
                       [](const changer_view& view) { return to_json(view); });
        print_json(out, list);
        return;
    }
    if (views.empty()) {
        out.stream << "No changers.\n";
        return;
    }
    table rows({"LINK", "VENDOR", "PRODUCT", "REV", "SERIAL", "SLOTS", "PORTS", "DRIVES"});
    for (const changer_view& view : views) {
        if (view.error.empty()) {
            rows.add({view.link, view.vendor, view.product, view.revision, view.serial, text::to_string(view.slots),
                      text::to_string(view.ports), text::to_string(view.drives)});
        } else {
            rows.add({view.link, "can't be read: " + view.error.substr(0, view.error.find('\n'))});
        }
    }
    rows.print(out.stream);
}

void show_inventory(library_view& library, const std::string& link, bool with_empty_slots, const output& out) {
    std::vector<element_view> all;
    for (const element_kind kind : {element_kind::drive, element_kind::port, element_kind::slot}) {
        const std::vector<element_view> some = library.elements(link, kind);
        all.insert(all.end(), some.begin(), some.end());
    }
    if (out.json) {
        json list = json::array();
        std::transform(all.begin(), all.end(), std::back_inserter(list), [](const element_view& view) { return to_json(view); });
        print_json(out, {{"changer", link}, {"elements", list}});
        return;
    }
    table rows({"ELEMENT", "STATE", "BAR CODE", "CAME FROM", "DRIVE SERIAL"});
    std::size_t full_slots = 0;
    std::size_t slots = 0;
    for (const element_view& view : all) {
        const bool is_slot = view.element.kind == element_kind::slot;
        slots += is_slot ? 1 : 0;
        full_slots += is_slot && view.full ? 1 : 0;
        if (!is_slot || view.full || view.abnormal || with_empty_slots) {
            rows.add(
                {to_text(view.element), state_of(view), view.barcode, view.has_source ? to_text(view.source) : "", view.serial});
        }
    }
    rows.print(out.stream);
    out.stream << full_slots << " of " << slots << " slots are full.\n";
}

void move(library_view& library, const std::string& link, const element_reference& from, const element_reference& to,
          const output& out) {
    library.move(link, from, to);
    report_move(out, from, to);
}

void load(library_view& library, const std::string& link, std::uint32_t slot, std::uint32_t drive, const output& out) {
    move(library, link, {element_kind::slot, slot}, {element_kind::drive, drive}, out);
}

void unload(library_view& library, const std::string& link, std::uint32_t drive, std::optional<std::uint32_t> slot,
            const output& out) {
    element_reference to{element_kind::slot, slot.value_or(0)};
    if (!slot) {
        const std::vector<element_view> drives = library.elements(link, element_kind::drive);
        const auto found =
            std::find_if(drives.begin(), drives.end(), [drive](const element_view& view) { return view.element.number == drive; });
        if (found == drives.end()) {
            throw failure(exit_code::usage, "The library has no drive " + text::to_string(drive) + ".");
        }
        if (!found->full) {
            throw failure(exit_code::call_failed, "Drive " + text::to_string(drive) + " is empty.");
        }
        if (!found->has_source) {
            throw failure(exit_code::usage, "The library doesn't say which element the cartridge in drive " +
                                                text::to_string(drive) + " came from. Name a slot: tarnoctl unload DRIVE SLOT.");
        }
        to = found->source;
    }
    move(library, link, {element_kind::drive, drive}, to, out);
}

void show_owner(connection& server, const output& out) {
    const std::string owner = value_of(server.call("GetOwnerName", {}), "OwnerName");
    if (out.json) {
        print_json(out, {{"owner", owner}});
    } else {
        out.stream << (owner.empty() ? "The server has no owner yet." : printable(owner)) << '\n';
    }
}

void set_owner(connection& server, const std::string& name, const output& out) {
    const std::string owner = value_of(server.call("SetOwnerName", {{"NewOwnerName", name}}), "NewOwnerName");
    if (out.json) {
        print_json(out, {{"owner", owner}});
    } else {
        out.stream << "The owner is " << printable(owner) << ".\n";
    }
}

void call_procedure(connection& server, const std::string& procedure, const std::vector<std::string>& words,
                    const std::string& owner, const output& out) {
    argument_list arguments;
    for (const std::string& word : words) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos || !can_name_an_argument(word.substr(0, equals))) {
            throw failure(exit_code::usage, "'" + word + "' is no argument: write Name=value.");
        }
        arguments.emplace_back(word.substr(0, equals), word.substr(equals + 1));
    }
    const bool names_owner =
        std::any_of(arguments.begin(), arguments.end(), [](const auto& argument) { return argument.first == "OwnerName"; });
    if (!owner.empty() && !names_owner) {
        arguments.emplace_back("OwnerName", owner);
    }
    out.stream << server.call(procedure, arguments) << '\n';
}

}  // namespace console
