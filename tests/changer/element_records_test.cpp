#include "changer/element_records.h"

#include <gtest/gtest.h>

#include "changer/changer_world.h"
#include "changer/element_status_bytes.h"
#include "changer/mode_pages.h"
#include "foundation/exc/exceptions.h"

namespace {

using namespace changer_tests;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const element_map_t map{{0, 0x0000, 0x1000, 0x0010, 0x0100}, {0, 1, 24, 2, 2}};
const element_status_page_t slot_page{ChangerSlot, true, 52};

std::string serial_of(const CScsiDriveElementRecord& record) {
    return util::text_to_nul(record.status.SerialNumber);
}

TEST(ElementRecord, DecodesTheDescriptorsFields) {
    const bytes descriptor = joined({{0x10, 0x05, 0x0D, 0xFF, 0x3B, 0x0E, 0xFD, 0x21, 0xFF, 0xC0, 0x01, 0x01},
                                     padded(text_bytes("TRN001L8"), 32),
                                     {1, 2, 3, 4}});
    const CScsiElementRecord record(descriptor, slot_page, map);
    EXPECT_EQ(record.address, 5);
    EXPECT_EQ(record.logical_unit, 5);
    EXPECT_EQ(record.bus_address, 0x21);
    EXPECT_EQ(record.exception_code, 0x3B0Eu);
    EXPECT_EQ(record.status.ExceptionCode, 0x3B0Eu);
    EXPECT_EQ(record.status.Flags, 0x1u | 0x4 | 0x8 | 0x400000 | 0x800000 | 0x10000000);
    EXPECT_EQ(record.status.Element.ElementType, ChangerSlot);
    EXPECT_EQ(record.status.Element.ElementAddress, 5u);
    EXPECT_EQ(record.status.SrcElementAddress.ElementType, ChangerDrive);
    EXPECT_EQ(record.status.SrcElementAddress.ElementAddress, 1u);
    EXPECT_EQ(util::text_to_nul(record.status.PrimaryVolumeID), "TRN001L8");
    EXPECT_EQ(record.status.TargetId, 0);
    EXPECT_EQ(record.status.Lun, 0);
}

TEST(ElementRecord, TakesThirtyTwoBytesOfTheTagAsTheyStand) {
    bytes descriptor = {0x10, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    descriptor.resize(48, 'x');
    const CScsiElementRecord record(descriptor, slot_page, map);
    EXPECT_EQ(util::text_to_nul(record.status.PrimaryVolumeID), std::string(32, 'x'));
}

TEST(ElementRecord, ReadsNoTagOfAPageWithoutTags) {
    bytes descriptor = {0x10, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    descriptor.resize(48, 'x');
    const CScsiElementRecord record(descriptor, {ChangerSlot, false, 48}, map);
    EXPECT_EQ(record.status.Flags, platform::ELEMENT_STATUS_FULL);
    EXPECT_EQ(record.status.PrimaryVolumeID[0], 0);
}

TEST(ElementRecord, FlagsATagOfAFullElementOnly) {
    const bytes descriptor = padded({0x10, 0x00, 0x08}, 52);
    EXPECT_EQ(CScsiElementRecord(descriptor, slot_page, map).status.Flags, platform::ELEMENT_STATUS_ACCESS);
}

TEST(ElementRecord, IgnoresASourceThatIsNotValid) {
    const bytes descriptor = padded({0x10, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0x00, 0x01, 0x01}, 52);
    const CScsiElementRecord record(descriptor, slot_page, map);
    EXPECT_EQ(record.status.SrcElementAddress.ElementAddress, 0u);
    EXPECT_EQ(record.status.SrcElementAddress.ElementType, 0u);
}

TEST(ElementRecord, LooksForASourceFromTheDrivesDown) {
    const auto source = [](const element_map_t& of, std::uint16_t address) {
        const bytes descriptor = padded(
            {0x10, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0x80, static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address)},
            52);
        const CHANGER_ELEMENT element = CScsiElementRecord(descriptor, slot_page, of).status.SrcElementAddress;
        return std::pair(element.ElementType, element.ElementAddress);
    };
    const element_map_t close{{0, 0x01, 0x10, 0x30, 0x20}, {0, 1, 16, 2, 2}};
    EXPECT_EQ(source(close, 0x25), std::pair(4u, 5u));
    EXPECT_EQ(source(close, 0x1F), std::pair(2u, 15u));
    EXPECT_EQ(source(close, 0x05), std::pair(1u, 4u));
    EXPECT_EQ(source(map, 0x1000 + 98), std::pair(2u, 98u));
    EXPECT_EQ(source(map, 0x1000 + 99), std::pair(0u, 0x1000u + 99));
    EXPECT_EQ(source(map, 0x0FFF), std::pair(0u, 0x0FFFu));
    EXPECT_EQ(source(map, 0), std::pair(0u, 0u));
}

TEST(ElementRecord, FailsForATypeThatTheMapLacks) {
    const bytes descriptor = padded({0x10, 0x00, 0x01}, 52);
    EXPECT_THROW(CScsiElementRecord(descriptor, {7, true, 52}, map), std::out_of_range);
    EXPECT_THROW(CScsiElementRecord(descriptor, slot_page, {}), std::out_of_range);
}

TEST(ElementRecord, TakesMissingBytesForZero) {
    const CScsiElementRecord record(bytes{0x10}, slot_page, map);
    EXPECT_EQ(record.status.Flags, 0u);
    EXPECT_EQ(record.status.Element.ElementAddress, 0u);
}

// --- device identifiers of drives ---

TEST(DriveRecord, ReadsAT10VendorIdentifier) {
    const drive_bytes drive{.address = 0x100, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     SERIAL01  "};
    const CScsiDriveElementRecord record(drive.descriptor(86), {ChangerDrive, true, 86}, map, 86);
    EXPECT_EQ(record.code_set, 2);
    EXPECT_EQ(record.identifier_type, 1);
    EXPECT_EQ(record.identifier_length, 34);
    EXPECT_EQ(record.vendor, "VENDOR1");
    EXPECT_EQ(record.product, "PRODUCT-ONE");
    EXPECT_EQ(record.serial, "SERIAL01");
    EXPECT_EQ(util::text_to_nul(record.status.VendorIdentification), "VENDOR1");
    EXPECT_EQ(util::text_to_nul(record.status.ProductIdentification), "PRODUCT-ONE");
    EXPECT_EQ(serial_of(record), "SERIAL01");
    EXPECT_EQ(record.status.Flags, platform::ELEMENT_STATUS_PRODUCT_DATA);
}

TEST(DriveRecord, ReadsAnIdentifierWithoutTagAtItsOwnPlace) {
    const drive_bytes drive{.address = 0x101, .tagged = false, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S2"};
    const CScsiDriveElementRecord record(drive.descriptor(50), {ChangerDrive, false, 50}, map, 50);
    EXPECT_EQ(serial_of(record), "S2");
    EXPECT_EQ(record.status.Element.ElementAddress, 1u);
}

TEST(DriveRecord, ReadsNoShortT10IdentifierOfALongDescriptor) {
    const drive_bytes drive{.address = 0x100, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     "};
    const CScsiDriveElementRecord record(drive.descriptor(86), {ChangerDrive, true, 86}, map, 86);
    EXPECT_EQ(record.vendor, "");
    EXPECT_EQ(serial_of(record), "");
    EXPECT_EQ(record.status.Flags, 0u);
}

TEST(DriveRecord, ReadsVendorAndProductOfAVeryShortDescriptor) {
    const drive_bytes drive{.address = 0x100, .tagged = false, .identifier_type = 1, .identifier = "VENDOR1 PROD"};
    const CScsiDriveElementRecord record(drive.descriptor(28), {ChangerDrive, false, 28}, map, 28);
    EXPECT_EQ(record.vendor, "VENDOR1");
    EXPECT_EQ(record.product.substr(0, 4), "PROD");
    EXPECT_EQ(record.serial, "");
}

TEST(DriveRecord, ReadsAWholeIdentityWithoutAType) {
    const std::string identity = "VENDOR2 PRODUCT-TWO     " + std::string("SERIAL02") + std::string(24, ' ');
    const drive_bytes drive{.address = 0x100, .identifier_type = 0, .identifier = identity};
    const CScsiDriveElementRecord record(drive.descriptor(108), {ChangerDrive, true, 108}, map, 108);
    EXPECT_EQ(record.vendor, "VENDOR2");
    EXPECT_EQ(record.product, "PRODUCT-TWO");
    EXPECT_EQ(serial_of(record), "SERIAL02");
}

TEST(DriveRecord, ReadsABareSerialNumber) {
    const drive_bytes drive{.address = 0x100, .identifier_type = 0, .identifier = "SERIAL03" + std::string(24, ' ')};
    const CScsiDriveElementRecord record(drive.descriptor(84), {ChangerDrive, true, 84}, map, 84);
    EXPECT_EQ(record.vendor, "");
    EXPECT_EQ(serial_of(record), "SERIAL03");
}

TEST(DriveRecord, ReadsASerialNumberAtTheEndOfADescriptorWithoutIdentifier) {
    bytes descriptor = drive_bytes{.address = 0x100, .identifier_type = 0}.descriptor(100);
    const std::string serial = "SERIAL04" + std::string(24, ' ');
    std::copy(serial.begin(), serial.end(), descriptor.end() - 32);
    EXPECT_EQ(serial_of(CScsiDriveElementRecord(descriptor, {ChangerDrive, true, 100}, map, 100)), "SERIAL04");
    // 83 bytes leave no room for it behind the identifier's head.
    descriptor.resize(83);
    EXPECT_EQ(serial_of(CScsiDriveElementRecord(descriptor, {ChangerDrive, true, 83}, map, 83)), "");
    descriptor.resize(52);
    descriptor.resize(84, 'e');
    EXPECT_EQ(serial_of(CScsiDriveElementRecord(descriptor, {ChangerDrive, true, 84}, map, 84)), std::string(32, 'e'));
}

TEST(DriveRecord, GivesNothingForOtherIdentifierTypes) {
    const drive_bytes drive{.address = 0x100, .identifier_type = 2, .identifier = "12345678"};
    const CScsiDriveElementRecord record(drive.descriptor(100), {ChangerDrive, true, 100}, map, 100);
    EXPECT_EQ(record.identifier_type, 2);
    EXPECT_EQ(record.serial, "");
}

TEST(DriveRecord, CutsASerialNumberAtTheRecordsField) {
    const std::string serial(40, 'q');
    const drive_bytes drive{.address = 0x100, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     " + serial};
    const CScsiDriveElementRecord record(drive.descriptor(120), {ChangerDrive, true, 120}, map, 120);
    EXPECT_EQ(record.serial, serial);
    EXPECT_EQ(serial_of(record), serial.substr(0, 32));
}

TEST(DriveRecord, StaysWithinTheDescriptor) {
    drive_bytes drive{.address = 0x100, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S5"};
    bytes descriptor = drive.descriptor(78);
    descriptor[36 + 15] = 255;
    const CScsiDriveElementRecord record(descriptor, {ChangerDrive, true, 78}, map, 78);
    EXPECT_EQ(serial_of(record), "S5");
    EXPECT_EQ(record.serial.size(), 231u);
}

TEST(DriveRecord, ReadsAShortDescriptorWithAnExceptionAsOneWithoutTag) {
    drive_bytes drive{
        .address = 0x100, .tagged = false, .flags = 0x04, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S6"};
    const bytes descriptor = drive.descriptor(82);
    EXPECT_EQ(serial_of(CScsiDriveElementRecord(descriptor, {ChangerDrive, true, 82}, map, 82)), "S6");
    EXPECT_NE(serial_of(CScsiDriveElementRecord(drive.descriptor(83), {ChangerDrive, true, 83}, map, 83)), "S6");
}

// --- whole answers ---

TEST(ElementStatusData, IsEmptyWithoutElements) {
    EXPECT_THAT(ParseElementStatusData(bytes(8), ChangerSlot, map, nullptr), IsEmpty());
    EXPECT_THAT(ParseElementStatusData({}, ChangerSlot, map, nullptr), IsEmpty());
}

TEST(ElementStatusData, WalksSeveralPages) {
    const bytes data = element_status({{ChangerSlot, true, {padded({0x10, 0x00, 1}, 52), padded({0x10, 0x01}, 52)}},
                                       {ChangerIEPort, false, {padded({0x00, 0x11, 8}, 16)}}});
    const auto records = ParseElementStatusData(data, AllElements, map, nullptr);
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[1].Element.ElementAddress, 1u);
    EXPECT_EQ(records[2].Element.ElementType, ChangerIEPort);
    EXPECT_EQ(records[2].Element.ElementAddress, 1u);
}

TEST(ElementStatusData, FailsOnLengthsThatCannotBe) {
    bytes zero = element_status({{ChangerSlot, true, {padded({0x10, 0x00, 1}, 52)}}});
    zero[10] = zero[11] = 0;
    EXPECT_THROW(static_cast<void>(ParseElementStatusData(zero, ChangerSlot, map, nullptr)), exc::runtime_exc_t);
    bytes many = element_status({{ChangerSlot, true, {padded({0x10, 0x00, 1}, 52)}}});
    many[13] = 0xFF;
    EXPECT_THROW(static_cast<void>(ParseElementStatusData(many, ChangerSlot, map, nullptr)), std::out_of_range);
}

TEST(ElementStatusData, EndsOnPagesWithoutDescriptors) {
    bytes data = {0, 0, 0xFF, 0xFF, 0, 0, 0, 0};
    for (int page = 0; page < 100; ++page) {
        data = joined({data, {2, 0, 0, 52, 0, 0, 0, 0}});
    }
    EXPECT_THROW(static_cast<void>(ParseElementStatusData(data, ChangerSlot, map, nullptr)), exc::runtime_exc_t);
}

TEST(ElementStatusData, HandsOutNotableDescriptors) {
    const bytes loaded =
        drive_bytes{.address = 0x100, .tag = "T1", .flags = 0x01, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S1"}
            .descriptor(86);
    const bytes reachable =
        drive_bytes{.address = 0x101, .tag = "T2", .flags = 0x09, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S2"}
            .descriptor(86);
    std::vector<bytes> notable;
    const auto take = [&](std::span<const std::uint8_t> descriptor) { notable.emplace_back(descriptor.begin(), descriptor.end()); };
    EXPECT_EQ(ParseElementStatusData(element_status({{ChangerDrive, true, {loaded, reachable}}}), ChangerDrive, map, take).size(),
              2u);
    EXPECT_THAT(notable, ElementsAre(loaded));
}

TEST(IdentifiedSerials, ComeFromT10IdentifiersOnly) {
    changer_tests::world world;
    const bytes first =
        drive_bytes{.address = 0x100, .identifier_type = 1, .identifier = "VENDOR1 PRODUCT-ONE     S1  "}.descriptor(86);
    const bytes second = drive_bytes{.address = 0x101, .identifier_type = 2, .identifier = "12345678"}.descriptor(86);
    EXPECT_THAT(ParseIdentifiedSerials(element_status({{ChangerDrive, true, {first, second}}}), map), ElementsAre("S1"));
    EXPECT_THAT(world.log(), ElementsAre("tap| Find '2' serial names"));
}

// --- mode pages ---

TEST(ElementAddressAssignment, IsTheLastThingInTheAnswer) {
    const bytes page = {0x1D, 18, 0, 1, 0, 2, 0x10, 0, 0, 24, 0, 0x10, 0, 3, 1, 0, 0, 4, 0, 0};
    const auto expect_map = [&](const bytes& data) {
        element_map_t read;
        EXPECT_TRUE(ParseElementAddressAssignment(data, read));
        EXPECT_THAT(read.first_addresses, ElementsAre(0, 1, 0x1000, 0x10, 0x100));
        EXPECT_THAT(read.counts, ElementsAre(0, 2, 24, 3, 4));
    };
    expect_map(joined({{23, 0, 0, 0}, page}));
    expect_map(joined({{31, 0, 0, 8}, bytes(8), page}));
    bytes saveable = page;
    saveable[0] = 0x9D;
    expect_map(joined({{23, 0, 0, 0}, saveable}));
}

TEST(ElementAddressAssignment, LeavesTheMapEmptyForAnotherPage) {
    element_map_t read;
    EXPECT_FALSE(ParseElementAddressAssignment(joined({{23, 0, 0, 0}, {0x1E, 18}, bytes(18)}), read));
    EXPECT_FALSE(ParseElementAddressAssignment(bytes(32), read));
    EXPECT_FALSE(ParseElementAddressAssignment({}, read));
    EXPECT_FALSE(ParseElementAddressAssignment(bytes(32, 0xFF), read));  // the page would start behind the answer
    EXPECT_TRUE(read.first_addresses.empty());
    EXPECT_TRUE(read.counts.empty());
}

TEST(DeviceCapabilities, FillPositionAndMoves) {
    changer_tests::world world;
    GET_CHANGER_PARAMETERS parameters;
    EXPECT_TRUE(ParseDeviceCapabilities(bytes{0x1F, 18, 0xFE, 0, 0xF1, 0xF2, 0xF3, 0xF4}, parameters));
    EXPECT_EQ(parameters.PositionCapabilities, 0x0E);
    EXPECT_EQ(parameters.MoveFromTransport, 1);
    EXPECT_EQ(parameters.MoveFromSlot, 2);
    EXPECT_EQ(parameters.MoveFromIePort, 3);
    EXPECT_EQ(parameters.MoveFromDrive, 4);
    EXPECT_EQ(parameters.ExchangeFromSlot, 0);
    EXPECT_TRUE(ParseDeviceCapabilities(bytes{0x9F, 18}, parameters));
    EXPECT_FALSE(ParseDeviceCapabilities(bytes{0x1E, 18, 1}, parameters));
    EXPECT_THAT(world.log(), ElementsAre("tap| It's not ModeDeviceCapabilities. It's 30 "));
}

}  // namespace
