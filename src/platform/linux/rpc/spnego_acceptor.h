#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/negotiable_mechanism.h"

namespace platform::linux_rpc {

/// What all negotiations of a server share.
struct spnego_settings {
    /// What can be chosen.
    std::vector<std::shared_ptr<negotiable_provider>> providers;
    /// Takes a sentence for the log about each negotiation that was refused by itself; the mechanisms report their own.
    std::function<void(const std::string&)> report;
};

/// The server's side of Negotiate: chooses the first of the client's mechanisms that is offered here, wraps its exchange, and has
/// the list signed by both sides where it could have been shortened on the way: when the choice wasn't the client's
/// favourite, when the mechanism demands it, or when the client has signed. A client that has but one mechanism may leave the
/// frame out (MS-SPNG), and is answered without it.
class spnego_acceptor : public security_context {
public:
    spnego_acceptor(std::shared_ptr<const spnego_settings> settings, auth_level level);

    state accept(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) override;
    [[nodiscard]] const client_identity& identity() const override;
    void header_signing(bool agreed) override;
    [[nodiscard]] std::size_t signature_size() const override;

    void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                 std::span<std::uint8_t> signature) override;
    [[nodiscard]] bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                                 std::span<const std::uint8_t> signature) override;

private:
    state take_first(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply);
    state take_bare(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply);
    state take_init(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply);
    state take_response(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply);
    state finish(const spnego::response_message& message, spnego::response_message& answer);
    bool choose(const std::vector<spnego::mechanism_id>& offered, std::size_t& chosen);
    state refuse(const std::string& reason = {});

    std::shared_ptr<const spnego_settings> settings_;
    auth_level level_;
    bool header_signing_ = false;
    state state_ = state::proceed;
    bool bare_ = false;  ///< the client speaks the mechanism without a frame
    bool list_must_be_signed_ = false;
    std::vector<std::uint8_t> list_;
    std::unique_ptr<negotiable_acceptor> chosen_;  ///< null: not chosen yet, or refused
};

}  // namespace platform::linux_rpc
