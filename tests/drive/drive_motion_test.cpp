#include <gtest/gtest.h>

#include <stdexcept>

#include "drive/drive_handle.h"
#include "drive/drive_world.h"
#include "foundation/exc/exceptions.h"

namespace {

using namespace drive_tests;
using platform::testing::tape_request;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string changed_text = "The media in the drive may have changed.";
const std::string io_device_text = "The request could not be performed because of an I/O device error.";

class MediaRemoval : public DriveTest {
protected:
    static inline const std::string timed_out = "\n--tr:Timed out waiting for StorageMediaRemoval symLink = \\\\.\\Tape0'";
    static std::string failed(const std::string& text) { return "DeviceIoControl(IOCTL_STORAGE_MEDIA_REMOVAL) failed " + text; }
};

TEST_F(MediaRemoval, SendsOneByte) {
    world.controls_end_with(media_removal, {0});
    CDriveHandle drive(drive_link);
    drive.StorageMediaRemoval(true);
    drive.StorageMediaRemoval(false);
    const auto sent = world.controls(media_removal);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].input, bytes{1});
    EXPECT_EQ(sent[1].input, bytes{0});
    EXPECT_EQ(sent[0].output_size, 0u);
    EXPECT_THAT(world.log(), IsEmpty());
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(MediaRemoval, ADriveThatDoesNotKnowItIsNoFailure) {
    world.controls_end_with(media_removal, {50});
    CDriveHandle(drive_link).StorageMediaRemoval(false);
    EXPECT_EQ(world.controls(media_removal).size(), 1u);
    EXPECT_THAT(world.log(), ElementsAre("tap| \\\\.\\Tape0 isn't supported media removal. So it isn't required. "));
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(MediaRemoval, AMediaChangeGetsOneSecondTryAtOnce) {
    world.controls_end_with(media_removal, {1110, 0});
    CDriveHandle(drive_link).StorageMediaRemoval(true);
    EXPECT_EQ(world.controls(media_removal).size(), 2u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
    world.controls_end_with(media_removal, {1110, 50});
    CDriveHandle(drive_link).StorageMediaRemoval(true);
    EXPECT_EQ(world.log().size(), 1u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(MediaRemoval, IsTriedUntilTheDeadline) {
    world.controls_end_with(media_removal, {1117});
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CDriveHandle(drive_link).StorageMediaRemoval(true); }),
              failed("with error " + io_device_text) + timed_out);
    EXPECT_EQ(world.controls(media_removal).size(), 7u);
    EXPECT_EQ(world.sleeps(), pauses(7));
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(MediaRemoval, WithATimeoutOfZeroWaitsOnce) {
    world.set_timeout(0);
    CDriveHandle drive(drive_link);
    for (const std::uint32_t error : {1167u, 1117u, 55u}) {
        world.system.devices.forget_requests();
        world.system.clock.forget_sleeps();
        world.controls_end_with(media_removal, {error});
        EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { drive.StorageMediaRemoval(true); }),
                  failed(exc::with_error_text(error)) + timed_out);
        EXPECT_EQ(world.controls(media_removal).size(), 1u);
        EXPECT_EQ(world.sleeps(), pauses(1));
    }
}

TEST_F(MediaRemoval, SucceedsOnALaterTry) {
    world.controls_end_with(media_removal, {21, 1111, 1110, 1110, 0});
    CDriveHandle(drive_link).StorageMediaRemoval(true);
    EXPECT_EQ(world.controls(media_removal).size(), 5u);
    EXPECT_EQ(world.sleeps(), pauses(3));
}

TEST_F(MediaRemoval, AFailureWithoutANumberHasNoText) {
    world.set_timeout(0);
    world.controls_end_with(media_removal, {silent_failure});
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CDriveHandle(drive_link).StorageMediaRemoval(true); }),
              failed("") + timed_out);
}

class Rewind : public DriveTest {
protected:
    static inline const std::string timed_out = "\n--tr:Timed out waiting for setPosition symLink = \\\\.\\Tape0'";
};

