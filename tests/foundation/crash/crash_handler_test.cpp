#include "foundation/crash/crash_handler.h"

#include <boost/make_shared.hpp>

#include <stdexcept>

#include "foundation/crash/crash_fixture.h"
#include "foundation/exc/exceptions.h"

namespace {

using lines_t = std::vector<std::string>;
using platform::testing::memory_files;

const lines_t cleaned_up{"Executing crash handlers.", "Crash handlers were successfully executed."};

lines_t operator+(lines_t left, const lines_t& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class step : public crash::deinit_step_t {
public:
    step(std::vector<int>& ran, int number) : ran_(ran), number_(number) {}
    void run() override {
        ran_.push_back(number_);
        if (number_ < 0) {
            throw exc::runtime_exc_t("The step can't be done.");
        }
    }

private:
    std::vector<int>& ran_;
    const int number_;
};

std::int32_t former_result = 0;
const platform::crash_record* former_saw = nullptr;
std::int32_t former_filter(const platform::crash_record& record) {
    former_saw = &record;
    return former_result;
}

class CrashHandler : public test_support::CrashFixture {
protected:
    CrashHandler() { former_saw = nullptr; }

    void install() {
        handler_.install();
        handler_.configure(u"C:\\L\\run.log", u"TAPE");
    }
    void add_step(std::int32_t key, int number) { handler_.add_step(key, boost::make_shared<step>(ran_, number)); }

    crash::crash_handler_t handler_;
    std::vector<int> ran_;
};

TEST_F(CrashHandler, LeavesADumpAndCleansUp) {
    install();
    add_step(2, 2);
    add_step(1, 1);
    add_step(3, 3);
    handler_.remove_step(3);
    EXPECT_EQ(handler_.process(record_), 1);
    EXPECT_EQ(ran_, (std::vector<int>{1, 2}));
    EXPECT_TRUE(system_.files.content("C:\\L\\TAPE_crash_0.log").has_value());
    EXPECT_EQ(lines(),
              (lines_t{"Trying to generate crash dump", "Writing legacy dump. Dump path: C:\\L\\TAPE_crash_0.log."} + cleaned_up));
}

TEST_F(CrashHandler, TheNextDumpHasTheNextNumber) {
    install();
    EXPECT_EQ(handler_.process(record_), 1);
    EXPECT_EQ(handler_.process(record_), 1);
    EXPECT_TRUE(system_.files.content("C:\\L\\TAPE_crash_1.log").has_value());
}

TEST_F(CrashHandler, DisabledItDoesNothing) {
    system_.crash.present = former_filter;
    install();
    add_step(1, 1);
    handler_.disabled = true;
    EXPECT_EQ(handler_.process(record_), 1);
    EXPECT_TRUE(ran_.empty());
    EXPECT_TRUE(lines().empty());
    EXPECT_TRUE(system_.files.paths().empty());
    EXPECT_EQ(former_saw, nullptr);
}

TEST_F(CrashHandler, TheFormerFilterHasTheLastWord) {
    system_.crash.present = former_filter;
    install();
    former_result = -1;
    EXPECT_EQ(handler_.process(record_), -1);
    EXPECT_EQ(former_saw, &record_);
    former_result = 0;
    EXPECT_EQ(handler_.process(record_), 0);
}

TEST_F(CrashHandler, TheFilterIsThatOfTheProcessesHandler) {
    crash::crash_handler().install();
    crash::crash_handler().configure(u"C:\\P\\run.log", u"TAPE");
    ASSERT_NE(system_.crash.present, nullptr);
    EXPECT_EQ(system_.crash.happen(record_), 1);
    EXPECT_TRUE(system_.files.content("C:\\P\\TAPE_crash_0.log").has_value());
}

TEST_F(CrashHandler, UnconfiguredDumpsLieBesideTheProgram) {
    handler_.install();
    EXPECT_EQ(handler_.process(record_), 1);
    ASSERT_EQ(system_.files.paths().size(), 1u);
    EXPECT_TRUE(system_.files.paths()[0].starts_with("C:\\Program Files\\Tarno\\"));
    EXPECT_TRUE(system_.files.paths()[0].ends_with("_crash_0.log"));
}

TEST_F(CrashHandler, APathWithoutAFolderLeavesTheFolder) {
    handler_.install();
    handler_.configure(u"run.log", u"TAPE");
    EXPECT_EQ(handler_.process(record_), 1);
    EXPECT_EQ(system_.files.paths(), (lines_t{"C:\\Program Files\\Tarno\\TAPE_crash_0.log"}));
}

TEST_F(CrashHandler, APathIsSplitAtEitherSeparator) {
    handler_.install();
    handler_.configure(u"C:\\a\\b/run.log", u"TAPE");
    EXPECT_EQ(handler_.process(record_), 1);
    EXPECT_EQ(system_.files.paths(), (lines_t{"C:\\a\\b\\TAPE_crash_0.log"}));
}

TEST_F(CrashHandler, AFilterThatIsRefusedStopsNothing) {
    system_.crash.filter_error = 8;
    install();
    EXPECT_EQ(lines(), (lines_t{"ERR |Cannot supersede crash handler.",
                                ">>  |Not enough memory resources are available to process this command.",
                                ">>  |--tr:Error code: 0x00000008"}));
}

TEST_F(CrashHandler, AProgramThatHasNoPathStopsNothing) {
    class lost_process final : public platform::process {
    public:
        std::u16string module_path() override { throw exc::runtime_exc_t("No path."); }
        platform::module_version version_of(const std::u16string& /*module*/) override { return {}; }
        std::u16string comments_of(const std::u16string& /*module*/) override { return {}; }
        std::vector<std::u16string> command_line() override { return {}; }
        std::uint32_t process_id() override { return 0; }
        std::string os_description() override { return {}; }
        std::uint32_t current_thread_id() override { return 1; }
        std::uint32_t processor_count() override { return 1; }
    } process;
    platform::system_set set = system_.fakes();
    set.process = &process;
    const platform::scoped_system scope(set);
    handler_.install();
    EXPECT_NE(system_.crash.present, nullptr);
    EXPECT_EQ(lines(), (lines_t{"ERR |Cannot initialize crash folder path", ">>  |No path."}));
}

TEST_F(CrashHandler, AStepThatFailsEndsTheCleaningUp) {
    install();
    add_step(1, 1);
    add_step(2, -2);
    add_step(3, 3);
    EXPECT_EQ(handler_.process(record_), 1);
    EXPECT_EQ(ran_, (std::vector<int>{1, -2}));
    const lines_t all = lines();
    EXPECT_EQ(lines_t(all.end() - 4, all.end()),
              (lines_t{"Executing crash handlers.", "Executing crash handlers. Failed.", "ERR |Crash handlers cannot be executed.",
                       ">>  |The step can't be done."}));
}

TEST_F(CrashHandler, ADumpThatFailsIsLoggedAndTheRestGoesOn) {
    install();
    add_step(1, 1);
    system_.files.set_failure([](memory_files::operation what, const std::string& /*path*/) {
        return what == memory_files::operation::create_folder ? platform::error::access_denied : 0U;
    });
    EXPECT_EQ(handler_.process(record_), 1);
    EXPECT_EQ(ran_, (std::vector<int>{1}));
    EXPECT_EQ(lines(), (lines_t{"Trying to generate crash dump", "ERR |Cannot generate crash dump.", ">>  |Access is denied.",
                                ">>  |CreateDirectory(C:\\L) function call failed.", ">>  |--tr:Error code: 0x00000005",
                                ">>  |--tr:Cannot define the name of the next crash dump. Dumps folder: [C:\\L].",
                                ">>  |Crash details cannot be stored in legacy format."} +
                        cleaned_up));
}

std::int32_t throwing_filter(const platform::crash_record& /*record*/) {
    throw exc::runtime_exc_t("The former filter is broken.");
}

TEST_F(CrashHandler, WhateverElseFailsIsLogged) {
    system_.crash.present = throwing_filter;
    install();
    EXPECT_EQ(handler_.process(record_), 1);
    const lines_t all = lines();
    EXPECT_EQ(lines_t(all.end() - 2, all.end()),
              (lines_t{"ERR |Cannot process an unhandled exception.", ">>  |The former filter is broken."}));
}

class ChosenGenerator : public CrashHandler {
protected:
    ChosenGenerator() { install(); }

    lines_t crash() {
        EXPECT_EQ(handler_.process(record_), 1);
        lines_t all = lines();
        EXPECT_GE(all.size(), 3u);
        EXPECT_EQ(all.front(), "Trying to generate crash dump");
        return {all.begin() + 1, all.end() - 2};
    }
};

TEST_F(ChosenGenerator, OnWindowsItIsTheMinidump) {
    system_.crash.become_windows();
    EXPECT_EQ(crash(), (lines_t{"Writing dump. Dump path: C:\\L\\TAPE_crash_0.mdmp."}));
    EXPECT_EQ(system_.crash.minidumps.size(), 1u);
    EXPECT_EQ(system_.crash.minidumps[0].flags, 0u);
}

TEST_F(ChosenGenerator, BeforeWindowsXpItIsTheText) {
    system_.crash.become_windows();
    system_.crash.version = 500;
    EXPECT_EQ(crash(), (lines_t{"Writing legacy dump. Dump path: C:\\L\\TAPE_crash_0.log."}));
    system_.crash.version = 510;
    system_.log.clear();
    EXPECT_EQ(crash(), (lines_t{"Writing dump. Dump path: C:\\L\\TAPE_crash_0.mdmp."}));
}

TEST_F(ChosenGenerator, WithoutAMinidumpWriterItIsTheText) {
    system_.crash.become_windows();
    system_.crash.minidump_failure = {platform::minidump_step::load_library, 126};
    EXPECT_EQ(crash(), (lines_t{"ERR |Minidump writer cannot be initialized.", ">>  |The specified module could not be found.",
                                ">>  |Cannot load dbghelp.dll library.", ">>  |--tr:Error code: 0x0000007e",
                                "Writing legacy dump. Dump path: C:\\L\\TAPE_crash_0.log."}));
}

TEST_F(ChosenGenerator, AMinidumpThatFailsIsNotTriedAsText) {
    system_.crash.become_windows();
    system_.crash.minidump_failure = {platform::minidump_step::write, 998};
    EXPECT_EQ(crash(), (lines_t{"Writing dump. Dump path: C:\\L\\TAPE_crash_0.mdmp.", "ERR |Cannot generate crash dump.",
                                ">>  |Invalid access to memory location.", ">>  |MiniDumpWriteDump() function call has failed.",
                                ">>  |--tr:Error code: 0x000003e6", ">>  |Crash details cannot be stored in minidump."}));
    EXPECT_TRUE(system_.files.paths().empty());
}

TEST_F(ChosenGenerator, BySettingItIsTheRecorder) {
    system_.crash.become_windows();
    product_options().out_of_proc_dump_gen = true;
    EXPECT_EQ(crash(), (lines_t{"Generating dump to C:\\L", "Generating dump to C:\\L ok."}));
    EXPECT_EQ(system_.crash.recorder_starts.size(), 1u);
    EXPECT_TRUE(system_.crash.minidumps.empty());
    EXPECT_TRUE(system_.crash.present_recorders.empty());
}

TEST_F(ChosenGenerator, ARecorderThatFailsIsLogged) {
    system_.crash.become_windows();
    product_options().out_of_proc_dump_gen = true;
    system_.crash.recorder_exit_code = 103;
    EXPECT_EQ(crash(), (lines_t{"Generating dump to C:\\L", "Generating dump to C:\\L Failed.", "ERR |Cannot generate crash dump.",
                                ">>  |Dump generator process failed with 103: cannot create dump folder"}));
}

TEST_F(ChosenGenerator, WithoutARecorderItIsTheNextBest) {
    const lines_t refused{"ERR |Failed to create out-of-process dump generator", ">>  |The request is not supported.",
                          ">>  |Cannot initialize out-of-process dump generator: failed to duplicate current process handle",
                          ">>  |--tr:Error code: 0x00000032"};
    product_options().out_of_proc_dump_gen = true;
    EXPECT_EQ(crash(), (refused + lines_t{"Writing legacy dump. Dump path: C:\\L\\TAPE_crash_0.log."}));
    system_.crash.become_windows();
    system_.crash.inherit_error = 50;
    system_.log.clear();
    EXPECT_EQ(crash(), (refused + lines_t{"Writing dump. Dump path: C:\\L\\TAPE_crash_0.mdmp."}));
}

TEST_F(ChosenGenerator, NoRecorderAppearsBeforeACrash) {
    system_.crash.become_windows();
    product_options().out_of_proc_dump_gen = true;
    EXPECT_TRUE(system_.crash.present_recorders.empty());
    EXPECT_TRUE(system_.files.paths().empty());
}

}  // namespace
