#include "console/drive_commands.h"

#include <algorithm>

#include "console/console_fixture.h"
#include "platform/testing/virtual_clock.h"

namespace {

using console::exit_code;
using console::failure;
using console_test::answer_of;
using console_test::failure_of;

const std::string link = "\\\\.\\Tape0";

const std::string two_drives =
    R"(<Drives><Drive SerialNumber="D0" DeviceName="Tape0" Name="TRN DRIVE" SymbolicLink="\\.\Tape0">)"
    R"(<Address Lun="4" TargetId="3" PathId="2" PortNumber="1" />)"
    R"(<BlockSizes DefaultBlockSize="65536" MinimumBlockSize="1" MaximumBlockSize="8388608" /></Drive>)"
    R"(<Drive SerialNumber="D1" DeviceName="Tape1" Name="OTHER" SymbolicLink="\\.\Tape1"><Address Lun="1" /><BlockSizes /></Drive></Drives>)";

const std::string full_medium =
    R"(<MediaInfo Capacity="12000138625024" Remaining="9999" BlockSize="0" PartitionCount="2" WriteProtected="true" IsWorm="false">)"
    R"(<UsageStatistic><IsValid>True</IsValid><LifetimeMegabytesWritten>4294967296</LifetimeMegabytesWritten>)"
    R"(<LifetimeMegabytesRead>7</LifetimeMegabytesRead></UsageStatistic></MediaInfo>)";

const std::string two_alerts =
    R"(<alerts><alert id="4" severity="2" message="Your data is at risk:"><action index="1">Copy &amp; keep.</action>)"
    R"(<action index="2">Stop.</action></alert><alert id="64" severity="0" message="Unknown tape alert." /></alerts>)";

class DriveCommands : public console_test::fixture {
protected:
    DriveCommands() : installed_(with_virtual_clock()) {}

    static std::string status(std::uint32_t number) { return answer_of("TaskStatus", std::to_string(number)); }

    void answer_statuses(std::initializer_list<std::uint32_t> numbers) {
        for (const std::uint32_t number : numbers) {
            server_.queues["TaskStatus"].push_back(status(number));
        }
    }

    console::erase_order order(bool confirmed = true, bool wait = true) { return {link, false, confirmed, wait}; }

    std::string arguments(const std::string& procedure, const std::string& elements) {
        return procedure + " <InputArguments>" + elements + "<OwnerName value=\"OWNER\" /></InputArguments>";
    }

    platform::testing::virtual_clock clock_;
    console::tape_drives drives_{server_, "OWNER"};
    console::library_view library_{server_, "OWNER", false};
    console_test::scripted_person person_;

private:
    platform::system_set with_virtual_clock() {
        platform::system_set set = platform::system();
        set.clock = &clock_;
        return set;
    }

