#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <thread>

#include "foundation/exc/exceptions.h"
#include "foundation/win/win_file.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"
#include "support/request_support.h"
#include "support/write_retry_scope.h"

namespace {

using ::testing::ElementsAre;
using operation = platform::testing::memory_files::operation;
using events_operation = platform::testing::fake_events::operation;
using test_support::failure_text;

constexpr const char* path = "C:\\a.bin";
constexpr const char* lock_text = "The process cannot access the file because another process has locked a portion of the file.";
constexpr std::int64_t longest_wait = 1'814'400'000;

/// Over operations that have ended when they are begun, and over pending ones.
class AsyncWinFile : public ::testing::TestWithParam<bool> {
protected:
    AsyncWinFile() { system_.files.set_pending(GetParam()); }

    static win::win_file_t open(platform::file_open_mode mode = platform::file_open_mode::open_always) {
        return win::win_file_t::open_async(u"C:\\a.bin", mode);
    }
    std::string content() const { return system_.files.content(path).value_or("no file"); }
    std::string read(win::win_file_t& file, std::size_t size) {
        std::string text(size, '?');
        text.resize(file.read(std::span(reinterpret_cast<std::uint8_t*>(text.data()), size)));
        return text;
    }
    /// The first `times` operations of the kind fail.
    void fail(operation what, std::uint32_t code, int times = 1000) {
        system_.files.set_failure([what, code, left = std::make_shared<int>(times)](operation asked, const std::string&) {
            return asked == what && (*left)-- > 0 ? code : 0U;
        });
    }
    /// What a file logs beside the lives of its threads.
    std::vector<std::string> log_lines() const {
        std::vector<std::string> lines = system_.log.lines();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("Thread "); });
        return lines;
    }

    platform::testing::test_system system_;

private:
    const write_retry_scope options_;
};

INSTANTIATE_TEST_SUITE_P(Operations, AsyncWinFile, ::testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Pending" : "EndedAtOnce"; });

TEST_P(AsyncWinFile, WritesReadsAndSeeks) {
    win::win_file_t file = open();
    EXPECT_TRUE(file.is_async());
    file.write("0123456789");
    EXPECT_EQ(file.position(), 10U);
    EXPECT_EQ(read(file, 5), "");
    file.seek_to_begin(2);
    EXPECT_EQ(read(file, 3), "234");
    EXPECT_EQ(file.position(), 5U);
    file.seek(2, win::seek_method::current);
    EXPECT_EQ(file.position(), 7U);
    file.seek(-4, win::seek_method::current);
    EXPECT_EQ(file.position(), 3U);
    file.write("xyz");
    EXPECT_EQ(file.position(), 6U);
    file.seek(-1, win::seek_method::end);
    EXPECT_EQ(read(file, 3), "9");
    EXPECT_EQ(read(file, 3), "");
    EXPECT_EQ(file.position(), 10U);
    file.set_size(4);
    EXPECT_EQ(file.size(), 4U);
    EXPECT_EQ(file.position(), 4U);
    file.write("!");
    file.flush();
    EXPECT_EQ(content(), "012x!");
    file.seek_to_end(2);
    file.write("?");
    EXPECT_EQ(content(), std::string("012x!\0\0?", 8));
}

TEST_P(AsyncWinFile, OpensAsTheSynchronousOneDoes) {
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([] { open(platform::file_open_mode::open_existing); }),
              "The system cannot find the file specified.\nFailed to create or open file [C:\\a.bin].\n"
              "--tr:Error code: 0x00000002");
    const win::win_file_t file = open(platform::file_open_mode::create_new);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([] { open(platform::file_open_mode::create_new); }),
              "The file exists.\nFailed to create or open file [C:\\a.bin].\n--tr:Error code: 0x00000050");
}

TEST_P(AsyncWinFile, NeedsAnEventForItsWrites) {
    system_.events.fail(events_operation::create_event, 8);
    EXPECT_TRUE(failure_text<exc::win_sys_exc_t>([] {
                    open();
                }).ends_with("\nFailed to create async write event\n--tr:Error code: 0x00000008"));
    EXPECT_EQ(system_.files.open_count(), 0U);
    EXPECT_EQ(system_.events.open_handles(), 0U);
}

/// Events of which only some can be had.
class scarce_events final : public test_support::forwarding_events {
public:
    using forwarding_events::forwarding_events;

    std::uint32_t create_event(platform::event_reset reset, platform::wait_handle& event) override {
        resets.push_back(reset);
        return left-- > 0 ? forwarding_events::create_event(reset, event) : platform::error::not_enough_memory;
    }

    int left = 0;
    std::vector<platform::event_reset> resets;
};

