#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

#include "drive/drive_handle.h"
#include "drive/drive_world.h"
#include "foundation/exc/exceptions.h"

namespace {

using namespace drive_tests;
using changer_tests::fixed_sense;
using changer_tests::padded;
using platform::testing::answer_scsi;
using platform::testing::cdb_of;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string changed_text = "The media in the drive may have changed.";
const std::string empty_text = "No media in drive.";

const std::string no_media = system_failure(empty_text, "No media in drive in '\\\\.\\Tape0'", "0x00000458");
const std::string media_timed_out =
    "\n--tr:Timed out waiting for device ready status on FindMediaInfo operation, symLink = \\\\.\\Tape0";

class DriveMedia : public DriveTest {
protected:
    void SetUp() override {
        platform::TAPE_GET_MEDIA_PARAMETERS media;
        media.Capacity = 2'500'000'000'000;
        media.Remaining = 17;
        media.BlockSize = 65536;
        media.PartitionCount = 2;
        media.WriteProtected = 1;
        world.system.tape.set_media(media);
    }
};

TEST_F(DriveMedia, ParametersAreThePlatforms) {
    CDriveHandle drive(drive_link);
    const boost::shared_ptr<TapeMediaInfo> media = drive.GetMediaParameters();
    ASSERT_TRUE(media);
    EXPECT_EQ(media->Capacity, 2'500'000'000'000u);
    EXPECT_EQ(media->Remaining, 17u);
    EXPECT_EQ(media->BlockSize, 65536u);
    EXPECT_EQ(media->PartitionCount, 2u);
    EXPECT_EQ(media->WriteProtected, 1);
    EXPECT_THAT(world.log(), ElementsAre("tap| Tape is in drive"));
    const auto requests = world.system.tape.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].what, kind::media_parameters);
    EXPECT_EQ(requests[0].device, drive.device());
}

/// The size that goes in is the process's, so each of these looks at it in a process of its own.
class DriveMediaSize : public DriveMedia {
protected:
    void SetUp() override {
        DriveMedia::SetUp();
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
    static void end_process(bool as_expected) { std::_Exit(as_expected ? 0 : 1); }
};

TEST_F(DriveMediaSize, StartsWithFourAndIsKeptAsThePlatformLeavesIt) {
    const auto run = [this] {
        CDriveHandle drive(drive_link);
        static_cast<void>(drive.GetMediaParameters());
        CDriveHandle other(drive_link);
        static_cast<void>(other.GetMediaParameters());
        const auto requests = world.system.tape.requests();
        end_process(requests.at(0).size == 4 && requests.at(1).size == 32);
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}

TEST_F(DriveMediaSize, AStrictPlatformRefusesTheFirstCallOfAProcess) {
    const auto run = [this] {
        world.system.tape.strict_size(true);
        CDriveHandle drive(drive_link);
        const std::string first = failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(drive.GetMediaParameters()); });
        const std::string expected =
            system_failure("More data is available.",
                           "Can not get tape media information with status '234' in changer '\\\\.\\Tape0'", "0x000000ea");
        end_process(first == expected && drive.GetMediaParameters() != nullptr);
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}

TEST_F(DriveMediaSize, FindingTheMediumGetsOverAStrictPlatform) {
    const auto run = [this] {
        world.system.tape.strict_size(true);
        const auto media = CDriveHandle(drive_link).FindMediaInfo();
        end_process(media != nullptr && world.sleeps() == pauses(1));
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}

TEST_F(DriveMedia, AMediaChangeGetsOneSecondTryAtOnce) {
    world.system.tape.queue(kind::media_parameters, {1110});
    EXPECT_TRUE(CDriveHandle(drive_link).GetMediaParameters());
    EXPECT_EQ(world.system.tape.count(kind::media_parameters), 2u);
    EXPECT_THAT(world.log(), ElementsAre("tap| ERR |ERROR_MEDIA_CHANGED. Try again.", "tap| Tape is in drive"));
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(DriveMedia, ASecondMediaChangeIsAFailure) {
    world.system.tape.queue(kind::media_parameters, {1110, 1110});
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(drive.GetMediaParameters()); }),
              system_failure(changed_text, "Can not get tape media information with status '1110' in changer '\\\\.\\Tape0'",
                             "0x00000456"));
    EXPECT_EQ(world.system.tape.count(kind::media_parameters), 2u);
    EXPECT_THAT(world.log(), ElementsAre("tap| ERR |ERROR_MEDIA_CHANGED. Try again.", "tap| Tape is in drive"));
}

