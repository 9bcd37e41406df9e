#include "foundation/logging/log_setup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_files.h"
#include "foundation/logging/log_writer.h"
#include "foundation/logging/stdout_log.h"
#include "foundation/win/win_log_file.h"
#include "platform/testing/fakes.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

constexpr const char* product_key = "SOFTWARE\\Tarno\\Tarno Lodestore";

class LogSetup : public ::testing::Test {
protected:
    LogSetup() { system_.files.set_common_data_folder(u"C:\\ProgramData"); }
    ~LogSetup() override {
        const auto log = logging::log_t::process_log();
        log->set_receiver({});
        log->set_check_size({});
    }

    platform::testing::test_system system_;
    const std::string default_log_ = "C:\\ProgramData\\Tarno\\Backup\\Svc.TarnoTape.log";
};

TEST_F(LogSetup, DefaultPathLiesBelowTheCommonData) {
    logging::initialize_log(u"Svc.TarnoTape.log", {u"svc.exe"});
    EXPECT_EQ(logging::log_t::process_log()->path(), default_log_);
    EXPECT_TRUE(logging::log_t::process_log()->initialized());
    g_log.LogInfo("Hello");
    EXPECT_THAT(system_.files.writes(default_log_),
                ElementsAre(EndsWith("cli| LOG: Initializing log file ...\r\n"), EndsWith("tap| Hello\r\n")));
    EXPECT_TRUE(gTerseLog);
}

TEST_F(LogSetup, PathBehindTheSwitchIsTaken) {
    logging::initialize_log(u"d.log", {u"svc.exe", u"-VERBOSE", u"-Log", u"C:\\x\\y.log"});
    EXPECT_EQ(logging::log_t::process_log()->path(), "C:\\x\\y.log");
    EXPECT_FALSE(gTerseLog);
}

TEST_F(LogSetup, SwitchAtTheEndFallsBackToTheDefault) {
    logging::initialize_log(u"Svc.TarnoTape.log", {u"svc.exe", u"-log"});
    EXPECT_EQ(logging::log_t::process_log()->path(), default_log_);
}

TEST_F(LogSetup, ConfiguredFolderGoesBeforeTheDefaultOne) {
    system_.registry.set_string(product_key, "LogDirectory", "C:\\Logs\\");
    EXPECT_EQ(logging::default_log_path(u"a.log"), u"C:\\Logs\\a.log");
    system_.registry.set_dword(product_key, "LogDirectory", 1);
    EXPECT_EQ(logging::log_folder(), u"C:\\ProgramData\\Tarno\\Backup\\");
}

TEST_F(LogSetup, FolderIsEmptyWhenTheSystemCannotTell) {
    system_.files.set_common_data_folder(u"");
    EXPECT_EQ(logging::log_folder(), u"");
    EXPECT_EQ(logging::default_log_path(u"a.log"), u"a.log");
}

TEST_F(LogSetup, PathsJoinWithTheSystemsSeparator) {
    platform::testing::memory_files unix_files(u'/');
    unix_files.set_common_data_folder(u"/var/log");
    platform::system_set set = system_.fakes();
    set.files = &unix_files;
    const platform::scoped_system scope(set);
    EXPECT_EQ(logging::default_log_path(u"Svc.TarnoTape.log"), u"/var/log/Tarno/Backup/Svc.TarnoTape.log");
    logging::pending_lines messages;
    EXPECT_NE(logging::open_log_file({u"/new/folder/a.log"}, messages), nullptr);
    EXPECT_THAT(messages, IsEmpty());
}

TEST_F(LogSetup, TellsThePathThatTheLogHasOrWasToHave) {
    const std::vector<std::u16string> named{u"svc.exe", u"-log", u"C:\\x\\y.log"};
    EXPECT_EQ(logging::initialize_log(u"d.log", named), u"C:\\x\\y.log");
    EXPECT_EQ(logging::initialize_log(u"d.log", named), u"C:\\x\\y.1.log") << "the first one is still open";
    system_.files.set_failure([](platform::testing::memory_files::operation what, const std::string& /*path*/) {
        return what == platform::testing::memory_files::operation::open ? platform::error::access_denied : 0U;
    });
    EXPECT_EQ(logging::initialize_log(u"d.log", named), u"C:\\x\\y.log");
}

TEST_F(LogSetup, EmptyPathMeansStandardOutput) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(logging::initialize_log(u"d.log", {u"svc.exe", u"-log", u""}), u"");
    g_log.LogInfo("Hello");
    logging::log_t::process_log()->set_receiver({});
    const std::string border = std::string(74, '/') + "\n";
    EXPECT_EQ(::testing::internal::GetCapturedStdout().find(border), 0U);
}

TEST_F(LogSetup, StandardOutputIsFramed) {
    ::testing::internal::CaptureStdout();
    {
        logging::pending_lines messages;
        const auto receiver = logging::open_stdout_log(messages);
        EXPECT_EQ(receiver->path(), "");
        EXPECT_EQ(receiver->line_end(), "\n");
        EXPECT_EQ(receiver->size(), 0U);
        receiver->write("text\n");
    }
    const std::string border = std::string(74, '/') + "\n";
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), border + "text\n" + border);
}

