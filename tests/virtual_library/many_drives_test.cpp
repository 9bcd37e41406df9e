#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "foundation/util/bytes.h"
#include "platform/virtual_library/virtual_library_source.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

namespace {

/// A clock that stands still, with all who sleep by it, until it is moved on for good.
class held_clock final : public platform::clock {
public:
    [[nodiscard]] std::int64_t seconds() override { return milliseconds() / 1000; }
    [[nodiscard]] std::int64_t milliseconds() override {
        const std::lock_guard<std::mutex> lock(mutex_);
        return now_;
    }
    [[nodiscard]] local_time now_local() override { return {}; }
    void sleep(std::int64_t milliseconds) override {
        std::unique_lock<std::mutex> lock(mutex_);
        ++sleepers_;
        changed_.notify_all();
        const std::int64_t end = now_ + milliseconds;
        changed_.wait(lock, [this, end] { return now_ >= end; });
    }

    void wait_for_sleepers(int count) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this, count] { return sleepers_ == count; });
    }
    void advance(std::int64_t milliseconds) {
        const std::lock_guard<std::mutex> lock(mutex_);
        now_ += milliseconds;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::int64_t now_ = 1'000'000;
    int sleepers_ = 0;
};

}  // namespace

/// A library of 200 drives with a tape in each.
class many_drives_test : public library_test {
protected:
    static constexpr std::uint16_t drives = 200;

    static personality full_drives() {
        personality value = make_personality({.slots = 210, .drives = drives, .cartridges = 205});
        for (std::uint16_t number = 0; number < drives; ++number) {
            value.cartridges[number].element = static_cast<std::uint16_t>(value.drives.first + number);
            value.cartridges[number].used = 10;
        }
        value.timings.erase_long = 10'000'000;
        return value;
    }
};

TEST_F(many_drives_test, erases_all_at_once_and_stays_answering) {
    held_clock clock;
    system_set set = system.fakes();
    set.clock = &clock;
    const scoped_system scope(set);
    start(full_drives());
    std::atomic<int> erased = 0;
    std::vector<std::thread> threads;
    for (std::uint16_t number = 1; number <= drives; ++number) {
        threads.emplace_back([&, number] {
            const auto one = library->connect(static_cast<std::uint8_t>(number));
            erased += result(*one, {0x19, 1, 0, 0, 0, 0}, 0, 86'400) == "ok" ? 1 : 0;
        });
    }
    clock.wait_for_sleepers(drives);
    // All are under way together.
    EXPECT_EQ(result(*changer, status_cdb(4, library->made_of().drives.first, drives, true, true), 0xFFFF), "ok");
    EXPECT_EQ(result(*drive, {0x12, 0, 0, 0, 96, 0}, 96), "ok");
    EXPECT_EQ(result(*changer, move_cdb(library->made_of().slots.first + 201, library->made_of().slots.first)), "ok");
    EXPECT_EQ(result(*drive, test_unit_ready_cdb), "2/04/07");
    EXPECT_EQ(erased, 0);
    clock.advance(10'000'000);
    for (std::thread& each : threads) {
        each.join();
    }
    EXPECT_EQ(erased, drives);
    for (std::uint16_t number = 1; number <= drives; ++number) {
        const answer remaining =
            send(*library->connect(static_cast<std::uint8_t>(number)), {0x8C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}, 256);
        ASSERT_EQ(util::load_be64(remaining.data, 9), 11'444'092U) << number;
    }
    stop();
}

/// One write of the state for each erase, and none for looking.
TEST_F(many_drives_test, writes_no_more_than_what_changes) {
    start(full_drives());
    int saves = 0;
    system.files.set_failure([&saves](testing::memory_files::operation what, const std::string&) {
        saves += what == testing::memory_files::operation::replace ? 1 : 0;
        return error::success;
    });
    virtual_library_source source({folder});
    EXPECT_FALSE(source.problems().empty());  // this test has the library open
    for (std::uint16_t number = 1; number <= drives; ++number) {
        const auto one = library->connect(static_cast<std::uint8_t>(number));
        EXPECT_EQ(result(*one, {0x12, 1, 0x80, 0, 255, 0}, 255), "ok");
        EXPECT_EQ(result(*one, test_unit_ready_cdb), "ok");
        EXPECT_EQ(result(*one, {0x4D, 0, 0x57, 0, 0, 0, 0, 1, 0, 0}, 256), "ok");
    }
    EXPECT_EQ(saves, 0);
    for (std::uint16_t number = 1; number <= drives; ++number) {
        EXPECT_EQ(result(*library->connect(static_cast<std::uint8_t>(number)), {0x19, 3, 0, 0, 0, 0}), "ok");
    }
    EXPECT_EQ(saves, drives);
}

TEST_F(many_drives_test, are_found_and_opened_by_name) {
    create_library(folder, full_drives());
    virtual_library_source source({folder});
    const std::vector<device_stack::logical_unit_info> found = source.enumerate();
    ASSERT_EQ(found.size(), drives + 1U);
    EXPECT_EQ(found.back().identity, "C:\\library#200");
    EXPECT_EQ(found.back().serial, "TRNDRV0200");
    std::uint32_t code = 0;
    for (const device_stack::logical_unit_info& each : found) {
        ASSERT_NE(source.open(each.identity, code), nullptr) << each.identity;
    }
    for (const char* other : {"C:\\library", "C:\\library#", "C:\\library#201", "C:\\library#x", "C:\\library#1x", "C:\\library#-1",
                              "C:\\library# 1", "C:\\library#01", "C:\\librar#1", "#1", ""}) {
        EXPECT_EQ(source.open(other, code), nullptr) << other;
        EXPECT_EQ(code, 2U);
    }
}

}  // namespace platform::tape_library
