#include "drive/drive_handle.h"

#include <array>
#include <atomic>
#include <exception>
#include <vector>

#include <boost/make_shared.hpp>

#include "changer/scsi_pass_through.h"
#include "changer/tape_variables.h"
#include "changer/unit_identity.h"
#include "changer/waiting.h"
#include "drive/device_enumerator.h"
#include "drive/open_drive.h"
#include "drive/read_attribute.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"
#include "platform/errors.h"
#include "platform/system.h"
#include "platform/tape_functions.h"

namespace {

namespace error = platform::error;
namespace ioctl = platform::ioctl;

/// Seconds between two tries at a drive that isn't ready.
constexpr std::int64_t retry_pause = 10;

/// Name of a drive by its logical unit number begins so.
constexpr char address_name_prefix[] = "Tape00";

constexpr std::size_t attribute_room = 32768;

/// What goes in as the size of the media parameters, in all threads, and what the platform made of it: a platform that holds it
/// against the record's size refuses the first call of a process and sets it right.
std::atomic<std::uint32_t> media_parameters_size{4};

/// A field of the standard INQUIRY data as text.
std::string inquiry_field(std::span<const std::uint8_t> data, std::size_t at, std::size_t size) {
    return util::without_trailing_blanks(util::text_to_nul(util::slice(data, at, size)));
}

}  // namespace

CDriveHandle::CDriveHandle(const std::string& link_name, std::int64_t not_ready_timeout)
    : link_name_(link_name), not_ready_timeout_(not_ready_timeout) {
    device_ = OpenDrive(link_name_);
    if (device_ == platform::invalid_device) {
        const std::uint32_t code = exc::last_error();
        throw exc::win_sys_exc_t("Problem with CreateFile in '%1' %2", link_name_, exc::with_error_text(code), code);
    }
}

CDriveHandle::CDriveHandle(const std::string& link_name) : CDriveHandle(link_name, read_not_ready_timeout()) {
    if (not_ready_timeout_ != default_not_ready_timeout) {
        g_log.LogInfo("Change tape device not ready time out to %1 sec.", text::to_string(not_ready_timeout_));
    }
}

CDriveHandle::~CDriveHandle() {
    platform::system().devices->close_device(device_);
}

/// One device control, repeated once when the medium has changed meanwhile. False: the reason is in the last error.
bool CDriveHandle::Control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output) const {
    platform::devices& devices = *platform::system().devices;
    std::uint32_t returned = 0;
    if (devices.control(device_, code, input, output, returned)) {
        return true;
    }
    return exc::last_error() == error::media_changed && devices.control(device_, code, input, output, returned);
}

void CDriveHandle::EnsureDevice() const {
    if (device_ == platform::invalid_device) {
        throw exc::runtime_exc_t("Invalid device handle");
    }
}

std::u16string CDriveHandle::GetDeviceName() const {
    if (gGenerateDriveNameFromAddressNumber) {
        return text::ansi_to_wide(address_name_prefix) + text::to_wstring(std::uint32_t{GetScsiAddress().Lun});
    }
    return u"Tape" + text::to_wstring(GetDeviceNumber());
}

std::uint32_t CDriveHandle::GetDeviceNumber() const {
    EnsureDevice();
    platform::STORAGE_DEVICE_NUMBER number;
    if (!Control(ioctl::storage_get_device_number, {}, util::writable_bytes(number))) {
        throw exc::win_sys_exc_t("DeviceIoControl(StorageGetDeviceNumber) in '%1'", link_name_, exc::last_error());
    }
    return number.DeviceNumber;
}

std::u16string CDriveHandle::GetSerialNumber() const {
    EnsureDevice();
    const std::u16string serial = ReadUnitSerialPage(device_, link_name_);
    return serial.empty() ? ReadStoragePropertySerial(device_, link_name_) : serial;
}

platform::SCSI_ADDRESS CDriveHandle::GetScsiAddress() const {
    platform::SCSI_ADDRESS address;
    if (!Control(ioctl::scsi_get_address, {}, util::writable_bytes(address))) {
        throw exc::runtime_exc_t("DeviceIoControl(ScsiGetAddress)");
    }
    return address;
}

std::u16string CDriveHandle::GetProductName() const {
    const std::vector<std::uint8_t> data = SendInquiry(device_, 0, false, link_name_);
    return text::utf8_to_wide_lenient(inquiry_field(data, 8, 8) + " " + inquiry_field(data, 16, 16));
}

