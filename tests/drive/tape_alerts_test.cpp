#include "drive/tape_alerts.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <stdexcept>

#include "foundation/exc/exceptions.h"
#include "foundation/util/bytes.h"
#include "foundation/winxml/xml.h"
#include "platform/errors.h"
#include "platform/testing/fakes.h"
#include "support/tape_variables_scope.h"

namespace {

using bytes = std::vector<std::uint8_t>;
using platform::testing::answer_scsi;
using platform::testing::device_answer;
using platform::testing::device_request;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string drive_link = "\\\\.\\Tape0";

std::vector<std::uint16_t> codes_of(const TapeAlertList& alerts) {
    std::vector<std::uint16_t> codes;
    for (const TapeAlert& alert : alerts) {
        codes.push_back(alert.code);
    }
    return codes;
}

/// A page of the flags 1 to 64 as devices send it, these being set.
bytes alert_page(std::initializer_list<std::uint16_t> set) {
    bytes page{0x2E, 0, 0x01, 0x40};
    for (std::uint16_t code = 1; code <= 64; ++code) {
        const bool on = std::find(set.begin(), set.end(), code) != set.end();
        page.insert(page.end(), {0, static_cast<std::uint8_t>(code), 0x03, 1, static_cast<std::uint8_t>(on ? 1 : 0)});
    }
    return page;
}

/// Parameters of any code and value behind a head that claims this length.
bytes page_of(std::uint16_t length, std::initializer_list<std::pair<std::uint16_t, std::uint8_t>> parameters) {
    bytes page{0x2E, 0, 0, 0};
    util::store_be16(page, 2, length);
    for (const auto& [code, value] : parameters) {
        page.insert(page.end(), {static_cast<std::uint8_t>(code >> 8), static_cast<std::uint8_t>(code & 0xFF), 0xFF, 0xFF, value});
    }
    return page;
}

// The page.

TEST(TapeAlertPage, FlagsThatAreSetBecomeRowsInThePagesOrder) {
    EXPECT_THAT(codes_of(DecodeTapeAlertPage(alert_page({4, 20, 60}), false)), ElementsAre(4, 20, 60));
    EXPECT_THAT(codes_of(DecodeTapeAlertPage(page_of(15, {{20, 1}, {4, 0}, {3, 1}}), false)), ElementsAre(20, 3));
    EXPECT_THAT(DecodeTapeAlertPage(alert_page({}), false), IsEmpty());
}

TEST(TapeAlertPage, AnyValueOtherThanZeroIsSet) {
    EXPECT_THAT(codes_of(DecodeTapeAlertPage(page_of(10, {{1, 0x80}, {2, 0xFF}}), false)), ElementsAre(1, 2));
}

TEST(TapeAlertPage, TheCodeHasSixteenBits) {
    EXPECT_THAT(codes_of(DecodeTapeAlertPage(page_of(5, {{0x0103, 1}}), false)), ElementsAre(0x0103));
    EXPECT_STREQ(DecodeTapeAlertPage(page_of(5, {{0x0103, 1}}), false)[0].message, "Unknown tape alert.");
    EXPECT_STREQ(DecodeTapeAlertPage(page_of(5, {{0, 1}}), true)[0].message, "Unknown changer alert.");
}

TEST(TapeAlertPage, TheTableIsTheDeviceKinds) {
    EXPECT_STREQ(DecodeTapeAlertPage(alert_page({19}), true)[0].message, "Library security has been compromised.");
    EXPECT_EQ(DecodeTapeAlertPage(alert_page({19}), true)[0].severity, 1);
    EXPECT_EQ(DecodeTapeAlertPage(alert_page({19}), false)[0].severity, 0);
}

TEST(TapeAlertPage, AnotherPageHasNoAlerts) {
    bytes page = alert_page({4});
    for (const int first : {0x00, 0x2D, 0x6E, 0xAE}) {
        page[0] = static_cast<std::uint8_t>(first);
        EXPECT_THAT(DecodeTapeAlertPage(page, false), IsEmpty()) << first;
    }
}

TEST(TapeAlertPage, OnlyWholeParametersWithinTheLengthCount) {
    const auto found = [](std::uint16_t length) {
        return DecodeTapeAlertPage(page_of(length, {{1, 1}, {2, 1}, {3, 1}}), false).size();
    };
    EXPECT_EQ(found(0), 0u);
    EXPECT_EQ(found(4), 0u);
    EXPECT_EQ(found(5), 1u);
    EXPECT_EQ(found(9), 1u);
    EXPECT_EQ(found(10), 2u);
    EXPECT_EQ(found(14), 2u);
    EXPECT_EQ(found(15), 3u);
}

TEST(TapeAlertPage, ALengthBeyondTheBytesAddsNothing) {
    EXPECT_THAT(codes_of(DecodeTapeAlertPage(page_of(0xFFFF, {{1, 1}, {2, 1}}), false)), ElementsAre(1, 2));
    EXPECT_THAT(codes_of(DecodeTapeAlertPage(page_of(0x8000, {{7, 1}}), false)), ElementsAre(7));
    bytes cut = page_of(10, {{1, 1}, {2, 1}});
    cut.pop_back();
    EXPECT_THAT(codes_of(DecodeTapeAlertPage(cut, false)), ElementsAre(1));
}

TEST(TapeAlertPage, AShortAnswerIsNoPage) {
    const bytes page = alert_page({1});
    for (std::size_t size = 0; size < 9; ++size) {
        EXPECT_THAT(DecodeTapeAlertPage(std::span(page).first(size), false), IsEmpty()) << size;
    }
    EXPECT_THAT(DecodeTapeAlertPage(std::span(page).first(9), false), ::testing::SizeIs(1));
}

// The device.

class TapeAlerts : public ::testing::Test {
protected:
    TapeAlerts() { system.devices.add_device(drive_link); }

