#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// A security identifier in its binary form (MS-DTYP 2.4.2.2), 8 to 68 bytes.
using sid_bytes = std::vector<std::uint8_t>;

namespace group_attribute {
inline constexpr std::uint32_t mandatory = 1;
inline constexpr std::uint32_t enabled_by_default = 2;
inline constexpr std::uint32_t enabled = 4;
inline constexpr std::uint32_t use_for_deny_only = 16;
}  // namespace group_attribute

struct group_entry {
    sid_bytes sid;
    std::uint32_t attributes = 0;
};

/// Number of the well-known identifier S-1-5-32-544, the built-in Administrators.
inline constexpr std::uint32_t well_known_builtin_administrators = 26;

/// An authorisation context of a remote caller; 0 is none.
using client_context = std::uintptr_t;

/// Who calls. The operations on a caller answer for the remote call that the calling thread serves at the moment.
class accounts {
public:
    virtual ~accounts() = default;

    /// Takes the authorisation context of the current call. Returns an RPC status, 0 for success: 1725 when the thread
    /// serves no call, 1746 when the caller did not authenticate.
    virtual std::uint32_t open_client_context(client_context& context) = 0;
    /// Returns an RPC status.
    virtual std::uint32_t free_client_context(client_context context) = 0;

    /// Bytes that the caller's group list takes, 0 when there is none to be had.
    [[nodiscard]] virtual std::uint32_t client_groups_size(client_context context) = 0;
    /// The caller's groups in the system's order. False: the reason is in the last error.
    virtual bool client_groups(client_context context, std::vector<group_entry>& groups) = 0;

    /// Who calls and from where, for the log, UTF-8: "[DOMAIN\user] at [192.0.2.7]". Empty: not known.
    [[nodiscard]] virtual std::string client_text() { return {}; }

    /// Makes a well-known identifier. False: the reason is in the last error.
    virtual bool create_well_known_sid(std::uint32_t which, sid_bytes& sid) = 0;
};

}  // namespace platform
