#include "platform/linux/registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "foundation/text/unicode.h"
#include "platform/errors.h"
#include "platform/linux/settings_file.h"
#include "support/source_folder.h"
#include "support/temporary_folder.h"

namespace {

using namespace platform;
using namespace platform::linux_os;
using device_stack::device_map_leaf;

const std::string head = "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Key]\n";
const std::u16string key_path = u"SOFTWARE\\Key";

class LinuxRegistry : public ::testing::Test {
protected:
    linux_registry::options options(bool required = false) { return {folder_ / "settings.reg", required, folder_ / "state"}; }

    static std::string text(linux_registry& from, const std::u16string& path, const std::u16string& name) {
        registry_key key = 0;
        settings_value value;
        if (from.open_key(path, registry_access::read, key) != 0) {
            return "(no key)";
        }
        const std::uint32_t result = from.query_value(key, name, value.type, value.data);
        from.close_key(key);
        return result == 0 ? text::unicode::encode_utf8(value_text(value)) : "(no value)";
    }
    static std::uint32_t store(linux_registry& to, const std::u16string& path, const std::u16string& name,
                               const std::u16string& text) {
        registry_key key = 0;
        if (const std::uint32_t refused = to.create_key(path, registry_access::write, key)) {
            return refused;
        }
        const std::uint32_t result = to.set_value(key, name, registry_type::string, text_value(registry_type::string, text).data);
        to.close_key(key);
        return result;
    }
    static std::vector<std::string> subkeys(linux_registry& from, const std::u16string& path) {
        std::vector<std::string> names;
        registry_key key = 0;
        EXPECT_EQ(from.open_key(path, registry_access::read, key), 0U);
        std::u16string name;
        for (std::uint32_t index = 0; from.enumerate_subkey(key, index, name) == 0; ++index) {
            names.push_back(text::unicode::encode_utf8(name));
        }
        from.close_key(key);
        return names;
    }

    void make_state_folder() { ASSERT_EQ(mkdir((folder_ / "state").c_str(), 0700), 0); }