    platform::scoped_system installed_;
};

TEST_F(DriveCommands, DrivesAreListedWithWhatTheyTold) {
    server_.answers["GetDrives"] = answer_of("Drives", two_drives);
    console::list_drives(drives_, {}, out_);
    EXPECT_EQ(text_.str(),
              "LINK       PRODUCT    SERIAL  ADDRESS  BLOCK SIZES\n"
              "\\\\.\\Tape0  TRN DRIVE  D0      1:2:3:4  1 to 8388608, default 65536\n"
              "\\\\.\\Tape1  OTHER      D1      ?:?:?:1  ?\n");
    EXPECT_EQ(server_.asked.back(), arguments("GetDrives", ""));
}

TEST_F(DriveCommands, ADriveThatDiedAtOnceIsListedAllTheSame) {
    server_.answers["GetDrives"] = answer_of("Drives", "<Drives><Drive /></Drives>");
    console::list_drives(drives_, {}, out_);
    EXPECT_EQ(text_.str(), "LINK  PRODUCT  SERIAL  ADDRESS  BLOCK SIZES\n?                      ?        ?\n");
}

TEST_F(DriveCommands, ADriveWithoutADefaultBlockSizeHasVariableOnes) {
    server_.answers["GetDrives"] =
        answer_of("Drives", R"(<Drives><Drive SymbolicLink="L"><BlockSizes DefaultBlockSize="0" MinimumBlockSize="1" )"
                            R"(MaximumBlockSize="9" /></Drive></Drives>)");
    console::list_drives(drives_, {}, out_);
    EXPECT_NE(text_.str().find("  1 to 9, default variable\n"), std::string::npos) << text_.str();
}

TEST_F(DriveCommands, NoDrivesAreSaidSo) {
    server_.answers["GetDrives"] = answer_of("Drives", "<Drives />");
    console::list_drives(drives_, {}, out_);
    EXPECT_EQ(text_.str(), "No drives.\n");
    text_.str("");
    console::list_drives(drives_, {}, json_);
    EXPECT_EQ(text_.str(), "[]\n");
}

TEST_F(DriveCommands, DrivesToLeaveAloneGoByTheirLinks) {
    server_.answers["GetDrives"] = answer_of("Drives", "<Drives />");
    console::list_drives(drives_, {"tape1", "\\\\.\\Tape7"}, json_);
    EXPECT_EQ(server_.asked.back(), arguments("GetDrives", R"(<LockedSymLinkNames value="\\.\Tape1;\\.\Tape7" />)"));
    EXPECT_EQ(failure_of([&] { console::list_drives(drives_, {"SN1"}, out_); }).code(), exit_code::usage);
}

TEST_F(DriveCommands, DrivesAsJson) {
    server_.answers["GetDrives"] = answer_of("Drives", two_drives);
    console::list_drives(drives_, {}, json_);
    EXPECT_EQ(text_.str(), R"([
  {
    "link": "\\\\.\\Tape0",
    "name": "Tape0",
    "product": "TRN DRIVE",
    "serial": "D0",
    "address": "1:2:3:4",
    "block_sizes": {
      "default": 65536,
      "minimum": 1,
      "maximum": 8388608
    }
  },
  {
    "link": "\\\\.\\Tape1",
    "name": "Tape1",
    "product": "OTHER",
    "serial": "D1",
    "address": "?:?:?:1"
  }
]
)");
}

TEST_F(DriveCommands, ShortNamesAndLinksAskNobody) {
    EXPECT_EQ(drives_.choose("Tape0"), link);
    EXPECT_EQ(drives_.choose("TAPE001"), "\\\\.\\Tape001");
    EXPECT_EQ(drives_.choose("\\\\.\\whatever"), "\\\\.\\whatever");
    EXPECT_TRUE(server_.asked.empty());
}

TEST_F(DriveCommands, OtherNamesAreLookedUp) {
    server_.answers["GetDrives"] = answer_of("Drives", two_drives);
    EXPECT_EQ(drives_.choose("D1"), "\\\\.\\Tape1");
    for (const char* unknown : {"d1", "Tape", "Tape1x", ""}) {
        const failure refused = failure_of([&] { (void)drives_.choose(unknown); });
        EXPECT_EQ(refused.code(), exit_code::usage);
        EXPECT_EQ(refused.what(), "The server has no drive '" + std::string(unknown) + "' ('tarnoctl drives' lists them).");
    }
}

TEST_F(DriveCommands, MediaShowsAllThatIsKnown) {
    server_.answers["GetMediaInfo"] = answer_of("MediaInfo", full_medium);
    console::show_media(drives_, link, "", out_);
    EXPECT_EQ(text_.str(),
              "DRIVE                \\\\.\\Tape0\n"
              "CAPACITY             12000138625024 bytes (12.0 TB)\n"
              "REMAINING            9999 bytes\n"
              "BLOCK SIZE           variable\n"
              "PARTITIONS           2\n"
              "WRITE-PROTECTED      yes\n"
              "WORM                 no\n"
              "WRITTEN IN ITS LIFE  4294967296 MB\n"
              "READ IN ITS LIFE     7 MB\n");
    EXPECT_EQ(server_.asked.back(), arguments("GetMediaInfo", R"(<SymLinkName value="\\.\Tape0" />)"));
}

