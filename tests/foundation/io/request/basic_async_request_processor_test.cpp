#include "foundation/io/request/baseimpl/basic_async_request_processor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <latch>
#include <stdexcept>

#include "foundation/io/request/baseimpl/request_processing_scheduler.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"
#include "support/request_support.h"

namespace {

using namespace io::request::baseimpl;
using test_support::await;
using test_support::gate;
using test_support::request_of;
using ::testing::ElementsAre;

using events_operation = platform::testing::fake_events::operation;

constexpr std::int64_t longest_wait = 1'814'400'000;

constexpr const char* still_active =
    "Attempts to destroy controller of asynchronous request processing was performed while dispatching thread was active.";
constexpr const char* early_end =
    "Asynchronous request processing thread: destructor called before the processing thread has finished.";
constexpr const char* handle_text = "The handle is invalid.";
constexpr const char* handle_code = "\n--tr:Error code: 0x00000006";

class RequestProcessing : public ::testing::Test {
protected:
    void start(std::uint32_t threads) { processor_ = std::make_unique<basic_async_request_processor_t>(threads, stop_signal_); }

    void run_and_wait(const std::function<void()>& work = [] {}) {
        gate done;
        processor_->post(request_of([&] {
            work();
            done.open();
        }));
        done.pass();
    }

    /// A request that stays at work until the gate is opened; returns when it has begun.
    void post_blocked() {
        const auto begun = boost::make_shared<gate>();
        processor_->post(request_of([this, begun] {
            begun->open();
            leave_.pass();
        }));
        begun->pass();
    }

    void end_well() {
        stop_signal_->complete();
        processor_.reset();
    }

    [[nodiscard]] std::size_t lines_with(std::string_view part) const {
        const std::vector<std::string> lines = system_.log.lines();
        return static_cast<std::size_t>(
            std::count_if(lines.begin(), lines.end(), [part](const std::string& line) { return line.find(part) != line.npos; }));
    }
    [[nodiscard]] std::size_t threads_started() const { return lines_with("role: Request processing thread."); }

