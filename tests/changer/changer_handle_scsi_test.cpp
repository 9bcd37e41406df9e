#include "changer/changer_handle_scsi.h"

#include <gtest/gtest.h>

#include <functional>

#include "changer/changer_handle.h"
#include "changer/changer_world.h"
#include "changer/element_status_bytes.h"
#include "foundation/exc/exceptions.h"

namespace {

using namespace changer_tests;
using platform::testing::answer_scsi;
using platform::testing::cdb_of;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t get_device_number = 0x2D1080;
constexpr std::uint32_t get_address = 0x41018;
constexpr std::uint32_t direct_code = 0x4D014;
constexpr std::uint32_t pass_through = 0x4D004;

const bytes assignment = {23, 0, 0, 0, 0x1D, 18, 0, 0, 0, 1, 0x10, 0, 0, 24, 0, 0x10, 0, 2, 1, 0, 0, 2, 0, 0};

const std::string port_accessed =
    " [MT]SCSI PASS THROUGH DIRECT ended with Scsi Error Fixed format, current;  Sense key: Unit Attention. "
    "Additional sense: Import or export element accessed";

using scsi_handler = std::function<device_answer(const device_request&, const bytes& cdb)>;

class ChangerHandleScsi : public ::testing::Test {
protected:
    /// Serves commands; MODE SENSE of the address assignment is answered unless the handler is to see it.
    void serve(scsi_handler handler, bool assignments_too = false) {
        world.system.devices.on_direct([=](const device_request& request) {
            const bytes cdb = cdb_of(request);
            if (!assignments_too && cdb.at(0) == 0x1A && cdb.at(2) == 0x1D) {
                return answer_scsi(request, 0, {}, assignment);
            }
            return handler(request, cdb);
        });
    }
    /// Answers element status commands with these bytes, one after the other; the last one again and again.
    void serve_status(std::vector<bytes> answers) {
        const auto next = std::make_shared<std::size_t>(0);
        serve([=](const device_request& request, const bytes&) {
            return answer_scsi(request, 0, {}, answers.at(std::min((*next)++, answers.size() - 1)));
        });
    }
    std::unique_ptr<CChangerHandleScsi> open(std::uint16_t portion = 50) {
        auto changer = std::make_unique<CChangerHandleScsi>(changer_link, portion, world.mutex);
        world.system.devices.forget_requests();
        return changer;
    }
    std::vector<bytes> cdbs() {
        std::vector<bytes> all;
        for (const device_request& request : world.controls(direct_code)) {
            all.push_back(cdb_of(request));
        }
        return all;
    }

