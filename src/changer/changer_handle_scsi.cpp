#include "changer/changer_handle_scsi.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>

#include <boost/make_shared.hpp>

#include "changer/buffered_scsi_read.h"
#include "changer/element_readers.h"
#include "changer/element_records.h"
#include "changer/mode_pages.h"
#include "changer/waiting.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"
#include "platform/devices.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/system.h"

namespace {

namespace ioctl = platform::ioctl;

constexpr open_changer_t::wording device_words = {"Could not find or open scsi-changer '", "Cannot close handle for %1 on scsi"};

constexpr movement_wording movement_words = {
    "Execute move medium implementation from %1 #%2 to %3 #%4",
    "Sleep for %1 sec. Because of %2",
    "Timed out waiting for device ready status on MoveMedium operation, source element %1 #%2, destination element %3 #%4",
    nullptr,
};

constexpr std::uint8_t page_element_address_assignment = 0x1D;
constexpr std::uint8_t page_device_capabilities = 0x1F;

constexpr std::size_t assignment_room = 32;
constexpr std::size_t capabilities_room = 512;
constexpr std::size_t mode_header = 4;
constexpr std::size_t element_status_room = 65535;
constexpr std::size_t drive_serials_room = 16384;
constexpr std::uint32_t inquiry_transfer_length = 65525;

// While somebody has the import/export port open a device answers its first commands with this. The pauses grow by their
// first length.
constexpr char port_accessed_text[] = "Additional sense: Import or export element accessed";
constexpr std::int64_t port_pause_step = 20;  // seconds

/// What a device without a class driver is numbered from.
constexpr std::uint32_t driverless_number_base = 100;

bool is_alphanumeric(std::uint8_t character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z');
}

const CHANGER_ELEMENT_STATUS_EX& first_record(const std::vector<CHANGER_ELEMENT_STATUS_EX>& records) {
    if (records.empty()) {
        throw std::out_of_range("invalid vector<T> subscript");
    }
    return records.front();
}

/// Leaves a loaded drive's raw descriptor in the working directory, for whoever has to find out what a library means by it.
/// Nothing depends on the file.
void dump_descriptor(std::span<const std::uint8_t> descriptor) {
    std::unique_ptr<platform::file> file;
    if (platform::system().files->open_file(u"dump.dump", platform::file_access::write, platform::file_share::read,
                                            platform::file_open_mode::create_always, file) == platform::error::success) {
        std::size_t written = 0;
        file->write(descriptor, written);
    }
}

}  // namespace

CChangerHandleScsi::CChangerHandleScsi(const std::string& link, std::uint16_t slot_portion,
                                       const boost::shared_ptr<boost::mutex>& device_mutex)
    : CMediumMovement(movement_words, device_words, link, slot_portion, device_mutex) {
    Initialize();
    device().LogChangedTimeout();
}

void CChangerHandleScsi::Initialize() {
    for (std::int64_t pause = port_pause_step;; pause += port_pause_step) {
        try {
            ReadElementAddressAssignment();
            return;
        } catch (const std::exception& e) {
            const std::string reason = e.what();
            if (pause > device().not_ready_timeout() || reason.find(port_accessed_text) == std::string::npos) {
                device().Close();
                throw exc::win_sys_exc_t("Cannot initialize Changer %1. %2", device().link(), reason, exc::last_error());
            }
            sleep_seconds(pause);
            g_log.LogInfo("Sleep after problem with ie-port on %1 seconds", text::to_string(pause));
        }
    }
}

void CChangerHandleScsi::ReadElementAddressAssignment() {
    std::vector<std::uint8_t> data(assignment_room);
    CScsiPassThrough request(device().EnsureDeviceHandle(), data);
    ModeSensePage(request, page_element_address_assignment);
    // A changer without this page opens all the same; the empty map fails whoever uses it.
    ParseElementAddressAssignment(data, map_);
}

std::u16string CChangerHandleScsi::GetDeviceName() {
    platform::STORAGE_DEVICE_NUMBER number;
    if (!device().Query(ioctl::storage_get_device_number, util::writable_bytes(number))) {
        const std::uint32_t code = exc::last_error();
        if (code != platform::error::invalid_function) {
            throw exc::win_sys_exc_t("DeviceIoControl(StorageGetDeviceNumber) in '%1' %2", device().link(),
                                     exc::with_error_text(code), code);
        }
        number.DeviceNumber = GetScsiAddress().TargetId + driverless_number_base;
    }
    return u"Changer" + text::to_wstring(number.DeviceNumber);
}

