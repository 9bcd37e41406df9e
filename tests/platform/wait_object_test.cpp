#include "platform/wait_object.h"

#include <gtest/gtest.h>

#include "platform/errors.h"

namespace {

using namespace platform;

TEST(WaitObject, AManualSignalReleasesAllInLineEvenWhenAResetFollowsAtOnce) {
    wait_object event(event_reset::manual);
    wait_object::waiter first;
    wait_object::waiter second;
    wait_object::waiter late;
    event.enlist(first);
    event.enlist(second);
    EXPECT_EQ(event.set(), error::success);
    EXPECT_EQ(event.reset(), error::success);
    EXPECT_TRUE(first.released);
    EXPECT_TRUE(second.released);
    EXPECT_FALSE(event.take());
    event.enlist(late);
    EXPECT_FALSE(late.released);
    event.withdraw(late);
}

TEST(WaitObject, AnAutomaticSignalReleasesTheFirstInLineAndNobodyElse) {
    wait_object event(event_reset::automatic);
    wait_object::waiter first;
    wait_object::waiter second;
    event.enlist(first);
    event.enlist(second);
    EXPECT_EQ(event.set(), error::success);
    EXPECT_EQ(event.reset(), error::success);
    EXPECT_TRUE(first.released);
    EXPECT_FALSE(second.released);
    EXPECT_FALSE(event.take());
    EXPECT_EQ(event.set(), error::success);
    EXPECT_TRUE(second.released);
    EXPECT_FALSE(event.take());
    EXPECT_EQ(event.set(), error::success);
    EXPECT_TRUE(event.take());
}

TEST(WaitObject, PermitsGoToThoseInLineFirst) {
    wait_object semaphore(0, 3);
    wait_object::waiter first;
    wait_object::waiter second;
    semaphore.enlist(first);
    semaphore.enlist(second);
    EXPECT_EQ(semaphore.release(3), error::success);
    EXPECT_TRUE(first.released);
    EXPECT_TRUE(second.released);
    EXPECT_TRUE(semaphore.take());
    EXPECT_FALSE(semaphore.take());
}

TEST(WaitObject, WhoHasLeftTheLineCostsNoSignal) {
    wait_object event(event_reset::automatic);
    wait_object::waiter impatient;
    wait_object::waiter patient;
    event.enlist(impatient);
    event.enlist(patient);
    event.withdraw(impatient);
    EXPECT_EQ(event.set(), error::success);
    EXPECT_FALSE(impatient.released);
    EXPECT_TRUE(patient.released);
}

}  // namespace
