#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/rpc/negotiable_mechanism.h"
#include "platform/linux/rpc/ntlm_environment.h"
#include "platform/linux/rpc/ntlm_messages.h"
#include "platform/linux/rpc/ntlm_session.h"

namespace platform::linux_rpc {

/// Who a client is, ready to answer challenges: the password is gone, its hash is what counts.
struct ntlm_credentials {
    std::u16string domain;
    std::u16string user;
    std::u16string workstation;
    secret_key hash;

    /// From UTF-8 text; "DOMAIN\user" names both. Throws `std::invalid_argument` on malformed text or an empty user.
    [[nodiscard]] static ntlm_credentials of(std::string_view name, std::string_view password);
};

/// The client's side of NTLM: version 2 with 128-bit keys, key exchange and extended session security, or nothing. It bears
/// the integrity code whenever the challenge has a time stamp.
class ntlm_initiator : public negotiable_initiator {
public:
    explicit ntlm_initiator(ntlm_credentials credentials, ntlm_environment environment = ntlm_environment::of_system());

    [[nodiscard]] std::uint8_t auth_type() const override;
    std::vector<std::uint8_t> next_token(std::span<const std::uint8_t> server_token) override;
    [[nodiscard]] state current_state() const override { return state_; }
    [[nodiscard]] std::size_t signature_size() const override { return ntlm_session::signature_size; }

    void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                 std::span<std::uint8_t> signature) override;
    [[nodiscard]] bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                                 std::span<const std::uint8_t> signature) override;

    /// Whoever signs the messages of NTLM signs the list of mechanisms, too.
    [[nodiscard]] bool demands_signed_list() const override { return with_mic_; }
    [[nodiscard]] std::vector<std::uint8_t> sign_list(std::span<const std::uint8_t> list) override;
    [[nodiscard]] bool check_list(std::span<const std::uint8_t> list, std::span<const std::uint8_t> signature) override;
    void list_is_signed() override;

private:
    std::vector<std::uint8_t> answer(const ntlm::challenge_message& challenge, std::span<const std::uint8_t> challenge_token);
    [[nodiscard]] std::vector<std::uint8_t> build_blob(const ntlm::av_pairs& pairs, std::span<const std::uint8_t> time);
    std::vector<std::uint8_t> refuse();

    ntlm_credentials credentials_;
    ntlm_environment environment_;
    state state_ = state::proceed;
    std::vector<std::uint8_t> negotiate_token_;
    bool with_mic_ = false;  ///< the AUTHENTICATE bears an integrity code
    std::optional<ntlm_session> session_;
};

}  // namespace platform::linux_rpc
