#include <gtest/gtest.h>

#include <latch>
#include <map>
#include <thread>

#include "support/library_fixture.h"

namespace {

using test_support::call_answer;
using test_support::LibraryFixture;

/// The record document in an output value.
winxml::node_t record_in(const call_answer& answer, const std::string& name, winxml::document_t& record) {
    EXPECT_TRUE(answer.success) << answer.error;
    const winxml::document_t output = winxml::parse_xml(text::utf8_to_wide(answer.output.value_or("")));
    const winxml::node_t element = winxml::get_element(winxml::get_element(winxml::document_node(output), "OutputArguments"), name);
    record = winxml::parse_xml(text::utf8_to_wide(winxml::get_attribute(element, "value")));
    return winxml::get_element(winxml::document_node(record), name);
}

class ChangerProcedures : public LibraryFixture {
protected:
    /// Where each cartridge is: "slot 3", "drive 0", "port 1", by bar code.
    std::map<std::string, std::string> cartridges() {
        std::map<std::string, std::string> places;
        const std::pair<const char*, const char*> lists[] = {{"2", "slot "}, {"3", "port "}, {"4", "drive "}};
        for (const auto& [type, place] : lists) {
            winxml::document_t record;
            const call_answer answer = changer_call(
                "GetElementsStatuses",
                "<ElementAddress value=\"0\" /><ElementsCount value=\"100\" /><ElementType value=\"" + std::string(type) + "\" />");
            for (const winxml::node_t& element : winxml::child_elements(record_in(answer, "ElementsStatuses", record))) {
                const std::string code = winxml::get_attribute(element, "PrimaryVolumeID");
                if (!code.empty()) {
                    places[code] = place + winxml::get_attribute(winxml::get_element(element, "Element"), "ElementAddress");
                }
            }
        }
        return places;
    }

