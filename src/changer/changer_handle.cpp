#include "changer/changer_handle.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include <boost/make_shared.hpp>

#include "changer/buffered_scsi_read.h"
#include "changer/element_readers.h"
#include "changer/sense_decoder.h"
#include "changer/waiting.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"
#include "platform/devices.h"

namespace {

namespace ioctl = platform::ioctl;

constexpr open_changer_t::wording device_words = {"Could not find or open changer '", "Cannot close handle for %1"};

constexpr movement_wording movement_words = {
    "Execute moving medium implementation from %1 #%2 to %3 #%4",
    "Sleep for %1 sec",
    "Timed out waiting for device ready status on MoveMedium operation, source element %1#%2, destination element %3 #%4",
    "Unknown error",
};

constexpr std::uint8_t check_condition = 0x02;

/// The answer to a status request in either record form. A driver that gives product data gives long records, whatever its
/// count of bytes says.
std::vector<CHANGER_ELEMENT_STATUS_EX> decode_records(std::span<const std::uint8_t> reply, std::uint32_t returned,
                                                      std::size_t count) {
    std::vector<CHANGER_ELEMENT_STATUS_EX> records(count);
    if (records.empty()) {
        return records;
    }
    const auto first = util::load_record<CHANGER_ELEMENT_STATUS_EX>(reply);
    const bool long_form = (first.Flags & platform::ELEMENT_STATUS_PRODUCT_DATA) != 0 || returned == reply.size();
    const std::size_t stride = long_form ? sizeof(CHANGER_ELEMENT_STATUS_EX) : platform::CHANGER_ELEMENT_STATUS_SIZE;
    for (std::size_t number = 0; number < count; ++number) {
        records[number] = util::load_record<CHANGER_ELEMENT_STATUS_EX>(util::slice(reply, number * stride, stride));
    }
    return records;
}

/// READ ELEMENT STATUS of 500 drives from address 1 on, without volume tags.
buffered_scsi_read_t drive_identifier_read(bool device_identifiers) {
    constexpr std::uint32_t transfer_length = 65525;
    return buffered_scsi_read_t(
        {0xB8, 0x04, 0x00, 0x01, 0x01, 0xF4, std::uint8_t{device_identifiers}, 0x01, 0x00, 0x00, 0x00, 0x00}, transfer_length);
}

}  // namespace

CChangerHandle::CChangerHandle(const std::string& link, std::uint16_t slot_portion,
                               const boost::shared_ptr<boost::mutex>& device_mutex)
    : CMediumMovement(movement_words, device_words, link, slot_portion, device_mutex) {
    device().LogChangedTimeout();
}

/// The pattern names the request; the link and the error's text fill it.
void CChangerHandle::ThrowFailedControl(const char* pattern) {
    const std::uint32_t code = exc::last_error();
    throw exc::win_sys_exc_t(pattern, device().link(), exc::with_error_text(code), code);
}

std::u16string CChangerHandle::GetDeviceName() {
    platform::STORAGE_DEVICE_NUMBER number;
    if (!device().Query(ioctl::storage_get_device_number, util::writable_bytes(number))) {
        ThrowFailedControl("DeviceIoControl(StorageGetDeviceNumber) in '%1' %2");
    }
    return u"Changer" + text::to_wstring(number.DeviceNumber);
}

SCSI_ADDRESS CChangerHandle::GetScsiAddress() {
    SCSI_ADDRESS address;
    if (!device().Query(ioctl::scsi_get_address, util::writable_bytes(address))) {
        ThrowFailedControl("DeviceIoControl(ScsiGetAddress) in '%1' %2");
    }
    return address;
}

GET_CHANGER_PARAMETERS CChangerHandle::GetParameters() {
    GET_CHANGER_PARAMETERS parameters;
    std::uint32_t returned = 0;
    if (!device().Control(ioctl::changer_get_parameters, {}, util::writable_bytes(parameters), returned)) {
        ThrowFailedControl("DeviceIoControl(ChangerGetParameters) in '%1' %2");
    }
    return parameters;
}

bool CChangerHandle::GetProductData(CHANGER_PRODUCT_DATA& data) {
    CHANGER_PRODUCT_DATA answer;
    std::uint32_t returned = 0;
    if (!device().Control(ioctl::changer_get_product_data, {}, util::writable_bytes(answer), returned)) {
        g_log.LogError("DeviceIoControl(ChangerGetProductData) in '%1' %2", device().link(),
                       exc::with_error_text(exc::last_error()));
        return false;
    }
    data = answer;
    return true;
}

ElementStatusList CChangerHandle::GetElementStatus(std::uint16_t first, ELEMENT_TYPE type, bool read_volume_tag,
                                                   std::uint16_t count) {
    const deadline_t deadline(device().not_ready_timeout());
    for (;;) {
        try {
            return boost::make_shared<element_records>(ReadElements(first, type, read_volume_tag, count));
        } catch (std::exception& e) {
            // Whatever has failed, the device may only not be ready yet.
            sleep_seconds(changer_retry_pause);
            if (deadline.passed()) {
                exc::rethrow_with_trace(status_read_timed_out, ElementTypeName(type), text::to_string(std::uint32_t{first}), e);
            }
        }
    }
}

