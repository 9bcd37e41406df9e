#include "changer/changer_handle.h"

#include <gtest/gtest.h>

#include "changer/changer_world.h"
#include "foundation/exc/exceptions.h"

namespace {

using namespace changer_tests;
using platform::testing::answer_scsi;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t get_device_number = 0x2D1080;
constexpr std::uint32_t get_address = 0x41018;
constexpr std::uint32_t get_parameters = 0x304000;
constexpr std::uint32_t get_product_data = 0x304008;
constexpr std::uint32_t get_element_status = 0x30C014;
constexpr std::uint32_t query_property = 0x2D1400;
constexpr std::uint32_t pass_through = 0x4D004;

template <typename Record>
bytes raw(const Record& record) {
    const auto data = util::record_bytes(record);
    return {data.begin(), data.end()};
}

bytes raw(const std::vector<CHANGER_ELEMENT_STATUS_EX>& records) {
    bytes all;
    for (const auto& record : records) {
        all = joined({all, raw(record)});
    }
    return all;
}

CHANGER_ELEMENT_STATUS_EX drive(std::uint32_t address, std::string_view serial) {
    CHANGER_ELEMENT_STATUS_EX record;
    record.Element = {ChangerDrive, address};
    record.Flags = platform::ELEMENT_STATUS_PRODUCT_DATA;
    std::copy(serial.begin(), serial.end(), record.SerialNumber);
    return record;
}

struct status_request {
    std::uint32_t type = 0;
    std::uint32_t address = 0;
    std::uint32_t count = 0;
    bool operator==(const status_request&) const = default;
};

void PrintTo(const status_request& request, std::ostream* out) {
    *out << request.type << ":" << request.address << "+" << request.count;
}

class ChangerHandle : public ::testing::Test {
protected:
    std::unique_ptr<CChangerHandle> open(std::uint16_t portion = 50) {
        return std::make_unique<CChangerHandle>(changer_link, portion, world.mutex);
    }
    void answer(std::uint32_t code, std::uint32_t error, bytes output = {}, std::optional<std::uint32_t> returned = {}) {
        world.system.devices.queue_control(code, {error, std::move(output), returned, {}});
    }
    /// Answers status requests from a list of records by address; fails with 1162 behind its end.
    void elements(std::vector<CHANGER_ELEMENT_STATUS_EX> records) {
        world.system.devices.on_control([records](const device_request& request) {
            const auto asked = util::load_record<platform::CHANGER_READ_ELEMENT_STATUS>(request.input);
            const std::size_t end = std::size_t{asked.Element.ElementAddress} + asked.NumberOfElements;
            if (request.code != get_element_status || end > records.size()) {
                return device_answer{1162, {}, {}, {}};
            }
            return device_answer{0,
                                 raw(std::vector(records.begin() + static_cast<std::ptrdiff_t>(asked.Element.ElementAddress),
                                                 records.begin() + static_cast<std::ptrdiff_t>(end))),
                                 {},
                                 {}};
        });
    }
    std::vector<status_request> status_requests() {
        std::vector<status_request> all;
        for (const device_request& request : world.controls(get_element_status)) {
            const auto asked = util::load_record<platform::CHANGER_READ_ELEMENT_STATUS>(request.input);
            all.push_back({asked.Element.ElementType, asked.Element.ElementAddress, asked.NumberOfElements});
        }
        return all;
    }

