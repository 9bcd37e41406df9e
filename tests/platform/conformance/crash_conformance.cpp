#include "platform/conformance/implementations.h"

namespace {

using namespace platform;

std::int32_t first_filter(const crash_record& /*record*/) {
    return 1;
}
std::int32_t second_filter(const crash_record& /*record*/) {
    return 0;
}

template <typename Implementation>
class CrashConformance : public conformance::suite<Implementation> {
protected:
    crash& under_test() { return this->under_test_.crash; }

    crash_filter replaced_by(crash_filter filter) {
        crash_filter former = first_filter;
        EXPECT_EQ(under_test().set_filter(filter, former), 0U);
        return former;
    }
};
TYPED_TEST_SUITE(CrashConformance, conformance::implementations, conformance::implementation_names);

TYPED_TEST(CrashConformance, HandsOutTheFormerFilter) {
    EXPECT_EQ(this->replaced_by(first_filter), nullptr);
    EXPECT_EQ(this->replaced_by(second_filter), first_filter);
    EXPECT_EQ(this->replaced_by(nullptr), second_filter);
    EXPECT_EQ(this->replaced_by(nullptr), nullptr);
}

TYPED_TEST(CrashConformance, RefusesWhatASystemOtherThanWindowsHasNot) {
    EXPECT_EQ(this->under_test().windows_version(), 0U);
    auto failed = minidump_step::write;
    EXPECT_EQ(this->under_test().load_minidump_writer(failed), error::not_supported);
    EXPECT_EQ(failed, minidump_step::load_library);
    EXPECT_EQ(this->under_test().write_minidump(u"dump", 0, nullptr, failed), error::not_supported);
    std::int64_t handle = 7;
    EXPECT_EQ(this->under_test().inheritable_process(handle), error::not_supported);
    EXPECT_EQ(handle, 7);
}

TYPED_TEST(CrashConformance, GivesATextOnce) {
    const std::u16string text = this->under_test().unique_text();
    EXPECT_EQ(text.front(), u'{');
    EXPECT_EQ(text.back(), u'}');
    EXPECT_NE(this->under_test().unique_text(), text);
}

TYPED_TEST(CrashConformance, KnowsNothingOfAddressesWithoutCode) {
    const code_address where = this->under_test().describe(1);
    EXPECT_FALSE(where.module);
    EXPECT_FALSE(where.symbol);
    EXPECT_FALSE(where.line);
}

TYPED_TEST(CrashConformance, WalksAsFarAsItIsTold) {
    EXPECT_LE(this->under_test().walk_stack({}, 2).size(), 2U);
    EXPECT_TRUE(this->under_test().walk_stack({}, 0).empty());
}

TYPED_TEST(CrashConformance, GuardsADump) {
    EXPECT_NE(this->under_test().guard_dump(this->under_test_.folder + this->under_test_.files.separator() + u"dump"), nullptr);
}

}  // namespace
