#include "platform/conformance/implementations.h"

namespace {

template <typename Implementation>
using ClockConformance = conformance::suite<Implementation>;
TYPED_TEST_SUITE(ClockConformance, conformance::implementations, conformance::implementation_names);

TYPED_TEST(ClockConformance, NeverGoesBack) {
    platform::clock& clock = this->under_test_.clock;
    std::int64_t last = clock.milliseconds();
    for (int look = 0; look < 1000; ++look) {
        const std::int64_t now = clock.milliseconds();
        ASSERT_GE(now, last);
        last = now;
    }
}

TYPED_TEST(ClockConformance, SecondsAndMillisecondsAreOfOneClock) {
    platform::clock& clock = this->under_test_.clock;
    const std::int64_t before = clock.seconds();
    const std::int64_t between = clock.milliseconds() / 1000;
    const std::int64_t after = clock.seconds();
    EXPECT_LE(before, between);
    EXPECT_LE(between, after);
}

TYPED_TEST(ClockConformance, CoarseTimeIsThatOfTheLastTick) {
    platform::clock& clock = this->under_test_.clock;
    const std::int64_t before = clock.milliseconds();
    const std::int64_t between = clock.coarse_milliseconds();
    EXPECT_GE(between, before - 1000);
    EXPECT_LE(between, clock.milliseconds());
    clock.sleep(100);
    EXPECT_GT(clock.coarse_milliseconds(), between);
}

TYPED_TEST(ClockConformance, SleepsAtLeastAsLongAsAsked) {
    platform::clock& clock = this->under_test_.clock;
    const std::int64_t before = clock.milliseconds();
    clock.sleep(3);
    EXPECT_GE(clock.milliseconds() - before, 3);
}

TYPED_TEST(ClockConformance, ReturnsAtOnceFromASleepOfNothing) {
    platform::clock& clock = this->under_test_.clock;
    const std::int64_t before = clock.milliseconds();
    clock.sleep(0);
    clock.sleep(-3'600'000);
    EXPECT_LT(clock.milliseconds() - before, 60'000);
}

TYPED_TEST(ClockConformance, TellsALocalTimeWithinTheCalendar) {
    const platform::local_time now = this->under_test_.clock.now_local();
    ASSERT_TRUE(now.valid);
    EXPECT_GE(now.year, 2020);
    EXPECT_GE(now.month, 1);
    EXPECT_LE(now.month, 12);
    EXPECT_GE(now.day, 1);
    EXPECT_LE(now.day, 31);
    EXPECT_GE(now.hour, 0);
    EXPECT_LE(now.hour, 23);
    EXPECT_LE(now.minute, 59);
    EXPECT_LE(now.second, 60);
}

}  // namespace
