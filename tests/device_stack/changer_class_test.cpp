#include "platform/device_stack/changer_class.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device_stack/scripted_transport.h"
#include "foundation/util/bytes.h"
#include "platform/changer_records.h"
#include "platform/devices.h"

using namespace platform;
using namespace platform::device_stack;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using bytes = std::vector<std::uint8_t>;

/// Mode data: head, then page 1D: transport 0 with 1, slots 0x1000 with 24, ports 0x10 with 2, drives 0x100 with 2.
const bytes address_page = {0x17, 0, 0, 0, 0x1D, 0x12, 0, 0, 0, 1, 0x10, 0, 0, 24, 0, 0x10, 0, 2, 1, 0, 0, 2, 0, 0};

bytes text(const std::string& value, std::size_t width) {
    bytes field(value.begin(), value.end());
    field.resize(width, ' ');
    return field;
}

void append(bytes& to, const bytes& more) {
    to.insert(to.end(), more.begin(), more.end());
}

/// One descriptor: address, state byte, then a volume tag if there is one.
bytes slot_descriptor(std::uint16_t address, std::uint8_t state, const std::string& tag = {}, std::uint16_t source = 0) {
    bytes descriptor(12);
    util::store_be16(descriptor, 0, address);
    descriptor[2] = state;
    if (source != 0) {
        descriptor[9] = 0x80;
        util::store_be16(descriptor, 10, source);
    }
    if (!tag.empty()) {
        append(descriptor, text(tag, 32));
        append(descriptor, {0, 0, 0, 0});
    }
    append(descriptor, {0, 0, 0, 0});
    return descriptor;
}

/// A report of one page.
bytes report(std::uint8_t type, std::uint8_t tags, const std::vector<bytes>& descriptors) {
    const std::size_t length = descriptors.empty() ? 16 : descriptors.front().size();
    bytes answer(16);
    util::store_be16(answer, 2, static_cast<std::uint16_t>(descriptors.size()));
    util::store_be24(answer, 5, static_cast<std::uint32_t>(8 + length * descriptors.size()));
    answer[8] = type;
    answer[9] = tags;
    util::store_be16(answer, 10, static_cast<std::uint16_t>(length));
    util::store_be24(answer, 13, static_cast<std::uint32_t>(length * descriptors.size()));
    for (const bytes& descriptor : descriptors) {
        append(answer, descriptor);
    }
    return answer;
}

class ChangerClass : public testing::Test {
protected:
    template <typename Record>
    std::uint32_t control(std::uint32_t code, const Record& request) {
        return changer.control(code, util::record_bytes(request), {}, returned);
    }

    std::uint32_t read(std::uint32_t type, std::uint32_t first, std::uint32_t count, std::size_t record_size = 156,
                       bool tags = true) {
        CHANGER_READ_ELEMENT_STATUS request;
        request.Element = {type, first};
        request.NumberOfElements = count;
        request.VolumeTagInfo = tags ? 1 : 0;
        output.assign(count * record_size, 0xEE);
        return changer.control(ioctl::changer_get_element_status, util::record_bytes(request), output, returned);
    }

    [[nodiscard]] CHANGER_ELEMENT_STATUS_EX record(std::size_t index, std::size_t record_size = 156) const {
        return util::load_record<CHANGER_ELEMENT_STATUS_EX>(
            std::span<const std::uint8_t>(output).subspan(index * record_size, record_size));
    }

    void with_map() { unit->answer(address_page); }

    [[nodiscard]] const bytes& last_cdb() const { return unit->sent.back().cdb; }

    std::shared_ptr<scripted_transport> unit = std::make_shared<scripted_transport>();
    changer_class changer{unit, {0, 0, 1, 0}, 4};
    bytes output;
    std::uint32_t returned = 99;
};

std::string field(std::span<const std::uint8_t> value) {
    return util::text_to_nul(value);
}

}  // namespace

TEST_F(ChangerClass, TellsItsDeviceNumber) {
    output.resize(12);
    ASSERT_EQ(changer.control(ioctl::storage_get_device_number, {}, output, returned), 0U);
    EXPECT_THAT(output, ElementsAre(0x30, 0, 0, 0, 4, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF));
}

