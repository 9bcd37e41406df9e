#include "platform/device_stack/tape_sense.h"

#include <gtest/gtest.h>

#include "device_stack/scripted_transport.h"

using namespace platform::device_stack;

namespace {

using bytes = std::vector<std::uint8_t>;

scsi_outcome check(bytes sense) {
    scsi_outcome outcome;
    outcome.scsi_status = 2;
    outcome.sense = std::move(sense);
    return outcome;
}

std::uint32_t error_of(std::uint8_t key, std::uint8_t asc, std::uint8_t ascq) {
    return tape_error_of(check(scripted_transport::fixed_sense(key, asc, ascq)));
}

struct meaning {
    std::uint8_t key;
    std::uint8_t asc;
    std::uint8_t ascq;
    std::uint32_t status;
};

}  // namespace

TEST(TapeSense, GivesEachConditionItsNumber) {
    const meaning meanings[] = {
        {0x0, 0x00, 0x01, 1101},                           // filemark
        {0x0, 0x00, 0x02, 1100},                           // end of partition or medium
        {0x3, 0x00, 0x02, 1100}, {0x0, 0x00, 0x03, 1103},  // setmark
        {0x0, 0x00, 0x04, 1102},                           // beginning of partition or medium
        {0x8, 0x00, 0x05, 1104},                           // end of data
        {0x8, 0x14, 0x03, 1104},                           // no end of data found on a blank tape
        {0x8, 0x00, 0x00, 1104}, {0x5, 0x3B, 0x01, 1102},
        {0x5, 0x3B, 0x02, 1100}, {0xD, 0x00, 0x00, 1100},  // volume overflow
        {0x6, 0x28, 0x00, 1110}, {0x6, 0x28, 0x01, 1110},
        {0x6, 0x29, 0x00, 1111}, {0x6, 0x29, 0x04, 1111},
        {0x6, 0x2A, 0x01, 1111},  // mode parameters changed: look again
        {0x6, 0x3F, 0x01, 1111},  // microcode changed
        {0x2, 0x3A, 0x00, 1112}, {0x2, 0x3A, 0x04, 1112},
        {0x6, 0x3A, 0x00, 1112}, {0x2, 0x04, 0x01, 21},
        {0x2, 0x04, 0x07, 21},   {0x2, 0x30, 0x03, 21},  // a cleaning cartridge is no medium to be ready with
        {0x7, 0x27, 0x00, 19},   {0x2, 0x27, 0x01, 19},
        {0x7, 0x27, 0x05, 19},   {0x7, 0x30, 0x0C, 19},  // overwriting a write-once medium
        {0x7, 0x74, 0x02, 1117}, {0x5, 0x20, 0x00, 50},
        {0x5, 0x22, 0x00, 50},   {0x5, 0x24, 0x00, 50},
        {0x5, 0x26, 0x00, 50},   {0x5, 0x25, 0x00, 15},
        {0x2, 0x05, 0x00, 20},   {0x5, 0x53, 0x02, 1109},
        {0x4, 0x53, 0x00, 1109}, {0x3, 0x50, 0x00, 1117},
        {0x3, 0x51, 0x00, 1117}, {0x3, 0x52, 0x00, 1117},
        {0x4, 0x44, 0x00, 1117}, {0x5, 0x2C, 0x00, 1117},
        {0x5, 0x3B, 0x0C, 1117}, {0xB, 0x4E, 0x00, 1117},
        {0x1, 0x17, 0x01, 0},    {0x0, 0x00, 0x00, 0},
    };
    for (const meaning& one : meanings) {
        EXPECT_EQ(error_of(one.key, one.asc, one.ascq), one.status)
            << std::hex << int{one.key} << " " << int{one.asc} << "/" << int{one.ascq};
    }
}

TEST(TapeSense, ReadsMarksThatAreToldByBitsAlone) {
    const auto with_bits = [](std::uint8_t bits) { return tape_error_of(check(scripted_transport::fixed_sense(bits, 0, 0))); };
    EXPECT_EQ(with_bits(0x80), 1101U);
    EXPECT_EQ(with_bits(0x40), 1100U);
    EXPECT_EQ(with_bits(0xC0), 1101U);
    EXPECT_EQ(with_bits(0x20), 0U);  // a block of another length than asked for
    // In descriptor format they stand in the descriptor of stream commands.
    EXPECT_EQ(tape_error_of(check({0x72, 0, 0, 0, 0, 0, 0, 4, 0x04, 2, 0, 0x80})), 1101U);
    EXPECT_EQ(tape_error_of(check({0x72, 0, 0, 0, 0, 0, 0, 8, 0x01, 2, 0, 0xFF, 0x04, 2, 0, 0x40})), 1100U);
    EXPECT_EQ(tape_error_of(check({0x72, 0, 0, 0, 0, 0, 0, 4, 0x05, 2, 0, 0x80})), 0U);
}

