#include "foundation/crash/crash_fixture.h"
#include "foundation/crash/dump_gen_base.h"

namespace {

using crash::dump_mode;
using crash::minidump_flags;

class MinidumpFlags : public test_support::CrashFixture {};

TEST_F(MinidumpFlags, NormalUnlessSaidOtherwise) {
    EXPECT_EQ(minidump_flags(dump_mode::by_settings), 0u);
}

TEST_F(MinidumpFlags, FullBySetting) {
    product_options().mini_dump_mode_type = "Full";
    EXPECT_EQ(minidump_flags(dump_mode::by_settings), 0x21907u);
}

TEST_F(MinidumpFlags, AnythingElseCountsAsNormal) {
    for (const char* const type : {"Huge", "Normal", "full", ""}) {
        product_options().mini_dump_mode_type = type;
        EXPECT_EQ(minidump_flags(dump_mode::by_settings), 0u) << type;
    }
}

TEST_F(MinidumpFlags, TheMaskOverridesTheType) {
    product_options().mini_dump_mode_type = "Full";
    product_options().mini_dump_mode_mask = 2;
    EXPECT_EQ(minidump_flags(dump_mode::by_settings), 2u);
}

TEST_F(MinidumpFlags, AModeOfOnesOwnOverridesTheSettings) {
    product_options().mini_dump_mode_mask = 2;
    EXPECT_EQ(minidump_flags(dump_mode::full), 137479u);
    product_options().mini_dump_mode_type = "Full";
    EXPECT_EQ(minidump_flags(dump_mode::normal), 0u);
}

}  // namespace
