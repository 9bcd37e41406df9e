#include "drive/tape_alerts.h"

#include <algorithm>
#include <exception>
#include <string_view>

#include "changer/tape_variables.h"
#include "drive/open_drive.h"
#include "drive/tape_alerts_emulator.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/util/bytes.h"
#include "foundation/winxml/xml.h"
#include "platform/devices.h"
#include "platform/scsi_records.h"
#include "platform/system.h"

namespace {

using platform::SCSI_PASS_THROUGH;

// The pass-through block: header, sense area, data area. The data area has room for the longest page that its 16-bit length can
// claim; asked for are the 64 flags of the standards.
constexpr std::uint32_t sense_offset = 48;
constexpr std::uint8_t sense_room = 32;
constexpr std::uint32_t data_offset = sense_offset + sense_room;
constexpr std::size_t block_size = data_offset + 65536;

constexpr std::uint32_t command_timeout = 20;  // seconds

constexpr std::uint8_t log_sense_opcode = 0x4D;
constexpr std::uint8_t alert_page = 0x2E;
constexpr std::uint8_t cumulative_values = 0x40;  // page control 1, beside the page's number
constexpr std::size_t page_head = 4;
constexpr std::size_t parameter_size = 5;  // code, control byte, length byte, value
constexpr std::uint16_t asked_for = page_head + 64 * parameter_size;

/// A device that is open for as long as this lives.
class open_device_t {
public:
    explicit open_device_t(const std::string& link_name) : device_(OpenDrive(link_name)) {
        if (device_ == platform::invalid_device) {
            throw exc::win_sys_exc_t("Cannot open '%1' device", link_name, exc::last_error());
        }
    }
    ~open_device_t() { platform::system().devices->close_device(device_); }
    open_device_t(const open_device_t&) = delete;
    open_device_t& operator=(const open_device_t&) = delete;

    [[nodiscard]] platform::device_handle handle() const { return device_; }

private:
    platform::device_handle device_;
};

SCSI_PASS_THROUGH log_sense_request() {
    SCSI_PASS_THROUGH header;
    header.Length = sizeof(SCSI_PASS_THROUGH);
    header.CdbLength = 10;
    header.SenseInfoLength = sense_room;
    header.DataIn = platform::SCSI_DATA_IN;
    header.DataTransferLength = asked_for;
    header.TimeOutValue = command_timeout;
    header.DataBufferOffset = data_offset;
    header.SenseInfoOffset = sense_offset;
    header.Cdb[0] = log_sense_opcode;
    header.Cdb[2] = cumulative_values | alert_page;
    util::store_be16(header.Cdb, 7, asked_for);
    return header;
}

TapeAlertList read_device(const std::string& link_name, bool is_changer) {
    const open_device_t device(link_name);
    const SCSI_PASS_THROUGH header = log_sense_request();
    std::vector<std::uint8_t> block(block_size);
    std::ranges::copy(util::record_bytes(header), block.begin());
    const std::span<std::uint8_t> output = std::span(block).first(data_offset + asked_for);
    std::uint32_t returned = 0;
    if (!platform::system().devices->control(device.handle(), platform::ioctl::scsi_pass_through, output.first(sizeof(header)),
                                             output, returned)) {
        return {};
    }
    // A device without the page refuses it by its status, and the data area keeps its zeros, which are no page.
    return DecodeTapeAlertPage(output.subspan(data_offset), is_changer);
}

/// The message's first line goes into the alert, each further one is a step of what to do.
void write_message(const winxml::node_t& alert, std::string_view message) {
    const std::size_t first_end = std::min(message.find('\n'), message.size());
    winxml::set_attribute(alert, "message", message.substr(0, first_end));
    std::int32_t index = 1;
    for (std::size_t at = first_end; at < message.size(); ++index) {
        const std::size_t end = std::min(message.find('\n', at + 1), message.size());
        const winxml::node_t action = winxml::add_element(alert, "action");
        winxml::set_text(action, message.substr(at + 1, end - at - 1));
        winxml::set_attribute(action, "index", index);
        at = end;
    }
}

}  // namespace

TapeAlertList DecodeTapeAlertPage(std::span<const std::uint8_t> page, bool is_changer) {
    TapeAlertList alerts;
    if (util::load_u8(page, 0) != alert_page) {
        return alerts;
    }
    const std::size_t count = util::load_be16(page, 2) / parameter_size;
    for (std::size_t index = 0; index < count; ++index) {
        const std::size_t at = page_head + index * parameter_size;
        if (util::load_u8(page, at + parameter_size - 1) != 0) {
            alerts.push_back(FindTapeAlert(util::load_be16(page, at), is_changer));
        }
    }
    return alerts;
}

TapeAlertList ReadTapeAlerts(const std::string& link_name, bool is_changer) {
    try {
        return read_device(link_name, is_changer);
    } catch (const std::exception& e) {
        g_libraryLog.LogError("Tape alert problem. Symlink: '%1', error: '%2'", link_name, e.what());
        return {};
    }
}

std::string WriteAlertsXml(const std::string& link_name, bool is_changer) {
    try {
        const winxml::document_t document = winxml::create_document();
        const winxml::node_t root = winxml::add_element(winxml::document_node(document), "alerts");
        const TapeAlertList alerts =
            gTapeAlertsEmulator ? CTapeAlertsEmulator::Read(link_name) : ReadTapeAlerts(link_name, is_changer);
        for (const TapeAlert& alert : alerts) {
            const winxml::node_t node = winxml::add_element(root, "alert");
            winxml::set_attribute(node, "id", std::int32_t{alert.code});
            winxml::set_attribute(node, "severity", std::int32_t{alert.severity});
            write_message(node, alert.message);
        }
        return winxml::serialize_xml(document);
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Get tapes alerts FAILED, device symlink: %1.", link_name, e);
    }
}