TEST_F(Rewind, MovesToTheBeginning) {
    CDriveHandle drive(drive_link);
    EXPECT_TRUE(drive.RewindTape());
    EXPECT_EQ(drive.last_tape_status(), 0u);
    const auto requests = world.system.tape.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].what, kind::set_position);
    EXPECT_EQ(requests[0].device, drive.device());
    EXPECT_EQ(requests[0].number, 0u);
    EXPECT_EQ(requests[0].partition, 0u);
    EXPECT_EQ(requests[0].offset, 0u);
    EXPECT_FALSE(requests[0].immediate);
    EXPECT_THAT(world.log(), ElementsAre("tap| Set position [0] to tape .", "tap| Set position [0] to tape . ok."));
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(Rewind, AFilemarkStopsItWithoutAnException) {
    world.system.tape.queue(kind::set_position, {1101});
    CDriveHandle drive(drive_link);
    EXPECT_FALSE(drive.RewindTape());
    EXPECT_EQ(drive.last_tape_status(), 1101u);
    EXPECT_THAT(world.log(), ElementsAre("tap| Set position [0] to tape .", "tap| Set position [0] to tape . Failed."));
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(Rewind, AMediaChangeGetsOneSecondTryAtOnce) {
    world.system.tape.queue(kind::set_position, {1110});
    EXPECT_TRUE(CDriveHandle(drive_link).RewindTape());
    world.system.tape.queue(kind::set_position, {1110, 1101});
    EXPECT_FALSE(CDriveHandle(drive_link).RewindTape());
    EXPECT_EQ(world.system.tape.count(kind::set_position), 4u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(Rewind, IsTriedUntilTheDeadlineWhichIsLookedAtBeforeThePause) {
    world.system.tape.always(kind::set_position, 1117);
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { drive.RewindTape(); }), "Tape positioning error: 1117" + timed_out);
    EXPECT_EQ(drive.last_tape_status(), 1117u);
    EXPECT_EQ(world.system.tape.count(kind::set_position), 8u);
    EXPECT_EQ(world.sleeps(), pauses(7));
    std::vector<std::string> expected = {"tap| Set position [0] to tape ."};
    expected.insert(expected.end(), 7, "tap| ERR |Tape positioning error: 1117");
    expected.emplace_back("tap| Set position [0] to tape . Failed.");
    EXPECT_EQ(world.log(), expected);
}

TEST_F(Rewind, WithATimeoutOfZeroWaitsOnce) {
    world.set_timeout(0);
    CDriveHandle drive(drive_link);
    for (const std::uint32_t status : {1167u, 1112u, 50u, 15u}) {
        world.system.clock.forget_sleeps();
        world.system.tape.always(kind::set_position, status);
        EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { drive.RewindTape(); }),
                  "Tape positioning error: " + std::to_string(status) + timed_out);
        EXPECT_EQ(world.sleeps(), pauses(1));
    }
    EXPECT_EQ(world.system.tape.count(kind::set_position), 8u);
}

TEST_F(Rewind, SucceedsOnALaterTry) {
    world.system.tape.queue(kind::set_position, {21, 1110, 1110});
    EXPECT_TRUE(CDriveHandle(drive_link).RewindTape());
    EXPECT_EQ(world.sleeps(), pauses(2));
    EXPECT_THAT(world.log(), ElementsAre("tap| Set position [0] to tape .", "tap| ERR |Tape positioning error: 21",
                                         "tap| ERR |Tape positioning error: 1110", "tap| Set position [0] to tape . ok."));
}

TEST_F(Rewind, FailuresOfOtherKindsAreNotItsToRetry) {
    world.tape.before = [] { throw std::runtime_error("a foreign failure"); };
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<std::runtime_error>([&] { drive.RewindTape(); }), "a foreign failure");
    world.tape.before = [] { throw exc::win_sys_exc_t(5); };
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { drive.RewindTape(); }), "Access is denied.\n--tr:Error code: 0x00000005");
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

class Erase : public DriveTest {
protected:
    /// The log's lines of an erase, those of its rewind left out.
    [[nodiscard]] std::vector<std::string> erase_log() const {
        const std::vector<std::string> all = world.log();
        const auto begin = std::find(all.begin(), all.end(), "tap| Beginning tape erasing.");
        return {begin, all.end()};
    }
    static std::string failed_line(std::uint32_t status) {
        return "tap| ERR |Failed to erase tape due " + std::to_string(status) + ". " + TapeErrorText(status) + " ";
    }
    static inline const std::string timed_out = "Timed out waiting for EraseTape symLink = \\\\.\\Tape0'";
    static inline const std::string io_failure = system_failure(io_device_text, "1117", "0x0000045d");
    static inline const std::vector<std::string> io_failure_lines = {"tap| ERR |" + io_device_text, "tap| >>  |1117",
                                                                     "tap| >>  |--tr:Error code: 0x0000045d"};
};

