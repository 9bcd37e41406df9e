#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The tokens of the Negotiate mechanism (RFC 4178, MS-SPNG).
namespace platform::linux_rpc::spnego {

/// Contents of an OBJECT IDENTIFIER, without tag and length.
using mechanism_id = std::vector<std::uint8_t>;

namespace mechanism {
/// 1.2.840.113554.1.2.2
inline const mechanism_id kerberos{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x12, 0x01, 0x02, 0x02};
/// 1.2.840.48018.1.2.2: the same mechanism, under a number that was once misprinted and has been in use ever since.
inline const mechanism_id kerberos_misprinted{0x2A, 0x86, 0x48, 0x82, 0xF7, 0x12, 0x01, 0x02, 0x02};
/// 1.3.6.1.4.1.311.2.2.10
inline const mechanism_id ntlm{0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x02, 0x02, 0x0A};
}  // namespace mechanism

enum class neg_state : std::uint8_t { accept_completed = 0, accept_incomplete = 1, reject = 2, request_mic = 3 };

/// The client's first token.
struct init_message {
    std::vector<mechanism_id> mechanisms;      ///< the client's favourite first
    std::vector<std::uint8_t> mechanism_list;  ///< their list as it lies in the token: what both sides sign
    std::vector<std::uint8_t> token;           ///< the favourite's first token; empty: none
};

/// Each token behind the first, of both sides.
struct response_message {
    std::optional<neg_state> state;
    mechanism_id mechanism;              ///< empty: not said
    std::vector<std::uint8_t> token;     ///< empty: none
    std::vector<std::uint8_t> list_mic;  ///< signature over the list of mechanisms; empty: none
};

/// Most mechanisms that a client may name.
inline constexpr std::size_t most_mechanisms = 32;

/// The mechanism whose own first token this is, without the frame of Negotiate; empty: none that is known here.
[[nodiscard]] mechanism_id mechanism_of_bare(std::span<const std::uint8_t> token);

/// Decoders take tokens as they came from anybody: nothing on any deviation from DER, on a missing or an empty list, on bytes
/// behind the token. Fields that later editions may have added behind the known ones are passed over.
[[nodiscard]] std::optional<init_message> decode_init(std::span<const std::uint8_t> token);
[[nodiscard]] std::optional<response_message> decode_response(std::span<const std::uint8_t> token);

/// The list as the first token bears it and as both sides sign it.
[[nodiscard]] std::vector<std::uint8_t> encode_mechanism_list(std::span<const mechanism_id> mechanisms);
[[nodiscard]] std::vector<std::uint8_t> encode_init(std::span<const std::uint8_t> mechanism_list,
                                                    std::span<const std::uint8_t> token);
[[nodiscard]] std::vector<std::uint8_t> encode_response(const response_message& message);

}  // namespace platform::linux_rpc::spnego
