#include "platform/linux/rpc/event_throttle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace platform::linux_rpc;
using namespace std::chrono_literals;
using testing::ElementsAre;

class EventThrottleTest : public testing::Test {
protected:
    std::chrono::steady_clock::time_point now = std::chrono::steady_clock::time_point(1h);
    std::vector<std::string> said;
    event_throttle tested{
        [this](const std::string& sentence) { said.push_back(sentence); }, {10s, 3, 2s, 600s}, [this] { return now; }};
};

TEST_F(EventThrottleTest, DifferentSentencesPass) {
    tested.say("a");
    tested.say("b");
    tested.say("c");
    EXPECT_THAT(said, ElementsAre("a", "b", "c"));
}

TEST_F(EventThrottleTest, ARepeatedOneIsCountedUntilItsTimeIsOver) {
    tested.say("a");
    tested.say("a");
    now += 9999ms;
    tested.say("a");
    EXPECT_THAT(said, ElementsAre("a"));
    now += 1ms;
    tested.say("a");
    now += 10s;
    tested.say("a");
    EXPECT_THAT(said, ElementsAre("a", "a (The same happened 2 times more since it was last told.)", "a"));
}

TEST_F(EventThrottleTest, OneRepetitionIsToldAsOne) {
    tested.say("a");
    tested.say("a");
    now += 10s;
    tested.say("a");
    EXPECT_EQ(said.back(), "a (The same happened once more since it was last told.)");
}

TEST_F(EventThrottleTest, TooManyOfAllKindsAreCountedAndToldWithTheNext) {
    for (const char* const name : {"a", "b", "c", "d", "e"}) {
        tested.say(name);
    }
    EXPECT_THAT(said, ElementsAre("a", "b", "c"));
    now += 1999ms;
    tested.say("f");
    now += 1ms;
    tested.say("g");
    tested.say("h");
    EXPECT_THAT(said, ElementsAre("a", "b", "c", "3 events were left out of the log: there were too many.", "g"));
    now += 2s;
    tested.say("i");
    EXPECT_THAT(said, ElementsAre("a", "b", "c", "3 events were left out of the log: there were too many.", "g",
                                  "1 event was left out of the log: there were too many.", "i"));
}

TEST_F(EventThrottleTest, QuietTimesSaveUpNoMoreThanTheBurst) {
    now += 24h;
    for (int i = 0; i < 10; ++i) {
        tested.say(std::to_string(i));
    }
    EXPECT_THAT(said, ElementsAre("0", "1", "2"));
}

TEST_F(EventThrottleTest, ADayOfRefusalsIsAFewLines) {
    for (int second = 0; second < 3600; ++second) {
        for (int i = 0; i < 10; ++i) {
            tested.say("stranger " + std::to_string(10 * second + i));
        }
        now += 1s;
    }
    EXPECT_LE(said.size(), 2U * (3600U / 2 + 3));
}

TEST_F(EventThrottleTest, CountsOfSentencesThatDoNotComeAgainAreNotLost) {
    tested.say("a");
    tested.say("a");
    now += 600s;
    tested.say("b");
    tested.say("c");
    EXPECT_THAT(said, ElementsAre("a", "1 event was left out of the log: there were too many.", "b", "c"));
}

}  // namespace
