#pragma once

#include <memory>
#include <span>
#include <vector>

#include "platform/linux/rpc/client_security.h"
#include "platform/linux/rpc/security_context.h"
#include "platform/linux/rpc/spnego_messages.h"

namespace platform::linux_rpc {

/// How a mechanism that Negotiate has chosen protects the choice itself: both sides sign the list of mechanisms as the client
/// sent it, so that nobody on the way can strike out the better ones. Used once the mechanism's own exchange is complete.
class mechanism_list_signer {
public:
    /// Whether the exchange was one after which the list has to be signed, even where the client's favourite was chosen.
    [[nodiscard]] virtual bool demands_signed_list() const = 0;
    [[nodiscard]] virtual std::vector<std::uint8_t> sign_list(std::span<const std::uint8_t> list) = 0;
    [[nodiscard]] virtual bool check_list(std::span<const std::uint8_t> list, std::span<const std::uint8_t> signature) = 0;
    /// Both sides have signed and checked.
    virtual void list_is_signed() {}

protected:
    ~mechanism_list_signer() = default;
};

/// A mechanism's server side that can be chosen by Negotiate, too.
class negotiable_acceptor : public security_context, public mechanism_list_signer {
public:
    /// Whether the client has agreed to signatures at all. One that wants nothing but to connect may do without.
    [[nodiscard]] virtual bool agreed_to_sign() const = 0;
};

/// The same of the client's side.
class negotiable_initiator : public client_security, public mechanism_list_signer {};

/// A kind of authentication that can be chosen by Negotiate, too.
class negotiable_provider : public security_provider {
public:
    /// The numbers that clients know it by.
    [[nodiscard]] virtual std::span<const spnego::mechanism_id> mechanisms() const = 0;
    [[nodiscard]] virtual std::unique_ptr<negotiable_acceptor> create_negotiable(auth_level level) = 0;
    [[nodiscard]] std::unique_ptr<security_context> create(auth_level level) final { return create_negotiable(level); }
};

}  // namespace platform::linux_rpc
