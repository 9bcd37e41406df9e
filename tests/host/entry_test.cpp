#include "host/entry.h"

#include <gtest/gtest.h>

#include "command/svc_context.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "support/service_fixture.h"

namespace {

using test_support::tape_key;

/// A process that can't tell its command line.
class mute_process : public platform::process {
public:
    std::u16string module_path() override { return {}; }
    platform::module_version version_of(const std::u16string& /*module*/) override { return {}; }
    std::u16string comments_of(const std::u16string& /*module*/) override { return {}; }
    std::vector<std::u16string> command_line() override { throw exc::runtime_exc_t("No words."); }
    std::uint32_t process_id() override { return 0; }
    std::string os_description() override { return {}; }
    std::uint32_t current_thread_id() override { return 1; }
    std::uint32_t processor_count() override { return 1; }
};

/// Reads the log's file as the entry writes it, without stamps.
class Entry : public test_support::ServiceFixture {
protected:
    Entry() { system_.process.arguments = {u"TARNOTAPESVC.EXE", u"-log", u"C:\\T\\run.log"}; }
    ~Entry() override { gServiceContext.reset(); }

    void add_words(const std::vector<std::u16string>& words) {
        system_.process.arguments.insert(system_.process.arguments.end(), words.begin(), words.end());
    }

    int run() {
        entry_environment environment;
        environment.pause = [&](std::int64_t milliseconds) {
            pauses_.push_back(milliseconds);
            served_ = gServiceContext.get() != nullptr && system_.rpc_runtime.listening();
            return pauses_.size() < 3;
        };
        environment.start_warnings = warnings_;
        return RunTapeServer(environment);
    }

    std::vector<std::string> file_lines(const std::u16string& path = u"C:\\T\\run.log") {
        std::unique_ptr<platform::file> file;
        if (system_.files.open_file(path, platform::file_access::read, platform::file_share::read | platform::file_share::write,
                                    platform::file_open_mode::open_existing, file) != 0) {
            return {};
        }
        std::string bytes;
        std::vector<std::uint8_t> block(65536);
        for (std::size_t count = 1; count != 0;) {
            EXPECT_EQ(file->read(block, count), 0u);
            bytes.append(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(count));
        }
        std::vector<std::string> result;
        for (std::size_t at = 0, end = 0; (end = bytes.find("\r\n", at)) != std::string::npos; at = end + 2) {
            const std::string line = bytes.substr(at, end - at);
            result.push_back(line.substr(line.find("> ") + 2));
        }
        return result;
    }

    static bool has(const std::vector<std::string>& lines, const std::string& line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    std::vector<std::int64_t> pauses_;
    std::vector<std::string> warnings_;
    bool served_ = false;
};

TEST_F(Entry, WithoutASwitchAndAManagerItEndsWithOne) {
    EXPECT_EQ(run(), 1);
    EXPECT_TRUE(pauses_.empty());
    EXPECT_TRUE(system_.rpc_runtime.calls().empty());
}

TEST_F(Entry, WritesTheBannerFirst) {
    system_.process.comments = u"A comment";
    EXPECT_EQ(run(), 1);
    const std::vector<std::string> lines = file_lines();
    ASSERT_GE(lines.size(), 11u);
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 11),
              (std::vector<std::string>{"cli| LOG: Initializing log file ...", "", std::string(77, '='), "{",
                                        "  Path to the executable module: C:\\Program Files\\Tarno\\TarnoTapeSvc.exe",
                                        "  Module version: 9.5.0.1536", "  Comments: A comment", "  OS version: Test System 1.0",
                                        "  Process Id: 4242", "}", "tap| No adding postfix for drives serial names."}));
}

TEST_F(Entry, ABannerThatFailsStopsNothing) {
    system_.process.version.failure = platform::version_failure::size_unknown;
    EXPECT_EQ(run(), 1);
    const std::vector<std::string> lines = file_lines();
    EXPECT_TRUE(has(lines, ">>  |Size of the version resource is unknown."));
    EXPECT_FALSE(has(lines, "  Process Id: 4242"));
    EXPECT_TRUE(has(lines, "}"));
    EXPECT_TRUE(has(lines, "tap| Many hosts regime is off."));
}

TEST_F(Entry, WarningsOfTheStartStandBehindTheBanner) {
    warnings_ = {"There is no settings file."};
    EXPECT_EQ(run(), 1);
    const std::vector<std::string> lines = file_lines();
    const auto end = std::find(lines.begin(), lines.end(), "}");
    ASSERT_NE(end, lines.end());
    EXPECT_EQ(*(end + 1), "WARN|There is no settings file.");
}