    platform::testing::test_system system_;
    const boost::shared_ptr<synch::completion_port_t> stop_signal_ = boost::make_shared<synch::completion_port_t>();
    gate leave_;
    std::unique_ptr<basic_async_request_processor_t> processor_;
};

TEST_F(RequestProcessing, ProcessesWhatIsPostedInOrder) {
    start(1);
    std::vector<int> order;
    std::latch done(20);
    for (int i = 0; i < 20; ++i) {
        processor_->post(request_of([&, i] {
            order.push_back(i);
            done.count_down();
        }));
    }
    done.wait();
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    end_well();
    EXPECT_FALSE(stop_signal_->has_error());
    EXPECT_EQ(lines_with("Failed"), 0U);
    EXPECT_EQ(lines_with("ERR"), 0U);
    EXPECT_EQ(lines_with("role: Request processing dispatcher."), 1U);
    EXPECT_EQ(lines_with("Thread finished. Role: 'Request processing dispatcher.'."), 1U);
    EXPECT_EQ(lines_with("Thread finished. Role: 'Request processing thread.'."), 1U);
    EXPECT_EQ(system_.events.open_handles(), 3U);  // those that the stop signal's sinks hold
}

TEST_F(RequestProcessing, ASecondRequestWaitsForTheOnlyThread) {
    start(1);
    post_blocked();
    gate second;
    processor_->post(request_of([&] { second.open(); }));
    system_.events.await_waiting(1);  // the dispatcher has the second one in its hands
    EXPECT_FALSE(second.is_open());
    EXPECT_EQ(threads_started(), 1U);
    leave_.open();
    second.pass();
    EXPECT_EQ(threads_started(), 1U);
    end_well();
}

TEST_F(RequestProcessing, FreeThreadsComeBeforeNewOnes) {
    start(3);
    for (int i = 0; i < 5; ++i) {
        run_and_wait();
        system_.events.await_waiting(2);
    }
    EXPECT_EQ(threads_started(), 1U);
    end_well();
}

TEST_F(RequestProcessing, ThreadsGrowUpToTheLimit) {
    start(3);
    post_blocked();
    EXPECT_EQ(threads_started(), 1U);
    post_blocked();
    post_blocked();
    EXPECT_EQ(threads_started(), 3U);
    gate fourth;
    processor_->post(request_of([&] { fourth.open(); }));
    system_.events.await_waiting(1);
    EXPECT_FALSE(fourth.is_open());
    leave_.open();
    fourth.pass();
    EXPECT_EQ(threads_started(), 3U);
    end_well();
}

TEST_F(RequestProcessing, ARequestMayPostAnother) {
    start(1);
    gate done;
    processor_->post(request_of([&] { processor_->post(request_of([&] { done.open(); })); }));
    done.pass();
    end_well();
    EXPECT_FALSE(stop_signal_->has_error());
}

TEST_F(RequestProcessing, APoolWithoutThreadsProcessesNothingAndEnds) {
    start(0);
    bool processed = false;
    processor_->post(request_of([&] { processed = true; }));
    system_.events.await_waiting(1);
    end_well();
    EXPECT_FALSE(processed);
}

TEST_F(RequestProcessing, NothingIsProcessedAfterTheStop) {
    start(2);
    stop_signal_->complete();
    bool processed = false;
    processor_->post(request_of([&] { processed = true; }));
    processor_->stop();
    processor_->post(request_of([&] { processed = true; }));
    processor_.reset();
    EXPECT_FALSE(processed);
    EXPECT_EQ(threads_started(), 0U);
    EXPECT_FALSE(stop_signal_->has_error());
}

TEST_F(RequestProcessing, WhatWaitsForAThreadIsNotProcessedAfterTheStop) {
    start(1);
    post_blocked();
    bool processed = false;
    processor_->post(request_of([&] { processed = true; }));
    system_.events.await_waiting(1);
    stop_signal_->complete();
    processor_->stop();
    leave_.open();
    processor_.reset();
    EXPECT_FALSE(processed);
    EXPECT_EQ(lines_with("ERR"), 0U);
}

TEST_F(RequestProcessing, StopEndsAnIdleProcessorThatNobodyHasStopped) {
    start(2);
    processor_->stop();
    EXPECT_EQ(stop_signal_->error_text(), still_active);
    EXPECT_THROW(stop_signal_->rethrow_error(), exc::runtime_exc_t);
    EXPECT_NO_THROW(processor_->stop());
    processor_.reset();
    EXPECT_EQ(stop_signal_->error_text(), still_active);
    EXPECT_EQ(lines_with("ERR"), 0U);
}

TEST_F(RequestProcessing, DestructionWithABusyThreadFailsTheStopSignalAndWaitsForTheRequest) {
    start(1);
    post_blocked();
    std::atomic<bool> destroyed = false;
    std::jthread destroyer([&] {
        processor_.reset();
        destroyed = true;
    });
    await([&] { return lines_with(early_end) == 1; });
    EXPECT_EQ(stop_signal_->error_text(), still_active);
    EXPECT_EQ(lines_with("Thread finished. Role: 'Request processing dispatcher.'."), 1U);
    EXPECT_FALSE(destroyed);
    leave_.open();
    destroyer.join();
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(lines_with(std::string("ERR |") + early_end), 1U);
    EXPECT_EQ(lines_with("Thread finished. Role: 'Request processing thread.'."), 1U);
}

TEST_F(RequestProcessing, AnExceptionOutOfARequestEndsItAllAndEveryWaiterSeesIt) {
    start(1);
    const auto ended = boost::make_shared<synch::wait_any_trigger_t>(1U);
    stop_signal_->add_failed_sink(boost::make_shared<synch::wait_any_signaler_t>(0U, ended));
    bool processed = false;
    processor_->post(request_of([] { throw exc::win_sys_exc_t("Cannot move.", 5); }));
    processor_->post(request_of([&] { processed = true; }));
    EXPECT_TRUE(ended->wait());
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([&] { stop_signal_->rethrow_error(); }),
              "Access is denied.\nCannot move.\n--tr:Error code: 0x00000005\n--tr:Request processing thread failure.");
    processor_.reset();
    EXPECT_FALSE(processed);
    EXPECT_EQ(lines_with("dmn| Entering request processing thread. Failed."), 1U);
    EXPECT_EQ(lines_with("Entering into a dispatch thread"), 0U);
    EXPECT_EQ(lines_with("ERR"), 0U);
}

TEST_F(RequestProcessing, ATerminationOutOfARequestEndsItsThreadAlone) {
    start(2);
    processor_->post(request_of([] { throw exc::term_exc_t{}; }));
    await([&] { return lines_with("Thread finished. Role: 'Request processing thread.'.") == 1; });
    EXPECT_EQ(lines_with("Request processing thread was terminated."), 1U);
    EXPECT_EQ(lines_with("Failed"), 0U);
    EXPECT_FALSE(stop_signal_->is_completed());
    run_and_wait();
    EXPECT_EQ(threads_started(), 2U);
    end_well();
}

TEST_F(RequestProcessing, ANullRequestIsAFailureOfTheDispatcher) {
    start(2);
    processor_->post(nullptr);
    await([&] { return stop_signal_->has_error(); });
    EXPECT_EQ(stop_signal_->error_text(),
              "Invalid request for asynchronous processing.\n"
              "--tr:Fatal error of dispatching asynchronous request processing.");
    processor_.reset();
    EXPECT_EQ(lines_with("Entering into a dispatch thread (asynchronous request processing). Failed."), 1U);
}