TEST_F(DriveCommands, MediaMayLockAChangerMeanwhile) {
    server_.answers["GetMediaInfo"] = answer_of("MediaInfo", full_medium);
    console::show_media(drives_, link, "\\\\.\\Changer0", json_);
    EXPECT_EQ(server_.asked.back(),
              arguments("GetMediaInfo", R"(<SymLinkName value="\\.\Tape0" /><ChangerToLockName value="\\.\Changer0" />)"));
    EXPECT_EQ(text_.str(), R"({
  "drive": "\\\\.\\Tape0",
  "capacity": 12000138625024,
  "remaining": 9999,
  "block_size": 0,
  "partitions": 2,
  "write_protected": true,
  "worm": false,
  "lifetime_megabytes_written": 4294967296,
  "lifetime_megabytes_read": 7
}
)");
}

TEST_F(DriveCommands, AMediumWithoutUsageSaysSo) {
    server_.answers["GetMediaInfo"] =
        answer_of("MediaInfo",
                  R"(<MediaInfo Capacity="-1" Remaining="999949999" BlockSize="65536" PartitionCount="1" WriteProtected="false" )"
                  R"(IsWorm="true"><UsageStatistic><IsValid>False</IsValid></UsageStatistic></MediaInfo>)");
    console::show_media(drives_, link, "", out_);
    EXPECT_EQ(text_.str(),
              "DRIVE                \\\\.\\Tape0\n"
              "CAPACITY             -1 bytes\n"
              "REMAINING            999949999 bytes (999.9 MB)\n"
              "BLOCK SIZE           65536 bytes (65.5 kB)\n"
              "PARTITIONS           1\n"
              "WRITE-PROTECTED      no\n"
              "WORM                 yes\n"
              "WRITTEN IN ITS LIFE  not told\n"
              "READ IN ITS LIFE     not told\n");
    text_.str("");
    console::show_media(drives_, link, "", json_);
    EXPECT_EQ(text_.str().find("lifetime"), std::string::npos);
}

TEST_F(DriveCommands, DriveInfoTellsTheStatusInWords) {
    server_.answers["GetDriveError"] = answer_of("TapeStatus", "1112");
    server_.answers["GeDriveInfo"] =
        answer_of("DriveInfo", R"(<DriveInfo DefaultBlockSize="0" MinimumBlockSize="1" MaximumBlockSize="4294967295" />)");
    console::show_drive(drives_, link, out_);
    EXPECT_EQ(text_.str(),
              "DRIVE               \\\\.\\Tape0\n"
              "STATUS              1112: No media in drive.\n"
              "DEFAULT BLOCK SIZE  variable\n"
              "SMALLEST BLOCK      1 byte\n"
              "LARGEST BLOCK       4294967295 bytes (4.3 GB)\n");
    text_.str("");
    server_.answers["GetDriveError"] = answer_of("TapeStatus", "0");
    console::show_drive(drives_, link, json_);
    EXPECT_EQ(text_.str(), R"({
  "drive": "\\\\.\\Tape0",
  "status": 0,
  "meaning": "ready",
  "block_sizes": {
    "default": 0,
    "minimum": 1,
    "maximum": 4294967295
  }
}
)");
    EXPECT_EQ(console::meaning_of(4294967295U), "No text is known for this number.");
}

TEST_F(DriveCommands, AlertsComeWithTheirSteps) {
    server_.answers["GetDriveAlerts"] = answer_of("Alerts", two_alerts);
    console::show_alerts(drives_, library_, {link, false}, out_);
    EXPECT_EQ(text_.str(),
              "ALERT  SEVERITY     MESSAGE\n"
              "4      critical     Your data is at risk:\n"
              "                      1. Copy & keep.\n"
              "                      2. Stop.\n"
              "64     information  Unknown tape alert.\n");
    EXPECT_EQ(server_.asked.back(), arguments("GetDriveAlerts", R"(<SymLinkName value="\\.\Tape0" />)"));
    EXPECT_EQ(console::severity_name(1), "warning");
    EXPECT_EQ(console::severity_name(3), "3");
}

