#pragma once

#include <memory>

#include "platform/linux/rpc/ntlm_acceptor.h"

namespace platform::linux_rpc {

/// Offers NTLM (auth_type 10) to a server, at the levels connect, packet, integrity and privacy; at packet a PDU is signed, too.
class ntlm_provider : public negotiable_provider {
public:
    /// Throws `std::runtime_error` when the installed OpenSSL lacks an algorithm that NTLM needs.
    explicit ntlm_provider(ntlm_acceptor_settings settings);

    /// The provider of a server: accounts from a file, refusals and faults of the file as warnings in the log.
    [[nodiscard]] static std::unique_ptr<ntlm_provider> of_accounts_file(const std::string& path, std::string_view fully_qualified);

    [[nodiscard]] std::uint8_t auth_type() const override;
    [[nodiscard]] bool supports(auth_level level) const override;
    [[nodiscard]] std::span<const spnego::mechanism_id> mechanisms() const override;
    [[nodiscard]] std::unique_ptr<negotiable_acceptor> create_negotiable(auth_level level) override;

private:
    std::shared_ptr<const ntlm_acceptor_settings> settings_;
};

}  // namespace platform::linux_rpc
