#include "drive/device_enumerator.h"

#include <gtest/gtest.h>

#include "changer/tape_variables.h"
#include "foundation/exc/exceptions.h"
#include "platform/devices.h"
#include "platform/errors.h"
#include "platform/system.h"
#include "platform/testing/fakes.h"
#include "support/devices_in_front.h"

namespace {

using platform::testing::device_request;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string root = "HARDWARE\\DEVICEMAP\\Scsi";

class DeviceEnumerator : public ::testing::Test {
protected:
    void SetUp() override { system.registry.add_key(root); }
    void TearDown() override {
        gForbiddenSerialNames.clear();
        gEnableScsiChanger = false;
        gOldDeviceEnumerate = false;
    }

    static std::string leaf(int port, int lun) {
        return root + "\\Scsi Port " + std::to_string(port) + "\\Scsi Bus 0\\Target Id 0\\Logical Unit Id " + std::to_string(lun);
    }
    void add(const std::string& path, const std::string& type, const std::string& name, const std::string& serial = "") {
        system.registry.set_string(path, "Type", type);
        system.registry.set_string(path, "DeviceName", name);
        system.registry.set_string(path, "SerialNumber", serial);
    }
    void add_changer_node(std::u16string object, std::uint32_t service_size = 0,
                          std::optional<std::uint32_t> problem = std::uint32_t{0}, bool detail_known = true) {
        nodes.push_back({detail_known, problem, service_size, std::move(object)});
        system.plug_and_play.set_nodes(nodes);
    }

    platform::testing::test_system system;
    std::vector<platform::changer_node> nodes;
};

TEST_F(DeviceEnumerator, FindsNothingOnAMachineWithoutDrives) {
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), IsEmpty());
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

TEST_F(DeviceEnumerator, FindsDevicesByTypeInTheRegistrysOrder) {
    add(leaf(2, 0), "TapePeripheral", "Tape1");
    add(leaf(1, 0), "MediumChangerPeripheral", "Changer0");
    add(leaf(1, 1), "TapePeripheral", "Tape0");
    add(leaf(1, 2), "DiskPeripheral", "Disk0");
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), ElementsAre("\\\\.\\Tape0", "\\\\.\\Tape1"));
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(true), ElementsAre("\\\\.\\Changer0"));
    EXPECT_THAT(CDeviceEnumerator::FindDevicesByPeripheralType("DiskPeripheral", true), ElementsAre("\\\\.\\Disk0"));
    EXPECT_EQ(system.registry.open_keys(), 0u);
}

TEST_F(DeviceEnumerator, GivesALinkOnce) {
    add(leaf(0, 0), "TapePeripheral", "Tape0");
    add(leaf(0, 1), "TapePeripheral", "Tape1");
    add(leaf(1, 0), "TapePeripheral", "Tape0");
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), ElementsAre("\\\\.\\Tape0", "\\\\.\\Tape1"));
}

TEST_F(DeviceEnumerator, PrefersTheValueDeviceType) {
    add(leaf(0, 0), "TapePeripheral", "Tape0");
    system.registry.set_string(leaf(0, 0), "DeviceType", "");
    add(leaf(0, 1), "TapePeripheral", "Tape1");
    system.registry.set_string(leaf(0, 1), "DeviceType", "DiskPeripheral");
    system.registry.set_string(leaf(0, 2), "DeviceType", "TapePeripheral");
    system.registry.set_string(leaf(0, 2), "DeviceName", "Tape2");
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), ElementsAre("\\\\.\\Tape0", "\\\\.\\Tape2"));
}

TEST_F(DeviceEnumerator, ComparesTypesWithTheirCase) {
    add(leaf(0, 0), "tapeperipheral", "Tape0");
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), IsEmpty());
}

TEST_F(DeviceEnumerator, ComparesKeyPrefixesWithoutTheirCase) {
    const std::string path = root + "\\SCSI PORT 7\\scsi bus 0\\Target ID 0\\logical UNIT id 0";
    add(path, "TapePeripheral", "Tape0");
    add(root + "\\Other 0\\Scsi Bus 0\\Target Id 0\\Logical Unit Id 0", "TapePeripheral", "Tape1");
    add(root + "\\Scsi\\Scsi Bus 0\\Target Id 0\\Logical Unit Id 0", "TapePeripheral", "Tape2");
    add(root + "\\Scsi Port 8\\Initiator Id 7\\Target Id 0\\Logical Unit Id 0", "TapePeripheral", "Tape3");
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), ElementsAre("\\\\.\\Tape0"));
}