TEST_F(RequestProcessing, ADispatcherWithoutRequestsTakesTwentyOneDaysForATimeout) {
    start(2);
    system_.events.await_waiting(1);
    system_.clock.advance(longest_wait - 1);
    system_.events.await_waiting(1);
    EXPECT_FALSE(stop_signal_->is_completed());
    system_.clock.advance(1);
    await([&] { return stop_signal_->has_error(); });
    EXPECT_EQ(stop_signal_->error_text(),
              "Timeout waiting for pending processing requests.\n"
              "--tr:Fatal error of dispatching asynchronous request processing.");
    processor_.reset();
}

TEST_F(RequestProcessing, ARequestWithoutAFreeThreadTakesTwentyOneDaysForATimeout) {
    start(1);
    post_blocked();
    processor_->post(request_of([] {}));
    system_.events.await_waiting(1);
    system_.clock.advance(longest_wait);
    await([&] { return stop_signal_->has_error(); });
    EXPECT_EQ(stop_signal_->error_text(),
              "Timeout waiting for available asynchronous request processors.\n"
              "--tr:Request dispatching failure.\n"
              "--tr:Fatal error of dispatching asynchronous request processing.");
    leave_.open();
    processor_.reset();
}

TEST_F(RequestProcessing, AProcessingThreadWithoutRequestsTakesTwentyOneDaysForATimeout) {
    {
        request_processing_thread_t thread(stop_signal_);
        system_.events.await_waiting(1);
        EXPECT_THAT(system_.events.waits(), ElementsAre(longest_wait));
        system_.clock.advance(longest_wait);
        await([&] { return stop_signal_->has_error(); });
    }
    EXPECT_EQ(stop_signal_->error_text(),
              "Timeout waiting for any events related to request processing thread.\n"
              "--tr:Request processing thread failure.");
    EXPECT_EQ(lines_with("ERR"), 0U);
}

TEST_F(RequestProcessing, AThreadThatNobodyStoppedStopsAllAsItGoes) {
    { const request_processing_thread_t thread(stop_signal_); }
    EXPECT_EQ(stop_signal_->error_text(), early_end);
    EXPECT_EQ(lines_with(std::string("ERR |") + early_end), 1U);
    EXPECT_EQ(lines_with("Thread finished. Role: 'Request processing thread.'."), 1U);
}

TEST_F(RequestProcessing, SchedulerSkipsWhatIsNoRequest) {
    request_processing_scheduler_t scheduler(1, stop_signal_);
    scheduler.schedule(nullptr);
    gate done;
    scheduler.schedule(request_of([&] { done.open(); }));
    done.pass();
    EXPECT_EQ(lines_with("Skipping processing because request is not specified."), 1U);
    stop_signal_->complete();
}

TEST_F(RequestProcessing, SchedulerLeavesOnceItIsStopped) {
    request_processing_scheduler_t scheduler(1, stop_signal_);
    stop_signal_->complete();
    EXPECT_THROW(scheduler.schedule(request_of([] {})), exc::term_exc_t);
    EXPECT_EQ(threads_started(), 0U);
}

/// Events that tell a thread that waits for long that it may go on, as often as they are told to.
class lying_events final : public test_support::forwarding_events {
public:
    using forwarding_events::forwarding_events;

    std::uint32_t wait(platform::wait_handle object, std::uint32_t milliseconds, bool& signalled) override {
        if (milliseconds == longest_wait && lies.fetch_sub(1) > 0) {
            signalled = true;
            return 0;
        }
        return forwarding_events::wait(object, milliseconds, signalled);
    }

    std::atomic<int> lies = 0;
};

TEST_F(RequestProcessing, WakingForNothingIsNoFailureOfTheDispatcherButOfTheScheduler) {
    lying_events events(system_.events);
    platform::system_set set = system_.fakes();
    set.events = &events;
    const platform::scoped_system scope(set);
    events.lies = 1;
    start(1);
    await([&] { return events.lies <= -1; });
    EXPECT_EQ(lines_with("Asynchronous request processing was skipped because requests queue is empty."), 1U);
    post_blocked();
    system_.events.await_waiting(1);
    events.lies = 1;
    const auto second = request_of([] {});
    processor_->post(second);
    await([&] { return stop_signal_->has_error(); });
    EXPECT_EQ(stop_signal_->error_text(),
              "Empty list of unoccupied request processing threads.\n"
              "--tr:Request dispatching failure.\n"
              "--tr:Fatal error of dispatching asynchronous request processing.");
    leave_.open();
    processor_.reset();
}

