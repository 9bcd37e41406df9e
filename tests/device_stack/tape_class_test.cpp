#include "platform/device_stack/tape_class.h"

#include <gtest/gtest.h>

#include "device_stack/scripted_transport.h"
#include "device_stack/tape_answers.h"
#include "platform/devices.h"
#include "platform/scsi_records.h"
#include "platform/testing/fakes.h"

using namespace platform;
using namespace platform::device_stack;
using namespace tape_answers;

namespace {

const bytes test_unit_ready{0x00, 0, 0, 0, 0, 0};

/// Medium partition page: at most three partitions more, two of them made.
const bytes partitions_page{0x11, 6, 3, 2, 0, 0, 0, 0};
const bytes configuration_page{0x10, 14, 0, 0, 0, 0, 0, 0, 0x20, 0, 0, 0x01, 0x02, 0x03, 0, 0};

class TapeClass : public ::testing::Test {
protected:
    [[nodiscard]] const bytes& cdb(std::size_t at) const { return transport->sent.at(at).cdb; }
    [[nodiscard]] bytes last_cdb() const { return transport->sent.back().cdb; }
    [[nodiscard]] std::int64_t last_timeout() const { return transport->sent.back().timeout_seconds; }
    [[nodiscard]] std::size_t commands() const { return transport->sent.size(); }

    platform::testing::test_system system_;
    std::shared_ptr<scripted_transport> transport = std::make_shared<scripted_transport>();
    tape_class tape{transport, {0, 0, 1, 2}, 7};
    TAPE_GET_MEDIA_PARAMETERS media;
    TAPE_GET_DRIVE_PARAMETERS drive;
};

}  // namespace

TEST_F(TapeClass, TellsTheMedium) {
    transport->answer();
    transport->answer(mode(0x90, 0x5E, 0x010203, partitions_page));
    transport->answer(attributes({{0x0000, be64(3)}, {0x0001, be64(8)}}));
    ASSERT_EQ(tape.get_media_parameters(media), 0U);
    EXPECT_EQ(media.Capacity, 8U << 20);
    EXPECT_EQ(media.Remaining, 3U << 20);
    EXPECT_EQ(media.BlockSize, 0x010203U);
    EXPECT_EQ(media.PartitionCount, 3U);
    EXPECT_EQ(media.WriteProtected, 1);
    ASSERT_EQ(commands(), 3U);
    EXPECT_EQ(cdb(0), test_unit_ready);
    EXPECT_EQ(cdb(1), (bytes{0x1A, 0, 0x11, 0, 252, 0}));
    EXPECT_EQ(cdb(2)[0], 0x8C);
}

TEST_F(TapeClass, ReadsTheMediumOfADriveWithoutPartitions) {
    transport->answer();
    transport->check_condition(5, 0x24, 0);
    transport->answer(mode(0x10, 0x44, 0, configuration_page));
    transport->answer(attributes({{0x0000, be64(1)}, {0x0001, be64(1)}}));
    ASSERT_EQ(tape.get_media_parameters(media), 0U);
    EXPECT_EQ(media.PartitionCount, 1U);
    EXPECT_EQ(media.WriteProtected, 0);
    EXPECT_EQ(media.BlockSize, 0U);
    EXPECT_EQ(cdb(2), (bytes{0x1A, 0, 0x10, 0, 252, 0}));
}

TEST_F(TapeClass, ReadsTheMediumOfADriveWithPagesOfItsOwn) {
    transport->answer();
    transport->check_condition(5, 0x24, 0);
    transport->check_condition(5, 0x24, 0);
    transport->answer({15, 0, 0x80, 0});  // a header alone
    for (int way = 0; way < 3; ++way) {
        transport->check_condition(5, 0x20, 0);
    }
    ASSERT_EQ(tape.get_media_parameters(media), 0U);
    EXPECT_EQ(media.Capacity, 0U);
    EXPECT_EQ(media.Remaining, 0U);
    EXPECT_EQ(media.BlockSize, 0U);
    EXPECT_EQ(media.PartitionCount, 1U);
    EXPECT_EQ(media.WriteProtected, 1);
    EXPECT_EQ(cdb(3), (bytes{0x1A, 0, 0x3F, 0, 252, 0}));
}

TEST_F(TapeClass, FailsWhereTheMediumCannotBeAskedAbout) {
    transport->answer();
    for (int page = 0; page < 3; ++page) {
        transport->check_condition(5, 0x20, 0);
    }
    EXPECT_EQ(tape.get_media_parameters(media), 50U);
    EXPECT_EQ(commands(), 4U);
}