std::u16string CDriveHandle::GetSymbolicLink() const {
    if (!gGenerateDriveNameFromAddressNumber) {
        return text::ansi_to_wide(link_name_);
    }
    const std::uint32_t unit = GetScsiAddress().Lun;
    std::string target;
    // A name that isn't defined leaves the target empty; the definition below then says what is wrong with that.
    platform::system().devices->query_dos_device(link_name_.substr(link_name_.rfind('\\') + 1), target);
    return text::ansi_to_wide(CDeviceEnumerator::DefineDeviceLink(target, address_name_prefix, unit));
}

void CDriveHandle::StorageMediaRemoval(bool prevent) {
    const deadline_t deadline(not_ready_timeout_);
    for (;;) {
        try {
            SetMediaRemoval(prevent);
            return;
        } catch (std::exception& e) {
            sleep_seconds(retry_pause);
            if (deadline.passed()) {
                exc::rethrow_with_trace("Timed out waiting for StorageMediaRemoval symLink = %1'", link_name_, e);
            }
        }
    }
}

void CDriveHandle::SetMediaRemoval(bool prevent) {
    const std::array<std::uint8_t, 1> request = {std::uint8_t{prevent}};
    if (Control(ioctl::storage_media_removal, request, {})) {
        return;
    }
    const std::uint32_t code = exc::last_error();
    if (code != error::not_supported) {
        throw exc::runtime_exc_t("DeviceIoControl(IOCTL_STORAGE_MEDIA_REMOVAL) failed %1", exc::with_error_text(code));
    }
    g_log.LogInfo("%1 isn't supported media removal. So it isn't required. ", link_name_);
}

boost::shared_ptr<TapeMediaInfo> CDriveHandle::GetMediaParameters() {
    const auto media = boost::make_shared<TapeMediaInfo>();
    const auto read = [&] {
        std::uint32_t size = media_parameters_size;
        const std::uint32_t status = platform::system().tape_functions->get_parameters(
            device_, platform::GET_TAPE_MEDIA_INFORMATION, size, util::writable_bytes(*media));
        media_parameters_size = size;
        return status;
    };
    std::uint32_t status = read();
    if (status == error::media_changed) {
        g_log.LogError("ERROR_MEDIA_CHANGED. Try again.");
        status = read();
    }
    // The log's own work may change the last error.
    const std::uint32_t code = exc::last_error();
    if (status == error::no_media_in_drive) {
        g_log.LogError("ERROR_NO_MEDIA_IN_DRIVE.");
        platform::system().errors->set_last_error(code);
        return {};
    }
    g_log.LogInfo("Tape is in drive");
    if (status != error::success) {
        throw exc::win_sys_exc_t("Can not get tape media information with status '%1' in changer '%2'", text::to_string(status),
                                 link_name_, code);
    }
    return media;
}

boost::shared_ptr<TapeMediaInfo> CDriveHandle::FindMediaInfo() {
    const deadline_t deadline(not_ready_timeout_);
    for (;;) {
        try {
            if (const boost::shared_ptr<TapeMediaInfo> media = GetMediaParameters()) {
                return media;
            }
            throw exc::win_sys_exc_t("No media in drive in '%1'", link_name_, exc::last_error());
        } catch (std::exception& e) {
            sleep_seconds(retry_pause);
            if (deadline.passed()) {
                exc::rethrow_with_trace("Timed out waiting for device ready status on FindMediaInfo operation, symLink = %1",
                                        link_name_, e);
            }
        }
    }
}

/// What READ ATTRIBUTE tells of the medium from the usage counts on. The allocation length, with 0x0F in its highest byte, asks
/// for more than there can be: the room limits the answer.
std::vector<std::uint8_t> CDriveHandle::ReadAttributes() const {
    std::vector<std::uint8_t> data(attribute_room);
    CScsiPassThrough request(device_, data);
    request.SetCdb({0x8C, 0, 0, 0, 0, 0, 0, 0, 0x02, 0x20, 0x0F, 0, 0, 0, 0, 0});
    request.Execute();
    return data;
}

TapeUsageStatistic CDriveHandle::ReadUsageStatistic() {
    return DecodeUsageStatistic(ReadAttributes());
}

bool CDriveHandle::IsWormMedium() {
    return DecodeWormMedium(ReadAttributes());
}