TEST_F(ChangerClass, GathersParametersFromItsModePages) {
    with_map();
    unit->answer({0x17, 0, 0, 0, 0x1F, 0x12, 0x0E, 0, 0x0F, 0x0E, 0x0D, 0x0B, 0, 0, 0, 0, 0x00, 0x02, 0x00, 0x00, 0, 0, 0, 0});
    unit->answer({0x07, 0, 0, 0, 0x1E, 0x02, 0x01, 0x00});
    output.resize(60);
    ASSERT_EQ(changer.control(ioctl::changer_get_parameters, {}, output, returned), 0U);
    EXPECT_EQ(returned, 60U);
    EXPECT_THAT(unit->sent[0].cdb, ElementsAre(0x1A, 0x08, 0x1D, 0, 0xFC, 0));
    EXPECT_THAT(unit->sent[1].cdb, ElementsAre(0x1A, 0x08, 0x1F, 0, 0xFC, 0));
    EXPECT_THAT(unit->sent[2].cdb, ElementsAre(0x1A, 0x08, 0x1E, 0, 0xFC, 0));
    const auto parameters = util::load_record<GET_CHANGER_PARAMETERS>(output);
    EXPECT_EQ(parameters.Size, 60U);
    EXPECT_EQ(parameters.NumberTransportElements, 1);
    EXPECT_EQ(parameters.NumberStorageElements, 24);
    EXPECT_EQ(parameters.NumberIEElements, 2);
    EXPECT_EQ(parameters.NumberDataTransferElements, 2);
    EXPECT_EQ(parameters.FirstTransportNumber, 0);
    EXPECT_EQ(parameters.FirstSlotNumber, 0x1000);
    EXPECT_EQ(parameters.FirstIEPortNumber, 0x10);
    EXPECT_EQ(parameters.FirstDriveNumber, 0x100);
    EXPECT_EQ(parameters.PositionCapabilities, 0x0E);
    EXPECT_EQ(parameters.MoveFromTransport, 0x0F);
    EXPECT_EQ(parameters.MoveFromSlot, 0x0E);
    EXPECT_EQ(parameters.MoveFromIePort, 0x0D);
    EXPECT_EQ(parameters.MoveFromDrive, 0x0B);
    EXPECT_EQ(parameters.ExchangeFromSlot, 0x02);
    EXPECT_EQ(parameters.Features0, 0x20U | 0x200 | 0x1000 | 0x2000 | 0x4000);
    EXPECT_EQ(parameters.Features1, 0U);
}

TEST_F(ChangerClass, DoesWithoutAGeometryPage) {
    with_map();
    unit->answer({0x17, 0, 0, 0, 0x1F, 0x12});
    unit->check_condition(5, 0x24, 0);
    output.resize(60);
    EXPECT_EQ(changer.control(ioctl::changer_get_parameters, {}, output, returned), 0U);
}

TEST_F(ChangerClass, FailsParametersWithThePageThatFails) {
    output.resize(60);
    unit->check_condition(2, 0x04, 0x01);
    EXPECT_EQ(changer.control(ioctl::changer_get_parameters, {}, output, returned), 21U);
    unit->answer({0x03, 0, 0, 0});  // no page in it
    EXPECT_EQ(changer.control(ioctl::changer_get_parameters, {}, output, returned), 1117U);
    with_map();
    unit->check_condition(6, 0x28, 0x00);
    EXPECT_EQ(changer.control(ioctl::changer_get_parameters, {}, output, returned), 1110U);
    unit->answer({0x17, 0, 0, 0, 0x1F, 0x12});
    unit->check_condition(6, 0x29, 0x00);
    EXPECT_EQ(changer.control(ioctl::changer_get_parameters, {}, output, returned), 1111U);
    output.resize(59);
    EXPECT_EQ(changer.control(ioctl::changer_get_parameters, {}, output, returned), 122U);
    EXPECT_EQ(returned, 0U);
}

TEST_F(ChangerClass, FindsThePageBehindBlockDescriptors) {
    bytes mode = {0x1F, 0, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8};
    append(mode, bytes(address_page.begin() + 4, address_page.end()));
    unit->answer(mode);
    unit->answer(report(2, 0, {slot_descriptor(0x1003, 9)}));
    ASSERT_EQ(read(ChangerSlot, 3, 1), 0U);
    EXPECT_EQ(last_cdb()[2], 0x10);
    EXPECT_EQ(last_cdb()[3], 0x03);
}

