#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "foundation/exc/exceptions.h"
#include "foundation/perf/perf_log.h"
#include "foundation/win/win_file.h"
#include "foundation/workload/time_ratio_counter.h"
#include "platform/testing/fakes.h"
#include "support/perf_scope.h"
#include "support/request_support.h"
#include "support/write_retry_scope.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using operation = platform::testing::memory_files::operation;

constexpr const char* record = "C:\\Temp\\perf.4242.txt";

/// Over a synchronous file and one in async mode. The fake numbers its open files from 1.
class WinFileEvents : public ::testing::TestWithParam<bool> {
protected:
    WinFileEvents() { perf::perf_log_t::instance().start(u"C:\\Temp"); }

    static win::win_file_t open() {
        constexpr auto mode = platform::file_open_mode::open_always;
        return GetParam() ? win::win_file_t::open_async(u"C:\\a.bin", mode) : win::win_file_t::open(u"C:\\a.bin", mode);
    }
    static win::perf_kinds_t all() { return {true, true, true, true, true, true}; }

    /// The events so far, from their number on.
    std::vector<std::string> events() const {
        perf::perf_log_t::instance().flush();
        std::vector<std::string> found;
        std::string rest = system_.files.content(record).value_or("");
        while (!rest.empty()) {
            const std::string line = rest.substr(0, rest.find('\n'));
            rest.erase(0, line.size() + 1);
            found.push_back(line.substr(line.find('\t', line.find('\t') + 1) + 1));
        }
        return found;
    }

    static void use(win::win_file_t& file) {
        std::vector<std::uint8_t> data(3);
        file.write("0123456789");
        file.seek_to_begin(2);
        EXPECT_EQ(file.read(data), 3U);
        file.seek(1, win::seek_method::current);
        file.seek_to_end(-4);
        file.flush();
        file.set_size(5);
    }

    platform::testing::test_system system_;
    const test_support::perf_scope scope_;
    const write_retry_scope options_;
};