TEST_F(DriveCommands, AlertsOfAChangerHaveTheirOwnProcedure) {
    server_.answers["GetChangerAlerts"] = answer_of("Alerts", "<alerts />");
    server_.answers["GetIEPortsStatuses"] = answer_of("IEPortsStatuses", "<IEPortsStatuses />");
    console::show_alerts(drives_, library_, {"\\\\.\\Changer0", true}, out_);
    EXPECT_EQ(text_.str(), "No alerts.\n");
    text_.str("");
    server_.answers["GetChangerAlerts"] = answer_of("Alerts", two_alerts);
    console::show_alerts(drives_, library_, {"\\\\.\\Changer0", true}, json_);
    EXPECT_EQ(text_.str(), R"({
  "device": "\\\\.\\Changer0",
  "alerts": [
    {
      "alert": 4,
      "severity": "critical",
      "message": "Your data is at risk:",
      "actions": [
        "Copy & keep.",
        "Stop."
      ]
    },
    {
      "alert": 64,
      "severity": "information",
      "message": "Unknown tape alert.",
      "actions": []
    }
  ]
}
)");
}

TEST_F(DriveCommands, ADeviceThatCannotBeAskedIsToldFromOneThatIsWell) {
    server_.answers["GetDriveAlerts"] = answer_of("Alerts", "<alerts />");
    server_.answers["GetChangerAlerts"] = server_.answers["GetDriveAlerts"];
    const failure no_drive = failure_of([&] { console::show_alerts(drives_, library_, {link, false}, out_); });
    EXPECT_EQ(no_drive.code(), exit_code::call_failed);
    EXPECT_STREQ(no_drive.what(), "No alerts were told, but the device can't be asked: Unknown command: 'GeDriveInfo'");
    server_.answers["GeDriveInfo"] =
        answer_of("DriveInfo", R"(<DriveInfo DefaultBlockSize="0" MinimumBlockSize="1" MaximumBlockSize="2" />)");
    console::show_alerts(drives_, library_, {link, false}, out_);
    EXPECT_EQ(text_.str(), "No alerts.\n");
    const failure no_changer = failure_of([&] { console::show_alerts(drives_, library_, {"\\\\.\\Changer9", true}, json_); });
    EXPECT_EQ(no_changer.code(), exit_code::call_failed);
    EXPECT_STREQ(no_changer.what(), "No alerts were told, but the device can't be asked: Unknown command: 'GetIEPortsStatuses'");
}

TEST_F(DriveCommands, TheNameSaysWhoseAlertsAreMeant) {
    server_.answers["GetDrives"] = answer_of("Drives", two_drives);
    server_.answers["GetChangers"] =
        answer_of("Changers", R"(<Changers><Changer DeviceName="Changer0" SymbolicLink="\\.\Changer0">)"
                              R"(<Data SerialNumber="LIB1" /><Parameters NumberStorageElements="0" )"
                              R"(NumberIEElements="0" NumberDataTransferElements="0" /></Changer></Changers>)");
    auto chosen = [&](const char* name) {
        const console::alert_source source = console::choose_alert_source(drives_, library_, name);
        return source.link + (source.changer ? " changer" : " drive");
    };
    EXPECT_EQ(chosen("tape3"), "\\\\.\\Tape3 drive");
    EXPECT_EQ(chosen("\\\\.\\Tape3"), "\\\\.\\Tape3 drive");
    EXPECT_EQ(chosen("changer0"), "\\\\.\\Changer0 changer");
    EXPECT_EQ(chosen("\\\\.\\unknownChanger1"), "\\\\.\\unknownChanger1 changer");
    EXPECT_EQ(chosen("D1"), "\\\\.\\Tape1 drive");
    EXPECT_EQ(chosen("LIB1"), "\\\\.\\Changer0 changer");
    EXPECT_EQ(failure_of([&] { (void)chosen("nobody"); }).code(), exit_code::usage);
}

