#include "console/drive_commands.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "console/json_output.h"
#include "console/table.h"
#include "foundation/text/conversion.h"
#include "platform/error_texts.h"

namespace console {

namespace {

std::string yes_or_no(bool value) {
    return value ? "yes" : "no";
}

/// "2500 bytes" or "12000138625024 bytes (12.0 TB)": decimal units, as cartridges are sold.
std::string bytes_text(std::int64_t bytes) {
    std::string text = text::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    if (bytes >= 10000) {
        constexpr std::array<const char*, 6> units = {"kB", "MB", "GB", "TB", "PB", "EB"};
        double amount = static_cast<double>(bytes) / 1000;
        std::size_t unit = 0;
        while (amount >= 999.95 && unit + 1 < units.size()) {
            amount /= 1000;
            ++unit;
        }
        std::array<char, 32> rounded{};
        std::snprintf(rounded.data(), rounded.size(), " (%.1f %s)", amount, units[unit]);
        text += rounded.data();
    }
    return text;
}

std::string megabytes_text(const std::optional<std::int64_t>& megabytes) {
    return megabytes ? text::to_string(*megabytes) + " MB" : "not told";
}

std::string or_unknown(const std::string& value) {
    return value.empty() ? "?" : value;
}

json to_json(const block_sizes& blocks) {
    return {{"default", blocks.preferred}, {"minimum", blocks.smallest}, {"maximum", blocks.largest}};
}

json to_json(const drive_view& view) {
    json object = {
        {"link", view.link}, {"name", view.name}, {"product", view.product}, {"serial", view.serial}, {"address", view.address}};
    if (view.blocks) {
        object["block_sizes"] = to_json(*view.blocks);
    }
    return object;
}

json to_json(const alert_view& view) {
    return {
        {"alert", view.number}, {"severity", severity_name(view.severity)}, {"message", view.message}, {"actions", view.actions}};
}

/// A device that can't be asked for its alerts has none, says the server: whoever hears that wants to know which of both it is.
void check_device(tape_drives& drives, library_view& library, const alert_source& source) {
    try {
        if (source.changer) {
            library.check(source.link);
        } else {
            (void)drives.blocks(source.link);
        }
    } catch (const failure& e) {
        throw failure(e.code(), std::string("No alerts were told, but the device can't be asked: ") + e.what());
    }
}

/// A link as it can be typed without quotes.
std::string short_name(const std::string& link) {
    constexpr std::string_view prefix = "\\\\.\\";
    return link.starts_with(prefix) ? link.substr(prefix.size()) : link;
}

std::string ready_or(std::uint32_t status) {
    return status == 0 ? "ready" : meaning_of(status);
}

}  // namespace

std::string meaning_of(std::uint32_t status) {
    const std::optional<std::string_view> text = platform::english_error_text(status);
    return text ? std::string(*text) : "No text is known for this number.";
}

void list_drives(tape_drives& drives, const std::vector<std::string>& left_alone, const output& out) {
    std::vector<std::string> links;
    std::transform(left_alone.begin(), left_alone.end(), std::back_inserter(links), [](const std::string& name) {
        const std::optional<std::string> link = drive_link_of(name);
        if (!link) {
            throw failure(exit_code::usage, "'" + name + "' names no drive to leave alone: write Tape0 or \\\\.\\Tape0.");
        }
        return *link;
    });
    const std::vector<drive_view> views = drives.list(links);
    if (out.json) {
        json list = json::array();
        std::transform(views.begin(), views.end(), std::back_inserter(list), [](const drive_view& view) { return to_json(view); });
        print_json(out, list);
        return;
    }
    if (views.empty()) {
        out.stream << "No drives.\n";
        return;
    }
    table rows({"LINK", "PRODUCT", "SERIAL", "ADDRESS", "BLOCK SIZES"});
    for (const drive_view& view : views) {
        std::string blocks = "?";
        if (view.blocks) {
            blocks = text::to_string(view.blocks->smallest) + " to " + text::to_string(view.blocks->largest) + ", default " +
                     (view.blocks->preferred == 0 ? "variable" : text::to_string(view.blocks->preferred));
        }
        rows.add({or_unknown(view.link), view.product, view.serial, or_unknown(view.address), blocks});
    }
    rows.print(out.stream);
}

void show_media(tape_drives& drives, const std::string& link, const std::string& changer, const output& out) {
    const media_view view = drives.media(link, changer);
    if (out.json) {
        json object = {{"drive", link},
                       {"capacity", view.capacity},
                       {"remaining", view.remaining},
                       {"block_size", view.block_size},
                       {"partitions", view.partitions},
                       {"write_protected", view.write_protected},
                       {"worm", view.worm}};
        if (view.megabytes_written && view.megabytes_read) {
            object["lifetime_megabytes_written"] = *view.megabytes_written;
            object["lifetime_megabytes_read"] = *view.megabytes_read;
        }
        print_json(out, object);
        return;
    }
    table rows({"DRIVE", link});
    rows.add({"CAPACITY", bytes_text(view.capacity)});
    rows.add({"REMAINING", bytes_text(view.remaining)});
    rows.add({"BLOCK SIZE", view.block_size == 0 ? "variable" : bytes_text(view.block_size)});
    rows.add({"PARTITIONS", text::to_string(view.partitions)});
    rows.add({"WRITE-PROTECTED", yes_or_no(view.write_protected)});
    rows.add({"WORM", yes_or_no(view.worm)});
    rows.add({"WRITTEN IN ITS LIFE", megabytes_text(view.megabytes_written)});
    rows.add({"READ IN ITS LIFE", megabytes_text(view.megabytes_read)});
    rows.print(out.stream);
}

void show_drive(tape_drives& drives, const std::string& link, const output& out) {
    const std::uint32_t status = drives.status(link);
    const block_sizes blocks = drives.blocks(link);
    if (out.json) {
        print_json(out, {{"drive", link}, {"status", status}, {"meaning", ready_or(status)}, {"block_sizes", to_json(blocks)}});
        return;
    }
    table rows({"DRIVE", link});
    rows.add({"STATUS", text::to_string(status) + ": " + ready_or(status)});
    rows.add({"DEFAULT BLOCK SIZE", blocks.preferred == 0 ? "variable" : bytes_text(blocks.preferred)});
    rows.add({"SMALLEST BLOCK", bytes_text(blocks.smallest)});
    rows.add({"LARGEST BLOCK", bytes_text(blocks.largest)});
    rows.print(out.stream);
}

alert_source choose_alert_source(tape_drives& drives, library_view& library, const std::string& name) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char unit) { return static_cast<char>(std::tolower(unit)); });
    if (lower.find("changer") != std::string::npos) {
        return {library.choose_changer(name), true};
    }
    if (const std::optional<std::string> link = drives.find(name)) {
        return {*link, false};
    }
    return {library.choose_changer(name), true};
}

