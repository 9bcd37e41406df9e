#include "foundation/logging/log_rotation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <functional>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_setup.h"
#include "foundation/logging/log_writer.h"
#include "foundation/win/win_log_file.h"
#include "platform/testing/fakes.h"
#include "support/gunzip.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using operation = platform::testing::memory_files::operation;

constexpr const char* product_key = "SOFTWARE\\Tarno\\Tarno Lodestore";

class LogRotation : public ::testing::Test {
protected:
    ~LogRotation() override {
        logging::log_t::process_log()->set_receiver({});
        logging::log_t::process_log()->set_check_size({});
    }

    void set_limits(std::uint32_t size, std::uint32_t count) {
        system_.registry.set_dword(product_key, "AgentMaxLogSize", size);
        system_.registry.set_dword(product_key, "AgentMaxLogCount", count);
    }
    [[nodiscard]] std::string content(std::string_view path) const { return system_.files.content(path).value_or("no such file"); }
    [[nodiscard]] std::string unpacked(std::string_view path) const { return gunzip(content(path)).value_or("broken"); }

    /// A log that is due, in a file of its own.
    void fill(std::string_view text) {
        if (log_ == nullptr) {
            log_ = boost::make_shared<win::win_log_file_t>(u"C:\\a.log");
        }
        log_->write(std::string(text));
    }
    void rotate(std::uint64_t size, std::int32_t count) { logging::check_log_size(*log_, {size, count}); }

    platform::testing::test_system system_;
    boost::shared_ptr<win::win_log_file_t> log_;
};

TEST_F(LogRotation, LimitsHaveDefaults) {
    EXPECT_EQ(logging::read_log_limits().size, 15'728'640U);
    EXPECT_EQ(logging::read_log_limits().count, 10);
    set_limits(4096, 3);
    EXPECT_EQ(logging::read_log_limits().size, 4096U);
    EXPECT_EQ(logging::read_log_limits().count, 3);
    EXPECT_EQ(system_.registry.open_keys(), 0U);
}

TEST_F(LogRotation, BothLimitsCountOnlyTogether) {
    system_.registry.set_dword(product_key, "AgentMaxLogSize", 4096);
    EXPECT_EQ(logging::read_log_limits().size, 15'728'640U);
    system_.registry.set_string(product_key, "AgentMaxLogCount", "3");
    EXPECT_EQ(logging::read_log_limits().size, 15'728'640U);
    EXPECT_EQ(logging::read_log_limits().count, 10);
    system_.registry.set_qword(product_key, "AgentMaxLogCount", 3);
    EXPECT_EQ(logging::read_log_limits().size, 15'728'640U);
    system_.registry.set_dword(product_key, "AgentMaxLogCount", 3);
    system_.registry.remove_value(product_key, "AgentMaxLogSize");
    EXPECT_EQ(logging::read_log_limits().count, 10);
    system_.registry.set_string(product_key, "AgentMaxLogSize", "4096");
    EXPECT_EQ(logging::read_log_limits().count, 10);
}

TEST_F(LogRotation, CountBeyondItsRangeIsAThousand) {
    for (const std::uint32_t count : {1001U, 0xFFFFFFFFU, 0x80000000U}) {
        set_limits(4096, count);
        EXPECT_EQ(logging::read_log_limits().count, 1000);
    }
    for (const std::uint32_t count : {0U, 1U, 1000U}) {
        set_limits(4096, count);
        EXPECT_EQ(logging::read_log_limits().count, static_cast<std::int32_t>(count));
    }
}

/// Tells a size and counts what it is asked for.
class sized_receiver final : public logging::receiver::log_file_t {
public:
    void write(const std::string&) override {}
    const std::string& path() const override { return path_; }
    const std::string& line_end() const override { return path_; }
    std::uint64_t size() override { return bytes; }
    void compress(const boost::shared_ptr<util::zip_writer_t>&) override { ++compressed; }

    std::uint64_t bytes = 0;
    int compressed = 0;

private:
    std::string path_ = "C:\\sized.log";
};

