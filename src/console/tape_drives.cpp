#include "console/tape_drives.h"

#include <algorithm>
#include <array>
#include <utility>

#include "console/answer.h"
#include "foundation/text/conversion.h"
#include "platform/tape_records.h"

namespace console {

namespace {

constexpr std::string_view link_prefix = "\\\\.\\";
constexpr std::string_view short_name = "Tape";

block_sizes read_blocks(const winxml::node_t& node) {
    return {long_number_of(node, "DefaultBlockSize"), long_number_of(node, "MinimumBlockSize"),
            number_of(node, "MaximumBlockSize")};
}

/// A drive that failed while the server asked it stays in the list, with what it had told by then.
drive_view read_drive(const winxml::node_t& node) {
    drive_view view;
    view.serial = attribute_or_empty(node, "SerialNumber");
    view.name = attribute_or_empty(node, "DeviceName");
    view.product = attribute_or_empty(node, "Name");
    view.link = attribute_or_empty(node, "SymbolicLink");
    const winxml::node_t address = winxml::find_element(node, "Address");
    if (address) {
        for (const char* part : {"PortNumber", "PathId", "TargetId", "Lun"}) {
            const std::string number = attribute_or_empty(address, part);
            view.address += (view.address.empty() ? "" : ":") + (number.empty() ? "?" : number);
        }
    }
    const winxml::node_t blocks = winxml::find_element(node, "BlockSizes");
    if (blocks && !attribute_or_empty(blocks, "MaximumBlockSize").empty()) {
        view.blocks = read_blocks(blocks);
    }
    return view;
}

std::optional<std::int64_t> read_usage(const winxml::node_t& usage, std::string_view name) {
    const winxml::node_t node = winxml::find_element(usage, name);
    return node ? std::optional(static_cast<std::int64_t>(text::to_uint64(winxml::get_text(node)))) : std::nullopt;
}

media_view read_media(const winxml::node_t& node) {
    media_view view;
    view.capacity = long_number_of(node, "Capacity");
    view.remaining = long_number_of(node, "Remaining");
    view.block_size = number_of(node, "BlockSize");
    view.partitions = number_of(node, "PartitionCount");
    view.write_protected = text::to_bool(winxml::get_attribute(node, "WriteProtected"));
    view.worm = text::to_bool(winxml::get_attribute(node, "IsWorm"));
    const winxml::node_t usage = winxml::get_element(node, "UsageStatistic");
    view.megabytes_written = read_usage(usage, "LifetimeMegabytesWritten");
    view.megabytes_read = read_usage(usage, "LifetimeMegabytesRead");
    return view;
}

alert_view read_alert(const winxml::node_t& node) {
    alert_view view{number_of(node, "id"), number_of(node, "severity"), attribute_or_empty(node, "message"), {}};
    for (const winxml::node_t& action : winxml::child_elements(node)) {
        view.actions.push_back(winxml::get_text(action));
    }
    return view;
}

}  // namespace

std::string severity_name(std::uint32_t severity) {
    constexpr std::array<const char*, 3> names = {"information", "warning", "critical"};
    return severity < names.size() ? names[severity] : text::to_string(severity);
}

const std::vector<tape_operation>& tape_operations() {
    static const std::vector<tape_operation> operations = {
        {"load", platform::TAPE_LOAD, false}, {"unload", platform::TAPE_UNLOAD, false}, {"tension", platform::TAPE_TENSION, false},
        {"lock", platform::TAPE_LOCK, false}, {"unlock", platform::TAPE_UNLOCK, false}, {"format", platform::TAPE_FORMAT, true},
    };
    return operations;
}

const tape_operation& operation_of(std::string_view name) {
    const std::vector<tape_operation>& all = tape_operations();
    const auto found = std::find_if(all.begin(), all.end(), [name](const tape_operation& row) { return name == row.name; });
    if (found == all.end()) {
        throw failure(exit_code::usage,
                      "'" + std::string(name) + "' is no operation. There are load, unload, tension, lock, unlock and format.");
    }
    return *found;
}

std::optional<std::string> drive_link_of(const std::string& name) {
    if (name.starts_with(link_prefix)) {
        return name;
    }
    const std::string digits = name.size() > short_name.size() ? name.substr(short_name.size()) : std::string();
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos ||
        text::compare_no_case(std::string_view(name).substr(0, short_name.size()), short_name) != 0) {
        return std::nullopt;
    }
    return std::string(link_prefix) + std::string(short_name) + digits;
}

