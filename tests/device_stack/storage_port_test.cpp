#include "platform/device_stack/storage_port.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device_stack/scripted_transport.h"
#include "foundation/util/bytes.h"
#include "platform/device_stack/storage_class.h"
#include "platform/devices.h"
#include "platform/scsi_records.h"

using namespace platform;
using namespace platform::device_stack;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

using bytes = std::vector<std::uint8_t>;

class StoragePort : public testing::Test {
protected:
    std::uint32_t control(std::uint32_t code, const bytes& input, bytes& output) {
        return port.control(code, input, output, returned);
    }

    /// A pass-through answered in place, as callers send it.
    std::uint32_t in_place(bytes& block, std::size_t input_size, std::size_t output_size) {
        return port.control(ioctl::scsi_pass_through, std::span<const std::uint8_t>(block).first(input_size),
                            std::span(block).first(output_size), returned);
    }

    static SCSI_PASS_THROUGH header_of(const bytes& block) { return util::load_record<SCSI_PASS_THROUGH>(block); }

    static void put(bytes& block, const SCSI_PASS_THROUGH& header) { std::memcpy(block.data(), &header, sizeof(header)); }

    /// The block of an INQUIRY by the buffered form, as serial numbers are read.
    static SCSI_PASS_THROUGH inquiry_header() {
        SCSI_PASS_THROUGH header;
        header.Length = 44;
        header.CdbLength = 6;
        header.SenseInfoLength = 64;
        header.DataIn = SCSI_DATA_IN;
        header.DataTransferLength = 15'535;
        header.TimeOutValue = 10;
        header.DataBufferOffset = 304;
        header.SenseInfoOffset = 48;
        header.Cdb[0] = 0x12;
        header.Cdb[1] = 1;
        header.Cdb[2] = 0x80;
        header.Cdb[4] = 128;
        return header;
    }

    std::shared_ptr<scripted_transport> unit = std::make_shared<scripted_transport>();
    storage_port port{unit, {3, 1, 5, 2}};
    std::uint32_t returned = 99;
};

}  // namespace

