#include "foundation/synch/completion_port.h"

#include <boost/make_shared.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

using synch::completion_port_t;
using ::testing::ElementsAre;

/// Keeps what it hears.
class recording_sink final : public synch::trigger_sink_t {
public:
    explicit recording_sink(std::function<void(bool)> hear) : hear_(std::move(hear)) {}
    void on_change(bool state) override { hear_(state); }

private:
    const std::function<void(bool)> hear_;
};

boost::shared_ptr<synch::trigger_sink_t> sink_of(std::function<void(bool)> hear) {
    return boost::make_shared<recording_sink>(std::move(hear));
}

class CompletionPort : public ::testing::Test {
protected:
    platform::testing::test_system system_;
    completion_port_t port_;
};

TEST_F(CompletionPort, IsNeitherCompletedNorFailedAtFirst) {
    EXPECT_FALSE(port_.is_completed());
    EXPECT_FALSE(port_.has_error());
    EXPECT_EQ(port_.get_error(), nullptr);
    EXPECT_EQ(port_.error_text(), "");
    EXPECT_NO_THROW(port_.rethrow_error());
    std::string text = "former";
    port_.describe(text);
    EXPECT_EQ(text, "");
}

TEST_F(CompletionPort, CompletesWithoutAFailure) {
    std::vector<bool> failed;
    port_.add_failed_sink(sink_of([&](bool state) { failed.push_back(state); }));
    port_.complete();
    EXPECT_TRUE(port_.is_completed());
    EXPECT_FALSE(port_.has_error());
    EXPECT_EQ(port_.error_text(), "");
    EXPECT_NO_THROW(port_.rethrow_error());
    EXPECT_THAT(failed, ElementsAre(false));
}

TEST_F(CompletionPort, FailsOnlyAfterItIsCompletedAndWithTheReasonAtHand) {
    std::vector<std::string> heard;
    port_.add_failed_sink(sink_of([&](bool state) {
        heard.push_back(std::string(state ? "failed" : "not failed") + (port_.is_completed() ? ", completed" : ", not completed"));
    }));
    port_.add_completed_sink(
        sink_of([&](bool state) { heard.push_back(state ? "completed: " + port_.error_text() : "not completed"); }));
    port_.fail(exc::runtime_exc_t("The robot is gone."));
    EXPECT_THAT(heard,
                ElementsAre("not failed, not completed", "not completed", "completed: The robot is gone.", "failed, completed"));
}

TEST_F(CompletionPort, HasFailedAlsoForThoseBehindASinkThatFails) {
    std::vector<bool> heard;
    port_.add_completed_sink(sink_of([](bool state) {
        if (state) {
            throw std::runtime_error("deaf");
        }
    }));
    port_.add_completed_sink(sink_of([&](bool state) { heard.push_back(state); }));
    port_.add_failed_sink(sink_of([&](bool state) { heard.push_back(state); }));
    EXPECT_EQ(test_support::failure_of([this] { port_.fail(exc::runtime_exc_t("x")); }), "deaf");
    EXPECT_THAT(heard, ElementsAre(false, false, true, true));
    EXPECT_EQ(port_.error_text(), "x");
}

TEST_F(CompletionPort, LateSinksHearOfTheEnd) {
    port_.fail(exc::runtime_exc_t("x"));
    std::vector<bool> heard;
    port_.add_completed_sink(sink_of([&](bool state) { heard.push_back(state); }));
    port_.add_failed_sink(sink_of([&](bool state) { heard.push_back(state); }));
    EXPECT_THAT(heard, ElementsAre(true, true));
}

TEST_F(CompletionPort, AddsTheTextAsATraceAndLeavesTheExceptionAlone) {
    const exc::runtime_exc_t reason("The robot is gone.");
    port_.fail("Moving has failed.", reason);
    EXPECT_EQ(port_.error_text(), "The robot is gone.\n--tr:Moving has failed.");
    EXPECT_STREQ(reason.what(), "The robot is gone.");
    EXPECT_EQ(port_.get_error()->what(), port_.error_text());
    std::string text = "former";
    port_.describe(text);
    EXPECT_EQ(text, port_.error_text());
}

TEST_F(CompletionPort, ThrowsTheFailureWithItsTypeAsOftenAsItIsAsked) {
    port_.fail("Moving has failed.", exc::win_sys_exc_t("Cannot move.", 5));
    for (int i = 0; i < 2; ++i) {
        try {
            port_.rethrow_error();
            FAIL() << "nothing was thrown";
        } catch (const exc::win_sys_exc_t& e) {
            EXPECT_EQ(e.code(), 5U);
            EXPECT_STREQ(e.what(), "Access is denied.\nCannot move.\n--tr:Error code: 0x00000005\n--tr:Moving has failed.");
        }
    }
}

TEST_F(CompletionPort, TakesAForeignExceptionByItsText) {
    port_.fail("Moving has failed.", std::out_of_range("slot 7"));
    EXPECT_THROW(port_.rethrow_error(), exc::runtime_exc_t);
    EXPECT_EQ(port_.error_text(), "slot 7\n--tr:Moving has failed.");
}

TEST_F(CompletionPort, KeepsTheLatestFailureAndStaysFailed) {
    port_.fail(exc::runtime_exc_t("first"));
    port_.fail("again", exc::runtime_exc_t("second"));
    port_.complete();
    EXPECT_EQ(port_.error_text(), "second\n--tr:again");
    EXPECT_TRUE(port_.has_error());
}

TEST_F(CompletionPort, ServesManyThreads) {
    std::vector<std::string> seen(4);
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < seen.size(); ++i) {
            threads.emplace_back([&, i] {
                for (int round = 0; round < 200; ++round) {
                    port_.fail(exc::runtime_exc_t("thread %1", text::to_string(static_cast<std::uint32_t>(i))));
                    port_.describe(seen[i]);
                    EXPECT_TRUE(port_.error_text().starts_with("thread "));
                }
            });
        }
    }
    for (const std::string& text : seen) {
        EXPECT_TRUE(text.starts_with("thread ")) << text;
    }
}

}  // namespace
