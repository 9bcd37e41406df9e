#include <gtest/gtest.h>

#include <memory>

#include "drive/drive_handle.h"
#include "drive/drive_world.h"
#include "foundation/exc/exceptions.h"
#include "platform/device_stack/io_manager.h"
#include "platform/device_stack/tape_drives.h"
#include "platform/testing/fakes.h"
#include "platform/virtual_library/create_library.h"
#include "platform/virtual_library/virtual_library.h"
#include "support/failure_text.h"
#include "support/tape_variables_scope.h"

namespace {

using drive_tests::pauses;
using drive_tests::system_failure;
using test_support::failure_text;
using ::testing::IsEmpty;
namespace device_stack = platform::device_stack;
namespace tape_library = platform::tape_library;

constexpr std::uint64_t mebibyte = 1 << 20;

/// A virtual library's drives as a source of devices. All who open a drive are one initiator.
class drive_source final : public device_stack::scsi_source {
public:
    explicit drive_source(tape_library::virtual_library& library) {
        for (std::uint8_t unit = 1; unit < library.units(); ++unit) {
            transports_.push_back(library.connect(unit));
        }
    }
    std::vector<device_stack::logical_unit_info> enumerate() override {
        std::vector<device_stack::logical_unit_info> units;
        for (std::uint8_t number = 0; number < transports_.size(); ++number) {
            device_stack::logical_unit_info info;
            info.peripheral_type = 1;
            info.identity = std::to_string(number);
            info.location.lun = static_cast<std::uint8_t>(number + 1);
            units.push_back(info);
        }
        return units;
    }
    std::shared_ptr<device_stack::scsi_transport> open(const std::string& identity, std::uint32_t&) override {
        return transports_.at(static_cast<std::size_t>(std::stoi(identity)));
    }

private:
    std::vector<std::shared_ptr<device_stack::scsi_transport>> transports_;
};

/// The drive handle over the class drivers and a virtual library: no part is scripted. In the drives are a used cartridge, a WORM
/// one, a write-protected one, and none.
class DriveOverLibrary : public ::testing::Test {
protected:
    DriveOverLibrary()
        : library_(make_library()),
          manager_({std::make_shared<drive_source>(*library_)}, {}),
          tape_(manager_),
          scope_(with_drives()) {}

    static inline const std::string used = "\\\\.\\Tape0";
    static inline const std::string worm = "\\\\.\\Tape1";
    static inline const std::string write_protected = "\\\\.\\Tape2";
    static inline const std::string empty = "\\\\.\\Tape3";

    void set_timeout(std::uint32_t seconds) {
        system_.registry.set_dword(changer_tests::tape_key, "TapeDeviceNotReadyTimeoutSec", seconds);
    }
    void set_indirect() { system_.registry.set_dword(changer_tests::tape_key, "EnableIndirectScsi", 1); }
    /// An open drive with its cartridge, if there is one, threaded.
    static std::unique_ptr<CDriveHandle> loaded(const std::string& link) {
        auto drive = std::make_unique<CDriveHandle>(link);
        drive->PrepareTape(platform::TAPE_LOAD, false);
        return drive;
    }

    platform::testing::test_system system_;
    std::shared_ptr<tape_library::virtual_library> library_;

private:
    static std::shared_ptr<tape_library::virtual_library> make_library() {
        tape_library::library_options options;
        options.drives = 4;
        options.cartridges = 0;
        tape_library::personality made_of = tape_library::make_personality(options);
        const auto put = [&](std::uint16_t drive) -> tape_library::cartridge_definition& {
            tape_library::cartridge_definition cartridge;
            cartridge.barcode = "TRN00" + std::to_string(drive) + "L8";
            cartridge.element = static_cast<std::uint16_t>(made_of.drives.first + drive);
            cartridge.capacity = 1000;
            return made_of.cartridges.emplace_back(cartridge);
        };
        tape_library::cartridge_definition& written = put(0);
        written.used = 444;
        written.written = 0x123456789;
        written.read = 9;
        put(1).worm = true;
        put(2).write_protected = true;
        tape_library::create_library(u"library", made_of);
        return tape_library::virtual_library::open(u"library");
    }
    platform::system_set with_drives() {
        platform::system_set set = system_.fakes();
        set.devices = &manager_;
        set.tape_functions = &tape_;
        return set;
    }