    changer_tests::world world;
};

TEST_F(ChangerHandle, HoldsTheMutexForItsLife) {
    {
        const auto changer = open();
        EXPECT_FALSE(world.mutex->try_lock());
        EXPECT_EQ(world.system.devices.open_handles(), 1u);
        EXPECT_EQ(changer->GetSymbolicLink(), u"\\\\.\\Changer0");
    }
    EXPECT_TRUE(world.mutex->try_lock());
    world.mutex->unlock();
    EXPECT_EQ(world.system.devices.open_handles(), 0u);
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(ChangerHandle, ReportsAnOpeningThatFailedAndUnlocks) {
    world.system.devices.on_open([&](const std::string&) {
        world.system.clock.advance(3200);
        return std::uint32_t{5};
    });
    try {
        open();
        FAIL();
    } catch (const exc::xml_type_exc_t& e) {
        EXPECT_STREQ(e.what(), "Access is denied.");
        const std::string record =
            "<Error><ApiFunctionName>CreateFile</ApiFunctionName><ServiceMessage>Could not find or open changer "
            "&#39;\\\\.\\Changer0</ServiceMessage><ApiCode>5</ApiCode><ApiMessage>Access is denied.</ApiMessage></Error>";
        EXPECT_EQ(e.xml(), record);
        EXPECT_THAT(world.log(),
                    ElementsAre("tap| ERR |Can not open '\\\\.\\Changer0' device for 3 seconds", "tap| ERR |" + record));
    }
    EXPECT_TRUE(world.mutex->try_lock());
    world.mutex->unlock();
}

TEST_F(ChangerHandle, TellsAnUnusualTimeout) {
    world.set_timeout(120);
    open();
    EXPECT_THAT(world.log(), ElementsAre("tap| Change tape device not ready time out to 120 sec."));
}

TEST_F(ChangerHandle, FallsBackToSixtySeconds) {
    world.system.registry.set_string(tape_key, "TapeDeviceNotReadyTimeoutSec", "120");
    EXPECT_EQ(read_not_ready_timeout(), 60);
    world.set_timeout(0);
    EXPECT_EQ(read_not_ready_timeout(), 0);
    world.set_timeout(0xFFFFFFFF);
    EXPECT_EQ(read_not_ready_timeout(), 4294967295);
    world.system.registry.fail_open(5);
    EXPECT_EQ(read_not_ready_timeout(), 60);
}

TEST_F(ChangerHandle, LogsAClosingThatFailed) {
    auto changer = open();
    world.devices.close_error = 6;
    changer.reset();
    EXPECT_THAT(world.log(), ElementsAre("tap| Cannot close handle for \\\\.\\Changer0"));
    EXPECT_TRUE(world.mutex->try_lock());
    world.mutex->unlock();
}

TEST_F(ChangerHandle, NamesItselfByTheDeviceNumber) {
    answer(get_device_number, 0, raw(platform::STORAGE_DEVICE_NUMBER{0x30, 17, 0}));
    EXPECT_EQ(open()->GetDeviceName(), u"Changer17");
    const auto sent = world.controls(get_device_number);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_TRUE(sent[0].input.empty());
    EXPECT_EQ(sent[0].output_size, 12u);
}

TEST_F(ChangerHandle, RepeatsTheDeviceNumberOnceAfterAMediaChange) {
    const auto changer = open();
    answer(get_device_number, 1110);
    answer(get_device_number, 0, raw(platform::STORAGE_DEVICE_NUMBER{0x30, 2, 0}));
    EXPECT_EQ(changer->GetDeviceName(), u"Changer2");
    answer(get_device_number, 1110);
    answer(get_device_number, 1110);
    try {
        changer->GetDeviceName();
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.code(), 1110u);
        EXPECT_EQ(e.messages().at(1).text,
                  "DeviceIoControl(StorageGetDeviceNumber) in '\\\\.\\Changer0' " + exc::with_error_text(1110));
    }
    answer(get_device_number, 21);
    EXPECT_THROW(changer->GetDeviceName(), exc::win_sys_exc_t);
    EXPECT_EQ(world.controls(get_device_number).size(), 5u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(ChangerHandle, ReadsTheScsiAddress) {
    const auto changer = open();
    answer(get_address, 1110);
    answer(get_address, 0, raw(SCSI_ADDRESS{8, 1, 2, 3, 4}));
    const SCSI_ADDRESS address = changer->GetScsiAddress();
    EXPECT_EQ(address.PortNumber, 1);
    EXPECT_EQ(address.Lun, 4);
    answer(get_address, silent_failure);
    EXPECT_NE(failure_of([&] { changer->GetScsiAddress(); }).find("DeviceIoControl(ScsiGetAddress) in '\\\\.\\Changer0' \n"),
              std::string::npos);
}

TEST_F(ChangerHandle, ReadsTheParametersWithoutRepeat) {
    const auto changer = open();
    GET_CHANGER_PARAMETERS parameters;
    parameters.NumberStorageElements = 24;
    answer(get_parameters, 0, raw(parameters));
    EXPECT_EQ(changer->GetParameters().NumberStorageElements, 24);
    answer(get_parameters, 1110);
    EXPECT_NE(failure_of([&] {
                  changer->GetParameters();
              }).find("DeviceIoControl(ChangerGetParameters) in '\\\\.\\Changer0' with error "),
              std::string::npos);
    EXPECT_EQ(world.controls(get_parameters).size(), 2u);
    EXPECT_EQ(world.controls(get_parameters)[0].output_size, 60u);
}

TEST_F(ChangerHandle, GivesNoProductDataOfAFailingDevice) {
    const auto changer = open();
    CHANGER_PRODUCT_DATA data;
    answer(get_product_data, 0, raw(CHANGER_PRODUCT_DATA{{'V'}, {'P'}, {'1'}, {'S'}, 8}));
    EXPECT_TRUE(changer->GetProductData(data));
    EXPECT_EQ(data.DeviceType, 8);
    data.DeviceType = 9;
    answer(get_product_data, 5);
    EXPECT_FALSE(changer->GetProductData(data));
    EXPECT_EQ(data.DeviceType, 9);
    EXPECT_THAT(world.log(),
                ElementsAre("tap| ERR |DeviceIoControl(ChangerGetProductData) in '\\\\.\\Changer0' with error Access is denied."));
}

TEST_F(ChangerHandle, AsksForItsSerialNumberByPropertyFirst) {
    const auto changer = open();
    answer(query_property, 0,
           joined({{0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}, {2, 0, 0, 0, 1, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0}, text_bytes("V S1")}));
    EXPECT_EQ(changer->GetSerialNumber(), u"S1");
    EXPECT_THAT(world.controls(pass_through), IsEmpty());

    answer(query_property, 0, {});
    world.system.devices.on_control([](const device_request& request) {
        return answer_scsi(request, 0, {}, joined({{8, 0x80, 0, 4}, text_bytes("PAGE")}));
    });
    EXPECT_EQ(changer->GetSerialNumber(), u"PAGE");
}

TEST_F(ChangerHandle, ReadsNothingForACountOfZero) {
    const auto changer = open();
    EXPECT_TRUE(changer->GetElementStatus(0, ChangerSlot, true, 0)->empty());
    EXPECT_TRUE(changer->GetElementStatus(0, ChangerIEPort, true, 0)->empty());
    EXPECT_TRUE(changer->GetElementStatus(0, ChangerDrive, true, 0)->empty());
    EXPECT_THAT(status_requests(), IsEmpty());
}

TEST_F(ChangerHandle, ReadsSlotsByPortions) {
    std::vector<CHANGER_ELEMENT_STATUS_EX> slots(120);
    for (std::uint32_t number = 0; number < slots.size(); ++number) {
        slots[number].Element = {ChangerSlot, number};
    }
    elements(slots);
    const auto changer = open();
    const ElementStatusList records = changer->GetElementStatus(0, ChangerSlot, true, 120);
    ASSERT_EQ(records->size(), 120u);
    EXPECT_EQ((*records)[119].Element.ElementAddress, 119u);
    EXPECT_THAT(status_requests(), ElementsAre(status_request{2, 0, 50}, status_request{2, 50, 50}, status_request{2, 100, 20}));

    world.system.devices.forget_requests();
    EXPECT_EQ(changer->GetElementStatus(0, ChangerSlot, true, 100)->size(), 100u);
    EXPECT_THAT(status_requests(), ElementsAre(status_request{2, 0, 50}, status_request{2, 50, 50}));
}

TEST_F(ChangerHandle, ReadsPortsByTensAndOthersAtOnce) {
    elements(std::vector<CHANGER_ELEMENT_STATUS_EX>(120));
    const auto changer = open();
    EXPECT_EQ(changer->GetElementStatus(1, ChangerIEPort, false, 25)->size(), 25u);
    EXPECT_EQ(changer->GetElementStatus(0, AllElements, false, 120)->size(), 120u);
    EXPECT_EQ(changer->GetElementStatus(0, ChangerTransport, false, 1)->size(), 1u);
    EXPECT_THAT(status_requests(), ElementsAre(status_request{3, 1, 10}, status_request{3, 11, 10}, status_request{3, 21, 5},
                                               status_request{0, 0, 120}, status_request{1, 0, 1}));
}

TEST_F(ChangerHandle, SendsTheStatusRequestByteForByte) {
    elements(std::vector<CHANGER_ELEMENT_STATUS_EX>(10));
    open()->GetElementStatus(7, ChangerSlot, true, 2);
    const auto sent = world.controls(get_element_status);
    EXPECT_EQ(sent.at(0).input, (bytes{2, 0, 0, 0, 7, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(sent.at(0).output_size, 312u);
}

TEST_F(ChangerHandle, ReadsShortRecords) {
    bytes two(200);
    two[0] = 2;
    two[16] = 1;
    two[100] = 2;
    two[104] = 1;
    two[128] = 'T';
    answer(get_element_status, 0, two);
    const ElementStatusList records = open()->GetElementStatus(0, ChangerSlot, true, 2);
    ASSERT_EQ(records->size(), 2u);
    EXPECT_EQ((*records)[0].Flags, platform::ELEMENT_STATUS_FULL);
    EXPECT_EQ((*records)[1].Element.ElementAddress, 1u);
    EXPECT_EQ((*records)[1].PrimaryVolumeID[0], 'T');
    EXPECT_EQ((*records)[1].SerialNumber[0], 0);
}

TEST_F(ChangerHandle, TakesProductDataForTheSignOfLongRecords) {
    CHANGER_ELEMENT_STATUS_EX first;
    first.Flags = platform::ELEMENT_STATUS_PRODUCT_DATA;
    CHANGER_ELEMENT_STATUS_EX second;
    second.Element = {ChangerSlot, 1};
    second.SerialNumber[0] = 'S';
    answer(get_element_status, 0, raw(std::vector{first, second}), 200);
    const ElementStatusList records = open()->GetElementStatus(0, ChangerSlot, true, 2);
    EXPECT_EQ((*records)[1].Element.ElementAddress, 1u);
    EXPECT_EQ((*records)[1].SerialNumber[0], 'S');
}

TEST_F(ChangerHandle, FillsUpWhatTheDriverLeavesOut) {
    answer(get_element_status, 0, raw(std::vector<CHANGER_ELEMENT_STATUS_EX>(1)), 156);
    EXPECT_EQ(open()->GetElementStatus(0, ChangerSlot, true, 3)->size(), 3u);
}

TEST_F(ChangerHandle, DropsADriveWithTheAddressOfTheOneBefore) {
    elements({drive(0, "A"), drive(0, "B"), drive(1, "C")});
    const ElementStatusList records = open()->GetElementStatus(0, ChangerDrive, true, 2);
    ASSERT_EQ(records->size(), 2u);
    EXPECT_EQ((*records)[0].SerialNumber[0], 'A');
    EXPECT_EQ((*records)[1].SerialNumber[0], 'C');
    EXPECT_THAT(status_requests(), ElementsAre(status_request{4, 0, 1}, status_request{4, 1, 1}, status_request{4, 2, 1}));
}

TEST_F(ChangerHandle, DropsADriveWithTheSerialNumberOfTheOneBefore) {
    elements({drive(0, "A"), drive(1, "A"), drive(2, "B"), drive(3, "A")});
    const ElementStatusList records = open()->GetElementStatus(0, ChangerDrive, true, 3);
    ASSERT_EQ(records->size(), 3u);
    EXPECT_EQ((*records)[0].Element.ElementAddress, 0u);
    EXPECT_EQ((*records)[1].Element.ElementAddress, 2u);
    EXPECT_EQ((*records)[2].Element.ElementAddress, 3u);
}

TEST_F(ChangerHandle, RunsOutOfTimeWhenNoDriveHasASerialNumber) {
    world.set_timeout(7);
    elements({drive(0, ""), drive(1, "")});
    const auto changer = open();
    const std::string text = failure_text<exc::win_sys_exc_t>([&] { changer->GetElementStatus(0, ChangerDrive, true, 2); });
    EXPECT_NE(
        text.find("DeviceIoControl(ChangerGetElementStatus) with eAddress = '2' and number = '1', symLink = '\\\\.\\Changer0'"),
        std::string::npos)
        << text;
    EXPECT_TRUE(
        text.ends_with("--tr:Timed out waiting for device ready status on ChangerGetElementStatus operation, element "
                       "'ChangerDrive' "))
        << text;
    EXPECT_EQ(status_requests().size(), 6u);
    EXPECT_THAT(world.sleeps(), ElementsAre(5000, 5000));
}

TEST_F(ChangerHandle, TriesAFailedReadAgainUntilTheTimeoutHasPassed) {
    world.system.devices.on_control([](const device_request&) { return device_answer{21, {}, {}, {}}; });
    const auto changer = open();
    try {
        changer->GetElementStatus(3, ChangerSlot, true, 2);
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.code(), 21u);
        EXPECT_EQ(e.messages().at(1).text,
                  "DeviceIoControl(ChangerGetElementStatus) with eAddress = '3' and number = '2', symLink = '\\\\.\\Changer0'");
        EXPECT_TRUE(e.messages().back().trace);
    }
    // The last try starts at the deadline itself.
    EXPECT_EQ(status_requests().size(), 13u);
    EXPECT_EQ(world.sleeps(), std::vector<std::int64_t>(13, 5000));
    EXPECT_THAT(world.log(), IsEmpty());
    elements(std::vector<CHANGER_ELEMENT_STATUS_EX>(5));
    EXPECT_EQ(changer->GetElementStatus(3, ChangerSlot, true, 2)->size(), 2u);
}

TEST_F(ChangerHandle, MakesOneTryAndOneSleepWithATimeoutOfZero) {
    world.set_timeout(0);
    const auto changer = open();
    EXPECT_THROW(changer->GetElementStatus(0, ChangerSlot, true, 1), exc::win_sys_exc_t);
    EXPECT_EQ(status_requests().size(), 1u);
    EXPECT_THAT(world.sleeps(), ElementsAre(5000));
}

TEST_F(ChangerHandle, StartsOverWithTheFirstPortionAfterAFailure) {
    const bytes fifty = raw(std::vector<CHANGER_ELEMENT_STATUS_EX>(50));
    answer(get_element_status, 0, fifty);
    answer(get_element_status, 1111);
    answer(get_element_status, 0, fifty);
    answer(get_element_status, 0, raw(std::vector<CHANGER_ELEMENT_STATUS_EX>(10)));
    EXPECT_EQ(open()->GetElementStatus(0, ChangerSlot, true, 60)->size(), 60u);
    EXPECT_THAT(status_requests(), ElementsAre(status_request{2, 0, 50}, status_request{2, 50, 10}, status_request{2, 0, 50},
                                               status_request{2, 50, 10}));
    EXPECT_THAT(world.sleeps(), ElementsAre(5000));
}

// --- serial numbers of drives ---

/// An element status answer of drives without volume tags.
bytes drive_status(const std::vector<bytes>& descriptors) {
    const auto length = static_cast<std::uint8_t>(descriptors.empty() ? 0 : descriptors.front().size());
    const auto count = static_cast<std::uint8_t>(descriptors.size());
    bytes answer = {1,
                    0,
                    0,
                    count,
                    0,
                    0,
                    0,
                    0,
                    4,
                    0,
                    0,
                    length,
                    0,
                    0,
                    static_cast<std::uint8_t>(length * count >> 8),
                    static_cast<std::uint8_t>(length * count)};
    for (const bytes& descriptor : descriptors) {
        answer = joined({answer, descriptor});
    }
    return answer;
}

bytes identified(std::uint8_t type, const std::string& text, std::size_t size = 60) {
    return padded(joined({bytes(12), {2, type, 0, static_cast<std::uint8_t>(text.size())}, text_bytes(text)}), size);
}

/// A vendor specific identifier as wide as the field.
std::string blank_padded(std::string text) {
    text.resize(32, ' ');
    return text;
}

ElementStatusList drives(std::initializer_list<const char*> serials) {
    auto list = boost::make_shared<std::vector<CHANGER_ELEMENT_STATUS_EX>>();
    std::uint32_t address = 0;
    for (const char* serial : serials) {
        list->push_back(drive(address++, serial));
    }
    return list;
}

TEST_F(ChangerHandle, NamesSlotsWithoutAQuery) {
    const SerialNameList names = open()->GetSerialNames(drives({"", "X"}), ChangerSlot);
    EXPECT_THAT(*names, ElementsAre("", "X"));
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(ChangerHandle, TakesAllBytesOfASerialFieldWithoutNul) {
    const std::string full(32, 'z');
    EXPECT_THAT(*open()->GetSerialNames(drives({full.c_str()}), ChangerDrive), ElementsAre(full));
}

TEST_F(ChangerHandle, QueriesTheDrivesWithoutASerialNumberOnce) {
    answer(get_parameters, 0, bytes(60));
    world.system.devices.on_control([](const device_request& request) {
        return answer_scsi(
            request, 0, {},
            drive_status({identified(1, "VENDOR  PRODUCT S1  "), identified(0, blank_padded("S2")), identified(1, "S3")}));
    });
    const SerialNameList names = open()->GetSerialNames(drives({"OWN", "", "", ""}), ChangerDrive);
    EXPECT_THAT(*names, ElementsAre("OWN", "S2", "S3", ""));
    EXPECT_THAT(world.log(), ElementsAre("tap| Use Scsi query for '1' element ''", "tap| Find '3' serial names",
                                         "tap| Use Scsi query for '2' element ''", "tap| Use Scsi query for '3' element ''"));
    EXPECT_EQ(world.controls(get_parameters).size(), 1u);
    const auto sent = world.controls(pass_through);
    ASSERT_EQ(sent.size(), 1u);
    const bytes expected = {44, 0, 0, 0, 0,    0, 12, 64, 1,  0, 0, 0, 0xF5, 0xFF, 0, 0,  // 65,525
                            10, 0, 0, 0, 0x30, 1, 0,  0,  48, 0, 0, 0, 0xB8, 4,    0, 1, 1, 0xF4, 1, 1, 0, 0, 0, 0};
    EXPECT_EQ(sent[0].input, padded(expected, 65840));
    EXPECT_EQ(sent[0].output_size, 65829u);
}

TEST_F(ChangerHandle, QueriesAgainWhileTheQueryComesBackEmpty) {
    answer(get_parameters, 0, bytes(60));
    answer(get_parameters, 0, bytes(60));
    world.system.devices.on_control([](const device_request& request) { return answer_scsi(request, 0, {}, drive_status({})); });
    EXPECT_THAT(*open()->GetSerialNames(drives({"", ""}), ChangerDrive), ElementsAre("", ""));
    EXPECT_EQ(world.controls(pass_through).size(), 2u);
}

TEST_F(ChangerHandle, EndsTheQueryWhenTheParametersFail) {
    answer(get_parameters, 1167);
    EXPECT_THROW(open()->GetSerialNames(drives({""}), ChangerDrive), exc::win_sys_exc_t);
    EXPECT_THAT(world.controls(pass_through), IsEmpty());
}

TEST_F(ChangerHandle, QueriesWithoutDeviceIdentifiersAfterACheckCondition) {
    answer(get_parameters, 0, bytes(60));
    world.system.devices.on_control([](const device_request& request) {
        const bool identifiers = platform::testing::cdb_of(request)[6] != 0;
        return identifiers ? answer_scsi(request, 2, fixed_sense(5, 0x24, 0))
                           : answer_scsi(request, 0, {}, drive_status({identified(1, "S1")}));
    });
    EXPECT_THAT(*open()->GetSerialNames(drives({""}), ChangerDrive), ElementsAre("S1"));
    EXPECT_THAT(world.log(), ::testing::Contains("tap| ERR |Scsi error with status of drives 'Fixed format, current;  Sense key: "
                                                 "Illegal Request. Additional sense: Invalid field in cdb'"));
    const auto sent = world.controls(pass_through);
    ASSERT_EQ(sent.size(), 2u);
    bytes second = sent[0].input;
    second[28 + 6] = 0;
    EXPECT_EQ(sent[1].input, second);
}

TEST_F(ChangerHandle, ReportsAQueryThatFails) {
    const auto changer = open();
    answer(get_parameters, 0, bytes(60));
    answer(pass_through, 5);
    std::string text = failure_text<exc::win_sys_exc_t>([&] { changer->GetSerialNames(drives({""}), ChangerDrive); });
    EXPECT_NE(text.find("DeviceIoControl(ScsiPassThrough) in '\\\\.\\Changer0' with error Access is denied."), std::string::npos);

    answer(get_parameters, 0, bytes(60));
    platform::system().errors->set_last_error(0);
    world.system.devices.on_control([](const device_request& request) { return answer_scsi(request, 8, {}); });
    text = failure_text<exc::win_sys_exc_t>([&] { changer->GetSerialNames(drives({""}), ChangerDrive); });
    EXPECT_NE(text.find("Error with status of drives in '\\\\.\\Changer0' . Scsi status '8'"), std::string::npos) << text;
}

class DriveSerialNames : public ::testing::Test {
protected:
    changer_tests::world world;
};

TEST_F(DriveSerialNames, TakeTheLastWordOrTheField) {
    EXPECT_THAT(ParseDriveSerialNames(drive_status(
                    {identified(1, "A B C  "), identified(0, blank_padded("D E")), identified(2, "X"), identified(0x31, "F")})),
                ElementsAre("C", "D E", "F"));
}

TEST_F(DriveSerialNames, SkipPagesWithVolumeTags) {
    bytes data = drive_status({identified(1, "A")});
    data[9] = 0x80;
    EXPECT_THAT(ParseDriveSerialNames(data), IsEmpty());
    EXPECT_THAT(world.log(), ElementsAre("tap| Find '1' serial names"));
}

TEST_F(DriveSerialNames, AreNoneOfAnEmptyAnswer) {
    EXPECT_THAT(ParseDriveSerialNames(bytes(8)), IsEmpty());
    EXPECT_THAT(ParseDriveSerialNames({}), IsEmpty());
}

TEST_F(DriveSerialNames, StayWithinTheDescriptor) {
    bytes first = identified(1, "AAAA", 20);
    first[15] = 200;  // claims more than the descriptor has
    EXPECT_THAT(ParseDriveSerialNames(drive_status({first, identified(1, "BBBB", 20)})), ElementsAre("AAAA", "BBBB"));
}

TEST_F(DriveSerialNames, FailOnLengthsThatCannotBe) {
    bytes zero = drive_status({identified(1, "A")});
    zero[11] = 0;
    EXPECT_THROW(static_cast<void>(ParseDriveSerialNames(zero)), exc::runtime_exc_t);
    bytes more = drive_status({identified(1, "A")});
    more[13] = 0xFF;  // 16 million bytes of descriptors
    EXPECT_THROW(static_cast<void>(ParseDriveSerialNames(more)), std::out_of_range);
    bytes missing = drive_status({identified(1, "A")});
    missing[3] = 2;  // the second one isn't there
    EXPECT_THROW(static_cast<void>(ParseDriveSerialNames(missing)), exc::runtime_exc_t);
}

TEST(ElementTypes, HaveNames) {
    EXPECT_STREQ(ElementTypeName(AllElements), "AllElements");
    EXPECT_STREQ(ElementTypeName(ChangerTransport), "ChangerTransport");
    EXPECT_STREQ(ElementTypeName(ChangerSlot), "ChangerSlot");
    EXPECT_STREQ(ElementTypeName(ChangerIEPort), "ChangerIEPort");
    EXPECT_STREQ(ElementTypeName(ChangerDrive), "ChangerDrive");
    EXPECT_STREQ(ElementTypeName(static_cast<ELEMENT_TYPE>(5)), "");
}

}  // namespace
