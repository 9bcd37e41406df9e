#include "platform/linux/rpc/interface_table.h"

#include <algorithm>

namespace platform::linux_rpc {

namespace {

/// Bind-time feature negotiation poses as a transfer syntax: 8 fixed bytes, then the features asked for (MS-RPCE 3.3.1.5.3).
constexpr std::array<std::uint8_t, 8> feature_negotiation_prefix{0x6c, 0xb7, 0x1c, 0x2c, 0x98, 0x12, 0x45, 0x40};
constexpr std::uint8_t security_context_multiplexing = 1;
constexpr std::uint8_t keep_connection_on_orphan = 2;

bool is_feature_negotiation(const context_offer& offer) {
    return offer.transfer_syntaxes.size() == 1 && offer.transfer_syntaxes[0].major == 1 &&
           std::equal(feature_negotiation_prefix.begin(), feature_negotiation_prefix.end(),
                      offer.transfer_syntaxes[0].uuid.begin());
}

context_result rejection(std::uint16_t reason) {
    return {negotiation::provider_rejection, reason, {}};
}

offered_interface_ptr counted_apart(const offered_interface_ptr& shared) {
    return {std::make_shared<const offered_interface_ptr>(shared), shared.get()};
}

}  // namespace

syntax_id id_of(const rpc_interface& description) {
    return {description.uuid, description.major_version, description.minor_version};
}

std::uint32_t interface_table::add(offered_interface offered) {
    const std::lock_guard lock(mutex_);
    for (const offered_interface_ptr& known : interfaces_) {
        if (known->description.uuid == offered.description.uuid &&
            known->description.major_version == offered.description.major_version) {
            return rpc_status::type_already_registered;
        }
    }
    interfaces_.push_back(std::make_shared<const offered_interface>(std::move(offered)));
    return rpc_status::ok;
}

offered_interface_ptr interface_table::find(const syntax_id& wanted) const {
    const std::lock_guard lock(mutex_);
    for (const offered_interface_ptr& known : interfaces_) {
        if (known->description.uuid == wanted.uuid && known->description.major_version == wanted.major &&
            wanted.minor <= known->description.minor_version) {
            return known;
        }
    }
    return nullptr;
}

std::vector<syntax_id> interface_table::registered() const {
    const std::lock_guard lock(mutex_);
    std::vector<syntax_id> ids;
    for (const offered_interface_ptr& known : interfaces_) {
        if (!known->builtin) {
            ids.push_back(id_of(known->description));
        }
    }
    return ids;
}

std::vector<context_result> presentation_contexts::negotiate(const std::vector<context_offer>& offers, bool binding,
                                                             const interface_table& interfaces, std::size_t limit) {
    std::vector<context_result> results;
    results.reserve(offers.size());
    for (const context_offer& offer : offers) {
        results.push_back(judge(offer, binding, interfaces, limit));
    }
    return results;
}

context_result presentation_contexts::judge(const context_offer& offer, bool binding, const interface_table& interfaces,
                                            std::size_t limit) {
    if (binding && is_feature_negotiation(offer)) {
        const std::uint8_t asked = offer.transfer_syntaxes[0].uuid[8];
        return {negotiation::negotiate_ack,
                static_cast<std::uint16_t>(asked & (security_context_multiplexing | keep_connection_on_orphan)),
                {}};
    }
    offered_interface_ptr target = interfaces.find(offer.interface);
    if (!target) {
        return rejection(negotiation::abstract_syntax_not_supported);
    }
    if (std::find(offer.transfer_syntaxes.begin(), offer.transfer_syntaxes.end(), ndr_transfer_syntax()) ==
        offer.transfer_syntaxes.end()) {
        return rejection(negotiation::transfer_syntaxes_not_supported);
    }
    if (const offered_interface_ptr known = find(offer.id)) {
        // An id keeps its meaning for the life of the connection; offering the same once more is harmless.
        return known == target ? context_result{negotiation::acceptance, 0, ndr_transfer_syntax()}
                               : rejection(negotiation::reason_not_specified);
    }
    if (accepted_.size() >= limit) {
        return rejection(negotiation::local_limit_exceeded);
    }
    accepted_.push_back({offer.id, counted_apart(target)});
    return {negotiation::acceptance, 0, ndr_transfer_syntax()};
}

const offered_interface_ptr& presentation_contexts::find(std::uint16_t id) const {
    static const offered_interface_ptr none;
    for (const accepted_context& context : accepted_) {
        if (context.id == id) {
            return context.target;
        }
    }
    return none;
}

}  // namespace platform::linux_rpc
