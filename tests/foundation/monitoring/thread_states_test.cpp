#include "foundation/monitoring/thread_states.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include <boost/make_shared.hpp>

#include "foundation/logging/log_scope.h"
#include "foundation/monitoring/activity_scope.h"
#include "platform/testing/fakes.h"
#include "support/failing_size_check.h"

namespace {

using monitoring::CThreadStateRegistration;
using monitoring::CThreadStatesCollection;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t thread_id = 9'000'003;

class ThreadStates : public ::testing::Test {
protected:
    ~ThreadStates() override { threads_.set_log_threads(true); }

    platform::testing::test_system system_;
    CThreadStatesCollection& threads_ = CThreadStatesCollection::instance();
};

TEST_F(ThreadStates, ARegisteredThreadStandsInTheTableAndItsEndsInTheLog) {
    {
        const CThreadStateRegistration registration(thread_id, 17, "Role with %1.");
        const auto state = threads_.find(thread_id);
        ASSERT_NE(state, nullptr);
        EXPECT_EQ(state->role, "Role with %1.");
        EXPECT_TRUE(state->activities.empty());
        EXPECT_THAT(system_.log.lines(), ElementsAre("Thread started. Thread id: 9000003, parent id: 17, role: Role with %1."));
        system_.log.clear();
    }
    EXPECT_EQ(threads_.find(thread_id), nullptr);
    EXPECT_THAT(system_.log.lines(), ElementsAre("Thread finished. Role: 'Role with %1.'."));
}

TEST_F(ThreadStates, TheLogCanBeSparedTheThreads) {
    EXPECT_TRUE(threads_.log_threads());
    threads_.set_log_threads(false);
    {
        const CThreadStateRegistration registration(thread_id, 17, "quiet");
        EXPECT_NE(threads_.find(thread_id), nullptr);
    }
    EXPECT_EQ(threads_.find(thread_id), nullptr);
    EXPECT_THAT(system_.log.lines(), IsEmpty());
}

TEST_F(ThreadStates, AnActivityKnowsWhenItBeganInMillisecondsOf32Bits) {
    const CThreadStateRegistration registration(system_.process.current_thread_id(), 17, "worker");
    const auto state = threads_.current();
    ASSERT_NE(state, nullptr);
    system_.clock.advance(0x1'0000'0000 + 5 - system_.clock.milliseconds());
    monitoring::activity_t activity("past the 49th day");
    ASSERT_EQ(state->activities.size(), 1U);
    EXPECT_EQ(state->activities.top()->started, 5U);
    EXPECT_EQ(state->activities.top()->text, "past the 49th day");
    activity.end();
    activity.end();
    EXPECT_TRUE(state->activities.empty());
}

TEST_F(ThreadStates, ThreadsNotOfTheSystemsOwnOnlyLog) {
    EXPECT_EQ(threads_.current(), nullptr);
    {
        logging::log_scope_t scope(g_libraryLog, "Serving.");
        const monitoring::activity_scope_t activity("Reading.");
        scope.ok();
    }
    EXPECT_THAT(system_.log.lines(), ElementsAre("Serving.", "Serving. ok.", "dmn| Reading. Failed."));
}

TEST_F(ThreadStates, TheTableServesManyThreads) {
    threads_.set_log_threads(false);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this] {
            const std::uint32_t own = system_.process.current_thread_id();
            for (int round = 0; round < 500; ++round) {
                const CThreadStateRegistration registration(own, 1, std::to_string(own));
                const monitoring::activity_t activity("busy");
                EXPECT_EQ(threads_.find(own)->role, std::to_string(own));
                EXPECT_EQ(threads_.current()->activities.size(), 1U);
            }
            EXPECT_EQ(threads_.current(), nullptr);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(ThreadStates, ALogThatFailsChangesNothing) {
    const auto check = boost::make_shared<test_support::failing_size_check>();
    logging::log_t::process_log()->set_check_size(check);
    const auto log_until_a_failure = [] {
        try {
            for (int entry = 0; entry < logging::log_t::entries_between_checks; ++entry) {
                g_libraryLog.LogMessage("entry");
            }
            ADD_FAILURE() << "the log was to fail";
        } catch (const exc::runtime_exc_t&) {
            return;
        }
    };
    const auto log_up_to_the_next_failure = []() {
        for (int entry = 1; entry < logging::log_t::entries_between_checks; ++entry) {
            g_libraryLog.LogMessage("entry");
        }
    };
    log_until_a_failure();
    log_up_to_the_next_failure();
    EXPECT_NO_THROW({
        const CThreadStateRegistration registration(thread_id, 17, "worker");
        EXPECT_EQ(check->failures, 2);
        EXPECT_NE(threads_.find(thread_id), nullptr);
        log_up_to_the_next_failure();
    });
    EXPECT_EQ(check->failures, 3);
    EXPECT_EQ(threads_.find(thread_id), nullptr);
    logging::log_t::process_log()->set_check_size({});
}

}  // namespace