TEST_P(AsyncWinFile, ReadsOnTwoThreadsForEachProcessor) {
    system_.process.processors = 3;
    scarce_events events(system_.events);
    platform::system_set set = system_.fakes();
    set.events = &events;
    const platform::scoped_system scope(set);
    events.left = 2;  // for the write and for the wait of its reads
    EXPECT_TRUE(failure_text<exc::win_sys_exc_t>([] {
                    open();
                }).ends_with("\n--tr:Failed to initialize asynchronous request processing controller."));
    EXPECT_THAT(events.resets,
                ElementsAre(platform::event_reset::automatic, platform::event_reset::manual, platform::event_reset::manual));
    EXPECT_THAT(log_lines(), ElementsAre("dmn| Initializing controller for asynchronous request processing. "
                                         "Number of processing thread: [6]. Failed."));
    EXPECT_EQ(system_.files.open_count(), 0U);
}

TEST_P(AsyncWinFile, LockViolationsAreTriedAgainAndThenThrown) {
    product_options().win_file_write_retry_count = 3;
    win::win_file_t file = open();
    fail(operation::write, 33);
    const std::string failure =
        std::string(lock_text) + "\nFailed to write data to the file [C:\\a.bin].\n--tr:Error code: 0x00000021";
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { file.write("text"); }), failure);
    const std::string warning[] = {std::string("WARN|") + lock_text, ">>  |Failed to write data to the file [C:\\a.bin].",
                                   ">>  |--tr:Error code: 0x00000021", "WARN|Retry."};
    EXPECT_THAT(log_lines(),
                ElementsAre(warning[0], warning[1], warning[2], warning[3], warning[0], warning[1], warning[2], warning[3]));
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre(0, 100));
    EXPECT_EQ(file.position(), 0U);
}

TEST_P(AsyncWinFile, ARetryWritesAllOfItToTheSamePlace) {
    product_options().win_file_write_retry_max_timeout_msec = 350;
    win::win_file_t file = open();
    file.write("0123");
    fail(operation::write, 1784, 6);
    file.write("text");
    EXPECT_EQ(content(), "0123text");
    EXPECT_EQ(file.position(), 8U);
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre(0, 100, 200, 300, 350, 350));
    EXPECT_THAT(system_.files.writes(path), ElementsAre("0123", "text"));
}

TEST_P(AsyncWinFile, OtherFailuresAreThrownAtOnceAndLeaveThePosition) {
    win::win_file_t file = open();
    file.write("01");
    system_.files.set_free_bytes(2);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { file.write("text"); }),
              "There is not enough space on the disk.\nFailed to write data to the file [C:\\a.bin].\n--tr:Error code: 0x00000070");
    EXPECT_EQ(file.position(), 2U);
    EXPECT_THAT(system_.clock.sleeps(), ElementsAre());
    EXPECT_THAT(log_lines(), ElementsAre());
}

TEST_P(AsyncWinFile, NoTriesAtAllWriteNothing) {
    product_options().win_file_write_retry_count = 0;
    win::win_file_t file = open();
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { file.write("text"); }),
              "Failed to write 4 bytes to the file 'C:\\a.bin': 0 bytes were written instead");
    EXPECT_EQ(content(), "");
    EXPECT_NO_THROW(file.write(""));
}

TEST_P(AsyncWinFile, AShortWriteMovesThePositionAndIsAFailure) {
    win::win_file_t file = open();
    system_.files.set_most_moved(3);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { file.write("text"); }),
              "Failed to write 4 bytes to the file 'C:\\a.bin': 3 bytes were written instead");
    EXPECT_EQ(file.position(), 3U);
    EXPECT_EQ(content(), "tex");
}

TEST_P(AsyncWinFile, AShortReadIsNone) {
    system_.files.put(path, "0123456789");
    win::win_file_t file = open();
    system_.files.set_most_moved(3);
    EXPECT_EQ(read(file, 5), "012");
    EXPECT_EQ(read(file, 5), "345");
}

TEST_P(AsyncWinFile, AFailedReadHasTheTextOfTheSynchronousOne) {
    system_.files.put(path, "0123456789");
    win::win_file_t file = open();
    file.seek_to_begin(4);
    fail(operation::read, 1117, 2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { read(file, 2); }),
                  "The request could not be performed because of an I/O device error.\n"
                  "Failed to read data from the file [C:\\a.bin].\n--tr:Error code: 0x0000045d");
        EXPECT_EQ(file.position(), 4U);
    }
    EXPECT_EQ(read(file, 2), "45");
    EXPECT_THAT(log_lines(), ElementsAre());
}

TEST_P(AsyncWinFile, SeekingOnlyComputes) {
    win::win_file_t file = open();
    file.write("0123");
    fail(operation::seek, 5);
    file.seek(7, win::seek_method::begin);
    EXPECT_EQ(file.position(), 7U);
    file.seek(-3, win::seek_method::current);
    EXPECT_EQ(file.position(), 4U);
    file.seek(1, win::seek_method::end);
    EXPECT_EQ(file.position(), 5U);
}

