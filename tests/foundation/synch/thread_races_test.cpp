#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "foundation/monitoring/thread_states.h"
#include "foundation/synch/stop_events.h"
#include "foundation/synch/thread.h"
#include "platform/linux/events.h"
#include "platform/linux/process.h"
#include "platform/linux/threads.h"
#include "platform/testing/fakes.h"

namespace {

using synch::CStopEvtCollection;
using synch::thread_t;

/// The real threads and events of this machine under the fakes of everything else.
class ThreadRaces : public ::testing::Test {
protected:
    ThreadRaces() : scope_(with(events_)) { monitoring::CThreadStatesCollection::instance().set_log_threads(false); }
    ~ThreadRaces() override { monitoring::CThreadStatesCollection::instance().set_log_threads(true); }

    platform::system_set with(platform::events& events) {
        platform::system_set set = system_.fakes();
        set.events = &events;
        set.process = &process_;
        set.threads = &threads_;
        return set;
    }

private:
    platform::testing::test_system system_;
    platform::linux_os::linux_events events_;
    platform::linux_os::linux_process process_;
    platform::linux_os::linux_threads threads_;
    platform::scoped_system scope_;
};

TEST_F(ThreadRaces, AThreadTouchesNothingOfTheSystemOnceItsEndIsKnown) {
    for (int round = 0; round < 1000; ++round) {
        std::optional<platform::linux_os::linux_events> events(std::in_place);
        const platform::scoped_system scope(with(*events));
        {
            const thread_t thread([](int) {}, 0, "short");
            if (round % 2 == 0) {
                EXPECT_TRUE(thread.wait());
            } else {
                while (thread.is_running()) {
                    std::this_thread::yield();
                }
            }
        }
        events.reset();
    }
}

TEST_F(ThreadRaces, ManyMayWaitForOneThread) {
    for (int round = 0; round < 50; ++round) {
        std::atomic<bool> ended{false};
        const thread_t thread([&ended](int) { ended = true; }, 0, "awaited");
        std::vector<std::thread> waiting;
        for (int joiner = 0; joiner < 4; ++joiner) {
            waiting.emplace_back([&] {
                EXPECT_NO_THROW(thread.join(win::no_limit));
                EXPECT_TRUE(ended);
                EXPECT_FALSE(thread.is_running());
                EXPECT_TRUE(thread.wait());
            });
        }
        for (std::thread& joiner : waiting) {
            joiner.join();
        }
    }
}

TEST_F(ThreadRaces, ManyMayStartThreads) {
    constexpr int starters = 4;
    constexpr int threads_each = 50;
    std::atomic<int> worked{0};
    std::atomic<int> with_a_stop_event{0};
    std::vector<std::thread> starting;
    for (int starter = 0; starter < starters; ++starter) {
        starting.emplace_back([&, starter] {
            CStopEvtCollection& events = CStopEvtCollection::instance();
            const std::uint32_t own = platform::system().process->current_thread_id();
            boost::shared_ptr<synch::stop_event_t> stop;
            if (starter % 2 == 0) {
                stop.reset(new synch::stop_event_t);
                events.add(own, stop);
            }
            std::vector<std::unique_ptr<thread_t>> threads;
            for (int thread = 0; thread < threads_each; ++thread) {
                threads.push_back(std::make_unique<thread_t>(
                    [&](int) {
                        const std::uint32_t id = platform::system().process->current_thread_id();
                        EXPECT_EQ(monitoring::CThreadStatesCollection::instance().find(id)->role, "worker");
                        EXPECT_EQ(events.find(id), stop);
                        with_a_stop_event += events.find(id) != nullptr ? 1 : 0;
                        ++worked;
                    },
                    0, "worker"));
            }
            for (const auto& thread : threads) {
                EXPECT_TRUE(thread->wait());
            }
            events.remove(own);
        });
    }
    for (std::thread& starter : starting) {
        starter.join();
    }
    EXPECT_EQ(worked, starters * threads_each);
    EXPECT_EQ(with_a_stop_event, starters * threads_each / 2);
}

}  // namespace