TEST_F(ChangerClass, TellsItsProductData) {
    bytes inquiry(96);
    inquiry[0] = 0x08;
    const bytes identity = text("TARNO", 8);
    std::copy(identity.begin(), identity.end(), inquiry.begin() + 8);
    const bytes product = text("LIBRARY-24", 16);
    std::copy(product.begin(), product.end(), inquiry.begin() + 16);
    inquiry[32] = '1';
    inquiry[35] = '4';
    unit->answer(inquiry);
    unit->answer({0x08, 0x80, 0, 6, 'S', 'E', 'R', '0', '0', '1', 'x', 'x'});
    output.assign(64, 0xEE);
    ASSERT_EQ(changer.control(ioctl::changer_get_product_data, {}, output, returned), 0U);
    EXPECT_EQ(returned, 61U);
    const auto data = util::load_record<CHANGER_PRODUCT_DATA>(output);
    EXPECT_EQ(util::to_text(data.VendorId), "TARNO   ");
    EXPECT_EQ(util::to_text(data.ProductId), "LIBRARY-24      ");
    EXPECT_EQ(util::to_text(data.Revision), std::string("1\0\0"
                                                        "4",
                                                        4));
    EXPECT_EQ(field(data.SerialNumber), "SER001");
    EXPECT_EQ(data.DeviceType, 8);
    EXPECT_EQ(output[61], 0xEE);

    unit->answer(inquiry);
    unit->check_condition(5, 0x24, 0);
    ASSERT_EQ(changer.control(ioctl::changer_get_product_data, {}, output, returned), 0U);
    EXPECT_THAT(bytes(output.begin() + 28, output.begin() + 60), Each(0));

    unit->transport_error(1167);
    EXPECT_EQ(changer.control(ioctl::changer_get_product_data, {}, output, returned), 1167U);
    output.resize(60);
    EXPECT_EQ(changer.control(ioctl::changer_get_product_data, {}, output, returned), 122U);
}

TEST_F(ChangerClass, TellsItsStatusByTestUnitReady) {
    unit->answer();
    EXPECT_EQ(changer.control(ioctl::changer_get_status, {}, {}, returned), 0U);
    EXPECT_THAT(last_cdb(), ElementsAre(0, 0, 0, 0, 0, 0));
    unit->check_condition(2, 0x04, 0x18);
    EXPECT_EQ(changer.control(ioctl::changer_get_status, {}, {}, returned), 1166U);
    unit->status(8);
    EXPECT_EQ(changer.control(ioctl::changer_get_status, {}, {}, returned), 170U);
    EXPECT_EQ(unit->sent.size(), 3U);  // nothing is tried again
}

TEST_F(ChangerClass, ReadsSlotsFromZero) {
    with_map();
    unit->answer(report(2, 0x80, {slot_descriptor(0x1003, 0x09, "BAR003L8", 0x101), slot_descriptor(0x1004, 0x08, "OLDTAG")}));
    ASSERT_EQ(read(ChangerSlot, 3, 2), 0U);
    EXPECT_THAT(last_cdb(), ElementsAre(0xB8, 0x12, 0x10, 0x03, 0, 2, 0, 0x00, 0x00, 0xE8, 0, 0));
    EXPECT_EQ(returned, 312U);
    const CHANGER_ELEMENT_STATUS_EX full = record(0);
    EXPECT_EQ(full.Element.ElementType, 2U);
    EXPECT_EQ(full.Element.ElementAddress, 3U);
    EXPECT_EQ(full.Flags, 0x10800009U);
    EXPECT_EQ(full.SrcElementAddress.ElementType, 4U);
    EXPECT_EQ(full.SrcElementAddress.ElementAddress, 1U);
    EXPECT_EQ(util::to_text(std::span(full.PrimaryVolumeID).first(32)), util::to_text(text("BAR003L8", 32)));
    EXPECT_EQ(full.ExceptionCode, 0U);
    const CHANGER_ELEMENT_STATUS_EX empty = record(1);
    EXPECT_EQ(empty.Element.ElementAddress, 4U);
    EXPECT_EQ(empty.Flags, 0x8U);
    EXPECT_THAT(empty.PrimaryVolumeID, Each(0));  // what an empty slot remembers isn't there
}

