#include "foundation/perf/perf_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>

#include "foundation/logging/log_writer.h"
#include "foundation/util/product_options.h"
#include "platform/testing/fakes.h"
#include "support/failing_size_check.h"
#include "support/perf_scope.h"

namespace {

using perf::CPerfEventArg;
using perf::file_event;
using ::testing::ElementsAre;
using operation = platform::testing::memory_files::operation;

constexpr const char* record = "D:\\Perf\\Today\\perf.4242.txt";

class PerfLog : public ::testing::Test {
protected:
    PerfLog() { system_.files.add_folder("D:"); }

    void start() { log_.start(u"D:\\Perf\\Today"); }
    void add(file_event event, const CPerfEventArg& argument) {
        log_.add(event, argument);
        system_.clock.advance(1);
    }
    /// The file's lines without the thread.
    std::vector<std::string> lines() const {
        std::vector<std::string> found;
        std::string rest = system_.files.content(record).value_or("");
        while (!rest.empty()) {
            std::string line = rest.substr(0, rest.find('\n'));
            rest.erase(0, line.size() + 1);
            const std::size_t thread = line.find('\t');
            line.erase(thread, line.find('\t', thread + 1) - thread);
            found.push_back(std::move(line));
        }
        return found;
    }
    void fail(operation what, std::uint32_t code) {
        system_.files.set_failure([=](operation asked, const std::string&) { return asked == what ? code : 0U; });
    }