TEST_F(LogSetup, NumberStandsBeforeTheExtension) {
    EXPECT_EQ(logging::numbered_log_path(u"Svc.TarnoTape.log", 0), u"Svc.TarnoTape.log");
    EXPECT_EQ(logging::numbered_log_path(u"Svc.TarnoTape.log", 1), u"Svc.TarnoTape.1.log");
    EXPECT_EQ(logging::numbered_log_path(u"a.LOG", 12), u"a.12.LOG");
    EXPECT_EQ(logging::numbered_log_path(u"logfile", 1), u"logfile.1");
    EXPECT_EQ(logging::numbered_log_path(u"a.txt", 2), u"a.txt.2");
}

TEST_F(LogSetup, LockedLogGivesWayToANumberedOne) {
    const win::win_log_file_t first(u"C:\\a.log");
    logging::pending_lines messages;
    const auto second = logging::open_log_file({u"C:\\a.log"}, messages);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->path(), "C:\\a.1.log");
    EXPECT_THAT(messages, IsEmpty());
    try {
        const win::win_log_file_t again(u"C:\\a.log");
        FAIL();
    } catch (const exc::file_locked_exc_t& e) {
        EXPECT_EQ(e.path(), "C:\\a.log");
    }
}

TEST_F(LogSetup, AThousandLockedLogsEndTheSearch) {
    int opens = 0;
    system_.files.set_failure([&](platform::testing::memory_files::operation what, const std::string&) {
        if (what != platform::testing::memory_files::operation::open) {
            return 0U;
        }
        ++opens;
        return 33U;
    });
    logging::pending_lines messages;
    EXPECT_EQ(logging::open_log_file({u"C:\\a.log"}, messages), nullptr);
    EXPECT_EQ(opens, 1000);
    EXPECT_THAT(messages, ElementsAre("Error: Failed to initialize log [C:\\a.log].", "Error: All log files are locked."));
}

TEST_F(LogSetup, OtherFailuresStandInThePendingLines) {
    system_.files.set_failure([](platform::testing::memory_files::operation what, const std::string&) {
        return what == platform::testing::memory_files::operation::open ? 5U : 0U;
    });
    logging::pending_lines messages;
    EXPECT_EQ(logging::open_log_file({u"C:\\a.log"}, messages), nullptr);
    EXPECT_THAT(messages, ElementsAre("Error: Failed to initialize log [C:\\a.log].",
                                      "Error: Access is denied.\nFailed to create or open file [C:\\a.log].\n"
                                      "--tr:Error code: 0x00000005"));
    messages.clear();
    EXPECT_EQ(logging::open_log_file({}, messages), nullptr);
    EXPECT_THAT(messages, ElementsAre("Error: Failed to initialize log [n/a].", "Error: Log paths list is empty."));
}

TEST_F(LogSetup, ConfiguredFolderThatCannotBeMadeGivesWayToTheDefaultOne) {
    system_.registry.set_string(product_key, "LogDirectory", "C:\\Locked");
    system_.files.set_failure([](platform::testing::memory_files::operation what, const std::string& path) {
        const bool locked = path.find("Locked") != std::string::npos || path.find("Other") != std::string::npos;
        return what == platform::testing::memory_files::operation::create_folder && locked ? 5U : 0U;
    });
    logging::pending_lines messages;
    const auto receiver = logging::open_log_file({u"C:\\Locked\\sub\\a.log"}, messages);
    ASSERT_NE(receiver, nullptr);
    EXPECT_EQ(receiver->path(), "C:\\ProgramData\\Tarno\\Backup\\a.log");
    EXPECT_THAT(messages, IsEmpty());
    EXPECT_EQ(logging::open_log_file({u"C:\\Other\\a.log"}, messages), nullptr);
    EXPECT_THAT(
        messages,
        ElementsAre("Error: Failed to initialize log [C:\\Other\\a.log].",
                    "Error: Access is denied.\nCreateDirectory(C:\\Other) function call failed.\n--tr:Error code: 0x00000005"));
}

class recording_check final : public logging::size_check_t {
public:
    void check(logging::receiver::log_file_t& receiver) override { paths.push_back(receiver.path()); }
    std::vector<std::string> paths;
};

TEST_F(LogSetup, SizeIsLookedAtAtTheStart) {
    recording_check check;
    logging::pending_lines messages;
    EXPECT_NE(logging::open_log_file({u"C:\\a.log"}, messages, &check), nullptr);
    EXPECT_THAT(check.paths, ElementsAre("C:\\a.log"));
}

TEST_F(LogSetup, WithoutAnyLogTheProcessGoesOn) {
    logging::log_t::process_log()->set_receiver({});
    system_.files.set_failure([](auto, const std::string&) { return 5U; });
    EXPECT_NO_THROW(logging::initialize_log(u"d.log", {u"svc.exe"}));
    EXPECT_NO_THROW(g_log.LogError("nobody hears"));
}

}  // namespace