TEST_F(Entry, CrashesLeaveADumpBesideTheLog) {
    EXPECT_EQ(run(), 1);
    ASSERT_NE(system_.crash.present, nullptr);
    EXPECT_EQ(system_.crash.happen({}), 1);
    EXPECT_TRUE(system_.files.content("C:\\T\\TAPE_crash_0.log"));
    const std::vector<std::string> lines = file_lines();
    EXPECT_TRUE(has(lines, "Writing legacy dump. Dump path: C:\\T\\TAPE_crash_0.log."));
    EXPECT_TRUE(has(lines, "Crash handlers were successfully executed."));
}

TEST_F(Entry, TheCrashHandlerIsThereBeforeTheSettings) {
    system_.registry.set_dword(tape_key, "UserSlotPortion", 65536);
    EXPECT_THROW(run(), exc::runtime_exc_t);
    EXPECT_NE(system_.crash.present, nullptr);
}

TEST_F(Entry, ACrashHandlerThatIsRefusedStopsNothing) {
    system_.crash.filter_error = 8;
    warnings_ = {"There is no settings file."};
    EXPECT_EQ(run(), 1);
    const std::vector<std::string> lines = file_lines();
    const auto refused = std::find(lines.begin(), lines.end(), "ERR |Cannot supersede crash handler.");
    EXPECT_LT(std::find(lines.begin(), lines.end(), "WARN|There is no settings file."), refused);
    EXPECT_LT(refused, std::find(lines.begin(), lines.end(), "tap| No adding postfix for drives serial names."));
}

TEST_F(Entry, DebugServesUntilItIsTold) {
    add_words({u"-DEBUG"});
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(served_);
    EXPECT_EQ(pauses_, (std::vector<std::int64_t>{2000, 2000, 2000}));
    EXPECT_FALSE(gServiceContext.get());
    EXPECT_FALSE(system_.rpc_runtime.listening());
    EXPECT_TRUE(has(file_lines(), "tap| Launched in debug mode."));
}

TEST_F(Entry, TheSettingsAreReadBeforeTheServing) {
    system_.registry.set_dword(tape_key, "Port", 7000);
    system_.registry.set_dword(tape_key, "EnableScsiChanger", 1);
    add_words({u"-debug"});
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(gEnableScsiChanger);
    EXPECT_EQ(system_.rpc_runtime.calls().front().endpoint, "7000");
    const std::vector<std::string> lines = file_lines();
    EXPECT_LT(std::find(lines.begin(), lines.end(), "Port settings were read from registry. Port: '7000'."),
              std::find(lines.begin(), lines.end(), "tap| No adding postfix for drives serial names."));
}

TEST_F(Entry, ASettingThatCannotBeTakenEndsTheStart) {
    system_.registry.set_dword(tape_key, "UserSlotPortion", 65536);
    add_words({u"-debug"});
    EXPECT_THROW(run(), exc::runtime_exc_t);
    EXPECT_TRUE(system_.rpc_runtime.calls().empty());
}

TEST_F(Entry, APortThatIsTakenEndsTheDebugMode) {
    system_.rpc_runtime.set_status(platform::testing::fake_rpc_runtime::step::use_endpoint, 1740);
    add_words({u"-debug"});
    EXPECT_THROW(run(), exc::runtime_exc_t);
}

TEST_F(Entry, ACommandLineThatCannotBeReadEndsTheStart) {
    mute_process process;
    platform::system_set set = system_.fakes();
    set.process = &process;
    const platform::scoped_system scope(set);
    try {
        static_cast<void>(run());
        FAIL();
    } catch (const exc::exc_base_t& e) {
        EXPECT_EQ(std::string(e.what()), "No words.\n--tr:Failed to parse command line");
    }
    EXPECT_TRUE(system_.files.paths().empty());
}

TEST_F(Entry, TheLogTestBelongsToTheDebugMode) {
    add_words({u"-logtest"});
    EXPECT_EQ(run(), 1);
    EXPECT_FALSE(has(file_lines(), "Total lines: '1024'."));
}

TEST_F(Entry, LogAsTheLastWordMeansTheDefaultPath) {
    system_.process.arguments = {u"S.exe", u"-log"};
    EXPECT_EQ(run(), 1);
    const std::u16string folder = system_.files.common_data_folder();
    EXPECT_FALSE(file_lines(folder + u"\\Tarno\\Backup\\Svc.TarnoTape.log").empty());
}

TEST_F(Entry, TheLogTestWritesItsLines) {
    RunLogTest();
    const std::vector<std::string> lines = system_.log.lines();
    ASSERT_EQ(lines.size(), 1025u);
    EXPECT_EQ(lines[0], "Total lines: '1024'.");
    EXPECT_EQ(lines[1], "written 0 lines" + std::string(51199 - 15, ' '));
    EXPECT_EQ(lines[1024], "written 1023 lines" + std::string(51199 - 18, ' '));
}

}  // namespace
