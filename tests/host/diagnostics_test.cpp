#include "host/diagnostics.h"

#include "foundation/exc/exceptions.h"
#include "host/diagnostic_files.h"
#include "host/diagnostics_fixture.h"
#include "host/entry.h"
#include "platform/tape_records.h"

namespace {

using host_tests::DiagnosticsFixture;
using host_tests::faulty_devices;
using strings = std::vector<std::string>;

constexpr char one_changer[] = "Find changers:\n\\\\.\\Changer0\n";
constexpr char no_changer[] = "There is no changer that this action could work on.";

class Diagnostics : public DiagnosticsFixture {};

TEST_F(Diagnostics, WithoutASwitchNothingRuns) {
    plug_in({{}});
    EXPECT_EQ(run({}), "");
    EXPECT_FALSE(found_);
    run({u"-log", u"x", u"-logtest", u"dump"});
    EXPECT_FALSE(found_);
    EXPECT_EQ(files(), strings{});
}

TEST_F(Diagnostics, ASwitchIsKnownWithoutBeingRun) {
    EXPECT_TRUE(HasDiagnosticAction({u"S.exe", u"-log", u"x", u"-QuickDump"}));
    EXPECT_FALSE(HasDiagnosticAction({u"S.exe", u"-debug", u"-logtest", u"dump"}));
    EXPECT_FALSE(HasDiagnosticAction({}));
    EXPECT_EQ(files(), strings{});
}

TEST_F(Diagnostics, TheFirstSwitchOfTheTableRunsAlone) {
    plug_in({{}});
    run({u"-slots", u"-quickdump", u"-dump"});
    EXPECT_TRUE(found_);
    EXPECT_EQ(files(), strings{"dumpinformation.xml"});
    EXPECT_NE(file("dumpinformation.xml").find("IEPortsStatuses"), std::string::npos);
    run({u"-dump", u"-ieport", u"-changers"});
    EXPECT_EQ(files(), (strings{"dumpinformation.xml", "ieportsstatuses.xml"}));
}

TEST_F(Diagnostics, CaseAndPlaceOfASwitchDontCount) {
    plug_in({{}});
    run({u"-log", u"-SLOTS"});
    EXPECT_TRUE(found_);
    EXPECT_EQ(files(), strings{"changer0.xml"});
}

// Moves.

TEST_F(Diagnostics, MoveAloneEmptiesDriveOneIntoSlotThree) {
    plug_in({{.cartridges = 2}});
    move("LoadMedium", "0", "DriveNum", "1");
    system_.log.clear();
    EXPECT_EQ(run({u"-move"}), one_changer);
    EXPECT_TRUE(found_);
    EXPECT_EQ(barcode_at(ChangerSlot, 3), "TRN001L8");
    EXPECT_EQ(barcode_at(ChangerDrive, 1), "");
    EXPECT_EQ(errors_, "");
    EXPECT_EQ(system_.log.lines().front(), "tap| Move tape");
    EXPECT_FALSE(system_.log.has_line("Problem with"));
    EXPECT_EQ(files(), strings{});
}

TEST_F(Diagnostics, UnloadAloneEmptiesDriveZeroIntoSlotZero) {
    plug_in({{.cartridges = 2}});
    move("LoadMedium", "0", "DriveNum", "0");
    system_.log.clear();
    EXPECT_EQ(run({u"-unload"}), one_changer);
    EXPECT_EQ(barcode_at(ChangerSlot, 0), "TRN001L8");
    EXPECT_EQ(system_.log.lines().front(), "tap| Move tape");
}

TEST_F(Diagnostics, LoadAloneLoadsSlotZeroIntoDriveZero) {
    plug_in({{}});
    EXPECT_EQ(run({u"-load"}), one_changer);
    EXPECT_EQ(barcode_at(ChangerDrive, 0), "TRN001L8");
    EXPECT_EQ(system_.log.lines().front(), "tap| Move tape. Load slot 0 to drive 0");
}

TEST_F(Diagnostics, TheNumbersHaveTheirOwnPlaces) {
    plug_in({{}});
    run({u"-load", u"4", u"1", u"-settings"});
    EXPECT_EQ(barcode_at(ChangerDrive, 1), "TRN005L8");
    EXPECT_EQ(system_.log.lines().front(), "tap| Move tape. Load slot 4 to drive 1");
    run({u"-verbose", u"1", u"21", u"-move"});
    EXPECT_EQ(barcode_at(ChangerSlot, 21), "TRN005L8");
}

TEST_F(Diagnostics, ANumberThatIsMissingIsZero) {
    plug_in({{}});
    run({u"-load", u"4"});
    EXPECT_EQ(barcode_at(ChangerDrive, 0), "TRN005L8");
    EXPECT_EQ(system_.log.lines().front(), "tap| Move tape. Load slot 4 to drive 0");
}

TEST_F(Diagnostics, AWordThatIsNoNumberFails) {
    plug_in({{}});
    EXPECT_EQ(failure_of({u"-verbose", u"-load"}), "Cannot convert string value to signed integer. Given string: [-load].");
    EXPECT_EQ(barcode_at(ChangerDrive, 0), "");
}

TEST_F(Diagnostics, TheRobotIsTriedThoughTheDriveCannotBeOpened) {
    plug_in({{.cartridges = 2}});
    move("LoadMedium", "0", "DriveNum", "1");
    strings opened;
    make_faulty().on_open = [&](const std::string& link) {
        opened.push_back(link);
        return link == "\\\\.\\Tape1" ? platform::error::access_denied : platform::error::success;
    };
    system_.log.clear();
    EXPECT_EQ(run({u"-move"}), one_changer);
    EXPECT_EQ(opened.at(opened.size() - 2), "\\\\.\\Tape1");
    EXPECT_EQ(opened.back(), "\\\\.\\Changer0");
    EXPECT_TRUE(system_.log.has_line("ERR |Problem with Access is denied."));
    EXPECT_TRUE(errors_.starts_with("TarnoTapeSvc: Problem with \\\\.\\Tape1\nAccess is denied.\n")) << errors_;
    EXPECT_EQ(barcode_at(ChangerSlot, 3), "TRN001L8");
}

TEST_F(Diagnostics, ImportTakesATapeOutOfThePort) {
    plug_in({{.cartridges = 2}});
    move("FromSlotToIEPort", "0", "IEPortNum", "1");
    system_.log.clear();
    EXPECT_EQ(run({u"-import", u"1", u"7"}), one_changer);
    EXPECT_EQ(barcode_at(ChangerSlot, 7), "TRN001L8");
    EXPECT_EQ(system_.log.lines().front(), "tap| Import tape");
    move("FromSlotToIEPort", "7", "IEPortNum", "0");
    run({u"-import"});
    EXPECT_EQ(barcode_at(ChangerSlot, 0), "TRN001L8");
}

TEST_F(Diagnostics, AnImportThatFailsIsLogged) {
    plug_in({{.cartridges = 2}});
    EXPECT_EQ(run({u"-import"}), one_changer);
    EXPECT_TRUE(found_);
    EXPECT_EQ(count_of("tap| ERR |Failed to import tape"), 1u);
    EXPECT_TRUE(system_.log.has_line("IEPort '0' is empty"));
    EXPECT_TRUE(errors_.starts_with("TarnoTapeSvc: Failed to import tape\n")) << errors_;
    EXPECT_NE(errors_.find("IEPort '0' is empty"), std::string::npos);
}

TEST_F(Diagnostics, AMoveThatFailsLeavesAsItIs) {
    plug_in({{.cartridges = 0}});
    EXPECT_NE(failure_of({u"-load"}).find("Unable to move tape from ChangerSlot #0"), std::string::npos);
}

TEST_F(Diagnostics, WithoutAChangerTheFirstOneIsMissed) {
    plug_in({});
    for (const char16_t* name : {u"-ieport", u"-move", u"-unload", u"-load", u"-changers"}) {
        EXPECT_EQ(failure_of({name}), no_changer);
    }
    EXPECT_EQ(run({u"-import"}), "Find changers:\n");
    EXPECT_EQ(count_of("tap| ERR |Failed to import tape"), 1u);
    EXPECT_TRUE(system_.log.has_line(no_changer));
    EXPECT_EQ(files(), strings{});
}

TEST_F(Diagnostics, WithoutAChangerThereAreNoLists) {
    plug_in({});
    run({u"-drivestat"});
    EXPECT_TRUE(found_);
    run({u"-slots"});
    EXPECT_TRUE(found_);
    EXPECT_EQ(files(), strings{});
}

TEST_F(Diagnostics, AFailureEndsTheProgramAsASuccessDoes) {
    plug_in({{.cartridges = 0}});
    system_.process.arguments = {u"S.exe", u"-load"};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunTapeServer({}), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), one_changer);
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(errors.starts_with("TarnoTapeSvc: The diagnostic action has failed.\n")) << errors;
    EXPECT_NE(errors.find("Unable to move tape from ChangerSlot #0"), std::string::npos);
}

