#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "command/erase_worker.h"
#include "support/library_fixture.h"

namespace {

using test_support::call_answer;
using test_support::LibraryFixture;

/// The drive procedures down to the drives of a virtual library.
class DrivesOverLibrary : public LibraryFixture {
protected:
    /// A library with a threaded cartridge in each of its drives.
    void plug_in_loaded_drives(std::uint16_t count) {
        plug_in({{.slots = count, .drives = count, .cartridges = count}});
        for (std::uint16_t number = 0; number < count; ++number) {
            const std::string digits = std::to_string(number);
            ASSERT_TRUE(
                changer_call("LoadMedium", "<SlotNum value=\"" + digits + "\" /><DriveNum value=\"" + digits + "\" />").success);
            ASSERT_TRUE(drive_call(number, "PrepareTape", "<OperationNum value=\"0\" />").success);
        }
    }

    call_answer drive_call(unsigned number, const std::string& procedure, const std::string& arguments = "") {
        return owner_call(procedure, "<SymLinkName value=\"\\\\.\\Tape" + std::to_string(number) + "\" />" + arguments);
    }

    static std::string output_value(const call_answer& answer, const std::string& name) {
        EXPECT_TRUE(answer.success) << answer.error;
        const winxml::document_t output = winxml::parse_xml(text::utf8_to_wide(answer.output.value_or("<none />")));
        const winxml::node_t root = winxml::get_element(winxml::document_node(output), "OutputArguments");
        return winxml::get_attribute(winxml::get_element(root, name), "value");
    }

    std::string task_status(const std::string& id) {
        return output_value(owner_call("TaskStatus", "<TaskID value=\"" + id + "\" />"), "TaskStatus");
    }

    static void await_threads() {
        while (EraseThreadsRunning()) {
            std::this_thread::yield();
        }
    }
};

TEST_F(DrivesOverLibrary, TheListTellsOfEachDrive) {
    plug_in({{}});
    EXPECT_EQ(output_value(owner_call("GetDrives"), "Drives"),
              "<Drives><Drive SerialNumber=\"TRNDRV0001\" DeviceName=\"Tape0\" Name=\"TARNO VIRTUAL-LTO8\" "
              "SymbolicLink=\"\\\\.\\Tape0\"><Address Lun=\"1\" TargetId=\"0\" PathId=\"0\" PortNumber=\"0\" />"
              "<BlockSizes DefaultBlockSize=\"0\" MinimumBlockSize=\"1\" MaximumBlockSize=\"8388608\" /></Drive>"
              "<Drive SerialNumber=\"TRNDRV0002\" DeviceName=\"Tape1\" Name=\"TARNO VIRTUAL-LTO8\" "
              "SymbolicLink=\"\\\\.\\Tape1\"><Address Lun=\"2\" TargetId=\"0\" PathId=\"0\" PortNumber=\"0\" />"
              "<BlockSizes DefaultBlockSize=\"0\" MinimumBlockSize=\"1\" MaximumBlockSize=\"8388608\" /></Drive></Drives>");
}

TEST_F(DrivesOverLibrary, AnEmptyDriveIsToldByTheNumber) {
    plug_in({{}});
    EXPECT_EQ(output_value(drive_call(0, "GetDriveError"), "TapeStatus"), "1112");
    EXPECT_TRUE(drive_call(0, "EjectTapeFromStandalone").success);
    for (int operation = 0; operation <= 5; ++operation) {
        EXPECT_TRUE(drive_call(0, "PrepareTape", "<OperationNum value=\"" + std::to_string(operation) + "\" />").success)
            << operation;
    }
}

TEST_F(DrivesOverLibrary, AnErasedTapeIsReadyAndTold) {
    plug_in_loaded_drives(1);
    EXPECT_EQ(output_value(drive_call(0, "GetDriveError"), "TapeStatus"), "0");
    for (const char* long_erasure : {"false", "true"}) {
        const std::string id =
            output_value(drive_call(0, "EraseTape", "<LongErasure value=\"" + std::string(long_erasure) + "\" />"), "TaskID");
        await_threads();
        EXPECT_EQ(task_status(id), "0");
    }
    EXPECT_NE(output_value(drive_call(0, "GetMediaInfo"), "MediaInfo").find("WriteProtected=\"false\" IsWorm=\"false\""),
              std::string::npos);
}

TEST_F(DrivesOverLibrary, AnEmptyDriveCannotBeErased) {
    plug_in({{}});
    const std::string id = output_value(drive_call(0, "EraseTape", "<LongErasure value=\"true\" />"), "TaskID");
    await_threads();
    EXPECT_EQ(task_status(id), "1112");
    EXPECT_EQ(task_status(id), "1112");
}

TEST_F(DrivesOverLibrary, TwoHundredErasesLeaveTheServerAnswering) {
    constexpr std::uint16_t count = 200;
    plug_in_loaded_drives(count);
    std::set<std::string> ids;
    for (unsigned number = 0; number < count; ++number) {
        ids.insert(output_value(drive_call(number, "EraseTape", "<LongErasure value=\"true\" />"), "TaskID"));
        EXPECT_TRUE(call("GetOwnerName").success);
    }
    EXPECT_TRUE(owner_call("GetDrives").success);
    EXPECT_TRUE(changer_call("GetDrivesStatuses").success);
    EXPECT_TRUE(drive_call(7, "GeDriveInfo").success);
    await_threads();
    EXPECT_EQ(ids.size(), count);
    for (const std::string& id : ids) {
        EXPECT_EQ(task_status(id), "0");
    }
}

}  // namespace
