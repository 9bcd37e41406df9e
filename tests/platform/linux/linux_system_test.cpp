#include "platform/linux/linux_system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>

#include "platform/linux/settings_file.h"
#include "platform/testing/memory_registry.h"
#include "support/temporary_folder.h"

namespace {

using namespace platform;
using namespace platform::linux_os;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

constexpr std::string_view devices_path = "SOFTWARE\\Tarno\\Tarno Backup Tape\\Devices";
constexpr std::string_view access_path = "SOFTWARE\\Tarno\\Tarno Backup Tape\\Access";

TEST(LinuxSettings, AreTheDocumentedOnesWithoutAFile) {
    platform::testing::memory_registry registry;
    const linux_settings settings = read_linux_settings(registry, "/etc/x.reg");
    EXPECT_TRUE(settings.scsi_generic);
    EXPECT_THAT(settings.iscsi, IsEmpty());
    EXPECT_THAT(settings.virtual_libraries, IsEmpty());
    EXPECT_THAT(settings.without_driver, IsEmpty());
    EXPECT_EQ(settings.listen_address, "");
    EXPECT_EQ(settings.local_socket, "/run/tarno-tape/rpc.sock");
    EXPECT_THAT(settings.administrator_groups, ElementsAre("root", "wheel", "sudo"));
    EXPECT_EQ(settings.accounts, "/etc/tarno-tape/accounts");
    EXPECT_EQ(settings.keytab, "");
    EXPECT_THAT(settings.administrator_principals, IsEmpty());
}

TEST(LinuxSettings, ReadEveryValue) {
    platform::testing::memory_registry registry;
    registry.set_dword(devices_path, "ScsiGeneric", 0);
    registry.set_string(devices_path, "Iscsi", "iscsi://a/b ; iscsi://c;;");
    registry.set_string(devices_path, "VirtualLibrary", "/srv/one;two");
    registry.set_string(devices_path, "WithoutDriver", "SER1;SER 2");
    registry.set_string(access_path, "ListenAddress", "127.0.0.1");
    registry.set_string(access_path, "LocalSocket", "");
    registry.set_expand_string(access_path, "AdministratorGroups", "");
    registry.set_string(access_path, "Accounts", "accounts");
    registry.set_string(access_path, "Keytab", "tape.keytab");
    registry.set_string(access_path, "AdministratorPrincipals", "DOM\\u;v@REALM");
    const linux_settings settings = read_linux_settings(registry, "/srv/demo/x.reg");
    EXPECT_FALSE(settings.scsi_generic);
    EXPECT_THAT(settings.iscsi, ElementsAre("iscsi://a/b", "iscsi://c"));
    EXPECT_THAT(settings.virtual_libraries, ElementsAre("/srv/one", "/srv/demo/two"));
    EXPECT_THAT(settings.without_driver, ElementsAre("SER1", "SER 2"));
    EXPECT_EQ(settings.listen_address, "127.0.0.1");
    EXPECT_EQ(settings.local_socket, "");
    EXPECT_THAT(settings.administrator_groups, IsEmpty());
    EXPECT_EQ(settings.accounts, "/srv/demo/accounts");
    EXPECT_EQ(settings.keytab, "/srv/demo/tape.keytab");
    EXPECT_THAT(settings.administrator_principals, ElementsAre("DOM\\u", "v@REALM"));
    EXPECT_EQ(registry.open_keys(), 0U);
}

TEST(LinuxSettings, RefuseAWrongType) {
    platform::testing::memory_registry registry;
    registry.set_string(devices_path, "ScsiGeneric", "1");
    EXPECT_THROW(
        {
            try {
                static_cast<void>(read_linux_settings(registry, "/etc/x.reg"));
            } catch (const settings_error& e) {
                EXPECT_STREQ(e.what(),
                             "/etc/x.reg: The value SOFTWARE\\Tarno\\Tarno Backup Tape\\Devices\\ScsiGeneric must be a DWORD.");
                throw;
            }
        },
        settings_error);
    registry.set_dword(devices_path, "ScsiGeneric", 1);
    registry.set_dword(access_path, "Accounts", 1);
    EXPECT_THROW(static_cast<void>(read_linux_settings(registry, "/etc/x.reg")), settings_error);
    EXPECT_EQ(registry.open_keys(), 0U);
}

TEST(LinuxSettings, LimitsAreTheDocumentedOnes) {
    platform::testing::memory_registry registry;
    const linux_rpc::rpc_limits limits = read_linux_settings(registry, "/etc/x.reg").limits;
    EXPECT_EQ(limits.connections, 2048U);
    EXPECT_EQ(limits.connections_per_address, 1536U);
    EXPECT_EQ(limits.calls, 1234U);
    EXPECT_EQ(limits.request_bytes, 67'108'864U);
    EXPECT_EQ(limits.unauthenticated_request_bytes, 65'536U);
    EXPECT_EQ(limits.pending_request_bytes, 268'435'456U);
    EXPECT_EQ(limits.bind_time, 30s);
    EXPECT_EQ(limits.fragment_time, 60s);
    EXPECT_EQ(limits.idle_time, 2h);
    EXPECT_EQ(limits.write_time, 60s);
}

TEST(LinuxSettings, EveryLimitIsRead) {
    platform::testing::memory_registry registry;
    std::uint32_t value = 5000;
    for (const char* const name :
         {"MaxConnections", "MaxConnectionsPerAddress", "MaxRequestBytes", "MaxRequestBytesBeforeAuthentication",
          "MaxIncompleteBytes", "BindTimeoutSec", "FragmentTimeoutSec", "IdleTimeoutSec", "AnswerTimeoutSec"}) {
        registry.set_dword(access_path, name, ++value);
    }
    registry.set_dword(access_path, "MaxCalls", 7);
    registry.set_dword(access_path, "EndpointMapperPort", 0);
    const linux_settings settings = read_linux_settings(registry, "/etc/x.reg");
    EXPECT_EQ(settings.endpoint_mapper_port, 0U);
    const linux_rpc::rpc_limits& limits = settings.limits;
    EXPECT_EQ(limits.connections, 5001U);
    EXPECT_EQ(limits.connections_per_address, 5002U);
    EXPECT_EQ(limits.request_bytes, 5003U);
    EXPECT_EQ(limits.unauthenticated_request_bytes, 5004U);
    EXPECT_EQ(limits.pending_request_bytes, 5005U);
    EXPECT_EQ(limits.bind_time, 5006s);
    EXPECT_EQ(limits.fragment_time, 5007s);
    EXPECT_EQ(limits.idle_time, 5008s);
    EXPECT_EQ(limits.write_time, 5009s);
    EXPECT_EQ(limits.calls, 7U);
}

TEST(LinuxSettings, RefuseALimitOutOfItsBounds) {
    const auto told = [](const char* name, std::uint32_t value) -> std::string {
        platform::testing::memory_registry registry;
        registry.set_dword(access_path, name, value);
        try {
            static_cast<void>(read_linux_settings(registry, "/etc/x.reg"));
        } catch (const settings_error& e) {
            return e.what();
        }
        return {};
    };
    const std::string key = "/etc/x.reg: The value SOFTWARE\\Tarno\\Tarno Backup Tape\\Access\\";
    EXPECT_EQ(told("EndpointMapperPort", 65536), key + "EndpointMapperPort must be between 0 and 65535.");
    EXPECT_EQ(told("MaxCalls", 0), key + "MaxCalls must be between 1 and 1234.");
    EXPECT_EQ(told("MaxCalls", 1235), key + "MaxCalls must be between 1 and 1234.");
    EXPECT_EQ(told("MaxRequestBytes", 4095), key + "MaxRequestBytes must be between 4096 and 1073741824.");
    EXPECT_EQ(told("IdleTimeoutSec", 604'801), key + "IdleTimeoutSec must be between 1 and 604800.");
    EXPECT_EQ(told("MaxRequestBytesBeforeAuthentication", 0), "");
}

TEST(LinuxSettings, KnowASecretWhenTheySeeOne) {
    EXPECT_TRUE(holds_iscsi_secret("iscsi://user%secret@host"));
    EXPECT_TRUE(holds_iscsi_secret("iscsi://host; iscsi://user%p@ss@host:3260/target/1"));
    EXPECT_FALSE(holds_iscsi_secret("iscsi://user@host"));
    EXPECT_FALSE(holds_iscsi_secret("iscsi://host/target%41@x"));
    EXPECT_FALSE(holds_iscsi_secret("nonsense%@"));
    EXPECT_FALSE(holds_iscsi_secret(""));
}

TEST(SystemPaths, AreTheDocumentedOnes) {
    const system_paths paths = read_paths({u"TarnoTapeSvc"}, nullptr);
    EXPECT_EQ(paths.settings_file, "/etc/tarno-tape/settings.reg");
    EXPECT_FALSE(paths.settings_named);
    EXPECT_EQ(paths.state_folder, "/var/lib/tarno-tape");
    EXPECT_EQ(read_paths({}, "").state_folder, "/var/lib/tarno-tape");
}

TEST(SystemPaths, PreferTheSwitchToTheServiceManager) {
    EXPECT_EQ(read_paths({u"x"}, "/var/lib/one:/var/lib/two").state_folder, "/var/lib/one");
    const system_paths paths =
        read_paths({u"x", u"-debug", u"-STATE", u"/srv/state", u"-Settings", u"/srv/a/../s.reg"}, "/var/lib/one");
    EXPECT_EQ(paths.state_folder, "/srv/state");
    EXPECT_EQ(paths.settings_file, "/srv/s.reg");
    EXPECT_TRUE(paths.settings_named);
    EXPECT_TRUE(read_paths({u"x", u"-settings", u"relative.reg"}, nullptr).settings_file.ends_with("/relative.reg"));
    EXPECT_TRUE(read_paths({u"x", u"-settings", u"relative.reg"}, nullptr).settings_file.starts_with("/"));
}

TEST(SystemPaths, RefuseASwitchWithoutItsValue) {
    EXPECT_THROW(static_cast<void>(read_paths({u"x", u"-state"}, nullptr)), std::runtime_error);
    EXPECT_THROW(static_cast<void>(read_paths({u"x", u"-settings", u""}, nullptr)), std::runtime_error);
}

std::string state_folder_refusal(const std::string& folder) {
    try {
        prepare_state_folder(folder);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "not refused";
}

TEST(StateFolder, IsMadeForItsOwnerAlone) {
    const test_support::temporary_folder place;
    prepare_state_folder(place / "state");
    prepare_state_folder(place / "state");
    struct stat status {};
    ASSERT_EQ(stat((place / "state").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
}

TEST(StateFolder, TellsWhyItCantBeUsed) {
    const test_support::temporary_folder place;
    place.put("file", "");
    EXPECT_EQ(state_folder_refusal(place / "file"), "The state folder " + (place / "file") + " is no folder.");
    EXPECT_EQ(state_folder_refusal(place / "absent/state"),
              "The state folder " + (place / "absent/state") + " can't be made: The system cannot find the path specified.");
    EXPECT_THAT(state_folder_refusal("/proc/state"), ::testing::StartsWith("The state folder /proc/state can't be made: "));
    EXPECT_THAT(state_folder_refusal("/proc/sys"), ::testing::StartsWith("The state folder /proc/sys can't be written to: "));
}

TEST(LinuxSystem, BuildsTheSetThatNeedsNoDevices) {
    const test_support::temporary_folder place;
    system_paths paths;
    paths.settings_file =
        place.put("settings.reg",
                  "Windows Registry Editor Version 5.00\n"
                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Backup Tape\\Access]\n\"ListenAddress\"=\"::1\"\n");
    paths.settings_named = true;
    paths.state_folder = place / "state";
    linux_system under_test(paths);
    EXPECT_EQ(under_test.settings().listen_address, "::1");
    const system_set& set = under_test.set();
    EXPECT_NE(set.clock, nullptr);
    EXPECT_NE(set.com_runtime, nullptr);
    EXPECT_NE(set.errors, nullptr);
    EXPECT_NE(set.files, nullptr);
    EXPECT_NE(set.process, nullptr);
    EXPECT_EQ(set.registry, &under_test.registry());
    EXPECT_NE(set.text_encoding, nullptr);
    EXPECT_EQ(set.devices, nullptr);
    EXPECT_EQ(set.com_runtime->initialize(com_model::apartment_threaded), 0U);
    set.com_runtime->uninitialize();
}

TEST(LinuxProcess, DescribesTheDistributionAndTheKernel) {
    const test_support::temporary_folder place;
    place.put("os-release", "NAME=x\nPRETTY_NAME=\"A \\\"B\\\" 1\"\n");
    EXPECT_THAT(linux_process(place.path(), "/none").os_description(), ::testing::StartsWith("A \"B\" 1, Linux "));
    EXPECT_THAT(linux_process("/none", place.path()).os_description(), ::testing::StartsWith("A \"B\" 1, Linux "));
    EXPECT_THAT(linux_process("/none", "/none").os_description(), ::testing::StartsWith("Linux "));
    place.put("os-release", "PRETTY_NAME=Plain\n");
    EXPECT_THAT(linux_process(place.path(), "/none").os_description(), ::testing::StartsWith("Plain, Linux "));
}

TEST(LinuxProcess, TellsAFileWithoutVersionFromAnAbsentOne) {
    linux_errors errors;
    EXPECT_EQ(linux_process().version_of(u"/etc/passwd").failure, version_failure::size_unknown);
    EXPECT_EQ(errors.last_error(), 1812U);
    errors.set_last_error(0);
}

TEST(LinuxErrors, MapNumbersOfTheKernel) {
    EXPECT_EQ(from_errno(0), 0U);
    EXPECT_EQ(from_errno(ENOENT), error::file_not_found);
    EXPECT_EQ(from_errno(EACCES), error::access_denied);
    EXPECT_EQ(from_errno(ENOSPC), error::disk_full);
    EXPECT_EQ(from_errno(EDQUOT), error::disk_full);
    EXPECT_EQ(from_errno(EIO), error::io_device);
    EXPECT_EQ(from_errno(ETIMEDOUT), error::semaphore_timeout);
    EXPECT_EQ(from_errno(ENOMEDIUM), error::no_media_in_drive);
    EXPECT_EQ(from_errno(-1), error::general_failure);
    for (int number = 0; number < 140; ++number) {
        EXPECT_TRUE(linux_errors{}.system_text(from_errno(number)).has_value()) << number;
    }
}

}  // namespace