TEST_F(Diagnostics, ASuccessEndsTheProgram) {
    plug_in({{}});
    system_.process.arguments = {u"S.exe", u"-log", u"C:\\T\\run.log", u"-ieport"};
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunTapeServer({}), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(file("ieportsstatuses.xml"), "(none)");
    EXPECT_TRUE(system_.rpc_runtime.calls().empty());
}

// Lists.

TEST_F(Diagnostics, PortsOfTheFirstChanger) {
    plug_in({{.serial = "ONE", .drive_serial = "A"}, {.serial = "TWO", .drive_serial = "B"}});
    const std::string expected = record("GetIEPortsStatuses", "IEPortsStatuses");
    system_.log.clear();
    EXPECT_EQ(run({u"-ieport"}), "");
    EXPECT_EQ(system_.log.lines().front(), "tap| Record IEPortsStatuses");
    EXPECT_EQ(files(), strings{"ieportsstatuses.xml"});
    EXPECT_EQ(file("ieportsstatuses.xml"), expected);
}

TEST_F(Diagnostics, DriveStatusesOfTwoChangersAreTwoFiles) {
    plug_in({{.serial = "ONE", .drive_serial = "A"}, {.drives = 3, .serial = "TWO", .drive_serial = "B"}});
    const std::string first = record("GetDrivesStatuses", "DrivesStatuses");
    const std::string second = record("GetDrivesStatuses", "DrivesStatuses", "\\\\.\\Changer1");
    system_.log.clear();
    EXPECT_EQ(run({u"-drivestat"}), "");
    EXPECT_EQ(system_.log.lines().front(), "tap| Record DrivesStatuses");
    EXPECT_EQ(files(), (strings{"drivestatuses0.xml", "drivestatuses1.xml"}));
    EXPECT_EQ(file("drivestatuses0.xml"), first);
    EXPECT_EQ(file("drivestatuses1.xml"), second);
}

