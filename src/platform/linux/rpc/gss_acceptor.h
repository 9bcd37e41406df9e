#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/gss_session.h"
#include "platform/linux/rpc/negotiable_mechanism.h"

namespace platform::linux_rpc {

/// What all Kerberos acceptors of a server share.
struct gss_acceptor_settings {
    gss::credential credential;  ///< the keytab: any of its keys is good for a ticket to this server
    /// Takes a sentence for the log about each authentication that was refused; the client is told no reason.
    std::function<void(const std::string&)> report;
};

/// The server's side of Kerberos in the form of DCE/RPC: AP-REQ, AP-REP, and the client's AP-REP.
class gss_acceptor : public negotiable_acceptor {
public:
    gss_acceptor(std::shared_ptr<const gss_acceptor_settings> settings, auth_level level);

    state accept(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) override;
    /// The name is "user@REALM"; a local account is looked for where the system's Kerberos has rules for it.
    [[nodiscard]] const client_identity& identity() const override { return identity_; }
    void header_signing(bool agreed) override { session_.header_signing(agreed); }
    [[nodiscard]] std::size_t signature_size() const override { return session_.signature_size(); }

    void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                 std::span<std::uint8_t> signature) override;
    [[nodiscard]] bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                                 std::span<const std::uint8_t> signature) override;

    [[nodiscard]] bool demands_signed_list() const override { return false; }
    [[nodiscard]] bool agreed_to_sign() const override { return true; }
    [[nodiscard]] std::vector<std::uint8_t> sign_list(std::span<const std::uint8_t> list) override { return session_.sign(list); }
    [[nodiscard]] bool check_list(std::span<const std::uint8_t> list, std::span<const std::uint8_t> signature) override {
        return session_.check(list, signature);
    }

private:
    enum class stage : std::uint8_t { request, confirmation, complete, dead };

    std::string take(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply);
    std::string establish(OM_uint32 flags);
    state refuse(const std::string& reason);

    std::shared_ptr<const gss_acceptor_settings> settings_;
    stage stage_ = stage::request;
    gss_session session_;
    client_identity identity_;
};

/// The local account that a principal stands for by the system's rules ("auth_to_local"); empty when there is none. Whether the
/// account exists is another question. May block on a directory service.
[[nodiscard]] std::string local_account_of(const std::string& principal);

}  // namespace platform::linux_rpc
