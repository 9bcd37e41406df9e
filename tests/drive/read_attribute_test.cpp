#include "drive/read_attribute.h"

#include <gtest/gtest.h>

#include <vector>

#include "changer/changer_world.h"
#include "foundation/util/bytes.h"

namespace {

using changer_tests::bytes;
using changer_tests::joined;

bytes attribute(std::uint16_t identifier, const bytes& value) {
    bytes head(5);
    util::store_be16(head, 0, identifier);
    head[2] = 0x80;  // read only, binary: isn't looked at
    util::store_be16(head, 3, static_cast<std::uint16_t>(value.size()));
    return joined({head, value});
}

bytes count(std::uint64_t number) {
    bytes value(8);
    util::store_be64(value, 0, number);
    return value;
}

/// The attributes behind a length; without one, their own.
bytes list(std::initializer_list<bytes> attributes, std::optional<std::uint32_t> length = {}) {
    const bytes content = joined(attributes);
    bytes head(4);
    util::store_be32(head, 0, length.value_or(static_cast<std::uint32_t>(content.size())));
    return joined({head, content});
}

bytes usage_list(std::uint64_t written, std::uint64_t read) {
    return list({attribute(0x0220, count(written)), attribute(0x0221, count(read))});
}

std::optional<bytes> found(const bytes& received, std::uint16_t identifier) {
    const auto value = FindAttribute(received, identifier);
    return value ? std::optional<bytes>(bytes(value->begin(), value->end())) : std::nullopt;
}

TEST(FindAttribute, GivesTheFirstValueOfItsIdentifier) {
    const bytes received = list({attribute(0x0220, {1, 2}), attribute(0x0301, {}), attribute(0x0408, {3}), attribute(0x0408, {4})});
    EXPECT_EQ(found(received, 0x0220), (bytes{1, 2}));
    EXPECT_EQ(found(received, 0x0301), bytes{});
    EXPECT_EQ(found(received, 0x0408), bytes{3});
    EXPECT_EQ(found(received, 0x0221), std::nullopt);
}

TEST(FindAttribute, NeedsALengthOfAnAttributeAtLeast) {
    const bytes empty_value = attribute(0x0408, {});
    EXPECT_EQ(found(list({empty_value}, 5), 0x0408), bytes{});
    for (const std::uint32_t length : {0u, 1u, 4u}) {
        EXPECT_EQ(found(list({empty_value}, length), 0x0408), std::nullopt);
    }
}

TEST(FindAttribute, LooksNoFurtherThanTheListReaches) {
    // Counted from the answer's start, the second attribute begins at 10 and the third at 16.
    const std::initializer_list<bytes> attributes = {attribute(1, {1}), attribute(2, {2}), attribute(3, {3})};
    EXPECT_EQ(found(list(attributes, 10), 2), std::nullopt);
    EXPECT_EQ(found(list(attributes, 11), 2), bytes{2});
    EXPECT_EQ(found(list(attributes, 16), 3), std::nullopt);
    EXPECT_EQ(found(list(attributes, 17), 3), bytes{3});
}

TEST(FindAttribute, StaysWithinWhatCame) {
    EXPECT_EQ(found({}, 0), std::nullopt);
    EXPECT_EQ(found({0, 0, 0}, 0), std::nullopt);
    EXPECT_EQ(found({0, 0, 0, 5}, 0), std::nullopt);
    EXPECT_EQ(found({0xFF, 0xFF, 0xFF, 0xFF}, 0), std::nullopt);
    // A head that is cut off, and a value that is.
    EXPECT_EQ(found({0, 0, 0, 6, 4, 8, 0, 0}, 0x0408), std::nullopt);
    EXPECT_EQ(found({0, 0, 0, 7, 4, 8, 0, 0, 2, 0x80}, 0x0408), std::nullopt);
    EXPECT_EQ(found({0, 0, 0, 7, 4, 8, 0, 0xFF, 0xFF, 0x80}, 0x0408), std::nullopt);
    // One behind a value that isn't all there can't be reached.
    bytes lying = list({attribute(1, {1}), attribute(2, {2})});
    lying[8] = 200;
    EXPECT_EQ(found(lying, 2), std::nullopt);
}

TEST(FindAttribute, PassesZerosBehindAShortAnswer) {
    bytes received = list({attribute(0x0220, {1})}, 0xFFFFFFFF);
    received.resize(32768);
    EXPECT_EQ(found(received, 0x0408), std::nullopt);
    EXPECT_EQ(found(received, 0x0000), bytes{});
}

TEST(WormMedium, IsToldByTheFirstByteOfTheMediumType) {
    EXPECT_TRUE(DecodeWormMedium(list({attribute(0x0408, {0x80})})));
    EXPECT_TRUE(DecodeWormMedium(list({attribute(0x0408, {1, 0})})));
    EXPECT_FALSE(DecodeWormMedium(list({attribute(0x0408, {0, 1})})));
    EXPECT_FALSE(DecodeWormMedium(list({attribute(0x0408, {0})})));
}

TEST(WormMedium, WithoutAValueIsNone) {
    EXPECT_FALSE(DecodeWormMedium({}));
    EXPECT_FALSE(DecodeWormMedium(list({attribute(0x0220, count(1))})));
    // The byte behind an empty value belongs to the next attribute.
    EXPECT_FALSE(DecodeWormMedium(list({attribute(0x0408, {}), attribute(0x0809, {0x80})})));
    EXPECT_FALSE(DecodeWormMedium(list({attribute(0x0408, {})})));
}

struct usage_case {
    std::uint64_t sent;
    std::uint64_t read;
    bool usable;
};

TEST(UsageStatistic, WidensTheLowHalfWithItsSign) {
    const std::vector<usage_case> cases = {
        {0, 0, true},
        {0x7FFFFFFF, 0x7FFFFFFF, true},
        {0x0000000080000000, 0xFFFFFFFF80000000, false},
        {0x00000001FFFFFFFF, 0xFFFFFFFFFFFFFFFF, false},
        {0x0FFFFFFF7FFFFFFF, 0x0FFFFFFF7FFFFFFF, true},
        {0x1000000000000000, 0x1000000000000000, false},
        {0xFFFFFFFF00000000, 0xFFFFFFFF00000000, false},
    };
    for (const usage_case& one : cases) {
        const TapeUsageStatistic as_written = DecodeUsageStatistic(usage_list(one.sent, 5));
        EXPECT_EQ(as_written.lifetime_megabytes_written, one.read);
        EXPECT_EQ(as_written.lifetime_megabytes_read, 5u);
        EXPECT_EQ(as_written.valid, one.usable);
        const TapeUsageStatistic as_read = DecodeUsageStatistic(usage_list(6, one.sent));
        EXPECT_EQ(as_read.lifetime_megabytes_written, 6u);
        EXPECT_EQ(as_read.lifetime_megabytes_read, one.read);
        EXPECT_EQ(as_read.valid, one.usable);
    }
}

TEST(UsageStatistic, NeedsBothCounts) {
    const TapeUsageStatistic no_read = DecodeUsageStatistic(list({attribute(0x0220, count(7))}));
    EXPECT_FALSE(no_read.valid);
    EXPECT_EQ(no_read.lifetime_megabytes_written, 7u);
    EXPECT_EQ(no_read.lifetime_megabytes_read, 0u);
    const TapeUsageStatistic no_written = DecodeUsageStatistic(list({attribute(0x0221, count(7))}));
    EXPECT_FALSE(no_written.valid);
    EXPECT_EQ(no_written.lifetime_megabytes_written, 0u);
    EXPECT_EQ(no_written.lifetime_megabytes_read, 0u);
    EXPECT_FALSE(DecodeUsageStatistic({}).valid);
}

TEST(UsageStatistic, TakesTheAttributesInAnyOrder) {
    const TapeUsageStatistic usage =
        DecodeUsageStatistic(list({attribute(0x0221, count(1)), attribute(0x0222, count(2)), attribute(0x0220, count(3))}));
    EXPECT_TRUE(usage.valid);
    EXPECT_EQ(usage.lifetime_megabytes_written, 3u);
    EXPECT_EQ(usage.lifetime_megabytes_read, 1u);
}

TEST(UsageStatistic, OfOtherWidthsIsTheNumberThatIsThere) {
    const TapeUsageStatistic usage =
        DecodeUsageStatistic(list({attribute(0x0220, {0x12, 0x34}), attribute(0x0221, {0, 0, 0, 0, 0, 0, 0, 9, 0xFF})}));
    EXPECT_TRUE(usage.valid);
    EXPECT_EQ(usage.lifetime_megabytes_written, 0x1234u);
    EXPECT_EQ(usage.lifetime_megabytes_read, 9u);
    // The bytes behind an empty value belong to the next attribute.
    EXPECT_EQ(DecodeUsageStatistic(list({attribute(0x0220, {}), attribute(0x0221, count(2))})).lifetime_megabytes_written, 0u);
}

}  // namespace
