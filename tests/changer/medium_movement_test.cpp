#include "changer/medium_movement.h"

#include <gtest/gtest.h>

#include "changer/robot.h"
#include "foundation/exc/exceptions.h"

namespace {

using namespace changer_tests;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const robot::outcome real_error{.carried_out = false, .error = 1117};

class MediumMovement : public ::testing::TestWithParam<backend> {
protected:
    [[nodiscard]] bool scsi() const { return GetParam() == backend::scsi; }

    boost::shared_ptr<IChangerHandle> open() { return CreateChangerHandle(changer_link, scsi(), world.mutex); }

    [[nodiscard]] std::string execute(const std::string& elements) const {
        return scsi() ? "Execute move medium implementation from " + elements
                      : "Execute moving medium implementation from " + elements;
    }
    [[nodiscard]] std::string timed_out(const std::string& source, const std::string& number,
                                        const std::string& destination) const {
        return "Timed out waiting for device ready status on MoveMedium operation, source element " + source +
               (scsi() ? " #" : "#") + number + ", destination element " + destination;
    }
    /// The log without the lines of the failure's own text.
    [[nodiscard]] std::vector<std::string> steps() const {
        std::vector<std::string> found;
        for (const std::string& line : world.log()) {
            if (!line.starts_with("tap| ERR") && !line.starts_with("tap| >>")) {
                found.push_back(line);
            }
        }
        return found;
    }

