#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>

#include "foundation/text/unicode.h"
#include "foundation/util/bytes.h"
#include "platform/device_stack/changer_database.h"
#include "platform/device_stack/io_manager.h"
#include "platform/linux/registry.h"
#include "platform/linux/settings_tree.h"
#include "platform/scsi_records.h"
#include "platform/testing/fakes.h"
#include "platform/virtual_library/create_library.h"
#include "platform/virtual_library/virtual_library_source.h"

/// The device map as the registry shows it, over more drives than one library has ever had.
namespace {

using namespace platform;
using namespace platform::device_stack;

/// One leaf: the names of its four levels below the root, and its values.
struct leaf {
    std::vector<std::string> levels;
    std::map<std::string, std::string> values;
};

class DeviceMap : public ::testing::Test {
protected:
    void SetUp() override {
        tape_library::create_library(u"big", {.slots = 4, .drives = 200, .cartridges = 4, .serial = "BIG", .drive_serial = "DRV"});
        tape_library::create_library(u"small",
                                     {.slots = 4, .drives = 2, .cartridges = 4, .serial = "SMALL", .drive_serial = "SML"});
        const std::vector<std::u16string> folders = {u"big", u"small"};
        manager = std::make_unique<io_manager>(
            std::vector<std::shared_ptr<scsi_source>>{std::make_shared<tape_library::virtual_library_source>(folders)},
            std::vector<std::string>{"SMALL"});
        registry.set_device_map([this] { return manager->device_map(); });
        walk("HARDWARE\\DEVICEMAP\\Scsi", {});
    }

    void walk(const std::string& path, const std::vector<std::string>& levels) {
        registry_key key{};
        ASSERT_EQ(registry.open_key(text::unicode::decode_utf8_lenient(path), registry_access::read, key), 0U) << path;
        std::vector<std::string> names;
        std::u16string name;
        for (std::uint32_t index = 0; registry.enumerate_subkey(key, index, name) == 0; ++index) {
            names.push_back(text::unicode::encode_utf8(name));
        }
        if (names.empty()) {
            leaves.push_back({levels, values_of(key)});
        }
        for (const std::string& child : names) {
            std::vector<std::string> further = levels;
            further.push_back(child);
            walk(path + "\\" + child, further);
        }
        registry.close_key(key);
    }

    std::map<std::string, std::string> values_of(registry_key key) {
        std::map<std::string, std::string> values;
        for (const char16_t* const name : {u"Type", u"DeviceName", u"SerialNumber"}) {
            linux_os::settings_value value;
            if (registry.query_value(key, name, value.type, value.data) == 0) {
                EXPECT_EQ(value.type, registry_type::string);
                values[text::unicode::encode_utf8(name)] = text::unicode::encode_utf8(linux_os::value_text(value));
            }
        }
        return values;
    }

    SCSI_ADDRESS address_of(const std::string& link) {
        SCSI_ADDRESS address;
        std::uint32_t returned = 0;
        const device_handle device = manager->open_device(link);
        EXPECT_NE(device, invalid_device) << link;
        EXPECT_TRUE(manager->control(device, ioctl::scsi_get_address, {}, util::writable_bytes(address), returned)) << link;
        EXPECT_TRUE(manager->close_device(device));
        return address;
    }

    platform::testing::test_system system_;
    linux_os::linux_registry registry{linux_os::linux_registry::options{"", false, ""}};
    std::unique_ptr<io_manager> manager;
    std::vector<leaf> leaves;
};

}  // namespace