TEST_F(TapeClass, TellsWhyThereIsNoMediumToTellOf) {
    transport->check_condition(6, 0x28, 0);
    EXPECT_EQ(tape.get_media_parameters(media), 1110U);
    transport->check_condition(6, 0x29, 0);
    EXPECT_EQ(tape.get_media_parameters(media), 1111U);
    transport->check_condition(2, 0x3A, 0);
    EXPECT_EQ(tape.get_media_parameters(media), 1112U);
    transport->check_condition(2, 0x04, 0x01);
    EXPECT_EQ(tape.get_media_parameters(media), 21U);
    transport->transport_error(1167);
    EXPECT_EQ(tape.get_media_parameters(media), 1167U);
    // One command each: nothing is repeated, nothing swallowed.
    EXPECT_EQ(commands(), 5U);
}

TEST_F(TapeClass, ReportsAFaultInTheMiddleOfTheMediumsParameters) {
    transport->answer();
    transport->check_condition(6, 0x28, 0);
    EXPECT_EQ(tape.get_media_parameters(media), 1110U);
    transport->answer();
    transport->answer(mode(0, 0, 0, partitions_page));
    transport->transport_error(1117);
    EXPECT_EQ(tape.get_media_parameters(media), 1117U);
}

TEST_F(TapeClass, LeavesTheMediumsParametersAMinuteAltogether) {
    transport->otherwise([this](const scsi_command& command) {
        system_.clock.advance(11'000);
        scsi_outcome outcome;
        const bytes data = mode(0, 0, 0, partitions_page);
        if (command.cdb[0] == 0x1A) {
            std::copy(data.begin(), data.end(), command.data.begin());
            outcome.transferred = static_cast<std::uint32_t>(data.size());
        }
        return outcome;
    });
    ASSERT_EQ(tape.get_media_parameters(media), 0U);
    // Readiness, the mode page, and the three ways to a capacity of which none tells it.
    std::vector<std::int64_t> left;
    for (const auto& one : transport->sent) {
        left.push_back(one.timeout_seconds);
    }
    EXPECT_EQ(left, (std::vector<std::int64_t>{60, 49, 38, 27, 16}));
}

TEST_F(TapeClass, SurvivesModeDataWhoseLengthsLie) {
    const bytes whole = mode(0x80, 0x5E, 512, partitions_page);
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        transport->answer();
        transport->answer(bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        transport->answer(attributes({{0x0000, be64(1)}, {0x0001, be64(1)}}));
        ASSERT_EQ(tape.get_media_parameters(media), 0U) << size;
        EXPECT_EQ(media.WriteProtected, size > 2 ? 1 : 0) << size;
        EXPECT_EQ(media.PartitionCount, size > 15 ? 3U : 1U) << size;
    }
    for (const std::size_t at : {0U, 3U, 13U}) {
        for (const int value : {0, 1, 7, 9, 0x7F, 0xFF}) {
            bytes lying = whole;
            lying[at] = static_cast<std::uint8_t>(value);
            transport->answer();
            transport->answer(lying);
            transport->answer(attributes({{0x0000, be64(1)}, {0x0001, be64(1)}}));
            ASSERT_EQ(tape.get_media_parameters(media), 0U) << at << " " << value;
            EXPECT_EQ(media.WriteProtected, 1);
        }
    }
}

TEST_F(TapeClass, TellsTheDriveWithoutAMedium) {
    transport->answer({0, 0x80, 0x00, 0x01, 0x00, 0x04});
    transport->answer(mode(0x10, 0, 65'536, configuration_page));
    transport->answer(mode(0x10, 0, 65'536, {0x0F, 14, 0xC0, 0x80, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0}));
    transport->answer(mode(0x10, 0, 65'536, partitions_page));
    ASSERT_EQ(tape.get_drive_parameters(drive), 0U);
    EXPECT_EQ(drive.MaximumBlockSize, 0x800001U);
    EXPECT_EQ(drive.MinimumBlockSize, 4U);
    EXPECT_EQ(drive.DefaultBlockSize, 65'536U);
    EXPECT_EQ(drive.Compression, 1);
    EXPECT_EQ(drive.ReportSetmarks, 1);
    EXPECT_EQ(drive.EOTWarningZoneSize, 0x010203U);
    EXPECT_EQ(drive.MaximumPartitionCount, 4U);
    EXPECT_EQ(drive.FeaturesLow, TAPE_DRIVE_COMPRESSION | TAPE_DRIVE_REPORT_SMKS);
    ASSERT_EQ(commands(), 4U);
    EXPECT_EQ(cdb(0), (bytes{0x05, 0, 0, 0, 0, 0}));
    EXPECT_EQ(transport->sent[0].room, 6U);
    EXPECT_EQ(cdb(1), (bytes{0x1A, 0, 0x10, 0, 252, 0}));
    EXPECT_EQ(cdb(2), (bytes{0x1A, 0, 0x0F, 0, 252, 0}));
    EXPECT_EQ(cdb(3), (bytes{0x1A, 0, 0x11, 0, 252, 0}));
}

TEST_F(TapeClass, TellsAPlainDrive) {
    transport->answer({0, 0, 0, 0, 0, 1});  // no upper limit
    transport->check_condition(5, 0x24, 0);
    transport->answer(mode(0, 0, 512, {}));
    transport->check_condition(5, 0x24, 0);
    transport->check_condition(5, 0x24, 0);
    drive.Compression = 1;
    ASSERT_EQ(tape.get_drive_parameters(drive), 0U);
    EXPECT_EQ(drive.MaximumBlockSize, 0xFFFFFFU);
    EXPECT_EQ(drive.MinimumBlockSize, 1U);
    EXPECT_EQ(drive.DefaultBlockSize, 512U);
    EXPECT_EQ(drive.Compression, 0);
    EXPECT_EQ(drive.MaximumPartitionCount, 1U);
    EXPECT_EQ(drive.FeaturesLow, 0U);
    EXPECT_EQ(cdb(2), (bytes{0x1A, 0, 0x3F, 0, 252, 0}));
}

TEST_F(TapeClass, ReportsFailuresOfTheDrivesParameters) {
    transport->check_condition(6, 0x29, 0);
    EXPECT_EQ(tape.get_drive_parameters(drive), 1111U);
    transport->check_condition(6, 0x28, 0);
    EXPECT_EQ(tape.get_drive_parameters(drive), 1110U);
    transport->answer({0, 1, 0});  // half an answer
    EXPECT_EQ(tape.get_drive_parameters(drive), 1117U);
    EXPECT_EQ(commands(), 3U);
    transport->answer({0, 0, 1, 0, 0, 1});
    transport->answer(mode(0, 0, 0, configuration_page));
    transport->check_condition(6, 0x29, 0);
    EXPECT_EQ(tape.get_drive_parameters(drive), 1111U);
}

TEST_F(TapeClass, PreparesByTheCommandOfEachOperation) {
    const struct {
        std::uint32_t operation;
        bytes waiting;
        bytes immediate;
        std::int64_t seconds;
    } operations[] = {
        {TAPE_LOAD, {0x1B, 0, 0, 0, 1, 0}, {0x1B, 1, 0, 0, 1, 0}, 9000},
        {TAPE_UNLOAD, {0x1B, 0, 0, 0, 0, 0}, {0x1B, 1, 0, 0, 0, 0}, 1200},
        {TAPE_TENSION, {0x1B, 0, 0, 0, 3, 0}, {0x1B, 1, 0, 0, 3, 0}, 3600},
        {TAPE_LOCK, {0x1E, 0, 0, 0, 1, 0}, {0x1E, 0, 0, 0, 1, 0}, 60},
        {TAPE_UNLOCK, {0x1E, 0, 0, 0, 0, 0}, {0x1E, 0, 0, 0, 0, 0}, 60},
        {TAPE_FORMAT, {0x04, 0, 0, 0, 0, 0}, {0x04, 1, 0, 0, 0, 0}, 14'400},
    };
    for (const auto& one : operations) {
        transport->answer();
        EXPECT_EQ(tape.prepare(one.operation, false), 0U);
        EXPECT_EQ(last_cdb(), one.waiting);
        EXPECT_EQ(last_timeout(), one.seconds);
        transport->answer();
        EXPECT_EQ(tape.prepare(one.operation, true), 0U);
        EXPECT_EQ(last_cdb(), one.immediate);
        transport->check_condition(2, 0x3A, 0);
        EXPECT_EQ(tape.prepare(one.operation, false), 1112U);
        transport->check_condition(5, 0x20, 0);
        EXPECT_EQ(tape.prepare(one.operation, false), 50U);
        transport->transport_error(121);
        EXPECT_EQ(tape.prepare(one.operation, false), 121U);
    }
    EXPECT_EQ(commands(), 5 * std::size(operations));
}

TEST_F(TapeClass, NamesAFailureToEjectByWhatWasAskedFor) {
    const std::uint32_t expected[] = {1117, 1109, 1117, 1108, 1108, 1117};
    for (std::uint32_t operation = TAPE_LOAD; operation <= TAPE_FORMAT; ++operation) {
        transport->check_condition(5, 0x53, 0x02);
        EXPECT_EQ(tape.prepare(operation, false), expected[operation]) << operation;
    }
}

TEST_F(TapeClass, RefusesOperationsThatThereAreNot) {
    EXPECT_EQ(tape.prepare(6, false), 87U);
    EXPECT_EQ(tape.prepare(0xFFFFFFFF, true), 87U);
    EXPECT_EQ(tape.set_position(1, false), 50U);
    EXPECT_EQ(tape.erase(2, false), 87U);
    EXPECT_EQ(commands(), 0U);
}

TEST_F(TapeClass, Rewinds) {
    transport->answer();
    EXPECT_EQ(tape.set_position(TAPE_REWIND, false), 0U);
    EXPECT_EQ(last_cdb(), (bytes{0x01, 0, 0, 0, 0, 0}));
    EXPECT_EQ(last_timeout(), 1200);
    transport->answer();
    EXPECT_EQ(tape.set_position(TAPE_REWIND, true), 0U);
    EXPECT_EQ(last_cdb(), (bytes{0x01, 1, 0, 0, 0, 0}));
    transport->check_condition(0x80, 0, 0x01);
    EXPECT_EQ(tape.set_position(TAPE_REWIND, false), 1101U);
}

TEST_F(TapeClass, ErasesShortlyInOneCommand) {
    transport->answer();
    EXPECT_EQ(tape.erase(TAPE_ERASE_SHORT, false), 0U);
    EXPECT_EQ(last_cdb(), (bytes{0x19, 0, 0, 0, 0, 0}));
    EXPECT_EQ(last_timeout(), 1200);
    transport->answer();
    EXPECT_EQ(tape.erase(TAPE_ERASE_SHORT, true), 0U);
    EXPECT_EQ(last_cdb(), (bytes{0x19, 2, 0, 0, 0, 0}));
    transport->check_condition(7, 0x27, 0);
    EXPECT_EQ(tape.erase(TAPE_ERASE_SHORT, false), 19U);
    EXPECT_EQ(commands(), 3U);
}

TEST_F(TapeClass, BeginsALongEraseAndLeavesIt) {
    transport->answer();
    EXPECT_EQ(tape.erase(TAPE_ERASE_LONG, true), 0U);
    EXPECT_EQ(last_cdb(), (bytes{0x19, 3, 0, 0, 0, 0}));
    EXPECT_EQ(last_timeout(), 86'400);
    transport->check_condition(5, 0x24, 0);
    EXPECT_EQ(tape.erase(TAPE_ERASE_LONG, true), 50U);
    EXPECT_EQ(commands(), 2U);
}

TEST_F(TapeClass, TellsWhetherTheDriveIsReady) {
    transport->answer();
    EXPECT_EQ(tape.get_status(), 0U);
    EXPECT_EQ(last_cdb(), test_unit_ready);
    EXPECT_EQ(last_timeout(), 60);
    transport->check_condition(2, 0x3A, 0);
    EXPECT_EQ(tape.get_status(), 1112U);
    transport->status(0x08);
    EXPECT_EQ(tape.get_status(), 170U);
}

TEST_F(TapeClass, ServesTheDeviceControlsOfEveryClassDriver) {
    bytes output(12);
    std::uint32_t returned = 0;
    ASSERT_EQ(tape.control(ioctl::storage_get_device_number, {}, output, returned), 0U);
    EXPECT_EQ(output[0], FILE_DEVICE_TAPE);
    EXPECT_EQ(output[4], 7);
    ASSERT_EQ(tape.control(ioctl::scsi_get_address, {}, output, returned), 0U);
    EXPECT_EQ(output[7], 2);
    transport->answer();
    const bytes prevent{1};
    EXPECT_EQ(tape.control(ioctl::storage_media_removal, prevent, {}, returned), 0U);
    EXPECT_EQ(last_cdb(), (bytes{0x1E, 0, 0, 0, 1, 0}));
}