INSTANTIATE_TEST_SUITE_P(Modes, WinFileEvents, ::testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Async" : "Synchronous"; });

TEST_P(WinFileEvents, AreNotToldUnlessTheFileIsAsked) {
    {
        win::win_file_t file = open();
        use(file);
    }
    EXPECT_THAT(events(), IsEmpty());
}

TEST_P(WinFileEvents, AreToldWithHandleAndValues) {
    {
        win::win_file_t file = open();
        file.set_perf_kinds(all());
        use(file);
    }
    EXPECT_THAT(events(), ElementsAre("261\t1\t0\t10", "257\t1\t2\t0", "258\t1\t2", "259\t1\t2\t3", "260\t1\t3",
                                      "257\t1\t18446744073709551612\t2", "258\t1\t6", "263\t1", "264\t1", "265\t1\t5", "266\t1\t5",
                                      "517\t1", "518\t1"));
}

TEST_P(WinFileEvents, AreToldByKind) {
    const auto told = [this](const win::perf_kinds_t& kinds) {
        const std::size_t before = events().size();
        {
            win::win_file_t file = open();
            file.set_perf_kinds(kinds);
            use(file);
        }
        std::vector<std::string> numbers = events();
        numbers.erase(numbers.begin(), numbers.begin() + static_cast<std::ptrdiff_t>(before));
        for (std::string& line : numbers) {
            line.resize(3);
        }
        return numbers;
    };
    win::perf_kinds_t kinds;
    EXPECT_THAT(told(kinds), IsEmpty());
    kinds.perf_read = true;
    EXPECT_THAT(told(kinds), ElementsAre("259", "260"));
    kinds = {};
    kinds.perf_write = true;
    EXPECT_THAT(told(kinds), ElementsAre("261", "265", "266"));
    kinds = {};
    kinds.perf_seek = true;
    EXPECT_THAT(told(kinds), ElementsAre("257", "258", "257", "258"));
    kinds = {};
    kinds.perf_flush = true;
    EXPECT_THAT(told(kinds), ElementsAre("263", "264"));
    kinds = {};
    kinds.perf_open = true;
    EXPECT_THAT(told(kinds), IsEmpty());
    kinds = {};
    kinds.perf_close = true;
    EXPECT_THAT(told(kinds), ElementsAre("517", "518"));
}

TEST_P(WinFileEvents, OfAFailedOperationHaveNoEnd) {
    win::win_file_t file = open();
    file.set_perf_kinds(all());
    std::vector<std::uint8_t> data(3);
    const auto failing = [&](operation what, const auto& call) {
        system_.files.set_failure([what](operation asked, const std::string&) { return asked == what ? 5U : 0U; });
        EXPECT_THROW(call(), exc::win_sys_exc_t);
        system_.files.set_failure({});
    };
    failing(operation::read, [&] { static_cast<void>(file.read(data)); });
    failing(operation::size, [&] { file.seek_to_end(); });
    failing(operation::flush, [&] { file.flush(); });
    failing(operation::truncate, [&] { file.set_size(5); });
    failing(operation::write, [&] { file.write("x"); });
    EXPECT_THAT(events(), ElementsAre("259\t1\t0\t3", "257\t1\t0\t2", "263\t1", "265\t1\t5", "261\t1\t5\t1"));
}

/// A file that notes when it is closed.
class noting_file final : public platform::overlapped_file {
public:
    explicit noting_file(std::function<void()> closed) : closed_(std::move(closed)) {}
    ~noting_file() override { closed_(); }
    noting_file(const noting_file&) = delete;
    noting_file& operator=(const noting_file&) = delete;

    std::uint32_t read(std::span<std::uint8_t>, std::size_t& count) override { return static_cast<std::uint32_t>(count = 0); }
    std::uint32_t write(std::span<const std::uint8_t>, std::size_t& count) override {
        return static_cast<std::uint32_t>(count = 0);
    }
    std::uint32_t seek(std::uint64_t) override { return 0; }
    std::uint32_t size(std::uint64_t& bytes) override { return static_cast<std::uint32_t>(bytes = 0); }
    std::uint32_t truncate_here() override { return 0; }
    std::uint32_t flush() override { return 0; }
    std::uint64_t number() const override { return 77; }
    bool is_named(const std::u16string&) override { return true; }
    std::uint32_t begin_read(std::uint64_t, std::span<std::uint8_t>, std::unique_ptr<platform::file_operation>&) override {
        return 6;
    }
    std::uint32_t begin_write(std::uint64_t, std::span<const std::uint8_t>, platform::wait_handle,
                              std::unique_ptr<platform::file_operation>&) override {
        return 6;
    }

private:
    const std::function<void()> closed_;
};

/// Events that note when the one that was made first is closed.
class noting_events final : public test_support::forwarding_events {
public:
    noting_events(platform::events& real, std::function<void()> closed) : forwarding_events(real), closed_(std::move(closed)) {}

    std::uint32_t create_event(platform::event_reset reset, platform::wait_handle& event) override {
        const std::uint32_t code = forwarding_events::create_event(reset, event);
        if (first_ == platform::no_wait_object) {
            first_ = event;
        }
        return code;
    }
    std::uint32_t close(platform::wait_handle object) override {
        if (object == first_) {
            closed_();
        }
        return forwarding_events::close(object);
    }

private:
    const std::function<void()> closed_;
    platform::wait_handle first_ = platform::no_wait_object;
};

TEST(AsyncWinFileEnd, ComesInOrder) {
    platform::testing::test_system system;
    const test_support::perf_scope perf;
    std::vector<std::string> order;
    const auto note = [&](const std::string& what) {
        order.push_back(what);
        EXPECT_FALSE(system.log.has_line("Thread finished. Role: 'Request processing dispatcher.'."));
        system.clock.advance(1000);
    };
    noting_events events(system.events, [&] { note("write event"); });
    platform::system_set set = system.fakes();
    set.events = &events;
    const platform::scoped_system scope(set);
    perf::perf_log_t::instance().start(u"C:\\Temp");
    {
        std::unique_ptr<platform::overlapped_file> handle = std::make_unique<noting_file>([&] { note("file"); });
        win::win_file_t file(std::move(handle), win::lazy_path_t(std::string("x")));
        EXPECT_TRUE(file.is_async());
        win::perf_kinds_t kinds;
        kinds.perf_close = true;
        file.set_perf_kinds(kinds);
    }
    EXPECT_THAT(order, ElementsAre("write event", "file"));
    EXPECT_TRUE(system.log.has_line("Thread finished. Role: 'Request processing dispatcher.'."));
    perf::perf_log_t::instance().stop();
    const std::string thread = '\t' + std::to_string(system.process.current_thread_id()) + '\t';
    EXPECT_EQ(system.files.content(record), "1000000" + thread + "517\t77\n1002000" + thread + "518\t77\n");
}

TEST_P(WinFileEvents, TheTimeOfReadsAndWritesIsCounted) {
    workload::CTimeRatioCounter& reads = workload::CTimeRatioCounter::file_reads();
    workload::CTimeRatioCounter& writes = workload::CTimeRatioCounter::file_writes();
    const std::int64_t read_before = reads.busy_milliseconds();
    const std::int64_t written_before = writes.busy_milliseconds();
    const std::uint64_t count_before = writes.count();
    win::win_file_t file = open();
    system_.files.set_failure([this, left = std::make_shared<int>(2)](operation what, const std::string&) {
        if (what == operation::read || what == operation::write) {
            system_.clock.advance(7);
        }
        return what == operation::write && (*left)-- > 0 ? 33U : 0U;
    });
    file.write("x");
    EXPECT_EQ(writes.busy_milliseconds() - written_before, 3 * 7 + 100);
    EXPECT_EQ(writes.count() - count_before, 1U);
    std::vector<std::uint8_t> data(3);
    static_cast<void>(file.read(data));
    EXPECT_EQ(reads.busy_milliseconds() - read_before, 7);
}

}  // namespace
