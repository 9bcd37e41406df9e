#include "foundation/logging/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <thread>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/logging/recording_receiver.h"
#include "platform/testing/fakes.h"

namespace {

using ::testing::ElementsAre;

/// A process whose calling thread bears the number that the test says.
class numbered_process final : public platform::process {
public:
    std::u16string module_path() override { return {}; }
    platform::module_version version_of(const std::u16string&) override { return {}; }
    std::u16string comments_of(const std::u16string&) override { return {}; }
    std::vector<std::u16string> command_line() override { return {}; }
    std::uint32_t process_id() override { return 1; }
    std::string os_description() override { return {}; }
    std::uint32_t current_thread_id() override { return thread; }
    std::uint32_t processor_count() override { return 1; }

    std::uint32_t thread = 1234;
};

/// A log of its own, with the fakes' clock at 16 November 2026 and a thread of known number.
class Log : public ::testing::Test {
protected:
    Log() : scope_(with_process()) { log_->set_receiver(receiver_); }

    platform::system_set with_process() {
        platform::system_set set = system_.fakes();
        set.process = &process_;
        return set;
    }

    platform::testing::test_system system_;
    numbered_process process_;
    platform::scoped_system scope_;
    boost::shared_ptr<recording_receiver> receiver_ = boost::make_shared<recording_receiver>();
    boost::shared_ptr<logging::log_t> log_ = boost::make_shared<logging::log_t>();
    logging::log_writer_t tap_{"tap", log_};
};

TEST_F(Log, LineHasStampThreadPrefixAndText) {
    tap_.LogInfo("Begin to move tape.");
    tap_.LogWarning("text");
    EXPECT_THAT(receiver_->writes, ElementsAre("[16.11.2026 04:31:54] <  1234> tap| Begin to move tape.\r\n",
                                               "[16.11.2026 04:31:54] <  1234> tap| WARN|text\r\n"));
}

TEST_F(Log, StampIsFilledWithZeros) {
    system_.clock.set_local({true, 987, 1, 2, 3, 4, 5});
    tap_.LogMessage("x");
    EXPECT_THAT(receiver_->writes, ElementsAre("[02.01.0987 03:04:05] <  1234> tap| x\r\n"));
}

TEST_F(Log, StampWithoutATimeSaysSo) {
    system_.clock.set_local({});
    tap_.LogMessage("x");
    EXPECT_THAT(receiver_->writes, ElementsAre("TIME ---<  1234> tap| x\r\n"));
}

TEST_F(Log, LongThreadNumberPushesTheLineOn) {
    process_.thread = 1234567;
    tap_.LogMessage("x");
    EXPECT_THAT(receiver_->writes, ElementsAre("[16.11.2026 04:31:54] <1234567> tap| x\r\n"));
}

TEST_F(Log, EmptyTextIsALineThatEndsBehindPrefixAndTag) {
    tap_.LogMessage("");
    tap_.LogError("");
    EXPECT_THAT(receiver_->writes,
                ElementsAre("[16.11.2026 04:31:54] <  1234> tap| \r\n", "[16.11.2026 04:31:54] <  1234> tap| ERR |\r\n"));
}

TEST_F(Log, LinesOfAnEntryAreOneWriteWithContinuationMarks) {
    tap_.LogError("a\nb");
    tap_.LogWarning("a\n\nb\r");
    tap_.LogInfo("a\nb");
    EXPECT_THAT(receiver_->writes,
                ElementsAre("[16.11.2026 04:31:54] <  1234> tap| ERR |a\r\n[16.11.2026 04:31:54] <  1234> tap| >>  |b\r\n",
                            "[16.11.2026 04:31:54] <  1234> tap| WARN|a\r\n[16.11.2026 04:31:54] <  1234> tap| >>  |\r\n"
                            "[16.11.2026 04:31:54] <  1234> tap| >>  |b\r\r\n",
                            "[16.11.2026 04:31:54] <  1234> tap| a\r\n[16.11.2026 04:31:54] <  1234> tap| b\r\n"));
}

TEST_F(Log, FinalLineFeedStartsNoLine) {
    tap_.LogInfo("a\n");
    tap_.LogInfo("\n");
    EXPECT_THAT(receiver_->writes,
                ElementsAre("[16.11.2026 04:31:54] <  1234> tap| a\r\n", "[16.11.2026 04:31:54] <  1234> tap| \r\n"));
}

TEST_F(Log, IndentationIsForMessagesAndInformationOnly) {
    for (int i = 0; i < 3; ++i) {
        log_->raise_indent();
    }
    tap_.LogInfo("deep\nline");
    tap_.LogMessage("deep");
    tap_.LogWarning("flat");
    tap_.LogError("flat");
    EXPECT_THAT(
        receiver_->writes,
        ElementsAre("[16.11.2026 04:31:54] <  1234> tap|       deep\r\n[16.11.2026 04:31:54] <  1234> tap|       line\r\n",
                    "[16.11.2026 04:31:54] <  1234> tap|       deep\r\n", "[16.11.2026 04:31:54] <  1234> tap| WARN|flat\r\n",
                    "[16.11.2026 04:31:54] <  1234> tap| ERR |flat\r\n"));
}

TEST_F(Log, IndentationBelongsToItsThreadAndStopsAtZero) {
    log_->lower_indent();
    EXPECT_EQ(log_->indent(), 0);
    log_->raise_indent();
    std::thread([&] {
        EXPECT_EQ(log_->indent(), 0);
        log_->lower_indent();
        EXPECT_EQ(log_->indent(), 0);
        log_->raise_indent();
        log_->raise_indent();
        EXPECT_EQ(log_->indent(), 2);
    }).join();
    EXPECT_EQ(log_->indent(), 1);
    log_->lower_indent();
    log_->lower_indent();
    EXPECT_EQ(log_->indent(), 0);
}

TEST_F(Log, ShorterStylesHaveALevelWord) {
    log_->raise_indent();
    log_->set_line_style(logging::line_style::brief);
    tap_.LogInfo("i");
    process_.thread = 1207;
    tap_.LogWarning("w");
    log_->set_line_style(logging::line_style::bare);
    tap_.LogMessage("m\nn");
    tap_.LogError("e");
    EXPECT_THAT(receiver_->writes,
                ElementsAre("[16.11.2026 04:31:54] <34> Info       i\r\n", "[16.11.2026 04:31:54] < 7> Warning  w\r\n",
                            "Info       m\r\nInfo       n\r\n", "Error    e\r\n"));
}

TEST_F(Log, PatternsAreFilled) {
    tap_.LogMessage("%1%2%3", "a", "b", "c");
    tap_.LogMessage("%1%2", "a", "b");
    tap_.LogMessage("%1", "a");
    tap_.LogInfo("%1%2%3%4", "a", "b", "c", "d");
    tap_.LogInfo("%1%2%3", "a", "b", "c");
    tap_.LogInfo("%1%2", "a", "b");
    tap_.LogInfo("%1", "a");
    tap_.LogWarning("%1%2", "a", "b");
    tap_.LogWarning("%1", "a");
    tap_.LogError("%1%2%3", "a", "b", "c");
    tap_.LogError("%1%2", "a", "b");
    tap_.LogError("%1", "a");
    tap_.LogInfo("%1 stays");
    std::vector<std::string> texts;
    for (const std::string& line : receiver_->writes) {
        texts.push_back(line.substr(36, line.size() - 38));
    }
    EXPECT_THAT(texts, ElementsAre("abc", "ab", "a", "abcd", "abc", "ab", "a", "WARN|ab", "WARN|a", "ERR |abc", "ERR |ab", "ERR |a",
                                   "%1 stays"));
}

class shouting final : public logging::log_transform_t {
public:
    std::string transform(const std::string& line) override { return line + "!"; }
};

TEST_F(Log, TransformSeesEachLine) {
    log_->set_transform(boost::make_shared<shouting>());
    tap_.LogInfo("a\nb");
    EXPECT_THAT(receiver_->writes,
                ElementsAre("[16.11.2026 04:31:54] <  1234> tap| a!\r\n[16.11.2026 04:31:54] <  1234> tap| b!\r\n"));
}

TEST_F(Log, DropsEntriesWhileMutedOrWithoutReceiverOrFormat) {
    log_->set_muted(true);
    tap_.LogInfo("muted");
    log_->set_muted(false);
    log_->write(logging::level::info, 0, nullptr, "no format");
    log_->set_receiver({});
    tap_.LogInfo("no receiver");
    EXPECT_TRUE(receiver_->writes.empty());
}

TEST_F(Log, PathIsTheReceivers) {
    EXPECT_EQ(log_->path(), "recorded.log");
    log_->set_receiver({});
    try {
        (void)log_->path();
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ(e.what(), "Value of the log path is unavailable: log is not initialized yet.");
    }
}

class spoiling_transform final : public logging::log_transform_t {
public:
    std::string transform(const std::string& line) override {
        platform::system().errors->set_last_error(6);
        return line;
    }
};

TEST_F(Log, LeavesTheLastErrorAlone) {
    log_->set_transform(boost::make_shared<spoiling_transform>());
    system_.errors.set_last_error(21);
    tap_.LogInfo("x");
    EXPECT_EQ(receiver_->writes.size(), 1U);
    EXPECT_EQ(exc::last_error(), 21U);
}

class counting_check final : public logging::size_check_t {
public:
    explicit counting_check(const logging::log_writer_t& writer) : writer_(writer) {}
    void check(logging::receiver::log_file_t& receiver) override {
        ++calls;
        last_path = receiver.path();
        writer_.LogInfo("checking");
        if (fail) {
            throw exc::runtime_exc_t("size");
        }
    }
    int calls = 0;
    bool fail = false;
    std::string last_path;

private:
    logging::log_writer_t writer_;
};

TEST_F(Log, SizeIsLookedAtEveryThousandEntries) {
    const auto check = boost::make_shared<counting_check>(tap_);
    log_->set_check_size(check);
    for (int i = 0; i < 999; ++i) {
        tap_.LogInfo("one\ntwo\nthree");
    }
    EXPECT_EQ(check->calls, 0);
    tap_.LogInfo("x");
    EXPECT_EQ(check->calls, 1);
    EXPECT_EQ(check->last_path, "recorded.log");
    for (int i = 0; i < 998; ++i) {
        tap_.LogInfo("x");
    }
    EXPECT_EQ(check->calls, 1);
    check->fail = true;
    EXPECT_THROW(tap_.LogInfo("x"), exc::runtime_exc_t);
    EXPECT_EQ(check->calls, 2);
    EXPECT_NO_THROW(tap_.LogInfo("x"));
    // The check's writer holds the log that holds the check.
    log_->set_check_size({});
}

TEST_F(Log, CheckThatLogsALotIsNotRunInsideItself) {
    class talkative_check final : public logging::size_check_t {
    public:
        explicit talkative_check(const logging::log_writer_t& writer) : writer_(writer) {}
        void check(logging::receiver::log_file_t&) override {
            ++calls;
            deepest = std::max(deepest, ++depth_);
            for (int i = 0; calls == 1 && i < 2500; ++i) {
                writer_.LogInfo("checking");
            }
            --depth_;
        }
        int calls = 0;
        int deepest = 0;

    private:
        logging::log_writer_t writer_;
        int depth_ = 0;
    };
    const auto check = boost::make_shared<talkative_check>(tap_);
    log_->set_check_size(check);
    for (int i = 0; i < 1000; ++i) {
        tap_.LogInfo("x");
    }
    EXPECT_EQ(check->calls, 1);
    EXPECT_EQ(check->deepest, 1);
    tap_.LogInfo("the check itself has written enough for another one");
    EXPECT_EQ(check->calls, 2);
    // The check's writer holds the log that holds the check.
    log_->set_check_size({});
}

TEST_F(Log, EntriesOfSeveralThreadsDoNotMix) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            const std::string line(50, static_cast<char>('a' + t));
            for (int i = 0; i < 200; ++i) {
                tap_.LogError("%1\n%2", line, line);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(receiver_->writes.size(), 800U);
    for (const std::string& entry : receiver_->writes) {
        EXPECT_EQ(std::count(entry.begin(), entry.end(), '\n'), 2);
    }
}

TEST_F(Log, LargeEntryIsOneWriteOfItsOwnSize) {
    const std::string text(20 * 1024 * 1024, 'x');
    tap_.LogMessage(text);
    ASSERT_EQ(receiver_->writes.size(), 1U);
    EXPECT_EQ(receiver_->writes[0].size(), text.size() + 38);
}

class silent_exception : public std::exception {
public:
    const char* what() const noexcept override { return nullptr; }
};

TEST_F(Log, ErrorsNameTheThreadOfTheException) {
    process_.thread = 77;
    const exc::runtime_exc_t own("cause");
    process_.thread = 1234;
    tap_.LogError(own);
    tap_.LogError("text", own);
    tap_.LogError("%1", "a", own);
    tap_.LogError("%1%2%3%4", "a", "b", "c", "d", own);
    tap_.LogError(std::out_of_range("foreign"));
    tap_.LogError(silent_exception());
    tap_.LogError("text", silent_exception());
    process_.thread = 0;
    const exc::runtime_exc_t early("early");
    process_.thread = 1234;
    tap_.LogError(early);
    const std::string stamp = "[16.11.2026 04:31:54] <  1234> tap| ";
    const auto entry = [&](std::initializer_list<std::string> lines, const std::string& thread) {
        std::string result;
        for (const std::string& line : lines) {
            result += stamp + (result.empty() ? "ERR |" : ">>  |") + line + "\r\n";
        }
        return result + stamp + ">>  |An exception was thrown from thread [" + thread + "].\r\n";
    };
    EXPECT_THAT(receiver_->writes, ElementsAre(entry({"cause"}, "77"), entry({"text", "cause"}, "77"), entry({"a", "cause"}, "77"),
                                               entry({"abcd", "cause"}, "77"), entry({"foreign"}, "n/a"),
                                               entry({"Exception message is not available."}, "n/a"), entry({"text"}, "n/a"),
                                               entry({"early"}, "n/a")));
}

TEST_F(Log, WarningsOfExceptionsHaveNoThread) {
    tap_.LogWarning(exc::runtime_exc_t("cause"));
    tap_.LogWarning("text", exc::runtime_exc_t("cause"));
    tap_.LogWarning(silent_exception());
    const std::string stamp = "[16.11.2026 04:31:54] <  1234> tap| ";
    EXPECT_THAT(receiver_->writes, ElementsAre(stamp + "WARN|cause\r\n", stamp + "WARN|text\r\n" + stamp + ">>  |cause\r\n",
                                               stamp + "WARN|Exception message is not available.\r\n"));
}

TEST_F(Log, SaysWhetherAnEntryWouldBeDropped) {
    EXPECT_TRUE(log_->takes_entries());
    log_->set_muted(true);
    EXPECT_FALSE(log_->takes_entries());
    log_->set_muted(false);
    log_->set_receiver({});
    EXPECT_FALSE(log_->takes_entries());
    tap_.LogInfo("Nobody takes '%1'.", "this");
    log_->set_receiver(receiver_);
    EXPECT_TRUE(log_->takes_entries());
    EXPECT_TRUE(receiver_->writes.empty());
}

TEST_F(Log, WarnsThatALookAtTheSizeIsNear) {
    class asking_check : public logging::size_check_t {
    public:
        explicit asking_check(logging::log_t& log) : log_(log) {}
        void check(logging::receiver::log_file_t&) override { during = log_.may_take_long(); }
        bool during = false;

    private:
        logging::log_t& log_;
    };
    const auto check = boost::make_shared<asking_check>(*log_);
    log_->set_check_size(check);
    EXPECT_FALSE(log_->may_take_long());
    for (int i = 0; i < 935; ++i) {
        tap_.LogInfo("x");
    }
    EXPECT_FALSE(log_->may_take_long());
    tap_.LogInfo("x");
    EXPECT_TRUE(log_->may_take_long());
    for (int i = 936; i < 1000; ++i) {
        tap_.LogInfo("x");
    }
    EXPECT_TRUE(check->during);
    EXPECT_FALSE(log_->may_take_long());
    log_->set_receiver({});
    EXPECT_FALSE(log_->may_take_long());
}

}  // namespace