TEST_F(Diagnostics, SlotsOfTwoChangersAreTwoFiles) {
    plug_in({{.serial = "ONE", .drive_serial = "A"}, {.slots = 3, .cartridges = 1, .serial = "TWO", .drive_serial = "B"}});
    const std::string first = record("GetSlotsStatuses", "SlotsStatuses");
    const std::string second = record("GetSlotsStatuses", "SlotsStatuses", "\\\\.\\Changer1");
    system_.log.clear();
    EXPECT_EQ(run({u"-slots"}), "");
    EXPECT_EQ(system_.log.lines().front(), "tap| Record SlotsStatuses");
    EXPECT_EQ(files(), (strings{"changer0.xml", "changer1.xml"}));
    EXPECT_EQ(file("changer0.xml"), first);
    EXPECT_EQ(file("changer1.xml"), second);
}

TEST_F(Diagnostics, AListThatFailsLeavesTheFilesBeforeIt) {
    plug_in({{.serial = "ONE", .drive_serial = "A"}, {.serial = "TWO", .drive_serial = "B"}});
    make_faulty().on_control = [](const std::string& link, std::uint32_t code, std::span<const std::uint8_t>) {
        return link == "\\\\.\\Changer1" && code == platform::ioctl::changer_get_element_status ? platform::error::io_device
                                                                                                : platform::error::success;
    };
    EXPECT_NE(failure_of({u"-slots"}), "(none)");
    EXPECT_EQ(files(), strings{"changer0.xml"});
}

// Drives.

TEST_F(Diagnostics, BlockSizesOfEveryDrive) {
    plug_in({{}});
    EXPECT_EQ(run({u"-driveparameters"}), "");
    EXPECT_EQ(files(), strings{"drivesInformation.xml"});
    const std::string drive =
        "<DriveInfo driveName=\"TARNO VIRTUAL-LTO8\" DefaultBlockSize=\"0\" MinimumBlockSize=\"1\" MaximumBlockSize=\"8388608\" />";
    EXPECT_EQ(file("drivesInformation.xml"), "<DrivesInfo>" + drive + drive + "</DrivesInfo>");
}