TEST_F(DriveCommands, EveryOperationHasItsNumber) {
    server_.answers["PrepareTape"] = "<OutputArguments />";
    const std::vector<std::string> names = {"load", "unload", "tension", "lock", "unlock", "format"};
    for (std::size_t number = 0; number < names.size(); ++number) {
        console::prepare(drives_, link, console::operation_of(names[number]), false, true, person_, out_);
        EXPECT_EQ(server_.asked.back(),
                  arguments("PrepareTape", R"(<SymLinkName value="\\.\Tape0" /><OperationNum value=")" + std::to_string(number) +
                                               R"(" /><ReturnImmediately value="false" />)"));
    }
    EXPECT_TRUE(person_.shown.empty());
    EXPECT_EQ(failure_of([] { (void)console::operation_of("rewind"); }).code(), exit_code::usage);
}

TEST_F(DriveCommands, AnInterruptOfAnOperationSaysThatTheDriveGoesOn) {
    server_.answers["PrepareTape"] = "<OutputArguments />";
    console::prepare(drives_, link, console::operation_of("tension"), false, false, person_, out_);
    EXPECT_EQ(person_.notes,
              (std::vector<std::string>{
                  "tarnoctl: The drive goes on with what it has begun. 'tarnoctl drive-info Tape0' tells when it is ready.", ""}));
}

TEST_F(DriveCommands, OnlyAFormatIsAskedAbout) {
    server_.answers["PrepareTape"] = "<OutputArguments />";
    person_.answer = "n";
    console::prepare(drives_, link, console::operation_of("load"), true, false, person_, out_);
    EXPECT_EQ(text_.str(), "\\\\.\\Tape0: load begun.\n");
    EXPECT_NE(server_.asked.back().find(R"(<ReturnImmediately value="true" />)"), std::string::npos);
    EXPECT_EQ(server_.asked.size(), 1U);
    EXPECT_STREQ(
        failure_of([&] { console::prepare(drives_, link, console::operation_of("format"), false, false, person_, out_); }).what(),
        "Nothing was done.");
    EXPECT_EQ(person_.shown, std::vector<std::string>{"This destroys all that is on the tape in \\\\.\\Tape0. Go on? [y/N] "});
    EXPECT_EQ(server_.asked.size(), 1U);
    person_.answer = "YES";
    text_.str("");
    console::prepare(drives_, link, console::operation_of("format"), false, false, person_, json_);
    EXPECT_EQ(text_.str(), "{\n  \"drive\": \"\\\\\\\\.\\\\Tape0\",\n  \"operation\": \"format\",\n  \"immediate\": false\n}\n");
    EXPECT_EQ(server_.asked.size(), 2U);
}

TEST_F(DriveCommands, EjectHasAProcedureOfItsOwn) {
    server_.answers["EjectTapeFromStandalone"] = "<OutputArguments />";
    console::eject(drives_, link, out_);
    EXPECT_EQ(text_.str(), "\\\\.\\Tape0: eject begun.\n");
    EXPECT_EQ(server_.asked.back(), arguments("EjectTapeFromStandalone", R"(<SymLinkName value="\\.\Tape0" />)"));
    text_.str("");
    console::eject(drives_, link, json_);
    EXPECT_EQ(text_.str(), "{\n  \"drive\": \"\\\\\\\\.\\\\Tape0\",\n  \"operation\": \"eject\"\n}\n");
}

TEST_F(DriveCommands, NothingIsErasedWithoutAClearYes) {
    for (const std::optional<std::string>& answer : {std::optional<std::string>(), std::optional<std::string>(""),
                                                     std::optional<std::string>("no"), std::optional<std::string>("yess")}) {
        person_.answer = answer;
        const failure refused = failure_of([&] { console::erase(drives_, order(false), person_, out_); });
        EXPECT_EQ(refused.code(), exit_code::usage);
        EXPECT_STREQ(refused.what(), "Nothing was done.");
    }
    EXPECT_EQ(person_.shown.at(0), "This destroys all that is on the tape in \\\\.\\Tape0. Erase it? [y/N] ");
    person_.present = false;
    person_.answer = "y";
    const failure refused = failure_of([&] { console::erase(drives_, order(false), person_, out_); });
    EXPECT_EQ(refused.code(), exit_code::usage);
    EXPECT_STREQ(refused.what(), "There is no terminal to ask on whether this is meant. Say --yes to do it unasked.");
    EXPECT_TRUE(server_.asked.empty());
    EXPECT_TRUE(person_.notes.empty());
}