    changer_tests::world world;
};

device_answer refuse(const device_request& request, const bytes&) {
    return answer_scsi(request, 2, fixed_sense(5, 0x24, 0));
}

bytes one_drive(const drive_bytes& drive) {
    return element_status({{ChangerDrive, drive.tagged, {drive.descriptor(drive.tagged ? 86 : 50)}}});
}

bytes read_cdb(std::uint8_t type, std::uint16_t start, std::uint8_t count, std::uint8_t identifiers) {
    return joined(
        {{0xB8, static_cast<std::uint8_t>(0x10 | type)}, big_endian(start, 2), {0, count, identifiers, 0, 0x0F, 0, 0, 0}});
}

TEST_F(ChangerHandleScsi, ReadsTheAddressMapAtConstruction) {
    serve(refuse);
    CChangerHandleScsi changer(changer_link, 50, world.mutex);
    const auto sent = world.controls(direct_code);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(cdb_of(sent[0]), (bytes{0x1A, 0x08, 0x1D, 0x00, 0x18, 0x00}));
    EXPECT_EQ(sent[0].output_size, 32u);
    EXPECT_FALSE(world.mutex->try_lock());
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(ChangerHandleScsi, TellsAnUnusualTimeoutAfterItsConstruction) {
    world.set_timeout(10);
    serve(refuse);
    open();
    EXPECT_THAT(world.log(), ElementsAre("tap| Change tape device not ready time out to 10 sec."));
}

TEST_F(ChangerHandleScsi, ReportsAnOpeningThatFailed) {
    world.system.devices.remove_device(changer_link);
    try {
        open();
        FAIL();
    } catch (const exc::xml_type_exc_t& e) {
        EXPECT_NE(e.xml().find("<ServiceMessage>Could not find or open scsi-changer &#39;\\\\.\\Changer0</ServiceMessage>"),
                  std::string::npos);
    }
    EXPECT_TRUE(world.mutex->try_lock());
    world.mutex->unlock();
}

TEST_F(ChangerHandleScsi, WaitsOutAnOpenPortWithGrowingPauses) {
    int left = 2;
    serve(
        [&](const device_request& request, const bytes&) {
            return left-- > 0 ? answer_scsi(request, 2, fixed_sense(6, 0x28, 1)) : answer_scsi(request, 0, {}, assignment);
        },
        true);
    const auto changer = open();
    EXPECT_THAT(world.sleeps(), ElementsAre(20000, 40000));
    EXPECT_THAT(world.log(), ElementsAre("tap| Sleep after problem with ie-port on 20 seconds",
                                         "tap| Sleep after problem with ie-port on 40 seconds"));
}

TEST_F(ChangerHandleScsi, GivesUpOnAPortThatStaysOpen) {
    serve([&](const device_request& request, const bytes&) { return answer_scsi(request, 2, fixed_sense(6, 0x28, 1)); }, true);
    platform::system().errors->set_last_error(0);
    const std::string text = failure_text<exc::win_sys_exc_t>([&] { open(); });
    EXPECT_NE(text.find("Cannot initialize Changer \\\\.\\Changer0. " + port_accessed), std::string::npos) << text;
    EXPECT_THAT(world.sleeps(), ElementsAre(20000, 40000, 60000));
    EXPECT_EQ(world.controls(direct_code).size(), 4u);
    EXPECT_EQ(world.system.devices.open_handles(), 0u);
    EXPECT_TRUE(world.mutex->try_lock());
    world.mutex->unlock();
}

TEST_F(ChangerHandleScsi, DoesNotWaitForAPortLongerThanTheTimeout) {
    world.set_timeout(19);
    serve([&](const device_request& request, const bytes&) { return answer_scsi(request, 2, fixed_sense(6, 0x28, 1)); }, true);
    EXPECT_THROW(open(), exc::win_sys_exc_t);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(ChangerHandleScsi, GivesUpAtOnceOnOtherFailures) {
    serve([&](const device_request&, const bytes&) { return device_answer{1117, {}, {}, {}}; }, true);
    try {
        open();
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.code(), 1117u);
    }
    EXPECT_THAT(world.sleeps(), IsEmpty());
    EXPECT_EQ(world.system.devices.open_handles(), 0u);
}

TEST_F(ChangerHandleScsi, OpensWithoutAMapAndFailsLater) {
    world.set_timeout(0);
    serve([&](const device_request& request, const bytes&) { return answer_scsi(request, 0, {}, bytes(24)); }, true);
    const auto changer = open();
    EXPECT_EQ(failure_text<std::out_of_range>([&] { changer->GetParameters(); }), "invalid vector<T> subscript");
    const std::string text = failure_text<exc::runtime_exc_t>([&] { changer->GetElementStatus(0, ChangerSlot, true, 1); });
    EXPECT_TRUE(
        text.starts_with("invalid vector<T> subscript\n--tr:Timed out waiting for device ready status on "
                         "ChangerGetElementStatus operation, element 'ChangerSlot' "))
        << text;
}

TEST_F(ChangerHandleScsi, LogsAClosingThatFailed) {
    serve(refuse);
    auto changer = open();
    world.devices.close_error = 6;
    changer.reset();
    EXPECT_THAT(world.log(), ElementsAre("tap| Cannot close handle for \\\\.\\Changer0 on scsi"));
}

TEST_F(ChangerHandleScsi, NamesItselfByItsTargetWithoutAClassDriver) {
    serve(refuse);
    const auto changer = open();
    const SCSI_ADDRESS address_record{8, 0, 0, 5, 0};
    const auto address = util::record_bytes(address_record);
    world.system.devices.queue_control(get_device_number, {1110, {}, {}, {}});
    world.system.devices.queue_control(get_device_number, {1, {}, {}, {}});
    world.system.devices.queue_control(get_address, {0, {address.begin(), address.end()}, {}, {}});
    EXPECT_EQ(changer->GetDeviceName(), u"Changer105");

    world.system.devices.queue_control(get_device_number, {5, {}, {}, {}});
    EXPECT_NE(failure_text<exc::win_sys_exc_t>([&] {
                  changer->GetDeviceName();
              }).find("DeviceIoControl(StorageGetDeviceNumber) in '\\\\.\\Changer0' with error Access is denied."),
              std::string::npos);
    const platform::STORAGE_DEVICE_NUMBER number_record{0x30, 3, 0};
    const auto number = util::record_bytes(number_record);
    world.system.devices.queue_control(get_device_number, {0, {number.begin(), number.end()}, {}, {}});
    EXPECT_EQ(changer->GetDeviceName(), u"Changer3");
}

TEST_F(ChangerHandleScsi, LeavesTheErrorTextOutOfAFailedAddress) {
    serve(refuse);
    const auto changer = open();
    world.system.devices.queue_control(get_address, {5, {}, {}, {}});
    try {
        changer->GetScsiAddress();
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.messages().at(1).text, "DeviceIoControl(ScsiGetAddress) in '\\\\.\\Changer0'");
    }
}

TEST_F(ChangerHandleScsi, MakesParametersOfMapAndCapabilities) {
    serve([&](const device_request& request, const bytes&) {
        return answer_scsi(request, 0, {}, bytes{23, 0, 0, 0, 0x1F, 18, 0x0E, 0, 1, 2, 3, 4});
    });
    const auto changer = open();
    const GET_CHANGER_PARAMETERS parameters = changer->GetParameters();
    EXPECT_EQ(parameters.Size, 0u);
    EXPECT_EQ(parameters.NumberTransportElements, 1);
    EXPECT_EQ(parameters.NumberStorageElements, 24);
    EXPECT_EQ(parameters.NumberIEElements, 2);
    EXPECT_EQ(parameters.NumberDataTransferElements, 2);
    EXPECT_EQ(parameters.FirstTransportNumber, 0);
    EXPECT_EQ(parameters.FirstSlotNumber, 0x1000);
    EXPECT_EQ(parameters.FirstIEPortNumber, 0x10);
    EXPECT_EQ(parameters.FirstDriveNumber, 0x100);
    EXPECT_EQ(parameters.PositionCapabilities, 0x0E);
    EXPECT_EQ(parameters.MoveFromDrive, 4);
    EXPECT_THAT(cdbs(), ElementsAre(bytes{0x1A, 0x08, 0x1F, 0x00, 0x18, 0x00}));
    EXPECT_EQ(world.controls(direct_code).at(0).output_size, 512u);
}

TEST_F(ChangerHandleScsi, FailsWithoutTheCapabilitiesPage) {
    serve([&](const device_request& request, const bytes&) { return answer_scsi(request, 0, {}, bytes(24)); });
    const auto changer = open();
    EXPECT_NE(failure_text<exc::win_sys_exc_t>([&] {
                  changer->GetParameters();
              }).find("Cannot get changer parameter', symLink = '\\\\.\\Changer0'"),
              std::string::npos);
    EXPECT_THAT(world.log(), ElementsAre("tap| It's not ModeDeviceCapabilities. It's 0 "));
}

TEST_F(ChangerHandleScsi, ReadsProductDataByInquiry) {
    serve(refuse);
    const auto changer = open();
    bytes inquiry =
        joined({{0x68, 0x80, 6, 2, 75, 0, 0, 0}, text_bytes("VENDOR1 "), text_bytes("LIBRARY MODEL 1 "), text_bytes("0042XYZ")});
    world.system.devices.on_control([&](const device_request& request) {
        const bool page = cdb_of(request)[1] != 0;
        return answer_scsi(request, 0, {}, page ? joined({{8, 0x80, 0, 12}, text_bytes("SERIAL-00042")}) : inquiry);
    });
    CHANGER_PRODUCT_DATA data;
    EXPECT_TRUE(changer->GetProductData(data));
    EXPECT_EQ(util::to_text(data.VendorId), "VENDOR1 ");
    EXPECT_EQ(util::to_text(data.ProductId), "LIBRARY MODEL 1 ");
    EXPECT_EQ(util::to_text(data.Revision), "0042");
    EXPECT_EQ(util::text_to_nul(data.SerialNumber), "SERIAL-00042");
    EXPECT_EQ(data.DeviceType, 8);
    const auto sent = world.controls(pass_through);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(cdb_of(sent[0]), (bytes{0x12, 0, 0, 0, 0x50, 0}));
    EXPECT_EQ(cdb_of(sent[1]), (bytes{0x12, 1, 0x80, 0, 0x50, 0}));
    EXPECT_EQ(sent[0].input.size(), 65840u);
    EXPECT_EQ(sent[0].output_size, 65829u);
    EXPECT_EQ(bytes(sent[0].input.begin(), sent[0].input.begin() + 28),
              (bytes{44, 0, 0, 0, 0, 0, 6, 64, 1, 0, 0, 0, 0xF5, 0xFF, 0, 0, 10, 0, 0, 0, 0x30, 1, 0, 0, 48, 0, 0, 0}));
}

TEST_F(ChangerHandleScsi, GivesEmptyProductDataOfAFailingDevice) {
    serve(refuse);
    const auto changer = open();
    CHANGER_PRODUCT_DATA data;
    data.DeviceType = 9;
    EXPECT_TRUE(changer->GetProductData(data));
    EXPECT_EQ(data.DeviceType, 0);
    EXPECT_EQ(data.SerialNumber[0], 0);
}

TEST_F(ChangerHandleScsi, TranslatesAddressesBothWays) {
    serve_status({element_status({{ChangerSlot, true, {padded({0x10, 0x03, 9}, 52)}}})});
    const auto changer = open();
    const ElementStatusList records = changer->GetElementStatus(3, ChangerSlot, false, 1);
    EXPECT_THAT(cdbs(), ElementsAre(read_cdb(2, 0x1003, 1, 0)));
    ASSERT_EQ(records->size(), 1u);
    EXPECT_EQ(records->front().Element.ElementType, ChangerSlot);
    EXPECT_EQ(records->front().Element.ElementAddress, 3u);
    EXPECT_EQ(world.controls(direct_code)[0].output_size, 65535u);
}

TEST_F(ChangerHandleScsi, ReadsByPortions) {
    serve_status({element_status({{ChangerSlot, true, {padded({0x10, 0x00}, 52)}}})});
    const auto changer = open();
    changer->GetElementStatus(0, ChangerSlot, true, 120);
    changer->GetElementStatus(0, ChangerSlot, true, 50);
    changer->GetElementStatus(0, ChangerIEPort, true, 12);
    EXPECT_THAT(cdbs(), ElementsAre(read_cdb(2, 0x1000, 50, 0), read_cdb(2, 0x1032, 50, 0), read_cdb(2, 0x1064, 20, 0),
                                    read_cdb(2, 0x1000, 50, 0), read_cdb(3, 0x10, 10, 0), read_cdb(3, 0x1A, 2, 0)));
}

TEST_F(ChangerHandleScsi, AsksAgainWithoutDeviceIdentifiersWhenTheyAreRefused) {
    const bytes answer =
        one_drive({.address = 0x100, .flags = 8, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S1"});
    serve([&](const device_request& request, const bytes& cdb) {
        return cdb[6] != 0 ? refuse(request, cdb) : answer_scsi(request, 0, {}, answer);
    });
    const auto changer = open();
    EXPECT_EQ(changer->GetElementStatus(0, ChangerDrive, true, 1)->size(), 1u);
    EXPECT_THAT(cdbs(), ElementsAre(read_cdb(4, 0x100, 1, 1), read_cdb(4, 0x100, 1, 0)));
    EXPECT_THAT(world.log(),
                ElementsAre("tap| Cannot get elements status.  [MT]SCSI PASS THROUGH DIRECT ended with Scsi Error Fixed "
                            "format, current;  Sense key: Illegal Request. Additional sense: Invalid field in cdb"));
}

TEST_F(ChangerHandleScsi, SendsTheSameCommandTwiceForOtherTypes) {
    world.set_timeout(0);
    serve(refuse);
    const auto changer = open();
    EXPECT_THROW(changer->GetElementStatus(0, ChangerSlot, true, 1), exc::runtime_exc_t);
    EXPECT_THAT(cdbs(), ElementsAre(read_cdb(2, 0x1000, 1, 0), read_cdb(2, 0x1000, 1, 0)));
}

TEST_F(ChangerHandleScsi, LogsEachFailedTry) {
    world.set_timeout(7);
    serve([](const device_request& request, const bytes&) { return answer_scsi(request, 8, {}); });
    const auto changer = open();
    const std::string text = failure_text<exc::runtime_exc_t>([&] { changer->GetElementStatus(0, ChangerSlot, true, 1); });
    EXPECT_EQ(text,
              "[MT] SCSI ERROR: is\n--tr:Timed out waiting for device ready status on ChangerGetElementStatus operation, "
              "element 'ChangerSlot' ");
    EXPECT_EQ(world.log_with("tap| ERR |[MT] SCSI ERROR: is").size(), 2u);
    EXPECT_THAT(world.sleeps(), ElementsAre(5000, 5000));
}

TEST_F(ChangerHandleScsi, DeliversDrivesWithTheSameSerialNumber) {
    const auto drive = [](std::uint16_t address) {
        return one_drive({.address = address, .flags = 8, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     SAME"});
    };
    serve_status({drive(0x100), drive(0x100), drive(0x101)});
    const auto changer = open();
    const ElementStatusList records = changer->GetElementStatus(0, ChangerDrive, true, 2);
    ASSERT_EQ(records->size(), 2u);
    EXPECT_EQ((*records)[1].Element.ElementAddress, 1u);
    EXPECT_EQ(util::text_to_nul((*records)[1].SerialNumber), "SAME");
    EXPECT_THAT(cdbs(), ElementsAre(read_cdb(4, 0x100, 1, 1), read_cdb(4, 0x101, 1, 1), read_cdb(4, 0x102, 1, 1)));
}

TEST_F(ChangerHandleScsi, FailsWhenThereAreFewerDrives) {
    world.set_timeout(0);
    serve_status({one_drive({.address = 0x100, .flags = 8}), bytes(8)});
    const auto changer = open();
    EXPECT_TRUE(
        failure_of([&] { changer->GetElementStatus(0, ChangerDrive, true, 2); }).starts_with("invalid vector<T> subscript\n--tr:"));
}

TEST_F(ChangerHandleScsi, LooksAgainAtALoadedDriveWithoutAReadableTag) {
    serve_status(
        {one_drive(
             {.address = 0x100, .tag = " TRN001", .flags = 9, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S1"}),
         one_drive({.address = 0x100, .tag = "TRN001L8", .flags = 9})});
    const auto changer = open();
    const ElementStatusList records = changer->GetElementStatus(0, ChangerDrive, true, 1);
    EXPECT_THAT(cdbs(), ElementsAre(read_cdb(4, 0x100, 1, 1), read_cdb(4, 0x100, 1, 0)));
    EXPECT_EQ(util::text_to_nul(records->front().PrimaryVolumeID), "TRN001L8");
    EXPECT_EQ(util::text_to_nul(records->front().SerialNumber), "S1");
}

TEST_F(ChangerHandleScsi, TakesAReadableTagAtTheFirstLook) {
    serve_status({one_drive({.address = 0x100, .tag = "z1", .flags = 9})});
    const auto changer = open();
    EXPECT_EQ(util::text_to_nul(changer->GetElementStatus(0, ChangerDrive, true, 1)->front().PrimaryVolumeID), "z1");
    EXPECT_EQ(cdbs().size(), 1u);
}

TEST_F(ChangerHandleScsi, ClearsTheTagOfAnEmptyDrive) {
    serve_status({one_drive({.address = 0x100, .tag = "GHOST", .flags = 8})});
    const auto changer = open();
    const ElementStatusList records = changer->GetElementStatus(0, ChangerDrive, true, 1);
    EXPECT_EQ(bytes(std::begin(records->front().PrimaryVolumeID), std::end(records->front().PrimaryVolumeID)), bytes(36));
    EXPECT_EQ(cdbs().size(), 1u);
}

TEST_F(ChangerHandleScsi, LeavesALoadedDrivesDescriptorInTheWorkingDirectory) {
    const drive_bytes drive{
        .address = 0x100, .tag = "TRN001L8", .flags = 1, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S1"};
    serve_status({one_drive(drive)});
    const auto changer = open();
    changer->GetElementStatus(0, ChangerDrive, true, 1);
    changer->GetElementStatus(0, ChangerDrive, true, 1);
    EXPECT_EQ(world.system.files.content("dump.dump"), util::to_text(drive.descriptor(86)));
}

TEST_F(ChangerHandleScsi, LeavesNoDescriptorOfAReachableDrive) {
    serve_status(
        {one_drive({.address = 0x100, .tag = "T", .flags = 9, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S1"})});
    open()->GetElementStatus(0, ChangerDrive, true, 1);
    EXPECT_FALSE(world.system.files.exists(u"dump.dump"));
}

TEST_F(ChangerHandleScsi, ShowsWhereAMediumCameFrom) {
    bytes slot = padded({0x10, 0x05, 9, 0, 0, 0, 0, 0, 0, 0x80, 0x01, 0x01}, 52);
    serve_status({element_status({{ChangerSlot, true, {slot}}})});
    const ElementStatusList records = open()->GetElementStatus(5, ChangerSlot, true, 1);
    EXPECT_EQ(records->front().SrcElementAddress.ElementType, ChangerDrive);
    EXPECT_EQ(records->front().SrcElementAddress.ElementAddress, 1u);
}

TEST_F(ChangerHandleScsi, QueriesSerialNumbersOfDrives) {
    const auto drive = [](std::uint16_t address, std::uint8_t type, const char* identifier) {
        return drive_bytes{.address = address, .identifier_type = type, .identifier = identifier}.descriptor(86);
    };
    serve_status({element_status(
        {{ChangerDrive, true, {drive(0x100, 1, "VENDOR1 PRODUCT-ONE     S1"), drive(0x101, 1, "VENDOR1 PRODUCT-ONE     S2")}}})});
    const auto changer = open();
    auto records = boost::make_shared<std::vector<CHANGER_ELEMENT_STATUS_EX>>(2);
    EXPECT_THAT(*changer->GetSerialNames(records, ChangerDrive), ElementsAre("S1", "S2"));
    EXPECT_THAT(cdbs(), ElementsAre(bytes{0xB8, 0x14, 0x01, 0x00, 0x01, 0xF4, 0, 0, 0x0F, 0, 0, 0}));
    EXPECT_EQ(world.controls(direct_code)[0].output_size, 16384u);
    EXPECT_THAT(world.log_with("Find '2' serial names"), ElementsAre("tap| Find '2' serial names"));
}

TEST_F(ChangerHandleScsi, GivesEmptyNamesForOtherIdentifierTypes) {
    serve_status({one_drive({.address = 0x100, .identifier_type = 2, .identifier = "12345678"})});
    const auto changer = open();
    auto records = boost::make_shared<std::vector<CHANGER_ELEMENT_STATUS_EX>>(1);
    EXPECT_THAT(*changer->GetSerialNames(records, ChangerDrive), ElementsAre(""));
}

TEST_F(ChangerHandleScsi, WorksInTheIndirectForm) {
    world.set_indirect(1);
    const bytes slot = element_status({{ChangerSlot, true, {padded({0x10, 0x03, 9}, 52)}}});
    world.system.devices.on_control(
        [&](const device_request& request) { return answer_scsi(request, 0, {}, cdb_of(request)[0] == 0x1A ? assignment : slot); });
    const auto changer = open();
    EXPECT_EQ(changer->GetElementStatus(3, ChangerSlot, true, 1)->front().Element.ElementAddress, 3u);
}

// --- which backend ---

TEST_F(ChangerHandleScsi, IsCreatedByTheProceduresNameOrTheSetting) {
    serve(refuse);
    const auto is_scsi = [&](bool by_scsi) {
        return dynamic_cast<CChangerHandleScsi*>(CreateChangerHandle(changer_link, by_scsi, world.mutex).get()) != nullptr;
    };
    EXPECT_FALSE(is_scsi(false));
    EXPECT_TRUE(is_scsi(true));
    gEnableScsiChanger = true;
    EXPECT_TRUE(is_scsi(false));
    EXPECT_TRUE(is_scsi(true));
}

TEST_F(ChangerHandleScsi, IsCreatedWithTheSlotPortionOfTheSettings) {
    gUserSlotPortion = 20;
    serve_status({element_status({{ChangerSlot, true, {padded({0x10, 0x00}, 52)}}})});
    const auto changer = CreateChangerHandle(changer_link, true, world.mutex);
    world.system.devices.forget_requests();
    changer->GetElementStatus(0, ChangerSlot, true, 30);
    EXPECT_THAT(cdbs(), ElementsAre(read_cdb(2, 0x1000, 20, 0), read_cdb(2, 0x1014, 10, 0)));
}

}  // namespace
