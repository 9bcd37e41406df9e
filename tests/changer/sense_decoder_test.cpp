#include "changer/sense_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>
#include <vector>

#include "changer/sense_tables.h"

namespace {

using bytes = std::vector<std::uint8_t>;

bytes fixed_sense(std::uint8_t response, std::uint8_t key, std::uint8_t asc, std::uint8_t ascq) {
    bytes sense(18);
    sense[0] = response;
    sense[2] = key;
    sense[7] = 10;
    sense[12] = asc;
    sense[13] = ascq;
    return sense;
}

TEST(SenseDecoder, SaysThatTheBufferIsEmpty) {
    EXPECT_EQ(DecodeSense({}), "Sense buffer empty");
    ScsiSenseHeader header{1, 2, 3, 4, 5};
    EXPECT_FALSE(NormalizeSense({}, header));
    EXPECT_EQ(header.sense_key, 0);
}

TEST(SenseDecoder, GivesNothingForBytesThatAreNoSense) {
    EXPECT_EQ(DecodeSense(bytes(18)), "");
    EXPECT_EQ(DecodeSense(bytes{0x0F, 0, 5}), "");
}

TEST(SenseDecoder, ShowsTheUnitAttentionInFixedFormat) {
    EXPECT_EQ(DecodeSense(fixed_sense(0x70, 6, 0x28, 0)),
              "Fixed format, current;  Sense key: Unit Attention. Additional sense: Not ready to ready change, medium may have "
              "changed");
}

TEST(SenseDecoder, IgnoresTheValidBitOfTheResponseCode) {
    EXPECT_EQ(DecodeSense(fixed_sense(0xF0, 2, 0x3A, 0)),
              "Fixed format, current;  Sense key: Not Ready. Additional sense: Medium not present");
}

TEST(SenseDecoder, LeavesTheAdditionalSenseOutOfADeferredErrorInFixedFormatOnly) {
    EXPECT_EQ(DecodeSense(fixed_sense(0x71, 4, 0x3B, 0x16)), "Fixed format, <<<deferred>>>;  Sense key: Hardware Error");
    EXPECT_EQ(DecodeSense(bytes{0x73, 4, 0x3B, 0x16, 0, 0, 0, 0}),
              "Descriptor format, <<<deferred>>>;  Sense key: Hardware Error. Additional sense: Mechanical positioning or changer "
              "error");
}

TEST(SenseDecoder, ShowsTheDescriptorFormat) {
    EXPECT_EQ(DecodeSense(bytes{0x72, 6, 0x28, 1, 0, 0, 0, 0}),
              "Descriptor format, current;  Sense key: Unit Attention. Additional sense: Import or export element accessed");
}

TEST(SenseDecoder, ReadsOnlyTheDescriptorBytesThatAreThere) {
    ScsiSenseHeader header;
    EXPECT_TRUE(NormalizeSense(bytes{0x72}, header));
    EXPECT_EQ(header.sense_key, 0);
    EXPECT_TRUE(NormalizeSense(bytes{0x72, 0x15, 0x28}, header));
    EXPECT_EQ(header.sense_key, 5);
    EXPECT_EQ(header.asc, 0x28);
    EXPECT_EQ(header.ascq, 0);
    EXPECT_TRUE(NormalizeSense(bytes{0x72, 5, 0x28, 1, 0, 0, 0, 9}, header));
    EXPECT_EQ(header.ascq, 1);
    EXPECT_EQ(header.additional_length, 9);
}

TEST(SenseDecoder, ShowsAnUnknownResponseCodeWithoutAdditionalSense) {
    EXPECT_EQ(DecodeSense(bytes{0x74, 3, 0x28, 0, 0, 0, 0, 0}),
              "Unknown response code: 0x0000000000000074;  Sense key: Medium Error");
    EXPECT_EQ(DecodeSense(bytes{0xFF, 3, 0x28, 0}), "Unknown response code: 0x000000000000007f;  Sense key: Medium Error");
}

TEST(SenseDecoder, TakesMissingAdditionalSenseAsZero) {
    const bytes eight{0x70, 0, 5, 0, 0, 0, 0, 0};
    EXPECT_EQ(DecodeSense(eight),
              "Fixed format, current;  Sense key: Illegal Request. Additional sense: No additional sense information");
    EXPECT_EQ(DecodeSense(bytes{0x70}),
              "Fixed format, current;  Sense key: No Sense. Additional sense: No additional sense information");
}

TEST(SenseDecoder, DoesNotReadBehindTheLengthThatTheSenseStates) {
    bytes sense = fixed_sense(0x70, 5, 0x21, 1);
    sense[7] = 4;
    EXPECT_EQ(DecodeSense(sense),
              "Fixed format, current;  Sense key: Illegal Request. Additional sense: No additional sense information");
    sense[7] = 5;  // covers the code, not its qualifier
    ScsiSenseHeader header;
    EXPECT_TRUE(NormalizeSense(sense, header));
    EXPECT_EQ(header.asc, 0x21);
    EXPECT_EQ(header.ascq, 0);
}

TEST(SenseDecoder, MarksAnOverflowRightBehindTheKey) {
    EXPECT_EQ(DecodeSense(fixed_sense(0x70, 0x10 | 2, 4, 1)),
              "Fixed format, current;  Sense key: Not Ready<<<Sense data overflow>>>. Additional sense: Logical unit is in process "
              "of becoming ready");
    EXPECT_EQ(DecodeSense(fixed_sense(0x71, 0x10 | 2, 4, 1)),
              "Fixed format, <<<deferred>>>;  Sense key: Not Ready<<<Sense data overflow>>>");
    EXPECT_EQ(DecodeSense(bytes{0x72, 2, 4, 0x18, 0x80}),
              "Descriptor format, current;  Sense key: Not Ready<<<Sense data overflow>>>. Additional sense: Logical unit not "
              "ready, a door is open");
    EXPECT_EQ(DecodeSense(bytes{0x70, 0, 0x12}),
              "Fixed format, current;  Sense key: Not Ready<<<Sense data overflow>>>. Additional sense: No additional sense "
              "information");
    EXPECT_EQ(DecodeSense(bytes{0x72, 2, 4, 0x18}),
              "Descriptor format, current;  Sense key: Not Ready. Additional sense: Logical unit not ready, a door is open");
}

TEST(SenseDecoder, NamesAllSenseKeys) {
    const std::vector<std::string> names = {"No Sense",       "Recovered Error",    "Not Ready",      "Medium Error",
                                            "Hardware Error", "Illegal Request",    "Unit Attention", "Data Protect",
                                            "Blank Check",    "Vendor specific(9)", "Copy Aborted",   "Aborted Command",
                                            "Equal",          "Volume Overflow",    "Miscompare",     "Completed"};
    for (std::uint8_t key = 0; key < 16; ++key) {
        EXPECT_EQ(DecodeSense(bytes{0x71, 0, key}), "Fixed format, <<<deferred>>>;  Sense key: " + names[key]);
    }
}

TEST(SenseDecoder, PutsTheQualifierBehindTheTextOfARange) {
    EXPECT_EQ(DecodeAdditionalSense(0x40, 0x05), "Additional sense: Ram failure [0x%x]5");
    EXPECT_EQ(DecodeAdditionalSense(0x40, 0x7F), "Additional sense: Ram failure [0x%x]127");
    EXPECT_EQ(DecodeAdditionalSense(0x40, 0x80), "Additional sense: Diagnostic failure on component [0x%x]128");
    EXPECT_EQ(DecodeAdditionalSense(0x41, 0xFF), "Additional sense: Data path failure [0x%x]255");
    EXPECT_EQ(DecodeAdditionalSense(0x42, 0x01), "Additional sense: Power-on or self-test failure [0x%x]1");
    EXPECT_EQ(DecodeAdditionalSense(0x70, 0x0A), "Additional sense: Decompression exception short algorithm id of 0x%x10");
}

TEST(SenseDecoder, PrefersTheRangeToTheExactRow) {
    EXPECT_EQ(DecodeAdditionalSense(0x4D, 0x00), "Additional sense: Tagged overlapped commands [0x%x]0");
    EXPECT_EQ(DecodeAdditionalSense(0x4D, 0x33), "Additional sense: Tagged overlapped commands [0x%x]51");
}

TEST(SenseDecoder, ShowsNumbersForCodesWithoutAText) {
    EXPECT_EQ(DecodeAdditionalSense(0x75, 0x01), "ASC= 0x0000000000000075, ASCQ=0x0000000000000001");
    EXPECT_EQ(DecodeAdditionalSense(0x28, 0x9C), "ASC= 0x0000000000000028, vendor specific qualification ASCQ=0x000000000000009c");
    EXPECT_EQ(DecodeAdditionalSense(0x90, 0x02), "vendor specific ASC= 0x0000000000000090, ASCQ=0x0000000000000002");
    EXPECT_EQ(DecodeAdditionalSense(0x90, 0xFE), "vendor specific ASC= 0x0000000000000090, ASCQ=0x00000000000000fe");
}

struct quoted_row {
    std::uint8_t asc;
    std::uint8_t ascq;
    const char* text;
};

TEST(SenseDecoder, KeepsTheWordingThatOthersDependOn) {
    const quoted_row rows[] = {
        {0x00, 0x16, "operation in progress"},
        {0x04, 0x01, "Logical unit is in process of becoming ready"},
        {0x04, 0x03, "Logical unit not ready, manual intervention required"},
        {0x04, 0x15, "Logical unit not ready, robotics disabled"},
        {0x04, 0x18, "Logical unit not ready, a door is open"},
        {0x04, 0x22, "Logical unit not ready, power cycle required"},
        {0x23, 0x03, "invalid token operation, remote rod token creation not supported"},
        {0x28, 0x00, "Not ready to ready change, medium may have changed"},
        {0x28, 0x01, "Import or export element accessed"},
        {0x29, 0x00, "Power on, reset, or bus device reset occurred"},
        {0x3A, 0x00, "Medium not present"},
        {0x3B, 0x0D, "Medium destination element full"},
        {0x3B, 0x0E, "Medium source element empty"},
        {0x3B, 0x11, "Medium magazine not accessible"},
        {0x3B, 0x16, "Mechanical positioning or changer error"},
        {0x40, 0x00, "Ram failure (should use 40 nn)"},
        {0x41, 0x00, "Data path failure (should use 40 nn)"},
        {0x42, 0x00, "Power-on or self-test failure (should use 40 nn)"},
        {0x5D, 0x03, "spare area exhaustion prediction threshold exceeded"},
    };
    for (const quoted_row& row : rows) {
        EXPECT_EQ(DecodeAdditionalSense(row.asc, row.ascq), std::string("Additional sense: ") + row.text);
    }
}

TEST(AscTables, ExactTableIsCompleteAndInOrder) {
    std::set<std::uint8_t> codes;
    std::size_t count = 0;
    for (const sense::AscExactRow* row = sense::asc_exact_rows; row->text != nullptr; ++row) {
        if (count != 0) {
            const sense::AscExactRow& before = *(row - 1);
            EXPECT_LT(std::tie(before.asc, before.ascq), std::tie(row->asc, row->ascq)) << row->text;
        }
        EXPECT_STRNE(row->text, "");
        codes.insert(row->asc);
        ++count;
    }
    EXPECT_EQ(count, 707u);
    EXPECT_EQ(*codes.begin(), 0x00);
    EXPECT_EQ(*codes.rbegin(), 0x74);
}

TEST(AscTables, RangeTableHasSixRows) {
    std::size_t count = 0;
    for (const sense::AscRangeRow* row = sense::asc_range_rows; row->text != nullptr; ++row) {
        EXPECT_LE(row->lowest_ascq, row->highest_ascq);
        ++count;
    }
    EXPECT_EQ(count, 6u);
}

TEST(ScsiStatus, NamesEachStatusWithoutItsReservedBits) {
    const std::pair<std::uint8_t, const char*> rows[] = {
        {0x00, "Good"},
        {0x02, "Check Condition"},
        {0x04, "Condition Met"},
        {0x08, "Busy"},
        {0x10, "Intermediate (obsolete)"},
        {0x14, "Intermediate-Condition Met (obsolete)"},
        {0x18, "Reservation Conflict"},
        {0x22, "Command Terminated (obsolete)"},
        {0x28, "Task set Full"},
        {0x30, "ACA Active"},
        {0x40, "Task Aborted"},
        {0x12, "Unknown"},
        {0x03, "Check Condition"},
        {0x80, "Good"},
        {0xFE, "Unknown"},
    };
    for (const auto& [status, text] : rows) {
        EXPECT_EQ(DecodeScsiStatus(status), text) << int{status};
    }
}

}  // namespace
