#include "records/device_record_writer.h"

#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"
#include "support/fake_changer.h"
#include "support/tape_variables_scope.h"

namespace {

using test_support::fake_changer;
using test_support::fill;
using winxml::record_form;
using winxml::record_stream_t;

CHANGER_ELEMENT_STATUS_EX element_at(ELEMENT_TYPE type, std::uint32_t address, std::string_view bar_code) {
    CHANGER_ELEMENT_STATUS_EX element;
    element.Element = {type, address};
    fill(element.PrimaryVolumeID, bar_code);
    return element;
}

class DeviceRecordWriter : public testing::Test {
protected:
    DeviceRecordWriter()
        : document_(winxml::create_document()), node_(winxml::add_element(winxml::document_node(document_), "Node")) {}

    [[nodiscard]] std::string text() const { return winxml::serialize_xml(document_); }

    /// A library of 4 slots, 2 drives and 1 port.
    static fake_changer small_library() {
        fake_changer changer;
        changer.parameters.NumberStorageElements = 4;
        changer.parameters.NumberDataTransferElements = 2;
        changer.parameters.NumberIEElements = 1;
        return changer;
    }

    platform::testing::test_system system_;
    test_support::tape_variables_scope variables_;
    winxml::document_t document_;
    winxml::node_t node_;
};

constexpr char identity_text[] = "DeviceName=\"Changer0\" SymbolicLink=\"\\\\.\\Changer0\" NoDriver=\"false\"";

TEST_F(DeviceRecordWriter, WritesTheChangersIdentity) {
    fake_changer changer;
    CDeviceRecordWriter::WriteChangerIdentity(node_, changer);
    EXPECT_EQ(text(), std::string("<Node ") + identity_text + " />");
}

TEST_F(DeviceRecordWriter, ALinkThatHoldsUnknownChangerHasNoDriver) {
    fake_changer changer;
    changer.symbolic_link = u"\\\\.\\my_unknownChanger3x";
    CDeviceRecordWriter::WriteChangerIdentity(node_, changer);
    EXPECT_NE(text().find("NoDriver=\"true\""), std::string::npos);
}

TEST_F(DeviceRecordWriter, TheMarkOfADriverlessChangerDependsOnCase) {
    fake_changer changer;
    changer.symbolic_link = u"\\\\.\\UnknownChanger3";
    CDeviceRecordWriter::WriteChangerIdentity(node_, changer);
    EXPECT_NE(text().find("NoDriver=\"false\""), std::string::npos);
}

TEST_F(DeviceRecordWriter, WritesTheAddressWithoutSigns) {
    fake_changer changer;
    changer.address = SCSI_ADDRESS{8, 255, 1, 4, 200};
    CDeviceRecordWriter::WriteAddress(node_, changer);
    EXPECT_EQ(text(), "<Node><Address Lun=\"200\" TargetId=\"4\" PathId=\"1\" PortNumber=\"255\" /></Node>");
}

TEST_F(DeviceRecordWriter, WritesProductDataWithTheDevicePostfix) {
    fake_changer changer;
    gDeviceSerialPostfix = u"-X";
    changer.product_data.DeviceType = 8;
    fill(changer.product_data.VendorId, "TARNO   ");
    fill(changer.product_data.ProductId, " Lib 24         ");
    fill(changer.product_data.Revision, std::string_view("1\0zz", 4));
    CDeviceRecordWriter::WriteProductData(node_, changer);
    EXPECT_EQ(text(),
              "<Node><Data SerialNumber=\"LIB00001-X\" DeviceType=\"8\" Revision=\"1\" ProductId=\" Lib 24\" VendorId=\"TARNO\" "
              "/></Node>");
}

TEST_F(DeviceRecordWriter, ProductDataThatCannotBeHadLeavesTheSerialNumber) {
    fake_changer changer;
    changer.has_product_data = false;
    CDeviceRecordWriter::WriteProductData(node_, changer);
    EXPECT_EQ(text(), "<Node><Data SerialNumber=\"LIB00001\" /></Node>");
}

TEST_F(DeviceRecordWriter, AnAllBlankFieldGivesAnEmptyAttribute) {
    fake_changer changer;
    fill(changer.product_data.VendorId, "        ");
    CDeviceRecordWriter::WriteProductData(node_, changer);
    EXPECT_NE(text().find("VendorId=\"\""), std::string::npos);
}

TEST_F(DeviceRecordWriter, WritesAllParametersInTheirOrder) {
    GET_CHANGER_PARAMETERS p;
    p.NumberTransportElements = 25;
    p.NumberStorageElements = 24;
    p.NumberCleanerSlots = 23;
    p.NumberIEElements = 22;
    p.NumberDataTransferElements = 21;
    p.NumberOfDoors = 20;
    p.FirstSlotNumber = 19;
    p.FirstDriveNumber = 18;
    p.FirstTransportNumber = 17;
    p.FirstIEPortNumber = 16;
    p.FirstCleanerSlotAddress = 15;
    p.MagazineSize = 65535;
    p.DriveCleanTimeout = 0xFFFFFFFF;
    p.Features0 = 0x80000001;
    p.Features1 = 0xFFFFFFFF;
    p.MoveFromTransport = 10;
    p.MoveFromSlot = 9;
    p.MoveFromIePort = 8;
    p.MoveFromDrive = 7;
    p.ExchangeFromTransport = 6;
    p.ExchangeFromSlot = 5;
    p.ExchangeFromIePort = 4;
    p.ExchangeFromDrive = 3;
    p.LockUnlockCapabilities = 2;
    p.PositionCapabilities = 255;
    CDeviceRecordWriter::WriteParameters(node_, p);
    EXPECT_EQ(
        text(),
        "<Node><Parameters PositionCapabilities=\"255\" LockUnlockCapabilities=\"2\" ExchangeFromDrive=\"3\" "
        "ExchangeFromIePort=\"4\" ExchangeFromSlot=\"5\" ExchangeFromTransport=\"6\" MoveFromDrive=\"7\" MoveFromIePort=\"8\" "
        "MoveFromSlot=\"9\" MoveFromTransport=\"10\" Features1=\"4294967295\" Features0=\"2147483649\" DriveCleanTimeout=\"-1\" "
        "MagazineSize=\"65535\" FirstCleanerSlotAddress=\"15\" FirstIEPortNumber=\"16\" FirstTransportNumber=\"17\" "
        "FirstDriveNumber=\"18\" FirstSlotNumber=\"19\" NumberOfDoors=\"20\" NumberDataTransferElements=\"21\" "
        "NumberIEElements=\"22\" NumberCleanerSlots=\"23\" NumberStorageElements=\"24\" NumberTransportElements=\"25\" /></Node>");
}

TEST_F(DeviceRecordWriter, WritesAnElementRecordInFull) {
    fake_changer changer = small_library();
    CHANGER_ELEMENT_STATUS_EX element = element_at(ChangerDrive, 1, "TRN001L8  ");
    element.SrcElementAddress = {ChangerSlot, 3};
    element.Flags = 0x81000001;
    element.ExceptionCode = 0x8300;
    element.TargetId = 9;
    element.Lun = 2;
    fill(element.AlternateVolumeID, "ALT");
    fill(element.VendorIdentification, "VENDOR");
    fill(element.ProductIdentification, "ULTRIUM-TD8     ");
    changer.elements = {element};
    changer.serials = {"DRV0000001   "};
    record_stream_t list("DrivesStatuses", record_form::document);
    CDeviceRecordWriter::WriteDriveStatusList(list, changer);
    EXPECT_EQ(list.text(),
              std::string("<DrivesStatuses ") + identity_text +
                  "><DriveStatus SerialNumber=\"DRV0000001   \" Lun=\"2\" ProductIdentification=\"ULTRIUM-TD8\" "
                  "VendorIdentification=\"VENDOR\" AlternateVolumeID=\"ALT\" PrimaryVolumeID=\"TRN001L8\" TargetId=\"9\" "
                  "ExceptionCode=\"33536\" Flags=\"2164260865\"><Element ElementAddress=\"1\" ElementType=\"4\" />"
                  "<SrcElementAddress ElementAddress=\"3\" ElementType=\"2\" /></DriveStatus></DrivesStatuses>");
}

TEST_F(DeviceRecordWriter, EachListAsksForAllElementsOfItsType) {
    fake_changer changer = small_library();
    record_stream_t list("Root", record_form::document);
    CDeviceRecordWriter::WriteDriveStatusList(list, changer);
    CDeviceRecordWriter::WriteSlotStatusList(list, changer);
    CDeviceRecordWriter::WriteIEPortStatusList(list, changer);
    const std::vector<fake_changer::status_request> expected = {
        {0, ChangerDrive, true, 2}, {0, ChangerSlot, true, 4}, {0, ChangerIEPort, true, 1}};
    EXPECT_EQ(changer.requests, expected);
}

TEST_F(DeviceRecordWriter, TheListsNameTheirElements) {
    fake_changer changer = small_library();
    changer.elements = {element_at(ChangerSlot, 0, "")};
    changer.serials = {""};
    record_stream_t slots("S", record_form::document);
    CDeviceRecordWriter::WriteSlotStatusList(slots, changer);
    EXPECT_NE(slots.text().find("<SlotStatus SerialNumber=\"\" Lun=\"0\""), std::string::npos);
    record_stream_t ports("P", record_form::document);
    CDeviceRecordWriter::WriteIEPortStatusList(ports, changer);
    EXPECT_NE(ports.text().find("<IEPortStatus SerialNumber=\"\" Lun=\"0\""), std::string::npos);
}

TEST_F(DeviceRecordWriter, ABarCodeThatFillsItsFieldIsWrittenWhole) {
    fake_changer changer = small_library();
    changer.elements = {element_at(ChangerSlot, 0, "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"),
                        element_at(ChangerSlot, 1, " CDEFGHIJKLMNOPQRSTUVWXYZ0123456    ")};
    changer.serials = {"", ""};
    record_stream_t list("S", record_form::document);
    CDeviceRecordWriter::WriteSlotStatusList(list, changer);
    EXPECT_NE(list.text().find("PrimaryVolumeID=\"ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789\""), std::string::npos);
    EXPECT_NE(list.text().find("PrimaryVolumeID=\" CDEFGHIJKLMNOPQRSTUVWXYZ0123456\""), std::string::npos);
}

TEST_F(DeviceRecordWriter, BytesOfADeviceStayAsTheyAre) {
    fake_changer changer = small_library();
    changer.elements = {element_at(ChangerSlot, 0, "\xFF\x80<")};
    changer.serials = {"\xE2"};
    record_stream_t list("S", record_form::document);
    CDeviceRecordWriter::WriteSlotStatusList(list, changer);
    EXPECT_NE(list.text().find("PrimaryVolumeID=\"\xFF\x80&lt;\""), std::string::npos);
    EXPECT_NE(list.text().find("SerialNumber=\"\xE2\""), std::string::npos);
    EXPECT_FALSE(list.is_ascii());
}

TEST_F(DeviceRecordWriter, TheBarCodePostfixSparesEmptyCodesAndAlternateOnes) {
    gBarcodesPostfix = u"_P";
    fake_changer changer = small_library();
    changer.elements = {element_at(ChangerSlot, 0, "A1"), element_at(ChangerSlot, 1, "   ")};
    fill(changer.elements[0].AlternateVolumeID, "ALT");
    changer.serials = {"", ""};
    record_stream_t list("S", record_form::document);
    CDeviceRecordWriter::WriteSlotStatusList(list, changer);
    EXPECT_NE(list.text().find("AlternateVolumeID=\"ALT\" PrimaryVolumeID=\"A1_P\""), std::string::npos);
    EXPECT_NE(list.text().find("PrimaryVolumeID=\"\""), std::string::npos);
}

TEST_F(DeviceRecordWriter, TheDevicePostfixIsForDrivesOnly) {
    gDeviceSerialPostfix = u"-D";
    fake_changer changer = small_library();
    changer.elements = {element_at(ChangerDrive, 0, "")};
    changer.serials = {"S1"};
    record_stream_t drives("D", record_form::document);
    CDeviceRecordWriter::WriteDriveStatusList(drives, changer);
    EXPECT_NE(drives.text().find("SerialNumber=\"S1-D\""), std::string::npos);
    record_stream_t slots("S", record_form::document);
    CDeviceRecordWriter::WriteSlotStatusList(slots, changer);
    EXPECT_NE(slots.text().find("SerialNumber=\"S1\""), std::string::npos);
}

class CustomPostfix : public DeviceRecordWriter {
protected:
    CustomPostfix() {
        gCustomChanger = u"Changer0";
        gCustomPostfix = u"_N";
    }