TEST_F(StoragePort, CarriesABufferedInquiryByteForByte) {
    bytes block(65'840);
    put(block, inquiry_header());
    unit->answer({0x01, 0x80, 0x00, 0x04, 'S', 'N', '0', '1'});
    ASSERT_EQ(in_place(block, 65'840, 15'839), 0U);

    ASSERT_EQ(unit->sent.size(), 1U);
    EXPECT_THAT(unit->sent[0].cdb, ElementsAre(0x12, 1, 0x80, 0, 128, 0));
    EXPECT_EQ(unit->sent[0].direction, data_direction::from_device);
    EXPECT_EQ(unit->sent[0].room, 15'535U);
    EXPECT_EQ(unit->sent[0].timeout_seconds, 10);

    EXPECT_EQ(returned, 304U + 8U);
    const SCSI_PASS_THROUGH header = header_of(block);
    EXPECT_EQ(header.ScsiStatus, 0);
    EXPECT_EQ(header.DataTransferLength, 8U);
    EXPECT_EQ(header.SenseInfoLength, 0);
    EXPECT_EQ(header.PathId, 1);
    EXPECT_EQ(header.TargetId, 5);
    EXPECT_EQ(header.Lun, 2);
    EXPECT_EQ(header.DataBufferOffset, 304U);
    EXPECT_THAT(bytes(block.begin() + 304, block.begin() + 312), ElementsAre(0x01, 0x80, 0, 4, 'S', 'N', '0', '1'));
    EXPECT_THAT(bytes(block.begin() + 312, block.end()), Each(0));
}

TEST_F(StoragePort, TakesTheBlocksThatItsCallersSend) {
    struct form {
        std::uint32_t transfer;
        std::uint32_t offset;
        std::uint8_t sense;
        std::uint8_t direction;
        std::size_t block;
        std::size_t output;
    };
    constexpr form forms[] = {
        {15'535, 304, 64, SCSI_DATA_IN, 65'840, 15'839},   // INQUIRY for a serial number
        {65'525, 304, 64, SCSI_DATA_IN, 65'840, 65'829},   // element status for drive serials
        {65'536, 560, 240, SCSI_DATA_IN, 66'096, 66'096},  // the buffered form of a command with data
        {0, 560, 240, SCSI_DATA_NONE, 66'096, 560},        // and of one without
    };
    for (const form& sent : forms) {
        bytes block(sent.block);
        SCSI_PASS_THROUGH header = inquiry_header();
        header.DataTransferLength = sent.transfer;
        header.DataBufferOffset = sent.offset;
        header.SenseInfoLength = sent.sense;
        header.DataIn = sent.direction;
        put(block, header);
        unit->answer(bytes(sent.transfer, 0x5A));
        EXPECT_EQ(in_place(block, sent.block, sent.output), 0U) << sent.output;
        EXPECT_EQ(returned, sent.transfer == 0 ? 44 : sent.offset + sent.transfer) << sent.output;
        EXPECT_EQ(header_of(block).DataTransferLength, sent.transfer);
    }
}

TEST_F(StoragePort, ReportsACheckConditionInsideASuccess) {
    bytes block(66'096);
    SCSI_PASS_THROUGH header = inquiry_header();
    header.SenseInfoLength = 240;
    header.DataBufferOffset = 560;
    header.DataTransferLength = 65'536;
    put(block, header);
    unit->check_condition(6, 0x28, 0x00);
    ASSERT_EQ(in_place(block, 66'096, 66'096), 0U);
    EXPECT_EQ(header_of(block).ScsiStatus, 2);
    EXPECT_EQ(header_of(block).SenseInfoLength, 18);
    EXPECT_EQ(header_of(block).DataTransferLength, 0U);
    EXPECT_EQ(returned, 48U + 18U);
    EXPECT_THAT(bytes(block.begin() + 48, block.begin() + 66), ElementsAreArray(scripted_transport::fixed_sense(6, 0x28, 0)));
    EXPECT_THAT(bytes(block.begin() + 66, block.end()), Each(0));
}

TEST_F(StoragePort, CutsSenseAtTheRoomForIt) {
    bytes block(600);
    SCSI_PASS_THROUGH header = inquiry_header();
    header.SenseInfoLength = 8;
    header.DataTransferLength = 100;
    put(block, header);
    unit->check_condition(5, 0x24, 0x00);
    ASSERT_EQ(in_place(block, 600, 600), 0U);
    EXPECT_EQ(header_of(block).SenseInfoLength, 8);
    EXPECT_THAT(bytes(block.begin() + 48, block.begin() + 60), ElementsAre(0x70, 0, 5, 0, 0, 0, 0, 10, 0, 0, 0, 0));
}

TEST_F(StoragePort, PassesOtherStatusesThrough) {
    for (const std::uint8_t status : bytes{0x08, 0x18, 0x28}) {
        bytes block(600);
        SCSI_PASS_THROUGH header = inquiry_header();
        header.DataTransferLength = 100;
        put(block, header);
        unit->status(status);
        ASSERT_EQ(in_place(block, 600, 600), 0U);
        EXPECT_EQ(header_of(block).ScsiStatus, status);
    }
}

TEST_F(StoragePort, FailsTheControlWhenTheTransportFails) {
    bytes block(600);
    SCSI_PASS_THROUGH header = inquiry_header();
    header.DataTransferLength = 100;
    put(block, header);
    const bytes before = block;
    unit->transport_error(1167);
    EXPECT_EQ(in_place(block, 600, 600), 1167U);
    EXPECT_EQ(returned, 0U);
    EXPECT_EQ(block, before);
}

TEST_F(StoragePort, SendsDataOut) {
    bytes block(400);
    SCSI_PASS_THROUGH header = inquiry_header();
    header.DataIn = SCSI_DATA_OUT;
    header.DataTransferLength = 4;
    header.Cdb[0] = 0x15;
    put(block, header);
    const bytes parameters = {9, 8, 7, 6};
    std::copy(parameters.begin(), parameters.end(), block.begin() + 304);
    bytes output(112);  // needs no room for the data
    unit->answer();
    ASSERT_EQ(port.control(ioctl::scsi_pass_through, block, output, returned), 0U);
    EXPECT_EQ(unit->sent[0].direction, data_direction::to_device);
    EXPECT_EQ(unit->sent[0].outgoing, parameters);
    EXPECT_EQ(returned, 44U);
    EXPECT_EQ(header_of(output).DataTransferLength, 4U);
    EXPECT_EQ(header_of(output).Cdb[0], 0x15);
}

TEST_F(StoragePort, AnswersInABufferOfItsOwnAsInPlace) {
    bytes block(320, 0xEE);
    SCSI_PASS_THROUGH header = inquiry_header();
    header.DataTransferLength = 10;
    put(block, header);
    bytes output(320, 0x11);
    unit->answer({1, 2, 3});
    ASSERT_EQ(port.control(ioctl::scsi_pass_through, block, output, returned), 0U);
    EXPECT_EQ(returned, 307U);
    EXPECT_EQ(header_of(output).DataTransferLength, 3U);
    EXPECT_THAT(bytes(output.begin() + 44, output.begin() + 304), Each(0xEE));
    EXPECT_THAT(bytes(output.begin() + 304, output.begin() + 307), ElementsAre(1, 2, 3));
    EXPECT_THAT(bytes(output.begin() + 307, output.end()), Each(0x11));
}

TEST_F(StoragePort, RefusesBadBlocks) {
    const auto refused = [this](auto change, std::size_t input = 600, std::size_t output = 600) {
        bytes block(600);
        SCSI_PASS_THROUGH header = inquiry_header();
        header.DataTransferLength = 100;
        change(header);
        put(block, header);
        return in_place(block, input, output);
    };
    const auto as_it_is = [](SCSI_PASS_THROUGH&) {};
    EXPECT_EQ(refused([](auto& h) { h.Length = 56; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.CdbLength = 0; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.CdbLength = 17; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.DataIn = 3; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.TimeOutValue = 0; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.TimeOutValue = 108'001; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.SenseInfoOffset = 43; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.SenseInfoOffset = 590; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.SenseInfoOffset = 0xFFFFFFFF; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.SenseInfoOffset = 250; }), 87U);  // reaches into the data
    EXPECT_EQ(refused([](auto& h) { h.DataBufferOffset = 40; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.DataBufferOffset = 0xFFFFFFF0; }), 87U);
    EXPECT_EQ(refused([](auto& h) { h.DataTransferLength = 297; }), 87U);  // one more than there is room for
    EXPECT_EQ(refused([](auto& h) { h.DataTransferLength = 0xFFFFFFFF; }), 87U);
    EXPECT_EQ(refused(as_it_is, 43), 87U);
    EXPECT_EQ(refused(as_it_is, 600, 43), 122U);
    EXPECT_EQ(refused(as_it_is, 600, 403), 87U);
    EXPECT_EQ(refused([](auto& h) { h.DataIn = SCSI_DATA_OUT; }, 403), 87U);
    EXPECT_TRUE(unit->sent.empty());
    EXPECT_EQ(returned, 0U);

    unit->answer();
    EXPECT_EQ(refused([](auto& h) { h.DataTransferLength = 296; }), 0U);
    unit->answer();
    EXPECT_EQ(refused([](auto& h) { h.TimeOutValue = 108'000; }), 0U);
}

TEST_F(StoragePort, CarriesADirectRequest) {
    bytes block(560);
    SCSI_PASS_THROUGH header = inquiry_header();
    header.SenseInfoLength = 240;
    header.TimeOutValue = 300;
    header.DataTransferLength = 32;
    header.DataBufferOffset = 0x12345678;  // an address, in this form
    header.CdbLength = 16;
    put(block, header);
    bytes data(40, 0xAA);
    unit->answer(bytes(20, 0x33));
    ASSERT_EQ(port.pass_through_direct(block, data, returned), 0U);
    EXPECT_EQ(returned, 44U);
    EXPECT_EQ(header_of(block).DataTransferLength, 20U);
    EXPECT_EQ(header_of(block).SenseInfoLength, 0);
    EXPECT_EQ(unit->sent[0].room, 32U);
    EXPECT_EQ(unit->sent[0].cdb.size(), 16U);
    EXPECT_EQ(unit->sent[0].timeout_seconds, 300);
    EXPECT_THAT(bytes(data.begin(), data.begin() + 20), Each(0x33));
    EXPECT_THAT(bytes(data.begin() + 20, data.end()), Each(0xAA));
}

TEST_F(StoragePort, ReportsSenseOfADirectRequestWithoutData) {
    bytes block(560);
    SCSI_PASS_THROUGH header = inquiry_header();
    header.SenseInfoLength = 240;
    header.DataIn = SCSI_DATA_NONE;
    header.DataTransferLength = 0;
    put(block, header);
    unit->check_condition(2, 0x04, 0x01);
    ASSERT_EQ(port.pass_through_direct(block, {}, returned), 0U);
    EXPECT_EQ(header_of(block).ScsiStatus, 2);
    EXPECT_EQ(header_of(block).SenseInfoLength, 18);
    EXPECT_EQ(returned, 66U);
    EXPECT_EQ(unit->sent[0].direction, data_direction::none);
}

TEST_F(StoragePort, RefusesADirectRequestForMoreThanItsData) {
    bytes block(560);
    SCSI_PASS_THROUGH header = inquiry_header();
    header.DataTransferLength = 33;
    put(block, header);
    bytes data(32);
    EXPECT_EQ(port.pass_through_direct(block, data, returned), 87U);
    EXPECT_EQ(port.pass_through_direct(std::span(block).first(43), data, returned), 87U);
    EXPECT_TRUE(unit->sent.empty());
}

TEST_F(StoragePort, TellsItsAddress) {
    bytes output(8);
    ASSERT_EQ(control(ioctl::scsi_get_address, {}, output), 0U);
    EXPECT_THAT(output, ElementsAre(8, 0, 0, 0, 3, 1, 5, 2));
    EXPECT_EQ(returned, 8U);
    bytes small(7);
    EXPECT_EQ(control(ioctl::scsi_get_address, {}, small), 122U);
    EXPECT_EQ(returned, 0U);
}

TEST_F(StoragePort, LaysOutDeviceIdentifiers) {
    const bytes page = {0x08, 0x83, 0x00, 0x15, 0x02, 0xA1, 0x00, 0x05, 'T', 'A', 'R', 'N', 'O',  // T10 vendor, target port
                        0x01, 0x03, 0x00, 0x08, 0x50, 1,    2,    3,    4,   5,   6,   7};
    unit->answer(page);
    bytes output(8192);
    ASSERT_EQ(control(ioctl::storage_query_property, {2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, output), 0U);
    EXPECT_THAT(unit->sent[0].cdb, ElementsAre(0x12, 0x01, 0x83, 0x00, 0xFC, 0x00));
    const bytes expected = {16,   0,   0,   0,   60,  0, 0, 0, 2, 0, 0,  0,              // version, size, count
                            2,    0,   0,   0,   1,   0, 0, 0, 5, 0, 24, 0, 2, 0, 0, 0,  // code set, type, size, next, association
                            'T',  'A', 'R', 'N', 'O', 0, 0, 0,                           // padded to the next
                            1,    0,   0,   0,   3,   0, 0, 0, 8, 0, 0,  0, 0, 0, 0, 0,  //
                            0x50, 1,   2,   3,   4,   5, 6, 7};
    EXPECT_EQ(returned, expected.size());
    EXPECT_THAT(bytes(output.begin(), output.begin() + returned), ElementsAreArray(expected));
}

TEST_F(StoragePort, LeavesOutADesignatorThatDidNotComeWhole) {
    unit->answer({0x01, 0x83, 0x00, 0x40, 0x02, 0x01, 0x00, 0x02, 'A', 'B', 0x02, 0x01, 0x00, 0x20, 'C'});
    bytes output(8192);
    ASSERT_EQ(control(ioctl::storage_query_property, bytes{2, 0, 0, 0, 0, 0, 0, 0}, output), 0U);
    EXPECT_EQ(returned, 12U + 16U + 2U);
    EXPECT_EQ(output[8], 1);
    EXPECT_EQ(output[12 + 10], 0);  // nothing follows
}

TEST_F(StoragePort, ReadsALongIdentificationPageWhole) {
    bytes page(4 + 4 + 255 + 4 + 3);
    page[0] = 0x08;
    page[1] = 0x83;
    page[2] = 0x01;
    page[3] = 0x0A;
    page[4] = 2;
    page[5] = 1;
    page[7] = 255;
    page[4 + 4 + 255] = 2;
    page[4 + 4 + 255 + 3] = 3;
    unit->answer(page);
    unit->answer(page);
    bytes output(8192);
    ASSERT_EQ(control(ioctl::storage_query_property, bytes(12, 0), output), 50U);  // property 0
    ASSERT_EQ(control(ioctl::storage_query_property, bytes{2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, output), 0U);
    ASSERT_EQ(unit->sent.size(), 2U);
    EXPECT_THAT(unit->sent[1].cdb, ElementsAre(0x12, 0x01, 0x83, 0x01, 0x0E, 0x00));
    EXPECT_EQ(output[8], 2);
}

TEST_F(StoragePort, AnswersAnIdentifierQueryByItsOutcome) {
    const bytes query = {2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    bytes output(8192);
    unit->check_condition(5, 0x24, 0x00);
    EXPECT_EQ(control(ioctl::storage_query_property, query, output), 50U);
    unit->check_condition(6, 0x28, 0x00);
    EXPECT_EQ(control(ioctl::storage_query_property, query, output), 1110U);
    unit->answer({0x08, 0x00, 0x00, 0x00});  // a device that ignores the page code
    EXPECT_EQ(control(ioctl::storage_query_property, query, output), 50U);
    EXPECT_EQ(control(ioctl::storage_query_property, {2, 0, 0}, output), 87U);
    bytes tiny(7);
    EXPECT_EQ(control(ioctl::storage_query_property, query, tiny), 122U);
    EXPECT_EQ(returned, 0U);

    unit->answer({0x08, 0x83, 0x00, 0x00});
    EXPECT_EQ(control(ioctl::storage_query_property, query, output), 0U);
    EXPECT_EQ(returned, 12U);
    EXPECT_EQ(output[8], 0);

    unit->answer({0x08, 0x83, 0x00, 0x06, 2, 1, 0, 2, 'A', 'B'});
    bytes head(8);
    EXPECT_EQ(control(ioctl::storage_query_property, query, head), 0U);
    EXPECT_THAT(head, ElementsAre(16, 0, 0, 0, 30, 0, 0, 0));
    EXPECT_EQ(returned, 8U);
}

TEST_F(StoragePort, LocksAndFreesTheMedium) {
    bytes none;
    unit->answer();
    EXPECT_EQ(control(ioctl::storage_media_removal, {1}, none), 0U);
    EXPECT_THAT(unit->sent[0].cdb, ElementsAre(0x1E, 0, 0, 0, 1, 0));
    unit->answer();
    EXPECT_EQ(control(ioctl::storage_media_removal, {0}, none), 0U);
    EXPECT_THAT(unit->sent[1].cdb, ElementsAre(0x1E, 0, 0, 0, 0, 0));
    unit->check_condition(5, 0x20, 0x00);
    EXPECT_EQ(control(ioctl::storage_media_removal, {1}, none), 50U);
    unit->check_condition(6, 0x28, 0x00);
    EXPECT_EQ(control(ioctl::storage_media_removal, {1}, none), 1110U);
    EXPECT_EQ(control(ioctl::storage_media_removal, {}, none), 87U);
    EXPECT_EQ(unit->sent.size(), 4U);
}

TEST_F(StoragePort, KnowsNoClassControls) {
    bytes output(256);
    EXPECT_EQ(control(ioctl::storage_get_device_number, {}, output), 1U);
    EXPECT_EQ(control(ioctl::changer_get_parameters, {}, output), 1U);
    EXPECT_EQ(control(ioctl::changer_get_element_status, bytes(16), output), 1U);
    EXPECT_EQ(control(0x12345678, {}, output), 1U);
    EXPECT_TRUE(unit->sent.empty());
}

TEST_F(StoragePort, ItsClassTellsTheDeviceNumber) {
    storage_class tape(unit, {3, 1, 5, 2}, FILE_DEVICE_TAPE, 7);
    bytes output(12);
    ASSERT_EQ(tape.control(ioctl::storage_get_device_number, {}, output, returned), 0U);
    EXPECT_THAT(output, ElementsAre(0x1F, 0, 0, 0, 7, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF));
    EXPECT_EQ(returned, 12U);
    bytes small(11);
    EXPECT_EQ(tape.control(ioctl::storage_get_device_number, {}, small, returned), 122U);
    EXPECT_EQ(tape.control(ioctl::changer_get_status, {}, output, returned), 1U);
    bytes address(8);
    EXPECT_EQ(tape.control(ioctl::scsi_get_address, {}, address, returned), 0U);
}
