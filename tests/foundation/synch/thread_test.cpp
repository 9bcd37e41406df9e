#include "foundation/synch/thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <stdexcept>
#include <thread>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/monitoring/thread_states.h"
#include "foundation/synch/stop_events.h"
#include "foundation/synch/thread_context.h"
#include "platform/errors.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"
#include "support/request_support.h"

namespace {

using platform::testing::fake_events;
using synch::CStopEvtCollection;
using synch::CThreadContext;
using synch::stop_event_t;
using synch::thread_t;
using test_support::failure_text;
using test_support::gate;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

void pass(gate* held) {
    held->pass();
}

class Thread : public ::testing::Test {
protected:
    ~Thread() override { CThreadContext::forget_current(); }

    [[nodiscard]] std::uint32_t self() { return system_.process.current_thread_id(); }
    [[nodiscard]] static boost::shared_ptr<monitoring::CThreadState> state_of(std::uint32_t thread_id) {
        return monitoring::CThreadStatesCollection::instance().find(thread_id);
    }

    platform::testing::test_system system_;
    gate gate_;
};

TEST_F(Thread, CallsItsFunctionWithItsArgumentOnAThreadOfItsOwn) {
    std::string got;
    std::uint32_t on = 0;
    const thread_t thread(
        [&](const std::string& argument) {
            got = argument;
            on = system_.process.current_thread_id();
        },
        std::string("argument"), "role");
    EXPECT_TRUE(thread.wait());
    EXPECT_EQ(got, "argument");
    EXPECT_NE(on, self());
    EXPECT_EQ(thread.thread_id(), on);
}

TEST_F(Thread, StandsInTheTableAndInTheLogWhileItWorks) {
    {
        const thread_t thread(&pass, &gate_, "Request processing thread.");
        while (state_of(thread.thread_id()) == nullptr) {
            std::this_thread::yield();
        }
        EXPECT_EQ(state_of(thread.thread_id())->role, "Request processing thread.");
        EXPECT_TRUE(thread.is_running());
        gate_.open();
        thread.join(win::no_limit);
        EXPECT_FALSE(thread.is_running());
        EXPECT_EQ(state_of(thread.thread_id()), nullptr);
        EXPECT_THAT(system_.log.lines(),
                    ElementsAre("Thread started. Thread id: " + std::to_string(thread.thread_id()) +
                                    ", parent id: " + std::to_string(self()) + ", role: Request processing thread.",
                                "Thread finished. Role: 'Request processing thread.'."));
    }
    EXPECT_EQ(system_.events.open_handles(), 0U);
}

TEST_F(Thread, IsDescribedByItsRole) {
    const thread_t described(&pass, &gate_, "Request processing dispatcher.");
    const thread_t odd([](int) {}, 0, "caf\xC3\xA9 \xFF");
    EXPECT_TRUE(odd.wait());
    gate_.open();
    EXPECT_TRUE(described.wait());
    EXPECT_THAT(system_.threads.descriptions(),
                ::testing::UnorderedElementsAre(u"Request processing dispatcher.", u"caf\u00E9 \uFFFD"));
}

TEST_F(Thread, StartsNormallyOnASystemWithoutDescriptions) {
    system_.threads.takes_descriptions = false;
    bool ran = false;
    const thread_t thread([&ran](int) { ran = true; }, 0, "role");
    EXPECT_TRUE(thread.wait());
    EXPECT_TRUE(ran);
    EXPECT_THAT(system_.threads.descriptions(), IsEmpty());
}

TEST_F(Thread, EndsWithoutAWordWhenItsFunctionThrows) {
    const thread_t thread([](int) { throw exc::runtime_exc_t("lost"); }, 0, "role");
    EXPECT_TRUE(thread.wait());
    EXPECT_FALSE(thread.is_running());
    EXPECT_NO_THROW(thread.join(0));
    EXPECT_EQ(state_of(thread.thread_id()), nullptr);
    EXPECT_THAT(system_.log.lines(), ElementsAre(::testing::StartsWith("Thread started."), "Thread finished. Role: 'role'."));
}

TEST_F(Thread, HasFinishedAlsoWhenItWasInterrupted) {
    const thread_t thread([](int) { throw boost::thread_interrupted(); }, 0, "role");
    EXPECT_TRUE(thread.wait());
    EXPECT_EQ(state_of(thread.thread_id()), nullptr);
    EXPECT_THAT(system_.log.lines(), ElementsAre(::testing::StartsWith("Thread started."), "Thread finished. Role: 'role'."));
}

TEST_F(Thread, DestroysFunctionAndArgumentBeforeItHasFinished) {
    auto argument = boost::make_shared<int>(7);
    auto captured = boost::make_shared<int>(8);
    const boost::weak_ptr<int> watched_argument = argument;
    const boost::weak_ptr<int> watched_capture = captured;
    const thread_t thread([captured = std::move(captured)](const boost::shared_ptr<int>&) { throw std::runtime_error("x"); },
                          std::move(argument), "role");
    EXPECT_TRUE(thread.wait());
    EXPECT_TRUE(watched_argument.expired());
    EXPECT_TRUE(watched_capture.expired());
}

TEST_F(Thread, JoinFailsWhenTheTimeIsUp) {
    const thread_t thread(&pass, &gate_, "role");
    system_.events.set_idle_wait(fake_events::idle_wait::elapses);
    const std::int64_t start = system_.clock.milliseconds();
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { thread.join(0); }), "Thread not finished within [0] milliseconds.");
    EXPECT_EQ(system_.clock.milliseconds(), start);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { thread.join(5000); }), "Thread not finished within [5000] milliseconds.");
    EXPECT_EQ(system_.clock.milliseconds() - start, 5000);
    EXPECT_FALSE(thread.wait());
    EXPECT_EQ(system_.clock.milliseconds() - start, 5000 + 1'814'400'000);
    EXPECT_THROW(thread.join(win::no_limit), exc::runtime_exc_t);
    EXPECT_TRUE(thread.is_running());
    EXPECT_THAT(system_.events.waits(), ElementsAre(0U, 5000U, 1'814'400'000U, 1'814'400'000U, 0U));
    system_.events.set_idle_wait(fake_events::idle_wait::blocks);
    gate_.open();
    thread.join(win::no_limit);
}

