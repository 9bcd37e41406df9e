#include "changer/unit_identity.h"

#include <algorithm>
#include <exception>

#include "changer/buffered_scsi_read.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"
#include "platform/errors.h"
#include "platform/scsi_records.h"
#include "platform/system.h"

namespace {

constexpr std::uint8_t operation_inquiry = 0x12;
constexpr std::uint8_t inquiry_allocation = 128;
constexpr std::uint32_t inquiry_transfer_length = 15535;
constexpr std::uint8_t page_unit_serial = 0x80;

// Of the unit serial number page: where its text starts, where the answer ends, and how much of a text that fills it counts.
constexpr std::size_t page_text = 4;
constexpr std::size_t page_end = 128;
constexpr std::size_t unterminated_length = 12;

constexpr std::size_t property_room = 8192;

std::u16string widened(const std::string& text) {
    return text::utf8_to_wide_lenient(text.c_str());
}

std::u16string read_unit_serial(platform::device_handle device, const std::string& link_name) {
    const std::vector<std::uint8_t> page = SendInquiry(device, page_unit_serial, true, link_name);
    std::size_t end = page_text;
    while (end < page_end && util::load_u8(page, end) != 0) {
        ++end;
    }
    return widened(util::to_text(util::slice(page, page_text, end < page_end ? end - page_text : unterminated_length)));
}

/// The device identifiers as `STORAGE_DEVICE_ID_DESCRIPTOR` gives them, as long as they came.
std::vector<std::uint8_t> query_device_identifiers(platform::device_handle device, const std::string& link_name) {
    platform::STORAGE_PROPERTY_QUERY query;
    query.PropertyId = platform::StorageDeviceIdProperty;
    std::vector<std::uint8_t> reply(property_room);
    std::uint32_t returned = 0;
    const auto ask = [&] {
        return platform::system().devices->control(device, platform::ioctl::storage_query_property, util::record_bytes(query),
                                                   reply, returned);
    };
    if (!ask() && (exc::last_error() != platform::error::media_changed || !ask())) {
        throw exc::runtime_exc_t("DeviceIoControl(StorageQueryProperty) in '%1'", link_name);
    }
    reply.resize(std::min<std::size_t>(returned, reply.size()));
    return reply;
}

std::u16string read_property_serial(platform::device_handle device, const std::string& link_name) {
    const std::vector<std::uint8_t> reply = query_device_identifiers(device, link_name);
    const auto head = util::load_record<platform::STORAGE_DEVICE_ID_DESCRIPTOR>(reply);
    std::size_t at = sizeof(head);
    for (std::uint32_t number = 0; number < head.NumberOfIdentifiers && at < reply.size(); ++number) {
        const auto rest = util::slice(reply, at, reply.size());
        const auto identifier = util::load_record<platform::STORAGE_IDENTIFIER>(rest);
        if (identifier.Type == platform::StorageIdTypeVendorId) {
            return widened(LastWordWithBlanks(util::to_text(util::slice(rest, sizeof(identifier), identifier.IdentifierSize))));
        }
        if (identifier.NextOffset == 0) {
            break;
        }
        at += identifier.NextOffset;
    }
    return {};
}

}  // namespace

std::vector<std::uint8_t> SendInquiry(platform::device_handle device, std::uint8_t page, bool vital_product_data,
                                      const std::string& link_name) {
    buffered_scsi_read_t inquiry({operation_inquiry, std::uint8_t{vital_product_data}, page, 0, inquiry_allocation, 0},
                                 inquiry_transfer_length);
    if (!inquiry.send(device)) {
        const std::uint32_t code = exc::last_error();
        throw exc::win_sys_exc_t("DeviceIoControl(ScsiPassThrough) in '%1' %2", link_name, exc::with_error_text(code), code);
    }
    const auto received = inquiry.returned_data();
    return {received.begin(), received.end()};
}

std::u16string ReadUnitSerialPage(platform::device_handle device, const std::string& link_name) {
    try {
        return read_unit_serial(device, link_name);
    } catch (const std::exception& e) {
        g_log.LogError("Failed to get unit [%1] serial number.", link_name, e);
        return {};
    }
}

std::u16string ReadStoragePropertySerial(platform::device_handle device, const std::string& link_name) {
    try {
        return read_property_serial(device, link_name);
    } catch (const std::exception& e) {
        g_log.LogError("Failed to get device [%1] serial number.", link_name, e);
        return {};
    }
}

std::string LastWord(const std::string& text) {
    const std::string stripped = util::without_trailing_blanks(text);
    // Without a blank rfind gives npos, which the addition turns into the start of the text.
    return stripped.substr(stripped.rfind(' ') + 1);
}

std::string LastWordWithBlanks(const std::string& identification) {
    return LastWord(identification) + identification.substr(util::without_trailing_blanks(identification).size());
}
