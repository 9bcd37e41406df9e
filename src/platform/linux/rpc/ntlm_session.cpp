#include "platform/linux/rpc/ntlm_session.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/linux/rpc/little_endian.h"
#include "platform/linux/rpc/ntlm_messages.h"

namespace platform::linux_rpc {

namespace {

constexpr std::size_t checksum_size = 8;

struct magic_constants {
    std::string_view signing;
    std::string_view sealing;
};

constexpr magic_constants client_constants{"session key to client-to-server signing key magic constant",
                                           "session key to client-to-server sealing key magic constant"};
constexpr magic_constants server_constants{"session key to server-to-client signing key magic constant",
                                           "session key to server-to-client sealing key magic constant"};

const magic_constants& constants_of(ntlm_role sender) {
    return sender == ntlm_role::client ? client_constants : server_constants;
}

/// The constants enter the digest with their NUL.
byte_view with_terminator(std::string_view literal) {
    return {reinterpret_cast<const std::uint8_t*>(literal.data()), literal.size() + 1};
}

/// How much of the session key the sealing key is made of.
std::size_t sealing_strength(std::uint32_t flags) {
    if ((flags & ntlm::flag::key_128) != 0) {
        return 16;
    }
    return (flags & ntlm::flag::key_56) != 0 ? 7 : 5;
}

ntlm_role opposite(ntlm_role role) {
    return role == ntlm_role::client ? ntlm_role::server : ntlm_role::client;
}

}  // namespace

ntlm_session::direction::direction(ntlm_role sender, std::uint32_t flags, const secret_key& exported_session_key)
    : signing(md5({exported_session_key.view(), with_terminator(constants_of(sender).signing)}).view()),
      sealing_key(md5({exported_session_key.view().first(sealing_strength(flags)), with_terminator(constants_of(sender).sealing)})),
      sealing(sealing_key.view()) {}

void ntlm_session::direction::sign(byte_view message, std::span<std::uint8_t, 8> checksum) {
    std::array<std::uint8_t, 4> number{};
    store_le32(number, 0, sequence);
    std::array<std::uint8_t, 16> digest{};
    signing.compute({number, message}, digest);
    std::copy_n(digest.begin(), checksum.size(), checksum.begin());
}

ntlm_session::ntlm_session(ntlm_role role, std::uint32_t flags, const secret_key& exported_session_key)
    : encrypts_checksum_((flags & ntlm::flag::key_exchange) != 0),
      outgoing_(role, flags, exported_session_key),
      incoming_(opposite(role), flags, exported_session_key) {}

void ntlm_session::protect(std::span<std::uint8_t> message, std::span<std::uint8_t> secret,
                           std::span<std::uint8_t, signature_size> signature) {
    std::array<std::uint8_t, checksum_size> checksum{};
    outgoing_.sign(message, checksum);
    outgoing_.sealing.apply(secret);
    finish(outgoing_, checksum, signature);
}

bool ntlm_session::unprotect(std::span<std::uint8_t> message, std::span<std::uint8_t> secret,
                             std::span<const std::uint8_t> signature) {
    if (broken_) {
        return false;
    }
    incoming_.sealing.apply(secret);
    return matches(message, signature);
}

std::vector<std::uint8_t> ntlm_session::sign(std::span<const std::uint8_t> text) {
    std::array<std::uint8_t, checksum_size> checksum{};
    outgoing_.sign(text, checksum);
    std::vector<std::uint8_t> signature(signature_size);
    finish(outgoing_, checksum, std::span(signature).first<signature_size>());
    return signature;
}

bool ntlm_session::verify(std::span<const std::uint8_t> text, std::span<const std::uint8_t> signature) {
    return !broken_ && matches(text, signature);
}

bool ntlm_session::matches(byte_view plain_text, std::span<const std::uint8_t> signature) {
    std::array<std::uint8_t, checksum_size> checksum{};
    incoming_.sign(plain_text, checksum);
    std::array<std::uint8_t, signature_size> expected{};
    finish(incoming_, checksum, expected);
    broken_ = !equal_constant_time(expected, signature);
    return !broken_;
}

void ntlm_session::restart_key_streams() {
    for (direction* const way : {&outgoing_, &incoming_}) {
        way->sealing = rc4_stream(way->sealing_key.view());
    }
}

/// Version 1, the checksum, the sequence number; the checksum takes its bytes of the key stream behind the data's.
void ntlm_session::finish(direction& way, std::span<const std::uint8_t, checksum_size> checksum,
                          std::span<std::uint8_t, signature_size> signature) const {
    const auto place = signature.subspan<4, checksum_size>();
    store_le32(signature, 0, 1);
    std::copy(checksum.begin(), checksum.end(), place.begin());
    if (encrypts_checksum_) {
        way.sealing.apply(place);
    }
    store_le32(signature, 12, way.sequence++);
}

}  // namespace platform::linux_rpc