TEST_F(ChangerClass, ReadsTheAddressMapOnce) {
    with_map();
    for (int i = 0; i < 3; ++i) {
        unit->answer(report(2, 0, {slot_descriptor(0x1000, 9)}));
        ASSERT_EQ(read(ChangerSlot, 0, 1), 0U);
    }
    EXPECT_EQ(unit->sent.size(), 4U);
}

TEST_F(ChangerClass, ReportsPortStateExceptionsAndInversion) {
    with_map();
    bytes port = slot_descriptor(0x11, 0x3F);
    port[4] = 0x83;
    port[5] = 0x01;
    port[9] = 0x40;
    unit->answer(report(3, 0, {port}));
    ASSERT_EQ(read(ChangerIEPort, 1, 1, 156, false), 0U);
    EXPECT_EQ(last_cdb()[1], 0x03);  // no volume tags asked for
    EXPECT_EQ(record(0).Flags, 0x3FU | ELEMENT_STATUS_INVERT);
    EXPECT_EQ(record(0).ExceptionCode, 0x8301U);
}

TEST_F(ChangerClass, KeepsASourceThatIsNoElement) {
    with_map();
    unit->answer(report(2, 0, {slot_descriptor(0x1000, 9, {}, 0x7777)}));
    ASSERT_EQ(read(ChangerSlot, 0, 1), 0U);
    EXPECT_EQ(record(0).SrcElementAddress.ElementType, 0U);
    EXPECT_EQ(record(0).SrcElementAddress.ElementAddress, 0x7777U);
}

TEST_F(ChangerClass, IdentifiesDrives) {
    with_map();
    bytes drive = slot_descriptor(0x101, 0x09, "BAR007L8", 0x1006);
    drive.resize(12 + 36);
    drive[6] = 0x10 | 0x20 | 0x03;
    drive[7] = 0x0C;
    append(drive, {2, 1, 0, 34});
    append(drive, text("TARNO", 8));
    append(drive, text("ULTRIUM-TD8", 16));
    append(drive, text("DRV0000002", 10));
    unit->answer(report(4, 0x80, {drive}));
    ASSERT_EQ(read(ChangerDrive, 1, 1), 0U);
    EXPECT_THAT(last_cdb(), ElementsAre(0xB8, 0x14, 0x01, 0x01, 0, 1, 0x01, 0, 0, 0xE8, 0, 0));
    const CHANGER_ELEMENT_STATUS_EX status = record(0);
    EXPECT_EQ(status.Element.ElementType, 4U);
    EXPECT_EQ(status.Element.ElementAddress, 1U);
    EXPECT_EQ(status.Flags, 0x10800009U | ELEMENT_STATUS_PRODUCT_DATA | ELEMENT_STATUS_LUN_VALID | ELEMENT_STATUS_ID_VALID);
    EXPECT_EQ(status.TargetId, 0x0C);
    EXPECT_EQ(status.Lun, 3);
    EXPECT_EQ(field(status.VendorIdentification), "TARNO");
    EXPECT_EQ(field(status.ProductIdentification), "ULTRIUM-TD8");
    EXPECT_EQ(field(status.SerialNumber), "DRV0000002");
    EXPECT_EQ(status.SrcElementAddress.ElementType, 2U);
    EXPECT_EQ(status.SrcElementAddress.ElementAddress, 6U);
}