TEST_F(Thread, AWaitThatFailsNamesTheRoleWhileItCanBeHad) {
    gate started;
    const thread_t thread(
        [&](gate* held) {
            started.open();
            held->pass();
        },
        &gate_, "Eraser.");
    started.pass();
    system_.events.fail(fake_events::operation::wait, platform::error::invalid_handle);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { thread.join(10); }),
              "The handle is invalid.\n--tr:Error code: 0x00000006\n--tr:Failed to wait for thread [Eraser.] to finish.");
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(thread.wait()); }),
              "The handle is invalid.\n--tr:Error code: 0x00000006");
    system_.events.fail(fake_events::operation::wait, platform::error::success);
    gate_.open();
    thread.join(win::no_limit);
    system_.events.fail(fake_events::operation::wait, platform::error::invalid_handle);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { thread.join(10); }),
              "The handle is invalid.\n--tr:Error code: 0x00000006\n--tr:Failed to wait for thread [unknown] to finish.");
}

TEST_F(Thread, DoesntStartWithoutAnEventForItsEnd) {
    system_.events.fail(fake_events::operation::create_event, platform::error::not_enough_memory);
    auto argument = boost::make_shared<int>(7);
    EXPECT_EQ(
        failure_text<exc::win_sys_exc_t>(
            [&] { const thread_t thread([](const boost::shared_ptr<int>&) { ADD_FAILURE(); }, argument, "role"); }),
        exc::win_error_text(platform::error::not_enough_memory) + "\nCannot create an event object.\n--tr:Error code: 0x00000008");
    EXPECT_EQ(argument.use_count(), 1);
    EXPECT_THAT(system_.log.lines(), IsEmpty());
}

TEST_F(Thread, AnEndThatCantBeSignalledIsLogged) {
    {
        const thread_t thread(&pass, &gate_, "role");
        system_.events.fail(fake_events::operation::set, platform::error::invalid_handle);
        gate_.open();
    }
    system_.events.await_open_handles(0);
    EXPECT_TRUE(system_.log.has_line("ERR |The handle is invalid."));
    EXPECT_TRUE(system_.log.has_line(">>  |Cannot set an event object to the signaled state."));
}

TEST_F(Thread, HasTheStopEventOfItsParentWhileItWorks) {
    CStopEvtCollection& events = CStopEvtCollection::instance();
    const auto stop = boost::make_shared<stop_event_t>();
    events.add(self(), stop);
    const auto own = [&events, this] { return events.find(system_.process.current_thread_id()); };
    boost::shared_ptr<stop_event_t> of_child;
    boost::shared_ptr<stop_event_t> of_grandchild;
    const thread_t child(
        [&](int) {
            of_child = own();
            const thread_t grandchild([&](int) { of_grandchild = own(); }, 0, "grandchild");
            EXPECT_TRUE(grandchild.wait());
        },
        0, "child");
    EXPECT_TRUE(child.wait());
    EXPECT_EQ(of_child, stop);
    EXPECT_EQ(of_grandchild, stop);
    EXPECT_EQ(events.find(child.thread_id()), nullptr);
    events.remove(self());
}

/// Holds up the thread that logs this.
class holding_transform final : public logging::log_transform_t {
public:
    holding_transform(std::string part, gate& reached, gate& leave) : part_(std::move(part)), reached_(reached), leave_(leave) {}

    std::string transform(const std::string& line) override {
        if (line.find(part_) != std::string::npos) {
            reached_.open();
            leave_.pass();
        }
        return line;
    }

private:
    const std::string part_;
    gate& reached_;
    gate& leave_;
};

