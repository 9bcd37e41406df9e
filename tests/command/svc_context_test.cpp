#include "command/svc_context.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"

namespace {

class idle_task : public ITapeWorker {
public:
    explicit idle_task(std::uint32_t id) { task_id_ = id; }
    void Join() override {}
    void finish(std::uint32_t status) { *status_ = status; }
};

class SvcContext : public testing::Test {
protected:
    platform::testing::test_system system_;
    ctx::CSvcContext context_;
};

TEST_F(SvcContext, TheSameNameGetsTheSameMutex) {
    const auto first = context_.GetDeviceMutex("\\\\.\\Changer0");
    EXPECT_EQ(system_.log.lines(), (std::vector<std::string>{"tap| New mutex for \\\\.\\Changer0", "tap| \\\\.\\Changer0"}));
    system_.log.clear();
    EXPECT_EQ(context_.GetDeviceMutex("\\\\.\\Changer0"), first);
    EXPECT_EQ(system_.log.lines(), std::vector<std::string>{"tap| \\\\.\\Changer0"});
}

TEST_F(SvcContext, NamesAreComparedByteByByte) {
    EXPECT_NE(context_.GetDeviceMutex("a"), context_.GetDeviceMutex("A"));
}

TEST_F(SvcContext, EveryNameIsLoggedInOrder) {
    static_cast<void>(context_.GetDeviceMutex("b"));
    static_cast<void>(context_.GetDeviceMutex("a%1"));
    system_.log.clear();
    static_cast<void>(context_.GetDeviceMutex("c"));
    EXPECT_EQ(system_.log.lines(), (std::vector<std::string>{"tap| New mutex for c", "tap| a%1", "tap| b", "tap| c"}));
}

TEST_F(SvcContext, AnEmptyNameGetsAMutexOfItsOwn) {
    const auto first = context_.GetDeviceMutex("");
    ASSERT_TRUE(first);
    EXPECT_NE(context_.GetDeviceMutex(""), first);
    EXPECT_TRUE(system_.log.lines().empty());
    static_cast<void>(context_.GetDeviceMutex("a"));
    EXPECT_EQ(system_.log.lines(), (std::vector<std::string>{"tap| New mutex for a", "tap| a"}));
}

TEST_F(SvcContext, ATaskIsFoundUntilItIsRemoved) {
    const auto task = boost::make_shared<idle_task>(7);
    EXPECT_EQ(context_.AddTask(task), 7u);
    const auto found = context_.FindTask(7);
    EXPECT_EQ(found, task);
    context_.RemoveTask(7);
    context_.RemoveTask(7);
    system_.errors.set_last_error(2);
    try {
        static_cast<void>(context_.FindTask(7));
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(std::string(e.what()),
                  "The system cannot find the file specified.\nThere is no task with id = 7\n--tr:Error code: 0x00000002");
    }
    EXPECT_EQ(found->GetStatus(), 997u);
}

TEST_F(SvcContext, ATaskReplacesOneOfTheSameId) {
    const auto older = boost::make_shared<idle_task>(7);
    const auto newer = boost::make_shared<idle_task>(7);
    context_.AddTask(older);
    context_.AddTask(newer);
    EXPECT_EQ(context_.FindTask(7), newer);
    EXPECT_EQ(older.use_count(), 1);
}

TEST_F(SvcContext, ATaskRunsUntilItsStatusChanges) {
    idle_task task(1);
    EXPECT_FALSE(task.IsFinished());
    task.finish(0);
    EXPECT_TRUE(task.IsFinished());
    EXPECT_EQ(task.GetStatus(), 0u);
    task.finish(1117);
    EXPECT_TRUE(task.IsFinished());
}

TEST_F(SvcContext, ManyThreadsUseTheTablesAtOnce) {
    std::vector<std::thread> threads;
    for (std::uint32_t index = 0; index < 4; ++index) {
        threads.emplace_back([&, index] {
            for (std::uint32_t round = 0; round < 200; ++round) {
                const std::uint32_t id = index * 1000 + round;
                context_.AddTask(boost::make_shared<idle_task>(id));
                EXPECT_EQ(context_.FindTask(id)->task_id(), id);
                context_.RemoveTask(id);
                EXPECT_TRUE(context_.GetDeviceMutex("d"));
                gServiceContext.set(boost::make_shared<ctx::CSvcContext>());
                EXPECT_TRUE(gServiceContext.get());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    gServiceContext.reset();
    EXPECT_FALSE(gServiceContext.get());
    const std::vector<std::string> lines = system_.log.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "tap| New mutex for d"), 1);
}

TEST_F(SvcContext, TheShutdownClearsNothing) {
    context_.AddTask(boost::make_shared<idle_task>(7));
    ShutdownServiceContext();
    EXPECT_EQ(system_.log.lines(), (std::vector<std::string>{"tap| Shutting down service context.", "tap| Context was cleared."}));
    EXPECT_TRUE(context_.FindTask(7));
}

TEST(ServiceContextSlot, AnEmptiedSlotKeepsNothingAlive) {
    ctx::service_context_slot slot;
    boost::shared_ptr<ctx::CSvcContext> context = boost::make_shared<ctx::CSvcContext>();
    const boost::weak_ptr<ctx::CSvcContext> watched = context;
    slot.set(context);
    boost::shared_ptr<ctx::CSvcContext> held = slot.get();
    EXPECT_EQ(held, context);
    std::thread([&] { EXPECT_EQ(slot.get(), context); }).join();
    context.reset();
    slot.reset();
    EXPECT_FALSE(slot.get());
    EXPECT_FALSE(watched.expired()) << "a call in progress holds it";
    held.reset();
    EXPECT_TRUE(watched.expired());
}

}  // namespace