    test_support::tape_variables_scope variables_;
    device_stack::io_manager manager_;
    device_stack::tape_drives tape_;
    platform::scoped_system scope_;
};

TEST_F(DriveOverLibrary, TellsWhoItIs) {
    const CDriveHandle drive(write_protected);
    EXPECT_EQ(drive.GetDeviceName(), u"Tape2");
    EXPECT_EQ(drive.GetSerialNumber(), u"TRNDRV0003");
    EXPECT_EQ(drive.GetProductName(), u"TARNO VIRTUAL-LTO8");
    EXPECT_EQ(drive.GetScsiAddress().Lun, 3);
    EXPECT_EQ(drive.GetSymbolicLink(), u"\\\\.\\Tape2");
}

TEST_F(DriveOverLibrary, CanBeNamedByItsUnitNumber) {
    gGenerateDriveNameFromAddressNumber = true;
    const CDriveHandle drive(write_protected);
    EXPECT_EQ(drive.GetDeviceName(), u"Tape003");
    EXPECT_EQ(drive.GetSymbolicLink(), u"\\\\.\\Tape003");
    const CDriveHandle same("\\\\.\\Tape003");
    EXPECT_EQ(same.GetSerialNumber(), u"TRNDRV0003");
    EXPECT_EQ(same.GetSymbolicLink(), u"\\\\.\\Tape003");
}

TEST_F(DriveOverLibrary, FindsItsMedium) {
    const boost::shared_ptr<TapeMediaInfo> media = loaded(used)->FindMediaInfo();
    EXPECT_EQ(media->Capacity, 1000 * mebibyte);
    EXPECT_EQ(media->Remaining, 556 * mebibyte);
    EXPECT_EQ(media->WriteProtected, 0);
    EXPECT_EQ(loaded(write_protected)->FindMediaInfo()->WriteProtected, 1);
    EXPECT_THAT(system_.clock.sleeps(), IsEmpty());
}

TEST_F(DriveOverLibrary, WaitsForAMediumThatDoesNotCome) {
    CDriveHandle drive(empty);
    drive.PrepareTape(platform::TAPE_UNLOAD, true);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(drive.FindMediaInfo()); }),
              system_failure("No media in drive.", "No media in drive in '\\\\.\\Tape3'", "0x00000458") +
                  "\n--tr:Timed out waiting for device ready status on FindMediaInfo operation, symLink = \\\\.\\Tape3");
    EXPECT_EQ(system_.clock.sleeps(), pauses(7));
}

TEST_F(DriveOverLibrary, WaitsForADriveThatBecomesReady) {
    const auto drive = loaded(used);
    library_->faults().add(tape_library::faults::drive_not_ready(1, 25'000));
    EXPECT_EQ(drive->FindMediaInfo()->Capacity, 1000 * mebibyte);
    EXPECT_EQ(system_.clock.sleeps(), pauses(3));
}

TEST_F(DriveOverLibrary, ReadsTheCartridgesMemory) {
    for (const bool indirect : {false, true}) {
        if (indirect) {
            set_indirect();
        }
        const auto drive = loaded(used);
        const TapeUsageStatistic usage = drive->ReadUsageStatistic();
        EXPECT_TRUE(usage.valid);
        EXPECT_EQ(usage.lifetime_megabytes_written, 0x123456789u);
        EXPECT_EQ(usage.lifetime_megabytes_read, 9u);
        EXPECT_FALSE(drive->IsWormMedium());
        EXPECT_TRUE(loaded(worm)->IsWormMedium());
    }
}

TEST_F(DriveOverLibrary, HasNoMemoryToReadWithoutACartridge) {
    CDriveHandle drive(empty);
    const std::string refusal =
        " [MT]SCSI PASS THROUGH DIRECT ended with Scsi Error Fixed format, current;  Sense key: Not Ready. "
        "Additional sense: Medium not present";
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { static_cast<void>(drive.IsWormMedium()); }), refusal);
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { static_cast<void>(drive.ReadUsageStatistic()); }), refusal);
}