    static std::string numbers(const std::string& first, int first_value, const std::string& second, int second_value) {
        return "<" + first + " value=\"" + std::to_string(first_value) + "\" /><" + second + " value=\"" +
               std::to_string(second_value) + "\" />";
    }
};

TEST_F(ChangerProcedures, WithoutChangersTheListIsEmpty) {
    plug_in({});
    EXPECT_EQ(owner_call("GetChangers").output, "<OutputArguments><Changers value=\"&lt;Changers /&gt;\" /></OutputArguments>");
    EXPECT_EQ(owner_call("GetAllChangers").output, "<OutputArguments><Changers value=\"&lt;Changers /&gt;\" /></OutputArguments>");
}

TEST_F(ChangerProcedures, TheListTellsOfEachChanger) {
    plug_in({{}, {.serial = "TRNLIB0002"}});
    winxml::document_t record;
    const std::vector<winxml::node_t> changers = winxml::child_elements(record_in(owner_call("GetChangers"), "Changers", record));
    ASSERT_EQ(changers.size(), 2u);
    EXPECT_EQ(winxml::get_attribute(changers[0], "DeviceName"), "Changer0");
    EXPECT_EQ(winxml::get_attribute(changers[1], "SymbolicLink"), "\\\\.\\Changer1");
    std::vector<std::string> children;
    for (const winxml::node_t& child : winxml::child_elements(changers[1])) {
        children.push_back(winxml::element_name(child));
    }
    EXPECT_EQ(children, (std::vector<std::string>{"Address", "Data", "Parameters"}));
    EXPECT_EQ(winxml::get_attribute(winxml::get_element(changers[1], "Data"), "SerialNumber"), "TRNLIB0002");
    EXPECT_EQ(winxml::get_attribute(winxml::get_element(changers[0], "Parameters"), "NumberStorageElements"), "24");
}

TEST_F(ChangerProcedures, OneChangerIsTheSameRecordAsInTheList) {
    plug_in({{}});
    winxml::document_t list;
    winxml::document_t one;
    const winxml::node_t listed = winxml::child_elements(record_in(owner_call("GetChangers"), "Changers", list)).at(0);
    EXPECT_EQ(winxml::serialize_xml(record_in(changer_call("GetChanger"), "Changer", one)), winxml::serialize_xml(listed));
}

TEST_F(ChangerProcedures, AChangerThatIsNotThereIsToldInTheResult) {
    plug_in({});
    const call_answer answer = changer_call("GetChanger");
    EXPECT_TRUE(answer.success);
    EXPECT_NE(answer.output->find("<Error value="), std::string::npos);
    EXPECT_NE(answer.output->find("Could not find or open changer &amp;#39;"), std::string::npos) << *answer.output;
    EXPECT_EQ(answer.output->find("<Changer "), std::string::npos);
    EXPECT_TRUE(system_.log.has_line("tap| Getting changer Failed."));
}

TEST_F(ChangerProcedures, AChangerThatFailsKeepsToItsOwnEntry) {
    plug_in({{}});
    const std::string path = "HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port 0\\Scsi Bus 0\\Target Id 9\\Logical Unit Id 0";
    system_.registry.set_string(path, "Type", "MediumChangerPeripheral");
    system_.registry.set_string(path, "DeviceName", "Changer7");
    winxml::document_t record;
    const std::vector<winxml::node_t> changers = winxml::child_elements(record_in(owner_call("GetChangers"), "Changers", record));
    ASSERT_EQ(changers.size(), 2u);
    for (const winxml::node_t& changer : changers) {
        const bool missing = winxml::get_attribute(changer, "SymbolicLink") == "\\\\.\\Changer7";
        EXPECT_EQ(winxml::child_elements(changer).empty(), missing);
        if (missing) {
            EXPECT_EQ(winxml::get_attribute(changer, "Error").find("<Error><ApiFunctionName>"), 0u);
        }
    }
}

/// Whatever asks the first library for a mode page, as the parameters do, hears of a broken unit.
constexpr char refused_mode_pages[] =
    "<faults><fault kind=\"sense\" opcodes=\"0x1A 0x5A\" times=\"0\" key=\"4\" asc=\"0x44\" ascq=\"0\"/></faults>";
constexpr char first_part_of_changer[] =
    "<Changer DeviceName=\"Changer0\" SymbolicLink=\"\\\\.\\Changer0\" NoDriver=\"false\"><Address Lun=\"0\" TargetId=\"0\" "
    "PathId=\"0\" "
    "PortNumber=\"0\" /><Data SerialNumber=\"TRNLIB0001\" ";

TEST_F(ChangerProcedures, AChangerThatFailsHalfWayIsToldAsFarAsItWasRead) {
    plug_in({{}});
    system_.files.put("C:\\library0\\faults.xml", refused_mode_pages);
    const call_answer answer = changer_call("GetChanger");
    ASSERT_TRUE(answer.success) << answer.error;
    const winxml::document_t output = winxml::parse_xml(text::utf8_to_wide(*answer.output));
    const winxml::node_t arguments = winxml::get_element(winxml::document_node(output), "OutputArguments");
    ASSERT_EQ(winxml::child_elements(arguments).size(), 1u);
    const std::string error = winxml::get_attribute(winxml::get_element(arguments, "Error"), "value");
    const std::string start = std::string("Problem with gathering data in \\\\.\\Changer0. We have ") + first_part_of_changer;
    EXPECT_EQ(error.substr(0, start.size()), start);
    EXPECT_TRUE(error.ends_with(" /></Changer>")) << error;
    EXPECT_FALSE(system_.log.has_line("tap| Getting changer Failed."));
}

TEST_F(ChangerProcedures, AnEntryThatFailsHalfWayBearsTheErrorBesideWhatWasRead) {
    plug_in({{}, {.serial = "TRNLIB0002"}});
    system_.files.put("C:\\library0\\faults.xml", refused_mode_pages);
    winxml::document_t record;
    const std::vector<winxml::node_t> changers = winxml::child_elements(record_in(owner_call("GetChangers"), "Changers", record));
    ASSERT_EQ(changers.size(), 2u);
    EXPECT_EQ(winxml::get_attribute(changers[0], "SymbolicLink"), "\\\\.\\Changer0");
    const std::string error = winxml::get_attribute(changers[0], "Error");
    EXPECT_NE(error.find("DeviceIoControl(ChangerGetParameters) in '"), std::string::npos) << error;
    EXPECT_EQ(error.find("<Error>"), std::string::npos);
    EXPECT_TRUE(winxml::find_element(changers[1], "Parameters"));
}

TEST_F(ChangerProcedures, AMissingNumberIsToldBeforeAnyDeviceIsTouched) {
    const call_answer answer = changer_call("LoadMedium", "<SlotNum value=\"0\" />");
    EXPECT_EQ(
        answer.error,
        "Value of the argument 'DriveNum' is not defined.\n--tr:Failed to retrieve value of the integer attribute 'DriveNum'.");
    EXPECT_TRUE(system_.devices.requests().empty());
    EXPECT_TRUE(system_.log.has_line("tap| Loading medium Failed."));
}

struct scope_case {
    const char* procedure;
    const char* scope;
    const char* first_missing;
};

TEST_F(ChangerProcedures, EachProcedureNamesItselfAndReadsItsArgumentsInOrder) {
    const scope_case cases[] = {{"GetChanger", "Getting changer", "SymLinkName"},
                                {"GetSlotsStatuses", "Getting slots statuses", "SymLinkName"},
                                {"GetIEPortsStatuses", "Getting IE statuses", "SymLinkName"},
                                {"GetElementsStatuses", "Getting Elements statuses", "SymLinkName"},
                                {"LoadMedium", "Loading medium", "SymLinkName"},
                                {"MoveToSlot", "Moving to slot", "SymLinkName"},
                                {"UnloadMedium", "Unloading medium", "SymLinkName"},
                                {"FromDriveToIEPort", "Moving from drive to IEPort", "SymLinkName"},
                                {"FromSlotToIEPort", "Moving from slot to IEPort", "SymLinkName"},
                                {"FromIEPortToSlot", "Moving from IEPort to slot", "SymLinkName"}};
    for (const scope_case& one : cases) {
        for (const std::string suffix : {"", "ByScsi"}) {
            system_.log.clear();
            EXPECT_NE(owner_call(one.procedure + suffix).error.find("Value of the argument 'SymLinkName' is not defined."),
                      std::string::npos)
                << one.procedure;
            EXPECT_TRUE(system_.log.has_line("tap| " + std::string(one.scope) + " Failed."));
        }
    }
    const std::pair<const char*, const char*> second[] = {{"LoadMedium", "SlotNum"},       {"MoveToSlot", "SourceSlotNum"},
                                                          {"UnloadMedium", "SlotNum"},     {"FromDriveToIEPort", "DriveNum"},
                                                          {"FromSlotToIEPort", "SlotNum"}, {"FromIEPortToSlot", "SlotNum"}};
    for (const auto& [procedure, argument] : second) {
        EXPECT_NE(changer_call(procedure).error.find("Value of the argument '" + std::string(argument) + "' is not defined."),
                  std::string::npos);
    }
    const std::pair<const char*, const char*> third[] = {
        {"LoadMedium", "<SlotNum value=\"0\" />"},       {"MoveToSlot", "<SourceSlotNum value=\"0\" />"},
        {"UnloadMedium", "<SlotNum value=\"0\" />"},     {"FromDriveToIEPort", "<DriveNum value=\"0\" />"},
        {"FromSlotToIEPort", "<SlotNum value=\"0\" />"}, {"FromIEPortToSlot", "<SlotNum value=\"0\" />"}};
    const char* last[] = {"DriveNum", "destinationSlotNum", "DriveNum", "IEPortNum", "IEPortNum", "IEPortNum"};
    for (std::size_t index = 0; index < std::size(third); ++index) {
        EXPECT_NE(changer_call(third[index].first, third[index].second)
                      .error.find("Value of the argument '" + std::string(last[index]) + "' is not defined."),
                  std::string::npos);
    }
}

TEST_F(ChangerProcedures, ASuccessfulProcedureEndsWithoutALine) {
    plug_in({{}});
    EXPECT_TRUE(changer_call("GetSlotsStatuses").success);
    EXPECT_TRUE(system_.log.has_line("tap| Getting slots statuses"));
    EXPECT_FALSE(system_.log.has_line("Getting slots statuses ok."));
}

TEST_F(ChangerProcedures, SlotsAndPortsAreListed) {
    plug_in({{}});
    winxml::document_t record;
    const winxml::node_t slots = record_in(changer_call("GetSlotsStatuses"), "SlotsStatuses", record);
    EXPECT_EQ(winxml::child_elements(slots).size(), 24u);
    EXPECT_EQ(winxml::get_attribute(slots, "DeviceName"), "Changer0");
    const winxml::node_t third = winxml::child_elements(slots)[2];
    EXPECT_EQ(winxml::element_name(third), "SlotStatus");
    EXPECT_EQ(winxml::get_attribute(third, "PrimaryVolumeID"), "TRN003L8");
    const winxml::node_t ports = record_in(changer_call("GetIEPortsStatuses"), "IEPortsStatuses", record);
    EXPECT_EQ(winxml::child_elements(ports).size(), 2u);
    EXPECT_EQ(winxml::element_name(winxml::child_elements(ports)[0]), "IEPortStatus");
}

TEST_F(ChangerProcedures, ARangeWithoutElementsHasTheIdentityOnly) {
    plug_in({{}});
    winxml::document_t record;
    const winxml::node_t list =
        record_in(changer_call("GetElementsStatuses",
                               "<ElementAddress value=\"0\" /><ElementsCount value=\"0\" /><ElementType value=\"2\" />"),
                  "ElementsStatuses", record);
    EXPECT_TRUE(winxml::child_elements(list).empty());
    EXPECT_EQ(winxml::get_attribute(list, "NoDriver"), "false");
}

TEST_F(ChangerProcedures, ARangeBehindTheLastElementIsRefused) {
    plug_in({{}});
    const call_answer answer = changer_call(
        "GetElementsStatuses", "<ElementAddress value=\"25\" /><ElementsCount value=\"1\" /><ElementType value=\"2\" />");
    EXPECT_FALSE(answer.success);
    EXPECT_NE(answer.error.find("Incorrect first element number. Elements adds = 25, Max count = 24"), std::string::npos);
}

TEST_F(ChangerProcedures, EveryMoveArrives) {
    for (const std::string suffix : {"", "ByScsi"}) {
        plug_in({{}});
        EXPECT_TRUE(changer_call("LoadMedium" + suffix, numbers("SlotNum", 2, "DriveNum", 1)).success);
        EXPECT_EQ(cartridges()["TRN003L8"], "drive 1");
        EXPECT_EQ(changer_call("UnloadMedium" + suffix, numbers("SlotNum", 22, "DriveNum", 1)).output, "<OutputArguments />");
        EXPECT_EQ(cartridges()["TRN003L8"], "slot 22");
        EXPECT_TRUE(changer_call("MoveToSlot" + suffix, numbers("SourceSlotNum", 22, "destinationSlotNum", 21)).success);
        EXPECT_EQ(cartridges()["TRN003L8"], "slot 21");
        EXPECT_TRUE(changer_call("FromSlotToIEPort" + suffix, numbers("SlotNum", 21, "IEPortNum", 1)).success);
        EXPECT_EQ(cartridges()["TRN003L8"], "port 1");
        EXPECT_TRUE(changer_call("FromIEPortToSlot" + suffix, numbers("SlotNum", 2, "IEPortNum", 1)).success);
        EXPECT_EQ(cartridges()["TRN003L8"], "slot 2");
        EXPECT_TRUE(changer_call("LoadMedium" + suffix, numbers("SlotNum", 0, "DriveNum", 0)).success);
        EXPECT_TRUE(changer_call("FromDriveToIEPort" + suffix, numbers("DriveNum", 0, "IEPortNum", 0)).success);
        EXPECT_EQ(cartridges()["TRN001L8"], "port 0");
    }
}

TEST_F(ChangerProcedures, ArgumentsGoByName) {
    plug_in({{}});
    EXPECT_TRUE(changer_call("LoadMedium", numbers("DriveNum", 1, "SlotNum", 2)).success);
    EXPECT_TRUE(changer_call("UnloadMedium", numbers("DriveNum", 1, "SlotNum", 3 + 18)).success);
    EXPECT_EQ(cartridges()["TRN003L8"], "slot 21");
}

TEST_F(ChangerProcedures, BothNamesGiveTheSameSlots) {
    plug_in({{}});
    EXPECT_EQ(changer_call("GetSlotsStatuses").output, changer_call("GetSlotsStatusesByScsi").output);
}

TEST_F(ChangerProcedures, TheSettingSendsEveryProcedureToTheScsiBackend) {
    plug_in({{}});
    const call_answer by_scsi = owner_call("GetAllChangers");
    gEnableScsiChanger = true;
    system_.log.clear();
    EXPECT_EQ(owner_call("GetChangers").output, by_scsi.output);
    EXPECT_FALSE(system_.log.has_line("Work with drivers."));
}

TEST_F(ChangerProcedures, ADriverlessChangerIsFoundByTheScsiNamesOnly) {
    plug_in({{}}, {"TRNLIB0001"});
    EXPECT_EQ(owner_call("GetChangers").output, "<OutputArguments><Changers value=\"&lt;Changers /&gt;\" /></OutputArguments>");
    winxml::document_t record;
    const std::vector<winxml::node_t> changers =
        winxml::child_elements(record_in(owner_call("GetAllChangers"), "Changers", record));
    ASSERT_EQ(changers.size(), 1u);
    EXPECT_EQ(winxml::get_attribute(changers[0], "NoDriver"), "true");
    EXPECT_EQ(winxml::get_attribute(changers[0], "SymbolicLink"), "\\\\.\\unknownChanger00");
    EXPECT_EQ(winxml::get_attribute(changers[0], "DeviceName"), "Changer100");
    const std::string link = "<SymLinkName value=\"\\\\.\\unknownChanger00\" />";
    const auto slots = [&] { return owner_call("GetSlotsStatusesByScsi", link).output.value_or("no output"); };
    EXPECT_NE(slots().find("TRN003L8"), std::string::npos);
    EXPECT_TRUE(owner_call("LoadMediumByScsi", link + numbers("SlotNum", 2, "DriveNum", 1)).success);
    EXPECT_NE(slots().find("TRN001L8"), std::string::npos);
    EXPECT_EQ(slots().find("TRN003L8"), std::string::npos);
    EXPECT_TRUE(owner_call("UnloadMediumByScsi", link + numbers("SlotNum", 22, "DriveNum", 1)).success);
    EXPECT_NE(slots().find("TRN003L8"), std::string::npos);
    // Without the class driver only the robot's own commands are understood.
    EXPECT_FALSE(owner_call("GetSlotsStatuses", link).success);
}

TEST_F(ChangerProcedures, ARubbishBarCodeCostsNobodyTheInventory) {
    plug_in({{.slots = 3, .cartridges = 2, .barcode = "&#x<\"'"}});
    winxml::document_t record;
    const std::vector<winxml::node_t> slots =
        winxml::child_elements(record_in(changer_call("GetSlotsStatuses"), "SlotsStatuses", record));
    ASSERT_EQ(slots.size(), 3u);
    EXPECT_EQ(winxml::get_attribute(slots[0], "PrimaryVolumeID"), "&#x<\"'001L8");
}

// Turns.

TEST_F(ChangerProcedures, CallsForOneChangerTakeTurns) {
    plug_in({{}});
    const auto robot = context_->GetDeviceMutex("\\\\.\\Changer0");
    std::atomic<bool> answered{false};
    std::latch calling(1);
    std::thread waiting;
    {
        const boost::mutex::scoped_lock move(*robot);
        waiting = std::thread([&] {
            calling.count_down();
            const call_answer list = owner_call("GetChangers");
            EXPECT_TRUE(list.success);
            EXPECT_EQ(list.output.value_or("").find("Error="), std::string::npos);
            answered = true;
        });
        calling.wait();
        // A procedure without a changer goes on meanwhile; the list waits for the robot.
        EXPECT_TRUE(call("EnumLocks").success);
        EXPECT_FALSE(answered);
    }
    waiting.join();
    EXPECT_TRUE(answered);
}

TEST_F(ChangerProcedures, TwoChangersWorkSideBySide) {
    plug_in({{}, {.serial = "TRNLIB0002"}});
    const auto first = context_->GetDeviceMutex("\\\\.\\Changer0");
    const boost::mutex::scoped_lock move(*first);
    EXPECT_TRUE(
        owner_call("LoadMedium", "<SymLinkName value=\"\\\\.\\Changer1\" />" + numbers("SlotNum", 0, "DriveNum", 0)).success);
}

TEST_F(ChangerProcedures, AFailedCallLeavesTheChangerFree) {
    plug_in({{}});
    gUserSlotPortion = 50;
    EXPECT_FALSE(changer_call("LoadMedium", numbers("SlotNum", 23, "DriveNum", 0)).success);
    const auto mutex = context_->GetDeviceMutex("\\\\.\\Changer0");
    EXPECT_TRUE(mutex->try_lock());
    mutex->unlock();
    EXPECT_TRUE(changer_call("GetSlotsStatuses").success);
}

TEST_F(ChangerProcedures, ManyCallsAtOnceLoseNothing) {
    plug_in({{}});
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&, index] {
            for (int round = 0; round < 5; ++round) {
                const int from = round % 2 == 0 ? index : 20 + index;
                const int to = round % 2 == 0 ? 20 + index : index;
                EXPECT_TRUE(changer_call("MoveToSlot", numbers("SourceSlotNum", from, "destinationSlotNum", to)).success);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(cartridges().size(), 20u);
    EXPECT_EQ(cartridges()["TRN001L8"], "slot 20");
}

}  // namespace