void CDriveHandle::GetDriveParameters(TapeDriveParameters& parameters) {
    constexpr std::int64_t reset_pause = 5;
    try {
        for (std::uint32_t attempts = 2; attempts > 0; --attempts) {
            TapeDriveParameters answer;
            std::uint32_t size = sizeof(answer);
            const std::uint32_t status = platform::system().tape_functions->get_parameters(
                device_, platform::GET_TAPE_DRIVE_INFORMATION, size, util::writable_bytes(answer));
            if (status == error::success) {
                parameters = answer;
                return;
            }
            if (status != error::media_changed && status != error::bus_reset && status != error::io_device) {
                throw exc::runtime_exc_t(TapeErrorText(status));
            }
            sleep_seconds(reset_pause);
            g_log.LogInfo(
                "ERROR_BUS_RESET, ERROR_MEDIA_CHANGED or ERROR_IO_DEVICE was occurred, trying to retry driveParameters: %1.",
                text::to_string(attempts));
        }
    } catch (std::exception& e) {
        exc::rethrow_with_trace("DriveHandle failed to get tape drive parameters.", e);
    }
}

void CDriveHandle::EraseTape(std::uint32_t type) {
    const deadline_t deadline(not_ready_timeout_);
    // An erase starts wherever the tape stands, also where a filemark has stopped the rewind.
    static_cast<void>(RewindTape());
    logging::log_scope_t scope(g_log, "Beginning tape erasing.");
    for (;;) {
        try {
            EraseFromHere(type);
            scope.ok();
            return;
        } catch (const exc::win_sys_exc_t& e) {
            if (deadline.passed()) {
                g_log.LogError("Timed out waiting for EraseTape symLink = %1'", link_name_);
                throw;
            }
            g_log.LogError(e.what());
            sleep_seconds(retry_pause);
        } catch (std::exception& e) {
            sleep_seconds(retry_pause);
            if (deadline.passed()) {
                exc::rethrow_with_trace("Timed out waiting for EraseTape symLink = %1'", link_name_, e);
            }
        }
    }
}

void CDriveHandle::EraseFromHere(std::uint32_t type) {
    platform::tape_functions& tape = *platform::system().tape_functions;
    last_tape_status_ = tape.erase(device_, type, false);
    std::uint32_t code = exc::last_error();
    if (last_tape_status_ != error::success) {
        g_log.LogError("Failed to erase tape due %1. %2 ", text::to_string(last_tape_status_), TapeErrorText(last_tape_status_));
    }
    if (last_tape_status_ == error::media_changed) {
        last_tape_status_ = tape.erase(device_, type, false);
        code = exc::last_error();
    }
    if (last_tape_status_ != error::success) {
        throw exc::win_sys_exc_t(text::to_string(last_tape_status_), code);
    }
}

bool CDriveHandle::RewindTape() {
    logging::log_scope_t scope(g_log, "Set position [%1] to tape .", text::to_string(platform::TAPE_REWIND));
    const deadline_t deadline(not_ready_timeout_);
    for (;;) {
        try {
            const bool arrived = MoveToBeginning();
            if (arrived) {
                scope.ok();
            }
            return arrived;
        } catch (exc::runtime_exc_t& e) {
            if (deadline.passed()) {
                exc::rethrow_with_trace("Timed out waiting for setPosition symLink = %1'", link_name_, e);
            }
            g_log.LogError(e.what());
            sleep_seconds(retry_pause);
        }
    }
}

/// False when a filemark stopped the move.
bool CDriveHandle::MoveToBeginning() {
    platform::tape_functions& tape = *platform::system().tape_functions;
    const auto move = [&] { return tape.set_position(device_, platform::TAPE_REWIND, 0, 0, false); };
    last_tape_status_ = move();
    if (last_tape_status_ == error::media_changed) {
        last_tape_status_ = move();
    }
    if (last_tape_status_ == error::filemark_detected) {
        return false;
    }
    if (last_tape_status_ != error::success) {
        throw exc::runtime_exc_t("Tape positioning error: %1", text::to_string(last_tape_status_));
    }
    return true;
}

void CDriveHandle::PrepareTape(std::uint32_t operation, bool immediate) {
    const deadline_t deadline(not_ready_timeout_);
    std::uint32_t status = error::success;
    for (;;) {
        try {
            status = platform::system().tape_functions->prepare(device_, operation, immediate);
            if (status == error::success || status == error::no_media_in_drive) {
                return;
            }
            throw exc::win_sys_exc_t("Error in PrepareTape().", exc::last_error());
        } catch (std::exception& e) {
            bool hopeless = false;
            if (status == error::invalid_drive || status == error::bus_reset) {
                sleep_seconds(retry_pause);
            } else {
                // A drive whose medium has changed is asked again at once.
                hopeless = status != error::media_changed;
            }
            if (hopeless || deadline.passed()) {
                exc::rethrow_with_trace(
                    "Timed out waiting for device ready status on Prepare operation, symLink = '%1', "
                    "operation='%2', immediately='%3' with status='%4'",
                    link_name_, text::to_string(operation), immediate ? "TRUE" : "FALSE", text::to_string(status), e);
            }
        }
    }
}