TEST_F(LogRotation, SizeIsComparedOnAllItsBits) {
    system_.registry.set_qword(product_key, "AgentMaxLogSize", 0x1'0000'1000);
    system_.registry.set_dword(product_key, "AgentMaxLogCount", 3);
    const logging::log_limits_t limits = logging::read_log_limits();
    EXPECT_EQ(limits.size, 0x1'0000'1000U);
    sized_receiver receiver;
    receiver.bytes = 0x1'0000'0FFF;
    logging::check_log_size(receiver, limits);
    EXPECT_EQ(receiver.compressed, 0);
    receiver.bytes = 0x1'0000'1000;
    logging::check_log_size(receiver, limits);
    EXPECT_EQ(receiver.compressed, 1);
}

TEST_F(LogRotation, NoLimitMeansNoRotation) {
    sized_receiver receiver;
    receiver.bytes = 0xFFFF'FFFF'FFFF'FFFF;
    logging::check_log_size(receiver, {0, 10});
    EXPECT_EQ(receiver.compressed, 0);
}

TEST_F(LogRotation, LimitsAreReadOnceByTheProcessesRotation) {
    set_limits(4096, 3);
    logging::log_rotation_t rotation;
    sized_receiver receiver;
    receiver.bytes = 4095;
    rotation.check(receiver);
    set_limits(1, 3);
    rotation.check(receiver);
    EXPECT_EQ(receiver.compressed, 0);
    receiver.bytes = 4096;
    rotation.check(receiver);
    EXPECT_EQ(receiver.compressed, 1);
}

TEST_F(LogRotation, LogOfExactlyTheLimitIsRotated) {
    fill("12345");
    rotate(6, 10);
    EXPECT_EQ(content("C:\\a.log"), "12345");
    rotate(5, 10);
    EXPECT_EQ(content("C:\\a.log"), "");
    EXPECT_EQ(unpacked("C:\\a.log.gz"), "12345");
}

TEST_F(LogRotation, ElevenArchivesAreKeptByDefault) {
    for (int i = 0; i < 13; ++i) {
        fill("log " + std::to_string(i));
        rotate(1, 10);
    }
    EXPECT_EQ(system_.files.paths().size(), 12U);
    EXPECT_EQ(unpacked("C:\\a.log.gz"), "log 12");
    EXPECT_EQ(unpacked("C:\\a.1.log.gz"), "log 11");
    EXPECT_EQ(unpacked("C:\\a.10.log.gz"), "log 2");
}

TEST_F(LogRotation, CountOfNoneKeepsOneArchive) {
    fill("first");
    rotate(1, 0);
    fill("second");
    rotate(1, 0);
    EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.log", "C:\\a.log.gz"));
    EXPECT_EQ(unpacked("C:\\a.log.gz"), "second");
}

TEST_F(LogRotation, AgeStandsBeforeTheExtension) {
    EXPECT_EQ(logging::aged_path(u"C:\\a.log.gz", u".log.gz", 0), u"C:\\a.log.gz");
    EXPECT_EQ(logging::aged_path(u"C:\\a.log.gz", u".log.gz", 12), u"C:\\a.12.log.gz");
    EXPECT_EQ(logging::aged_path(u"C:\\logfile.gz", u".log.gz", 1), u"C:\\logfile.gz.1");
}

TEST_F(LogRotation, GapsBetweenTheAgesStay) {
    system_.files.put("C:\\a.log.gz", "0");
    system_.files.put("C:\\a.2.log.gz", "2");
    logging::age_file(u"C:\\a.log.gz", u".log.gz", 10);
    EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.1.log.gz", "C:\\a.3.log.gz"));
    EXPECT_EQ(content("C:\\a.3.log.gz"), "2");
}

TEST_F(LogRotation, FailedAgeingLeavesTheFormerNames) {
    for (const int age : {1, 2, 3}) {
        system_.files.put("C:\\a." + std::to_string(age) + ".log.gz", std::to_string(age));
    }
    system_.files.put("C:\\a.log.gz", "0");
    system_.files.set_failure(
        [](operation what, const std::string& path) { return what == operation::rename && path == "C:\\a.1.log.gz" ? 32U : 0U; });
    try {
        logging::age_file(u"C:\\a.log.gz", u".log.gz", 3);
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_THAT(e.what(), EndsWith("Failed to move file [C:\\a.1.log.gz] to [C:\\a.2.log.gz].\n--tr:Error code: 0x00000020\n"
                                       "--tr:Cannot age file. File path: [C:\\a.log.gz]. Extension: [.log.gz]. Ages limit: [3]."));
    }
    EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.1.log.gz", "C:\\a.2.log.gz", "C:\\a.3.log.gz", "C:\\a.log.gz"));
    EXPECT_EQ(content("C:\\a.3.log.gz"), "3");
    EXPECT_EQ(content("C:\\a.2.log.gz"), "2");
}

