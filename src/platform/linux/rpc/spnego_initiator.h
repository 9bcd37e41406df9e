#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/negotiable_mechanism.h"

namespace platform::linux_rpc {

/// The client's side of Negotiate: offers mechanisms, the favourite with its first token, and follows the server's choice. It
/// signs the list, and insists on the server's signature, wherever the list could have been shortened on the way.
class spnego_initiator : public client_security {
public:
    struct candidate {
        std::vector<spnego::mechanism_id> names;
        std::unique_ptr<negotiable_initiator> mechanism;
    };

    static candidate kerberos(std::unique_ptr<negotiable_initiator> mechanism);
    static candidate ntlm(std::unique_ptr<negotiable_initiator> mechanism);

    /// The favourite first. One that can't even begin, as Kerberos without a ticket, isn't offered.
    explicit spnego_initiator(std::vector<candidate> candidates);

    [[nodiscard]] std::uint8_t auth_type() const override;
    std::vector<std::uint8_t> next_token(std::span<const std::uint8_t> server_token) override;
    [[nodiscard]] state current_state() const override { return state_; }
    [[nodiscard]] std::string reason() const override { return reason_; }
    /// The server has the last word.
    [[nodiscard]] bool ends_by_alter_context() const override { return true; }
    void header_signing(bool agreed) override;
    [[nodiscard]] std::size_t signature_size() const override;

    void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                 std::span<std::uint8_t> signature) override;
    [[nodiscard]] bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                                 std::span<const std::uint8_t> signature) override;

private:
    enum class stage : std::uint8_t { start, offered, exchange, last_word };

    std::vector<std::uint8_t> offer();
    std::vector<std::uint8_t> follow_choice(const spnego::response_message& message);
    std::vector<std::uint8_t> feed(std::span<const std::uint8_t> token);
    void take_last_word(const spnego::response_message& message);
    std::vector<std::uint8_t> refuse(const std::string& reason);
    [[nodiscard]] negotiable_initiator& chosen() const { return *candidates_.front().mechanism; }

    std::vector<candidate> candidates_;  ///< once the server has chosen, the choice comes first
    stage stage_ = stage::start;
    state state_ = state::proceed;
    std::string reason_;
    std::vector<std::uint8_t> list_;
    bool list_must_be_signed_ = false;
    bool signed_ = false;
};

}  // namespace platform::linux_rpc