    void answer(const bytes& page, std::uint8_t status = 0) {
        system.devices.on_control([page, status](const device_request& request) { return answer_scsi(request, status, {}, page); });
    }

    static std::string xml(bool is_changer = false) { return WriteAlertsXml(drive_link, is_changer); }

    platform::testing::test_system system;
    test_support::tape_variables_scope variables;
};

TEST_F(TapeAlerts, TheRequestIsExact) {
    answer(alert_page({4}));
    EXPECT_THAT(codes_of(ReadTapeAlerts(drive_link, false)), ElementsAre(4));
    const std::vector<device_request> requests = system.devices.requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].what, device_request::kind::open);
    EXPECT_EQ(requests[0].link_name, drive_link);
    EXPECT_EQ(requests[1].what, device_request::kind::control);
    EXPECT_EQ(requests[1].code, 0x4D004u);
    EXPECT_EQ(requests[1].input, (bytes{
                                     44,   0,    0,    0, 0, 0, 10, 32,  // length, status, address, CDB length, sense length
                                     1,    0,    0,    0,                // data in
                                     0x44, 0x01, 0,    0,                // 324 bytes of data
                                     20,   0,    0,    0,                // seconds
                                     80,   0,    0,    0,                // data area
                                     48,   0,    0,    0,                // sense area
                                     0x4D, 0,    0x6E, 0, 0, 0, 0,  0x01, 0x44, 0, 0, 0, 0, 0, 0, 0,
                                 }));
    EXPECT_EQ(requests[1].output_size, 404u);
    EXPECT_EQ(requests[2].what, device_request::kind::close);
    EXPECT_EQ(system.devices.open_handles(), 0u);
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

TEST_F(TapeAlerts, ADeviceThatCannotBeOpenedHasNoneAndTheLogSaysWhy) {
    const std::string link = "\\\\.\\Tape7";
    EXPECT_THAT(ReadTapeAlerts(link, false), IsEmpty());
    EXPECT_EQ(system.log.lines()[0], "ERR |Can not open '\\\\.\\Tape7' device for 0 seconds");
    EXPECT_EQ(system.log.lines()[1],
              "ERR |Tape alert problem. Symlink: '\\\\.\\Tape7', error: '" + exc::win_error_text(platform::error::file_not_found));
    EXPECT_TRUE(system.log.has_line("Cannot open '\\\\.\\Tape7' device"));
    EXPECT_EQ(system.devices.requests().size(), 1u);
    EXPECT_TRUE(system.clock.sleeps().empty());
}

TEST_F(TapeAlerts, AnOpeningThatTakesTimeSaysHowMuch) {
    system.devices.on_open([this](const std::string&) {
        system.clock.advance(7000);
        return std::uint32_t{5};
    });
    EXPECT_THAT(ReadTapeAlerts(drive_link, true), IsEmpty());
    EXPECT_TRUE(system.log.has_line("ERR |Can not open '\\\\.\\Tape0' device for 7 seconds"));
}

TEST_F(TapeAlerts, ARefusedControlGivesNoneWithoutALine) {
    system.devices.on_control([](const device_request&) {
        device_answer refused;
        refused.error = platform::error::not_supported;
        return refused;
    });
    EXPECT_THAT(ReadTapeAlerts(drive_link, false), IsEmpty());
    EXPECT_THAT(system.log.lines(), IsEmpty());
    EXPECT_EQ(system.devices.requests(device_request::kind::control).size(), 1u);
    EXPECT_EQ(system.devices.open_handles(), 0u);
}

