#pragma once

#include <memory>
#include <string>

#include "platform/linux/rpc/gss_acceptor.h"

namespace platform::linux_rpc {

/// Offers Kerberos (auth_type 16) to a server, at the levels connect, packet, integrity and privacy; at packet a PDU is signed,
/// too. The keytab is looked at anew with each authentication, so that changed keys count at once.
class gss_provider : public negotiable_provider {
public:
    using reporter = std::function<void(const std::string&)>;

    /// `keytab`: path of the file with the server's keys; empty: the one that the system's Kerberos names, by KRB5_KTNAME or its
    /// own settings. Without any key in it the provider isn't ready.
    explicit gss_provider(const std::string& keytab, reporter report = {});

    /// The provider of a server: refusals as warnings in the log.
    [[nodiscard]] static std::unique_ptr<gss_provider> of_keytab(const std::string& keytab);

    /// Why it isn't ready, as a sentence; empty when it is.
    [[nodiscard]] const std::string& fault() const { return fault_; }

    [[nodiscard]] std::uint8_t auth_type() const override;
    [[nodiscard]] bool ready() const override { return fault_.empty(); }
    [[nodiscard]] bool supports(auth_level level) const override;
    [[nodiscard]] std::span<const spnego::mechanism_id> mechanisms() const override;
    [[nodiscard]] std::unique_ptr<negotiable_acceptor> create_negotiable(auth_level level) override;

private:
    std::shared_ptr<gss_acceptor_settings> settings_;
    std::string fault_;
};

}  // namespace platform::linux_rpc