void show_alerts(tape_drives& drives, library_view& library, const alert_source& source, const output& out) {
    const std::vector<alert_view> alerts = source.changer ? drives.changer_alerts(source.link) : drives.drive_alerts(source.link);
    if (alerts.empty()) {
        check_device(drives, library, source);
    }
    if (out.json) {
        json list = json::array();
        std::transform(alerts.begin(), alerts.end(), std::back_inserter(list),
                       [](const alert_view& view) { return to_json(view); });
        print_json(out, {{"device", source.link}, {"alerts", list}});
        return;
    }
    if (alerts.empty()) {
        out.stream << "No alerts.\n";
        return;
    }
    table rows({"ALERT", "SEVERITY", "MESSAGE"});
    for (const alert_view& view : alerts) {
        rows.add({text::to_string(view.number), severity_name(view.severity), view.message});
        for (std::size_t i = 0; i < view.actions.size(); ++i) {
            rows.add({"", "", "  " + std::to_string(i + 1) + ". " + view.actions[i]});
        }
    }
    rows.print(out.stream);
}

void prepare(tape_drives& drives, const std::string& link, const tape_operation& operation, bool immediate, bool confirmed,
             person& who, const output& out) {
    if (operation.destroys_data && !confirmed) {
        confirm(who, "This destroys all that is on the tape in " + link + ". Go on?");
    }
    who.note_for_interrupt("tarnoctl: The drive goes on with what it has begun. 'tarnoctl drive-info " + short_name(link) +
                           "' tells when it is ready.");
    drives.prepare(link, operation.number, immediate);
    who.note_for_interrupt("");
    if (out.json) {
        print_json(out, {{"drive", link}, {"operation", operation.name}, {"immediate", immediate}});
    } else {
        out.stream << link << ": " << operation.name << (immediate ? " begun.\n" : " done.\n");
    }
}

void eject(tape_drives& drives, const std::string& link, const output& out) {
    drives.eject(link);
    if (out.json) {
        print_json(out, {{"drive", link}, {"operation", "eject"}});
    } else {
        out.stream << link << ": eject begun.\n";
    }
}

}  // namespace console
