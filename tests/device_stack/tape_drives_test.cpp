#include "platform/device_stack/tape_drives.h"

#include <gtest/gtest.h>

#include "device_stack/scripted_transport.h"
#include "platform/tape_records.h"
#include "platform/testing/fakes.h"

using namespace platform;
using namespace platform::device_stack;

namespace {

class TapeDrives : public ::testing::Test {
protected:
    TapeDrives() {
        source->add(8, "changer", "LIB", {0, 0, 0, 0});
        source->add(1, "drive", "DRV", {0, 0, 0, 1});
    }

    /// Each tape function on this handle has this status, and leaves it in the last error.
    void expect_all(device_handle device, std::uint32_t status) {
        std::vector<std::uint8_t> record(32);
        std::uint32_t size = 32;
        const auto expect = [&](std::uint32_t got) {
            EXPECT_EQ(got, status);
            EXPECT_EQ(system_.errors.last_error(), status);
            system_.errors.set_last_error(0);
        };
        expect(tapes.get_parameters(device, GET_TAPE_MEDIA_INFORMATION, size, record));
        expect(tapes.get_parameters(device, GET_TAPE_DRIVE_INFORMATION, size, record));
        expect(tapes.prepare(device, TAPE_UNLOAD, true));
        expect(tapes.set_position(device, TAPE_REWIND, 0, 0, false));
        expect(tapes.erase(device, TAPE_ERASE_LONG, false));
        expect(tapes.get_status(device));
    }

    platform::testing::test_system system_;
    std::shared_ptr<scripted_source> source = std::make_shared<scripted_source>();
    io_manager manager{{source}, {}};
    tape_drives tapes{manager};
};

}  // namespace

TEST_F(TapeDrives, KnowNoHandleThatIsNotOpen) {
    expect_all(invalid_device, 6);
    expect_all(0, 6);
    const device_handle drive = manager.open_device("\\\\.\\Tape0");
    ASSERT_NE(drive, invalid_device);
    ASSERT_TRUE(manager.close_device(drive));
    expect_all(drive, 6);
}

TEST_F(TapeDrives, HaveNoWordForADeviceThatIsNoDrive) {
    expect_all(manager.open_device("\\\\.\\Changer0"), 1);
    // Nor for a drive that is reached past its class driver.
    ASSERT_TRUE(manager.define_dos_device(1, "Port", "\\Device\\Scsi\\tarno1Port0Path0Target0Lun1"));
    expect_all(manager.open_device("\\\\.\\Port"), 1);
    EXPECT_TRUE(source->transport->sent.empty());
}

TEST_F(TapeDrives, RefuseParametersThatThereAreNot) {
    const device_handle drive = manager.open_device("\\\\.\\Tape0");
    std::vector<std::uint8_t> record(32);
    std::uint32_t size = 32;
    EXPECT_EQ(tapes.get_parameters(drive, 2, size, record), 87U);
    EXPECT_EQ(system_.errors.last_error(), 87U);
    EXPECT_EQ(tapes.prepare(drive, 6, false), 87U);
    EXPECT_EQ(tapes.erase(drive, 2, false), 87U);
    EXPECT_EQ(tapes.set_position(drive, 4, 0, 0, false), 50U);
    EXPECT_TRUE(source->transport->sent.empty());
}

TEST_F(TapeDrives, ReachADriveByAnyOfItsNames) {
    ASSERT_NE(manager.open_device("\\\\.\\Tape0"), invalid_device);
    ASSERT_TRUE(manager.define_dos_device(1, "Tape001", "\\Device\\Tape0"));
    const device_handle drive = manager.open_device("\\\\.\\Tape001");
    source->transport->check_condition(2, 0x3A, 0);
    EXPECT_EQ(tapes.get_status(drive), 1112U);
    source->transport->answer();
    EXPECT_EQ(tapes.get_status(drive), 0U);
}
