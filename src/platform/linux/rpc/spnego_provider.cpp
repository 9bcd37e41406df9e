#include "platform/linux/rpc/spnego_provider.h"

#include <algorithm>

#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

spnego_provider::spnego_provider(spnego_settings settings)
    : settings_(std::make_shared<const spnego_settings>(std::move(settings))) {}

std::uint8_t spnego_provider::auth_type() const {
    return rpc_authn::negotiate;
}

bool spnego_provider::ready() const {
    return std::ranges::any_of(settings_->providers, [](const auto& provider) { return provider->ready(); });
}

bool spnego_provider::supports(auth_level level) const {
    return std::ranges::any_of(settings_->providers,
                               [level](const auto& provider) { return provider->ready() && provider->supports(level); });
}

std::unique_ptr<security_context> spnego_provider::create(auth_level level) {
    return std::make_unique<spnego_acceptor>(settings_, level);
}

}  // namespace platform::linux_rpc
