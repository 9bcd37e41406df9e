#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>

#include "foundation/io/request/baseimpl/basic_async_request_processor.h"
#include "foundation/monitoring/thread_states.h"
#include "foundation/synch/stop_events.h"
#include "foundation/synch/thread.h"
#include "foundation/synch/thread_context.h"
#include "platform/linux/events.h"
#include "platform/linux/process.h"
#include "platform/linux/threads.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"
#include "support/request_support.h"

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

/// As long as it lives, the system has no room for the stack of another thread.
class no_room_for_threads {
public:
    no_room_for_threads() {
        EXPECT_EQ(pthread_getattr_default_np(&former_), 0);
        pthread_attr_t giant{};
        EXPECT_EQ(pthread_attr_init(&giant), 0);
        EXPECT_EQ(pthread_attr_setstacksize(&giant, std::size_t{1} << 52), 0);
        EXPECT_EQ(pthread_setattr_default_np(&giant), 0);
        EXPECT_EQ(pthread_attr_destroy(&giant), 0);
    }
    ~no_room_for_threads() {
        EXPECT_EQ(pthread_setattr_default_np(&former_), 0);
        EXPECT_EQ(pthread_attr_destroy(&former_), 0);
    }
    no_room_for_threads(const no_room_for_threads&) = delete;
    no_room_for_threads& operator=(const no_room_for_threads&) = delete;

private:
    pthread_attr_t former_{};
};

TEST(ThreadStart, ThatFailsLeavesNothingBehind) {
    platform::testing::test_system system;
    const auto argument = boost::make_shared<int>(7);
    {
        const no_room_for_threads no_room;
        EXPECT_THROW(thread_t([](const boost::shared_ptr<int>&) { ADD_FAILURE(); }, argument, "role"),
                     boost::thread_resource_error);
    }
    EXPECT_EQ(argument.use_count(), 1);
    EXPECT_EQ(system.events.open_handles(), 0U);
    EXPECT_TRUE(system.log.lines().empty());
    synch::CThreadContext::forget_current();
}

TEST(ThreadStart, ThatFailsIsAFailureOfTheProcessorOrOfItsDispatcher) {
    using io::request::baseimpl::basic_async_request_processor_t;
    platform::testing::test_system system;
    auto stop_signal = boost::make_shared<synch::completion_port_t>();
    {
        const no_room_for_threads no_room;
        EXPECT_TRUE(test_support::failure_of([&] {
                        const basic_async_request_processor_t processor(2, stop_signal);
                    }).ends_with("\n--tr:Failed to initialize asynchronous request processing controller."));
    }
    EXPECT_FALSE(stop_signal->is_completed());
    {
        basic_async_request_processor_t processor(2, stop_signal);
        system.events.await_waiting(1);
        const no_room_for_threads no_room;
        processor.post(test_support::request_of([] { ADD_FAILURE(); }));
        test_support::await([&] { return stop_signal->has_error(); });
        EXPECT_TRUE(stop_signal->error_text().ends_with(
            "\n--tr:Request dispatching failure.\n--tr:Fatal error of dispatching asynchronous request processing."));
    }
    stop_signal.reset();
    EXPECT_EQ(system.events.open_handles(), 0U);
    synch::CThreadContext::forget_current();
}

}  // namespace
