#include "host/diagnostics.h"

#include <algorithm>
#include <cstdint>
#include <iostream>

#include "drive/device_enumerator.h"
#include "drive/drive_handle.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/winxml/record_stream.h"
#include "foundation/winxml/xml.h"
#include "host/diagnostic_dump.h"
#include "host/diagnostic_failures.h"
#include "host/diagnostic_files.h"
#include "records/device_record_writer.h"

namespace diagnostics {

namespace {

using changer_ptr = boost::shared_ptr<IChangerHandle>;

constexpr char first_drive[] = "\\\\.\\Tape0";
constexpr char drive_link_prefix[] = "\\\\.\\Tape";

/// The two numbers of a switch, as its user gave them.
struct action_numbers {
    std::int32_t a = 0;
    std::int32_t b = 0;
};

std::vector<std::string> find_changers() {
    return CDeviceEnumerator::FindMediumChangers(false);
}

void list_changers(const std::vector<std::string>& links) {
    std::cout << "Find changers:\n";
    for (const std::string& link : links) {
        std::cout << link << '\n';
    }
    std::cout.flush();
}

std::uint32_t element(std::int32_t number) {
    return static_cast<std::uint32_t>(number);
}

/// A list of all elements of a type, as a file of its own.
void record_list(const std::u16string& path, std::string_view root,
                 void (*write_list)(winxml::record_stream_t& list, IChangerHandle& changer), const changer_ptr& changer) {
    winxml::record_stream_t list(root, winxml::record_form::document);
    write_list(list, *changer);
    SaveText(path, list.text());
}

void record_lists(const std::u16string& path_start, std::string_view root,
                  void (*write_list)(winxml::record_stream_t& list, IChangerHandle& changer)) {
    const std::vector<std::string> links = find_changers();
    for (std::size_t index = 0; index < links.size(); ++index) {
        const std::u16string path = path_start + text::to_wstring(static_cast<std::uint64_t>(index)) + u".xml";
        record_list(path, root, write_list, OpenChanger(links[index]));
    }
}

void record_ports(const action_numbers& /*numbers*/) {
    g_log.LogInfo("Record IEPortsStatuses");
    record_list(u"./ieportsstatuses.xml", "IEPortsStatuses", CDeviceRecordWriter::WriteIEPortStatusList,
                OpenFirstChanger(find_changers()));
}

/// A drive that doesn't let go of its cartridge by itself still may when the robot asks for it.
void eject(const std::string& link) {
    try {
        CDriveHandle drive(link);
        drive.StorageMediaRemoval(false);
        drive.PrepareTape(platform::TAPE_UNLOAD, true);
    } catch (const std::exception& e) {
        TellFailure("Problem with " + link, e);
        g_log.LogError("Problem with %1 ", e.what());
    }
}

/// The first number stands both for the system's number of the drive and for its element in the changer.
void move_to_slot(const action_numbers& numbers) {
    g_log.LogInfo("Move tape");
    const std::vector<std::string> links = find_changers();
    list_changers(links);
    eject(drive_link_prefix + text::to_string(numbers.a));
    OpenFirstChanger(links)->UnloadMedium(element(numbers.a), element(numbers.b));
}

void import_tape(const action_numbers& numbers) {
    g_log.LogInfo("Import tape");
    const std::vector<std::string> links = find_changers();
    try {
        list_changers(links);
        OpenFirstChanger(links)->FromIEPortToSlot(element(numbers.a), element(numbers.b));
    } catch (const std::exception& e) {
        TellFailure("Failed to import tape", e);
        g_log.LogError("Failed to import tape", e);
    }
}

void load_drive(const action_numbers& numbers) {
    g_log.LogInfo("Move tape. Load slot %1 to drive %2", text::to_string(numbers.a), text::to_string(numbers.b));
    const std::vector<std::string> links = find_changers();
    list_changers(links);
    OpenFirstChanger(links)->LoadMedium(element(numbers.a), element(numbers.b));
}

void record_drive_statuses(const action_numbers& /*numbers*/) {
    g_log.LogInfo("Record DrivesStatuses");
    record_lists(u"./drivestatuses", "DrivesStatuses", CDeviceRecordWriter::WriteDriveStatusList);
}

void record_block_sizes(const action_numbers& /*numbers*/) {
    const winxml::document_t document = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(document), "DrivesInfo");
    for (const std::string& link : CDeviceEnumerator::FindTapeDrives()) {
        CDriveHandle drive(link);
        const std::u16string product_name = drive.GetProductName();
        const winxml::node_t entry = winxml::add_element(root, "DriveInfo");
        winxml::set_attribute(entry, "driveName", text::wide_to_utf8(product_name));
        TapeDriveParameters parameters;
        drive.GetDriveParameters(parameters);
        CDeviceRecordWriter::WriteDriveInfo(entry, parameters);
    }
    SaveDocument(u"./drivesInformation.xml", document);
}

void record_medium(const action_numbers& /*numbers*/) {
    g_log.LogInfo("Getting media info");
    CDriveHandle drive(first_drive);
    const winxml::document_t document = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(document), "MediaInfo");
    const boost::shared_ptr<TapeMediaInfo> media = drive.FindMediaInfo();
    const bool worm = drive.IsWormMedium();
    CDeviceRecordWriter::WriteMediaInfo(root, worm, *media);
    CDeviceRecordWriter::WriteUsageStatistic(winxml::add_element(root, "UsageStatistic"), drive.ReadUsageStatistic());
    SaveDocument(u"./driveStatus.xml", document);
}

