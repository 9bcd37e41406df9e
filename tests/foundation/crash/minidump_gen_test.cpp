#include "foundation/crash/minidump_gen.h"

#include "foundation/crash/crash_fixture.h"
#include "foundation/exc/exceptions.h"
#include "support/failure_text.h"

namespace {

using crash::dump_mode;
using platform::minidump_step;

class Minidump : public test_support::CrashFixture {
protected:
    Minidump() { system_.crash.become_windows(); }

    void generate(dump_mode mode = dump_mode::by_settings) {
        crash::win32::minidump_gen_t generator;
        system_.crash.minidump_failure = failure_;
        generator.generate(mode, u"C:\\L", u"TAPE", &record_);
    }

    std::string failure_of(minidump_step step, std::uint32_t code) {
        failure_ = {step, code};
        return test_support::failure_text<exc::win_sys_exc_t>([this] { generate(); });
    }

    std::optional<std::pair<minidump_step, std::uint32_t>> failure_;
};

TEST_F(Minidump, WritesWithTheFlagsAskedFor) {
    product_options().mini_dump_mode_mask = 0x40;
    system_.files.put("C:\\L\\TAPE_crash_0.mdmp", "x");
    generate();
    generate(dump_mode::full);
    ASSERT_EQ(system_.crash.minidumps.size(), 2u);
    EXPECT_EQ(system_.crash.minidumps[0].path, u"C:\\L\\TAPE_crash_1.mdmp");
    EXPECT_EQ(system_.crash.minidumps[0].flags, 0x40u);
    EXPECT_TRUE(system_.crash.minidumps[0].has_record);
    EXPECT_EQ(system_.crash.minidumps[1].flags, 137479u);
    EXPECT_EQ(lines().front(), "Writing dump. Dump path: C:\\L\\TAPE_crash_1.mdmp.");
}

TEST_F(Minidump, NeedsNoException) {
    crash::win32::minidump_gen_t{}.generate(dump_mode::normal, u"C:\\L", u"TAPE", nullptr);
    ASSERT_EQ(system_.crash.minidumps.size(), 1u);
    EXPECT_FALSE(system_.crash.minidumps[0].has_record);
}

TEST_F(Minidump, CannotBeMadeWithoutItsWriter) {
    system_.crash.minidump_failure = {minidump_step::load_library, 126};
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([] { crash::win32::minidump_gen_t{}; }),
              "The specified module could not be found.\nCannot load dbghelp.dll library.\n--tr:Error code: 0x0000007e");
    system_.crash.minidump_failure = {minidump_step::find_function, 127};
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([] { crash::win32::minidump_gen_t{}; }),
              "The specified procedure could not be found.\n"
              "MiniDumpWriteDump function is not exported from the dbghelp dynamic library.\n--tr:Error code: 0x0000007f");
}

TEST_F(Minidump, TellsWhichStepFailed) {
    EXPECT_EQ(failure_of(minidump_step::create_file, 5),
              "Access is denied.\nCannot create a blank minidump file. File path: [C:\\L\\TAPE_crash_0.mdmp].\n"
              "--tr:Error code: 0x00000005\nCrash details cannot be stored in minidump.");
    EXPECT_EQ(failure_of(minidump_step::write, 998),
              "Invalid access to memory location.\nMiniDumpWriteDump() function call has failed.\n"
              "--tr:Error code: 0x000003e6\nCrash details cannot be stored in minidump.");
}

}  // namespace