TEST_F(DriveMedia, AnEmptyDriveHasNoParameters) {
    world.system.tape.queue(kind::media_parameters, {1112});
    EXPECT_FALSE(CDriveHandle(drive_link).GetMediaParameters());
    EXPECT_THAT(world.log(), ElementsAre("tap| ERR |ERROR_NO_MEDIA_IN_DRIVE."));
    world.system.tape.queue(kind::media_parameters, {1110, 1112});
    EXPECT_FALSE(CDriveHandle(drive_link).GetMediaParameters());
    EXPECT_EQ(world.system.tape.count(kind::media_parameters), 3u);
}

TEST_F(DriveMedia, EveryOtherStatusIsAFailure) {
    CDriveHandle drive(drive_link);
    for (const std::uint32_t status : {1u, 6u, 15u, 21u, 55u, 1111u, 1117u, 1167u}) {
        world.system.log.clear();
        world.system.tape.queue(kind::media_parameters, {status});
        try {
            static_cast<void>(drive.GetMediaParameters());
            FAIL() << status;
        } catch (const exc::win_sys_exc_t& e) {
            EXPECT_EQ(e.code(), status);
            EXPECT_EQ(e.messages().at(1).text,
                      "Can not get tape media information with status '" + std::to_string(status) + "' in changer '\\\\.\\Tape0'");
        }
        EXPECT_THAT(world.log(), ElementsAre("tap| Tape is in drive"));
    }
    EXPECT_EQ(world.system.tape.count(kind::media_parameters), 8u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(DriveMedia, IsFoundAtOnceWhenItIsThere) {
    const auto media = CDriveHandle(drive_link).FindMediaInfo();
    ASSERT_TRUE(media);
    EXPECT_EQ(media->Remaining, 17u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(DriveMedia, IsWaitedForInAnEmptyDrive) {
    world.system.tape.always(kind::media_parameters, 1112);
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(drive.FindMediaInfo()); }), no_media + media_timed_out);
    EXPECT_EQ(world.system.tape.count(kind::media_parameters), 7u);
    EXPECT_EQ(world.sleeps(), pauses(7));
}

TEST_F(DriveMedia, WithATimeoutOfZeroIsWaitedForOnce) {
    world.set_timeout(0);
    world.system.tape.always(kind::media_parameters, 1112);
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(drive.FindMediaInfo()); }), no_media + media_timed_out);
    EXPECT_EQ(world.system.tape.count(kind::media_parameters), 1u);
    EXPECT_EQ(world.sleeps(), pauses(1));
}

TEST_F(DriveMedia, TheDeadlineItselfIsNotPastYet) {
    world.set_timeout(10);
    world.system.tape.queue(kind::media_parameters, {1112});
    EXPECT_TRUE(CDriveHandle(drive_link).FindMediaInfo());
    world.set_timeout(9);
    world.system.tape.queue(kind::media_parameters, {1112});
    CDriveHandle impatient(drive_link);
    EXPECT_THROW(static_cast<void>(impatient.FindMediaInfo()), exc::win_sys_exc_t);
    EXPECT_EQ(world.sleeps(), pauses(2));
}

TEST_F(DriveMedia, IsFoundAfterFailuresOfEveryKind) {
    world.system.tape.queue(kind::media_parameters, {21, 1112, 1111});
    int calls = 0;
    world.tape.before = [&] {
        if (++calls == 2) {
            throw std::runtime_error("a foreign failure");
        }
    };
    EXPECT_TRUE(CDriveHandle(drive_link).FindMediaInfo());
    EXPECT_EQ(world.sleeps(), pauses(4));
}

TEST_F(DriveMedia, ATimeoutCarriesTheLastFailure) {
    world.set_timeout(10);
    world.system.tape.queue(kind::media_parameters, {1112, 1117});
    CDriveHandle drive(drive_link);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(drive.FindMediaInfo()); }),
              system_failure("The request could not be performed because of an I/O device error.",
                             "Can not get tape media information with status '1117' in changer '\\\\.\\Tape0'", "0x0000045d") +
                  media_timed_out);
    world.set_timeout(0);
    world.tape.before = [] { throw std::runtime_error("a foreign failure"); };
    CDriveHandle other(drive_link);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { static_cast<void>(other.FindMediaInfo()); }),
              "a foreign failure" + media_timed_out);
}

