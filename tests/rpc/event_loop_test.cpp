#include "platform/linux/rpc/event_loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <string>
#include <thread>

namespace {

using namespace platform::linux_rpc;
using testing::ElementsAre;

/// Two ends of a stream, of which the loop watches the first.
class scripted_client : public loop_client {
public:
    scripted_client() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0); }
    ~scripted_client() override {
        close(ends[0]);
        close(ends[1]);
    }
    void on_ready(std::uint32_t events) override { ready(events); }
    void on_turn() override { turn(); }
    void on_time() override { time(); }
    void say_something() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }

    std::array<int, 2> ends{-1, -1};
    std::function<void(std::uint32_t)> ready = [](std::uint32_t) {};
    std::function<void()> turn = [] {};
    std::function<void()> time = [] {};
};

class EventLoop : public testing::Test {
protected:
    void note(const std::string& what) { seen.push_back(what); }

    event_loop loop;
    std::vector<std::string> seen;
};

TEST_F(EventLoop, RunsWhatOtherThreadsPostInItsOrder) {
    std::thread poster([this] {
        for (int i = 0; i < 3; ++i) {
            loop.post_action([this, i] { note(std::to_string(i)); });
        }
        loop.post_action([this] { loop.stop(); });
    });
    loop.run();
    poster.join();
    EXPECT_THAT(seen, ElementsAre("0", "1", "2"));
}

TEST_F(EventLoop, TellsEachEdgeOnce) {
    scripted_client client;
    client.ready = [&](std::uint32_t events) {
        note((events & EPOLLIN) != 0 ? "input" : "other");
        if (seen.size() == 1) {
            loop.post_action([&] { client.say_something(); });
        } else {
            loop.stop();
        }
    };
    ASSERT_TRUE(loop.watch(client, client.ends[0], EPOLLIN | EPOLLET));
    client.say_something();
    loop.run();
    EXPECT_THAT(seen, ElementsAre("input", "input"));
}

TEST_F(EventLoop, TurnsComeAfterWhatHasHappenedToTheOthers) {
    scripted_client busy;
    scripted_client other;
    int turns = 0;
    busy.turn = [&] {
        note("turn");
        if (++turns == 1) {
            other.say_something();
        }
        if (turns == 3) {
            loop.stop();
        } else {
            loop.give_turn(busy);
            loop.give_turn(busy);  // asked twice is asked once
        }
    };
    other.ready = [&](std::uint32_t) { note("other"); };
    ASSERT_TRUE(loop.watch(other, other.ends[0], EPOLLIN | EPOLLET));
    loop.give_turn(busy);
    loop.run();
    EXPECT_THAT(seen, ElementsAre("turn", "other", "turn", "turn"));
}

TEST_F(EventLoop, WakesInTheOrderOfTheMomentsAndAtTheLastOneThatWasAskedFor) {
    scripted_client early;
    scripted_client late;
    early.time = [&] { note("early"); };
    late.time = [&] {
        note("late");
        loop.stop();
    };
    const auto now = event_loop::clock::now();
    loop.wake_at(early, now + std::chrono::hours(1));
    loop.wake_at(late, now + std::chrono::milliseconds(2));
    loop.wake_at(early, now + std::chrono::milliseconds(1));
    loop.run();
    EXPECT_THAT(seen, ElementsAre("early", "late"));
}

TEST_F(EventLoop, AForgottenClientHearsNothingOfTheSameMoment) {
    auto first = std::make_shared<scripted_client>();
    auto second = std::make_shared<scripted_client>();
    const std::weak_ptr<scripted_client> kept = first;
    const auto forget_other = [&](std::shared_ptr<scripted_client>& other) {
        return [&](std::uint32_t) {
            note("told");
            loop.forget(*other, other);
            loop.post_action([this] { loop.stop(); });
        };
    };
    first->ready = forget_other(second);
    second->ready = forget_other(first);
    for (const auto& one : {first, second}) {
        one->turn = [this] { note("turn"); };
        ASSERT_TRUE(loop.watch(*one, one->ends[0], EPOLLIN | EPOLLET));
        loop.wake_at(*one, event_loop::clock::now() + std::chrono::hours(1));
        one->say_something();
    }
    loop.run();
    EXPECT_THAT(seen, ElementsAre("told"));
}

TEST_F(EventLoop, HoldsAForgottenClientUntilNobodyWorksOnItAnyMore) {
    auto client = std::make_shared<scripted_client>();
    const std::weak_ptr<scripted_client> watched = client;
    client->ready = [&](std::uint32_t) {
        loop.forget(*client, client);
        client.reset();
        note(watched.expired() ? "gone" : "held");
        loop.post_action([this] { loop.stop(); });
    };
    ASSERT_TRUE(loop.watch(*client, client->ends[0], EPOLLIN | EPOLLET));
    client->say_something();
    loop.run();
    EXPECT_THAT(seen, ElementsAre("held"));
    EXPECT_TRUE(watched.expired());
}

TEST_F(EventLoop, OneWhoThrowsCostsTheOthersNothing) {
    scripted_client thrower;
    scripted_client other;
    thrower.ready = [](std::uint32_t) { throw std::bad_alloc(); };
    other.ready = [&](std::uint32_t) {
        note("other");
        loop.stop();
    };
    ASSERT_TRUE(loop.watch(thrower, thrower.ends[0], EPOLLIN | EPOLLET));
    ASSERT_TRUE(loop.watch(other, other.ends[0], EPOLLIN | EPOLLET));
    thrower.say_something();
    other.say_something();
    loop.run();
    EXPECT_THAT(seen, ElementsAre("other"));
}

}  // namespace