TEST_F(DeviceEnumerator, LeavesDevicesWithoutANameOut) {
    add(leaf(0, 0), "MediumChangerPeripheral", "");
    system.registry.set_string(leaf(0, 1), "Type", "MediumChangerPeripheral");
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(false), IsEmpty());
}

TEST_F(DeviceEnumerator, LeavesForbiddenSerialNumbersOut) {
    gForbiddenSerialNames = {u"BAD1", u"bad2"};
    add(leaf(0, 0), "TapePeripheral", "Tape0", "BAD1");
    add(leaf(0, 1), "TapePeripheral", "Tape1", "BAD2");
    add(leaf(0, 2), "TapePeripheral", "Tape2", "GOOD");
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), ElementsAre("\\\\.\\Tape1", "\\\\.\\Tape2"));
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

TEST_F(DeviceEnumerator, LeavesDevicesWithoutSerialNumberOutWhenTheEmptyTextIsForbidden) {
    gForbiddenSerialNames = {u""};
    add(leaf(0, 0), "TapePeripheral", "Tape0");
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), IsEmpty());
}

TEST_F(DeviceEnumerator, FindsTheSameWithTheOldStyleSetting) {
    add(leaf(0, 0), "TapePeripheral", "Tape0");
    gOldDeviceEnumerate = true;
    EXPECT_THAT(CDeviceEnumerator::FindTapeDrives(), ElementsAre("\\\\.\\Tape0"));
}

TEST_F(DeviceEnumerator, PassesFailuresOfTheRegistryOn) {
    add(leaf(0, 0), "TapePeripheral", "Tape0");
    system.registry.set_dword(leaf(0, 1), "DeviceType", 1);
    try {
        static_cast<void>(CDeviceEnumerator::FindTapeDrives());
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_NE(std::string(e.what()).find("Unexpected registry type: [4]."), std::string::npos);
    }
    EXPECT_EQ(system.registry.open_keys(), 0u);
}

TEST_F(DeviceEnumerator, FailsWithoutADeviceMap) {
    system.registry.remove_key(root);
    try {
        static_cast<void>(CDeviceEnumerator::FindTapeDrives());
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.code(), 2u);
        EXPECT_EQ(e.messages().at(1).text, "Failed to open subkey. Path: [HARDWARE\\DEVICEMAP\\Scsi].");
    }
}

// --- changers without a driver ---

TEST_F(DeviceEnumerator, LooksForDriverlessChangersWhenAskedOrSet) {
    system.devices.add_object("\\Device\\0000001a");
    add_changer_node(u"\\Device\\0000001a");
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(false), IsEmpty());
    EXPECT_THAT(system.log.lines(), ElementsAre("tap| Work with drivers."));
    system.log.clear();
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(true), ElementsAre("\\\\.\\unknownChanger00"));
    EXPECT_THAT(system.log.lines(), IsEmpty());
    gEnableScsiChanger = true;
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(false), ElementsAre("\\\\.\\unknownChanger00"));
    EXPECT_THAT(system.log.lines(), ElementsAre("tap| Work without drivers.", "tap| Find unknown device = unknownChanger00"));
    EXPECT_NE(platform::system().devices->open_device("\\\\.\\unknownChanger00"), platform::invalid_device);
}