TEST_F(Erase, RewindsAndErasesToTheEnd) {
    CDriveHandle drive(drive_link);
    drive.EraseTape(platform::TAPE_ERASE_SHORT);
    drive.EraseTape(platform::TAPE_ERASE_LONG);
    EXPECT_EQ(drive.last_tape_status(), 0u);
    const std::vector<tape_request> requests = world.system.tape.requests();
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_EQ(requests[0].what, kind::set_position);
    EXPECT_EQ(requests[1].what, kind::erase);
    EXPECT_EQ(requests[1].device, drive.device());
    EXPECT_EQ(requests[1].number, 0u);
    EXPECT_FALSE(requests[1].immediate);
    EXPECT_EQ(requests[3].number, 1u);
    EXPECT_THAT(world.log(), ElementsAre("tap| Set position [0] to tape .", "tap| Set position [0] to tape . ok.",
                                         "tap| Beginning tape erasing.", "tap| Beginning tape erasing. ok.",
                                         "tap| Set position [0] to tape .", "tap| Set position [0] to tape . ok.",
                                         "tap| Beginning tape erasing.", "tap| Beginning tape erasing. ok."));
}

TEST_F(Erase, GoesOnWhereAFilemarkStoppedTheRewind) {
    world.system.tape.queue(kind::set_position, {1101});
    CDriveHandle drive(drive_link);
    drive.EraseTape(platform::TAPE_ERASE_LONG);
    EXPECT_EQ(drive.last_tape_status(), 0u);
    EXPECT_EQ(world.system.tape.count(kind::erase), 1u);
    EXPECT_THAT(world.log(), ElementsAre("tap| Set position [0] to tape .", "tap| Set position [0] to tape . Failed.",
                                         "tap| Beginning tape erasing.", "tap| Beginning tape erasing. ok."));
}

TEST_F(Erase, EndsWithAFailedRewind) {
    world.set_timeout(0);
    world.system.tape.always(kind::set_position, 1112);
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { drive.EraseTape(platform::TAPE_ERASE_SHORT); }),
              "Tape positioning error: 1112\n--tr:Timed out waiting for setPosition symLink = \\\\.\\Tape0'");
    EXPECT_EQ(drive.last_tape_status(), 1112u);
    EXPECT_EQ(world.system.tape.count(kind::erase), 0u);
    EXPECT_THAT(world.log_with("Beginning tape erasing."), IsEmpty());
}

TEST_F(Erase, AMediaChangeGetsOneSecondTryAtOnce) {
    world.system.tape.queue(kind::erase, {1110});
    CDriveHandle drive(drive_link);
    drive.EraseTape(platform::TAPE_ERASE_SHORT);
    EXPECT_EQ(world.system.tape.count(kind::erase), 2u);
    EXPECT_EQ(world.system.tape.count(kind::set_position), 1u);
    EXPECT_EQ(drive.last_tape_status(), 0u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
    EXPECT_THAT(erase_log(), ElementsAre("tap| Beginning tape erasing.", failed_line(1110), "tap| Beginning tape erasing. ok."));
}

TEST_F(Erase, ASecondFailureCountsByItsOwnStatus) {
    world.set_timeout(0);
    world.system.tape.queue(kind::erase, {1110, 1117});
    CDriveHandle drive(drive_link);
    drive.EraseTape(platform::TAPE_ERASE_SHORT);
    EXPECT_EQ(world.sleeps(), pauses(1));
    std::vector<std::string> expected = {"tap| Beginning tape erasing.", failed_line(1110)};
    expected.insert(expected.end(), io_failure_lines.begin(), io_failure_lines.end());
    expected.emplace_back("tap| Beginning tape erasing. ok.");
    EXPECT_EQ(erase_log(), expected);
}

TEST_F(Erase, IsTriedUntilTheDeadlineWithoutRewindingAgain) {
    world.system.tape.always(kind::erase, 1117);
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { drive.EraseTape(platform::TAPE_ERASE_LONG); }), io_failure);
    EXPECT_EQ(drive.last_tape_status(), 1117u);
    EXPECT_EQ(world.system.tape.count(kind::set_position), 1u);
    EXPECT_EQ(world.system.tape.count(kind::erase), 8u);
    EXPECT_EQ(world.sleeps(), pauses(7));
}

