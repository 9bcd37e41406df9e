#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace platform::linux_rpc::ntlm {

/// NegotiateFlags (MS-NLMP 2.2.2.5) that this system reads or sets.
namespace flag {
inline constexpr std::uint32_t unicode = 0x00000001;
inline constexpr std::uint32_t request_target = 0x00000004;
inline constexpr std::uint32_t sign = 0x00000010;
inline constexpr std::uint32_t seal = 0x00000020;
inline constexpr std::uint32_t datagram = 0x00000040;
inline constexpr std::uint32_t ntlm = 0x00000200;
inline constexpr std::uint32_t anonymous = 0x00000800;
inline constexpr std::uint32_t domain_supplied = 0x00001000;
inline constexpr std::uint32_t workstation_supplied = 0x00002000;
inline constexpr std::uint32_t always_sign = 0x00008000;
inline constexpr std::uint32_t target_type_server = 0x00020000;
inline constexpr std::uint32_t extended_session_security = 0x00080000;
inline constexpr std::uint32_t target_info = 0x00800000;
inline constexpr std::uint32_t version = 0x02000000;
inline constexpr std::uint32_t key_128 = 0x20000000;
inline constexpr std::uint32_t key_exchange = 0x40000000;
inline constexpr std::uint32_t key_56 = 0x80000000;
}  // namespace flag

/// Kinds of AV_PAIR (MS-NLMP 2.2.2.1).
enum class av_id : std::uint16_t {
    end = 0,
    netbios_computer = 1,
    netbios_domain = 2,
    dns_computer = 3,
    dns_domain = 4,
    flags = 6,
    timestamp = 7,
    target_name = 9,
    channel_bindings = 10
};

/// Bit of the `flags` pair: the AUTHENTICATE_MESSAGE bears an integrity code.
inline constexpr std::uint32_t av_flag_mic = 0x00000002;

struct av_pair {
    std::uint16_t id = 0;
    std::vector<std::uint8_t> value;
};

/// Pairs in their order, the closing one left out.
using av_pairs = std::vector<av_pair>;

/// Where the integrity code lies in an AUTHENTICATE_MESSAGE that bears one, and where its payload may begin then.
inline constexpr std::size_t mic_offset = 72;
inline constexpr std::size_t mic_size = 16;
inline constexpr std::size_t payload_offset_with_mic = mic_offset + mic_size;

/// What precedes the AV_PAIRs in the client's blob, the version numbers at its start included.
inline constexpr std::size_t proof_size = 16;
inline constexpr std::size_t blob_header_size = 28;

using version_bytes = std::array<std::uint8_t, 8>;
using challenge_bytes = std::array<std::uint8_t, 8>;

struct negotiate_message {
    std::uint32_t flags = 0;
};

struct challenge_message {
    std::uint32_t flags = 0;
    challenge_bytes challenge{};
    std::u16string target_name;
    std::vector<std::uint8_t> target_info;  ///< AV_PAIRs as they lie in the message
    version_bytes version{};
};

struct authenticate_message {
    std::uint32_t flags = 0;
    std::u16string domain;
    std::u16string user;
    std::u16string workstation;
    std::vector<std::uint8_t> lm_response;
    std::vector<std::uint8_t> nt_response;
    std::vector<std::uint8_t> encrypted_session_key;
    version_bytes version{};
    std::size_t payload_offset = 0;  ///< where the first field that isn't empty begins; decoding only
};

/// Decoders take a message as it came from anybody: nothing on a message that is too short, of another type, or whose fields
/// point outside it or into its fixed part. Text has to be well-formed UTF-16.
[[nodiscard]] std::optional<negotiate_message> decode_negotiate(std::span<const std::uint8_t> message);
[[nodiscard]] std::optional<challenge_message> decode_challenge(std::span<const std::uint8_t> message);
[[nodiscard]] std::optional<authenticate_message> decode_authenticate(std::span<const std::uint8_t> message);

/// Pairs up to the closing one, which has to be there; what lies behind it is padding.
[[nodiscard]] std::optional<av_pairs> decode_av_pairs(std::span<const std::uint8_t> bytes);
/// The first pair of a kind, null when there is none.
[[nodiscard]] const av_pair* find_pair(const av_pairs& pairs, av_id id);

[[nodiscard]] std::vector<std::uint8_t> encode_negotiate(std::uint32_t flags, const version_bytes& version);
[[nodiscard]] std::vector<std::uint8_t> encode_challenge(const challenge_message& message);
/// Keeps room for the integrity code, zeroed, when asked to.
[[nodiscard]] std::vector<std::uint8_t> encode_authenticate(const authenticate_message& message, bool with_mic);
/// The pairs and the closing one.
[[nodiscard]] std::vector<std::uint8_t> encode_av_pairs(const av_pairs& pairs);

}  // namespace platform::linux_rpc::ntlm
