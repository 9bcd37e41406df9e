#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <memory>
#include <string>
#include <vector>

#include "changer/changer_interface.h"
#include "changer/tape_variables.h"
#include "drive/device_enumerator.h"
#include "platform/device_stack/changer_database.h"
#include "platform/device_stack/io_manager.h"
#include "platform/linux/linux_settings.h"
#include "platform/linux/registry.h"
#include "platform/testing/fakes.h"
#include "platform/virtual_library/create_library.h"
#include "platform/virtual_library/virtual_library_source.h"
#include "support/temporary_folder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace device_stack = platform::device_stack;
namespace tape_library = platform::tape_library;

const std::string settings_head =
    "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Backup Tape\\Devices]\n";

/// The enumeration over two virtual libraries, each of one changer and two drives, through the device map that the registry
/// makes of the devices: no part is scripted.
class EnumerationOverDevices : public ::testing::Test {
protected:
    void TearDown() override {
        gForbiddenSerialNames.clear();
        gEnableScsiChanger = false;
    }

    void start(const std::string& settings = "") {
        const std::string file = folder_.put("settings.reg", settings_head + settings);
        registry_ = std::make_unique<platform::linux_os::linux_registry>(
            platform::linux_os::linux_registry::options{file, true, std::string()});
        const platform::linux_os::linux_settings read = platform::linux_os::read_linux_settings(*registry_, file);
        tape_library::create_library(u"first", {.serial = "FIRST", .drive_serial = "ONE"});
        tape_library::create_library(u"second", {.serial = "SECOND", .drive_serial = "TWO"});
        const std::vector<std::u16string> folders = {u"first", u"second"};
        const auto source = std::make_shared<tape_library::virtual_library_source>(folders);
        manager_ = std::make_unique<device_stack::io_manager>(std::vector<std::shared_ptr<device_stack::scsi_source>>{source},
                                                              read.without_driver);
        database_ = std::make_unique<device_stack::changer_database>(*manager_);
        registry_->set_device_map([this] { return manager_->device_map(); });
        platform::system_set set = system_.fakes();
        set.devices = manager_.get();
        set.plug_and_play = database_.get();
        set.registry = registry_.get();
        scope_ = std::make_unique<platform::scoped_system>(set);
    }
    static boost::shared_ptr<IChangerHandle> open(const std::string& link, bool by_scsi) {
        return CreateChangerHandle(link, by_scsi, boost::make_shared<boost::mutex>());
    }

    test_support::temporary_folder folder_;
    platform::testing::test_system system_;
    std::unique_ptr<platform::linux_os::linux_registry> registry_;
    std::unique_ptr<device_stack::io_manager> manager_;
    std::unique_ptr<device_stack::changer_database> database_;
    std::unique_ptr<platform::scoped_system> scope_;
};

TEST_F(EnumerationOverDevices, FindsWhatCanBeOpened) {
    start();
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), ElementsAre("\\\\.\\Tape0", "\\\\.\\Tape1", "\\\\.\\Tape2", "\\\\.\\Tape3"));
    const std::vector<std::string> changers = CDeviceEnumerator::FindMediumChangers(true);
    EXPECT_THAT(changers, ElementsAre("\\\\.\\Changer0", "\\\\.\\Changer1"));
    EXPECT_EQ(open(changers[0], false)->GetSerialNumber(), u"FIRST");
    EXPECT_EQ(open(changers[1], true)->GetSerialNumber(), u"SECOND");
    for (const std::string& drive : CDeviceEnumerator::FindTapeDrives()) {
        const platform::device_handle opened = manager_->open_device(drive);
        EXPECT_NE(opened, platform::invalid_device) << drive;
        EXPECT_TRUE(manager_->close_device(opened));
    }
}

TEST_F(EnumerationOverDevices, FindsNothingWithoutDevices) {
    start();
    registry_->set_device_map([] { return std::vector<device_stack::device_map_leaf>{}; });
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), IsEmpty());
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(false), IsEmpty());
}

TEST_F(EnumerationOverDevices, HidesTheForbiddenSerialNumbers) {
    start();
    gForbiddenSerialNames = {u"ONE0002", u"SECOND", u"two0001"};
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), ElementsAre("\\\\.\\Tape0", "\\\\.\\Tape2", "\\\\.\\Tape3"));
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(false), ElementsAre("\\\\.\\Changer0"));
}

TEST_F(EnumerationOverDevices, FindsAChangerWithoutDriverUnderANameOfItsOwn) {
    start("\"WithoutDriver\"=\"FIRST\"\n");
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(false), ElementsAre("\\\\.\\Changer0"));
    const std::vector<std::string> all = CDeviceEnumerator::FindMediumChangers(true);
    EXPECT_THAT(all, ElementsAre("\\\\.\\Changer0", "\\\\.\\unknownChanger00"));
    EXPECT_EQ(open(all[0], true)->GetSerialNumber(), u"SECOND");
    gEnableScsiChanger = true;
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(false), ElementsAre("\\\\.\\Changer0", "\\\\.\\unknownChanger00"));
}

TEST_F(EnumerationOverDevices, MovesCartridgesInAChangerWithoutDriver) {
    start("\"WithoutDriver\"=\"FIRST; SECOND\"\n");
    const std::vector<std::string> all = CDeviceEnumerator::FindMediumChangers(true);
    ASSERT_THAT(all, ElementsAre("\\\\.\\unknownChanger00", "\\\\.\\unknownChanger01"));
    const auto changer = open(all[1], true);
    EXPECT_EQ(changer->GetSerialNumber(), u"SECOND");
    EXPECT_EQ(changer->GetDeviceName(), u"Changer101");
    changer->LoadMedium(0, 1);
    EXPECT_EQ(changer->GetElementStatus(0, ChangerSlot, true, 1)->front().Flags & platform::ELEMENT_STATUS_FULL, 0u);
    EXPECT_EQ(changer->GetElementStatus(1, ChangerDrive, true, 1)->front().Flags & platform::ELEMENT_STATUS_FULL, 1u);
    changer->UnloadMedium(1, 0);
    EXPECT_EQ(changer->GetElementStatus(0, ChangerSlot, true, 1)->front().Flags & platform::ELEMENT_STATUS_FULL, 1u);
    // The class driver's requests mean nothing to the port that such a name leads to.
    const auto by_driver = open(all[0], false);
    EXPECT_THROW(static_cast<void>(by_driver->GetParameters()), std::exception);
}

}  // namespace
