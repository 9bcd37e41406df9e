#include <thread>

#include "platform/conformance/implementations.h"

namespace {

using namespace platform;

template <typename Implementation>
using ProcessConformance = conformance::suite<Implementation>;
TYPED_TEST_SUITE(ProcessConformance, conformance::implementations, conformance::implementation_names);

TYPED_TEST(ProcessConformance, KnowsItsModuleAndTheVersionOfIt) {
    process& under_test = this->under_test_.process;
    const std::u16string module = under_test.module_path();
    ASSERT_FALSE(module.empty());
    EXPECT_NE(module.find_first_of(u"/\\"), std::u16string::npos);
    EXPECT_EQ(under_test.version_of(module).failure, version_failure::none);
    EXPECT_NE(under_test.version_of(module).high, 0U);
}

TYPED_TEST(ProcessConformance, TellsWhyAnAbsentModuleHasNoVersion) {
    process& under_test = this->under_test_.process;
    this->under_test_.errors.set_last_error(0);
    EXPECT_EQ(under_test.version_of(u"/there/is/no/such.module").failure, version_failure::size_unknown);
    EXPECT_EQ(this->under_test_.errors.last_error(), error::file_not_found);
    EXPECT_EQ(under_test.comments_of(u"/there/is/no/such.module"), u"");
}

TYPED_TEST(ProcessConformance, HasACommandLineAndAnIdentity) {
    process& under_test = this->under_test_.process;
    ASSERT_FALSE(under_test.command_line().empty());
    EXPECT_FALSE(under_test.command_line().front().empty());
    EXPECT_NE(under_test.process_id(), 0U);
    EXPECT_FALSE(under_test.os_description().empty());
    EXPECT_EQ(under_test.os_description().find('\n'), std::string::npos);
}

TYPED_TEST(ProcessConformance, TellsLiveThreadsApart) {
    process& under_test = this->under_test_.process;
    const std::uint32_t own = under_test.current_thread_id();
    std::uint32_t other = 0;
    std::thread([&] { other = under_test.current_thread_id(); }).join();
    EXPECT_NE(own, 0U);
    EXPECT_NE(other, 0U);
    EXPECT_NE(own, other);
    EXPECT_EQ(under_test.current_thread_id(), own);
}

TYPED_TEST(ProcessConformance, HasAProcessorAtLeast) {
    EXPECT_GE(this->under_test_.process.processor_count(), 1U);
}

}  // namespace