std::string tape_drives::call(const std::string& procedure, const argument_list& arguments) {
    argument_list all = arguments;
    all.emplace_back("OwnerName", owner_);
    return server_.call(procedure, all);
}

std::vector<drive_view> tape_drives::list(const std::vector<std::string>& left_alone) {
    argument_list arguments;
    if (!left_alone.empty()) {
        std::string links;
        for (const std::string& link : left_alone) {
            links += (links.empty() ? "" : ";") + link;
        }
        arguments.emplace_back("LockedSymLinkNames", links);
    }
    const winxml::node_t root = record_of(call("GetDrives", arguments), "Drives", "Drives");
    return understand([&] {
        std::vector<drive_view> views;
        for (const winxml::node_t& node : winxml::child_elements(root)) {
            views.push_back(read_drive(node));
        }
        return views;
    });
}

std::optional<std::string> tape_drives::find(const std::string& name) {
    if (const std::optional<std::string> link = drive_link_of(name)) {
        return link;
    }
    for (const drive_view& view : list({})) {
        if (!view.link.empty() && ((!view.serial.empty() && view.serial == name) ||
                                   (!view.name.empty() && text::compare_no_case(view.name, name) == 0))) {
            return view.link;
        }
    }
    return std::nullopt;
}

std::string tape_drives::choose(const std::string& name) {
    const std::optional<std::string> link = find(name);
    if (!link) {
        throw failure(exit_code::usage, "The server has no drive '" + name + "' ('tarnoctl drives' lists them).");
    }
    return *link;
}

media_view tape_drives::media(const std::string& link, const std::string& changer) {
    argument_list arguments = {{"SymLinkName", link}};
    if (!changer.empty()) {
        arguments.emplace_back("ChangerToLockName", changer);
    }
    const winxml::node_t root = record_of(call("GetMediaInfo", arguments), "MediaInfo", "MediaInfo");
    return understand([&] { return read_media(root); });
}

block_sizes tape_drives::blocks(const std::string& link) {
    // The name on the wire has no t.
    const winxml::node_t root = record_of(call("GeDriveInfo", {{"SymLinkName", link}}), "DriveInfo", "DriveInfo");
    return understand([&] { return read_blocks(root); });
}

std::uint32_t tape_drives::status(const std::string& link) {
    const std::string number = value_of(call("GetDriveError", {{"SymLinkName", link}}), "TapeStatus");
    return understand([&] { return text::to_uint(number); });
}

std::vector<alert_view> tape_drives::alerts(const std::string& procedure, const std::string& link) {
    const winxml::node_t root = record_of(call(procedure, {{"SymLinkName", link}}), "Alerts", "alerts");
    return understand([&] {
        std::vector<alert_view> views;
        for (const winxml::node_t& node : winxml::child_elements(root)) {
            views.push_back(read_alert(node));
        }
        return views;
    });
}

std::vector<alert_view> tape_drives::drive_alerts(const std::string& link) {
    return alerts("GetDriveAlerts", link);
}

std::vector<alert_view> tape_drives::changer_alerts(const std::string& link) {
    return alerts("GetChangerAlerts", link);
}

void tape_drives::prepare(const std::string& link, std::uint32_t operation, bool immediate) {
    call(
        "PrepareTape",
        {{"SymLinkName", link}, {"OperationNum", text::to_string(operation)}, {"ReturnImmediately", immediate ? "true" : "false"}});
}

void tape_drives::eject(const std::string& link) {
    call("EjectTapeFromStandalone", {{"SymLinkName", link}});
}

std::uint32_t tape_drives::start_erase(const std::string& link, bool overwrite_all) {
    const std::string task =
        value_of(call("EraseTape", {{"SymLinkName", link}, {"LongErasure", overwrite_all ? "true" : "false"}}), "TaskID");
    return understand([&] { return text::to_uint(task); });
}

std::uint32_t tape_drives::task_status(std::uint32_t task) {
    const std::string status = value_of(call("TaskStatus", {{"TaskID", text::to_string(task)}}), "TaskStatus");
    return understand([&] { return text::to_uint(status); });
}

}  // namespace console
