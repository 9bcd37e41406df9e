#include "drive/tape_alerts_emulator.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "changer/tape_variables.h"
#include "platform/testing/fakes.h"
#include "support/source_folder.h"
#include "support/tape_variables_scope.h"

namespace {

using platform::testing::memory_files;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char file_path[] = "C:\\Program Files\\Tarno\\TapeAlerts.xml";

class TapeAlertsEmulator : public ::testing::Test {
protected:
    /// Alerts as "severity code first-words", enough to tell the tables apart.
    std::vector<std::string> read(const std::string& link = "\\\\.\\Tape0") {
        std::vector<std::string> found;
        for (const TapeAlert& alert : CTapeAlertsEmulator::Read(link)) {
            const std::string message(alert.message);
            found.push_back(std::to_string(alert.severity) + " " + std::to_string(alert.code) + " " +
                            message.substr(0, message.find('\n')));
        }
        return found;
    }

    void put_entries(const std::string& entries) { system.files.put(file_path, "<TapeAlerts>" + entries + "</TapeAlerts>"); }

    static std::string entry(const std::string& link, const std::string& type, const std::string& code) {
        return "<Alert deviceSymLink=\"" + link + "\" deviceType=\"" + type + "\" alertCode=\"" + code + "\" />";
    }
    static std::string drive_entry(const std::string& code) { return entry("\\\\.\\Tape0", "Drive", code); }

    /// The one line of a failed reading, and that there is no alert.
    void expect_failure(const std::string& error) {
        EXPECT_THAT(read(), IsEmpty());
        EXPECT_THAT(system.log.lines(), ElementsAre("ERR |Tape alert problem. Symlink: '\\\\.\\Tape0', error: '" + error + "'"));
    }