TEST_F(DeviceMap, GivesTwoHundredDrivesAnAddressAndANameEach) {
    ASSERT_EQ(leaves.size(), 204U);
    std::set<std::string> names;
    std::set<std::vector<std::string>> addresses;
    std::set<std::string> serials;
    for (const leaf& one : leaves) {
        ASSERT_EQ(one.levels.size(), 4U);
        addresses.insert(one.levels);
        serials.insert(one.values.at("SerialNumber"));
        if (one.values.at("Type") == "TapePeripheral") {
            names.insert(one.values.at("DeviceName"));
        } else {
            EXPECT_EQ(one.values.at("Type"), "MediumChangerPeripheral");
        }
    }
    EXPECT_EQ(addresses.size(), 204U);
    EXPECT_EQ(serials.size(), 204U);
    EXPECT_EQ(names.size(), 202U);
    EXPECT_TRUE(names.contains("Tape0"));
    EXPECT_TRUE(names.contains("Tape201"));
    EXPECT_TRUE(serials.contains("DRV0200"));
}

TEST_F(DeviceMap, StandsInTheOrderOfTheAddressesNumbers) {
    EXPECT_EQ(leaves[0].levels, (std::vector<std::string>{"Scsi Port 0", "Scsi Bus 0", "Target Id 0", "Logical Unit Id 0"}));
    EXPECT_EQ(leaves[0].values.at("SerialNumber"), "BIG");
    for (std::size_t drive = 1; drive <= 200; ++drive) {
        EXPECT_EQ(leaves[drive].levels.back(), "Logical Unit Id " + std::to_string(drive));
        EXPECT_EQ(leaves[drive].values.at("DeviceName"), "Tape" + std::to_string(drive - 1));
    }
    EXPECT_EQ(leaves[202].levels[2], "Target Id 1");
    EXPECT_EQ(leaves[203].values.at("DeviceName"), "Tape201");
}

TEST_F(DeviceMap, TellsTheAddressThatTheDriveTells) {
    for (const leaf& one : leaves) {
        if (!one.values.contains("DeviceName")) {
            continue;
        }
        const SCSI_ADDRESS address = address_of("\\\\.\\" + one.values.at("DeviceName"));
        EXPECT_EQ(one.levels,
                  (std::vector<std::string>{
                      "Scsi Port " + std::to_string(address.PortNumber), "Scsi Bus " + std::to_string(address.PathId),
                      "Target Id " + std::to_string(address.TargetId), "Logical Unit Id " + std::to_string(address.Lun)}));
    }
}

TEST_F(DeviceMap, ShowsAChangerWithoutADriverWithoutAName) {
    EXPECT_EQ(leaves[201].values.at("SerialNumber"), "SMALL");
    EXPECT_EQ(leaves[201].values.at("Type"), "MediumChangerPeripheral");
    EXPECT_FALSE(leaves[201].values.contains("DeviceName"));
    changer_database database(*manager);
    const auto nodes = database.medium_changers();
    ASSERT_EQ(nodes.size(), 2U);
    EXPECT_GT(nodes[0].service_size, 0U);
    EXPECT_EQ(nodes[1].service_size, 0U);
    EXPECT_EQ(nodes[1].object_name, u"\\Device\\Scsi\\tarno1Port0Path0Target1Lun0");
}

TEST_F(DeviceMap, LetsADriveBeReachedByANameFromItsLogicalUnit) {
    for (const std::uint8_t lun : {std::uint8_t{1}, std::uint8_t{200}}) {
        const std::string drive = "Tape" + std::to_string(lun - 1);
        const std::string alias = "Tape00" + std::to_string(lun);
        std::string target;
        EXPECT_FALSE(manager->query_dos_device(alias, target));
        ASSERT_TRUE(manager->query_dos_device(drive, target));
        ASSERT_TRUE(manager->define_dos_device(dos_device::raw_target_path, alias, target));
        EXPECT_EQ(address_of("\\\\.\\" + alias).Lun, lun);
        // Pointed elsewhere, and taken away.
        ASSERT_TRUE(manager->define_dos_device(3, alias, ""));
        ASSERT_TRUE(manager->define_dos_device(dos_device::raw_target_path, alias, "\\Device\\Tape7"));
        EXPECT_EQ(address_of("\\\\.\\" + alias).Lun, 8);
        ASSERT_TRUE(manager->define_dos_device(3, alias, ""));
        EXPECT_EQ(manager->open_device("\\\\.\\" + alias), invalid_device);
    }
}