TEST_F(Erase, ATimeoutThrowsTheLastFailureAsItIs) {
    world.set_timeout(0);
    world.system.tape.always(kind::erase, 1117);
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { drive.EraseTape(platform::TAPE_ERASE_LONG); }), io_failure);
    EXPECT_EQ(world.sleeps(), pauses(1));
    std::vector<std::string> expected = {"tap| Beginning tape erasing.", failed_line(1117)};
    expected.insert(expected.end(), io_failure_lines.begin(), io_failure_lines.end());
    expected.insert(expected.end(), {failed_line(1117), "tap| ERR |" + timed_out, "tap| Beginning tape erasing. Failed."});
    EXPECT_EQ(erase_log(), expected);
}

TEST_F(Erase, EveryStatusIsRetriedAlike) {
    for (const std::uint32_t status : {5u, 15u, 19u, 21u, 50u, 55u, 1100u, 1111u, 1112u, 1167u}) {
        world.system.clock.forget_sleeps();
        world.system.tape.queue(kind::erase, {status});
        CDriveHandle(drive_link).EraseTape(platform::TAPE_ERASE_SHORT);
        EXPECT_EQ(world.sleeps(), pauses(1)) << status;
        EXPECT_THAT(world.log(), Contains(failed_line(status)));
    }
}

TEST_F(Erase, TheRewindsTimeCountsTowardsTheDeadline) {
    world.set_timeout(10);
    world.system.tape.queue(kind::set_position, {1117});
    world.system.tape.queue(kind::erase, {1117, 1117});
    CDriveHandle drive(drive_link);
    // The rewind used the ten seconds up: the first failure of the erase is at the deadline, the second one past it.
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { drive.EraseTape(platform::TAPE_ERASE_SHORT); }), io_failure);
    EXPECT_EQ(world.system.tape.count(kind::erase), 2u);
    EXPECT_EQ(world.sleeps(), pauses(2));
}

TEST_F(Erase, ALongOneIsNotCutShort) {
    world.tape.before = [this] { world.system.clock.advance(6 * 3600 * 1000); };
    CDriveHandle drive(drive_link);
    drive.EraseTape(platform::TAPE_ERASE_LONG);
    EXPECT_EQ(drive.last_tape_status(), 0u);
    // One that fails after hours is not tried again.
    world.system.tape.queue(kind::erase, {1117});
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { drive.EraseTape(platform::TAPE_ERASE_LONG); }), io_failure);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(Erase, ForeignFailuresAreRetriedAndWrapped) {
    world.set_timeout(0);
    int calls = 0;
    world.tape.before = [&] {
        if (++calls == 2) {
            throw std::runtime_error("a foreign failure");
        }
    };
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { drive.EraseTape(platform::TAPE_ERASE_SHORT); }),
              "a foreign failure\n--tr:" + timed_out);
    EXPECT_EQ(world.sleeps(), pauses(1));

    calls = 0;
    world.set_timeout(10);
    CDriveHandle(drive_link).EraseTape(platform::TAPE_ERASE_SHORT);
    EXPECT_EQ(world.system.tape.count(kind::erase), 1u);
    EXPECT_EQ(world.sleeps(), pauses(2));
}

class Prepare : public DriveTest {
protected:
    static std::string failure(std::uint32_t code, const std::string& operation, const std::string& immediately) {
        return system_failure(exc::win_error_text(code), "Error in PrepareTape().", text::format_hex(code)) +
               "\n--tr:Timed out waiting for device ready status on Prepare operation, symLink = '\\\\.\\Tape0', operation='" +
               operation + "', immediately='" + immediately + "' with status='" + std::to_string(code) + "'";
    }
};

