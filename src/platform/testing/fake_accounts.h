#pragma once

#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/accounts.h"

namespace platform::testing {

/// A security identifier of revision 1 in its binary form.
[[nodiscard]] sid_bytes make_sid(std::uint64_t authority, std::initializer_list<std::uint32_t> sub_authorities);
/// S-1-5-32-544.
[[nodiscard]] sid_bytes builtin_administrators_sid();

/// A caller as a test describes it. Until one is set no thread serves a call: opening a context answers 1725.
class fake_accounts final : public accounts {
public:
    std::uint32_t open_client_context(client_context& context) override;
    std::uint32_t free_client_context(client_context context) override;
    [[nodiscard]] std::uint32_t client_groups_size(client_context context) override;
    bool client_groups(client_context context, std::vector<group_entry>& groups) override;
    [[nodiscard]] std::string client_text() override;
    bool create_well_known_sid(std::uint32_t which, sid_bytes& sid) override;

    /// A caller in these groups, in this order.
    void set_caller(std::vector<group_entry> groups);
    /// A caller in Everyone and, enabled, in the built-in Administrators.
    void set_administrator();
    /// A caller in Everyone only.
    void set_ordinary_user();
    /// What the log calls the caller from now on; nothing until then.
    void set_client_text(std::string text);
    /// Nobody calls, or the caller can't be told: opening a context answers this status.
    void set_no_caller(std::uint32_t status);
    /// The named step fails with this from now on; 0 lets it work.
    void fail_free(std::uint32_t status);
    void fail_groups(std::uint32_t error);
    void fail_well_known_sid(std::uint32_t error);

    [[nodiscard]] std::size_t open_contexts() const;
    /// Contexts that were asked for, over all time.
    [[nodiscard]] std::size_t open_calls() const;

private:
    mutable std::mutex mutex_;
    std::uint32_t open_status_ = 1725;
    std::uint32_t free_status_ = 0;
    std::uint32_t groups_error_ = 0;
    std::uint32_t sid_error_ = 0;
    std::vector<group_entry> groups_;
    std::string client_text_;
    std::set<client_context> contexts_;
    client_context next_ = 0x7000;
    std::size_t open_calls_ = 0;
};

}  // namespace platform::testing
