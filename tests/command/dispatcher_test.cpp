#include <gtest/gtest.h>

#include <set>

#include "command/version_check.h"
#include "foundation/exc/exceptions.h"
#include "support/service_fixture.h"

namespace {

using test_support::call_answer;
using test_support::ServiceFixture;

class Dispatcher : public ServiceFixture {};

constexpr char16_t const* expected_names[] = {u"SetOwnerName",
                                              u"TestCompatible",
                                              u"GetLogFolder",
                                              u"EnumLocks",
                                              u"GetOwnerName",
                                              u"GetChangers",
                                              u"GetChanger",
                                              u"UnloadMedium",
                                              u"MoveToSlot",
                                              u"LoadMedium",
                                              u"FromDriveToIEPort",
                                              u"FromSlotToIEPort",
                                              u"FromIEPortToSlot",
                                              u"GetSlotsStatuses",
                                              u"GetDrivesStatuses",
                                              u"GetIEPortsStatuses",
                                              u"GetElementsStatuses",
                                              u"GetAllChangers",
                                              u"GetChangerByScsi",
                                              u"UnloadMediumByScsi",
                                              u"MoveToSlotByScsi",
                                              u"LoadMediumByScsi",
                                              u"FromDriveToIEPortByScsi",
                                              u"FromSlotToIEPortByScsi",
                                              u"FromIEPortToSlotByScsi",
                                              u"GetSlotsStatusesByScsi",
                                              u"GetDrivesStatusesByScsi",
                                              u"GetIEPortsStatusesByScsi",
                                              u"GetElementsStatusesByScsi",
                                              u"GetDrives",
                                              u"GetMediaInfo",
                                              u"GeDriveInfo",
                                              u"EraseTape",
                                              u"GetDriveError",
                                              u"EjectTapeFromStandalone",
                                              u"PrepareTape",
                                              u"StorageMediaRemoval",
                                              u"TaskStatus",
                                              u"WaitForResult",
                                              u"GetDriveAlerts",
                                              u"GetChangerAlerts"};

TEST_F(Dispatcher, TheTableIsComplete) {
    const std::span<const procedure_row> table = ProcedureTable();
    ASSERT_EQ(table.size(), 41u);
    for (std::size_t index = 0; index < table.size(); ++index) {
        EXPECT_EQ(table[index].name, expected_names[index]);
        EXPECT_NE(table[index].body, nullptr) << index;
        const procedure_group group = index < 5    ? procedure_group::before_gate
                                      : index < 17 ? procedure_group::changers
                                      : index < 29 ? procedure_group::changers_by_scsi
                                      : index < 39 ? procedure_group::drives
                                                   : procedure_group::alerts;
        EXPECT_EQ(table[index].group, group) << index;
    }
}

TEST_F(Dispatcher, TheTwinsShareTheirBodies) {
    const std::span<const procedure_row> table = ProcedureTable();
    for (std::size_t index = 5; index < 17; ++index) {
        EXPECT_EQ(table[index].body, table[index + 12].body) << index;
    }
    std::set<procedure_body> bodies;
    for (std::size_t index = 0; index < table.size(); ++index) {
        if (table[index].group != procedure_group::changers_by_scsi) {
            EXPECT_TRUE(bodies.insert(table[index].body).second) << index;
        }
    }
}

TEST_F(Dispatcher, AnUnknownNameOfTheOwnerIsAnUnknownCommand) {
    EXPECT_EQ(owner_call("GetDriveInfo").error, "Unknown command: 'GetDriveInfo'");
    EXPECT_EQ(owner_call("getchangers").error, "Unknown command: 'getchangers'");
    EXPECT_EQ(owner_call("").error, "Unknown command: ''");
    EXPECT_EQ(owner_call("%1").error, "Unknown command: '%1'");
}

TEST_F(Dispatcher, AnUnknownNameOfAStrangerFailsAtTheGate) {
    LoadOwner(tape_key_path, u"HOST2", false);
    EXPECT_EQ(owner_call("NoSuchThing").error, "'HOST1' isn't current owner. You have to change current owner");
}

TEST_F(Dispatcher, TheGateNeedsTheOwnersNameInEveryMode) {
    constexpr char missing[] =
        "Value of the argument 'OwnerName' is not defined.\n--tr:Failed to retrieve value of the unicode attribute 'OwnerName'.";
    EXPECT_EQ(call("NoSuchThing").error, missing);
    LoadOwner(tape_key_path, u"HOST1", true);
    EXPECT_EQ(call("GetChangers").error, missing);
}

TEST_F(Dispatcher, TheGateIsSeenInTheLog) {
    LoadOwner(tape_key_path, u"HOST1", false);
    static_cast<void>(owner_call("NoSuchThing"));
    EXPECT_TRUE(system_.log.has_line("tap| Testing owner name"));
    EXPECT_TRUE(system_.log.has_line("tap| Testing owner name ok."));
    system_.log.clear();
    LoadOwner(tape_key_path, u"HOST2", false);
    static_cast<void>(owner_call("NoSuchThing"));
    EXPECT_TRUE(system_.log.has_line("tap| Testing owner name Failed."));
}

TEST_F(Dispatcher, EveryProcedureBehindTheGateRefusesAStranger) {
    LoadOwner(tape_key_path, u"HOST2", false);
    for (const procedure_row& row : ProcedureTable()) {
        if (row.group != procedure_group::before_gate) {
            EXPECT_EQ(owner_call(text::wide_to_utf8(row.name)).error,
                      "'HOST1' isn't current owner. You have to change current owner");
        }
    }
    EXPECT_TRUE(system_.devices.requests().empty());
}

TEST_F(Dispatcher, EnumLocksIsAlwaysEmpty) {
    EXPECT_EQ(call("EnumLocks").output, "<OutputArguments><locks /></OutputArguments>");
}

TEST_F(Dispatcher, GetLogFolderDoesItsWorkAndEndsAsUnknown) {
    const call_answer answer = call("GetLogFolder");
    EXPECT_FALSE(answer.success);
    EXPECT_EQ(answer.error, "Unknown command: 'GetLogFolder'");
    EXPECT_FALSE(answer.output);
    EXPECT_TRUE(system_.log.has_line("RPC: GetLogFolder ok."));
    EXPECT_FALSE(system_.log.has_line("Testing owner name"));
}

// The version check.

class VersionCheck : public ServiceFixture {
protected:
    bool compatible(const std::u16string& console) { return CheckCompatibility(console, system_.process.module_path()); }
};

TEST_F(VersionCheck, AConsoleOfTheSameAgeOrNewerIsCompatible) {
    system_.process.version = {platform::version_failure::none, (9u << 16) | 5u, 1536u};
    EXPECT_TRUE(compatible(u"9.5.0.1536"));
    EXPECT_FALSE(compatible(u"9.5.0.1535"));
    EXPECT_TRUE(compatible(u"9.5.0.1537"));
    EXPECT_TRUE(compatible(u"9.5.1.0"));
    EXPECT_TRUE(compatible(u"10.0.0.0"));
    EXPECT_FALSE(compatible(u"9.4.65535.65535"));
}

TEST_F(VersionCheck, VersionsCompareWithoutSign) {
    system_.process.version = {platform::version_failure::none, 0x7FFFFFFF, 0};
    EXPECT_TRUE(compatible(u"32768.0.0.0"));
}

TEST_F(VersionCheck, PartsAreNotCheckedForRange) {
    const version_words version = SplitVersionString("1.65537.2.-1");
    EXPECT_EQ(version.high, 0x10001u);
    EXPECT_EQ(version.low, 0xFFFFFFFFu);
    EXPECT_EQ(SplitVersionString("1.65536.0.0").high, 0x10000u);
    EXPECT_EQ(SplitVersionString("1.131072.0.0").high, 0x30000u);
}

TEST_F(VersionCheck, FourPartsAreNeeded) {
    for (const std::string text : {"9.5", "", "1.2.3", "1.2.3.4.5", "1.2.3.4."}) {
        try {
            static_cast<void>(SplitVersionString(text));
            ADD_FAILURE() << text;
        } catch (const exc::runtime_exc_t& e) {
            EXPECT_EQ(std::string(e.what()), "Failed to parse version string '" + text + "'.");
        }
    }
    EXPECT_THROW(static_cast<void>(SplitVersionString("1..3.4")), exc::runtime_exc_t);
}

TEST_F(VersionCheck, BothEndsAreLogged) {
    system_.process.path = u"C:\\T\\S.exe";
    EXPECT_TRUE(compatible(u"9.5.0.1536"));
    EXPECT_FALSE(compatible(u"1.0.0.0"));
    EXPECT_EQ(system_.log.lines(),
              (std::vector<std::string>{"Checking compatibility with console version:'9.5.0.1536'. Module path: 'C:\\T\\S.exe'.",
                                        "Backup console is 'compatible' with module version: '9.5.0.1536'.",
                                        "Checking compatibility with console version:'1.0.0.0'. Module path: 'C:\\T\\S.exe'.",
                                        "Backup console is 'incompatible' with module version: '9.5.0.1536'."}));
}

TEST_F(VersionCheck, EachStepOfReadingTheVersionHasItsText) {
    const std::pair<platform::version_failure, const char*> cases[] = {
        {platform::version_failure::size_unknown, "Size of the version resource is unknown."},
        {platform::version_failure::read_failed, "GetFileVersionInfo() function call has failed."},
        {platform::version_failure::not_found, "Module version cannot be extracted from the version resource."}};
    system_.process.path = u"C:\\S.exe";
    for (const auto& [failure, text] : cases) {
        system_.process.version.failure = failure;
        system_.process.version_error = 5;
        try {
            static_cast<void>(ReadModuleVersion(system_.process.path));
            ADD_FAILURE() << text;
        } catch (const exc::win_sys_exc_t& e) {
            EXPECT_EQ(std::string(e.what()), "Access is denied.\n" + std::string(text) +
                                                 "\n--tr:Error code: 0x00000005\n--tr:Cannot retrieve the version of the specified "
                                                 "module. Module path: [C:\\S.exe].");
        }
    }
}

TEST_F(VersionCheck, TestCompatibleAnswersAndFailsAsTheCheckDoes) {
    EXPECT_EQ(call("TestCompatible", "<backupConsoleVersion value=\"9.5.0.1536\" />").output,
              "<OutputArguments><isCompatible value=\"true\" /></OutputArguments>");
    EXPECT_EQ(call("TestCompatible", "<backupConsoleVersion value=\"9.5.0.1535\" />").output,
              "<OutputArguments><isCompatible value=\"false\" /></OutputArguments>");
    EXPECT_EQ(call("TestCompatible", "<backupConsoleVersion value=\"9.5\" />").error, "Failed to parse version string '9.5'.");
    EXPECT_TRUE(system_.log.has_line("tap| Testing compatible Failed."));
}

}  // namespace