TEST_F(LogRotation, WhatAnInterruptedAgeingPutAsideIsDeleted) {
    system_.files.put("C:\\a.1.log.gz", "1");
    system_.files.put("C:\\a.1.log.gz.old", "older");
    logging::age_file(u"C:\\a.log.gz", u".log.gz", 1);
    EXPECT_THAT(system_.files.paths(), ElementsAre());
}

TEST_F(LogRotation, ArchivesThatWereWholeSurviveAFullDisk) {
    for (int i = 0; i < 3; ++i) {
        fill("log " + std::to_string(i));
        rotate(1, 1);
    }
    fill("the log that finds the disk full");
    system_.files.set_free_bytes(10);
    for (int attempt = 0; attempt < 5; ++attempt) {
        try {
            rotate(1, 1);
            FAIL();
        } catch (const exc::win_sys_exc_t& e) {
            EXPECT_STREQ(e.what(),
                         "There is not enough space on the disk.\nFailed to write data to the file [C:\\a.log.gz.part].\n"
                         "--tr:Error code: 0x00000070\nError code: -1\n--tr:Cannot close GZ archive [C:\\a.log.gz].\n"
                         "--tr:Cannot compress log file. Log: [C:\\a.log].\n"
                         "--tr:Unable to validate log size limit. Log path: [C:\\a.log].");
        }
        system_.files.set_free_bytes(10);
    }
    EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.1.log.gz", "C:\\a.log", "C:\\a.log.gz"));
    EXPECT_EQ(unpacked("C:\\a.log.gz"), "log 2");
    EXPECT_EQ(unpacked("C:\\a.1.log.gz"), "log 1");
    EXPECT_EQ(content("C:\\a.log"), "the log that finds the disk full");
    system_.files.set_free_bytes(std::nullopt);
    rotate(1, 1);
    EXPECT_EQ(unpacked("C:\\a.log.gz"), "the log that finds the disk full");
    EXPECT_EQ(unpacked("C:\\a.1.log.gz"), "log 2");
}

TEST_F(LogRotation, ArchiveThatCannotTakeItsPlaceBringsTheAgesBack) {
    for (int i = 0; i < 3; ++i) {
        fill("log " + std::to_string(i));
        rotate(1, 1);
    }
    fill("more");
    system_.files.set_failure(
        [](operation what, const std::string& path) { return what == operation::rename && path == "C:\\a.log.gz.part" ? 5U : 0U; });
    EXPECT_THROW(rotate(1, 1), exc::win_sys_exc_t);
    EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.1.log.gz", "C:\\a.log", "C:\\a.log.gz"));
    EXPECT_EQ(unpacked("C:\\a.log.gz"), "log 2");
    EXPECT_EQ(unpacked("C:\\a.1.log.gz"), "log 1");
    EXPECT_EQ(content("C:\\a.log"), "more");
}

/// Breaks a rotation off at one moment after the other, each in a folder of its own, and makes a whole one after it.
class BrokenRotation : public LogRotation {
protected:
    /// Whether the rotation came to its end before that moment. Everything that was there is looked for after the break, and again
    /// after the next rotation, but for what that one drops for its age.
    bool ends_before(int moment, const std::function<void()>& strike) {
        folder_ = "C:\\" + std::to_string(moment) + "\\";
        system_.files.add_folder(folder_);
        for (const std::string_view text : {"[oldest]", "[older]", "[old]"}) {
            open_log();
            fill(text);
            rotate(1, 2);
        }
        fill("[the line]");

        const bool whole = rotate_until(moment, strike);
        for (const std::string_view text : {"[older]", "[old]", "[the line]"}) {
            EXPECT_THAT(everything_in({".gz", ".old", ".log"}), HasSubstr(text)) << "moment " << moment;
        }
        open_log();
        fill("[next]");
        rotate(1, 2);
        for (const std::string_view text : {"[old]", "[the line]", "[next]"}) {
            EXPECT_THAT(everything_in({".log.gz", ".log"}), HasSubstr(text)) << "moment " << moment;
        }
        EXPECT_FALSE(system_.files.content(folder_ + "a.log.gz.part"));
        return whole;
    }

private:
    void open_log() {
        log_.reset();
        log_ = boost::make_shared<win::win_log_file_t>(text::utf8_to_wide(folder_ + "a.log"));
        log_->flush_each_write = true;
    }

