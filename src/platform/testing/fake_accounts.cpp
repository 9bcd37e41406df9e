#include "platform/testing/fake_accounts.h"

#include <utility>

#include "platform/errors.h"
#include "platform/system.h"

namespace platform::testing {

namespace {

bool refuse(std::uint32_t error) {
    if (errors* const current = system().errors) {
        current->set_last_error(error);
    }
    return false;
}

}  // namespace

sid_bytes make_sid(std::uint64_t authority, std::initializer_list<std::uint32_t> sub_authorities) {
    sid_bytes sid{1, static_cast<std::uint8_t>(sub_authorities.size())};
    for (int shift = 40; shift >= 0; shift -= 8) {
        sid.push_back(static_cast<std::uint8_t>((authority >> shift) & 0xFF));
    }
    for (const std::uint32_t sub_authority : sub_authorities) {
        for (int shift = 0; shift < 32; shift += 8) {
            sid.push_back(static_cast<std::uint8_t>((sub_authority >> shift) & 0xFF));
        }
    }
    return sid;
}

sid_bytes builtin_administrators_sid() {
    return make_sid(5, {32, 544});
}

std::uint32_t fake_accounts::open_client_context(client_context& context) {
    const std::lock_guard lock(mutex_);
    ++open_calls_;
    if (open_status_ != 0) {
        return open_status_;
    }
    context = ++next_;
    contexts_.insert(context);
    return 0;
}

std::uint32_t fake_accounts::free_client_context(client_context context) {
    const std::lock_guard lock(mutex_);
    if (free_status_ != 0) {
        return free_status_;
    }
    return contexts_.erase(context) == 1 ? 0 : error::invalid_handle;
}

std::string fake_accounts::client_text() {
    const std::lock_guard lock(mutex_);
    return client_text_;
}

void fake_accounts::set_client_text(std::string text) {
    const std::lock_guard lock(mutex_);
    client_text_ = std::move(text);
}

std::uint32_t fake_accounts::client_groups_size(client_context context) {
    const std::lock_guard lock(mutex_);
    if (!contexts_.contains(context)) {
        refuse(error::invalid_handle);
        return 0;
    }
    std::size_t size = 0;
    for (const group_entry& group : groups_) {
        size += 8 + group.sid.size();
    }
    return static_cast<std::uint32_t>(size);
}

bool fake_accounts::client_groups(client_context context, std::vector<group_entry>& groups) {
    const std::lock_guard lock(mutex_);
    if (!contexts_.contains(context)) {
        return refuse(error::invalid_handle);
    }
    if (groups_error_ != 0) {
        return refuse(groups_error_);
    }
    groups = groups_;
    return true;
}

bool fake_accounts::create_well_known_sid(std::uint32_t which, sid_bytes& sid) {
    const std::lock_guard lock(mutex_);
    if (sid_error_ != 0) {
        return refuse(sid_error_);
    }
    if (which != well_known_builtin_administrators) {
        return refuse(error::invalid_parameter);
    }
    sid = builtin_administrators_sid();
    return true;
}

void fake_accounts::set_caller(std::vector<group_entry> groups) {
    const std::lock_guard lock(mutex_);
    open_status_ = 0;
    groups_ = std::move(groups);
}

void fake_accounts::set_administrator() {
    constexpr std::uint32_t usual = group_attribute::mandatory | group_attribute::enabled_by_default | group_attribute::enabled;
    set_caller({{make_sid(1, {0}), usual}, {builtin_administrators_sid(), usual}});
}

void fake_accounts::set_ordinary_user() {
    constexpr std::uint32_t usual = group_attribute::mandatory | group_attribute::enabled_by_default | group_attribute::enabled;
    set_caller({{make_sid(1, {0}), usual}});
}

void fake_accounts::set_no_caller(std::uint32_t status) {
    const std::lock_guard lock(mutex_);
    open_status_ = status;
    groups_.clear();
}

void fake_accounts::fail_free(std::uint32_t status) {
    const std::lock_guard lock(mutex_);
    free_status_ = status;
}

void fake_accounts::fail_groups(std::uint32_t error) {
    const std::lock_guard lock(mutex_);
    groups_error_ = error;
}

void fake_accounts::fail_well_known_sid(std::uint32_t error) {
    const std::lock_guard lock(mutex_);
    sid_error_ = error;
}

std::size_t fake_accounts::open_contexts() const {
    const std::lock_guard lock(mutex_);
    return contexts_.size();
}

std::size_t fake_accounts::open_calls() const {
    const std::lock_guard lock(mutex_);
    return open_calls_;
}

}  // namespace platform::testing
