#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/rpc/rpc_limits.h"
#include "platform/registry.h"

namespace platform::linux_os {

/// Where the values below stand.
inline constexpr std::u16string_view devices_key = u"SOFTWARE\\Tarno\\Tarno Backup Tape\\Devices";
inline constexpr std::u16string_view access_key = u"SOFTWARE\\Tarno\\Tarno Backup Tape\\Access";

/// What only Linux has to be told: which devices there are, and who may call from where. Lists are `;`-separated in the file;
/// blanks around an entry and empty entries don't count. Relative paths count from the settings file's folder; here they are
/// complete.
struct linux_settings {
    bool scsi_generic = true;                               ///< Devices\ScsiGeneric: use this machine's sg devices
    std::vector<std::string> iscsi;                         ///< Devices\Iscsi: URLs, may hold secrets: never for a log
    std::vector<std::string> virtual_libraries;             ///< Devices\VirtualLibrary: folders
    std::vector<std::string> without_driver;                ///< Devices\WithoutDriver: serials of changers
    std::string listen_address;                             ///< Access\ListenAddress; empty: all addresses
    std::uint16_t endpoint_mapper_port = 135;               ///< Access\EndpointMapperPort; 0: none
    std::string local_socket = "/run/tarno-tape/rpc.sock";  ///< Access\LocalSocket; empty: none
    std::vector<std::string> administrator_groups{"root", "wheel", "sudo"};  ///< Access\AdministratorGroups
    std::string accounts = "/etc/tarno-tape/accounts";                       ///< Access\Accounts
    std::string keytab;                                                      ///< Access\Keytab; empty: the system's own
    std::vector<std::string> administrator_principals;                       ///< Access\AdministratorPrincipals
    linux_rpc::rpc_limits limits;                                            ///< Access\Max..., Access\...TimeoutSec
};

/// Reads them once. A value of a wrong type or form, or a limit out of its bounds, throws `settings_error` about
/// `file`.
[[nodiscard]] linux_settings read_linux_settings(registry& from, const std::string& file);

/// Whether a value of `Iscsi` names a password: `iscsi://user%password@...`.
[[nodiscard]] bool holds_iscsi_secret(std::string_view iscsi);

}  // namespace platform::linux_os