TEST_F(TapeAlerts, AnotherPageGivesNoneWithoutALine) {
    bytes page = alert_page({4});
    page[0] = 0x0C;
    answer(page);
    EXPECT_THAT(ReadTapeAlerts(drive_link, false), IsEmpty());
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

TEST_F(TapeAlerts, TheStatusIsNotLookedAt) {
    answer(alert_page({4}), 0x02);
    EXPECT_THAT(codes_of(ReadTapeAlerts(drive_link, false)), ElementsAre(4));
    answer({}, 0x02);
    EXPECT_THAT(ReadTapeAlerts(drive_link, false), IsEmpty());
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

TEST_F(TapeAlerts, APageLongerThanTheAnswerIsReadAsFarAsItCame) {
    bytes page = alert_page({1, 64});
    util::store_be16(page, 2, 0xFFFF);
    page.resize(70000, 1);
    answer(page);
    EXPECT_THAT(codes_of(ReadTapeAlerts(drive_link, false)), ElementsAre(1, 64));
    answer(bytes(page.begin(), page.begin() + 9));
    EXPECT_THAT(codes_of(ReadTapeAlerts(drive_link, false)), ElementsAre(1));
}

TEST_F(TapeAlerts, WhateverIsThrownMeanwhileIsNoAlertAndClosesTheDevice) {
    system.devices.on_control([](const device_request&) -> device_answer { throw std::runtime_error("torn cable"); });
    EXPECT_THAT(ReadTapeAlerts(drive_link, false), IsEmpty());
    EXPECT_THAT(system.log.lines(), ElementsAre("ERR |Tape alert problem. Symlink: '\\\\.\\Tape0', error: 'torn cable'"));
    EXPECT_EQ(system.devices.open_handles(), 0u);
}

// The document.

TEST_F(TapeAlerts, WithoutAFlagTheDocumentIsEmpty) {
    answer(alert_page({}));
    EXPECT_EQ(xml(), "<alerts />");
}

TEST_F(TapeAlerts, AnUnknownFlagIsToldByItsNumber) {
    answer(alert_page({64}));
    EXPECT_EQ(xml(), "<alerts><alert id=\"64\" severity=\"0\" message=\"Unknown tape alert.\" /></alerts>");
    EXPECT_EQ(xml(true), "<alerts><alert id=\"64\" severity=\"0\" message=\"Unknown changer alert.\" /></alerts>");
}

TEST_F(TapeAlerts, AMessageOfOneLineHasNoActions) {
    answer(alert_page({11}));
    EXPECT_EQ(xml(),
              "<alerts><alert id=\"11\" severity=\"0\" message=\"The tape in the drive is a cleaning cartridge.\" /></alerts>");
}

TEST_F(TapeAlerts, StepsAreActionsCountedFromOne) {
    answer(alert_page({4, 24}));
    EXPECT_EQ(xml(),
              "<alerts>"
              "<alert id=\"4\" severity=\"2\" message=\"Your data is at risk:\">"
              "<action index=\"1\">Copy any data you require from this tape.</action>"
              "<action index=\"2\">Do not use this tape again.</action>"
              "<action index=\"3\">Restart the operation with a different tape.</action>"
              "</alert>"
              "<alert id=\"24\" severity=\"1\" message=\"The tape drive has requested a retention operation\" />"
              "</alerts>");
}

TEST_F(TapeAlerts, LargeCodesAreShownWithoutSign) {
    answer(page_of(5, {{0xFFFF, 1}}));
    EXPECT_EQ(xml(), "<alerts><alert id=\"65535\" severity=\"0\" message=\"Unknown tape alert.\" /></alerts>");
}

TEST_F(TapeAlerts, EveryRowOfBothTablesSurvivesTheDocument) {
    for (const bool is_changer : {false, true}) {
        for (const TapeAlert& row : TapeAlertTable(is_changer)) {
            answer(page_of(5, {{row.code, 1}}));
            const winxml::document_t document = winxml::parse_xml(text::utf8_to_wide(xml(is_changer)));
            const winxml::node_t root = winxml::get_element(winxml::document_node(document), "alerts");
            const winxml::node_t alert = winxml::get_element(root, "alert");
            const auto steps = std::string_view(row.message);
            EXPECT_EQ(winxml::get_attribute(alert, "message"), steps.substr(0, steps.find('\n')));
            EXPECT_EQ(winxml::child_elements(alert).size(), static_cast<std::size_t>(std::count(steps.begin(), steps.end(), '\n')));
        }
    }
}

TEST_F(TapeAlerts, ADeviceFaultIsAnEmptyDocument) {
    EXPECT_EQ(WriteAlertsXml("\\\\.\\Tape7", false), "<alerts />");
    EXPECT_EQ(WriteAlertsXml("", true), "<alerts />");
}

/// A log that has no memory left for one kind of line.
class line_without_memory final : public logging::log_transform_t {
public:
    std::string transform(const std::string& line) override {
        if (line.find("Tape alert problem") != std::string::npos) {
            throw std::runtime_error("no room for the line");
        }
        return line;
    }
};

TEST_F(TapeAlerts, AFailureThatIsNotTheDevicesNamesTheDevice) {
    logging::log_t::process_log()->set_transform(boost::make_shared<line_without_memory>());
    try {
        static_cast<void>(WriteAlertsXml("\\\\.\\Tape7", false));
        ADD_FAILURE() << "nothing thrown";
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ(e.what(), "no room for the line\n--tr:Get tapes alerts FAILED, device symlink: \\\\.\\Tape7.");
    }
    logging::log_t::process_log()->set_transform({});
}

}  // namespace
