#include "foundation/synch/stop_events.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include "platform/testing/fakes.h"

namespace {

using synch::CStopEvtCollection;
using synch::CStopEvtThreadRegistration;
using synch::stop_event_t;

constexpr std::uint32_t parent = 9'000'001;
constexpr std::uint32_t child = 9'000'002;

class StopEvents : public ::testing::Test {
protected:
    ~StopEvents() override {
        events_.remove(parent);
        events_.remove(child);
    }

    platform::testing::test_system system_;
    CStopEvtCollection& events_ = CStopEvtCollection::instance();
};

TEST_F(StopEvents, AreKeptByThread) {
    const auto event = boost::make_shared<stop_event_t>();
    const auto other = boost::make_shared<stop_event_t>();
    EXPECT_EQ(events_.find(parent), nullptr);
    events_.add(parent, event);
    EXPECT_EQ(events_.find(parent), event);
    EXPECT_EQ(events_.find(child), nullptr);
    events_.add(parent, other);
    EXPECT_EQ(events_.find(parent), other);
    EXPECT_EQ(event.use_count(), 1);
    events_.remove(parent);
    EXPECT_EQ(events_.find(parent), nullptr);
    EXPECT_EQ(other.use_count(), 1);
    events_.remove(parent);
}

TEST_F(StopEvents, AThreadHasItsParentsForAsLongAsItIsRegistered) {
    const auto event = boost::make_shared<stop_event_t>();
    events_.add(parent, event);
    {
        const CStopEvtThreadRegistration registration(child, event);
        EXPECT_EQ(events_.find(child), event);
    }
    EXPECT_EQ(events_.find(child), nullptr);
    EXPECT_EQ(events_.find(parent), event);
}

TEST_F(StopEvents, AThreadWhoseParentHasNoneHasNone) {
    const CStopEvtThreadRegistration registration(child, {});
    EXPECT_EQ(events_.find(child), nullptr);
}

TEST_F(StopEvents, WhatAThreadEnteredForItselfGoesWithIt) {
    {
        const CStopEvtThreadRegistration registration(child, {});
        events_.add(child, boost::make_shared<stop_event_t>());
    }
    EXPECT_EQ(events_.find(child), nullptr);
    EXPECT_EQ(system_.events.open_handles(), 0U);
}

}  // namespace
