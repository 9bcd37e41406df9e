#include "foundation/synch/trigger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include "support/failure_text.h"

namespace {

using synch::trigger_t;
using test_support::failure_text;
using ::testing::ElementsAre;

/// Notes each change under its name.
class noting_sink final : public synch::trigger_sink_t {
public:
    noting_sink(std::vector<std::string>& notes, std::string name) : notes_(notes), name_(std::move(name)) {}
    void on_change(bool state) override { notes_.push_back(name_ + (state ? "+" : "-")); }

private:
    std::vector<std::string>& notes_;
    std::string name_;
};

class failing_sink final : public synch::trigger_sink_t {
public:
    explicit failing_sink(const char* text) : text_(text) {}
    void on_change(bool state) override {
        if (state) {
            throw std::runtime_error(text_);
        }
    }

private:
    const char* text_;
};

class Trigger : public ::testing::Test {
protected:
    boost::shared_ptr<noting_sink> noting(const char* name) { return boost::make_shared<noting_sink>(notes_, name); }

    std::vector<std::string> notes_;
    trigger_t trigger_;
};

TEST_F(Trigger, IsFalseAtFirstAndKeepsWhatItIsSetTo) {
    EXPECT_FALSE(trigger_.get());
    trigger_.set(true);
    EXPECT_TRUE(trigger_.get());
    trigger_.set(false);
    EXPECT_FALSE(trigger_.get());
}

TEST_F(Trigger, TellsEverySinkOfEverySettingInOrderOfAdding) {
    trigger_.add_sink(noting("a"));
    trigger_.add_sink(noting("b"));
    notes_.clear();
    trigger_.set(true);
    trigger_.set(true);
    trigger_.set(false);
    trigger_.set(false);
    EXPECT_THAT(notes_, ElementsAre("a+", "b+", "a+", "b+", "a-", "b-", "a-", "b-"));
}

TEST_F(Trigger, TellsALateSinkThePresentStateAtOnce) {
    trigger_.add_sink(noting("a"));
    EXPECT_THAT(notes_, ElementsAre("a-"));
    trigger_.set(true);
    trigger_.add_sink(noting("b"));
    EXPECT_THAT(notes_, ElementsAre("a-", "a+", "b+"));
}

TEST_F(Trigger, TellsASinkAsOftenAsItWasAdded) {
    const auto sink = noting("a");
    trigger_.add_sink(sink);
    trigger_.add_sink(sink);
    notes_.clear();
    trigger_.set(true);
    EXPECT_THAT(notes_, ElementsAre("a+", "a+"));
}

TEST_F(Trigger, LetsGoOfItsSinks) {
    auto sink = noting("a");
    const boost::weak_ptr<noting_sink> watched = sink;
    trigger_.add_sink(sink);
    sink.reset();
    EXPECT_FALSE(watched.expired());
    trigger_.clear_sinks();
    EXPECT_TRUE(watched.expired());
    trigger_.set(true);
    EXPECT_THAT(notes_, ElementsAre("a-"));
    EXPECT_TRUE(trigger_.get());
}

TEST_F(Trigger, LetsGoOfItsSinksWithItsEnd) {
    boost::weak_ptr<noting_sink> watched;
    {
        trigger_t ending;
        const auto sink = noting("a");
        watched = sink;
        ending.add_sink(sink);
    }
    EXPECT_TRUE(watched.expired());
}

TEST_F(Trigger, ASinksEndMayReachForTheTrigger) {
    class asking_sink final : public synch::trigger_sink_t {
    public:
        explicit asking_sink(const trigger_t& trigger) : trigger_(trigger) {}
        ~asking_sink() override { EXPECT_FALSE(trigger_.get()); }
        void on_change(bool) override {}

    private:
        const trigger_t& trigger_;
    };
    trigger_.add_sink(boost::make_shared<asking_sink>(trigger_));
    trigger_.clear_sinks();
}

TEST_F(Trigger, ASinkThatFailsKeepsNobodyElseFromHearing) {
    trigger_.add_sink(boost::make_shared<failing_sink>("first"));
    trigger_.add_sink(noting("a"));
    trigger_.add_sink(boost::make_shared<failing_sink>("second"));
    trigger_.add_sink(noting("b"));
    notes_.clear();
    EXPECT_EQ(failure_text<std::runtime_error>([this] { trigger_.set(true); }), "first");
    EXPECT_THAT(notes_, ElementsAre("a+", "b+"));
    EXPECT_TRUE(trigger_.get());
    trigger_.set(false);
}

TEST_F(Trigger, ASinkThatFailsAsItIsAddedIsNotAdded) {
    trigger_.add_sink(noting("a"));
    trigger_.set(true);
    notes_.clear();
    auto failing = boost::make_shared<failing_sink>("refused");
    const boost::weak_ptr<failing_sink> watched = failing;
    EXPECT_EQ(failure_text<std::runtime_error>([&] { trigger_.add_sink(failing); }), "refused");
    failing.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_NO_THROW(trigger_.set(true));
    EXPECT_THAT(notes_, ElementsAre("a+"));
}

/// Sees to it that it is never called twice at a time, and that what it heard last is what holds.
class racing_sink final : public synch::trigger_sink_t {
public:
    void on_change(bool state) override {
        EXPECT_FALSE(busy_.exchange(true));
        last_ = state;
        ++calls_;
        busy_ = false;
    }
    [[nodiscard]] bool last() const { return last_; }
    [[nodiscard]] int calls() const { return calls_; }

private:
    std::atomic<bool> busy_{false};
    bool last_ = false;  // guarded by the trigger
    int calls_ = 0;
};

TEST_F(Trigger, ManyThreadsMaySetItWhileSinksAreAdded) {
    constexpr int settings = 3000;
    constexpr std::size_t sinks_each = 30;
    const auto first = boost::make_shared<racing_sink>();
    trigger_.add_sink(first);
    std::vector<std::vector<boost::shared_ptr<racing_sink>>> added(2);
    std::vector<std::thread> threads;
    for (int setter = 0; setter < 3; ++setter) {
        threads.emplace_back([this] {
            for (int setting = 0; setting < settings; ++setting) {
                trigger_.set(setting % 2 == 0);
            }
        });
    }
    for (auto& own : added) {
        threads.emplace_back([this, &own] {
            for (std::size_t sink = 0; sink < sinks_each; ++sink) {
                own.push_back(boost::make_shared<racing_sink>());
                trigger_.add_sink(own.back());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(first->calls(), 1 + 3 * settings);
    for (const auto& own : added) {
        for (const auto& sink : own) {
            EXPECT_GE(sink->calls(), 1);
            EXPECT_EQ(sink->last(), trigger_.get());
        }
    }
}

}  // namespace