TEST_F(DriveCommands, AnEraseIsFollowedToItsEnd) {
    server_.answers["EraseTape"] = answer_of("TaskID", "4711");
    answer_statuses({997, 997, 997, 0});
    person_.answer = "y";
    console::erase(drives_, order(false), person_, out_);
    EXPECT_EQ(server_.asked.at(0), arguments("EraseTape", R"(<SymLinkName value="\\.\Tape0" /><LongErasure value="false" />)"));
    EXPECT_EQ(server_.asked.at(1), arguments("TaskStatus", R"(<TaskID value="4711" />)"));
    EXPECT_EQ(clock_.sleeps(), (std::vector<std::int64_t>{250, 250, 250}));
    EXPECT_EQ(text_.str(), "The tape in \\\\.\\Tape0 is erased; it took 00:00:00.\n");
    const std::string line = "Erasing the tape in \\\\.\\Tape0, task 4711: 00:00:00";
    EXPECT_EQ(person_.shown, (std::vector<std::string>{"This destroys all that is on the tape in \\\\.\\Tape0. Erase it? [y/N] ",
                                                       line, line, line, "end"}));
    EXPECT_EQ(person_.notes,
              (std::vector<std::string>{
                  "tarnoctl: The server may have begun to erase the tape in \\\\.\\Tape0; it goes on without tarnoctl.",
                  "tarnoctl: The erase goes on in the server as task 4711. 'tarnoctl task 4711' asks after it.", ""}));
}

TEST_F(DriveCommands, ALongEraseIsAskedAfterEverMoreSeldom) {
    server_.answers["EraseTape"] = answer_of("TaskID", "4711");
    server_.answers["TaskStatus"] = status(997);
    constexpr std::int64_t three_hours = 3 * 3600 * 1000;
    clock_.on_sleep([&](std::int64_t) {
        if (clock_.slept_milliseconds() >= three_hours) {
            server_.answers["TaskStatus"] = status(0);
        }
    });
    console::erase(drives_, {link, true, true, true}, person_, json_);
    EXPECT_NE(server_.asked.at(0).find(R"(<LongErasure value="true" />)"), std::string::npos);
    EXPECT_LT(server_.asked.size(), 800U);
    const std::vector<std::int64_t> sleeps = clock_.sleeps();
    EXPECT_EQ(*std::max_element(sleeps.begin(), sleeps.end()), 1000);
    EXPECT_LE(clock_.slept_milliseconds(), three_hours + 15000);
    EXPECT_EQ(person_.shown.at(person_.shown.size() - 2), "Erasing the tape in \\\\.\\Tape0, task 4711: 03:00:05");
    EXPECT_NE(text_.str().find("\"state\": \"done\",\n  \"status\": 0,\n  \"seconds\": 108"), std::string::npos) << text_.str();
}

TEST_F(DriveCommands, AFailedEraseTellsItsStatusInWords) {
    server_.answers["EraseTape"] = answer_of("TaskID", "4711");
    server_.answers["TaskStatus"] = status(19);
    const failure failed = failure_of([&] { console::erase(drives_, order(), person_, json_); });
    EXPECT_EQ(failed.code(), exit_code::call_failed);
    EXPECT_STREQ(failed.what(), "Task 4711 failed with status 19: The media is write protected.");
    EXPECT_EQ(text_.str(), R"({
  "drive": "\\\\.\\Tape0",
  "long": false,
  "task": 4711,
  "state": "failed",
  "status": 19,
  "meaning": "The media is write protected.",
  "seconds": 0
}
)");
}

