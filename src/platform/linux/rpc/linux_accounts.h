#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/accounts.h"
#include "platform/linux/rpc/security_context.h"

namespace platform::linux_rpc {

/// The machine's users and groups. Every look-up asks anew and may block on a directory service. Callable from any thread.
class user_database {
public:
    virtual ~user_database() = default;

    /// False: the database could not be asked. `found` is true when there is such a user, whose groups then are `groups`, the
    /// primary one first.
    virtual bool groups_of(uid_t user, bool& found, std::vector<gid_t>& groups) = 0;
    virtual bool groups_of(const std::string& user, bool& found, std::vector<gid_t>& groups) = 0;
    /// Nothing when there is no group of that name.
    [[nodiscard]] virtual std::optional<gid_t> group_number(const std::string& group) = 0;

    /// The name service of the C library.
    [[nodiscard]] static user_database& of_system();
};

/// Who counts as administrator of this machine beside root and the NTLM accounts added as such.
struct administrator_rules {
    std::vector<std::string> groups;      ///< names of Unix groups
    std::vector<std::string> principals;  ///< "DOMAIN\user" or "user@REALM", compared without regard to case

    /// From two lists separated by semicolons; blanks around an entry don't count, nor do empty entries.
    [[nodiscard]] static administrator_rules of(std::string_view groups, std::string_view principals);
};

/// Answers who calls by what the transport's authentication has proved. Unix groups appear as S-1-22-2-gid; an administrator also
/// bears S-1-5-32-544. The verdict is made afresh for each authorisation context, that is for each call. A context is known to the
/// thread that opened it only.
class linux_accounts : public accounts {
public:
    explicit linux_accounts(administrator_rules rules, user_database& users = user_database::of_system());

    std::uint32_t open_client_context(client_context& context) override;
    std::uint32_t free_client_context(client_context context) override;
    [[nodiscard]] std::uint32_t client_groups_size(client_context context) override;
    bool client_groups(client_context context, std::vector<group_entry>& groups) override;
    [[nodiscard]] std::string client_text() override;
    bool create_well_known_sid(std::uint32_t which, sid_bytes& sid) override;

private:
    struct caller {
        std::vector<group_entry> groups;
        std::uint32_t error = 0;  ///< why the groups could not be had
    };

    [[nodiscard]] caller examine(const client_identity& identity);
    [[nodiscard]] bool is_administrator(const client_identity& identity, const std::vector<gid_t>& groups);
    /// The contexts of the calling thread: they belong to the call that it serves, so that no thread waits for another here.
    struct thread_contexts;
    [[nodiscard]] static thread_contexts& own_contexts();

    administrator_rules rules_;
    user_database& users_;
};

}  // namespace platform::linux_rpc