TEST_F(ChangerClass, ReadsEveryFormOfADriveIdentifier) {
    const auto serial_of = [this](std::uint8_t identifier_type, const bytes& identifier, std::uint8_t claimed) {
        changer_class fresh(unit, {}, 0);
        with_map();
        bytes drive = slot_descriptor(0x100, 0x08);
        drive.resize(12);
        append(drive, {2, identifier_type, 0, claimed});
        append(drive, identifier);
        unit->answer(report(4, 0, {drive}));
        CHANGER_READ_ELEMENT_STATUS request;
        request.Element = {ChangerDrive, 0};
        request.NumberOfElements = 1;
        output.assign(156, 0);
        EXPECT_EQ(fresh.control(ioctl::changer_get_element_status, util::record_bytes(request), output, returned), 0U);
        return field(record(0).SerialNumber);
    };
    EXPECT_EQ(serial_of(0, text("SN123", 32), 32), "SN123");
    EXPECT_EQ(serial_of(0, text("SN1", 10), 10), "SN1");
    bytes columns = text("VENDOR", 8);
    append(columns, text("PRODUCT", 16));
    append(columns, text("SN56", 32));
    EXPECT_EQ(serial_of(0, columns, 56), "SN56");
    EXPECT_EQ(serial_of(1, text("VENDOR SN77", 20), 20), "SN77");
    EXPECT_EQ(serial_of(1, text("VENDOR SN77", 20), 255), "SN77");  // claims more than the descriptor holds
    EXPECT_EQ(serial_of(3, {0x50, 1, 2, 3, 4, 5, 6, 7}, 8), "");
    EXPECT_EQ(serial_of(0, {}, 0), "");
    EXPECT_EQ(serial_of(1, bytes(70, 'S'), 70), std::string(32, 'S'));  // cut at the record's field
}

TEST_F(ChangerClass, AsksAgainWithoutIdentifiersWhenTheyAreRefused) {
    with_map();
    unit->check_condition(5, 0x24, 0);
    unit->answer(report(4, 0, {slot_descriptor(0x100, 8)}));
    ASSERT_EQ(read(ChangerDrive, 0, 1), 0U);
    ASSERT_EQ(unit->sent.size(), 3U);
    EXPECT_EQ(unit->sent[1].cdb[6], 1);
    EXPECT_EQ(unit->sent[2].cdb[6], 0);
    EXPECT_EQ(record(0).Flags, 8U);
    // It is known now.
    unit->answer(report(4, 0, {slot_descriptor(0x101, 8)}));
    ASSERT_EQ(read(ChangerDrive, 1, 1), 0U);
    EXPECT_EQ(unit->sent.size(), 4U);
    EXPECT_EQ(last_cdb()[6], 0);
}

TEST_F(ChangerClass, TriesNothingAgainForOtherFailures) {
    with_map();
    unit->check_condition(6, 0x28, 0x00);
    EXPECT_EQ(read(ChangerDrive, 0, 1), 1110U);
    EXPECT_EQ(unit->sent.size(), 2U);
    unit->status(0x18);
    EXPECT_EQ(read(ChangerSlot, 0, 1), 170U);
    unit->transport_error(121);
    EXPECT_EQ(read(ChangerSlot, 0, 1), 121U);
    EXPECT_EQ(returned, 0U);
    EXPECT_EQ(unit->sent.size(), 4U);
}

TEST_F(ChangerClass, RefusesElementsThatAreNot) {
    with_map();
    EXPECT_EQ(read(ChangerDrive, 2, 1), 1162U);
    EXPECT_EQ(read(ChangerSlot, 24, 1), 1162U);
    EXPECT_EQ(read(ChangerSlot, 0xFFFFFFFF, 1), 1162U);
    EXPECT_EQ(unit->sent.size(), 1U);
    EXPECT_EQ(read(5, 0, 1), 87U);
    EXPECT_EQ(read(ChangerSlot, 0, 2, 99), 122U);
    EXPECT_EQ(changer.control(ioctl::changer_get_element_status, bytes(15), output, returned), 87U);
}

TEST_F(ChangerClass, AnswersARequestForNoElementsWithNone) {
    EXPECT_EQ(read(ChangerTransport, 0, 0), 0U);
    EXPECT_EQ(returned, 0U);
    EXPECT_EQ(read(AllElements, 0, 0), 0U);
    EXPECT_TRUE(unit->sent.empty());
}

TEST_F(ChangerClass, MakesUpForElementsThatDidNotCome) {
    with_map();
    unit->answer(report(2, 0, {slot_descriptor(0x1016, 9), slot_descriptor(0x1017, 9)}));
    ASSERT_EQ(read(ChangerSlot, 22, 5), 0U);
    EXPECT_EQ(last_cdb()[5], 2);    // the map ends there
    EXPECT_EQ(returned, 5U * 156);  // a shorter answer would look like short records
    EXPECT_EQ(record(1).Element.ElementAddress, 23U);
    EXPECT_THAT(bytes(output.begin() + 2 * 156, output.end()), Each(0));
}