TEST_F(DriveOverLibrary, TellsItsBlockSizesWithoutACartridge) {
    TapeDriveParameters parameters;
    CDriveHandle(empty).GetDriveParameters(parameters);
    EXPECT_EQ(parameters.MinimumBlockSize, 1u);
    EXPECT_EQ(parameters.MaximumBlockSize, 0x800000u);
}

TEST_F(DriveOverLibrary, ErasesACartridge) {
    for (const std::uint32_t type : {platform::TAPE_ERASE_SHORT, platform::TAPE_ERASE_LONG}) {
        const auto drive = loaded(used);
        drive->EraseTape(type);
        EXPECT_EQ(drive->last_tape_status(), 0u);
        EXPECT_EQ(drive->FindMediaInfo()->Remaining, 1000 * mebibyte);
    }
}

TEST_F(DriveOverLibrary, DoesNotEraseAProtectedCartridge) {
    set_timeout(0);
    const auto drive = loaded(write_protected);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { drive->EraseTape(platform::TAPE_ERASE_SHORT); }),
              system_failure("The media is write protected.", "19", "0x00000013"));
    EXPECT_EQ(drive->last_tape_status(), 19u);
    EXPECT_EQ(system_.clock.sleeps(), pauses(1));
}

TEST_F(DriveOverLibrary, PreventsTheRemovalOfItsCartridge) {
    set_timeout(0);
    const auto drive = loaded(used);
    drive->StorageMediaRemoval(true);
    EXPECT_THROW(drive->PrepareTape(platform::TAPE_UNLOAD, false), exc::win_sys_exc_t);
    drive->StorageMediaRemoval(false);
    drive->PrepareTape(platform::TAPE_UNLOAD, false);
    EXPECT_EQ(drive->GetMediaParameters(), nullptr);
}

TEST_F(DriveOverLibrary, TakesANewCartridgeInItsStride) {
    const auto drive = loaded(used);
    library_->raise(1, tape_library::sense::medium_may_have_changed);
    EXPECT_TRUE(drive->RewindTape());
    library_->raise(1, tape_library::sense::medium_may_have_changed);
    EXPECT_NE(drive->GetMediaParameters(), nullptr);
    library_->raise(1, tape_library::sense::medium_may_have_changed);
    drive->PrepareTape(platform::TAPE_LOAD, false);
    EXPECT_THAT(system_.clock.sleeps(), IsEmpty());
    library_->raise(1, tape_library::sense::medium_may_have_changed);
    EXPECT_FALSE(drive->IsWormMedium());
    EXPECT_EQ(system_.clock.sleeps(), std::vector<std::int64_t>{400});
}

TEST_F(DriveOverLibrary, FailsWithinItsTimeWhenTheDriveIsPulledAndWorksWhenItIsBack) {
    set_timeout(20);
    const auto drive = loaded(used);
    library_->faults().add(tape_library::faults::target_dead());
    const std::vector<std::function<void()>> operations = {
        [&] { static_cast<void>(drive->FindMediaInfo()); },
        [&] { static_cast<void>(drive->GetMediaParameters()); },
        [&] { static_cast<void>(drive->GetProductName()); },
        [&] { static_cast<void>(drive->IsWormMedium()); },
        [&] { static_cast<void>(drive->ReadUsageStatistic()); },
        [&] { drive->StorageMediaRemoval(true); },
        [&] { drive->RewindTape(); },
        [&] { drive->EraseTape(platform::TAPE_ERASE_SHORT); },
        [&] { drive->PrepareTape(platform::TAPE_LOAD, false); },
    };
    for (std::size_t number = 0; number < operations.size(); ++number) {
        system_.clock.forget_sleeps();
        EXPECT_THROW(operations[number](), exc::exc_base_t) << number;
        EXPECT_LE(system_.clock.slept_milliseconds(), 30'000) << number;
    }
    EXPECT_EQ(drive->GetSerialNumber(), u"");
    library_->faults().clear();
    for (std::size_t number = 0; number < operations.size(); ++number) {
        EXPECT_NO_THROW(operations[number]()) << number;
    }
    EXPECT_EQ(drive->GetSerialNumber(), u"TRNDRV0001");
}

}  // namespace
