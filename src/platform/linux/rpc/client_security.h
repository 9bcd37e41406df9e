#pragma once

#include "platform/linux/rpc/security_context.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace platform::linux_rpc {

/// The initiator's side of one authentication on one connection, and afterwards the protection of its PDUs: the mirror image
/// of `security_context`. Used by one thread at a time.
class client_security {
public:
    enum class state : std::uint8_t {
        proceed,   ///< the token made last goes to the server, which has to answer it
        complete,  ///< the token made last, if any, is the final one; PDUs can be protected
        refused    ///< the server's token can't be accepted; nothing is sent any more
    };

    virtual ~client_security() = default;

    /// auth_type on the wire: 9, 10 or 16.
    [[nodiscard]] virtual std::uint8_t auth_type() const = 0;

    /// Makes the next token for the server out of its last one, which is empty the first time. An empty result means that
    /// there is nothing to send. `current_state()` says how to go on.
    virtual std::vector<std::uint8_t> next_token(std::span<const std::uint8_t> server_token) = 0;
    [[nodiscard]] virtual state current_state() const = 0;

    /// Whether the final token goes by alter_context, which the server answers with a token of its own, instead of auth3,
    /// which nobody answers.
    [[nodiscard]] virtual bool ends_by_alter_context() const { return false; }

    /// Why it is refused, as a sentence without its stop; empty when there is no more to say than that.
    [[nodiscard]] virtual std::string reason() const { return {}; }

    /// Told once, before the first PDU is protected: whether both sides agreed to sign PDU headers too.
    virtual void header_signing(bool agreed) { (void)agreed; }

    /// Bytes of the signature that a PDU ends with which is protected here. The server's own may be of another size.
    [[nodiscard]] virtual std::size_t signature_size() const = 0;

    /// As `security_context::protect`, for a PDU to the server.
    virtual void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                         std::span<std::uint8_t> signature) = 0;

    /// As `security_context::unprotect`, for a PDU of the server.
    [[nodiscard]] virtual bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset,
                                         std::size_t body_size, std::span<const std::uint8_t> signature) = 0;
};

}  // namespace platform::linux_rpc