TEST_F(ChangerClass, AnswersInShortRecords) {
    with_map();
    bytes drive = slot_descriptor(0x100, 0x09);
    drive.resize(12);
    append(drive, {2, 0, 0, 4, 'S', 'N', '1', '1'});
    unit->answer(report(4, 0, {drive}));
    ASSERT_EQ(read(ChangerDrive, 0, 1, 100), 0U);
    EXPECT_EQ(returned, 100U);
    EXPECT_EQ(record(0, 100).Flags, 9U);  // no product data in this form
    EXPECT_EQ(record(0, 100).Element.ElementType, 4U);
}

TEST_F(ChangerClass, ReadsAnAnswerThatDidNotFitAgain) {
    with_map();
    bytes fat = slot_descriptor(0x1000, 9, "T1");
    fat.resize(300);
    bytes fatter = slot_descriptor(0x1001, 9, "T2");
    fatter.resize(300);
    const bytes whole = report(2, 0x80, {fat, fatter});
    unit->answer(whole);
    unit->answer(whole);
    ASSERT_EQ(read(ChangerSlot, 0, 2), 0U);
    ASSERT_EQ(unit->sent.size(), 3U);
    EXPECT_EQ(unit->sent[1].room, 232U);
    EXPECT_EQ(unit->sent[2].room, 616U);
    EXPECT_THAT(bytes(last_cdb().begin() + 7, last_cdb().begin() + 10), ElementsAre(0x00, 0x02, 0x68));
    EXPECT_EQ(record(1).Element.ElementAddress, 1U);
}

TEST_F(ChangerClass, TakesOnlyWhatItAskedFor) {
    with_map();
    std::vector<bytes> all;
    for (std::uint16_t i = 0; i < 24; ++i) {
        all.push_back(slot_descriptor(static_cast<std::uint16_t>(0x1000 + i), 9));
    }
    unit->answer(report(2, 0, all));  // the whole library, though two elements were wanted
    ASSERT_EQ(read(ChangerSlot, 0, 2), 0U);
    EXPECT_EQ(unit->sent.size(), 2U);
    EXPECT_EQ(record(1).Element.ElementAddress, 1U);
}

TEST_F(ChangerClass, TakesTheStateFromADescriptorThatCameInPart) {
    with_map();
    bytes drive = slot_descriptor(0x100, 0x09);
    drive.resize(12);
    append(drive, {2, 0, 0, 10, 'S', 'N', '0', '0', '0', '0', '0', '0', '0', '1'});
    bytes answer = report(4, 0, {drive});
    answer.resize(answer.size() - 8);  // the device sends less than it says
    unit->answer(answer);
    ASSERT_EQ(read(ChangerDrive, 0, 1), 0U);
    EXPECT_EQ(unit->sent.size(), 2U);
    EXPECT_EQ(record(0).Flags, 9U);
    EXPECT_EQ(record(0).Element.ElementType, 4U);
    EXPECT_THAT(record(0).SerialNumber, Each(0));  // "SN" would be another drive's
}