TEST_F(Diagnostics, WithoutDrivesThereAreNoBlockSizes) {
    plug_in({});
    EXPECT_EQ(run({u"-driveparameters"}), "");
    EXPECT_EQ(file("drivesInformation.xml"), "<DrivesInfo />");
}

TEST_F(Diagnostics, ADriveThatFailsLeavesTheFormerBlockSizes) {
    plug_in({{}});
    make_faulty().on_open = [](const std::string& link) {
        return link == "\\\\.\\Tape1" ? platform::error::device_not_connected : platform::error::success;
    };
    system_.files.put("./drivesInformation.xml", "former");
    EXPECT_NE(failure_of({u"-driveparameters"}).find("Problem with CreateFile in '\\\\.\\Tape1'"), std::string::npos);
    EXPECT_EQ(files(), strings{"drivesInformation.xml"});
    EXPECT_EQ(file("drivesInformation.xml"), "former");
}

TEST_F(Diagnostics, TheMediumIsThatOfTheFirstDrive) {
    plug_in({{}});
    move("LoadMedium", "0", "DriveNum", "0");
    owner_call("PrepareTape", "<SymLinkName value=\"\\\\.\\Tape0\" /><OperationNum value=\"0\" />");
    const std::string expected = record("GetMediaInfo", "MediaInfo", "\\\\.\\Tape0");
    system_.log.clear();
    EXPECT_EQ(run({u"-mediumparameters"}), "");
    EXPECT_EQ(system_.log.lines().front(), "tap| Getting media info");
    EXPECT_EQ(files(), strings{"driveStatus.xml"});
    EXPECT_EQ(file("driveStatus.xml"), expected);
    EXPECT_TRUE(expected.starts_with("<MediaInfo Capacity=\"")) << expected;
    EXPECT_NE(expected.find("<UsageStatistic><IsValid>"), std::string::npos) << expected;
}

TEST_F(Diagnostics, WithoutAMediumTheFailureLeaves) {
    plug_in({{}});
    EXPECT_NE(failure_of({u"-mediumparameters"}).find("No media in drive in '\\\\.\\Tape0'"), std::string::npos);
    EXPECT_EQ(files(), strings{});
}

// Files.

TEST_F(Diagnostics, AFileTakesThePlaceOfALongerOne) {
    plug_in({});
    system_.files.put("./drivesInformation.xml", std::string(1000, 'x'));
    run({u"-driveparameters"});
    EXPECT_EQ(file("drivesInformation.xml"), "<DrivesInfo />");
    system_.files.lose_power();
    EXPECT_EQ(file("drivesInformation.xml"), "<DrivesInfo />");
}

TEST_F(Diagnostics, AFileThatFindsNoRoomLeavesTheFormerOne) {
    system_.files.put("./a.xml", "former");
    system_.files.set_free_bytes(3);
    EXPECT_THROW(diagnostics::SaveText(u"./a.xml", "present"), exc::win_sys_exc_t);
    EXPECT_EQ(files(), strings{"a.xml"});
    EXPECT_EQ(file("a.xml"), "former");
    system_.files.set_free_bytes({});
    diagnostics::SaveText(u"./a.xml", "present");
    EXPECT_EQ(file("a.xml"), "present");
    EXPECT_EQ(system_.files.open_count(), 0u);
}

TEST_F(Diagnostics, AFileThatCannotBeReplacedIsAFailure) {
    system_.files.put("./a.xml", "former");
    system_.files.set_failure([](platform::testing::memory_files::operation what, const std::string&) {
        return what == platform::testing::memory_files::operation::replace ? platform::error::access_denied
                                                                           : platform::error::success;
    });
    try {
        diagnostics::SaveText(u"./a.xml", "present");
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.code(), platform::error::access_denied);
        EXPECT_NE(std::string(e.what()).find("Failed to create or open file [./a.xml]."), std::string::npos);
    }
    EXPECT_EQ(files(), strings{"a.xml"});
    EXPECT_EQ(file("a.xml"), "former");
}

}  // namespace
