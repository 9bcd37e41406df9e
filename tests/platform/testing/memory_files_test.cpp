#include "platform/testing/memory_files.h"

#include <gtest/gtest.h>

#include <array>

#include "platform/errors.h"
#include "platform/testing/fakes.h"

namespace {

using namespace platform;
using operation = platform::testing::memory_files::operation;

class OverlappedMemoryFile : public ::testing::Test {
protected:
    OverlappedMemoryFile() {
        system_.files.put("C:\\a", "0123456789");
        EXPECT_EQ(system_.files.open_overlapped(u"C:\\a", file_access::read | file_access::write, file_share::read,
                                                file_open_mode::open_existing, file_),
                  0U);
    }

    void fail(operation what, std::uint32_t code) {
        system_.files.set_failure([=](operation asked, const std::string&) { return asked == what ? code : 0U; });
    }

    platform::testing::test_system system_;
    std::unique_ptr<overlapped_file> file_;
    std::unique_ptr<file_operation> begun_;
    std::array<std::uint8_t, 4> data_{'w', 'x', 'y', 'z'};
    std::size_t count_ = 99;
};

TEST_F(OverlappedMemoryFile, CarriesOutAPendingOperationWhenItIsWaitedFor) {
    system_.files.set_pending(true);
    EXPECT_EQ(file_->begin_write(2, data_, no_wait_object, begun_), error::io_pending);
    EXPECT_EQ(system_.files.content("C:\\a"), "0123456789");
    EXPECT_EQ(begun_->wait(count_), 0U);
    EXPECT_EQ(count_, 4U);
    EXPECT_EQ(system_.files.content("C:\\a"), "01wxyz6789");
}

TEST_F(OverlappedMemoryFile, DropsAPendingOperationThatNobodyWaitsFor) {
    system_.files.set_pending(true);
    EXPECT_EQ(file_->begin_write(2, data_, no_wait_object, begun_), error::io_pending);
    begun_.reset();
    EXPECT_EQ(system_.files.content("C:\\a"), "0123456789");
}

TEST_F(OverlappedMemoryFile, TellsScriptedFailuresAtTheEndOfTheOperation) {
    for (const bool pending : {false, true}) {
        system_.files.set_pending(pending);
        fail(operation::write, error::lock_violation);
        EXPECT_EQ(file_->begin_write(2, data_, no_wait_object, begun_), pending ? error::io_pending : error::success);
        EXPECT_EQ(begun_->wait(count_), error::lock_violation);
        EXPECT_EQ(count_, 0U);
        fail(operation::read, error::io_device);
        EXPECT_EQ(file_->begin_read(2, data_, begun_), pending ? error::io_pending : error::success);
        EXPECT_EQ(begun_->wait(count_), error::io_device);
        EXPECT_EQ(count_, 0U);
    }
    EXPECT_EQ(system_.files.content("C:\\a"), "0123456789");
}

TEST_F(OverlappedMemoryFile, MovesNoMoreThanItIsSetTo) {
    system_.files.set_most_moved(3);
    EXPECT_EQ(file_->begin_write(0, data_, no_wait_object, begun_), 0U);
    EXPECT_EQ(begun_->wait(count_), 0U);
    EXPECT_EQ(count_, 3U);
    EXPECT_EQ(system_.files.content("C:\\a"), "wxy3456789");
    EXPECT_EQ(file_->begin_read(6, data_, begun_), 0U);
    EXPECT_EQ(begun_->wait(count_), 0U);
    EXPECT_EQ(count_, 3U);
    EXPECT_EQ(data_, (std::array<std::uint8_t, 4>{'6', '7', '8', 'z'}));
}

TEST_F(OverlappedMemoryFile, IsShortOfRoomLikeAnyFile) {
    system_.files.set_free_bytes(1);
    EXPECT_EQ(file_->begin_write(8, data_, no_wait_object, begun_), 0U);
    EXPECT_EQ(begun_->wait(count_), error::disk_full);
    EXPECT_EQ(count_, 3U);
    EXPECT_EQ(system_.files.content("C:\\a"), "01234567wxy");
}

TEST_F(OverlappedMemoryFile, IsDeadAfterALossOfPower) {
    system_.files.lose_power();
    EXPECT_EQ(file_->begin_write(0, data_, no_wait_object, begun_), error::invalid_handle);
    EXPECT_EQ(file_->begin_read(0, data_, begun_), error::invalid_handle);
    EXPECT_EQ(begun_, nullptr);
}

}  // namespace
