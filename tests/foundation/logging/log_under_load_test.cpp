#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <boost/make_shared.hpp>
#include <charconv>
#include <thread>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_files.h"
#include "foundation/logging/log_rotation.h"
#include "foundation/logging/log_writer.h"
#include "foundation/win/win_log_file.h"
#include "platform/linux/clock.h"
#include "platform/linux/errors.h"
#include "platform/linux/files.h"
#include "platform/linux/process.h"
#include "platform/testing/fakes.h"
#include "support/gunzip.h"
#include "support/temporary_folder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t threads = 16;
constexpr std::uint32_t lines_of_each = 62'500;
constexpr std::uint64_t limit = 8 * 1024 * 1024;

/// The log over the machine's own files.
class LogOnDisk : public ::testing::Test {
protected:
    LogOnDisk() : scope_(with_real_files()) {}

    platform::system_set with_real_files() {
        platform::system_set set = system_.fakes();
        set.files = &files_;
        set.clock = &clock_;
        set.errors = &errors_;
        set.process = &process_;
        return set;
    }
    [[nodiscard]] text::wide_string path(std::string_view name) const { return text::utf8_to_wide(folder_ / name); }

    test_support::temporary_folder folder_;
    platform::testing::test_system system_;

private:
    platform::linux_os::linux_files files_;
    platform::linux_os::linux_clock clock_;
    platform::linux_os::linux_errors errors_;
    platform::linux_os::linux_process process_;
    platform::scoped_system scope_;
};

/// Reads the lines of all threads back: each thread's numbers have to come one by one.
class line_account {
public:
    void take(std::string_view content) {
        while (!content.empty()) {
            const std::size_t end = content.find("\r\n");
            ASSERT_NE(end, std::string_view::npos) << "half a line";
            take_line(content.substr(0, end));
            content.remove_prefix(end + 2);
        }
    }
    [[nodiscard]] const std::array<std::uint32_t, threads>& next() const { return next_; }
    [[nodiscard]] std::uint32_t out_of_turn() const { return out_of_turn_; }

private:
    void take_line(std::string_view line) {
        const std::size_t text = line.find("> tap| ");
        ASSERT_NE(text, std::string_view::npos) << line;
        const std::string_view numbers = line.substr(text + 7);
        std::uint32_t thread = threads;
        std::uint32_t number = 0;
        const auto first = std::from_chars(numbers.data(), numbers.data() + numbers.size(), thread);
        ASSERT_LT(thread, threads) << line;
        ASSERT_EQ(std::from_chars(first.ptr + 1, numbers.data() + numbers.size(), number).ec, std::errc()) << line;
        out_of_turn_ += number == next_[thread]++ ? 0U : 1U;
    }

    std::array<std::uint32_t, threads> next_{};
    std::uint32_t out_of_turn_ = 0;
};

/// A look at the size after every thousand entries, with limits of its own.
class small_rotation final : public logging::size_check_t {
public:
    void check(logging::receiver::log_file_t& receiver) override { logging::check_log_size(receiver, {limit, 1000}); }
};

TEST_F(LogOnDisk, AMillionLinesOfSixteenThreadsAreThereOnceAndInOrder) {
    {
        const auto log = boost::make_shared<logging::log_t>();
        log->set_receiver(boost::make_shared<win::win_log_file_t>(path("a.log")));
        log->set_check_size(boost::make_shared<small_rotation>());
        const logging::log_writer_t writer("tap", log);
        std::vector<std::thread> all;
        for (std::uint32_t thread = 0; thread < threads; ++thread) {
            all.emplace_back([thread, &writer] {
                const std::string name = text::to_string(thread);
                for (std::uint32_t number = 0; number < lines_of_each; ++number) {
                    writer.LogInfo("%1 %2", name, text::to_string(number));
                }
            });
        }
        for (std::thread& each : all) {
            each.join();
        }
    }
    line_account account;
    std::int32_t archives = 0;
    while (std::filesystem::exists(folder_ / text::wide_to_utf8(logging::aged_path(u"a.log.gz", u".log.gz", archives)))) {
        ++archives;
    }
    EXPECT_GE(archives, 3);
    for (std::int32_t age = archives - 1; age >= 0; --age) {
        const auto content = gunzip(folder_.content(text::wide_to_utf8(logging::aged_path(u"a.log.gz", u".log.gz", age))));
        ASSERT_TRUE(content) << "archive " << age << " is broken";
        EXPECT_GE(content->size(), limit);
        account.take(*content);
    }
    account.take(folder_.content("a.log"));
    EXPECT_EQ(account.out_of_turn(), 0U);
    EXPECT_THAT(account.next(), ::testing::Each(lines_of_each));
}

TEST_F(LogOnDisk, AThousandHeldLogsEndTheSearch) {
    rlimit descriptors{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &descriptors), 0);
    const rlim_t former = descriptors.rlim_cur;
    if (descriptors.rlim_max < 1100) {
        GTEST_SKIP() << "this process may not hold a thousand files open";
    }
    descriptors.rlim_cur = std::max<rlim_t>(former, 1100);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &descriptors), 0);
    std::vector<boost::shared_ptr<win::win_log_file_t>> held;
    for (std::uint32_t number = 0; number < 1000; ++number) {
        held.push_back(boost::make_shared<win::win_log_file_t>(logging::numbered_log_path(path("a.log"), number)));
    }
    logging::pending_lines messages;
    EXPECT_EQ(logging::open_log_file({path("a.log")}, messages), nullptr);
    EXPECT_THAT(messages,
                ElementsAre("Error: Failed to initialize log [" + (folder_ / "a.log") + "].", "Error: All log files are locked."));
    held[500].reset();
    const auto freed = logging::open_log_file({path("a.log")}, messages);
    ASSERT_NE(freed, nullptr);
    EXPECT_EQ(freed->path(), folder_ / "a.500.log");
    held.clear();
    descriptors.rlim_cur = former;
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &descriptors), 0);
}

TEST_F(LogOnDisk, LogStaysReadableWhileItIsWritten) {
    win::win_log_file_t log(path("a.log"));
    log.write("one\r\n");
    EXPECT_EQ(folder_.content("a.log"), "one\r\n");
    log.write("two\r\n");
    EXPECT_EQ(folder_.content("a.log"), "one\r\ntwo\r\n");
}

TEST_F(LogOnDisk, LogThatSomebodyCutsHasNoHole) {
    win::win_log_file_t log(path("a.log"));
    log.write("one\r\n");
    std::filesystem::resize_file(folder_ / "a.log", 0);
    log.write("two\r\n");
    EXPECT_EQ(folder_.content("a.log"), "two\r\n");
}

TEST_F(LogOnDisk, LogWhoseFolderIsRemovedMakesItAnew) {
    platform::system_set set = with_real_files();
    set.clock = &system_.clock;
    const platform::scoped_system scope(set);
    std::filesystem::create_directories(folder_ / "logs/deep");
    win::win_log_file_t log(path("logs/deep/a.log"));
    std::filesystem::remove_all(folder_ / "logs");
    system_.clock.sleep(1000);
    log.write("one\r\n");
    EXPECT_EQ(folder_.content("logs/deep/a.log"), "one\r\n");
}

}  // namespace
