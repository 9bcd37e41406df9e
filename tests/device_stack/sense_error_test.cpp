#include "platform/device_stack/sense_error.h"

#include <gtest/gtest.h>

#include "device_stack/scripted_transport.h"

using namespace platform::device_stack;

namespace {

scsi_outcome check(std::vector<std::uint8_t> sense) {
    scsi_outcome outcome;
    outcome.scsi_status = 2;
    outcome.sense = std::move(sense);
    return outcome;
}

std::uint32_t error_of(std::uint8_t key, std::uint8_t asc, std::uint8_t ascq) {
    return system_error_of(check(scripted_transport::fixed_sense(key, asc, ascq)));
}

scsi_outcome status(std::uint8_t code) {
    scsi_outcome outcome;
    outcome.scsi_status = code;
    return outcome;
}

}  // namespace

TEST(SenseError, MapsWhatAChangerReports) {
    EXPECT_EQ(error_of(5, 0x3B, 0x0E), 1160U);
    EXPECT_EQ(error_of(5, 0x3B, 0x0D), 1161U);
    EXPECT_EQ(error_of(5, 0x21, 0x01), 1162U);
    EXPECT_EQ(error_of(5, 0x3B, 0x11), 1163U);
    EXPECT_EQ(error_of(2, 0x3B, 0x11), 1163U);
    EXPECT_EQ(error_of(2, 0x04, 0x18), 1166U);
    EXPECT_EQ(error_of(6, 0x28, 0x00), 1110U);
    EXPECT_EQ(error_of(6, 0x29, 0x00), 1111U);
    EXPECT_EQ(error_of(6, 0x29, 0x07), 1111U);
    EXPECT_EQ(error_of(2, 0x3A, 0x00), 1112U);
    EXPECT_EQ(error_of(2, 0x3A, 0x03), 1112U);
    EXPECT_EQ(error_of(2, 0x04, 0x01), 21U);
    EXPECT_EQ(error_of(2, 0x04, 0x03), 21U);
}

TEST(SenseError, GivesTheRestOneNumber) {
    EXPECT_EQ(error_of(4, 0x15, 0x01), 1117U);
    EXPECT_EQ(error_of(5, 0x24, 0x00), 1117U);
    EXPECT_EQ(error_of(5, 0x21, 0x00), 1117U);
    EXPECT_EQ(error_of(6, 0x28, 0x01), 1117U);
    EXPECT_EQ(error_of(5, 0x53, 0x02), 1117U);
}

TEST(SenseError, TakesARecoveredErrorAsWorkDone) {
    EXPECT_EQ(error_of(1, 0x3B, 0x0E), 0U);
    EXPECT_EQ(error_of(0, 0x00, 0x00), 0U);
}

TEST(SenseError, ReadsDescriptorAndDeferredFormats) {
    EXPECT_EQ(system_error_of(check({0x72, 5, 0x3B, 0x0E, 0, 0, 0, 0})), 1160U);
    EXPECT_EQ(system_error_of(check({0x73, 6, 0x28, 0x00, 0, 0, 0, 0})), 1110U);
    EXPECT_EQ(system_error_of(check({0xF1, 0, 2, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x3A, 0, 0, 0, 0, 0})), 1112U);
}

TEST(SenseError, ReadsNoMoreThanCame) {
    EXPECT_EQ(system_error_of(check({})), 1117U);
    EXPECT_EQ(system_error_of(check({0x70, 0, 2})), 21U);
    EXPECT_EQ(system_error_of(check({0x72, 6})), 1117U);
    EXPECT_EQ(system_error_of(check({0x7F, 0, 2, 0, 0, 0, 0, 0})), 1117U);
}

TEST(SenseError, MapsStatusesWithoutSense) {
    EXPECT_EQ(system_error_of(status(0x00)), 0U);
    EXPECT_EQ(system_error_of(status(0x04)), 0U);
    EXPECT_EQ(system_error_of(status(0x08)), 170U);
    EXPECT_EQ(system_error_of(status(0x18)), 170U);
    EXPECT_EQ(system_error_of(status(0x28)), 170U);
    EXPECT_EQ(system_error_of(status(0x40)), 1117U);
}

TEST(SenseError, LetsATransportFailurePass) {
    scsi_outcome outcome = status(0x02);
    outcome.transport_error = 1167;
    EXPECT_EQ(system_error_of(outcome), 1167U);
    EXPECT_FALSE(is_check_condition(outcome, 0));
}