TEST_P(AsyncWinFile, FailedSeeksNameTheMethodAndLeaveThePosition) {
    win::win_file_t file = open();
    file.write("ab");
    const std::string text = "Seek operation has failed. File: [C:\\a.bin]. Distance to move: ";
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { file.seek(1, static_cast<win::seek_method>(3)); }),
              "The request is not supported.\n" + text + "[1]. Move method: [3].\n--tr:Error code: 0x00000032");
    const std::string before = "An attempt was made to move the file pointer before the beginning of the file.\n" + text;
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { file.seek(-1, win::seek_method::begin); }),
              before + "[-1]. Move method: [FILE_BEGIN].\n--tr:Error code: 0x00000083");
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { file.seek(-3, win::seek_method::current); }),
              before + "[-3]. Move method: [FILE_CURRENT].\n--tr:Error code: 0x00000083");
    constexpr std::int64_t farthest = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { file.seek(farthest, win::seek_method::current); }),
              before + "[9223372036854775807]. Move method: [FILE_CURRENT].\n--tr:Error code: 0x00000083");
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { file.seek(farthest, win::seek_method::end); }),
              before + "[9223372036854775807]. Move method: [FILE_END].\n--tr:Error code: 0x00000083");
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { file.seek(std::numeric_limits<std::int64_t>::min(), win::seek_method::end); }),
              before + "[-9223372036854775808]. Move method: [FILE_END].\n--tr:Error code: 0x00000083");
    fail(operation::size, 5);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { file.seek(-1, win::seek_method::end); }),
              "Access is denied.\n" + text + "[-1]. Move method: [FILE_END].\n--tr:Error code: 0x00000005");
    EXPECT_EQ(file.position(), 2U);
}

TEST_P(AsyncWinFile, IsClosedBeforeItsPoolIsStopped) {
    const auto ended_threads = [this] {
        const std::vector<std::string> lines = system_.log.lines();
        return std::count_if(lines.begin(), lines.end(),
                             [](const std::string& line) { return line.starts_with("Thread finished."); });
    };
    system_.files.put(path, "0123");
    std::optional<win::win_file_t> file(open());
    EXPECT_EQ(read(*file, 4), "0123");
    const std::size_t open_handles = system_.events.open_handles();
    file.reset();
    EXPECT_EQ(system_.files.open_count(), 0U);
    EXPECT_EQ(ended_threads(), 2);
    EXPECT_GT(open_handles, 0U);
    EXPECT_EQ(system_.events.open_handles(), 0U);
    EXPECT_THAT(log_lines(), ElementsAre());
}

TEST_P(AsyncWinFile, GoesOnElsewhereWhenItIsMoved) {
    win::win_file_t first = open();
    first.write("0123");
    {
        win::win_file_t second(std::move(first));
        second.seek_to_begin(1);
        EXPECT_EQ(read(second, 2), "12");
        EXPECT_EQ(system_.files.open_count(), 1U);
    }
    EXPECT_EQ(system_.files.open_count(), 0U);
}

TEST_P(AsyncWinFile, AReadThatNoThreadCanBeHadForFailsAsTheReadOfItsFile) {
    win::win_file_t file = open();
    system_.events.await_waiting(1);
    system_.events.fail(events_operation::create_event, 6);
    const std::string failure =
        "The handle is invalid.\nCannot create an event object.\n--tr:Error code: 0x00000006\n"
        "--tr:Request dispatching failure.\n"
        "--tr:Fatal error of dispatching asynchronous request processing.\n"
        "--tr:Failed to read data from the file [C:\\a.bin].";
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { read(file, 2); }), failure);
    system_.events.fail(events_operation::create_event, 0);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { read(file, 2); }), failure);
}

TEST_P(AsyncWinFile, AReadUnderWayIsWaitedForWhateverBecomesOfThePool) {
    system_.files.put(path, "0123");
    test_support::gate begun;
    test_support::gate leave;
    system_.files.set_failure([&](operation what, const std::string&) {
        if (what == operation::read) {
            begun.open();
            leave.pass();
        }
        return 0U;
    });
    win::win_file_t file = open();
    std::string text;
    std::atomic<bool> returned = false;
    std::jthread reader([&] {
        text = read(file, 4);
        returned = true;
    });
    begun.pass();
    system_.events.await_waiting(2);  // the dispatcher and the reader
    system_.clock.advance(longest_wait);
    test_support::await([&] { return system_.log.has_line("Thread finished. Role: 'Request processing dispatcher.'."); });
    EXPECT_FALSE(returned);
    leave.open();
    reader.join();
    EXPECT_EQ(text, "0123");
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { read(file, 4); }),
              "Timeout waiting for pending processing requests.\n"
              "--tr:Fatal error of dispatching asynchronous request processing.\n"
              "--tr:Failed to read data from the file [C:\\a.bin].");
}

TEST_P(AsyncWinFile, ManyReadsLeaveNothingBehind) {
    system_.files.put(path, std::string(1000, 'x'));
    win::win_file_t file = open();
    read(file, 1);
    system_.events.await_waiting(2);
    const std::size_t handles = system_.events.open_handles();
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(read(file, 3), "xxx");
    }
    // A read that comes before the thread of the one before is free again starts another thread, of which there are four at most.
    EXPECT_LE(system_.events.open_handles(), handles + 3 * 2);
    EXPECT_EQ(file.position(), 901U);
}

}  // namespace
