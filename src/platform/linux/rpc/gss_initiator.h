#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/gss_session.h"
#include "platform/linux/rpc/negotiable_mechanism.h"

namespace platform::linux_rpc {

/// The client's side of Kerberos in the form of DCE/RPC, with the tickets that the user has (kinit). The first token may take
/// asking a KDC over the network.
class gss_initiator : public negotiable_initiator {
public:
    /// `service`: principal of the server, "class/host" or "class/host@REALM".
    gss_initiator(std::string service, auth_level level);

    [[nodiscard]] std::uint8_t auth_type() const override;
    std::vector<std::uint8_t> next_token(std::span<const std::uint8_t> server_token) override;
    [[nodiscard]] state current_state() const override { return state_; }
    [[nodiscard]] std::string reason() const override { return reason_; }
    void header_signing(bool agreed) override { session_.header_signing(agreed); }
    [[nodiscard]] std::size_t signature_size() const override { return session_.signature_size(); }

    void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                 std::span<std::uint8_t> signature) override;
    [[nodiscard]] bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                                 std::span<const std::uint8_t> signature) override;

    [[nodiscard]] bool demands_signed_list() const override { return false; }
    [[nodiscard]] std::vector<std::uint8_t> sign_list(std::span<const std::uint8_t> list) override { return session_.sign(list); }
    [[nodiscard]] bool check_list(std::span<const std::uint8_t> list, std::span<const std::uint8_t> signature) override {
        return session_.check(list, signature);
    }

private:
    [[nodiscard]] std::string import_service();
    std::vector<std::uint8_t> refuse(const std::string& reason);

    std::string service_;
    gss::name target_;
    gss_session session_;
    state state_ = state::proceed;
    std::string reason_;
};

}  // namespace platform::linux_rpc
