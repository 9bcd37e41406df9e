#include "foundation/synch/semaphore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "foundation/exc/exceptions.h"
#include "platform/errors.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

using platform::testing::fake_events;
using synch::CUnnamedSemaphore;
using test_support::failure_text;
using ::testing::_;
using ::testing::DoAll;
using ::testing::Return;
using ::testing::SetArgReferee;

class Semaphore : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

/// What is asked of the system.
class mock_events final : public platform::events {
public:
    MOCK_METHOD(std::uint32_t, create_event, (platform::event_reset, platform::wait_handle&), (override));
    MOCK_METHOD(std::uint32_t, create_semaphore, (std::uint32_t, std::uint32_t, platform::wait_handle&), (override));
    MOCK_METHOD(std::uint32_t, set, (platform::wait_handle), (override));
    MOCK_METHOD(std::uint32_t, reset, (platform::wait_handle), (override));
    MOCK_METHOD(std::uint32_t, release, (platform::wait_handle, std::uint32_t), (override));
    MOCK_METHOD(std::uint32_t, wait, (platform::wait_handle, std::uint32_t, bool&), (override));
    MOCK_METHOD(std::uint32_t, close, (platform::wait_handle), (override));
};

TEST_F(Semaphore, HasOnePermitOfAtMostHex40000000AndWaitsWithoutALimit) {
    mock_events events;
    platform::system_set set = system_.fakes();
    set.events = &events;
    const platform::scoped_system scope(set);
    EXPECT_CALL(events, create_semaphore(1, 0x4000'0000, _)).WillOnce(DoAll(SetArgReferee<2>(77U), Return(0U)));
    EXPECT_CALL(events, wait(77, 0xFFFF'FFFF, _)).WillOnce(DoAll(SetArgReferee<2>(true), Return(0U))).WillOnce(Return(0U));
    EXPECT_CALL(events, release(77, 1)).WillOnce(Return(0U));
    EXPECT_CALL(events, close(77)).WillOnce(Return(0U));
    CUnnamedSemaphore semaphore(12);
    EXPECT_TRUE(semaphore.lock());
    semaphore.unlock();
    EXPECT_FALSE(semaphore.lock());
}

TEST_F(Semaphore, StartsWithOnePermitWhateverItIsGiven) {
    for (const std::uint32_t initial : {0U, 1U, 5U, 0xFFFF'FFFFU}) {
        CUnnamedSemaphore semaphore(initial);
        EXPECT_TRUE(semaphore.lock());
        bool second = false;
        std::thread waiting([&] { second = semaphore.lock(); });
        system_.events.await_waiting(1);
        semaphore.unlock();
        waiting.join();
        EXPECT_TRUE(second);
    }
}

TEST_F(Semaphore, IsALockUnderBothPairsOfNames) {
    CUnnamedSemaphore semaphore(1);
    synch::CAbstractLock& lock = semaphore;
    EXPECT_TRUE(lock.acquire());
    lock.unlock();
    EXPECT_TRUE(lock.lock());
    lock.release();
    lock.release();
    EXPECT_TRUE(lock.acquire());
    EXPECT_TRUE(lock.acquire());
}

TEST_F(Semaphore, NamesTheOperationThatFailed) {
    CUnnamedSemaphore semaphore(1);
    for (const auto what :
         {fake_events::operation::create_semaphore, fake_events::operation::wait, fake_events::operation::release}) {
        system_.events.fail(what, platform::error::invalid_handle);
    }
    const auto text = [](const std::string& sentence) {
        return "The handle is invalid.\n" + sentence + "\n--tr:Error code: 0x00000006";
    };
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([] { const CUnnamedSemaphore another(1); }), text("Failed to create semaphore"));
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { semaphore.lock(); }), text("Failed to lock semaphore"));
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { semaphore.unlock(); }), text("Failed to unlock semaphore"));
}

TEST_F(Semaphore, LetsOneThreadInAtATime) {
    CUnnamedSemaphore semaphore(1);
    int inside = 0;  // guarded by the semaphore
    int passages = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int passage = 0; passage < 500; ++passage) {
                EXPECT_TRUE(semaphore.lock());
                EXPECT_EQ(++inside, 1);
                ++passages;
                --inside;
                semaphore.unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(passages, 2000);
}

}  // namespace