CChangerHandle::element_records CChangerHandle::ReadElements(std::uint16_t first, ELEMENT_TYPE type, bool read_volume_tag,
                                                             std::uint16_t count) {
    const auto read = [&](std::uint16_t address, std::uint16_t portion) {
        return ReadElementBlock(address, type, read_volume_tag, portion);
    };
    switch (type) {
        case ChangerDrive:
            return ReadDriveElements(first, read_volume_tag, count);
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

CChangerHandle::element_records CChangerHandle::ReadElementBlock(std::uint16_t first, ELEMENT_TYPE type, bool read_volume_tag,
                                                                 std::uint16_t count) {
    static_cast<void>(device().EnsureDeviceHandle());
    std::vector<std::uint8_t> reply(std::size_t{count} * sizeof(CHANGER_ELEMENT_STATUS_EX));
    platform::CHANGER_READ_ELEMENT_STATUS request;
    request.Element = {type, first};
    request.NumberOfElements = count;
    request.VolumeTagInfo = read_volume_tag ? 1 : 0;
    std::uint32_t returned = 0;
    if (!device().Control(ioctl::changer_get_element_status, util::record_bytes(request), reply, returned)) {
        const std::uint32_t code = exc::last_error();
        throw exc::win_sys_exc_t("DeviceIoControl(ChangerGetElementStatus) with eAddress = '%1' and number = '%2', symLink = '%3'",
                                 text::to_string(std::uint32_t{first}), text::to_string(std::uint32_t{count}), device().link(),
                                 code);
    }
    return decode_records(reply, returned, count);
}

/// One address at a time until `count` distinct drives are found: some drivers give a drive at several addresses. Only a read
/// that fails ends the walk otherwise.
CChangerHandle::element_records CChangerHandle::ReadDriveElements(std::uint16_t first, bool read_volume_tag, std::uint16_t count) {
    element_records drives;
    std::uint32_t last_address = 0;
    std::string last_serial;
    std::uint16_t address = first;
    for (bool at_first = true; drives.size() < count; at_first = false) {
        const CHANGER_ELEMENT_STATUS_EX record = ReadElementBlock(address, ChangerDrive, read_volume_tag, 1).front();
        ++address;
        const std::string serial = RecordSerial(record);
        const bool same_element = !at_first && record.Element.ElementAddress == last_address;
        if (same_element || serial == last_serial) {
            continue;
        }
        drives.push_back(record);
        last_address = record.Element.ElementAddress;
        last_serial = serial;
    }
    return drives;
}

SerialNameList CChangerHandle::GetSerialNames(const ElementStatusList& records, ELEMENT_TYPE type) {
    return SerialNamesOf(records, type, [this] { return QueryDriveSerialNames(); });
}

std::vector<std::string> CChangerHandle::QueryDriveSerialNames() {
    // The answer isn't used: what counts is that the device still gives one.
    static_cast<void>(GetParameters());
    const platform::device_handle handle = device().EnsureDeviceHandle();
    buffered_scsi_read_t read = drive_identifier_read(true);
    const bool sent = read.send(handle);
    const std::uint32_t code = exc::last_error();
    const std::string error_text = exc::with_error_text(code);
    if (!sent) {
        throw exc::win_sys_exc_t("DeviceIoControl(ScsiPassThrough) in '%1' %2", device().link(), error_text, code);
    }
    if (read.scsi_status() == check_condition) {
        g_log.LogError("Scsi error with status of drives '%1'", DecodeSense(read.sense()));
        read = drive_identifier_read(false);
        read.send(handle);
    }
    if (read.scsi_status() != 0) {
        throw exc::win_sys_exc_t("Error with status of drives in '%1' %2. Scsi status '%3'", device().link(), error_text,
                                 text::to_string(std::uint32_t{read.scsi_status()}), exc::last_error());
    }
    return ParseDriveSerialNames(read.data());
}

void CChangerHandle::MoveMediumImpl(const medium_move& move) {
    static_cast<void>(device().EnsureDeviceHandle());
    platform::CHANGER_MOVE_MEDIUM request;
    request.Transport = {ChangerTransport, 0};
    request.Source = {move.source_type, move.source};
    request.Destination = {move.destination_type, move.destination};
    std::uint32_t code = 0;
    {
        logging::log_scope_t scope(g_log, "Run changer move medium");
        std::uint32_t returned = 0;
        const bool done = device().Control(ioctl::changer_move_medium, util::record_bytes(request), {}, returned);
        code = exc::last_error();
        scope.quiet_end();
        if (done) {
            return;
        }
    }
    // A command that failed without saying why may still have been carried out.
    if (code == 0 && ArrivedAfterSilentFailure(move)) {
        return;
    }
    ThrowFailedCommand(move, code);
}
