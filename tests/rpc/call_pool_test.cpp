#include "platform/linux/rpc/call_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

namespace {

using platform::linux_rpc::call_pool;
using platform::linux_rpc::pool_task;

class test_task final : public pool_task {
public:
    explicit test_task(
        std::function<void()> work, std::function<void()> delivery = [] {})
        : work_(std::move(work)), delivery_(std::move(delivery)) {}
    void run() override { work_(); }
    void deliver() override { delivery_(); }

private:
    std::function<void()> work_;
    std::function<void()> delivery_;
};

std::unique_ptr<pool_task> task(
    std::function<void()> work, std::function<void()> delivery = [] {}) {
    return std::make_unique<test_task>(std::move(work), std::move(delivery));
}

TEST(CallPoolTest, KeepsTheMinimumReady) {
    const call_pool pool(2, 10, std::chrono::seconds(60));
    EXPECT_EQ(pool.threads(), 2U);
    EXPECT_EQ(pool.busy(), 0U);
}

TEST(CallPoolTest, BlockedTasksHoldNobodyUpAndTheMaximumRefuses) {
    std::promise<void> gate;
    const std::shared_future<void> opened = gate.get_future().share();
    std::atomic<int> started{0};
    std::promise<void> all_started;
    call_pool pool(1, 5, std::chrono::seconds(60));
    for (int i = 0; i < 5; ++i) {
        auto blocked = task([&, opened] {
            if (++started == 5) {
                all_started.set_value();
            }
            opened.wait();
        });
        EXPECT_TRUE(pool.start(blocked));
    }
    all_started.get_future().wait();
    EXPECT_EQ(pool.threads(), 5U);
    EXPECT_EQ(pool.busy(), 5U);
    auto refused = task([] {});
    EXPECT_FALSE(pool.start(refused));
    EXPECT_TRUE(refused) << "a refused task stays with the caller";
    gate.set_value();
}

TEST(CallPoolTest, WhoGetsTheResultFindsRoomForTheNextTask) {
    call_pool pool(1, 1, std::chrono::seconds(60));
    for (int i = 0; i < 1000; ++i) {
        std::promise<void> delivered;
        auto next = task([] {}, [&] { delivered.set_value(); });
        ASSERT_TRUE(pool.start(next)) << i;
        delivered.get_future().wait();
    }
    EXPECT_EQ(pool.threads(), 1U);
}

TEST(CallPoolTest, ThreadsAboveTheMinimumEndWhenIdle) {
    call_pool pool(1, 8, std::chrono::milliseconds(1));
    std::promise<void> gate;
    const std::shared_future<void> opened = gate.get_future().share();
    for (int i = 0; i < 8; ++i) {
        auto blocked = task([opened] { opened.wait(); });
        ASSERT_TRUE(pool.start(blocked));
    }
    EXPECT_EQ(pool.threads(), 8U);
    gate.set_value();
    while (pool.threads() > 1) {
        std::this_thread::yield();
    }
    EXPECT_EQ(pool.threads(), 1U);
}

TEST(CallPoolTest, TheEndWaitsForTasksInProgress) {
    std::atomic<bool> done{false};
    {
        call_pool pool(0, 1, std::chrono::seconds(60));
        std::promise<void> begun;
        auto slow = task([&] {
            begun.set_value();
            std::this_thread::yield();
            done = true;
        });
        ASSERT_TRUE(pool.start(slow));
        begun.get_future().wait();
    }
    EXPECT_TRUE(done);
}

}  // namespace
