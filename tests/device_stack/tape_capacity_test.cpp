#include "platform/device_stack/tape_capacity.h"

#include <gtest/gtest.h>

#include "device_stack/scripted_transport.h"
#include "device_stack/tape_answers.h"
#include "platform/testing/fakes.h"

using namespace platform::device_stack;
using namespace tape_answers;

namespace {

constexpr std::uint64_t MiB = 1'048'576;
constexpr std::uint8_t lto = 0x5E;

class TapeCapacity : public testing::Test {
protected:
    std::uint32_t read(std::uint8_t density = lto) { return read_capacity(transport, density, time_budget(60), capacity); }
    [[nodiscard]] std::vector<std::uint8_t> sent_opcodes() const {
        std::vector<std::uint8_t> codes;
        for (const auto& one : transport.sent) {
            codes.push_back(one.cdb[0] == 0x4D ? one.cdb[2] : one.cdb[0]);
        }
        return codes;
    }

    platform::testing::test_system system_;
    scripted_transport transport;
    tape_capacity capacity;
};

}  // namespace

TEST_F(TapeCapacity, AsksTheCartridgeMemoryFirst) {
    transport.answer(attributes({{0x0000, be64(100)}, {0x0001, be64(2500)}, {0x0002, be64(7)}}));
    EXPECT_EQ(read(), 0U);
    EXPECT_EQ(capacity.remaining, 100 * MiB);
    EXPECT_EQ(capacity.maximum, 2500 * MiB);
    ASSERT_EQ(transport.sent.size(), 1U);
    EXPECT_EQ(transport.sent[0].cdb, (bytes{0x8C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0}));
    EXPECT_EQ(transport.sent[0].room, 1024U);
    EXPECT_EQ(transport.sent[0].timeout_seconds, 60);
}