class DriveParameters : public DriveTest {
protected:
    void SetUp() override {
        platform::TAPE_GET_DRIVE_PARAMETERS parameters;
        parameters.DefaultBlockSize = 65536;
        parameters.MaximumBlockSize = 1'048'576;
        parameters.MinimumBlockSize = 1;
        world.system.tape.set_drive(parameters);
    }

    static std::string retry_line(int attempts) {
        return "tap| ERROR_BUS_RESET, ERROR_MEDIA_CHANGED or ERROR_IO_DEVICE was occurred, trying to retry driveParameters: " +
               std::to_string(attempts) + ".";
    }
};

TEST_F(DriveParameters, AreThePlatforms) {
    TapeDriveParameters parameters;
    CDriveHandle(drive_link).GetDriveParameters(parameters);
    EXPECT_EQ(parameters.DefaultBlockSize, 65536u);
    EXPECT_EQ(parameters.MaximumBlockSize, 1'048'576u);
    EXPECT_EQ(parameters.MinimumBlockSize, 1u);
    const auto requests = world.system.tape.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].what, kind::drive_parameters);
    EXPECT_EQ(requests[0].size, 32u);
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(DriveParameters, AreReadAgainAfterAReset) {
    for (const std::uint32_t status : {1110u, 1111u, 1117u}) {
        world.system.log.clear();
        world.system.clock.forget_sleeps();
        world.system.tape.queue(kind::drive_parameters, {status});
        TapeDriveParameters parameters;
        CDriveHandle(drive_link).GetDriveParameters(parameters);
        EXPECT_EQ(parameters.DefaultBlockSize, 65536u);
        EXPECT_THAT(world.sleeps(), ElementsAre(5000));
        EXPECT_THAT(world.log(), ElementsAre(retry_line(2)));
    }
}

TEST_F(DriveParameters, StayAsTheyWereWhenTheResetsDoNotEnd) {
    world.system.tape.queue(kind::drive_parameters, {1111, 1111, 1111});
    TapeDriveParameters parameters;
    parameters.DefaultBlockSize = 7;
    CDriveHandle(drive_link).GetDriveParameters(parameters);
    EXPECT_EQ(parameters.DefaultBlockSize, 7u);
    EXPECT_EQ(parameters.MaximumBlockSize, 0u);
    EXPECT_EQ(world.system.tape.count(kind::drive_parameters), 2u);
    EXPECT_THAT(world.sleeps(), ElementsAre(5000, 5000));
    EXPECT_THAT(world.log(), ElementsAre(retry_line(2), retry_line(1)));
}

TEST_F(DriveParameters, HaveNoDeadline) {
    world.set_timeout(0);
    world.system.tape.queue(kind::drive_parameters, {1117});
    TapeDriveParameters parameters;
    CDriveHandle(drive_link).GetDriveParameters(parameters);
    EXPECT_EQ(parameters.DefaultBlockSize, 65536u);
}

TEST_F(DriveParameters, FailAtOnceForOtherStatuses) {
    CDriveHandle drive(drive_link);
    for (const std::uint32_t status : {1u, 15u, 19u, 21u, 50u, 55u, 1112u, 1167u}) {
        world.system.tape.queue(kind::drive_parameters, {status});
        TapeDriveParameters parameters;
        EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { drive.GetDriveParameters(parameters); }),
                  TapeErrorText(status) + "\n--tr:DriveHandle failed to get tape drive parameters.");
        EXPECT_EQ(parameters.DefaultBlockSize, 0u);
    }
    EXPECT_EQ(world.system.tape.count(kind::drive_parameters), 8u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
    world.system.tape.queue(kind::drive_parameters, {1111, 21});
    TapeDriveParameters parameters;
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { drive.GetDriveParameters(parameters); }),
              "The device is not ready\n--tr:DriveHandle failed to get tape drive parameters.");
}

TEST_F(DriveParameters, WrapForeignFailures) {
    world.tape.before = [] { throw std::runtime_error("a foreign failure"); };
    TapeDriveParameters parameters;
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { CDriveHandle(drive_link).GetDriveParameters(parameters); }),
              "a foreign failure\n--tr:DriveHandle failed to get tape drive parameters.");
}