TEST_F(Thread, HasTheStopEventOfAParentThatIsGoneBeforeItRuns) {
    CStopEvtCollection& events = CStopEvtCollection::instance();
    monitoring::CThreadStatesCollection& threads = monitoring::CThreadStatesCollection::instance();
    const auto stop = boost::make_shared<stop_event_t>();
    events.add(self(), stop);
    gate child_starts;
    logging::log_t::process_log()->set_transform(boost::make_shared<holding_transform>("role: child", child_starts, gate_));
    boost::shared_ptr<stop_event_t> of_child;
    std::optional<thread_t> child;
    const thread_t parent(
        [&](int) {
            child.emplace([&](int) { of_child = events.find(system_.process.current_thread_id()); }, 0, "child");
            child_starts.pass();
            threads.set_log_threads(false);
        },
        0, "parent");
    EXPECT_TRUE(parent.wait());
    EXPECT_EQ(events.find(parent.thread_id()), nullptr);
    gate_.open();
    EXPECT_TRUE(child->wait());
    EXPECT_EQ(of_child, stop);
    threads.set_log_threads(true);
    logging::log_t::process_log()->set_transform({});
    events.remove(self());
}

TEST_F(Thread, OfAParentWithoutAStopEventHasNone) {
    CStopEvtCollection& events = CStopEvtCollection::instance();
    const thread_t thread(
        [&](int) {
            const std::uint32_t own = system_.process.current_thread_id();
            EXPECT_EQ(events.find(own), nullptr);
            events.add(own, boost::make_shared<stop_event_t>());
        },
        0, "role");
    EXPECT_TRUE(thread.wait());
    EXPECT_EQ(events.find(thread.thread_id()), nullptr);
}

TEST_F(Thread, IsLinkedToTheContextOfTheThreadThatMadeIt) {
    const auto parent = CThreadContext::current();
    const auto stop = boost::make_shared<stop_event_t>();
    parent->set_stop_event(stop);
    boost::weak_ptr<CThreadContext> watched;
    const thread_t thread(
        [&](int) {
            watched = CThreadContext::current();
            EXPECT_EQ(CThreadContext::current()->parent(), parent);
            EXPECT_EQ(CThreadContext::current()->stop_event(), stop);
            CThreadContext::current()->set_stop_event(boost::make_shared<stop_event_t>());
        },
        0, "role");
    EXPECT_TRUE(thread.wait());
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(parent->stop_event(), stop);
}

TEST_F(Thread, FindsItsParentsStopEventAfterTheParentsEnd) {
    const auto stop = boost::make_shared<stop_event_t>();
    boost::shared_ptr<stop_event_t> found;
    std::optional<thread_t> child;
    const thread_t parent(
        [&](int) {
            CThreadContext::current()->set_stop_event(stop);
            child.emplace(
                [&](gate* held) {
                    held->pass();
                    found = CThreadContext::current()->stop_event();
                },
                &gate_, "child");
        },
        0, "parent");
    EXPECT_TRUE(parent.wait());
    gate_.open();
    EXPECT_TRUE(child->wait());
    EXPECT_EQ(found, stop);
}

TEST_F(Thread, ItsScopesStandOnItsActivityStack) {
    const thread_t thread(
        [&](int) {
            const auto state = state_of(system_.process.current_thread_id());
            ASSERT_NE(state, nullptr);
            logging::log_scope_t scope(g_libraryLog, "Working.");
            ASSERT_EQ(state->activities.size(), 1U);
            EXPECT_EQ(state->activities.top()->text, "Working.");
            scope.ok();
        },
        0, "role");
    EXPECT_TRUE(thread.wait());
    EXPECT_TRUE(system_.log.has_line("Working. ok."));
}

TEST_F(Thread, GoesOnWhenItsObjectGoes) {
    bool ran = false;
    {
        const thread_t thread(
            [&ran](gate* held) {
                held->pass();
                ran = true;
            },
            &gate_, "role");
    }
    EXPECT_EQ(system_.events.open_handles(), 1U);
    gate_.open();
    system_.events.await_open_handles(0);
    EXPECT_TRUE(ran);
    EXPECT_TRUE(system_.log.has_line("Thread finished. Role: 'role'."));
}

TEST_F(Thread, ManyGoOnWhenTheirObjectsGo) {
    constexpr int threads = 200;
    std::atomic<int> worked{0};
    for (int thread = 0; thread < threads; ++thread) {
        const thread_t left_alone([&worked](int) { ++worked; }, 0, "role");
    }
    system_.events.await_open_handles(0);
    EXPECT_EQ(worked, threads);
}

TEST_F(Thread, MayEndItsOwnObject) {
    boost::shared_ptr<thread_t> self;
    self = boost::make_shared<thread_t>(
        [&self](gate* held) {
            held->pass();
            self.reset();
        },
        &gate_, "role");
    gate_.open();
    system_.events.await_open_handles(0);
    EXPECT_TRUE(system_.log.has_line("Thread finished. Role: 'role'."));
}

}  // namespace