TEST_F(DriveCommands, AnEraseMayBeLeftToItself) {
    server_.answers["EraseTape"] = answer_of("TaskID", "4711");
    console::erase(drives_, order(true, false), person_, out_);
    EXPECT_EQ(text_.str(), "The erase goes on in the server as task 4711. 'tarnoctl task 4711' asks after it.\n");
    EXPECT_EQ(server_.asked.size(), 1U);
    EXPECT_EQ(person_.notes.back(), "");
    text_.str("");
    console::erase(drives_, order(true, false), person_, json_);
    EXPECT_EQ(text_.str(), R"({
  "drive": "\\\\.\\Tape0",
  "long": false,
  "task": 4711,
  "state": "running",
  "status": 997
}
)");
}

TEST_F(DriveCommands, ALostConnectionLeavesTheTaskRunningAndSaysSo) {
    server_.answers["EraseTape"] = answer_of("TaskID", "4711");
    server_.refusal = exit_code::not_connected;
    answer_statuses({997});
    const failure lost = failure_of([&] { console::erase(drives_, order(), person_, out_); });
    EXPECT_EQ(lost.code(), exit_code::not_connected);
    EXPECT_STREQ(lost.what(),
                 "What became of task 4711 is not known: Unknown command: 'TaskStatus'\n"
                 "Asking doesn't stop a task; 'tarnoctl task 4711' asks after it.");
    EXPECT_EQ(text_.str(), "");
}

TEST_F(DriveCommands, ATaskIsShownAsItStands) {
    answer_statuses({997, 0, 1117});
    EXPECT_EQ(console::show_task(drives_, 12, false, person_, out_), exit_code::still_running);
    EXPECT_EQ(console::show_task(drives_, 12, false, person_, out_), exit_code::done);
    EXPECT_EQ(text_.str(), "Task 12 is running.\nTask 12 is done.\n");
    const failure failed = failure_of([&] { (void)console::show_task(drives_, 12, false, person_, out_); });
    EXPECT_EQ(failed.code(), exit_code::call_failed);
    EXPECT_STREQ(failed.what(),
                 "Task 12 failed with status 1117: The request could not be performed because of an I/O device error.");
    EXPECT_TRUE(person_.notes.empty());
}

TEST_F(DriveCommands, AnUnknownTaskComesWithTheReasonThatItMostlyHas) {
    const auto ask = [&] { (void)console::show_task(drives_, 12, false, person_, out_); };
    EXPECT_STREQ(failure_of(ask).what(), "Unknown command: 'TaskStatus'");
    server_.refusal_text = "There is no task with id = 12";
    EXPECT_STREQ(failure_of(ask).what(),
                 "There is no task with id = 12\nA success is told once: if somebody has been told it, the "
                 "server's log has it.");
    server_.refusal = exit_code::not_connected;
    EXPECT_STREQ(failure_of(ask).what(), "There is no task with id = 12");
}

TEST_F(DriveCommands, ATaskMayBeWaitedFor) {
    answer_statuses({997, 997, 0});
    EXPECT_EQ(console::show_task(drives_, 12, true, person_, json_), exit_code::done);
    EXPECT_EQ(text_.str(), "{\n  \"task\": 12,\n  \"state\": \"done\",\n  \"status\": 0\n}\n");
    EXPECT_EQ(person_.notes,
              (std::vector<std::string>{"tarnoctl: Task 12 goes on in the server. 'tarnoctl task 12' asks after it.", ""}));
}

TEST_F(DriveCommands, AnAnswerThatIsNoAnswerIsSaidSo) {
    for (const char* rubbish : {"", "<OutputArguments />", "<OutputArguments><TaskID value=\"none\" /></OutputArguments>"}) {
        server_.answers["EraseTape"] = rubbish;
        EXPECT_EQ(failure_of([&] { console::erase(drives_, order(), person_, out_); }).code(), exit_code::bad_answer) << rubbish;
    }
    server_.answers["GetDriveAlerts"] = answer_of("Alerts", "<alerts><alert /></alerts>");
    EXPECT_EQ(failure_of([&] { console::show_alerts(drives_, library_, {link, false}, out_); }).code(), exit_code::bad_answer);
    server_.answers["GetMediaInfo"] = answer_of("MediaInfo", "<MediaInfo />");
    EXPECT_EQ(failure_of([&] { console::show_media(drives_, link, "", out_); }).code(), exit_code::bad_answer);
}

}  // namespace