class DriveAttributes : public DriveTest {
protected:
    static bytes attribute(std::uint8_t low, const bytes& value, std::uint8_t high = 2) {
        return changer_tests::joined({{high, low, 0, 0, static_cast<std::uint8_t>(value.size())}, value});
    }
    static bytes list(const bytes& attributes) {
        return changer_tests::joined({{0, 0, 0, static_cast<std::uint8_t>(attributes.size())}, attributes});
    }
    const bytes command = {0x8C, 0, 0, 0, 0, 0, 0, 0, 0x02, 0x20, 0x0F, 0, 0, 0, 0, 0};
    const bytes used = list(changer_tests::joined(
        {attribute(0x20, {0, 0, 0, 0, 0, 0, 1, 0}), attribute(0x21, {0, 0, 0, 0, 0, 0, 0, 9}), attribute(0x08, {0x80}, 4)}));
};

TEST_F(DriveAttributes, AreReadByTheDirectForm) {
    world.data_of_commands(used);
    CDriveHandle drive(drive_link);
    const TapeUsageStatistic usage = drive.ReadUsageStatistic();
    EXPECT_TRUE(usage.valid);
    EXPECT_EQ(usage.lifetime_megabytes_written, 256u);
    EXPECT_EQ(usage.lifetime_megabytes_read, 9u);
    EXPECT_TRUE(drive.IsWormMedium());
    const auto sent = world.controls(pass_through_direct);
    ASSERT_EQ(sent.size(), 2u);
    for (const device_request& request : sent) {
        EXPECT_EQ(cdb_of(request), command);
        EXPECT_EQ(request.output_size, 32768u);
        EXPECT_EQ(request.handle, drive.device());
    }
    EXPECT_THAT(world.controls(pass_through), IsEmpty());
}

TEST_F(DriveAttributes, AreReadByTheIndirectFormWhereThatIsSet) {
    world.set_indirect(1);
    world.data_of_commands(used);
    CDriveHandle drive(drive_link);
    EXPECT_TRUE(drive.ReadUsageStatistic().valid);
    EXPECT_TRUE(drive.IsWormMedium());
    const auto sent = world.controls(pass_through);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(cdb_of(sent[0]), command);
    EXPECT_EQ(sent[0].input.size(), 66096u);
    EXPECT_THAT(world.controls(pass_through_direct), IsEmpty());
}

TEST_F(DriveAttributes, AreSentAgainAfterAMediumWasInserted) {
    int sends = 0;
    world.system.devices.on_direct([&](const device_request& request) {
        return ++sends < 3 ? answer_scsi(request, 2, fixed_sense(6, 0x28, 0)) : answer_scsi(request, 0, {}, used);
    });
    CDriveHandle drive(drive_link);
    EXPECT_TRUE(drive.IsWormMedium());
    EXPECT_EQ(sends, 3);
    EXPECT_THAT(world.sleeps(), ElementsAre(400, 400));
    EXPECT_THAT(world.log(), Contains(::testing::EndsWith("It has 5 attempts")));
}

TEST_F(DriveAttributes, OfADriveThatRefusesThemAreAFailure) {
    world.system.devices.on_direct([](const device_request& request) { return answer_scsi(request, 2, fixed_sense(5, 0x20, 0)); });
    CDriveHandle drive(drive_link);
    const std::string refusal =
        " [MT]SCSI PASS THROUGH DIRECT ended with Scsi Error Fixed format, current;  Sense key: Illegal "
        "Request. Additional sense: Invalid command operation code";
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { static_cast<void>(drive.IsWormMedium()); }), refusal);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { static_cast<void>(drive.ReadUsageStatistic()); }), refusal);
    EXPECT_EQ(world.controls(pass_through_direct).size(), 2u);
}

TEST_F(DriveAttributes, OfADriveThatHasGoneAreAFailure) {
    CDriveHandle drive(drive_link);
    for (const std::uint32_t error : {1167u, 1117u, 55u}) {
        world.system.devices.on_direct([=](const device_request&) { return device_answer{error, {}, {}, {}}; });
        try {
            static_cast<void>(drive.IsWormMedium());
            FAIL() << error;
        } catch (const exc::win_sys_exc_t& e) {
            EXPECT_EQ(e.code(), error);
            EXPECT_EQ(e.messages().at(1).text, "DeviceIoControl fails or is pending.");
        }
        EXPECT_THROW(static_cast<void>(drive.ReadUsageStatistic()), exc::win_sys_exc_t);
    }
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(DriveAttributes, ThatAreNotThereTellNothing) {
    world.data_of_commands({});
    CDriveHandle drive(drive_link);
    EXPECT_FALSE(drive.IsWormMedium());
    EXPECT_FALSE(drive.ReadUsageStatistic().valid);
}

}  // namespace
