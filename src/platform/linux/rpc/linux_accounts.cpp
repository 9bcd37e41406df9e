#include "platform/linux/rpc/linux_accounts.h"

#include <algorithm>
#include <atomic>
#include <initializer_list>

#include "platform/errors.h"
#include "platform/linux/rpc/current_call.h"
#include "platform/linux/rpc/unicode.h"
#include "platform/rpc_runtime.h"
#include "platform/system.h"

namespace platform::linux_rpc {

namespace {

constexpr std::uint32_t granted_group = group_attribute::mandatory | group_attribute::enabled_by_default | group_attribute::enabled;

// Sizes of the group list as its consumer lays it out: a count, then a pointer and attributes for each group, then the
// identifiers.
constexpr std::size_t list_header_size = 8;
constexpr std::size_t list_entry_size = 16;

/// Revision 1, the identifier authority as 6 bytes from the highest, the subauthorities from the lowest.
sid_bytes make_sid(std::uint8_t authority, std::initializer_list<std::uint32_t> subauthorities) {
    sid_bytes sid{1, static_cast<std::uint8_t>(subauthorities.size()), 0, 0, 0, 0, 0, authority};
    for (const std::uint32_t part : subauthorities) {
        for (unsigned int shift = 0; shift < 32; shift += 8) {
            sid.push_back(static_cast<std::uint8_t>((part >> shift) & 0xFF));
        }
    }
    return sid;
}

sid_bytes builtin_administrators() {
    return make_sid(5, {32, 544});
}

sid_bytes unix_group(gid_t group) {
    return make_sid(22, {2, group});
}

void fail_with(std::uint32_t code) {
    if (errors* const known = system().errors; known != nullptr) {
        known->set_last_error(code);
    }
}

std::vector<std::string> split_list(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    std::vector<std::string> entries;
    while (!text.empty()) {
        const std::size_t end = text.find(';');
        std::string_view entry = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        const std::size_t first = entry.find_first_not_of(blanks);
        if (first != std::string_view::npos) {
            entries.emplace_back(entry.substr(first, entry.find_last_not_of(blanks) - first + 1));
        }
    }
    return entries;
}

void add_once(std::vector<gid_t>& groups, gid_t group) {
    if (std::find(groups.begin(), groups.end(), group) == groups.end()) {
        groups.push_back(group);
    }
}

}  // namespace

administrator_rules administrator_rules::of(std::string_view groups, std::string_view principals) {
    return {split_list(groups), split_list(principals)};
}

struct linux_accounts::thread_contexts {
    client_context add(caller examined) {
        open.push_back({++last, std::move(examined)});
        return last;
    }
    bool remove(client_context context) {
        return std::erase_if(open, [context](const entry& one) { return one.context == context; }) != 0;
    }
    [[nodiscard]] const caller* find(client_context context) const {
        const auto found = std::find_if(open.begin(), open.end(), [context](const entry& one) { return one.context == context; });
        return found == open.end() ? nullptr : &found->examined;
    }

    struct entry {
        client_context context;
        caller examined;
    };
    std::vector<entry> open;
    client_context last = first_context();

    /// A number that no other thread gives out.
    static client_context first_context() {
        static std::atomic<client_context> threads{0};
        return ++threads << 40;
    }
};

linux_accounts::linux_accounts(administrator_rules rules, user_database& users) : rules_(std::move(rules)), users_(users) {}

std::uint32_t linux_accounts::open_client_context(client_context& context) {
    const call_scene* const call = current_call();
    if (call == nullptr) {
        return rpc_status::no_call_active;
    }
    if (!call->identity->authenticated) {
        return rpc_status::binding_has_no_auth;
    }
    context = own_contexts().add(examine(*call->identity));
    return rpc_status::ok;
}

std::uint32_t linux_accounts::free_client_context(client_context context) {
    return own_contexts().remove(context) ? rpc_status::ok : error::invalid_parameter;
}

std::string linux_accounts::client_text() {
    const call_scene* const call = current_call();
    if (call == nullptr) {
        return {};
    }
    const client_identity& identity = *call->identity;
    const std::string who = identity.authenticated ? "[" + identity.name + "]" : "somebody who gave no proof";
    if (identity.local) {
        return who + " on this machine";
    }
    return call->address == nullptr || call->address->empty() ? who : who + " at [" + *call->address + "]";
}

std::uint32_t linux_accounts::client_groups_size(client_context context) {
    const caller* const found = own_contexts().find(context);
    if (found == nullptr || (found->groups.empty() && found->error == 0)) {
        return 0;
    }
    std::size_t size = list_header_size;
    for (const group_entry& entry : found->groups) {
        size += list_entry_size + entry.sid.size();
    }
    return static_cast<std::uint32_t>(size);
}

bool linux_accounts::client_groups(client_context context, std::vector<group_entry>& groups) {
    const caller* const found = own_contexts().find(context);
    const std::uint32_t code = found != nullptr ? found->error : error::invalid_handle;
    if (code != 0) {
        fail_with(code);
        return false;
    }
    groups = found->groups;
    return true;
}

bool linux_accounts::create_well_known_sid(std::uint32_t which, sid_bytes& sid) {
    if (which != well_known_builtin_administrators) {
        fail_with(error::invalid_parameter);
        return false;
    }
    sid = builtin_administrators();
    return true;
}

linux_accounts::caller linux_accounts::examine(const client_identity& identity) {
    using rank = caller_standing::rank;
    const rank by_mechanism = identity.standing        ? identity.standing->now()
                              : identity.administrator ? rank::administrator
                                                       : rank::known;
    if (by_mechanism == rank::shut_out) {
        return {};
    }
    std::vector<gid_t> numbers;
    bool found = false;
    bool answered = true;
    if (identity.local) {
        answered = users_.groups_of(identity.uid, found, numbers);
        // The group that the caller's process runs under, which needn't be one of the user's entries.
        add_once(numbers, identity.gid);
    } else if (!identity.local_account.empty()) {
        answered = users_.groups_of(identity.local_account, found, numbers);
    }
    caller examined;
    for (const gid_t number : numbers) {
        examined.groups.push_back({unix_group(number), granted_group});
    }
    if (by_mechanism == rank::administrator || is_administrator(identity, numbers)) {
        examined.groups.push_back({builtin_administrators(), granted_group});
    } else if (!answered) {
        // Without the groups nobody can say that the caller is no administrator.
        examined.error = error::function_failed;
    }
    return examined;
}

bool linux_accounts::is_administrator(const client_identity& identity, const std::vector<gid_t>& groups) {
    if (identity.local && identity.uid == 0) {
        return true;
    }
    const auto names_the_caller = [&](const std::string& principal) { return equal_without_case(principal, identity.name); };
    if (std::any_of(rules_.principals.begin(), rules_.principals.end(), names_the_caller)) {
        return true;
    }
    return !groups.empty() && std::any_of(rules_.groups.begin(), rules_.groups.end(), [&](const std::string& name) {
        const std::optional<gid_t> number = users_.group_number(name);
        return number && std::find(groups.begin(), groups.end(), *number) != groups.end();
    });
}

linux_accounts::thread_contexts& linux_accounts::own_contexts() {
    thread_local thread_contexts contexts;
    return contexts;
}

}  // namespace platform::linux_rpc
