#include <gtest/gtest.h>

#include <limits>

#include "platform/testing/fakes.h"
#include "records/device_record_writer.h"
#include "support/tape_variables_scope.h"

namespace {

class DriveRecords : public testing::Test {
protected:
    DriveRecords() : document_(winxml::create_document()), node_(winxml::add_element(winxml::document_node(document_), "Node")) {}

    [[nodiscard]] std::string text() const { return winxml::serialize_xml(document_); }

    platform::testing::test_system system_;
    test_support::tape_variables_scope variables_;
    winxml::document_t document_;
    winxml::node_t node_;
};

TEST_F(DriveRecords, BlockSizesAreWithoutSign) {
    TapeDriveParameters parameters;
    parameters.DefaultBlockSize = 0xFFFFFFFF;
    parameters.MinimumBlockSize = 0x80000000;
    parameters.MaximumBlockSize = 0xFFFFFFFE;
    CDeviceRecordWriter::WriteDriveInfo(node_, parameters);
    EXPECT_EQ(text(), "<Node DefaultBlockSize=\"4294967295\" MinimumBlockSize=\"2147483648\" MaximumBlockSize=\"4294967294\" />");
}

TEST_F(DriveRecords, CapacitiesAreWrittenInFull) {
    TapeMediaInfo media;
    media.Capacity = 18'000'000'000'000;
    media.Remaining = 0x1'0000'0001;
    media.BlockSize = 0xFFFFFFFF;
    media.PartitionCount = 4;
    media.WriteProtected = 1;
    CDeviceRecordWriter::WriteMediaInfo(node_, false, media);
    EXPECT_EQ(text(),
              "<Node Capacity=\"18000000000000\" Remaining=\"4294967297\" BlockSize=\"4294967295\" PartitionCount=\"4\" "
              "WriteProtected=\"true\" IsWorm=\"false\" />");
}

TEST_F(DriveRecords, AnyByteButZeroMeansWriteProtected) {
    TapeMediaInfo media;
    for (const unsigned value : {0u, 1u, 2u, 0x80u, 0xFFu}) {
        media.WriteProtected = static_cast<std::uint8_t>(value);
        CDeviceRecordWriter::WriteMediaInfo(node_, true, media);
        EXPECT_EQ(winxml::get_attribute(node_, "WriteProtected"), value != 0 ? "true" : "false");
        EXPECT_EQ(winxml::get_attribute(node_, "IsWorm"), "true");
    }
}

TEST_F(DriveRecords, AValidStatisticHasWrittenBeforeRead) {
    TapeUsageStatistic usage;
    usage.valid = true;
    usage.lifetime_megabytes_written = std::numeric_limits<std::uint64_t>::max();
    usage.lifetime_megabytes_read = 0;
    CDeviceRecordWriter::WriteUsageStatistic(node_, usage);
    EXPECT_EQ(text(),
              "<Node><IsValid>True</IsValid><LifetimeMegabytesWritten>18446744073709551615</LifetimeMegabytesWritten>"
              "<LifetimeMegabytesRead>0</LifetimeMegabytesRead></Node>");
}

TEST_F(DriveRecords, AStatisticThatIsNotValidHasNoNumbers) {
    TapeUsageStatistic usage;
    usage.lifetime_megabytes_written = 5;
    usage.lifetime_megabytes_read = 6;
    CDeviceRecordWriter::WriteUsageStatistic(node_, usage);
    EXPECT_EQ(text(), "<Node><IsValid>False</IsValid></Node>");
}

}  // namespace
