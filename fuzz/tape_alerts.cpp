// Log pages as a device may send them, and the emulator's file: any bytes give a list of alerts, and each can be shown; nobody is
// told that more is left on a tape than there is in all.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

#include "changer/tape_variables.h"
#include "drive/tape_alerts.h"
#include "foundation/winxml/xml.h"
#include "platform/device_stack/tape_capacity.h"
#include "platform/testing/fakes.h"

namespace {

constexpr std::size_t page_head = 4;
constexpr std::size_t parameter_size = 5;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// The page by itself: no more alerts than there are value bytes that aren't zero, each with the text of its table.
void check_page(std::span<const std::uint8_t> page, bool is_changer) {
    std::size_t values = 0;
    for (std::size_t at = page_head + parameter_size - 1; at < page.size(); at += parameter_size) {
        values += page[at] != 0 ? 1 : 0;
    }
    const TapeAlertList alerts = DecodeTapeAlertPage(page, is_changer);
    require(alerts.size() <= values);
    const std::span<const TapeAlert> table = TapeAlertTable(is_changer);
    for (const TapeAlert& alert : alerts) {
        const TapeAlert& row = table[alert.code < table.size() ? alert.code : 0];
        require(alert.message == row.message && alert.severity == row.severity);
    }
}

/// The pages that tell a capacity. One of them tells both numbers by themselves, the others what is used.
void check_capacity(std::span<const std::uint8_t> page) {
    constexpr std::uint8_t both_numbers_page = 0x31;
    const platform::device_stack::tape_capacity capacity = platform::device_stack::decode_capacity_page(page);
    if (capacity.remaining && (page[0] & 0x3F) != both_numbers_page) {
        require(capacity.maximum && *capacity.remaining <= *capacity.maximum);
    }
}

/// The document holds each alert once, and is well-formed.
void check_document(bool is_changer) {
    const winxml::document_t document = winxml::parse_xml(text::utf8_to_wide(WriteAlertsXml("\\\\.\\Tape0", is_changer)));
    static_cast<void>(winxml::child_elements(winxml::get_element(winxml::document_node(document), "alerts")));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static platform::testing::test_system system;
    if (size == 0) {
        return 0;
    }
    system.log.clear();
    system.devices.forget_requests();
    const bool is_changer = (data[0] & 1) != 0;
    const std::span<const std::uint8_t> bytes = std::span(data, size).subspan(1);
    gTapeAlertsEmulator = (data[0] & 2) != 0;
    if (gTapeAlertsEmulator) {
        const std::string_view file(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        system.files.put("C:\\Program Files\\Tarno\\TapeAlerts.xml", file);
    } else {
        check_page(bytes, is_changer);
        check_capacity(bytes);
        system.devices.add_device("\\\\.\\Tape0");
        system.devices.on_control([bytes](const platform::testing::device_request& request) {
            return platform::testing::answer_scsi(request, 0, {}, bytes);
        });
    }
    check_document(is_changer);
    return 0;
}
