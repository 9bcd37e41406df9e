#include <gtest/gtest.h>

#include <thread>

#include "support/devices_in_front.h"
#include "support/drive_fixture.h"
#include "support/library_fixture.h"

namespace {

using test_support::call_answer;
using test_support::DriveFixture;
using test_support::LibraryFixture;
using test_support::tape_link;

namespace ioctl = platform::ioctl;
using platform::testing::tape_request;

/// The record of a healthy drive of the fixture.
std::string drive_record(unsigned number) {
    const std::string digits = std::to_string(number);
    return "<Drive SerialNumber=\"TRNDRV" + std::to_string(1000 + number).substr(1) + "\" DeviceName=\"Tape" + digits +
           "\" Name=\"TARNO LTO-8 Drive\" SymbolicLink=\"\\\\.\\Tape" + digits + "\"><Address Lun=\"0\" TargetId=\"" + digits +
           "\" PathId=\"0\" PortNumber=\"2\" /><BlockSizes DefaultBlockSize=\"65536\" MinimumBlockSize=\"1\" "
           "MaximumBlockSize=\"8388608\" /></Drive>";
}

class GetDrives : public DriveFixture {
protected:
    std::string drives(const std::string& arguments = "") { return output_value(owner_call("GetDrives", arguments), "Drives"); }
};

TEST_F(GetDrives, WithoutDrivesTheListIsEmpty) {
    EXPECT_EQ(owner_call("GetDrives").output, "<OutputArguments><Drives value=\"&lt;Drives /&gt;\" /></OutputArguments>");
    EXPECT_TRUE(system_.log.has_line("tap| Getting drives"));
    EXPECT_TRUE(system_.log.has_line("tap| Getting drives ok."));
}

TEST_F(GetDrives, TellsOfEachDriveInTheOrderOfDiscovery) {
    plug_in_drives(2);
    EXPECT_EQ(drives(), "<Drives>" + drive_record(0) + drive_record(1) + "</Drives>");
    EXPECT_EQ(system_.devices.open_handles(), 0u);
    EXPECT_TRUE(log_lines_with("New mutex").empty());
    EXPECT_TRUE(system_.clock.sleeps().empty());
}

TEST_F(GetDrives, ThePostfixGoesBehindTheSerialNumber) {
    plug_in_drives(1);
    gDeviceSerialPostfix = u"-X";
    EXPECT_NE(drives().find("<Drive SerialNumber=\"TRNDRV000-X\" DeviceName=\"Tape0\""), std::string::npos);
}

TEST_F(GetDrives, LeavesTheLockedLinksAlone) {
    plug_in_drives(4);
    EXPECT_EQ(drives("<LockedSymLinkNames value=\"\\\\.\\Tape1;\\\\.\\Tape2\" />"),
              "<Drives>" + drive_record(0) + drive_record(3) + "</Drives>");
    for (const auto& request : system_.devices.requests()) {
        EXPECT_NE(request.link_name, tape_link(1));
        EXPECT_NE(request.link_name, tape_link(2));
    }
    EXPECT_TRUE(log_lines_with("Tape1").size() == 1u);  // the call's own line
    EXPECT_TRUE(log_lines_with("WARN").empty());
}

TEST_F(GetDrives, AListOfAllLeavesNone) {
    plug_in_drives(2);
    EXPECT_EQ(drives("<LockedSymLinkNames value=\"\\\\.\\Tape0;\\\\.\\Tape1\" />"), "<Drives />");
    EXPECT_TRUE(system_.devices.requests().empty());
}

TEST_F(GetDrives, LockedLinksAreComparedExactly) {
    plug_in_drives(1);
    const std::string all = "<Drives>" + drive_record(0) + "</Drives>";
    for (const char* names :
         {"", ";", "\\\\.\\tape0", "\\\\.\\Tape", " \\\\.\\Tape0", "\\\\.\\Tape00", "\\\\.\\Tape0,\\\\.\\Tape1"}) {
        EXPECT_EQ(drives("<LockedSymLinkNames value=\"" + std::string(names) + "\" />"), all) << names;
    }
    for (const char* names : {";\\\\.\\Tape0", "\\\\.\\Tape0;", "x;;\\\\.\\Tape0;y"}) {
        EXPECT_EQ(drives("<LockedSymLinkNames value=\"" + std::string(names) + "\" />"), "<Drives />") << names;
    }
}

TEST_F(GetDrives, ALockedListWithoutItsValueFailsTheCall) {
    plug_in_drives(1);
    EXPECT_EQ(owner_call("GetDrives", "<LockedSymLinkNames />").error,
              "Attribute value is not specified. Attribute: [value].\n--tr:Failed to retrieve value of the multibyte attribute "
              "'LockedSymLinkNames'.");
    EXPECT_TRUE(system_.log.has_line("tap| Getting drives Failed."));
    EXPECT_TRUE(system_.devices.requests().empty());
}

TEST_F(GetDrives, ADriveThatCannotBeOpenedIsLeftOutWithAWarning) {
    plug_in_drives(3);
    system_.devices.on_open([](const std::string& link) { return link == tape_link(1) ? 5u : 0u; });
    EXPECT_EQ(drives(), "<Drives>" + drive_record(0) + drive_record(2) + "</Drives>");
    EXPECT_EQ(log_lines_with("WARN|"),
              (std::vector<std::string>{"tap| WARN|Cannot gather information on drive \\\\.\\Tape1. Access is denied."}));
    EXPECT_EQ(log_lines_with(">>  |"),
              (std::vector<std::string>{"tap| >>  |Problem with CreateFile in '\\\\.\\Tape1' with error Access is denied.",
                                        "tap| >>  |--tr:Error code: 0x00000005"}));
    EXPECT_TRUE(system_.log.has_line("tap| Getting drives ok."));
}

TEST_F(GetDrives, ADriveThatFailsHalfWayStandsThereAsFarAsItWasRead) {
    plug_in_drives(1);
    const std::pair<std::uint32_t, const char*> cases[] = {
        {ioctl::storage_get_device_number, "<Drives><Drive SerialNumber=\"TRNDRV000\" /></Drives>"},
        {ioctl::scsi_get_address,
         "<Drives><Drive SerialNumber=\"TRNDRV000\" DeviceName=\"Tape0\" Name=\"TARNO LTO-8 Drive\" "
         "SymbolicLink=\"\\\\.\\Tape0\" /></Drives>"}};
    for (const auto& [code, record] : cases) {
        fault_ = [failing = code](const device_request& request) { return request.code == failing ? 1117u : 0u; };
        EXPECT_EQ(drives(), record);
        EXPECT_EQ(system_.devices.open_handles(), 0u);
    }
    fault_ = [](const device_request&) { return 0u; };
    system_.tape.always(tape_kind::drive_parameters, 50);
    EXPECT_EQ(drives(),
              "<Drives><Drive SerialNumber=\"TRNDRV000\" DeviceName=\"Tape0\" Name=\"TARNO LTO-8 Drive\" "
              "SymbolicLink=\"\\\\.\\Tape0\"><Address Lun=\"0\" TargetId=\"0\" PathId=\"0\" PortNumber=\"2\" /></Drive></Drives>");
    EXPECT_EQ(log_lines_with("WARN|"),
              (std::vector<std::string>{
                  "tap| WARN|Cannot gather information on drive \\\\.\\Tape0. The request could not be performed because of an "
                  "I/O device error.",
                  "tap| WARN|Cannot gather information on drive \\\\.\\Tape0. DeviceIoControl(ScsiGetAddress)",
                  "tap| WARN|Cannot gather information on drive \\\\.\\Tape0. The tape driver does not support a requested "
                  "function"}));
}

TEST_F(GetDrives, ADriveThatKeepsBeingResetHasNoBlockSizes) {
    plug_in_drives(1);
    system_.tape.always(tape_kind::drive_parameters, 1111);
    EXPECT_NE(drives().find("<BlockSizes DefaultBlockSize=\"0\" MinimumBlockSize=\"0\" MaximumBlockSize=\"0\" />"),
              std::string::npos);
    EXPECT_EQ(system_.clock.sleeps(), (std::vector<std::int64_t>{5000, 5000}));
    EXPECT_TRUE(log_lines_with("WARN|").empty());
}

/// One drive can't be opened, one dies when it has told its name, one answers nothing for ten seconds.
TEST_F(GetDrives, ThreeBadDrivesDoNotSpoilTheOtherSeven) {
    plug_in_drives(10);
    system_.devices.on_open([](const std::string& link) { return link == tape_link(2) ? 2u : 0u; });
    bool named = false;
    fault_ = [&](const device_request& request) {
        if (request.link_name == tape_link(5)) {
            return std::exchange(named, true) ? 55u : 0u;
        }
        if (request.link_name == tape_link(8)) {
            system_.clock.advance(10'000);
            return 121u;
        }
        return 0u;
    };
    std::string expected = "<Drives>";
    for (const unsigned number : {0u, 1u, 3u, 4u, 5u, 6u, 7u, 9u}) {
        expected += number == 5 ? "<Drive SerialNumber=\"\" />" : drive_record(number);
    }
    EXPECT_EQ(drives(), expected + "</Drives>");
    EXPECT_EQ(log_lines_with("WARN|"),
              (std::vector<std::string>{
                  "tap| WARN|Cannot gather information on drive \\\\.\\Tape2. The system cannot find the file specified.",
                  "tap| WARN|Cannot gather information on drive \\\\.\\Tape5. " + exc::win_error_text(55),
                  "tap| WARN|Cannot gather information on drive \\\\.\\Tape8. " + exc::win_error_text(121)}));
    EXPECT_EQ(system_.devices.open_handles(), 0u);
}

// GetMediaInfo.

class GetMediaInfo : public DriveFixture {
protected:
    GetMediaInfo() {
        plug_in_drives(1);
        platform::TAPE_GET_MEDIA_PARAMETERS media;
        media.Capacity = 0x1'2345'6789;
        media.Remaining = 4'294'967'296;
        media.BlockSize = 262144;
        media.PartitionCount = 2;
        system_.tape.set_media(media);
    }

    std::string media_info(const std::string& arguments = "") {
        return output_value(drive_call("GetMediaInfo", arguments), "MediaInfo");
    }

    /// Whether somebody else could lock the device of this name now. Asked on a thread of its own: a thread must not try what it
    /// holds already.
    bool is_free(const std::string& name) {
        bool taken = false;
        std::thread([&] {
            const boost::shared_ptr<boost::mutex> mutex = context_->GetDeviceMutex(name);
            taken = mutex->try_lock();
            if (taken) {
                mutex->unlock();
            }
        }).join();
        return taken;
    }
};

TEST_F(GetMediaInfo, TellsOfTheMediumAndItsUse) {
    attributes_ = {0,    0, 0, 31, 0x02, 0x20, 0, 0, 8, 0, 0, 0, 0, 0, 1, 0, 0, 0x02,
                   0x21, 0, 0, 8,  0,    0,    0, 0, 0, 0, 0, 7, 4, 8, 0, 0, 1, 0x80};
    attributes_[3] = static_cast<std::uint8_t>(attributes_.size());
    EXPECT_EQ(media_info(),
              "<MediaInfo Capacity=\"4886718345\" Remaining=\"4294967296\" BlockSize=\"262144\" PartitionCount=\"2\" "
              "WriteProtected=\"false\" IsWorm=\"true\"><UsageStatistic><IsValid>True</IsValid>"
              "<LifetimeMegabytesWritten>65536</LifetimeMegabytesWritten><LifetimeMegabytesRead>7</LifetimeMegabytesRead>"
              "</UsageStatistic></MediaInfo>");
    EXPECT_TRUE(system_.log.has_line("tap| Getting media parameters info"));
    EXPECT_TRUE(system_.log.has_line("tap| Getting media parameters info ok."));
    EXPECT_EQ(system_.devices.open_handles(), 0u);
}

TEST_F(GetMediaInfo, ACartridgeWithoutMemoryHasNoStatistic) {
    platform::TAPE_GET_MEDIA_PARAMETERS media;
    media.WriteProtected = 2;
    system_.tape.set_media(media);
    EXPECT_EQ(media_info(),
              "<MediaInfo Capacity=\"0\" Remaining=\"0\" BlockSize=\"0\" PartitionCount=\"0\" WriteProtected=\"true\" "
              "IsWorm=\"false\"><UsageStatistic><IsValid>False</IsValid></UsageStatistic></MediaInfo>");
}

TEST_F(GetMediaInfo, WithoutAMediumItFailsAfterTheTimeOut) {
    system_.tape.always(tape_kind::media_parameters, 1112);
    EXPECT_EQ(drive_call("GetMediaInfo").error,
              "No media in drive.\nNo media in drive in '\\\\.\\Tape0'\n--tr:Error code: 0x00000458\n--tr:Timed out waiting for "
              "device ready status on FindMediaInfo operation, symLink = \\\\.\\Tape0");
    EXPECT_EQ(system_.clock.sleeps(), std::vector<std::int64_t>(7, 10'000));
    EXPECT_EQ(system_.tape.count(tape_kind::media_parameters), 7u);
    EXPECT_TRUE(system_.log.has_line("tap| Getting media parameters info Failed."));
    EXPECT_EQ(system_.devices.open_handles(), 0u);
}

TEST_F(GetMediaInfo, TheRobotStandsStillForAllOfTheTimeOut) {
    system_.tape.always(tape_kind::media_parameters, 1112);
    std::size_t looks = 0;
    system_.clock.on_sleep([&](std::int64_t) {
        ++looks;
        EXPECT_FALSE(is_free("\\\\.\\Changer0"));
        EXPECT_TRUE(is_free("\\\\.\\Changer1"));
        EXPECT_TRUE(is_free(tape_link(0)));
    });
    EXPECT_FALSE(drive_call("GetMediaInfo", "<ChangerToLockName value=\"\\\\.\\Changer0\" />").success);
    EXPECT_EQ(looks, 7u);
    EXPECT_TRUE(is_free("\\\\.\\Changer0"));
}

/// The fakes' devices, with an eye on each close.
class watched_devices final : public test_support::devices_in_front {
public:
    watched_devices(platform::devices& inner, std::function<void()> look) : devices_in_front(inner), look_(std::move(look)) {}

    bool close_device(platform::device_handle device) override {
        look_();
        return devices_in_front::close_device(device);
    }

private:
    std::function<void()> look_;
};

TEST_F(GetMediaInfo, TheRobotMayMoveAgainOnlyWhenTheDriveIsClosed) {
    std::size_t asked = 0;
    fault_ = [&](const device_request& request) {
        ++asked;
        EXPECT_EQ(platform::testing::cdb_of(request).at(0), 0x8C);
        EXPECT_FALSE(is_free("\\\\.\\Changer0"));
        return 0u;
    };
    std::size_t closed = 0;
    watched_devices devices(system_.devices, [&] {
        ++closed;
        EXPECT_FALSE(is_free("\\\\.\\Changer0"));
    });
    platform::system_set set = platform::system();
    set.devices = &devices;
    const platform::scoped_system scope(set);
    static_cast<void>(media_info("<ChangerToLockName value=\"\\\\.\\Changer0\" />"));
    EXPECT_EQ(asked, 2u);
    EXPECT_EQ(closed, 1u);
    EXPECT_TRUE(is_free("\\\\.\\Changer0"));
}

TEST_F(GetMediaInfo, TheNameOfTheChangerLosesADoubledPrefix) {
    const std::pair<std::string, std::string> cases[] = {
        {"\\\\.\\\\\\?\\Changer0", "\\\\?\\Changer0"},
        {"\\\\.\\\\\\.\\Changer0", "\\\\.\\Changer0"},
        {"\\\\.\\\\\\?\\scsi#changer&ven#5&1#{53f56310}", "\\\\?\\scsi#changer&ven#5&1#{53f56310}"},
        {"\\\\.\\\\\\.\\\\\\.\\Changer0", "\\\\.\\\\\\.\\Changer0"},
        {"\\\\.\\\\\\?\\\\\\?\\Changer0", "\\\\?\\\\\\?\\Changer0"},
        {"\\\\.\\\\\\?\\", "\\\\?\\"},
        {"\\\\.\\\\\\.\\", "\\\\.\\"},
        // What doesn't begin with one of the two stays as it is.
        {"\\\\.\\Changer0", "\\\\.\\Changer0"},
        {"\\\\?\\Changer0", "\\\\?\\Changer0"},
        {"\\\\?\\\\\\.\\Changer0", "\\\\?\\\\\\.\\Changer0"},
        {"\\\\?\\\\\\?\\Changer0", "\\\\?\\\\\\?\\Changer0"},
        {"\\\\.\\\\\\.", "\\\\.\\\\\\."},
        {"\\\\.\\\\\\?", "\\\\.\\\\\\?"},
        {"\\\\.\\\\.\\Changer0", "\\\\.\\\\.\\Changer0"},
        {"\\\\.\\\\\\!\\Changer0", "\\\\.\\\\\\!\\Changer0"},
        {" \\\\.\\\\\\.\\Changer0", " \\\\.\\\\\\.\\Changer0"},
        {"Changer0", "Changer0"}};
    for (const auto& [given, locked] : cases) {
        system_.log.clear();
        bool looked = false;
        tape_.on_media_read = [&, &name = locked] {
            looked = true;
            EXPECT_FALSE(is_free(name)) << name;
        };
        const std::string escaped = text::replace_all(given, "&", "&amp;");
        EXPECT_TRUE(drive_call("GetMediaInfo", "<ChangerToLockName value=\"" + escaped + "\" />").success);
        EXPECT_TRUE(looked);
        EXPECT_TRUE(is_free(locked));
        EXPECT_EQ(log_lines_with("Lock changer"),
                  std::vector<std::string>{"tap|   Lock changer " + locked + " for operation with drive"});
    }
}

TEST_F(GetMediaInfo, WithoutAChangersNameNothingIsHeld) {
    for (const char* argument : {"", "<ChangerToLockName value=\"\" />"}) {
        system_.log.clear();
        EXPECT_TRUE(drive_call("GetMediaInfo", argument).success);
        EXPECT_TRUE(system_.log.has_line("tap|   Lock changer  for operation with drive"));
        EXPECT_TRUE(log_lines_with("New mutex").empty());
    }
}

TEST_F(GetMediaInfo, OpensTheDriveBeforeItWaitsForTheRobot) {
    const auto robot = context_->GetDeviceMutex("\\\\.\\Changer0");
    const boost::mutex::scoped_lock move(*robot);
    EXPECT_EQ(
        owner_call("GetMediaInfo", "<SymLinkName value=\"\\\\.\\Tape9\" /><ChangerToLockName value=\"\\\\.\\Changer0\" />").error,
        "The system cannot find the file specified.\nProblem with CreateFile in '\\\\.\\Tape9' with error The system cannot "
        "find the file specified.\n--tr:Error code: 0x00000002");
}

TEST_F(GetMediaInfo, WaitsForAMovingRobot) {
    const auto robot = context_->GetDeviceMutex("\\\\.\\Changer0");
    std::thread reader;
    {
        const boost::mutex::scoped_lock move(*robot);
        reader = std::thread([&] { static_cast<void>(media_info("<ChangerToLockName value=\"\\\\.\\Changer0\" />")); });
        while (!system_.log.has_line("tap|   Lock changer \\\\.\\Changer0 for operation with drive")) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(call("EnumLocks").success);
        EXPECT_EQ(system_.tape.count(tape_kind::media_parameters), 0u);
    }
    reader.join();
    EXPECT_EQ(system_.tape.count(tape_kind::media_parameters), 1u);
}

// The other procedures of one drive.

class DriveProcedures : public DriveFixture {
protected:
    DriveProcedures() { plug_in_drives(1); }

    [[nodiscard]] tape_request last_request() const { return system_.tape.requests().back(); }
};

TEST_F(DriveProcedures, GeDriveInfoTellsTheBlockSizes) {
    EXPECT_EQ(output_value(drive_call("GeDriveInfo"), "DriveInfo"),
              "<DriveInfo DefaultBlockSize=\"65536\" MinimumBlockSize=\"1\" MaximumBlockSize=\"8388608\" />");
    EXPECT_TRUE(system_.log.has_line("tap| Getting drive parameters info"));
    EXPECT_TRUE(system_.log.has_line("tap| Getting drive parameters info ok."));
}

TEST_F(DriveProcedures, GeDriveInfoOfADriveThatKeepsBeingResetIsZeros) {
    system_.tape.always(tape_kind::drive_parameters, 1110);
    EXPECT_EQ(output_value(drive_call("GeDriveInfo"), "DriveInfo"),
              "<DriveInfo DefaultBlockSize=\"0\" MinimumBlockSize=\"0\" MaximumBlockSize=\"0\" />");
    EXPECT_EQ(system_.clock.sleeps(), (std::vector<std::int64_t>{5000, 5000}));
}

TEST_F(DriveProcedures, GeDriveInfoFailsWithTheDrive) {
    system_.tape.always(tape_kind::drive_parameters, 21);
    EXPECT_EQ(drive_call("GeDriveInfo").error, "The device is not ready\n--tr:DriveHandle failed to get tape drive parameters.");
    EXPECT_TRUE(system_.log.has_line("tap| Getting drive parameters info Failed."));
}

TEST_F(DriveProcedures, GetDriveErrorTellsTheStatusAsItIs) {
    for (const std::uint32_t status : {0u, 1112u, 1117u, 0xFFFFFFFFu}) {
        system_.tape.always(tape_kind::get_status, status);
        EXPECT_EQ(drive_call("GetDriveError").output, "<OutputArguments><TapeStatus value=\"" +
                                                          std::to_string(static_cast<std::int32_t>(status)) +
                                                          "\" /></OutputArguments>");
    }
    EXPECT_TRUE(system_.log.has_line("tap| Getting drive error"));
    EXPECT_TRUE(system_.log.has_line("tap| Getting drive error ok."));
    EXPECT_TRUE(system_.clock.sleeps().empty());
}

TEST_F(DriveProcedures, EjectUnloadsAndDoesNotWait) {
    EXPECT_EQ(drive_call("EjectTapeFromStandalone").output, "<OutputArguments />");
    EXPECT_EQ(last_request().what, tape_kind::prepare);
    EXPECT_EQ(last_request().number, 1u);
    EXPECT_TRUE(last_request().immediate);
    EXPECT_TRUE(system_.log.has_line("tap| Ejecting tape from standalone"));
    EXPECT_TRUE(system_.log.has_line("tap| Ejecting tape from standalone ok."));
}

TEST_F(DriveProcedures, EjectOfAnEmptyDriveSucceeds) {
    system_.tape.always(tape_kind::prepare, 1112);
    EXPECT_EQ(drive_call("EjectTapeFromStandalone").output, "<OutputArguments />");
    EXPECT_TRUE(system_.clock.sleeps().empty());
}

TEST_F(DriveProcedures, PrepareWaitsForTheDriveUnlessToldOtherwise) {
    const std::pair<const char*, bool> cases[] = {{"", false},
                                                  {"<ReturnImmediately value=\"false\" />", false},
                                                  {"<ReturnImmediately value=\"0\" />", false},
                                                  {"<ReturnImmediately value=\"true\" />", true},
                                                  {"<ReturnImmediately value=\"yes\" />", true}};
    for (const auto& [argument, immediate] : cases) {
        EXPECT_EQ(drive_call("PrepareTape", "<OperationNum value=\"2\" />" + std::string(argument)).output, "<OutputArguments />");
        EXPECT_EQ(last_request().number, 2u);
        EXPECT_EQ(last_request().immediate, immediate) << argument;
    }
    EXPECT_TRUE(system_.log.has_line("tap| Preparing tape"));
    EXPECT_TRUE(system_.log.has_line("tap|   Try to 2"));
    EXPECT_TRUE(system_.log.has_line("tap| Preparing tape ok."));
}

TEST_F(DriveProcedures, PreparePassesEveryOperationOn) {
    for (const int operation : {0, 1, 2, 3, 4, 5, 6, 77, -1}) {
        system_.log.clear();
        EXPECT_TRUE(drive_call("PrepareTape", "<OperationNum value=\"" + std::to_string(operation) + "\" />").success);
        EXPECT_EQ(last_request().number, static_cast<std::uint32_t>(operation));
        EXPECT_TRUE(system_.log.has_line("tap|   Try to " + std::to_string(operation)));
    }
}

TEST_F(DriveProcedures, AFailedPrepareFailsTheCall) {
    system_.tape.always(tape_kind::prepare, 19);
    EXPECT_EQ(drive_call("PrepareTape", "<OperationNum value=\"5\" />").error,
              exc::win_error_text(19) +
                  "\nError in PrepareTape().\n--tr:Error code: 0x00000013\n--tr:Timed out waiting for device ready status on "
                  "Prepare operation, symLink = '\\\\.\\Tape0', operation='5', immediately='FALSE' with status='19'");
    EXPECT_TRUE(system_.log.has_line("tap| Preparing tape Failed."));
    EXPECT_TRUE(system_.clock.sleeps().empty());
}

TEST_F(DriveProcedures, PrepareOpensTheDriveBeforeItReadsTheRest) {
    EXPECT_EQ(drive_call("PrepareTape").error,
              "Value of the argument 'OperationNum' is not defined.\n--tr:Failed to retrieve value of the integer attribute "
              "'OperationNum'.");
    EXPECT_EQ(system_.devices.requests(device_request::kind::open).size(), 1u);
    EXPECT_EQ(system_.devices.open_handles(), 0u);
    EXPECT_TRUE(system_.tape.requests().empty());
}

TEST_F(DriveProcedures, StorageMediaRemovalForbidsAndAllows) {
    std::vector<std::uint8_t> sent;
    fault_ = [&](const device_request& request) {
        if (request.code == ioctl::storage_media_removal) {
            sent.push_back(request.input.at(0));
        }
        return 0u;
    };
    EXPECT_EQ(drive_call("StorageMediaRemoval", "<Prevent value=\"true\" />").output, "<OutputArguments />");
    EXPECT_TRUE(drive_call("StorageMediaRemoval", "<Prevent value=\"false\" />").success);
    EXPECT_EQ(sent, (std::vector<std::uint8_t>{1, 0}));
    EXPECT_TRUE(system_.log.has_line("tap| Removal tape from drive"));
    EXPECT_TRUE(system_.log.has_line("tap| Removal tape from drive ok."));
}

TEST_F(DriveProcedures, StorageMediaRemovalThatADriveDoesNotKnowIsNotNeeded) {
    fault_ = [](const device_request&) { return 50u; };
    EXPECT_TRUE(drive_call("StorageMediaRemoval", "<Prevent value=\"true\" />").success);
    EXPECT_TRUE(system_.log.has_line("tap|   \\\\.\\Tape0 isn't supported media removal. So it isn't required. "));
}

TEST_F(DriveProcedures, StorageMediaRemovalTriesUntilTheTimeOut) {
    fault_ = [](const device_request&) { return 1117u; };
    EXPECT_EQ(drive_call("StorageMediaRemoval", "<Prevent value=\"true\" />").error,
              "DeviceIoControl(IOCTL_STORAGE_MEDIA_REMOVAL) failed with error The request could not be performed because of an I/O "
              "device error.\n--tr:Timed out waiting for StorageMediaRemoval symLink = \\\\.\\Tape0'");
    EXPECT_EQ(system_.clock.sleeps(), std::vector<std::int64_t>(7, 10'000));
    EXPECT_TRUE(system_.log.has_line("tap| Removal tape from drive Failed."));
}

TEST_F(DriveProcedures, StorageMediaRemovalOpensTheDriveBeforeItReadsTheRest) {
    EXPECT_EQ(drive_call("StorageMediaRemoval").error,
              "Value of the argument 'Prevent' is not defined.\n--tr:Failed to retrieve value of the boolean attribute 'Prevent'.");
    EXPECT_EQ(system_.devices.requests(device_request::kind::open).size(), 1u);
}

TEST_F(DriveProcedures, EachNeedsTheLinkAndADeviceBehindIt) {
    constexpr const char* names[] = {"GetMediaInfo", "GeDriveInfo",        "GetDriveError", "EjectTapeFromStandalone",
                                     "PrepareTape",  "StorageMediaRemoval"};
    for (const std::string name : names) {
        EXPECT_EQ(owner_call(name).error,
                  "Value of the argument 'SymLinkName' is not defined.\n--tr:Failed to retrieve value of the multibyte attribute "
                  "'SymLinkName'.")
            << name;
        EXPECT_TRUE(system_.devices.requests().empty());
    }
    for (const std::string name : names) {
        EXPECT_EQ(
            owner_call(name, "<SymLinkName value=\"\\\\.\\Tape7\" />").error,
            "The system cannot find the file specified.\nProblem with CreateFile in '\\\\.\\Tape7' with error The system cannot "
            "find the file specified.\n--tr:Error code: 0x00000002")
            << name;
    }
    EXPECT_TRUE(system_.tape.requests().empty());
    EXPECT_TRUE(log_lines_with("New mutex").empty());
}

// GetDrivesStatuses, which reads a changer.

class GetDrivesStatuses : public LibraryFixture {
protected:
    /// The texts of all elements `DrivesStatuses` of an output, in order.
    static std::vector<std::string> statuses(const call_answer& answer) {
        EXPECT_TRUE(answer.success) << answer.error;
        std::vector<std::string> texts;
        const winxml::document_t output = winxml::parse_xml(text::utf8_to_wide(answer.output.value_or("<none />")));
        const winxml::node_t root = winxml::get_element(winxml::document_node(output), "OutputArguments");
        for (const winxml::node_t& element : winxml::child_elements(root)) {
            EXPECT_EQ(winxml::element_name(element), "DrivesStatuses");
            texts.push_back(winxml::get_attribute(element, "value"));
        }
        return texts;
    }

    [[nodiscard]] std::size_t log_count(const std::string& line) const {
        const std::vector<std::string> lines = system_.log.lines();
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }

    /// From now on the first library refuses mode pages as told, and with them the changer's parameters.
    void refuse_mode_pages(const std::string& when) {
        system_.files.put("C:\\library0\\faults.xml", "<faults><fault kind=\"sense\" opcodes=\"0x1A 0x5A\" " + when +
                                                          " key=\"4\" asc=\"0x44\" ascq=\"0\"/></faults>");
    }
};

TEST_F(GetDrivesStatuses, ReadsTheChangerTwiceAndAnswersTwice) {
    plug_in({{}});
    for (const std::string name : {"GetDrivesStatuses", "GetDrivesStatusesByScsi"}) {
        system_.log.clear();
        const std::vector<std::string> texts = statuses(changer_call(name));
        ASSERT_EQ(texts.size(), 2u) << name;
        EXPECT_EQ(texts[0], texts[1]);
        EXPECT_EQ(texts[0].find("<DrivesStatuses DeviceName=\"Changer0\" SymbolicLink=\"\\\\.\\Changer0\" NoDriver=\"false\">"
                                "<DriveStatus SerialNumber=\""),
                  0u)
            << texts[0];
        EXPECT_EQ(log_count("tap|   Building xml from drives statuses"), 2u);
        EXPECT_EQ(log_count("tap|   Building xml from drives statuses ok."), 2u);
        EXPECT_EQ(log_count("tap| Getting drives statuses ok."), 1u);
    }
}

TEST_F(GetDrivesStatuses, HasOneRecordForEachDrive) {
    plug_in({{}});
    const winxml::document_t record = winxml::parse_xml(text::utf8_to_wide(statuses(changer_call("GetDrivesStatuses")).at(0)));
    const std::vector<winxml::node_t> drives =
        winxml::child_elements(winxml::get_element(winxml::document_node(record), "DrivesStatuses"));
    ASSERT_FALSE(drives.empty());
    for (std::size_t index = 0; index < drives.size(); ++index) {
        const winxml::node_t element = winxml::get_element(drives[index], "Element");
        EXPECT_EQ(winxml::element_name(drives[index]), "DriveStatus");
        EXPECT_EQ(winxml::get_attribute(element, "ElementAddress"), std::to_string(index));
        EXPECT_EQ(winxml::get_attribute(element, "ElementType"), "4");
    }
}

TEST_F(GetDrivesStatuses, AFailureOfTheFirstRoundCostsOneAnswer) {
    plug_in({{}});
    refuse_mode_pages("times=\"1\"");
    EXPECT_EQ(statuses(changer_call("GetDrivesStatuses")).size(), 1u);
    EXPECT_EQ(log_count("tap| ERR |Problem with gathering drive statuses"), 1u);
    EXPECT_EQ(log_count("tap|   Building xml from drives statuses Failed."), 1u);
    EXPECT_EQ(log_count("tap|   Building xml from drives statuses ok."), 1u);
    EXPECT_EQ(log_count("tap| Getting drives statuses ok."), 1u);
}

TEST_F(GetDrivesStatuses, AFailureOfTheSecondRoundFailsTheCall) {
    plug_in({{}});
    static_cast<void>(changer_call("GetChanger"));
    refuse_mode_pages("skip=\"3\" times=\"0\"");
    const call_answer answer = changer_call("GetDrivesStatuses");
    EXPECT_FALSE(answer.success);
    EXPECT_FALSE(answer.output);
    EXPECT_EQ(log_count("tap|   Building xml from drives statuses ok."), 1u);
    EXPECT_EQ(log_count("tap| ERR |Problem with gathering drive statuses"), 1u);
    EXPECT_EQ(log_count("tap| Getting drives statuses Failed."), 1u);
}

TEST_F(GetDrivesStatuses, AChangerThatIsNotThereIsLoggedTwice) {
    plug_in({});
    const call_answer answer = changer_call("GetDrivesStatuses");
    EXPECT_FALSE(answer.success);
    EXPECT_EQ(answer.error, "The system cannot find the file specified.");
    EXPECT_EQ(log_count("tap| ERR |Problem with gathering drive statuses"), 2u);
    EXPECT_EQ(log_count("tap| Getting drives statuses Failed."), 1u);
}

TEST_F(GetDrivesStatuses, NeedsTheLink) {
    plug_in({{}});
    EXPECT_EQ(owner_call("GetDrivesStatuses").error,
              "Value of the argument 'SymLinkName' is not defined.\n--tr:Failed to retrieve value of the multibyte attribute "
              "'SymLinkName'.");
    EXPECT_EQ(log_count("tap| ERR |Problem with gathering drive statuses"), 0u);
}

TEST_F(GetDrivesStatuses, TheChangerIsFreeBetweenAndAfterwards) {
    plug_in({{}});
    refuse_mode_pages("times=\"0\"");
    EXPECT_FALSE(changer_call("GetDrivesStatuses").success);
    const auto mutex = context_->GetDeviceMutex("\\\\.\\Changer0");
    EXPECT_TRUE(mutex->try_lock());
    mutex->unlock();
}

}  // namespace
