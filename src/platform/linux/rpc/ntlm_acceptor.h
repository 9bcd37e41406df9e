#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/rpc/accounts_file.h"
#include "platform/linux/rpc/negotiable_mechanism.h"
#include "platform/linux/rpc/ntlm_environment.h"
#include "platform/linux/rpc/ntlm_messages.h"
#include "platform/linux/rpc/ntlm_session.h"

namespace platform::linux_rpc {

/// Names of this machine as a challenge bears them.
struct ntlm_host_names {
    std::u16string netbios_computer;
    std::u16string netbios_domain;
    std::u16string dns_computer;
    std::u16string dns_domain;

    /// The names that follow from a fully qualified DNS name. The machine is its own domain: the accounts are its own.
    [[nodiscard]] static ntlm_host_names of(std::string_view fully_qualified);
};

/// What all acceptors of a server share.
struct ntlm_acceptor_settings {
    ntlm_host_names names;
    std::shared_ptr<account_source> accounts;
    ntlm_environment environment;
    /// Takes a sentence for the log about each authentication that was refused; the client is told no reason.
    std::function<void(const std::string&)> report;
};

/// The server's side of NTLM: version 2 only, with extended session security. Its challenge bears a time stamp, so that
/// current clients protect all three messages by an integrity code, which is then demanded.
class ntlm_acceptor : public negotiable_acceptor {
public:
    explicit ntlm_acceptor(std::shared_ptr<const ntlm_acceptor_settings> settings);

    state accept(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) override;
    /// The name is "COMPUTER\account": the domain that a client claims proves nothing about it.
    [[nodiscard]] const client_identity& identity() const override { return identity_; }
    [[nodiscard]] std::size_t signature_size() const override { return ntlm_session::signature_size; }

    void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                 std::span<std::uint8_t> signature) override;
    [[nodiscard]] bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                                 std::span<const std::uint8_t> signature) override;

    /// Whoever signs the messages of NTLM signs the list of mechanisms, too.
    [[nodiscard]] bool demands_signed_list() const override { return with_mic_; }
    [[nodiscard]] bool agreed_to_sign() const override;
    [[nodiscard]] std::vector<std::uint8_t> sign_list(std::span<const std::uint8_t> list) override;
    [[nodiscard]] bool check_list(std::span<const std::uint8_t> list, std::span<const std::uint8_t> signature) override;
    void list_is_signed() override;

private:
    enum class stage : std::uint8_t { negotiate, authenticate, complete, dead };

    /// Each answers with why the client isn't let in; empty when all is well.
    std::string take_negotiate(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply);
    std::string take_authenticate(std::span<const std::uint8_t> token);
    std::string verify(const ntlm::authenticate_message& message, std::span<const std::uint8_t> token);
    std::string establish(const ntlm::authenticate_message& message, std::span<const std::uint8_t> token,
                          const secret_key& session_base_key, const ntlm::av_pairs& pairs);

    [[nodiscard]] std::vector<std::uint8_t> target_info() const;
    state refuse(const std::string& reason);

    std::shared_ptr<const ntlm_acceptor_settings> settings_;
    stage stage_ = stage::negotiate;
    std::vector<std::uint8_t> negotiate_token_;
    std::vector<std::uint8_t> challenge_token_;
    ntlm::challenge_bytes challenge_{};
    std::uint32_t flags_ = 0;
    std::string claimed_;  ///< who the client says it is, for the log
    client_identity identity_;
    bool with_mic_ = false;  ///< the AUTHENTICATE bears an integrity code
    std::optional<ntlm_session> session_;
};

}  // namespace platform::linux_rpc