TEST_F(RequestProcessing, AFailedStartIsToldLayerByLayer) {
    system_.events.fail(events_operation::create_event, 6);
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([&] { start(3); }),
              std::string(handle_text) + "\nCannot create an event object." + handle_code +
                  "\n--tr:Initialization of asynchronous request processing scheduler has failed."
                  "\n--tr:Failed to initialize asynchronous request processing controller.");
    EXPECT_THAT(system_.log.lines(), ElementsAre("dmn| Initializing controller for asynchronous request processing. "
                                                 "Number of processing thread: [3]. Failed."));
}

TEST_F(RequestProcessing, APostThatCannotBeToldFails) {
    start(1);
    system_.events.await_waiting(1);
    system_.events.fail(events_operation::set, 6);
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([&] { processor_->post(request_of([] {})); }),
              std::string(handle_text) + "\nSetEvent() function call failed." + handle_code +
                  "\nCannot set an event object to the signaled state.\n--tr:Cannot store asynchronous request processing.");
    system_.events.fail(events_operation::set, 0);
    run_and_wait();
    EXPECT_EQ(lines_with("because requests queue is empty"), 0U);
    end_well();
}

TEST_F(RequestProcessing, ARequestWhosePostFailedIsNeverProcessed) {
    start(1);
    system_.events.await_waiting(1);
    std::atomic<int> processed = 0;
    system_.events.fail(events_operation::set, 6);
    EXPECT_THROW(processor_->post(request_of([&] { processed = 1; })), exc::win_sys_exc_t);
    system_.events.fail(events_operation::set, 0);
    run_and_wait([&] { processed += 2; });
    EXPECT_EQ(processed, 2);
    end_well();
}

TEST_F(RequestProcessing, AThreadThatCannotBeMadeIsAFailureOfTheDispatcher) {
    start(1);
    system_.events.await_waiting(1);
    system_.events.fail(events_operation::create_event, 6);
    processor_->post(request_of([] {}));
    await([&] { return stop_signal_->has_error(); });
    EXPECT_EQ(stop_signal_->error_text(), std::string(handle_text) + "\nCannot create an event object." + handle_code +
                                              "\n--tr:Request dispatching failure."
                                              "\n--tr:Fatal error of dispatching asynchronous request processing.");
    processor_.reset();
}

TEST_F(RequestProcessing, AFailedStopIsThrownAndTheDestructorLogsIt) {
    start(1);
    stop_signal_->complete();
    processor_->stop();
    system_.events.fail(events_operation::wait, 6);
    const std::string failure =
        std::string(handle_text) + handle_code + "\n--tr:Destruction of controller of asynchronous request processing has failed.";
    EXPECT_EQ(test_support::failure_text<exc::win_sys_exc_t>([&] { processor_->stop(); }), failure);
    system_.log.clear();
    processor_.reset();
    const std::vector<std::string> lines = system_.log.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], std::string("ERR |") + handle_text);
    EXPECT_TRUE(lines[2].ends_with("--tr:Destruction of controller of asynchronous request processing has failed."));
    EXPECT_THAT(lines[3], ::testing::HasSubstr("An exception was thrown from thread ["));
}

TEST_F(RequestProcessing, ManyPostersLoseNothing) {
    constexpr int posters = 4;
    constexpr int each = 100;
    start(3);
    std::atomic<int> sum = 0;
    std::latch done(posters * each);
    {
        std::vector<std::jthread> threads;
        for (int poster = 0; poster < posters; ++poster) {
            threads.emplace_back([&] {
                for (int i = 0; i < each; ++i) {
                    processor_->post(request_of([&, i] {
                        sum += i;
                        done.count_down();
                    }));
                }
            });
        }
    }
    done.wait();
    EXPECT_EQ(sum, posters * each * (each - 1) / 2);
    EXPECT_LE(threads_started(), 3U);
    end_well();
}

TEST_F(RequestProcessing, EndsFromAnyStateWithoutAHang) {
    for (int round = 0; round < 60; ++round) {
        const auto stop_signal = boost::make_shared<synch::completion_port_t>();
        std::atomic<int> processed = 0;
        {
            basic_async_request_processor_t processor(1 + static_cast<std::uint32_t>(round) % 3, stop_signal);
            for (int i = 0; i < round; ++i) {
                processor.post(request_of([&processed, i, round] {
                    ++processed;
                    if (round % 4 == 3 && i == round / 2) {
                        throw std::runtime_error("enough");
                    }
                }));
            }
            if (round % 4 == 1) {
                stop_signal->complete();
            }
        }
        EXPECT_LE(processed, round);
        EXPECT_TRUE(stop_signal->is_completed());
        EXPECT_EQ(stop_signal->has_error(), round % 4 != 1);
    }
}

}  // namespace