    changer_tests::world world;
    changer_tests::robot robot{world};
};

class MediumMovementByDriver : public MediumMovement {};
class MediumMovementByScsi : public MediumMovement {};

TEST_P(MediumMovement, LoadsACartridge) {
    robot.fill(ChangerSlot, 3);
    open()->LoadMedium(3, 1);
    EXPECT_FALSE(robot.is_full(ChangerSlot, 3));
    EXPECT_TRUE(robot.is_full(ChangerDrive, 1));
    std::vector<std::string> expected = {"tap| Checking if ChangerSlot #3 is full", "tap| Checking if ChangerDrive #1 is empty",
                                         "tap| Begin to move tape.", "tap| " + execute("ChangerSlot #3 to ChangerDrive #1")};
    if (!scsi()) {
        expected.push_back("tap|   Run changer move medium");
    }
    expected.push_back("tap| " + execute("ChangerSlot #3 to ChangerDrive #1") + " ok.");
    EXPECT_EQ(world.log(), expected);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_P(MediumMovementByDriver, SendsItsRequestByteForByte) {
    robot.fill(ChangerSlot, 3);
    open()->LoadMedium(3, 1);
    const auto sent = world.controls(platform::ioctl::changer_move_medium);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].input, (bytes{1, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(sent[0].output_size, 0u);
}

TEST_P(MediumMovement, MovesBetweenAllKindsOfElements) {
    robot.fill(ChangerSlot, 0);
    const auto changer = open();
    changer->MoveToSlot(0, 1);
    EXPECT_TRUE(robot.is_full(ChangerSlot, 1));
    changer->LoadMedium(1, 0);
    changer->FromDriveToIEPort(0, 1);
    EXPECT_TRUE(robot.is_full(ChangerIEPort, 1));
    changer->FromIEPortToSlot(1, 5);
    EXPECT_TRUE(robot.is_full(ChangerSlot, 5));
    changer->FromSlotToIEPort(5, 0);
    EXPECT_TRUE(robot.is_full(ChangerIEPort, 0));
    EXPECT_EQ(robot.moves, 5u);
}

TEST_P(MediumMovement, UnloadsInAScope) {
    robot.fill(ChangerDrive, 1);
    open()->UnloadMedium(1, 4);
    EXPECT_TRUE(robot.is_full(ChangerSlot, 4));
    const auto log = world.log();
    EXPECT_EQ(log.front(), "tap| Unloading medium from drive 1 to slot 4");
    EXPECT_EQ(log.at(1), "tap|   Checking if ChangerDrive #1 is full");
    EXPECT_EQ(log.back(), "tap|   " + execute("ChangerDrive #1 to ChangerSlot #4") + " ok.");
}

TEST_P(MediumMovement, WaitsForASourceThatStaysEmptyAndSendsNothing) {
    world.set_timeout(12);
    const auto changer = open();
    world.system.log.clear();
    const std::string text = failure_text<exc::win_sys_exc_t>([&] { changer->LoadMedium(3, 1); });
    EXPECT_NE(text.find("Unable to move tape from ChangerSlot #3: changer element is empty"), std::string::npos) << text;
    const std::string waiting = "tap|   ChangerSlot #3 is not full. Waiting for 5 sec";
    EXPECT_THAT(world.log(), ElementsAre("tap| Checking if ChangerSlot #3 is full", waiting, waiting, waiting,
                                         "tap| ERR |Failed: ChangerSlot #3 is not full more then 12 sec",
                                         "tap| Checking if ChangerSlot #3 is full Failed."));
    EXPECT_THAT(world.sleeps(), ElementsAre(5000, 5000, 5000));
    EXPECT_EQ(robot.moves, 0u);
}

TEST_P(MediumMovement, WaitsSixtySecondsByDefault) {
    EXPECT_THROW(open()->LoadMedium(3, 1), exc::win_sys_exc_t);
    EXPECT_EQ(world.sleeps(), std::vector<std::int64_t>(13, 5000));
    EXPECT_EQ(world.log_with("is not full. Waiting for 5 sec").size(), 13u);
    EXPECT_EQ(world.log_with("is not full more then 60 sec").size(), 1u);
}

TEST_P(MediumMovement, GoesOnWhenTheSourceFillsUp) {
    world.system.clock.on_sleep([&](std::int64_t) { robot.fill(ChangerSlot, 3); });
    open()->LoadMedium(3, 1);
    EXPECT_TRUE(robot.is_full(ChangerDrive, 1));
    EXPECT_THAT(world.sleeps(), ElementsAre(5000));
}

TEST_P(MediumMovement, WaitsForADestinationThatStaysFull) {
    world.set_timeout(3);
    robot.fill(ChangerSlot, 3);
    robot.fill(ChangerDrive, 1);
    const auto changer = open();
    world.system.log.clear();
    const std::string text = failure_text<exc::win_sys_exc_t>([&] { changer->LoadMedium(3, 1); });
    EXPECT_NE(text.find("Unable to move tape to ChangerDrive #1: changer element in not empty"), std::string::npos) << text;
    EXPECT_THAT(world.log(), ElementsAre("tap| Checking if ChangerSlot #3 is full", "tap| Checking if ChangerDrive #1 is empty",
                                         "tap|   ChangerDrive #1  is not empty. Waiting for 5 sec",
                                         "tap| ERR |ChangerDrive #1  is not empty more then 3 sec",
                                         "tap| Checking if ChangerDrive #1 is empty Failed."));
    EXPECT_EQ(robot.moves, 0u);
}

TEST_P(MediumMovement, RefusesToMoveASlotToItself) {
    robot.fill(ChangerSlot, 3);
    const std::string text = failure_text<exc::win_sys_exc_t>([&] { open()->MoveToSlot(3, 3); });
    EXPECT_NE(text.find("Unable to move tape to ChangerSlot #3: changer element in not empty"), std::string::npos) << text;
    EXPECT_EQ(world.sleeps(), std::vector<std::int64_t>(13, 5000));
    EXPECT_EQ(robot.moves, 0u);
}

TEST_P(MediumMovement, BelievesTheElementsWhenTheCommandFailed) {
    robot.fill(ChangerSlot, 3);
    robot.next_moves({{.carried_out = true, .error = 1117}});
    open()->LoadMedium(3, 1);
    EXPECT_THAT(world.sleeps(), ElementsAre(5000));
    EXPECT_EQ(robot.moves, 1u);
    EXPECT_EQ(world.log().back(), "tap| Complete move medium from ChangerSlot #3 to ChangerDrive #1");
    EXPECT_EQ(world.log_with(execute("ChangerSlot #3 to ChangerDrive #1") + " Failed.").size(), 1u);
    const std::vector<std::string> pauses = world.log_with("Sleep for 5 sec");
    ASSERT_EQ(pauses.size(), 1u);
    if (scsi()) {
        EXPECT_TRUE(pauses[0].starts_with("tap| Sleep for 5 sec. Because of The request could not be performed")) << pauses[0];
    } else {
        EXPECT_EQ(pauses[0], "tap| Sleep for 5 sec");
    }
}

TEST_P(MediumMovement, TellsAFailedCommandInOneLine) {
    robot.fill(ChangerSlot, 3);
    robot.next_moves({{.carried_out = true, .error = 5}});
    open()->LoadMedium(3, 1);
    EXPECT_THAT(world.log_with("tap| ERR |"),
                ElementsAre("tap| ERR |Failed to move medium. Returned win error: 5: Access is denied.. Parameters: "
                            "MoveMediumImpl(uint sourceElementAddress='3', ELEMENT_TYPE sourceElementType ='2', uint "
                            "destinationElementAddress ='1', ELEMENT_TYPE destinationElementType ='4')"));
}

TEST_P(MediumMovement, SendsAgainEveryFiveSecondsUntilTheDeadline) {
    robot.fill(ChangerSlot, 3);
    robot.all_moves(real_error);
    const auto changer = open();
    try {
        changer->LoadMedium(3, 1);
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.code(), 1117u);
        EXPECT_EQ(e.messages().at(1).text,
                  "DeviceIoControl(ChangerGetElementStatus) with sourceAddress = '3', destAddress = '1', "
                  "symLink = '\\\\.\\Changer0'");
        EXPECT_EQ(e.messages().back().text, timed_out("ChangerSlot", "3", "ChangerDrive #1"));
        EXPECT_TRUE(e.messages().back().trace);
    }
    EXPECT_EQ(robot.moves, 13u);
    EXPECT_EQ(world.sleeps(), std::vector<std::int64_t>(13, 5000));
    EXPECT_EQ(world.log_with("tap| ERR |Cannot move medium implementation from ChangerSlot #3 to ChangerDrive #1").size(), 1u);
    EXPECT_TRUE(robot.is_full(ChangerSlot, 3));
}

TEST_P(MediumMovement, SucceedsWhenALaterCommandGoesThrough) {
    robot.fill(ChangerSlot, 3);
    robot.next_moves({real_error, real_error});
    open()->LoadMedium(3, 1);
    EXPECT_EQ(robot.moves, 3u);
    EXPECT_THAT(world.sleeps(), ElementsAre(5000, 5000));
    EXPECT_TRUE(robot.is_full(ChangerDrive, 1));
}

TEST_P(MediumMovement, MakesOneAttemptWithATimeoutOfZero) {
    world.set_timeout(0);
    robot.fill(ChangerSlot, 3);
    robot.all_moves(real_error);
    const auto changer = open();
    EXPECT_THROW(changer->LoadMedium(3, 1), exc::win_sys_exc_t);
    EXPECT_EQ(robot.moves, 1u);
    EXPECT_THAT(world.sleeps(), ElementsAre(5000));

    robot.empty(ChangerSlot, 3);
    world.system.clock.forget_sleeps();
    EXPECT_THROW(changer->LoadMedium(3, 1), exc::win_sys_exc_t);
    EXPECT_THAT(world.sleeps(), ElementsAre(5000));
    EXPECT_EQ(robot.moves, 1u);
}

TEST_P(MediumMovement, TakesASilentFailureForAMoveWhenTheDestinationIsFull) {
    robot.fill(ChangerSlot, 3);
    robot.next_moves({{.carried_out = true, .error = silent_failure}});
    open()->LoadMedium(3, 1);
    EXPECT_THAT(world.sleeps(), IsEmpty());
    EXPECT_EQ(robot.moves, 1u);
    EXPECT_EQ(world.log_with("Problem with IOControl status, but LastError = 0. Try to check for full of ChangerDrive #1").size(),
              1u);
    EXPECT_THAT(world.log_with("ERR |"), IsEmpty());
    EXPECT_EQ(world.log().back(), "tap| " + execute("ChangerSlot #3 to ChangerDrive #1") + " ok.");
}

TEST_P(MediumMovement, WaitsForTheDestinationAfterASilentFailure) {
    world.set_timeout(8);
    robot.fill(ChangerSlot, 3);
    robot.all_moves({.carried_out = false, .error = silent_failure});
    const auto changer = open();
    const std::string text = failure_text<exc::win_sys_exc_t>([&] { changer->LoadMedium(3, 1); });
    EXPECT_NE(text.find(timed_out("ChangerSlot", "3", "ChangerDrive #1")), std::string::npos) << text;
    // Two sleeps of waiting, then the sleep of the retry, which is behind the deadline of 8 seconds.
    EXPECT_THAT(world.sleeps(), ElementsAre(5000, 5000, 5000));
    EXPECT_EQ(robot.moves, 1u);
    const std::string reason = scsi() ? exc::win_error_text(0) : "Unknown error";
    EXPECT_EQ(world.log_with("tap| ERR |Failed to move medium. Returned win error: 0: " + reason + ". Parameters: MoveMediumImpl(")
                  .size(),
              1u);
}

TEST_P(MediumMovementByScsi, PassesADevicesReportOnWithoutAWait) {
    robot.fill(ChangerSlot, 3);
    robot.next_moves({{.carried_out = false, .status = 2, .sense = fixed_sense(4, 0x3B, 0x16)}});
    open()->LoadMedium(3, 1);
    EXPECT_EQ(robot.moves, 2u);
    EXPECT_THAT(world.sleeps(), ElementsAre(5000));
    EXPECT_THAT(world.log_with("Sleep for"),
                ElementsAre("tap| Sleep for 5 sec. Because of  [MT]SCSI PASS THROUGH DIRECT ended with Scsi Error Fixed format, "
                            "current;  Sense key: Hardware Error. Additional sense: Mechanical positioning or changer error"));
    EXPECT_THAT(world.log_with("Failed to move medium"), IsEmpty());
}

TEST_P(MediumMovement, RefusesAFullPortBeforeAnythingElse) {
    robot.fill(ChangerDrive, 0);
    robot.fill(ChangerSlot, 0);
    robot.fill(ChangerIEPort, 1);
    const auto changer = open();
    EXPECT_NE(failure_text<exc::win_sys_exc_t>([&] { changer->FromDriveToIEPort(0, 1); }).find("IEPort '1' is not empty"),
              std::string::npos);
    EXPECT_NE(failure_text<exc::win_sys_exc_t>([&] { changer->FromSlotToIEPort(0, 1); }).find("IEPort '1' is not empty"),
              std::string::npos);
    EXPECT_THAT(world.log(), IsEmpty());
    EXPECT_THAT(world.sleeps(), IsEmpty());
    EXPECT_EQ(robot.moves, 0u);
}

TEST_P(MediumMovement, RefusesAnEmptyPort) {
    EXPECT_NE(failure_text<exc::win_sys_exc_t>([&] { open()->FromIEPortToSlot(1, 0); }).find("IEPort '1' is empty"),
              std::string::npos);
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_P(MediumMovement, FailsAtOnceWhenTheElementsCannotBeReadBeforeTheMove) {
    world.set_timeout(0);
    robot.fail_status(21);
    const auto changer = open();
    const std::string text = failure_of([&] { changer->LoadMedium(3, 1); });
    EXPECT_NE(text.find("Timed out waiting for device ready status on ChangerGetElementStatus operation, element 'ChangerSlot' "),
              std::string::npos);
    EXPECT_EQ(robot.moves, 0u);
    EXPECT_THAT(world.log_with("Begin to move tape."), IsEmpty());
}

TEST_P(MediumMovement, FailsWithTheReadThatFailedAfterTheCommand) {
    world.set_timeout(0);
    robot.fill(ChangerSlot, 3);
    robot.all_moves(real_error);
    world.system.clock.on_sleep([&](std::int64_t) { robot.fail_status(21); });
    const auto changer = open();
    const std::string text = failure_of([&] { changer->LoadMedium(3, 1); });
    EXPECT_NE(text.find("on ChangerGetElementStatus operation, element 'ChangerSlot' "), std::string::npos) << text;
    EXPECT_THAT(world.log_with("Cannot move medium implementation"), IsEmpty());
}

TEST_P(MediumMovement, ReadsNoDestinationWhileTheSourceIsFull) {
    world.set_timeout(0);
    robot.fill(ChangerSlot, 3);
    robot.all_moves(real_error);
    const auto changer = open();
    EXPECT_THROW(changer->MoveToSlot(3, 4), exc::win_sys_exc_t);
    // Source and destination before the move, the source after it.
    EXPECT_EQ(robot.status_reads, 3u);
}

TEST_P(MediumMovement, RefusesAddressesThatDoNotFit) {
    robot.fill(ChangerSlot, 3);
    EXPECT_THROW(open()->MoveToSlot(0x10003, 4), exc::runtime_exc_t);
    EXPECT_EQ(robot.moves, 0u);
    EXPECT_TRUE(robot.is_full(ChangerSlot, 3));
}

INSTANTIATE_TEST_SUITE_P(BothBackends, MediumMovement, ::testing::Values(backend::driver, backend::scsi),
                         [](const ::testing::TestParamInfo<backend>& tested) {
                             return tested.param == backend::scsi ? "Scsi" : "Driver";
                         });

INSTANTIATE_TEST_SUITE_P(Driver, MediumMovementByDriver, ::testing::Values(backend::driver));
INSTANTIATE_TEST_SUITE_P(Scsi, MediumMovementByScsi, ::testing::Values(backend::scsi));

}  // namespace
