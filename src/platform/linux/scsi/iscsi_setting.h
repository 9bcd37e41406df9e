#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace platform::linux_scsi {

inline constexpr std::uint16_t iscsi_default_port = 3260;

/// Where an iSCSI portal listens.
struct iscsi_portal {
    std::string host;  ///< name or address; an IPv6 address without its brackets
    std::uint16_t port = iscsi_default_port;

    /// "host:port", with brackets around an IPv6 address.
    [[nodiscard]] std::string text() const;
    [[nodiscard]] bool operator==(const iscsi_portal& other) const = default;
};

/// One entry of the setting.
struct iscsi_entry {
    iscsi_portal portal;
    std::string user;                 ///< for CHAP; empty: none
    std::string password;             ///< never shown
    std::string target;               ///< empty: all that discovery finds
    std::optional<std::uint8_t> lun;  ///< nothing: all tape and changer units
};

/// A setting that can't be understood. The message names the entry, its password left out.
class iscsi_setting_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads "iscsi://[user%password@]host[:port][/target[/lun]]" entries, separated by ";". Blanks around an entry and empty
/// entries don't count.
[[nodiscard]] std::vector<iscsi_entry> parse_iscsi_setting(std::string_view setting);

/// Reads "host[:port]" as a target portal is given, an IPv6 address in brackets. Nothing when it isn't one.
[[nodiscard]] std::optional<iscsi_portal> parse_iscsi_portal(std::string_view text);

}  // namespace platform::linux_scsi
