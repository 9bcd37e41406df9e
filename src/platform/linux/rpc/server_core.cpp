#include "platform/linux/rpc/server_core.h"

#include <algorithm>

namespace platform::linux_rpc {

std::uint32_t busy_counter::total() const {
    std::uint32_t sum = 0;
    for (const shard& part : shards_) {
        sum += part.value.load(std::memory_order_relaxed);
    }
    return sum;
}

std::size_t busy_counter::own_shard() {
    static std::atomic<std::size_t> threads{0};
    thread_local const std::size_t own = threads.fetch_add(1, std::memory_order_relaxed) % shard_count;
    return own;
}

std::uint32_t association_groups::join(std::uint32_t wanted) {
    const std::lock_guard lock(mutex_);
    if (wanted != 0) {
        const auto found = members_.find(wanted);
        if (found == members_.end()) {
            return 0;
        }
        ++found->second;
        return wanted;
    }
    do {
        ++last_;
    } while (last_ == 0 || members_.contains(last_));
    members_[last_] = 1;
    return last_;
}

void association_groups::leave(std::uint32_t group) {
    const std::lock_guard lock(mutex_);
    const auto found = members_.find(group);
    if (found != members_.end() && --found->second == 0) {
        members_.erase(found);
    }
}

void security_offer::add(std::shared_ptr<security_provider> provider) {
    providers_.push_back(std::move(provider));
}

security_provider* security_offer::known(std::uint32_t service) const {
    const auto found = std::find_if(providers_.begin(), providers_.end(),
                                    [&](const auto& provider) { return provider->auth_type() == service && provider->ready(); });
    return found == providers_.end() ? nullptr : found->get();
}

std::uint32_t security_offer::enable(std::uint32_t service, const std::string& principal) {
    if (known(service) == nullptr) {
        return rpc_status::unknown_authn_service;
    }
    principals_[service] = principal;
    enabled_.insert(service);
    if (service == rpc_authn::negotiate) {
        enabled_.insert(rpc_authn::ntlm);
        enabled_.insert(rpc_authn::kerberos);
    }
    return rpc_status::ok;
}

security_provider* security_offer::find(std::uint8_t auth_type) const {
    return enabled_.contains(auth_type) ? known(auth_type) : nullptr;
}

const std::string* security_offer::principal(std::uint32_t service) const {
    const auto found = principals_.find(service);
    return found == principals_.end() ? nullptr : &found->second;
}

}  // namespace platform::linux_rpc
