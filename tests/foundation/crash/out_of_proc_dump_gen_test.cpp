#include "foundation/crash/out_of_proc_dump_gen.h"

#include "foundation/crash/crash_fixture.h"
#include "foundation/exc/exceptions.h"
#include "support/failure_text.h"

namespace {

using crash::dump_mode;
using crash::win32::COutOfProcDumpGen;
using platform::recorder_step;

class OutOfProcDump : public test_support::CrashFixture {
protected:
    OutOfProcDump() { system_.crash.become_windows(); }

    void generate(const text::wide_string& folder = u"C:\\L") {
        COutOfProcDumpGen generator;
        generator.generate(dump_mode::by_settings, folder, u"TAPE", &record_);
    }

    template <typename Exception>
    std::string failure() {
        return test_support::failure_text<Exception>([this] { generate(); });
    }
};

TEST_F(OutOfProcDump, TheRecorderIsThereAsLongAsTheGenerator) {
    {
        const COutOfProcDumpGen generator;
        EXPECT_EQ(system_.crash.present_recorders, (std::vector<std::u16string>{u"C:\\Temp\\TarnoDumpRecorder{0001}"}));
    }
    EXPECT_TRUE(system_.crash.present_recorders.empty());
}

TEST_F(OutOfProcDump, TellsTheRecorderEverythingByItsCommandLine) {
    product_options().mini_dump_mode_type = "Full";
    const int native = 0;
    record_.native = &native;
    generate(u"C:\\My logs");
    ASSERT_EQ(system_.crash.recorder_starts.size(), 1u);
    EXPECT_EQ(system_.crash.recorder_starts[0].path, u"C:\\Temp\\TarnoDumpRecorder{0001}");
    const text::wide_string expected = u"\"C:\\Temp\\TarnoDumpRecorder{0001}\" 308 " +
                                       text::to_wstring(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(&native))) +
                                       u" " + text::to_wstring(system_.process.current_thread_id()) +
                                       u" 137479 20 \"C:\\My logs\" \"TAPE\"";
    EXPECT_EQ(system_.crash.recorder_starts[0].command_line, expected);
    EXPECT_EQ(system_.crash.recorder_waits, (std::vector<std::uint32_t>{1'814'400'000}));
    EXPECT_EQ(lines(), (std::vector<std::string>{"Generating dump to C:\\My logs", "Generating dump to C:\\My logs ok."}));
}

TEST_F(OutOfProcDump, AnEmptyFolderIsThePresentOne) {
    COutOfProcDumpGen{}.generate(dump_mode::normal, u"", u"TAPE", nullptr);
    EXPECT_EQ(system_.crash.recorder_starts[0].command_line, u"\"C:\\Temp\\TarnoDumpRecorder{0001}\" 308 0 " +
                                                                 text::to_wstring(system_.process.current_thread_id()) +
                                                                 u" 0 20 \".\" \"TAPE\"");
}

TEST_F(OutOfProcDump, CannotBeMadeWithoutTheProcessesHandle) {
    system_.crash.inherit_error = 50;
    EXPECT_EQ(failure<exc::win_sys_exc_t>(),
              "The request is not supported.\n"
              "Cannot initialize out-of-process dump generator: failed to duplicate current process handle\n"
              "--tr:Error code: 0x00000032");
    EXPECT_TRUE(system_.crash.present_recorders.empty());
}

TEST_F(OutOfProcDump, CannotBeMadeWithoutTheRecordersFile) {
    const std::pair<recorder_step, std::string> texts[] = {
        {recorder_step::create, "Failed to create dump recorder file: "},
        {recorder_step::write, "Failed to write dump recorder code to "},
        {recorder_step::reopen, "Failed to re-open dump recorder for deletion: "},
    };
    for (char number = '1'; const auto& [step, text] : texts) {
        system_.crash.place_failure = {step, 5};
        EXPECT_EQ(failure<exc::win_sys_exc_t>(),
                  "Access is denied.\n" + text + "C:\\Temp\\TarnoDumpRecorder{000" + number++ + "}\n--tr:Error code: 0x00000005");
    }
}

TEST_F(OutOfProcDump, ARecorderThatDoesNotStart) {
    system_.crash.start_error = 5;
    EXPECT_EQ(failure<exc::win_sys_exc_t>(),
              "Access is denied.\nFailed to start dump generator process. File: C:\\Temp\\TarnoDumpRecorder{0001}\n"
              "--tr:Error code: 0x00000005");
    EXPECT_EQ(lines().back(), "Generating dump to C:\\L Failed.");
}

TEST_F(OutOfProcDump, ARecorderThatDoesNotEnd) {
    system_.crash.recorder_finishes = false;
    EXPECT_EQ(failure<exc::runtime_exc_t>(), "Timed out waiting for dump generator process to finish");
}

TEST_F(OutOfProcDump, ARecorderThatCannotBeWaitedFor) {
    system_.crash.wait_error = 6;
    EXPECT_EQ(failure<exc::win_sys_exc_t>(),
              "The handle is invalid.\n--tr:Error code: 0x00000006\n"
              "--tr:Failed to check whether process 'C:\\Temp\\TarnoDumpRecorder{0001}' finished.");
}

TEST_F(OutOfProcDump, ARecorderWhoseEndCannotBeAskedFor) {
    system_.crash.exit_code_error = 6;
    EXPECT_EQ(failure<exc::win_sys_exc_t>(),
              "The handle is invalid.\nFailed to retrieve process exit code\n--tr:Error code: 0x00000006");
}

TEST_F(OutOfProcDump, EveryExitCodeHasItsText) {
    const std::pair<std::uint32_t, std::string> texts[] = {
        {1, "unspecified failure"},
        {101, "invalid count of arguments"},
        {102, "invalid arguments"},
        {103, "cannot create dump folder"},
        {104, "cannot delete old dumps"},
        {105, "invalid dump name"},
        {106, "cannot create dump file"},
        {107, "cannot write dump content"},
        {108, "NTDLL is not loaded"},
        {109, "memset is not exported from NTDLL"},
        {111, "0x0000006f"},
        {110, "_vsnwprintf is not exported from NTDLL"},
        {0xC0000005, "0xc0000005"},
    };
    for (const auto& [code, text] : texts) {
        system_.crash.recorder_exit_code = code;
        EXPECT_EQ(failure<exc::runtime_exc_t>(), "Dump generator process failed with " + std::to_string(code) + ": " + text);
    }
}

}  // namespace
