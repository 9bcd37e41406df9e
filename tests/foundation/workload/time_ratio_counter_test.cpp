#include "foundation/workload/time_ratio_counter.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/testing/fakes.h"

namespace {

using workload::CTimeRatioCounter;
using workload::time_ratio_scope_t;

class TimeRatioCounter : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

TEST_F(TimeRatioCounter, TellsTheShareOfTimeSinceItWasMade) {
    CTimeRatioCounter counter;
    EXPECT_EQ(counter.ratio(), 0);
    {
        const time_ratio_scope_t scope(counter);
        system_.clock.advance(250);
    }
    EXPECT_EQ(counter.ratio(), 1);
    system_.clock.advance(750);
    EXPECT_EQ(counter.ratio(), 0.25);
    EXPECT_EQ(counter.busy_milliseconds(), 250);
    EXPECT_EQ(counter.count(), 1U);
}

TEST_F(TimeRatioCounter, CountsAScopeThatAnExceptionLeaves) {
    CTimeRatioCounter counter;
    EXPECT_THROW(
        {
            const time_ratio_scope_t scope(counter);
            system_.clock.advance(5);
            throw std::runtime_error("x");
        },
        std::runtime_error);
    EXPECT_EQ(counter.busy_milliseconds(), 5);
}

TEST_F(TimeRatioCounter, AddsUpTheWorkOfManyThreads) {
    CTimeRatioCounter counter;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&counter] {
                for (int round = 0; round < 1000; ++round) {
                    counter.add(3);
                }
            });
        }
    }
    EXPECT_EQ(counter.busy_milliseconds(), 12000);
    EXPECT_EQ(counter.count(), 4000U);
}

TEST_F(TimeRatioCounter, TheProcessHasOneForReadingAndOneForWriting) {
    EXPECT_EQ(&CTimeRatioCounter::file_reads(), &CTimeRatioCounter::file_reads());
    EXPECT_NE(&CTimeRatioCounter::file_reads(), &CTimeRatioCounter::file_writes());
}

}  // namespace