    platform::testing::test_system system;
    test_support::tape_variables_scope variables;
};

TEST_F(TapeAlertsEmulator, RowsStandInTheFilesOrder) {
    put_entries(drive_entry("11") + drive_entry("4") + drive_entry("11"));
    EXPECT_THAT(read(), ElementsAre("0 11 The tape in the drive is a cleaning cartridge.",
                                    "2 4 Your data is at risk:", "0 11 The tape in the drive is a cleaning cartridge."));
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

TEST_F(TapeAlertsEmulator, TheTableGoesByTheFile) {
    put_entries(entry("\\\\.\\Tape0", "Changer", "19") + entry("\\\\.\\Tape0", "cHANGER", "21") +
                entry("\\\\.\\Tape0", "DRIVE", "11"));
    EXPECT_THAT(read(), ElementsAre("1 19 Library security has been compromised.",
                                    "0 21 I: The library has been manually turned offline and is unavailable for use.",
                                    "0 11 The tape in the drive is a cleaning cartridge."));
}

TEST_F(TapeAlertsEmulator, AnotherTypeAddsNothing) {
    put_entries(entry("\\\\.\\Tape0", "Library", "4") + entry("\\\\.\\Tape0", "", "4") + entry("\\\\.\\Tape0", "Drives", "4"));
    EXPECT_THAT(read(), IsEmpty());
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

TEST_F(TapeAlertsEmulator, TheLinkNameMatchesInAnyCaseButWhole) {
    put_entries(entry("\\\\.\\TAPE0", "Drive", "1") + entry("\\\\.\\tape0", "Drive", "2") + entry("\\\\.\\Tape00", "Drive", "3") +
                entry("\\\\.\\Tape1", "Drive", "4") + entry("", "Drive", "5"));
    EXPECT_THAT(read(), ElementsAre("1 1 The tape drive is having problems reading data.",
                                    "1 2 The tape drive is having problems writing data."));
}

TEST_F(TapeAlertsEmulator, ALinkNameBeyondAsciiMatches) {
    put_entries(entry("\\\\.\\B\xC3\xA4nder", "Drive", "11"));
    EXPECT_THAT(read("\\\\.\\b\xC3\xA4NDER"), ElementsAre("0 11 The tape in the drive is a cleaning cartridge."));
}

TEST_F(TapeAlertsEmulator, ElementsHaveAnyName) {
    put_entries(
        "<x deviceSymLink='\\\\.\\Tape0' deviceType='Drive' alertCode='11'/>"
        "<TapeAlerts deviceSymLink='\\\\.\\Tape0' deviceType='Drive' alertCode='5'><inner/></TapeAlerts>");
    EXPECT_EQ(read().size(), 2u);
}

TEST_F(TapeAlertsEmulator, CodesAreDecimalAndCutToSixteenBits) {
    put_entries(drive_entry(" 11x") + drive_entry("65547") + drive_entry("61") + drive_entry("-1") + drive_entry("0"));
    EXPECT_THAT(read(), ElementsAre("0 11 The tape in the drive is a cleaning cartridge.",
                                    "0 11 The tape in the drive is a cleaning cartridge.", "0 61 Unknown tape alert.",
                                    "0 65535 Unknown tape alert.", "0 0 Unknown tape alert."));
}

TEST_F(TapeAlertsEmulator, AnEntryForAnotherDeviceNeedsNothingElse) {
    put_entries("<Alert deviceSymLink=\"\\\\.\\Tape1\" />" + drive_entry("11"));
    EXPECT_EQ(read().size(), 1u);
}

TEST_F(TapeAlertsEmulator, AMissingFileIsLogged) {
    expect_failure(std::string("Cannot load file '") + file_path + "'");
}

TEST_F(TapeAlertsEmulator, TheFileIsInTheProgramsFolder) {
    system.process.path = u"D:\\svc\\TarnoTapeSvc.exe";
    expect_failure("Cannot load file 'D:\\svc\\TapeAlerts.xml'");
}

TEST_F(TapeAlertsEmulator, AnotherRootIsAFailure) {
    system.files.put(file_path, "<Alerts />");
    expect_failure("Failed to retrieve XML element [TapeAlerts]. Element doesn't exist.");
}

TEST_F(TapeAlertsEmulator, AMissingAttributeLosesTheWholeList) {
    put_entries(drive_entry("11") + "<Alert deviceType=\"Drive\" alertCode=\"4\" />");
    expect_failure("Attribute value is not specified. Attribute: [deviceSymLink].");
    system.log.clear();
    put_entries(drive_entry("11") + "<Alert deviceSymLink=\"\\\\.\\Tape0\" alertCode=\"4\" />");
    expect_failure("Attribute value is not specified. Attribute: [deviceType].");
    system.log.clear();
    put_entries(drive_entry("11") + "<Alert deviceSymLink=\"\\\\.\\Tape0\" deviceType=\"Library\" />");
    expect_failure("Attribute value is not specified. Attribute: [alertCode].");
}

TEST_F(TapeAlertsEmulator, ACodeThatIsNoNumberIsAFailure) {
    put_entries(drive_entry("four"));
    expect_failure("Cannot convert string value to unsigned integer. Given string: [four].");
}

TEST_F(TapeAlertsEmulator, ACommentBetweenTheAlertsIsAFailure) {
    put_entries("<!-- out of order -->" + drive_entry("11"));
    expect_failure("Failed to cast XML node to element");
}

TEST_F(TapeAlertsEmulator, AFileThatIsNoXmlIsAFailure) {
    std::string deep;
    for (int level = 0; level < 100000; ++level) {
        deep += "<a>";
    }
    std::string wide = "<TapeAlerts><Alert";
    for (int number = 0; number < 5000; ++number) {
        wide += " a" + std::to_string(number) + "=''";
    }
    for (const std::string& content : {std::string(), std::string("\0\xFF\xFE", 3), std::string("<TapeAlerts><Alert"),
                                       std::string("<TapeAlerts>") + deep, wide + "/></TapeAlerts>"}) {
        system.files.put(file_path, content);
        system.log.clear();
        EXPECT_THAT(read(), IsEmpty());
        EXPECT_TRUE(system.log.has_line(
            std::string("ERR |Tape alert problem. Symlink: '\\\\.\\Tape0', error: 'Cannot load file '") + file_path + "''"));
    }
}

TEST_F(TapeAlertsEmulator, AFileThatCannotBeReadIsAFailure) {
    put_entries(drive_entry("11"));
    system.files.set_failure([](memory_files::operation what, const std::string&) {
        return what == memory_files::operation::read ? std::uint32_t{23} : std::uint32_t{0};
    });
    expect_failure(std::string("Cannot load file '") + file_path + "'");
    EXPECT_EQ(system.files.open_count(), 0u);
}

TEST_F(TapeAlertsEmulator, TheFileIsReadAnewAtEachCall) {
    put_entries(drive_entry("11"));
    EXPECT_EQ(read().size(), 1u);
    put_entries(drive_entry("11") + drive_entry("4"));
    EXPECT_EQ(read().size(), 2u);
}

TEST_F(TapeAlertsEmulator, TakesThePlaceOfTheDeviceWhenItIsOn) {
    put_entries(entry("\\\\.\\Tape0", "Changer", "20"));
    gTapeAlertsEmulator = true;
    EXPECT_EQ(WriteAlertsXml("\\\\.\\Tape0", false),
              "<alerts><alert id=\"20\" severity=\"0\" message=\"I: The library security mode has been changed.\" /></alerts>");
    EXPECT_TRUE(system.devices.requests().empty());
    gTapeAlertsEmulator = false;
    EXPECT_EQ(WriteAlertsXml("\\\\.\\Tape0", false), "<alerts />");
    EXPECT_EQ(system.devices.requests().size(), 1u);
}

TEST_F(TapeAlertsEmulator, TheExampleCanBeUsedAsItIs) {
    std::ifstream file(test_support::source_folder() / "examples" / "TapeAlerts.xml", std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    system.files.put(file_path, content.str());
    EXPECT_THAT(read("\\\\.\\Tape0"), ElementsAre("2 20 The tape drive needs cleaning:", "2 4 Your data is at risk:"));
    EXPECT_THAT(read("\\\\.\\Changer0"), ElementsAre("2 16 The library has failed because the door is open:"));
    EXPECT_THAT(read("\\\\.\\Tape1"), IsEmpty());
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

}  // namespace