SCSI_ADDRESS CChangerHandleScsi::GetScsiAddress() {
    SCSI_ADDRESS address;
    if (!device().Query(ioctl::scsi_get_address, util::writable_bytes(address))) {
        const std::uint32_t code = exc::last_error();
        throw exc::win_sys_exc_t("DeviceIoControl(ScsiGetAddress) in '%1'", device().link(), code);
    }
    return address;
}

GET_CHANGER_PARAMETERS CChangerHandleScsi::GetParameters() {
    const platform::device_handle handle = device().EnsureDeviceHandle();
    GET_CHANGER_PARAMETERS parameters;
    FillParametersFromAssignment(parameters);
    std::vector<std::uint8_t> data(capabilities_room);
    CScsiPassThrough request(handle, data);
    ModeSensePage(request, page_device_capabilities);
    if (!ParseDeviceCapabilities(util::slice(data, mode_header, data.size()), parameters)) {
        throw exc::win_sys_exc_t("Cannot get changer parameter', symLink = '%1'", device().link(), exc::last_error());
    }
    return parameters;
}

void CChangerHandleScsi::FillParametersFromAssignment(GET_CHANGER_PARAMETERS& parameters) const {
    parameters.FirstTransportNumber = map_.first(ChangerTransport);
    parameters.FirstSlotNumber = map_.first(ChangerSlot);
    parameters.FirstIEPortNumber = map_.first(ChangerIEPort);
    parameters.FirstDriveNumber = map_.first(ChangerDrive);
    parameters.NumberTransportElements = map_.count(ChangerTransport);
    parameters.NumberStorageElements = map_.count(ChangerSlot);
    parameters.NumberIEElements = map_.count(ChangerIEPort);
    parameters.NumberDataTransferElements = map_.count(ChangerDrive);
}

bool CChangerHandleScsi::GetProductData(CHANGER_PRODUCT_DATA& data) {
    const platform::device_handle handle = device().EnsureDeviceHandle();
    data = {};
    buffered_scsi_read_t standard({0x12, 0x00, 0x00, 0x00, 0x50, 0x00}, inquiry_transfer_length);
    standard.send(handle);
    const std::span<const std::uint8_t> inquiry = standard.data();
    std::copy_n(inquiry.begin() + 8, sizeof(data.VendorId), data.VendorId);
    std::copy_n(inquiry.begin() + 16, sizeof(data.ProductId), data.ProductId);
    std::copy_n(inquiry.begin() + 32, sizeof(data.Revision), data.Revision);
    std::copy_n(inquiry.begin() + 36, 2, data.SerialNumber);
    data.DeviceType = inquiry[0] & 0x1F;
    buffered_scsi_read_t serial({0x12, 0x01, 0x80, 0x00, 0x50, 0x00}, inquiry_transfer_length);
    serial.send(handle);
    std::copy_n(serial.data().begin() + 4, 12, data.SerialNumber);
    return true;
}

ElementStatusList CChangerHandleScsi::GetElementStatus(std::uint16_t first, ELEMENT_TYPE type, bool /*read_volume_tag*/,
                                                       std::uint16_t count) {
    const deadline_t deadline(device().not_ready_timeout());
    for (;;) {
        try {
            return boost::make_shared<element_records>(ReadElements(first, type, count));
        } catch (std::exception& e) {
            // Whatever has failed, the device may only not be ready yet.
            sleep_seconds(changer_retry_pause);
            g_log.LogError(e);
            if (deadline.passed()) {
                exc::rethrow_with_trace(status_read_timed_out, ElementTypeName(type), text::to_string(std::uint32_t{first}), e);
            }
        }
    }
}

CChangerHandleScsi::element_records CChangerHandleScsi::ReadElements(std::uint16_t first, ELEMENT_TYPE type, std::uint16_t count) {
    const auto read = [&](std::uint16_t address, std::uint16_t portion) { return ReadElementRange(address, type, portion); };
    switch (type) {
        case ChangerDrive:
            return ReadDriveElements(first, count);
        case ChangerSlot:
            return ReadByPortions(read, first, count, device().slot_portion());
        case ChangerIEPort:
            return ReadByPortions(read, first, count, port_portion);
        case AllElements:
        case ChangerTransport:
            break;
    }
    return read(first, count);
}

