#include "foundation/win/win_log_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/util/common_lib_ctx.h"
#include "foundation/util/zip_writer.h"
#include "platform/testing/fakes.h"
#include "support/gunzip.h"
#include "support/write_retry_scope.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using operation = platform::testing::memory_files::operation;

class WinLogFile : public ::testing::Test {
protected:
    [[nodiscard]] std::string content(std::string_view path) const { return system_.files.content(path).value_or("no such file"); }

    /// The first `times` writes to the log, or to another path, fail.
    void fail_writes(std::uint32_t code, int times, std::string path = "C:\\a.log") {
        system_.files.set_failure([code, path, left = std::make_shared<int>(times)](operation what, const std::string& asked) {
            return what == operation::write && asked == path && (*left)-- > 0 ? code : 0U;
        });
    }

    platform::testing::test_system system_;

private:
    const write_retry_scope options_;
};

TEST_F(WinLogFile, IsAppendedToAndMeasured) {
    system_.files.put("C:\\a.log", "old\r\n");
    win::win_log_file_t log(u"C:\\a.log");
    EXPECT_EQ(log.line_end(), "\r\n");
    EXPECT_EQ(log.path(), "C:\\a.log");
    EXPECT_EQ(log.size(), 5U);
    log.write("new\r\n");
    EXPECT_EQ(content("C:\\a.log"), "old\r\nnew\r\n");
    EXPECT_EQ(log.size(), 10U);
}

TEST_F(WinLogFile, FullDiskLosesTheTextSilentlyAndWhole) {
    win::win_log_file_t log(u"C:\\a.log");
    log.write("before\r\n");
    system_.files.set_free_bytes(3);
    EXPECT_NO_THROW(log.write("lost\r\n"));
    EXPECT_EQ(content("C:\\a.log"), "before\r\n");
    system_.files.set_free_bytes(std::nullopt);
    log.write("after\r\n");
    EXPECT_EQ(content("C:\\a.log"), "before\r\nafter\r\n");
}

TEST_F(WinLogFile, GoesOnInANewFileWhenItsOwnIsTakenAway) {
    win::win_log_file_t log(u"C:\\a.log");
    const std::string& path = log.path();
    log.write("before\r\n");
    system_.files.unlink("C:\\a.log");
    system_.clock.sleep(999);
    log.write("lost\r\n");
    EXPECT_THAT(system_.files.paths(), ElementsAre());
    system_.clock.sleep(1);
    log.write("new\r\n");
    EXPECT_EQ(content("C:\\a.log"), "new\r\n");
    EXPECT_EQ(log.size(), 5U);
    EXPECT_EQ(path, "C:\\a.log");
    system_.files.put("C:\\a.log", "another file\r\n");
    system_.clock.sleep(1000);
    log.write("behind it\r\n");
    EXPECT_EQ(content("C:\\a.log"), "another file\r\nbehind it\r\n");
}

TEST_F(WinLogFile, IsBackInItsPlaceWhenItsSizeIsAskedFor) {
    win::win_log_file_t log(u"C:\\a.log");
    log.write("before\r\n");
    system_.files.unlink("C:\\a.log");
    EXPECT_EQ(log.size(), 0U);
    log.write("after\r\n");
    EXPECT_EQ(content("C:\\a.log"), "after\r\n");
}

TEST_F(WinLogFile, GoesOnInItsOldFileWhenThereIsNoWayToANewOne) {
    win::win_log_file_t log(u"C:\\a.log");
    log.write("one\r\n");
    system_.files.unlink("C:\\a.log");
    system_.files.set_failure([](operation what, const std::string&) { return what == operation::open ? 5U : 0U; });
    system_.clock.sleep(1000);
    log.write("two\r\n");
    EXPECT_EQ(log.size(), 10U);
    system_.files.set_failure({});
    log.write("three\r\n");
    EXPECT_THAT(system_.files.paths(), ElementsAre()) << "the next look comes a second after the last";
    system_.clock.sleep(1000);
    log.write("four\r\n");
    EXPECT_EQ(content("C:\\a.log"), "four\r\n");
}

TEST_F(WinLogFile, NewFileIsOpenedWhereThisProcessMay) {
    class nowhere final : public security::IFilesAccessPermissions {
    public:
        void check(const text::wide_string& path) override {
            throw exc::runtime_exc_t("Not here: [%1].", text::wide_to_utf8(path));
        }
    };
    common_lib_ctx().set_files_access_permissions(boost::make_shared<nowhere>());
    try {
        const win::win_log_file_t log(u"C:\\a.log");
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ(e.what(), "Not here: [C:\\a.log].");
    }
    common_lib_ctx().set_files_access_permissions({});
}

TEST_F(WinLogFile, FlushesEachWriteWhenToldTo) {
    win::win_log_file_t log(u"C:\\a.log");
    log.flush_each_write = true;
    log.write("kept\r\n");
    log.flush_each_write = false;
    log.write("lost\r\n");
    system_.files.lose_power();
    EXPECT_EQ(content("C:\\a.log"), "kept\r\n");
}