    static std::string drive_list(fake_changer changer) {
        changer.elements = {element_at(ChangerDrive, 0, ""), element_at(ChangerDrive, 1, "")};
        changer.serials = {"SAME", "SAME"};
        record_stream_t list("D", record_form::document);
        CDeviceRecordWriter::WriteDriveStatusList(list, changer);
        return list.text();
    }
};

TEST_F(CustomPostfix, NumbersTheDrivesOfTheNamedChanger) {
    const std::string list = drive_list(small_library());
    EXPECT_NE(list.find("SerialNumber=\"SAME_N0\""), std::string::npos);
    EXPECT_NE(list.find("SerialNumber=\"SAME_N1\""), std::string::npos);
}

TEST_F(CustomPostfix, CountsAnewInEachList) {
    fake_changer changer = small_library();
    EXPECT_EQ(drive_list(changer), drive_list(changer));
}

TEST_F(CustomPostfix, GivesWayToTheDevicePostfix) {
    gDeviceSerialPostfix = u"-D";
    const std::string list = drive_list(small_library());
    EXPECT_EQ(list.find("_N"), std::string::npos);
    EXPECT_NE(list.find("SerialNumber=\"SAME-D\""), std::string::npos);
}

TEST_F(CustomPostfix, LeavesOtherChangersAlone) {
    fake_changer changer = small_library();
    changer.device_name = u"changer0";
    EXPECT_EQ(drive_list(changer).find("_N"), std::string::npos);
}

TEST_F(CustomPostfix, HoldsForElementListsOfDrivesToo) {
    fake_changer changer = small_library();
    changer.elements = {element_at(ChangerDrive, 0, "")};
    changer.serials = {"S"};
    record_stream_t list("E", record_form::document);
    CDeviceRecordWriter::WriteElementStatusList(list, {0, 1, ChangerDrive}, changer);
    EXPECT_NE(list.text().find("<ElementStatus SerialNumber=\"S_N0\""), std::string::npos);
}

TEST_F(DeviceRecordWriter, NoSerialNumbersForRecordsIsAFailure) {
    fake_changer changer = small_library();
    changer.elements = {element_at(ChangerDrive, 0, ""), element_at(ChangerDrive, 1, "")};
    system_.errors.set_last_error(21);
    record_stream_t list("D", record_form::document);
    try {
        CDeviceRecordWriter::WriteDriveStatusList(list, changer);
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(std::string(e.what()),
                  "The device is not ready.\nProblem with getting serial numbers. Getting serial numbers = 0, waiting elements "
                  "numbers = 2\n"
                  "--tr:Error code: 0x00000015");
    }
}

TEST_F(DeviceRecordWriter, AnEmptyListIsNoFailure) {
    fake_changer changer = small_library();
    record_stream_t list("ElementsStatuses", record_form::document);
    CDeviceRecordWriter::WriteElementStatusList(list, {0, 0, ChangerSlot}, changer);
    EXPECT_EQ(list.text(), std::string("<ElementsStatuses ") + identity_text + " />");
    EXPECT_EQ(changer.requests, (std::vector<fake_changer::status_request>{{0, ChangerSlot, true, 0}}));
}

struct range_case {
    std::int32_t first;
    std::uint16_t count;
    ELEMENT_TYPE type;
    fake_changer::status_request expected;
};

TEST_F(DeviceRecordWriter, ARangeIsCutAtTheLastElement) {
    const range_case cases[] = {
        {1, 2, ChangerSlot, {1, ChangerSlot, true, 2}},
        {1, 3, ChangerSlot, {1, ChangerSlot, true, 3}},
        {1, 4, ChangerSlot, {1, ChangerSlot, true, 3}},
        {4, 1, ChangerSlot, {4, ChangerSlot, true, 0}},
        {0, 65535, ChangerDrive, {0, ChangerDrive, true, 2}},
        {0, 5, ChangerIEPort, {0, ChangerIEPort, true, 1}},
        {0, 5, ChangerTransport, {0, ChangerTransport, true, 0}},
        {0, 5, platform::AllElements, {0, platform::AllElements, true, 0}},
    };
    for (const range_case& range : cases) {
        fake_changer changer = small_library();
        record_stream_t list("E", record_form::document);
        CDeviceRecordWriter::WriteElementStatusList(list, {range.first, range.count, range.type}, changer);
        EXPECT_EQ(changer.requests, std::vector{range.expected});
    }
}

TEST_F(DeviceRecordWriter, ARangeOutsideTheElementsIsRefused) {
    for (const std::int32_t first : {-1, 5}) {
        fake_changer changer = small_library();
        record_stream_t list("E", record_form::document);
        system_.errors.set_last_error(0);
        try {
            CDeviceRecordWriter::WriteElementStatusList(list, {first, 1, ChangerSlot}, changer);
            FAIL();
        } catch (const exc::win_sys_exc_t& e) {
            EXPECT_EQ(e.messages()[1].text,
                      "Incorrect first element number. Elements adds = " + std::to_string(first) + ", Max count = 4");
        }
        EXPECT_TRUE(changer.requests.empty());
    }
}

}  // namespace
