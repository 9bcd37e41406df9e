#include "command/drive_procedures.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <boost/thread/locks.hpp>

#include "drive/device_enumerator.h"
#include "drive/drive_handle.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/text/conversion.h"
#include "platform/system.h"
#include "platform/tape_functions.h"
#include "records/device_record_writer.h"

namespace procedures {

namespace {

/// How often the statuses of a changer's drives are read in one call.
constexpr int status_rounds = 2;

/// The console puts its link prefix in front of names that have one already.
constexpr std::string_view doubled_prefixes[] = {"\\\\.\\\\\\?\\", "\\\\.\\\\\\.\\"};
constexpr std::size_t extra_prefix_size = 4;

std::string link_argument(const procedure_call& call) {
    return call.input.get_string_argument("SymLinkName");
}

/// The links that the caller wants left alone, joined by semicolons.
std::vector<std::string> locked_links(const CInputArguments& input) {
    std::vector<std::string> links;
    if (!input.find_argument("LockedSymLinkNames")) {
        return links;
    }
    std::string rest = input.get_string_argument("LockedSymLinkNames");
    std::string first;
    while (text::split_at(rest, ';', first, rest)) {
        links.push_back(first);
    }
    links.push_back(rest);
    return links;
}

/// One entry of the list of drives. A failure leaves in the list what was written before it, which may be nothing.
void write_drive_entry(const std::string& link, const winxml::node_t& list) {
    CDriveHandle drive(link);
    const std::u16string product_name = drive.GetProductName();
    const winxml::node_t entry = winxml::add_element(list, "Drive");
    CDeviceRecordWriter::WriteDrive(entry, drive, product_name);
    CDeviceRecordWriter::WriteAddress(entry, drive);
    CDeviceRecordWriter::WriteBlockSizes(entry, drive);
}

/// The changer is locked for one round, no longer.
void read_drives_statuses(const procedure_call& call, const std::string& link) {
    winxml::record_stream_t list("DrivesStatuses", winxml::record_form::attribute_value);
    const auto changer = CreateChangerHandle(link, call.byScsi, call.context.GetDeviceMutex(link));
    {
        logging::log_scope_t scope(g_log, "Building xml from drives statuses");
        CDeviceRecordWriter::WriteDriveStatusList(list, *changer);
        scope.ok();
    }
    call.output.SetRecord("DrivesStatuses", std::move(list));
}

/// The name of the changer's mutex; empty when the caller names none.
std::string changer_to_lock(const CInputArguments& input) {
    if (!input.find_argument("ChangerToLockName")) {
        return {};
    }
    return input.get_string_argument("ChangerToLockName");
}

boost::unique_lock<boost::mutex> lock_changer(ctx::CSvcContext& context, std::string name, boost::shared_ptr<boost::mutex>& mutex) {
    const bool doubled = std::any_of(std::begin(doubled_prefixes), std::end(doubled_prefixes),
                                     [&](std::string_view prefix) { return name.starts_with(prefix); });
    if (doubled) {
        name.erase(0, extra_prefix_size);
    }
    g_log.LogInfo("Lock changer %1 for operation with drive", name);
    mutex = context.GetDeviceMutex(name);
    return boost::unique_lock<boost::mutex>(*mutex);
}

void write_media_info(CDriveHandle& drive, const winxml::node_t& root) {
    const boost::shared_ptr<TapeMediaInfo> media = drive.FindMediaInfo();
    const bool worm = drive.IsWormMedium();
    CDeviceRecordWriter::WriteMediaInfo(root, worm, *media);
    const winxml::node_t usage = winxml::add_element(root, "UsageStatistic");
    CDeviceRecordWriter::WriteUsageStatistic(usage, drive.ReadUsageStatistic());
}

}  // namespace

void GetDrives(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Getting drives");
    const std::vector<std::string> links = CDeviceEnumerator::FindTapeDrives();
    const winxml::document_t document = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(document), "Drives");
    const std::vector<std::string> locked = locked_links(call.input);
    for (const std::string& link : links) {
        if (std::find(locked.begin(), locked.end(), link) != locked.end()) {
            continue;
        }
        try {
            write_drive_entry(link, root);
        } catch (const std::exception& e) {
            g_log.LogWarning("Cannot gather information on drive %1. %2", link, e.what());
        }
    }
    call.output.SetRecord("Drives", document);
    scope.ok();
}

void GetDrivesStatuses(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Getting drives statuses");
    const std::string link = link_argument(call);
    for (int round = 1; round <= status_rounds; ++round) {
        try {
            read_drives_statuses(call, link);
        } catch (const std::exception& e) {
            g_log.LogError("Problem with gathering drive statuses", e);
            if (round == status_rounds) {
                throw;
            }
        }
    }
    scope.ok();
}

void GetMediaInfo(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Getting media parameters info");
    const std::string link = link_argument(call);
    const std::string changer = changer_to_lock(call.input);
    // Before the drive, so that the robot may move again only when the drive is closed.
    boost::shared_ptr<boost::mutex> mutex;
    boost::unique_lock<boost::mutex> lock;
    CDriveHandle drive(link);
    const winxml::document_t document = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(document), "MediaInfo");
    lock = lock_changer(call.context, changer, mutex);
    write_media_info(drive, root);
    call.output.SetRecord("MediaInfo", document);
    scope.ok();
}

void GeDriveInfo(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Getting drive parameters info");
    CDriveHandle drive(link_argument(call));
    const winxml::document_t document = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(document), "DriveInfo");
    // A drive that keeps being reset leaves the record as it is. Zeros tell the console that, and nothing of this process's memory.
    TapeDriveParameters parameters;
    drive.GetDriveParameters(parameters);
    CDeviceRecordWriter::WriteDriveInfo(root, parameters);
    call.output.SetRecord("DriveInfo", document);
    scope.ok();
}

void GetDriveError(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Getting drive error");
    const CDriveHandle drive(link_argument(call));
    call.output.Set("TapeStatus", static_cast<std::int32_t>(platform::system().tape_functions->get_status(drive.device())));
    scope.ok();
}

void EjectTapeFromStandalone(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Ejecting tape from standalone");
    CDriveHandle(link_argument(call)).PrepareTape(platform::TAPE_UNLOAD, true);
    scope.ok();
}

void PrepareTape(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Preparing tape");
    CDriveHandle drive(link_argument(call));
    const std::int32_t operation = call.input.get_int_argument("OperationNum");
    g_log.LogInfo("Try to %1", text::to_string(operation));
    const bool immediate = call.input.find_argument("ReturnImmediately") && call.input.get_bool_argument("ReturnImmediately");
    drive.PrepareTape(static_cast<std::uint32_t>(operation), immediate);
    scope.ok();
}

void StorageMediaRemoval(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Removal tape from drive");
    CDriveHandle drive(link_argument(call));
    drive.StorageMediaRemoval(call.input.get_bool_argument("Prevent"));
    scope.ok();
}

}  // namespace procedures