void record_slots(const action_numbers& /*numbers*/) {
    g_log.LogInfo("Record SlotsStatuses");
    record_lists(u"./changer", "SlotsStatuses", CDeviceRecordWriter::WriteSlotStatusList);
}

struct action {
    std::u16string_view name;
    void (*run)(const action_numbers& numbers);
    bool takes_numbers;
    action_numbers defaults;
};

/// The first one that is found on the command line wins.
constexpr action actions[] = {
    {u"-ieport", record_ports, false, {}},
    {u"-move", move_to_slot, true, {1, 3}},
    {u"-unload", move_to_slot, true, {}},
    {u"-import", import_tape, true, {}},
    {u"-load", load_drive, true, {}},
    {u"-drivestat", record_drive_statuses, false, {}},
    {u"-driveparameters", record_block_sizes, false, {}},
    {u"-mediumparameters", record_medium, false, {}},
    {u"-changers", [](const action_numbers&) { RecordFirstChanger(); }, false, {}},
    {u"-dump", [](const action_numbers&) { RecordDump(dump_form::full); }, false, {}},
    {u"-quickdump", [](const action_numbers&) { RecordDump(dump_form::quick); }, false, {}},
    {u"-slots", record_slots, false, {}},
};

std::int32_t number_at(const util::command_line_t& command_line, std::size_t index) {
    return index < command_line.size() ? text::to_int(text::wide_to_utf8(command_line[index])) : 0;
}

/// The numbers have their own places on the command line, wherever the switch stands.
action_numbers numbers_for(const action& chosen, const util::command_line_t& command_line) {
    constexpr std::size_t place_of_a = 2;
    constexpr std::size_t place_of_b = 3;
    if (!chosen.takes_numbers || command_line.size() <= place_of_a) {
        return chosen.defaults;
    }
    return {number_at(command_line, place_of_a), number_at(command_line, place_of_b)};
}

/// Null when there is no switch of an action.
const action* find_action(const util::command_line_t& command_line) {
    const auto chosen = std::find_if(std::begin(actions), std::end(actions), [&](const action& candidate) {
        return util::find_switch(command_line, candidate.name).has_value();
    });
    return chosen == std::end(actions) ? nullptr : chosen;
}

}  // namespace

}  // namespace diagnostics

bool HasDiagnosticAction(const util::command_line_t& command_line) {
    return diagnostics::find_action(command_line) != nullptr;
}

bool RunDiagnosticAction(const util::command_line_t& command_line) {
    using namespace diagnostics;
    const action* const chosen = find_action(command_line);
    if (chosen == nullptr) {
        return false;
    }
    chosen->run(numbers_for(*chosen, command_line));
    return true;
}
