#include <gtest/gtest.h>

#include "support/library_fixture.h"

namespace {

using test_support::call_answer;

/// The alert procedures down to the flags of a library's own units: no part between is scripted.
class AlertsOverLibrary : public test_support::LibraryFixture {
protected:
    AlertsOverLibrary() { plug_in({{}}); }

    /// Raises flags at the next command of a unit: 0 is the changer, the drives follow.
    void raise(int unit, std::initializer_list<int> flags) {
        std::string faults = "<faults>";
        for (const int flag : flags) {
            faults += "<fault kind=\"alert\" unit=\"" + std::to_string(unit) + "\" flag=\"" + std::to_string(flag) + "\" />";
        }
        system_.files.put("C:\\library0\\faults.xml", faults + "</faults>");
    }

    /// Codes and messages of the reply, "CODE: MESSAGE".
    std::vector<std::string> alerts(const std::string& procedure, const std::string& link) {
        const call_answer answer = owner_call(procedure, "<SymLinkName value=\"" + link + "\" />");
        EXPECT_TRUE(answer.success) << answer.error;
        const winxml::document_t output = winxml::parse_xml(text::utf8_to_wide(answer.output.value_or("")));
        const winxml::node_t value =
            winxml::get_element(winxml::get_element(winxml::document_node(output), "OutputArguments"), "Alerts");
        const winxml::document_t record = winxml::parse_xml(text::utf8_to_wide(winxml::get_attribute(value, "value")));
        std::vector<std::string> found;
        for (const winxml::node_t& alert : winxml::child_elements(winxml::get_element(winxml::document_node(record), "alerts"))) {
            found.push_back(winxml::get_attribute(alert, "id") + ": " + winxml::get_attribute(alert, "message"));
        }
        return found;
    }
};

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(AlertsOverLibrary, HealthyDevicesHaveNone) {
    EXPECT_THAT(alerts("GetChangerAlerts", "\\\\.\\Changer0"), IsEmpty());
    EXPECT_THAT(alerts("GetDriveAlerts", "\\\\.\\Tape0"), IsEmpty());
    for (const std::string& line : system_.log.lines()) {
        EXPECT_EQ(line.find("ERR |"), std::string::npos) << line;
    }
}

TEST_F(AlertsOverLibrary, AChangerTellsItsFlagsAndTellsThemOnce) {
    raise(0, {16, 32});
    EXPECT_THAT(alerts("GetChangerAlerts", "\\\\.\\Changer0"),
                ElementsAre("16: The library has failed because the door is open:",
                            "32: The library was unable to read the bar code on a cartridge."));
    EXPECT_THAT(alerts("GetChangerAlerts", "\\\\.\\Changer0"), IsEmpty());
}

TEST_F(AlertsOverLibrary, ADriveTellsItsFlagsDownToTheLast) {
    raise(2, {1, 20, 64});
    EXPECT_THAT(alerts("GetDriveAlerts", "\\\\.\\Tape1"),
                ElementsAre("1: The tape drive is having problems reading data.",
                            "20: The tape drive needs cleaning:", "64: Unknown tape alert."));
    EXPECT_THAT(alerts("GetDriveAlerts", "\\\\.\\Tape0"), IsEmpty());
}

TEST_F(AlertsOverLibrary, ADeviceThatRefusesThePageHasNone) {
    system_.files.put("C:\\library0\\faults.xml",
                      "<faults><fault kind=\"sense\" opcodes=\"0x4D\" times=\"0\" key=\"5\" asc=\"0x20\" ascq=\"0\"/></faults>");
    EXPECT_THAT(alerts("GetDriveAlerts", "\\\\.\\Tape0"), IsEmpty());
    EXPECT_TRUE(system_.log.has_line("tap| Get drive alerts ok."));
}

}  // namespace