TEST_F(WinLogFile, TextStaysWhenTheFlushFails) {
    win::win_log_file_t log(u"C:\\a.log");
    log.flush_each_write = true;
    system_.files.set_failure([](operation what, const std::string&) { return what == operation::flush ? 112U : 0U; });
    log.write("there\r\n");
    EXPECT_EQ(content("C:\\a.log"), "there\r\n");
}

TEST_F(WinLogFile, WarningsAboutItsOwnWriteStandBehindTheEntry) {
    const auto log = boost::make_shared<win::win_log_file_t>(u"C:\\a.log");
    logging::log_t::process_log()->set_receiver(log);
    fail_writes(33, 2);
    g_log.LogInfo("entry");
    const std::vector<std::string> writes = system_.files.writes("C:\\a.log");
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_THAT(writes[0], EndsWith("tap| entry\r\n"));
    EXPECT_THAT(writes[1], AllOf(HasSubstr("WARN|The process cannot access the file"), EndsWith("WARN|Retry.\r\n")));
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre(0, 100));
}

TEST_F(WinLogFile, LockThatStaysCostsOneRoundOfRetriesAnEntry) {
    product_options().win_file_write_retry_count = 3;
    const auto log = boost::make_shared<win::win_log_file_t>(u"C:\\a.log");
    logging::log_t::process_log()->set_receiver(log);
    fail_writes(33, 6);
    g_log.LogInfo("one");
    g_log.LogInfo("two");
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre(0, 100, 0, 100));
    EXPECT_EQ(content("C:\\a.log"), "");
    g_log.LogInfo("three");
    EXPECT_THAT(content("C:\\a.log"), AllOf(HasSubstr("tap| three\r\n"), HasSubstr("WARN|Retry."), Not(HasSubstr("tap| one"))));
}

TEST_F(WinLogFile, CompressMovesTheContentAndGoesOnEmpty) {
    const std::string old(2'500'000, 'o');
    system_.files.put("C:\\a.log", old);
    win::win_log_file_t log(u"C:\\a.log");
    log.write("new\r\n");
    log.compress(boost::make_shared<util::zip_writer_t>(u"C:\\a.log.gz"));
    EXPECT_EQ(gunzip(content("C:\\a.log.gz")), old + "new\r\n");
    EXPECT_EQ(log.size(), 0U);
    log.write("next\r\n");
    EXPECT_EQ(content("C:\\a.log"), "next\r\n");
}

TEST_F(WinLogFile, LogIsCutOnlyWhenItsArchiveIsWhole) {
    system_.files.put("C:\\a.log", "old\r\n");
    win::win_log_file_t log(u"C:\\a.log");
    for (const operation what : {operation::read, operation::write, operation::flush, operation::rename}) {
        system_.files.set_failure([what](operation asked, const std::string&) { return what == asked ? 1117U : 0U; });
        try {
            log.compress(boost::make_shared<util::zip_writer_t>(u"C:\\a.log.gz"));
            FAIL();
        } catch (const exc::exc_base_t& e) {
            EXPECT_THAT(e.what(), EndsWith("--tr:Cannot compress log file. Log: [C:\\a.log]."));
        }
        system_.files.set_failure({});
        EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.log"));
        EXPECT_EQ(content("C:\\a.log"), "old\r\n");
    }
    log.write("new\r\n");
    EXPECT_EQ(content("C:\\a.log"), "old\r\nnew\r\n");
}

TEST_F(WinLogFile, LogThatCannotBeCutStaysWhole) {
    system_.files.put("C:\\a.log", "old\r\n");
    win::win_log_file_t log(u"C:\\a.log");
    system_.files.set_failure([](operation asked, const std::string&) { return asked == operation::truncate ? 1117U : 0U; });
    EXPECT_THROW(log.compress(boost::make_shared<util::zip_writer_t>(u"C:\\a.log.gz")), exc::win_sys_exc_t);
    EXPECT_EQ(gunzip(content("C:\\a.log.gz")), "old\r\n");
    log.write("new\r\n");
    EXPECT_EQ(content("C:\\a.log"), "old\r\nnew\r\n");
}

TEST_F(WinLogFile, WarningsAboutTheArchiveStandInTheNewLog) {
    system_.files.put("C:\\a.log", "old\r\n");
    const auto log = boost::make_shared<win::win_log_file_t>(u"C:\\a.log");
    logging::log_t::process_log()->set_receiver(log);
    fail_writes(33, 1, "C:\\a.log.gz.part");
    log->compress(boost::make_shared<util::zip_writer_t>(u"C:\\a.log.gz"));
    EXPECT_EQ(gunzip(content("C:\\a.log.gz")), "old\r\n");
    EXPECT_THAT(content("C:\\a.log"),
                AllOf(HasSubstr("Failed to write data to the file [C:\\a.log.gz.part]."), EndsWith("Retry.\r\n")));
}

}  // namespace