TEST(TapeSense, CountsADeferredFaultAgainstTheCommandThatBringsIt) {
    EXPECT_EQ(tape_error_of(check({0x71, 0, 3, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x51, 0x00, 0, 0, 0, 0})), 1117U);
    EXPECT_EQ(tape_error_of(check({0x73, 7, 0x27, 0x00, 0, 0, 0, 0})), 19U);
    // Overcome or not, it kept the command from being carried out.
    EXPECT_EQ(tape_error_of(check({0x71, 0, 1, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x17, 0x01, 0, 0, 0, 0})), 1117U);
}

TEST(TapeSense, ReadsNoMoreThanCame) {
    EXPECT_EQ(tape_error_of(check({})), 1117U);
    EXPECT_EQ(tape_error_of(check({0x70, 0, 2})), 21U);
    EXPECT_EQ(tape_error_of(check({0x00, 0, 0})), 1117U);
    EXPECT_EQ(tape_error_of(check({0x72, 0, 0, 0, 0, 0, 0, 0xFF, 0x04, 0xFF, 0})), 0U);
    EXPECT_EQ(tape_error_of(check({0x72, 0, 0, 0, 0, 0, 0, 0, 0x04, 2, 0, 0x80})), 0U);
}

TEST(TapeSense, LetsStatusesAndTransportFailuresPass) {
    scsi_outcome outcome;
    EXPECT_EQ(tape_error_of(outcome), 0U);
    outcome.scsi_status = 0x18;
    EXPECT_EQ(tape_error_of(outcome), 170U);
    outcome.scsi_status = 0x40;
    EXPECT_EQ(tape_error_of(outcome), 1117U);
    outcome.transport_error = 1167;
    EXPECT_EQ(tape_error_of(outcome), 1167U);
    EXPECT_FALSE(is_refused(outcome));
}

TEST(TapeSense, KnowsARefusal) {
    EXPECT_TRUE(is_refused(check(scripted_transport::fixed_sense(5, 0x20, 0))));
    EXPECT_TRUE(is_refused(check(scripted_transport::fixed_sense(5, 0x24, 0))));
    EXPECT_FALSE(is_refused(check(scripted_transport::fixed_sense(5, 0x25, 0))));
    EXPECT_FALSE(is_refused(check(scripted_transport::fixed_sense(2, 0x3A, 0))));
    EXPECT_FALSE(is_refused(scsi_outcome{}));
}

TEST(TapeSense, KnowsOperationsInProgress) {
    for (const meaning& one : {meaning{0, 0x00, 0x16, 0},
                               {0, 0x00, 0x18, 0},
                               {2, 0x04, 0x01, 0},
                               {2, 0x04, 0x04, 0},
                               {2, 0x04, 0x07, 0},
                               {2, 0x04, 0x08, 0}}) {
        EXPECT_TRUE(tells_operation_in_progress({one.key, one.asc, one.ascq, false})) << int{one.asc} << "/" << int{one.ascq};
        EXPECT_FALSE(tells_operation_in_progress({6, one.asc, one.ascq, false}));
    }
    EXPECT_FALSE(tells_operation_in_progress({2, 0x04, 0x00, false}));
    EXPECT_FALSE(tells_operation_in_progress({2, 0x3A, 0x00, false}));
    EXPECT_FALSE(tells_operation_in_progress({0, 0x00, 0x00, false}));
}

TEST(TapeSense, ReadsProgressWhereItIsTold) {
    EXPECT_EQ(progress_of(bytes{0x70, 0, 2, 0, 0, 0, 0, 10, 0, 0, 0, 0, 4, 7, 0, 0x80, 0x40, 0x01}), 0x4001);
    EXPECT_EQ(progress_of(bytes{0x70, 0, 2, 0, 0, 0, 0, 10, 0, 0, 0, 0, 4, 7, 0, 0x00, 0x40, 0x01}), std::nullopt);
    EXPECT_EQ(progress_of(bytes{0x70, 0, 2, 0, 0, 0, 0, 10, 0, 0, 0, 0, 4, 7, 0, 0x80, 0x40}), std::nullopt);
    EXPECT_EQ(progress_of(bytes{0x72, 2, 4, 7, 0, 0, 0, 8, 0x02, 6, 0, 0, 0x80, 0xFF, 0xFE, 0}), 0xFFFE);
    EXPECT_EQ(progress_of(bytes{0x72, 2, 4, 7, 0, 0, 0, 5, 0x02, 6, 0, 0, 0x80, 0xFF, 0xFE, 0}), std::nullopt);
    EXPECT_EQ(progress_of(bytes{}), std::nullopt);
}
