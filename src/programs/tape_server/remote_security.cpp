#include "programs/tape_server/remote_security.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "foundation/logging/log_writer.h"
#include "platform/linux/rpc/event_throttle.h"
#include "platform/linux/rpc/gss_provider.h"
#include "platform/linux/rpc/ntlm_provider.h"
#include "platform/linux/rpc/spnego_provider.h"

namespace tape_server {

namespace {

/// Whether somebody has set Kerberos up for this server or this machine: only then it is worth a word that it can't be had.
bool kerberos_is_meant(const std::string& keytab) {
    return !keytab.empty() || std::getenv("KRB5_KTNAME") != nullptr || access("/etc/krb5.keytab", F_OK) == 0;
}

}  // namespace

std::vector<std::string> add_remote_security(platform::linux_rpc::rpc_server& server,
                                             const platform::linux_os::linux_settings& settings, const std::string& computer) {
    using namespace platform::linux_rpc;
    std::vector<std::string> lacks;
    std::vector<std::shared_ptr<negotiable_provider>> mechanisms;
    std::shared_ptr<gss_provider> kerberos = gss_provider::of_keytab(settings.keytab);
    if (!kerberos->ready() && kerberos_is_meant(settings.keytab)) {
        lacks.push_back(kerberos->fault());
    }
    mechanisms.push_back(std::move(kerberos));
    try {
        mechanisms.push_back(ntlm_provider::of_accounts_file(settings.accounts, computer));
    } catch (const std::runtime_error& e) {
        lacks.push_back(std::string("NTLM can't be offered: ") + e.what());
    }
    for (const auto& mechanism : mechanisms) {
        server.add_security_provider(mechanism);
    }
    const auto warn = throttled([](const std::string& sentence) { g_rpcLog.LogWarning(sentence); });
    server.add_security_provider(std::make_shared<spnego_provider>(spnego_settings{std::move(mechanisms), warn}));
    return lacks;
}

}  // namespace tape_server