TEST_F(DeviceEnumerator, DoesNotLookForThemAmongDrives) {
    add_changer_node(u"\\Device\\A");
    gEnableScsiChanger = true;
    EXPECT_THAT(CDeviceEnumerator::FindDevicesByPeripheralType("TapePeripheral", true), IsEmpty());
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

TEST_F(DeviceEnumerator, PutsThemBehindTheMapsChangers) {
    add(leaf(0, 0), "MediumChangerPeripheral", "Changer0");
    add_changer_node(u"\\Device\\A");
    add_changer_node(u"\\Device\\B");
    EXPECT_THAT(CDeviceEnumerator::FindMediumChangers(true),
                ElementsAre("\\\\.\\Changer0", "\\\\.\\unknownChanger00", "\\\\.\\unknownChanger01"));
}

TEST_F(DeviceEnumerator, TakesHealthyNodesWithoutServiceOnly) {
    add_changer_node(u"\\Device\\Served", 16);
    add_changer_node(u"\\Device\\Broken", 0, 28);
    add_changer_node(u"\\Device\\Unreadable", 0, std::nullopt);
    add_changer_node(u"\\Device\\Unknown", 0, std::nullopt, false);
    add_changer_node(u"\\Device\\Healthy");
    std::vector<std::string> links = {"before"};
    CDeviceEnumerator::FindDriverlessChangers(links);
    EXPECT_THAT(links, ElementsAre("before", "\\\\.\\unknownChanger00", "\\\\.\\unknownChanger01"));
    std::string target;
    ASSERT_TRUE(system.devices.query_dos_device("unknownChanger00", target));
    EXPECT_EQ(target, "\\Device\\Unknown");
    ASSERT_TRUE(system.devices.query_dos_device("unknownChanger01", target));
    EXPECT_EQ(target, "\\Device\\Healthy");
}

// --- names ---

class DeviceLink : public ::testing::Test {
protected:
    struct definition {
        std::uint32_t flags = 0;
        std::string name;
        std::string target;
        bool operator==(const definition&) const = default;
    };
    std::vector<definition> definitions() {
        std::vector<definition> all;
        for (const device_request& request : system.devices.requests(device_request::kind::define_dos_device)) {
            all.push_back({request.code, request.name, request.target});
        }
        return all;
    }

    platform::testing::test_system system;
};

TEST_F(DeviceLink, IsMade) {
    EXPECT_EQ(CDeviceEnumerator::DefineDeviceLink("\\Device\\Tape7", "Tape00", 3), "\\\\.\\Tape003");
    EXPECT_THAT(definitions(), ElementsAre(definition{1, "Tape003", "\\Device\\Tape7"}));
    EXPECT_THAT(system.log.lines(), IsEmpty());
}

TEST_F(DeviceLink, IsLeftWhenItStandsAlready) {
    system.devices.set_dos_device("Tape003", "\\Device\\Tape7");
    EXPECT_EQ(CDeviceEnumerator::DefineDeviceLink("\\Device\\Tape7", "Tape00", 3), "\\\\.\\Tape003");
    EXPECT_THAT(definitions(), IsEmpty());
    EXPECT_THAT(system.log.lines(), ElementsAre("tap| Find unknown device = Tape003"));
}

TEST_F(DeviceLink, IsTurnedToAnotherTarget) {
    system.devices.set_dos_device("Tape003", "\\Device\\Tape7");
    EXPECT_EQ(CDeviceEnumerator::DefineDeviceLink("\\Device\\tape7", "Tape00", 3), "\\\\.\\Tape003");
    EXPECT_THAT(definitions(), ElementsAre(definition{3, "Tape003", ""}, definition{1, "Tape003", "\\Device\\tape7"}));
    std::string target;
    ASSERT_TRUE(system.devices.query_dos_device("Tape003", target));
    EXPECT_EQ(target, "\\Device\\tape7");
}

/// Fakes that keep every definition: none can be removed.
class lasting_names final : public test_support::devices_in_front {
public:
    using devices_in_front::devices_in_front;

    bool define_dos_device(std::uint32_t flags, const std::string& name, const std::string& target) override {
        if ((flags & platform::dos_device::remove_definition) != 0) {
            platform::system().errors->set_last_error(5);
            return false;
        }
        return devices_in_front::define_dos_device(flags, name, target);
    }
};

TEST_F(DeviceLink, IsDefinedAnewEvenWhenTheOldOneStays) {
    system.devices.set_dos_device("Tape003", "\\Device\\Tape7");
    lasting_names lasting(system.devices);
    platform::system_set set = platform::system();
    set.devices = &lasting;
    const platform::scoped_system scope(set);
    EXPECT_EQ(CDeviceEnumerator::DefineDeviceLink("\\Device\\Tape8", "Tape00", 3), "\\\\.\\Tape003");
    EXPECT_THAT(system.log.lines(), ElementsAre("tap| ERR |Cannot delete Tape003, with error Access is denied."));
    std::string target;
    ASSERT_TRUE(system.devices.query_dos_device("Tape003", target));
    EXPECT_EQ(target, "\\Device\\Tape8");
}

TEST_F(DeviceLink, AFailedDefinitionIsAFailureWhateverBecameOfTheOldOne) {
    system.devices.set_dos_device("Tape003", "\\Device\\Tape7");
    system.devices.fail_define(5);
    try {
        static_cast<void>(CDeviceEnumerator::DefineDeviceLink("\\Device\\Tape8", "Tape00", 3));
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(e.code(), 5u);
        EXPECT_EQ(e.messages().at(1).text, "Problem with adding \\Device\\Tape8 to Tape003 with error Access is denied.");
    }
    EXPECT_THAT(system.log.lines(), ElementsAre("tap| ERR |Cannot delete Tape003, with error Access is denied."));
    EXPECT_THAT(definitions(), ElementsAre(definition{3, "Tape003", ""}, definition{1, "Tape003", "\\Device\\Tape8"}));
}

}  // namespace
