#include "console/library_view.h"

#include <algorithm>
#include <array>
#include <exception>
#include <optional>

#include "console/answer.h"
#include "foundation/text/conversion.h"
#include "foundation/winxml/xml.h"
#include "platform/changer_records.h"

namespace console {

namespace {

struct kind_row {
    element_kind kind;
    const char* name;
    char letter;
    std::uint32_t type;
};

constexpr std::array<kind_row, 3> kinds = {{
    {element_kind::slot, "slot", 's', platform::ChangerSlot},
    {element_kind::port, "port", 'p', platform::ChangerIEPort},
    {element_kind::drive, "drive", 'd', platform::ChangerDrive},
}};

const kind_row& row_of(element_kind kind) {
    return *std::find_if(kinds.begin(), kinds.end(), [kind](const kind_row& row) { return row.kind == kind; });
}

std::string text_of(const winxml::node_t& parent, const char* name) {
    const winxml::node_t node = winxml::find_element(parent, name);
    return node ? winxml::get_text(node) : std::string();
}

/// The server tells a failure to open a changer as a record, any other as a text.
std::string failure_text(const std::string& error) {
    if (!error.starts_with("<Error")) {
        return error;
    }
    try {
        const winxml::document_t document = winxml::parse_xml(text::utf8_to_wide(error));
        const winxml::node_t record = winxml::get_element(winxml::document_node(document), "Error");
        return text_of(record, "ApiMessage") + " (" + text_of(record, "ApiFunctionName") + ", error " + text_of(record, "ApiCode") +
               ")";
    } catch (const std::exception&) {
        return error;
    }
}

changer_view read_changer(const winxml::node_t& node) {
    changer_view view;
    view.link = winxml::get_attribute(node, "SymbolicLink");
    const winxml::node_t data = winxml::find_element(node, "Data");
    const winxml::node_t parameters = winxml::find_element(node, "Parameters");
    if (!data || !parameters) {
        view.error = failure_text(winxml::get_attribute(node, "Error"));
        return view;
    }
    view.name = winxml::get_attribute(node, "DeviceName");
    view.serial = winxml::get_attribute(data, "SerialNumber");
    // A changer that gives no product data has the serial number alone.
    view.vendor = attribute_or_empty(data, "VendorId");
    view.product = attribute_or_empty(data, "ProductId");
    view.revision = attribute_or_empty(data, "Revision");
    view.slots = number_of(parameters, "NumberStorageElements");
    view.ports = number_of(parameters, "NumberIEElements");
    view.drives = number_of(parameters, "NumberDataTransferElements");
    return view;
}

std::optional<element_kind> kind_of_type(std::uint32_t type) {
    const auto* row =
        std::find_if(kinds.begin(), kinds.end(), [type](const kind_row& candidate) { return candidate.type == type; });
    return row == kinds.end() ? std::nullopt : std::optional(row->kind);
}

element_view read_element(const winxml::node_t& node, element_kind kind) {
    element_view view;
    const std::uint32_t flags = number_of(node, "Flags");
    view.element = {kind, number_of(winxml::get_element(node, "Element"), "ElementAddress")};
    view.full = (flags & platform::ELEMENT_STATUS_FULL) != 0;
    view.abnormal = (flags & platform::ELEMENT_STATUS_EXCEPT) != 0;
    view.exception_code = number_of(node, "ExceptionCode");
    view.barcode = winxml::get_attribute(node, "PrimaryVolumeID");
    view.serial = winxml::get_attribute(node, "SerialNumber");
    const winxml::node_t source = winxml::get_element(node, "SrcElementAddress");
    const std::optional<element_kind> source_kind = kind_of_type(number_of(source, "ElementType"));
    if (view.full && (flags & platform::ELEMENT_STATUS_SVALID) != 0 && source_kind) {
        view.has_source = true;
        view.source = {*source_kind, number_of(source, "ElementAddress")};
    }
    return view;
}

struct move_row {
    element_kind from;
    element_kind to;
    const char* procedure;
    const char* from_argument;
    const char* to_argument;
};

/// The moves that the server has a procedure for.
constexpr std::array<move_row, 6> moves = {{
    {element_kind::slot, element_kind::drive, "LoadMedium", "SlotNum", "DriveNum"},
    {element_kind::slot, element_kind::slot, "MoveToSlot", "SourceSlotNum", "destinationSlotNum"},
    {element_kind::drive, element_kind::slot, "UnloadMedium", "DriveNum", "SlotNum"},
    {element_kind::drive, element_kind::port, "FromDriveToIEPort", "DriveNum", "IEPortNum"},
    {element_kind::slot, element_kind::port, "FromSlotToIEPort", "SlotNum", "IEPortNum"},
    {element_kind::port, element_kind::slot, "FromIEPortToSlot", "IEPortNum", "SlotNum"},
}};

void check_number(const changer_view& changer, const element_reference& element) {
    const std::uint32_t count = element.kind == element_kind::slot   ? changer.slots
                                : element.kind == element_kind::port ? changer.ports
                                                                     : changer.drives;
    if (element.number < count) {
        return;
    }
    const std::string kind = name_of(element.kind);
    const std::string has = count == 0   ? "it has no " + kind + "s"
                            : count == 1 ? "its only " + kind + " is " + kind + ":0"
                                         : "its " + kind + "s are " + kind + ":0 to " + kind + ":" + text::to_string(count - 1);
    throw failure(exit_code::usage, "The changer " + changer.link + " has no " + to_text(element) + ": " + has + ".");
}

}  // namespace

const char* name_of(element_kind kind) {
    return row_of(kind).name;
}

element_reference parse_element(const std::string& text) {
    for (const kind_row& row : kinds) {
        std::string digits;
        if (text.starts_with(std::string(row.name) + ":")) {
            digits = text.substr(std::string(row.name).size() + 1);
        } else if (!text.empty() && text[0] == row.letter) {
            digits = text.substr(1);
        }
        if (!digits.empty() && digits.size() <= 5 && digits.find_first_not_of("0123456789") == std::string::npos) {
            return {row.kind, text::to_uint(digits)};
        }
    }
    throw failure(exit_code::usage, "'" + text + "' names no element. Write slot:3, port:0 or drive:1; numbers start at 0.");
}

std::string to_text(const element_reference& element) {
    return std::string(name_of(element.kind)) + ":" + text::to_string(element.number);
}

std::string library_view::call(const std::string& procedure, const argument_list& arguments) {
    argument_list all = arguments;
    all.emplace_back("OwnerName", owner_);
    return server_.call(procedure, all);
}

std::vector<changer_view> library_view::changers() {
    const winxml::node_t root = record_of(call(by_scsi_ ? "GetAllChangers" : "GetChangers", {}), "Changers", "Changers");
    std::vector<changer_view> views;
    understand([&] {
        for (const winxml::node_t& node : winxml::child_elements(root)) {
            views.push_back(read_changer(node));
        }
    });
    return views;
}

std::string library_view::keep(const changer_view& view) {
    chosen_ = view;
    return view.link;
}

std::string library_view::choose_changer(const std::string& name) {
    if (name.starts_with("\\\\.\\")) {
        return name;
    }
    const std::vector<changer_view> views = changers();
    if (name.empty()) {
        if (views.size() == 1) {
            return keep(views.front());
        }
        if (views.empty()) {
            throw failure(exit_code::call_failed,
                          "The server has found no changer; its log tells of libraries that can't be used.");
        }
        throw failure(exit_code::usage, "There are several changers: name one with --changer ('tarnoctl changers' lists them).");
    }
    for (const changer_view& view : views) {
        if (text::compare_no_case(view.link, "\\\\.\\" + name) == 0 || (!view.serial.empty() && view.serial == name)) {
            return keep(view);
        }
    }
    throw failure(exit_code::usage, "The server has no changer '" + name + "' ('tarnoctl changers' lists them).");
}

std::vector<element_view> library_view::elements(const std::string& link, element_kind kind) {
    const std::string suffix = by_scsi_ ? "ByScsi" : "";
    winxml::node_t root;
    if (kind == element_kind::slot) {
        root = record_of(call("GetSlotsStatuses" + suffix, {{"SymLinkName", link}}), "SlotsStatuses", "SlotsStatuses");
    } else if (kind == element_kind::port) {
        root = record_of(call("GetIEPortsStatuses" + suffix, {{"SymLinkName", link}}), "IEPortsStatuses", "IEPortsStatuses");
    } else {
        // The server cuts the count to what the changer has.
        root = record_of(call("GetElementsStatuses" + suffix, {{"SymLinkName", link},
                                                               {"ElementAddress", "0"},
                                                               {"ElementsCount", "65535"},
                                                               {"ElementType", text::to_string(row_of(kind).type)}}),
                         "ElementsStatuses", "ElementsStatuses");
    }
    std::vector<element_view> views;
    understand([&] {
        for (const winxml::node_t& node : winxml::child_elements(root)) {
            views.push_back(read_element(node, kind));
        }
    });
    return views;
}

void library_view::check(const std::string& link) {
    (void)elements(link, element_kind::port);  // mostly the fewest
}

void library_view::move(const std::string& link, const element_reference& from, const element_reference& to) {
    const auto* row = std::find_if(moves.begin(), moves.end(), [&](const move_row& candidate) {
        return candidate.from == from.kind && candidate.to == to.kind;
    });
    if (row == moves.end()) {
        throw failure(exit_code::usage, std::string("The server can't move a cartridge from a ") + name_of(from.kind) + " to a " +
                                            name_of(to.kind) + ".");
    }
    if (from.kind == to.kind && from.number == to.number) {
        throw failure(exit_code::usage, to_text(from) + " can't be moved to itself.");
    }
    if (chosen_ && chosen_->link == link && chosen_->error.empty()) {
        check_number(*chosen_, from);
        check_number(*chosen_, to);
    }
    call(std::string(row->procedure) + (by_scsi_ ? "ByScsi" : ""), {{"SymLinkName", link},
                                                                    {row->from_argument, text::to_string(from.number)},
                                                                    {row->to_argument, text::to_string(to.number)}});
}

}  // namespace console
