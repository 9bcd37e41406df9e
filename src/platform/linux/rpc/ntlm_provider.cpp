#include "platform/linux/rpc/ntlm_provider.h"

#include "foundation/logging/log_writer.h"
#include "platform/linux/rpc/event_throttle.h"
#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

ntlm_provider::ntlm_provider(ntlm_acceptor_settings settings)
    : settings_(std::make_shared<const ntlm_acceptor_settings>(std::move(settings))) {
    // Asked for now, so that a lack shows at the start and not with the first client.
    const secret_key probe;
    static_cast<void>(md4({probe.view()}));
    rc4_stream(probe.view()).apply(secret_key().writable());
}

std::unique_ptr<ntlm_provider> ntlm_provider::of_accounts_file(const std::string& path, std::string_view fully_qualified) {
    const auto warn = [](const std::string& sentence) { g_rpcLog.LogWarning(sentence); };
    return std::make_unique<ntlm_provider>(ntlm_acceptor_settings{ntlm_host_names::of(fully_qualified),
                                                                  std::make_shared<live_accounts>(path, warn),
                                                                  ntlm_environment::of_system(), throttled(warn)});
}

std::uint8_t ntlm_provider::auth_type() const {
    return rpc_authn::ntlm;
}

bool ntlm_provider::supports(auth_level level) const {
    return level == auth_level::connect || level == auth_level::packet || level == auth_level::integrity ||
           level == auth_level::privacy;
}

std::span<const spnego::mechanism_id> ntlm_provider::mechanisms() const {
    return {&spnego::mechanism::ntlm, 1};
}

std::unique_ptr<negotiable_acceptor> ntlm_provider::create_negotiable(auth_level /*level*/) {
    return std::make_unique<ntlm_acceptor>(settings_);
}

}  // namespace platform::linux_rpc