    bool rotate_until(int moment, const std::function<void()>& strike) {
        bool struck = false;
        int left = moment;
        system_.files.set_failure([&](operation, const std::string&) {
            if (left-- == 0) {
                struck = true;
                strike();
            }
            return struck ? 6U : 0U;
        });
        try {
            rotate(1, 2);
        } catch (const exc::exc_base_t&) {
            EXPECT_TRUE(struck);
        }
        system_.files.set_failure({});
        return !struck;
    }

    [[nodiscard]] std::string everything_in(std::initializer_list<std::string_view> endings) const {
        std::string all;
        for (const std::string& path : system_.files.paths()) {
            const auto ends = [&](std::string_view ending) { return path.ends_with(ending); };
            if (path.starts_with(folder_) && std::any_of(endings.begin(), endings.end(), ends)) {
                all += path.ends_with(".log") ? content(path) : unpacked(path);
            }
        }
        EXPECT_THAT(all, Not(HasSubstr("broken")));
        return all;
    }

    std::string folder_;
};

TEST_F(BrokenRotation, LosesNothingToAPowerFailure) {
    int moment = 0;
    while (!ends_before(moment, [this] { system_.files.lose_power(); })) {
        ++moment;
    }
    EXPECT_GT(moment, 15);
}

/// What was done stays then, flushed or not, and nothing is done any more.
TEST_F(BrokenRotation, LosesNothingToTheEndOfItsProcess) {
    int moment = 0;
    while (!ends_before(moment, [] {})) {
        ++moment;
    }
    EXPECT_GT(moment, 15);
}

TEST_F(LogRotation, FullLogIsRotatedAtTheStartAndEveryThousandEntries) {
    set_limits(5, 10);
    system_.files.put("C:\\x.log", "before");
    logging::initialize_log(u"d.log", {u"svc.exe", u"-log", u"C:\\x.log"});
    EXPECT_EQ(unpacked("C:\\x.log.gz"), "before");
    for (int i = 1; i < 999; ++i) {  // the log's own first line counts
        g_log.LogInfo("x");
    }
    EXPECT_FALSE(system_.files.content("C:\\x.1.log.gz"));
    g_log.LogInfo("the thousandth");
    EXPECT_EQ(content("C:\\x.log"), "");
    EXPECT_EQ(unpacked("C:\\x.1.log.gz"), "before");
    EXPECT_THAT(unpacked("C:\\x.log.gz"), EndsWith("tap| the thousandth\r\n"));
}

TEST_F(LogRotation, FailureReachesTheCodeThatLogged) {
    set_limits(5, 10);
    logging::initialize_log(u"d.log", {u"svc.exe", u"-log", u"C:\\x.log"});
    for (int i = 1; i < 999; ++i) {
        g_log.LogInfo("x");
    }
    system_.files.set_failure([](operation what, const std::string&) { return what == operation::read ? 1117U : 0U; });
    EXPECT_THROW(g_log.LogInfo("the thousandth"), exc::win_sys_exc_t);
    EXPECT_THAT(content("C:\\x.log"), EndsWith("tap| the thousandth\r\n"));
    EXPECT_NO_THROW(g_log.LogInfo("one more"));
    EXPECT_THAT(content("C:\\x.log"), EndsWith("tap| one more\r\n"));
}

TEST_F(LogRotation, FailureAtTheStartLeavesTheProcessWithoutALog) {
    set_limits(5, 10);
    system_.files.put("C:\\x.log", "before");
    system_.files.set_failure([](operation what, const std::string&) { return what == operation::read ? 5U : 0U; });
    logging::log_t::process_log()->set_receiver({});
    logging::initialize_log(u"d.log", {u"svc.exe", u"-log", u"C:\\x.log"});
    g_log.LogInfo("nobody hears");
    EXPECT_EQ(content("C:\\x.log"), "before");
}

}  // namespace
