#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/linux/rpc/ntlm_crypto.h"

namespace platform::linux_rpc {

enum class ntlm_role : std::uint8_t { client, server };

/// Protection of messages after an NTLM authentication with extended session security (MS-NLMP 3.4): a signing key and an RC4
/// stream for each direction, each with its sequence number from 0. Used by one thread at a time.
class ntlm_session {
public:
    static constexpr std::size_t signature_size = 16;

    /// `flags` are the negotiated ones: they decide on the strength of the sealing keys and on the encryption of the checksums.
    ntlm_session(ntlm_role role, std::uint32_t flags, const secret_key& exported_session_key);

    /// Signs an outgoing message over its plain text, then encrypts `secret`, a range within it, in place.
    void protect(std::span<std::uint8_t> message, std::span<std::uint8_t> secret,
                 std::span<std::uint8_t, signature_size> signature);

    /// Decrypts `secret` within an incoming message in place and checks the signature, the sequence number included. After a
    /// false the streams are out of step, and every further message fails too.
    [[nodiscard]] bool unprotect(std::span<std::uint8_t> message, std::span<std::uint8_t> secret,
                                 std::span<const std::uint8_t> signature);

    /// The same for a text that travels in the clear.
    [[nodiscard]] std::vector<std::uint8_t> sign(std::span<const std::uint8_t> text);
    [[nodiscard]] bool verify(std::span<const std::uint8_t> text, std::span<const std::uint8_t> signature);

    /// Begins the key streams of both directions anew, while the sequence numbers go on: what Negotiate does behind the
    /// signatures over its list of mechanisms.
    void restart_key_streams();

private:
    struct direction {
        direction(ntlm_role sender, std::uint32_t flags, const secret_key& exported_session_key);
        void sign(byte_view message, std::span<std::uint8_t, 8> checksum);

        hmac_md5_under_key signing;
        secret_key sealing_key;
        rc4_stream sealing;
        std::uint32_t sequence = 0;
    };

    [[nodiscard]] bool matches(byte_view plain_text, std::span<const std::uint8_t> signature);
    void finish(direction& way, std::span<const std::uint8_t, 8> checksum, std::span<std::uint8_t, signature_size> signature) const;

    bool encrypts_checksum_;
    bool broken_ = false;
    direction outgoing_;
    direction incoming_;
};

}  // namespace platform::linux_rpc
