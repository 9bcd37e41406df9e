#include "platform/linux/rpc/gss_provider.h"

#include <gssapi/gssapi_ext.h>

#include <array>

#include "foundation/logging/log_writer.h"
#include "platform/linux/rpc/event_throttle.h"
#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

gss_provider::gss_provider(const std::string& keytab, reporter report) : settings_(std::make_shared<gss_acceptor_settings>()) {
    settings_->report = std::move(report);
    gss_OID_set_desc mechanisms{1, gss::kerberos()};
    gss_key_value_element_desc place{"keytab", keytab.c_str()};
    const gss_key_value_set_desc store{1, &place};
    OM_uint32 minor = 0;
    const OM_uint32 major =
        gss_acquire_cred_from(&minor, GSS_C_NO_NAME, GSS_C_INDEFINITE, &mechanisms, GSS_C_ACCEPT,
                              keytab.empty() ? GSS_C_NO_CRED_STORE : &store, settings_->credential.place(), nullptr, nullptr);
    if (GSS_ERROR(major)) {
        fault_ = "Kerberos can't be offered: " + gss::failure_text(major, minor) + ".";
    }
}

std::unique_ptr<gss_provider> gss_provider::of_keytab(const std::string& keytab) {
    const auto warn = [](const std::string& sentence) { g_rpcLog.LogWarning(sentence); };
    return std::make_unique<gss_provider>(keytab, throttled(warn));
}

std::uint8_t gss_provider::auth_type() const {
    return rpc_authn::kerberos;
}

bool gss_provider::supports(auth_level level) const {
    return level == auth_level::connect || level == auth_level::packet || level == auth_level::integrity ||
           level == auth_level::privacy;
}

std::span<const spnego::mechanism_id> gss_provider::mechanisms() const {
    static const std::array known{spnego::mechanism::kerberos, spnego::mechanism::kerberos_misprinted};
    return known;
}

std::unique_ptr<negotiable_acceptor> gss_provider::create_negotiable(auth_level level) {
    return std::make_unique<gss_acceptor>(settings_, level);
}

}  // namespace platform::linux_rpc
