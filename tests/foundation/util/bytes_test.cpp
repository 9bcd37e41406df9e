#include "foundation/util/bytes.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;

struct record {
    std::uint8_t first = 0;
    std::uint8_t second = 0;
    std::uint8_t third = 0;
};

TEST(Bytes, LoadsReadWhatIsMissingAsZero) {
    const bytes data{0x12, 0x34, 0x56};
    EXPECT_EQ(util::load_u8(data, 2), 0x56);
    EXPECT_EQ(util::load_u8(data, 3), 0);
    EXPECT_EQ(util::load_be16(data, 1), 0x3456);
    EXPECT_EQ(util::load_be16(data, 2), 0x5600);
    EXPECT_EQ(util::load_be24(data, 0), 0x123456U);
    EXPECT_EQ(util::load_be32(data, 0), 0x12345600U);
    EXPECT_EQ(util::load_be64(data, 0), 0x1234560000000000ULL);
    EXPECT_EQ(util::load_be64(data, 100), 0U);
}

TEST(Bytes, StoresDropWhatHasNoPlace) {
    bytes data(3, 0xFF);
    util::store_be32(data, 1, 0x01020304);
    EXPECT_EQ(data, (bytes{0xFF, 0x01, 0x02}));
    util::store_be64(data, 3, 1);
    EXPECT_EQ(data, (bytes{0xFF, 0x01, 0x02}));
    util::store_be24(data, 0, 0xABCDEF);
    EXPECT_EQ(data, (bytes{0xAB, 0xCD, 0xEF}));
}

TEST(Bytes, SlicesEndWithTheSpan) {
    const bytes data{1, 2, 3};
    EXPECT_EQ(util::slice(data, 1, 9).size(), 2U);
    EXPECT_EQ(util::slice(data, 1, 1)[0], 2);
    EXPECT_TRUE(util::slice(data, 3, 1).empty());
    EXPECT_TRUE(util::slice({}, 0, 1).empty());
}

TEST(Bytes, RecordsKeepTheirZerosWhereBytesAreMissing) {
    const bytes data{1, 2, 3, 4};
    EXPECT_EQ(util::load_record<record>(data).third, 3);
    const auto partly = util::load_record<record>(util::slice(data, 3, 9));
    EXPECT_EQ(partly.first, 4);
    EXPECT_EQ(partly.second, 0);
    // A span without an address, as an empty vector gives it.
    const auto none = util::load_record<record>({});
    EXPECT_EQ(none.first, 0);
    EXPECT_EQ(none.third, 0);
}

TEST(Bytes, TextEndsWhereItIsSaidTo) {
    const bytes data{'a', 'b', 0, 'c', ' '};
    EXPECT_EQ(util::to_text(data), std::string("ab\0c ", 5));
    EXPECT_EQ(util::to_text({}), "");
    EXPECT_EQ(util::text_to_nul(data), "ab");
    EXPECT_EQ(util::text_to_nul(util::slice(data, 3, 2)), "c ");
    EXPECT_EQ(util::without_trailing_blanks(" a  "), " a");
    EXPECT_EQ(util::without_trailing_blanks("   "), "");
}

}  // namespace