TEST_F(ChangerClass, GoesOnBehindTheLastElementThatCameWhole) {
    // Descriptors so long that an answer never holds all of them.
    with_map();
    unit->otherwise([](const scsi_command& command) {
        const std::uint16_t first = util::load_be16(command.cdb, 2);
        std::vector<bytes> descriptors;
        for (std::uint16_t i = 0; i < util::load_be16(command.cdb, 4); ++i) {
            descriptors.push_back(slot_descriptor(static_cast<std::uint16_t>(first + i), 9, "TAG" + std::to_string(first + i)));
            descriptors.back().resize(10'000);
        }
        const bytes data = report(2, 0x80, descriptors);
        scsi_outcome outcome;
        outcome.transferred = static_cast<std::uint32_t>(std::min(data.size(), command.data.size()));
        std::copy_n(data.begin(), outcome.transferred, command.data.begin());
        return outcome;
    });
    ASSERT_EQ(read(ChangerSlot, 0, 24), 0U);
    for (std::uint32_t i = 0; i < 24; ++i) {
        EXPECT_EQ(record(i).Element.ElementAddress, i);
        EXPECT_EQ(util::without_trailing_blanks(field(record(i).PrimaryVolumeID)), "TAG" + std::to_string(4096 + i));
    }
    EXPECT_EQ(unit->sent[3].cdb[3], 6);  // six came whole
}

TEST_F(ChangerClass, ReadsManySlotsInParts) {
    bytes big_map = address_page;
    util::store_be16(big_map, 12, 10'000);
    unit->answer(big_map);
    unit->otherwise([](const scsi_command& command) {
        const std::uint16_t first = util::load_be16(command.cdb, 2);
        const std::uint16_t count = util::load_be16(command.cdb, 4);
        std::vector<bytes> descriptors;
        for (std::uint16_t i = 0; i < count; ++i) {
            descriptors.push_back(slot_descriptor(static_cast<std::uint16_t>(first + i), 0x09, "TAG" + std::to_string(first + i)));
        }
        const bytes data = report(2, 0x80, descriptors);
        scsi_outcome outcome;
        outcome.transferred = static_cast<std::uint32_t>(std::min(data.size(), command.data.size()));
        std::copy_n(data.begin(), outcome.transferred, command.data.begin());
        return outcome;
    });
    ASSERT_EQ(read(ChangerSlot, 0, 10'000), 0U);
    EXPECT_EQ(unit->sent.size(), 26U);
    for (const auto& sent : unit->sent) {
        EXPECT_LE(sent.room, 65'535U);
    }
    EXPECT_EQ(record(9'999).Element.ElementAddress, 9'999U);
    EXPECT_EQ(util::without_trailing_blanks(field(record(9'999).PrimaryVolumeID)), "TAG14095");
    EXPECT_EQ(returned, 1'560'000U);
}

TEST_F(ChangerClass, ReadsOnlyWhatAnAnswerHolds) {
    const bytes good = report(2, 0x80, {slot_descriptor(0x1000, 9, "T1"), slot_descriptor(0x1001, 9, "T2")});
    with_map();
    for (std::size_t length = 0; length <= good.size(); ++length) {
        unit->answer(bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)));
        // What is missing at the end is asked for by its own address; there is none.
        unit->otherwise([](const auto&) { return scsi_outcome{}; });
        ASSERT_EQ(read(ChangerSlot, 0, 2), 0U) << length;
    }
    bytes lying = good;
    util::store_be16(lying, 10, 0);  // descriptors without a length
    unit->answer(lying);
    ASSERT_EQ(read(ChangerSlot, 0, 2), 0U);
    EXPECT_THAT(output, Each(0));
    lying = good;
    lying[8] = 0x77;  // no such type
    unit->answer(lying);
    ASSERT_EQ(read(ChangerSlot, 0, 2), 0U);
    EXPECT_THAT(output, Each(0));
}

TEST_F(ChangerClass, ReadsAllTypesAtOnce) {
    with_map();
    bytes both = report(1, 0, {slot_descriptor(0, 8)});
    const bytes slots = report(2, 0x80, {slot_descriptor(0x1000, 9, "T1")});
    both.insert(both.end(), slots.begin() + 8, slots.end());
    util::store_be16(both, 2, 2);
    util::store_be24(both, 5, static_cast<std::uint32_t>(both.size() - 8));
    unit->answer(both);
    unit->otherwise([](const auto&) { return scsi_outcome{}; });
    ASSERT_EQ(read(AllElements, 0, 2), 0U);
    EXPECT_EQ(unit->sent[1].cdb[1], 0x10);
    EXPECT_EQ(record(0).Element.ElementType, 1U);
    EXPECT_EQ(record(1).Element.ElementType, 2U);
}

TEST_F(ChangerClass, MovesByTheDevicesAddresses) {
    with_map();
    unit->answer();
    CHANGER_MOVE_MEDIUM move;
    move.Transport = {ChangerTransport, 0};
    move.Source = {ChangerSlot, 5};
    move.Destination = {ChangerDrive, 1};
    ASSERT_EQ(control(ioctl::changer_move_medium, move), 0U);
    EXPECT_THAT(last_cdb(), ElementsAre(0xA5, 0, 0, 0, 0x10, 0x05, 0x01, 0x01, 0, 0, 0, 0));
    EXPECT_EQ(unit->sent.back().timeout_seconds, 600);
    EXPECT_EQ(returned, 0U);

    unit->answer();
    move.Flip = 1;
    ASSERT_EQ(control(ioctl::changer_move_medium, move), 0U);
    EXPECT_EQ(last_cdb()[10], 1);
}

TEST_F(ChangerClass, ReportsWhyAMoveFailed) {
    CHANGER_MOVE_MEDIUM move;
    move.Transport = {ChangerTransport, 0};
    move.Source = {ChangerSlot, 5};
    move.Destination = {ChangerDrive, 1};
    with_map();
    unit->check_condition(5, 0x3B, 0x0E);
    EXPECT_EQ(control(ioctl::changer_move_medium, move), 1160U);
    unit->check_condition(5, 0x3B, 0x0D);
    EXPECT_EQ(control(ioctl::changer_move_medium, move), 1161U);
    unit->check_condition(6, 0x28, 0x00);
    EXPECT_EQ(control(ioctl::changer_move_medium, move), 1110U);
    EXPECT_EQ(unit->sent.size(), 4U);

    move.Destination = {ChangerDrive, 2};
    EXPECT_EQ(control(ioctl::changer_move_medium, move), 1162U);
    move.Destination = {AllElements + 9, 0};
    EXPECT_EQ(control(ioctl::changer_move_medium, move), 1162U);
    EXPECT_EQ(changer.control(ioctl::changer_move_medium, bytes(27), {}, returned), 87U);
    EXPECT_EQ(unit->sent.size(), 4U);
}

TEST_F(ChangerClass, MovesWithARobotThatTheMapCountsAsNone) {
    bytes map = address_page;
    util::store_be16(map, 6, 0x56);
    util::store_be16(map, 8, 0);
    unit->answer(map);
    unit->answer();
    CHANGER_MOVE_MEDIUM move;
    move.Transport = {ChangerTransport, 0};
    move.Source = {ChangerSlot, 0};
    move.Destination = {ChangerSlot, 1};
    ASSERT_EQ(control(ioctl::changer_move_medium, move), 0U);
    EXPECT_EQ(last_cdb()[3], 0x56);
}

TEST_F(ChangerClass, ExchangesMedia) {
    with_map();
    unit->answer();
    CHANGER_EXCHANGE_MEDIUM exchange;
    exchange.Transport = {ChangerTransport, 0};
    exchange.Source = {ChangerSlot, 1};
    exchange.Destination1 = {ChangerDrive, 0};
    exchange.Destination2 = {ChangerSlot, 2};
    exchange.Flip1 = 1;
    ASSERT_EQ(control(ioctl::changer_exchange_medium, exchange), 0U);
    EXPECT_THAT(last_cdb(), ElementsAre(0xA6, 0, 0, 0, 0x10, 0x01, 0x01, 0x00, 0x10, 0x02, 2, 0));
    exchange.Destination2 = {ChangerSlot, 24};
    EXPECT_EQ(control(ioctl::changer_exchange_medium, exchange), 1162U);
    EXPECT_EQ(changer.control(ioctl::changer_exchange_medium, bytes(35), {}, returned), 87U);
}

TEST_F(ChangerClass, TakesStock) {
    unit->answer();
    EXPECT_EQ(changer.control(ioctl::changer_initialize_element_status, {}, {}, returned), 0U);
    EXPECT_THAT(last_cdb(), ElementsAre(0x07, 0, 0, 0, 0, 0));
    with_map();
    unit->answer();
    CHANGER_INITIALIZE_ELEMENT_STATUS request;
    request.Element = {ChangerSlot, 4};
    request.NumberOfElements = 10;
    ASSERT_EQ(control(ioctl::changer_initialize_element_status, request), 0U);
    EXPECT_THAT(last_cdb(), ElementsAre(0x37, 1, 0x10, 0x04, 0, 0, 0, 10, 0, 0));
    // A device that knows no ranges takes stock of everything.
    unit->check_condition(5, 0x20, 0);
    unit->answer();
    ASSERT_EQ(control(ioctl::changer_initialize_element_status, request), 0U);
    EXPECT_EQ(last_cdb()[0], 0x07);
    request.Element = {ChangerDrive, 2};
    EXPECT_EQ(control(ioctl::changer_initialize_element_status, request), 1162U);
}