TEST_F(Prepare, PassesItsArgumentsOn) {
    CDriveHandle drive(drive_link);
    drive.PrepareTape(platform::TAPE_UNLOAD, true);
    drive.PrepareTape(4'000'000'000, false);
    const auto requests = world.system.tape.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].what, kind::prepare);
    EXPECT_EQ(requests[0].device, drive.device());
    EXPECT_EQ(requests[0].number, 1u);
    EXPECT_TRUE(requests[0].immediate);
    EXPECT_EQ(requests[1].number, 4'000'000'000u);
    EXPECT_FALSE(requests[1].immediate);
    EXPECT_EQ(drive.last_tape_status(), 0u);
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(Prepare, AnEmptyDriveCountsAsDoneForEveryOperation) {
    world.system.tape.always(kind::prepare, 1112);
    CDriveHandle drive(drive_link);
    for (std::uint32_t operation = platform::TAPE_LOAD; operation <= platform::TAPE_FORMAT; ++operation) {
        drive.PrepareTape(operation, false);
    }
    EXPECT_EQ(world.system.tape.count(kind::prepare), 6u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
    EXPECT_EQ(drive.last_tape_status(), 0u);
}

TEST_F(Prepare, AHardErrorIsNotRetried) {
    CDriveHandle drive(drive_link);
    for (const std::uint32_t status : {5u, 1u, 6u, 19u, 21u, 50u, 55u, 87u, 1100u, 1117u, 1167u}) {
        world.system.tape.queue(kind::prepare, {status});
        EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { drive.PrepareTape(platform::TAPE_LOAD, false); }),
                  failure(status, "0", "FALSE"));
    }
    EXPECT_EQ(world.system.tape.count(kind::prepare), 11u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(Prepare, WaitsForADriveThatWasResetOrIsNoDriveAnyMore) {
    for (const std::uint32_t status : {15u, 1111u}) {
        world.system.clock.forget_sleeps();
        world.system.tape.queue(kind::prepare, {status, status});
        CDriveHandle(drive_link).PrepareTape(platform::TAPE_LOAD, true);
        EXPECT_EQ(world.sleeps(), pauses(2));
    }
    world.system.clock.forget_sleeps();
    world.system.tape.always(kind::prepare, 1111);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { CDriveHandle(drive_link).PrepareTape(platform::TAPE_FORMAT, true); }),
              failure(1111, "5", "TRUE"));
    EXPECT_EQ(world.sleeps(), pauses(7));
    EXPECT_EQ(world.system.tape.count(kind::prepare), 13u);
}

TEST_F(Prepare, WithATimeoutOfZeroWaitsOnce) {
    world.set_timeout(0);
    world.system.tape.always(kind::prepare, 15);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { CDriveHandle(drive_link).PrepareTape(platform::TAPE_LOAD, false); }),
              failure(15, "0", "FALSE"));
    EXPECT_EQ(world.sleeps(), pauses(1));
    EXPECT_EQ(world.system.tape.count(kind::prepare), 1u);
}

TEST_F(Prepare, SpinsAfterAMediaChangeUntilTheDeadline) {
    world.tape.before = [this] { world.system.clock.advance(1000); };
    world.system.tape.always(kind::prepare, 1110);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { CDriveHandle(drive_link).PrepareTape(platform::TAPE_LOAD, false); }),
              failure(1110, "0", "FALSE"));
    EXPECT_EQ(world.system.tape.count(kind::prepare), 61u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(Prepare, SucceedsAfterAMediaChangeWithoutAPause) {
    world.system.tape.queue(kind::prepare, {1110, 1110, 1110});
    CDriveHandle(drive_link).PrepareTape(platform::TAPE_LOAD, false);
    EXPECT_EQ(world.system.tape.count(kind::prepare), 4u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(Prepare, AForeignFailureIsJudgedByTheStatusBeforeIt) {
    int calls = 0;
    world.tape.before = [&] {
        if (++calls == 2) {
            throw std::runtime_error("a foreign failure");
        }
    };
    world.system.tape.queue(kind::prepare, {1111});
    CDriveHandle(drive_link).PrepareTape(platform::TAPE_LOAD, false);
    EXPECT_EQ(world.sleeps(), pauses(2));

    world.tape.before = [] { throw std::runtime_error("a foreign failure"); };
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CDriveHandle(drive_link).PrepareTape(platform::TAPE_LOAD, false); }),
              "a foreign failure\n--tr:Timed out waiting for device ready status on Prepare operation, symLink = '\\\\.\\Tape0', "
              "operation='0', immediately='FALSE' with status='0'");
}

}  // namespace
