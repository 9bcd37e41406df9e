#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/gss_support.h"
#include "platform/linux/rpc/security_context.h"

namespace platform::linux_rpc {

/// A Kerberos security context of either side, and the protection of PDUs by it in the DCE form (RFC 4121, MS-KILE 3.4.5.4): the
/// signature stands apart from what it protects, and with header signing it covers the whole PDU. Used by one thread at a time.
class gss_session {
public:
    explicit gss_session(auth_level level) : level_(level) {}

    [[nodiscard]] gss_ctx_id_t* context() { return context_.place(); }
    void header_signing(bool agreed) { header_signing_ = agreed; }

    /// Takes the established context into use. Empty when it gives what the level needs, else what it lacks.
    [[nodiscard]] std::string establish(OM_uint32 flags);
    [[nodiscard]] bool established() const { return established_; }

    [[nodiscard]] std::size_t signature_size() const { return signature_size_; }

    /// A failure, for which only a lack of memory is left, spoils the PDU rather than letting it out unprotected.
    void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                 std::span<std::uint8_t> signature);
    /// False, too, when the PDU was repeated or others are missing in front of it.
    [[nodiscard]] bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                                 std::span<const std::uint8_t> signature);

    [[nodiscard]] std::vector<std::uint8_t> sign(std::span<const std::uint8_t> text);
    [[nodiscard]] bool check(std::span<const std::uint8_t> text, std::span<const std::uint8_t> signature);

private:
    [[nodiscard]] bool measure_signature();
    [[nodiscard]] bool plausible(std::span<const std::uint8_t> signature, bool seals) const;

    auth_level level_;
    bool header_signing_ = false;
    bool established_ = false;
    std::size_t signature_size_ = 0;
    gss::context context_;
};

}  // namespace platform::linux_rpc