    platform::testing::test_system system_;
    const test_support::perf_scope scope_;
    perf::perf_log_t& log_ = perf::perf_log_t::instance();
};

TEST_F(PerfLog, RecordsNothingUntilItIsStarted) {
    EXPECT_FALSE(log_.is_on());
    add(file_event::read_start, CPerfEventArg(7));
    log_.flush();
    start();
    EXPECT_TRUE(log_.is_on());
    log_.flush();
    EXPECT_THAT(system_.files.paths(), ElementsAre());
}

TEST_F(PerfLog, WritesALineForEachEvent) {
    start();
    add(file_event::flush_start, CPerfEventArg(7));
    add(file_event::read_end, CPerfEventArg(7, 4096));
    add(file_event::write_start, CPerfEventArg(8, 0xFFFF'FFFF'FFFF'FFFF, 12));
    EXPECT_EQ(system_.files.content(record), std::nullopt);
    log_.flush();
    EXPECT_THAT(lines(), ElementsAre("1000000\t263\t7", "1000001\t260\t7\t4096", "1000002\t261\t8\t18446744073709551615\t12"));
    const std::string thread = '\t' + std::to_string(system_.process.current_thread_id()) + '\t';
    EXPECT_NE(system_.files.content(record)->find("1000000" + thread + "263\t7\n"), std::string::npos);
}

TEST_F(PerfLog, NumbersOfEventsAreThoseOfTheRecord) {
    const std::pair<file_event, std::uint32_t> numbers[] = {
        {file_event::seek_start, 257},  {file_event::seek_end, 258},       {file_event::read_start, 259},
        {file_event::read_end, 260},    {file_event::write_start, 261},    {file_event::flush_start, 263},
        {file_event::flush_end, 264},   {file_event::truncate_start, 265}, {file_event::truncate_end, 266},
        {file_event::close_start, 517}, {file_event::close_end, 518}};
    for (const auto& [event, number] : numbers) {
        EXPECT_EQ(static_cast<std::uint32_t>(event), number);
    }
}

TEST_F(PerfLog, AppendsToWhatIsThere) {
    start();
    add(file_event::flush_start, CPerfEventArg(1));
    log_.flush();
    add(file_event::flush_end, CPerfEventArg(1));
    log_.stop();
    add(file_event::flush_end, CPerfEventArg(2));
    EXPECT_FALSE(log_.is_on());
    EXPECT_THAT(lines(), ElementsAre("1000000\t263\t1", "1000001\t264\t1"));
    EXPECT_EQ(system_.files.open_count(), 0U);
}

TEST_F(PerfLog, AFullBufferIsWritten) {
    start();
    add(file_event::flush_start, CPerfEventArg(1));
    product_options().perf_buf_size = 30;
    add(file_event::flush_end, CPerfEventArg(1));
    EXPECT_EQ(lines().size(), 2U);
    add(file_event::flush_end, CPerfEventArg(2));
    EXPECT_EQ(lines().size(), 2U);
    log_.flush();
    EXPECT_EQ(lines().size(), 3U);
    EXPECT_EQ(system_.files.writes(record).size(), 2U);
}

TEST_F(PerfLog, AFolderThatCannotBeMadeCostsTheBuffer) {
    start();
    add(file_event::flush_start, CPerfEventArg(1));
    fail(operation::create_folder, 5);
    log_.flush();
    const std::vector<std::string> logged = system_.log.lines();
    ASSERT_EQ(logged.size(), 5U);
    EXPECT_EQ(logged[0], "ERR |Performance logger failed to create directory.");
    EXPECT_THAT(logged[1], ::testing::EndsWith("Access is denied."));
    EXPECT_THAT(logged[2], ::testing::EndsWith("CreateDirectory(D:\\Perf) function call failed."));
    fail(operation::create_folder, 0);
    add(file_event::flush_end, CPerfEventArg(1));
    log_.flush();
    EXPECT_THAT(lines(), ElementsAre("1000001\t264\t1"));
}

TEST_F(PerfLog, AFailedWriteCostsTheBuffer) {
    constexpr const char* lost = "ERR |Unable to flush performance log data. Perflog buffer will be erased, data will be lost.";
    start();
    for (const operation what : {operation::open, operation::size, operation::seek, operation::write}) {
        add(file_event::flush_start, CPerfEventArg(1));
        fail(what, 5);
        system_.log.clear();
        log_.flush();
        EXPECT_EQ(system_.log.lines().front(), lost);
        EXPECT_TRUE(system_.log.has_line("Access is denied."));
        fail(what, 0);
    }
    system_.files.set_most_moved(3);
    add(file_event::flush_start, CPerfEventArg(1));
    system_.log.clear();
    log_.flush();
    EXPECT_EQ(system_.log.lines().front(), lost);
    system_.files.set_most_moved(1000);
    log_.flush();
    EXPECT_EQ(system_.files.content(record), "100");
}

TEST_F(PerfLog, NoFailureReachesWhatIsObserved) {
    const auto check = boost::make_shared<test_support::failing_size_check>();
    logging::log_t::process_log()->set_check_size(check);
    for (int entry = 1; entry < logging::log_t::entries_between_checks; ++entry) {
        g_libraryLog.LogMessage("entry");
    }
    product_options().perf_buf_size = 1;
    start();
    fail(operation::create_folder, 5);
    EXPECT_NO_THROW(add(file_event::flush_start, CPerfEventArg(1)));
    EXPECT_EQ(check->failures, 1);
    logging::log_t::process_log()->set_check_size({});
}

TEST_F(PerfLog, LosesNoEventOfManyThreads) {
    product_options().perf_buf_size = 1000;
    start();
    {
        std::vector<std::jthread> threads;
        for (std::uint64_t handle = 1; handle <= 4; ++handle) {
            threads.emplace_back([this, handle] {
                for (std::uint64_t i = 0; i < 200; ++i) {
                    log_.add(file_event::read_end, CPerfEventArg(handle, i));
                }
            });
        }
    }
    log_.flush();
    const std::vector<std::string> all = lines();
    EXPECT_EQ(all.size(), 800U);
    for (std::uint64_t handle = 1; handle <= 4; ++handle) {
        std::uint64_t next = 0;
        for (const std::string& line : all) {
            const std::string mine = "1000000\t260\t" + std::to_string(handle) + '\t';
            if (line.starts_with(mine)) {
                EXPECT_EQ(line, mine + std::to_string(next++));
            }
        }
        EXPECT_EQ(next, 200U);
    }
}

}  // namespace