TEST_F(TapeCapacity, AsksTheStandardLogPagesOfADriveWithoutCartridgeMemory) {
    transport.check_condition(5, 0x20, 0);
    transport.answer(log_page(0x17, {{0x0000, {1}}, {0x0016, be32(2'500'000)}, {0x0017, be32(500'000)}}));
    EXPECT_EQ(read(), 0U);
    EXPECT_EQ(capacity.maximum, 2'500'000'000'000U);
    EXPECT_EQ(capacity.remaining, 2'000'000'000'000U);
    ASSERT_EQ(transport.sent.size(), 2U);
    EXPECT_EQ(transport.sent[1].cdb, (bytes{0x4D, 0, 0x57, 0, 0, 0, 0, 0x10, 0, 0}));
    EXPECT_EQ(transport.sent[1].room, 4096U);
}

TEST_F(TapeCapacity, GoesThroughAllWaysUntilOneTells) {
    transport.check_condition(5, 0x24, 0);
    transport.check_condition(5, 0x24, 0);
    transport.answer(log_page(0x0C, {{0x0001, be64(5)}, {0x0004, be32(300)}, {0x0005, be32(1000)}}));
    EXPECT_EQ(read(0x25), 0U);
    EXPECT_EQ(capacity.maximum, 1'000'000'000U);
    EXPECT_EQ(capacity.remaining, 700'000'000U);
    EXPECT_EQ(sent_opcodes(), (bytes{0x8C, 0x57, 0x4C}));
}

TEST_F(TapeCapacity, TrustsThePageOfTheVendorsOnItsOwnKindOfTapeOnly) {
    const auto script = [this] {
        for (int way = 0; way < 3; ++way) {
            transport.check_condition(5, 0x24, 0);
        }
        transport.answer(log_page(0x31, {{1, be32(400)}, {2, be32(0)}, {3, be32(1500)}, {4, be32(0)}}));
    };
    script();
    EXPECT_EQ(read(0x58), 0U);
    EXPECT_EQ(capacity.maximum, 1500 * MiB);
    EXPECT_EQ(capacity.remaining, 400 * MiB);
    EXPECT_EQ(sent_opcodes(), (bytes{0x8C, 0x57, 0x4C, 0x71}));

    transport = {};
    capacity = {};
    script();
    EXPECT_EQ(read(0x30), 0U);
    EXPECT_FALSE(capacity.maximum);
    EXPECT_EQ(sent_opcodes(), (bytes{0x8C, 0x57, 0x4C}));
}

TEST_F(TapeCapacity, TakesWhatIsMissingFromTheNextWay) {
    transport.answer(attributes({{0x0001, be64(10)}}));
    transport.answer(log_page(0x17, {{0x0016, be32(99)}, {0x0017, be32(9)}}));
    EXPECT_EQ(read(), 0U);
    EXPECT_EQ(capacity.maximum, 10 * MiB);
    EXPECT_EQ(capacity.remaining, 90'000'000U);
    EXPECT_EQ(transport.sent.size(), 2U);
}

TEST_F(TapeCapacity, IsUnknownWithoutFailureWhenTheDriveRefusesAll) {
    transport.otherwise([](const auto&) {
        scsi_outcome outcome;
        outcome.scsi_status = 2;
        outcome.sense = scripted_transport::fixed_sense(5, 0x20, 0);
        return outcome;
    });
    EXPECT_EQ(read(), 0U);
    EXPECT_FALSE(capacity.maximum);
    EXPECT_FALSE(capacity.remaining);
    EXPECT_EQ(sent_opcodes(), (bytes{0x8C, 0x57, 0x4C, 0x71}));
}

TEST_F(TapeCapacity, LooksElsewhereWhenTheCartridgeMemoryCannotBeRead) {
    transport.check_condition(3, 0x11, 0x12);
    transport.answer(log_page(0x17, {{0x0016, be32(5)}, {0x0017, be32(1)}}));
    EXPECT_EQ(read(), 0U);
    EXPECT_EQ(capacity.remaining, 4'000'000U);
    transport.check_condition(2, 0x04, 0x10);
    transport.answer(log_page(0x17, {{0x0016, be32(5)}, {0x0017, be32(1)}}));
    EXPECT_EQ(read(), 0U);
}

TEST_F(TapeCapacity, ReportsAFailureThatIsNoRefusal) {
    transport.check_condition(6, 0x28, 0);
    EXPECT_EQ(read(), 1110U);
    EXPECT_EQ(transport.sent.size(), 1U);
    transport.check_condition(5, 0x20, 0);
    transport.transport_error(1167);
    EXPECT_EQ(read(), 1167U);
    EXPECT_EQ(transport.sent.size(), 3U);
}

TEST_F(TapeCapacity, IgnoresAPageThatWasNotAskedFor) {
    transport.check_condition(5, 0x20, 0);
    transport.answer(log_page(0x0C, {{0x0004, be32(1)}, {0x0005, be32(2)}}));
    transport.check_condition(5, 0x24, 0);
    EXPECT_EQ(read(0), 0U);
    EXPECT_FALSE(capacity.maximum);
}

TEST(TapeCapacityDecoding, TakesAllOnesForUnknown) {
    EXPECT_FALSE(decode_capacity_page(log_page(0x0C, {{4, be32(7)}, {5, be32(0xFFFFFFFF)}})).maximum);
    EXPECT_FALSE(decode_capacity_attributes(attributes({{0x0001, be64(~0ULL)}})).maximum);
    // More than there is room for.
    EXPECT_FALSE(decode_capacity_attributes(attributes({{0x0001, be64(1ULL << 60)}})).maximum);
    // More used than there is.
    EXPECT_FALSE(decode_capacity_page(log_page(0x17, {{0x16, be32(5)}, {0x17, be32(6)}})).remaining);
    EXPECT_EQ(decode_capacity_attributes(attributes({{0x0000, be64(0)}})).remaining, 0U);
}

TEST(TapeCapacityDecoding, SurvivesLengthsThatLie) {
    const bytes whole = attributes({{0x0000, be64(100)}, {0x0001, be64(2500)}});
    const auto changed = [&whole](std::size_t at, std::uint8_t value) {
        bytes other = whole;
        other.at(at) = value;
        return decode_capacity_attributes(other);
    };
    EXPECT_EQ(changed(3, 0xFF).maximum, 2500 * MiB);  // a list longer than what came
    EXPECT_EQ(changed(3, 13).maximum, std::nullopt);  // shorter: the first attribute alone
    EXPECT_EQ(changed(3, 13).remaining, 100 * MiB);
    EXPECT_EQ(changed(3, 0).remaining, std::nullopt);     // empty
    EXPECT_EQ(changed(8, 0xFF).remaining, std::nullopt);  // a value that goes beyond the end
    EXPECT_EQ(changed(8, 0).remaining, std::nullopt);     // a value of no bytes
    EXPECT_EQ(changed(8, 9).remaining, std::nullopt);     // too wide for a number
    EXPECT_EQ(changed(8, 4).remaining, 0U);               // narrower than usual
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const tape_capacity cut = decode_capacity_attributes(std::span(whole).first(size));
        EXPECT_EQ(cut.remaining.has_value(), size >= 17) << size;
        EXPECT_FALSE(cut.maximum) << size;
    }
    const bytes page = log_page(0x17, {{0x0016, be32(10)}, {0x0017, be32(4)}});
    for (std::size_t size = 0; size < page.size(); ++size) {
        EXPECT_FALSE(decode_capacity_page(std::span(page).first(size)).remaining) << size;
    }
    bytes long_parameter = page;
    long_parameter[7] = 0xFF;
    EXPECT_FALSE(decode_capacity_page(long_parameter).maximum);
    EXPECT_FALSE(decode_capacity_page(bytes{0x2E, 0, 0, 4, 0, 1, 0, 0}).maximum);
}