    test_support::temporary_folder folder_;
};

TEST_F(LinuxRegistry, LaysTheStateOverTheSettings) {
    make_state_folder();
    folder_.put("settings.reg", head + "\"Owner\"=\"from the settings\"\n\"Other\"=\"kept\"\n");
    {
        linux_registry registry(options());
        EXPECT_EQ(text(registry, key_path, u"Owner"), "from the settings");
        EXPECT_EQ(store(registry, key_path, u"owner", u"from the service"), 0U);
        EXPECT_EQ(text(registry, key_path, u"Owner"), "from the service");
        EXPECT_EQ(text(registry, key_path, u"Other"), "kept");
    }
    linux_registry again(options());
    EXPECT_EQ(text(again, key_path, u"Owner"), "from the service");
    EXPECT_EQ(folder_.content("settings.reg"), head + "\"Owner\"=\"from the settings\"\n\"Other\"=\"kept\"\n");
    EXPECT_EQ(folder_.content("state/state.reg"),
              "Windows Registry Editor Version 5.00\r\n"
              "\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE]\r\n"
              "\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Key]\r\n"
              "\"owner\"=\"from the service\"\r\n");
    EXPECT_EQ(std::filesystem::exists(folder_ / "state/state.reg.new"), false);
    struct stat status {};
    ASSERT_EQ(stat((folder_ / "state/state.reg").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(LinuxRegistry, UnitesTheSubkeysOfBothFiles) {
    make_state_folder();
    folder_.put("settings.reg", head + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Key\\b]\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Key\\A 10]\n");
    linux_registry registry(options());
    EXPECT_EQ(store(registry, key_path + u"\\a 9", u"v", u""), 0U);
    EXPECT_EQ(store(registry, key_path + u"\\B", u"v", u""), 0U);
    EXPECT_THAT(subkeys(registry, key_path), testing::SizeIs(3));
    EXPECT_THAT(subkeys(registry, key_path).front(), "a 9");
    EXPECT_THAT(subkeys(registry, u""), testing::ElementsAre("HARDWARE", "SOFTWARE"));
}

TEST_F(LinuxRegistry, StopsAtAFileThatItCantRead) {
    folder_.put("settings.reg", head + "\"Owner\"=nonsense\n");
    try {
        linux_registry registry(options());
        FAIL() << "a broken file was taken";
    } catch (const settings_error& e) {
        EXPECT_EQ(e.file(), folder_ / "settings.reg");
        EXPECT_EQ(e.line(), 4U);
        EXPECT_EQ(e.reason(), "The data 'nonsense' is neither a string in quotes nor dword:, hex:, hex(...): or -.");
    }
}

TEST_F(LinuxRegistry, StopsAtABrokenStateFile) {
    make_state_folder();
    folder_.put("state/state.reg", "half a fi");
    EXPECT_THROW(linux_registry{options()}, settings_error);
}

TEST_F(LinuxRegistry, MindsAnAbsentFileOnlyWhenItWasNamed) {
    linux_registry registry(options());
    EXPECT_EQ(text(registry, key_path, u"Owner"), "(no key)");
    try {
        linux_registry named(options(true));
        FAIL() << "an absent file was taken";
    } catch (const settings_error& e) {
        EXPECT_EQ(std::string(e.what()), (folder_ / "settings.reg") + ": There is no such file.");
    }
    ASSERT_EQ(mkdir((folder_ / "settings.reg").c_str(), 0700), 0);
    EXPECT_THROW(linux_registry{options()}, settings_error);
}

TEST_F(LinuxRegistry, RefusesKeysInTheDeviceMapsPlace) {
    folder_.put("settings.reg", head + "[HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap]\n");
    try {
        linux_registry registry(options());
        FAIL() << "device keys were taken";
    } catch (const settings_error& e) {
        EXPECT_EQ(e.line(), 4U);
        EXPECT_EQ(e.reason(), "Keys below HARDWARE are made from the devices; a file can't set them.");
    }
}

TEST_F(LinuxRegistry, ReadsAnUnchangedFileOnce) {
    // A file that has lain unchanged since the tree was checked out.
    const std::string file = test_support::source_folder() / "examples/virtual-library.reg";
    linux_registry registry(linux_registry::options{file, true, ""});
    for (int look = 0; look < 1000; ++look) {
        ASSERT_EQ(text(registry, u"SOFTWARE\\Tarno\\Tarno Backup Tape\\Devices", u"VirtualLibrary"), "library-24");
    }
    EXPECT_EQ(registry.settings_loads(), 1U);
}

TEST_F(LinuxRegistry, FollowsChangesOfTheFile) {
    folder_.put("settings.reg", head + "\"Portion\"=\"one\"\n");
    linux_registry registry(options());
    registry_key key = 0;
    ASSERT_EQ(registry.open_key(key_path, registry_access::read, key), 0U);
    folder_.put("settings.reg", head + "\"Portion\"=\"two\"\n");
    settings_value value;
    EXPECT_EQ(registry.query_value(key, u"Portion", value.type, value.data), 0U);
    EXPECT_EQ(value_text(value), u"two");
    folder_.put("settings.reg", "Windows Registry Editor Version 5.00\n");
    EXPECT_EQ(registry.query_value(key, u"Portion", value.type, value.data), 1018U);
    folder_.put("new", head + "\"Portion\"=\"three\"\n");
    std::filesystem::rename(folder_ / "new", folder_ / "settings.reg");
    EXPECT_EQ(registry.query_value(key, u"Portion", value.type, value.data), 0U);
    EXPECT_EQ(value_text(value), u"three");
}

TEST_F(LinuxRegistry, KeepsTheLastGoodContentAndWarnsOnce) {
    folder_.put("settings.reg", head + "\"Portion\"=\"good\"\n");
    linux_registry registry(options());
    std::vector<std::string> warnings;
    registry.set_warning_handler([&](const std::string& warning) { warnings.push_back(warning); });
    folder_.put("settings.reg", head + "\"Portion\"=broken\n");
    EXPECT_EQ(text(registry, key_path, u"Portion"), "good");
    EXPECT_EQ(text(registry, key_path, u"Portion"), "good");
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_EQ(warnings[0], (folder_ / "settings.reg") +
                               ":4: The data 'broken' is neither a string in quotes nor dword:, hex:, hex(...): or -."
                               " What was read from the file before stays in force.");
    folder_.put("settings.reg", head + "\"Portion\"=\"repaired\"\n");
    EXPECT_EQ(text(registry, key_path, u"Portion"), "repaired");
    std::filesystem::remove(folder_ / "settings.reg");
    EXPECT_EQ(text(registry, key_path, u"Portion"), "repaired");
    EXPECT_EQ(text(registry, key_path, u"Portion"), "repaired");
    ASSERT_EQ(warnings.size(), 2U);
    EXPECT_EQ(warnings[1], (folder_ / "settings.reg") + ": The file is gone. What was read from it before stays in force.");
}

TEST_F(LinuxRegistry, WarnsOfASecretThatEverybodyCanRead) {
    const std::string devices =
        "Windows Registry Editor Version 5.00\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Backup Tape\\Devices]\n";
    const std::string file = folder_.put("settings.reg", devices + "\"Iscsi\"=\"iscsi://user%secret@host/target\"\n");
    std::vector<std::string> warnings;
    const auto load = [&](mode_t mode) {
        warnings.clear();
        ASSERT_EQ(chmod(file.c_str(), mode), 0);
        linux_registry registry(options());
        registry.set_warning_handler([&](const std::string& warning) { warnings.push_back(warning); });
    };
    load(0644);
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_EQ(warnings[0],
              file +
                  ": The file holds an iSCSI secret and can be read by every user of this machine. Take that right away "
                  "(chmod o-r).");
    EXPECT_EQ(warnings[0].find("secret@"), std::string::npos);
    load(0640);
    EXPECT_TRUE(warnings.empty());
    folder_.put("settings.reg", devices + "\"Iscsi\"=\"iscsi://host/target\"\n");
    load(0644);
    EXPECT_TRUE(warnings.empty());
}

TEST_F(LinuxRegistry, TakesNothingWithoutAStateFolder) {
    linux_registry registry(linux_registry::options{"", false, ""});
    EXPECT_EQ(store(registry, key_path, u"Owner", u"x"), error::access_denied);
    folder_.put("settings.reg", head);
    linux_registry readable(linux_registry::options{folder_ / "settings.reg", true, ""});
    registry_key key = 0;
    EXPECT_EQ(readable.open_key(key_path, registry_access::write, key), error::access_denied);
    EXPECT_EQ(readable.create_key(key_path, registry_access::write, key), error::access_denied);
}

TEST_F(LinuxRegistry, ReportsAStateFolderThatIsGoneAndKeepsTheOldValue) {
    make_state_folder();
    linux_registry registry(options());
    EXPECT_EQ(store(registry, key_path, u"Owner", u"first"), 0U);
    registry_key key = 0;
    ASSERT_EQ(registry.open_key(key_path, registry_access::write, key), 0U);
    std::filesystem::remove_all(folder_ / "state");
    EXPECT_EQ(registry.set_value(key, u"Owner", registry_type::string, text_value(registry_type::string, u"second").data),
              error::file_not_found);
    EXPECT_EQ(text(registry, key_path, u"Owner"), "first");
}

TEST_F(LinuxRegistry, RefusesNamesThatTheFileCantHold) {
    make_state_folder();
    linux_registry registry(options());
    EXPECT_EQ(store(registry, key_path, u"two\nlines", u"x"), error::invalid_parameter);
    EXPECT_EQ(store(registry, u"SOFTWARE\\a\rb", u"v", u"x"), error::invalid_parameter);
    EXPECT_EQ(store(registry, u"SOFTWARE\\" + std::u16string(256, u'k'), u"v", u"x"), error::invalid_parameter);
    EXPECT_EQ(store(registry, u"SOFTWARE\\a] ;b", u"v", u"x"), error::invalid_parameter);
    EXPECT_EQ(store(registry, key_path, std::u16string(1, 0xDC00), u"x"), error::invalid_parameter);
    EXPECT_EQ(store(registry, u"", u"v", u"x"), error::invalid_parameter);
}

TEST_F(LinuxRegistry, SharesTheStateWithAnotherProcessesRegistry) {
    make_state_folder();
    linux_registry one(options());
    linux_registry two(options());
    EXPECT_EQ(store(one, key_path, u"A", u"by one"), 0U);
    EXPECT_EQ(store(two, key_path, u"B", u"by two"), 0U);
    EXPECT_EQ(text(one, key_path, u"B"), "by two");
    EXPECT_EQ(text(two, key_path, u"A"), "by one");
}

class DeviceMap : public LinuxRegistry {
protected:
    DeviceMap() : registry_(linux_registry::options{}) {
        registry_.set_device_map([this] {
            ++looks_;
            return leaves_;
        });
    }

    static constexpr const char16_t* root = u"HARDWARE\\DEVICEMAP\\Scsi";
    linux_registry registry_;
    std::vector<device_map_leaf> leaves_;
    int looks_ = 0;
};

TEST_F(DeviceMap, HasAnEmptyRootWithoutDevices) {
    EXPECT_TRUE(subkeys(registry_, root).empty());
    EXPECT_THAT(subkeys(registry_, u"HARDWARE"), testing::ElementsAre("DEVICEMAP"));
    linux_registry without_source(linux_registry::options{});
    EXPECT_TRUE(subkeys(without_source, root).empty());
}

TEST_F(DeviceMap, ShowsEachLeafWithItsValues) {
    leaves_ = {{{0, 0, 10, 0}, "TapePeripheral", "Tape1", "SER 2 "},
               {{0, 0, 2, 1}, "TapePeripheral", "Tape0", "SER1"},
               {{3, 1, 0, 0}, "MediumChangerPeripheral", "", "CHG"}};
    EXPECT_THAT(subkeys(registry_, root), testing::ElementsAre("Scsi Port 0", "Scsi Port 3"));
    EXPECT_THAT(subkeys(registry_, u"hardware\\devicemap\\scsi\\scsi port 0\\Scsi Bus 0"),
                testing::ElementsAre("Target Id 2", "Target Id 10"));
    const std::u16string tape = u"HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port 0\\Scsi Bus 0\\Target Id 10\\Logical Unit Id 0";
    EXPECT_EQ(text(registry_, tape, u"Type"), "TapePeripheral");
    EXPECT_EQ(text(registry_, tape, u"DeviceName"), "Tape1");
    EXPECT_EQ(text(registry_, tape, u"SerialNumber"), "SER 2 ");
    EXPECT_EQ(text(registry_, tape, u"DeviceType"), "(no value)");
    const std::u16string changer = u"HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port 3\\Scsi Bus 1\\Target Id 0\\Logical Unit Id 0";
    EXPECT_EQ(text(registry_, changer, u"Type"), "MediumChangerPeripheral");
    EXPECT_EQ(text(registry_, changer, u"DeviceName"), "(no value)");
}

TEST_F(DeviceMap, LooksAnewAtEachWalkAndOnceWithinOne) {
    leaves_ = {{{0, 0, 0, 0}, "TapePeripheral", "Tape0", "A"}};
    registry_key top = 0;
    ASSERT_EQ(registry_.open_key(root, registry_access::read, top), 0U);
    EXPECT_EQ(looks_, 1);
    leaves_.clear();
    EXPECT_EQ(subkeys(registry_, u"HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port 0").size(), 1U);
    EXPECT_EQ(looks_, 1);
    registry_.close_key(top);
    EXPECT_TRUE(subkeys(registry_, root).empty());
    EXPECT_EQ(looks_, 2);
    registry_key gone = 0;
    EXPECT_EQ(registry_.open_key(u"HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port 0", registry_access::read, gone), error::file_not_found);
}

TEST_F(DeviceMap, AnotherThreadsWalkLeavesAWalkItsLook) {
    const std::u16string port = std::u16string(root) + u"\\Scsi Port 0";
    leaves_ = {{{0, 0, 0, 0}, "TapePeripheral", "Tape0", "A"}};
    registry_key top = 0;
    ASSERT_EQ(registry_.open_key(root, registry_access::read, top), 0U);
    leaves_ = {{{1, 0, 0, 0}, "TapePeripheral", "Tape1", "B"}};
    registry_key other_top = 0;
    std::thread([&] {
        EXPECT_EQ(registry_.open_key(root, registry_access::read, other_top), 0U);
        EXPECT_EQ(subkeys(registry_, std::u16string(root) + u"\\Scsi Port 1").size(), 1U);
    }).join();
    EXPECT_EQ(looks_, 2);
    EXPECT_EQ(subkeys(registry_, port).size(), 1U);
    registry_.close_key(other_top);
    EXPECT_EQ(subkeys(registry_, port + u"\\Scsi Bus 0").size(), 1U);
    EXPECT_EQ(looks_, 2);
    registry_.close_key(top);
}

TEST_F(DeviceMap, CanBeMadeByASourceThatReadsTheRegistry) {
    registry_.set_device_map([this] {
        registry_key key = 0;
        EXPECT_NE(registry_.open_key(u"SOFTWARE\\Absent", registry_access::read, key), 0U);
        return leaves_;
    });
    EXPECT_TRUE(subkeys(registry_, root).empty());
}

TEST_F(DeviceMap, IsNotChangedByASettingsFileThatIsChangedLater) {
    const test_support::temporary_folder folder;
    folder.put("settings.reg", head);
    linux_registry registry(linux_registry::options{folder / "settings.reg", true, ""});
    const device_map_leaf leaf{{0, 0, 0, 0}, "TapePeripheral", "Tape0", "A"};
    registry.set_device_map([&leaf] { return std::vector{leaf}; });
    folder.put("settings.reg", head +
                                   "[HKEY_LOCAL_MACHINE\\HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port 7]\n"
                                   "[HKEY_LOCAL_MACHINE\\HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port 0]\n\"Type\"=\"Forged\"\n");
    EXPECT_THAT(subkeys(registry, root), testing::ElementsAre("Scsi Port 0"));
    EXPECT_EQ(text(registry, u"HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port 0", u"Type"), "(no value)");
}

TEST_F(DeviceMap, TakesNoWrites) {
    registry_key key = 0;
    EXPECT_EQ(registry_.create_key(root, registry_access::write, key), error::access_denied);
    EXPECT_EQ(registry_.open_key(root, registry_access::write, key), error::access_denied);
}

}  // namespace