CChangerHandleScsi::element_records CChangerHandleScsi::ReadElementRange(std::uint16_t first, ELEMENT_TYPE type,
                                                                         std::uint16_t count) {
    const platform::device_handle handle = device().EnsureDeviceHandle();
    std::vector<std::uint8_t> data(element_status_room);
    CScsiPassThrough request(handle, data);
    try {
        ReadElementStatus(request, first, type, count, map_, true);
    } catch (const std::exception& e) {
        // Many libraries refuse device identifiers. Other types than drives are sent the same command again.
        request.Prepare();
        g_log.LogInfo("Cannot get elements status. %1", e.what());
        ReadElementStatus(request, first, type, count, map_, false);
    }
    if (type == ChangerDrive && count == 1) {
        return ReadSingleDrive(first, data);
    }
    return Parse(data, type);
}

/// Some libraries leave the volume tag out, or fill it with something else, when they give the device identifier.
CChangerHandleScsi::element_records CChangerHandleScsi::ReadSingleDrive(std::uint16_t address,
                                                                        const std::vector<std::uint8_t>& answer) {
    element_records records = Parse(answer, ChangerDrive);
    static_cast<void>(first_record(records));
    CHANGER_ELEMENT_STATUS_EX& drive = records.front();
    const bool full = (drive.Flags & platform::ELEMENT_STATUS_FULL) != 0;
    if (full && !is_alphanumeric(drive.PrimaryVolumeID[0])) {
        std::vector<std::uint8_t> data(element_status_room);
        CScsiPassThrough request(device().EnsureDeviceHandle(), data);
        ReadElementStatus(request, address, ChangerDrive, 1, map_, false);
        const element_records second_look = Parse(data, ChangerDrive);
        std::memcpy(drive.PrimaryVolumeID, first_record(second_look).PrimaryVolumeID, sizeof(drive.PrimaryVolumeID));
    }
    if (!full && drive.PrimaryVolumeID[0] != 0) {
        std::memset(drive.PrimaryVolumeID, 0, sizeof(drive.PrimaryVolumeID));
    }
    return records;
}

/// One address at a time until `count` drives are found. Equal serial numbers are no reason to leave a drive out here.
CChangerHandleScsi::element_records CChangerHandleScsi::ReadDriveElements(std::uint16_t first, std::uint16_t count) {
    element_records drives;
    std::uint16_t address = first;
    while (drives.size() < count) {
        const element_records answer = ReadElementRange(address, ChangerDrive, 1);
        const CHANGER_ELEMENT_STATUS_EX& record = first_record(answer);
        ++address;
        if (drives.empty() || record.Element.ElementAddress != drives.back().Element.ElementAddress) {
            drives.push_back(record);
        }
    }
    return drives;
}

CChangerHandleScsi::element_records CChangerHandleScsi::Parse(const std::vector<std::uint8_t>& answer, ELEMENT_TYPE type) const {
    return ParseElementStatusData(answer, type, map_, dump_descriptor);
}

SerialNameList CChangerHandleScsi::GetSerialNames(const ElementStatusList& records, ELEMENT_TYPE type) {
    return SerialNamesOf(records, type, [this] { return QueryDriveSerialNames(); });
}

std::vector<std::string> CChangerHandleScsi::QueryDriveSerialNames() {
    std::vector<std::uint8_t> data(drive_serials_room);
    CScsiPassThrough request(device().EnsureDeviceHandle(), data);
    ReadDriveElementStatus(request, map_, false);
    return ParseIdentifiedSerials(data, map_);
}

void CChangerHandleScsi::MoveMediumImpl(const medium_move& move) {
    CScsiPassThrough request(device().EnsureDeviceHandle());
    try {
        MoveMediumCommand(request, move.source, move.source_type, move.destination, move.destination_type, map_);
    } catch (const exc::win_sys_exc_t& e) {
        // The control itself has failed; what the device reported goes to whoever sends the command again.
        if (e.code() == 0 && ArrivedAfterSilentFailure(move)) {
            return;
        }
        ThrowFailedCommand(move, e.code());
    }
}
