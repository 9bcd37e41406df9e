#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/wire.h"

/// The PDUs of the connection-oriented protocol (C706 chapter 12, MS-RPCE 2.2.2): decoding of what peers send, in both byte
/// orders, and encoding, little-endian. Decoders read only what was received, and keep no more than a constant multiple of it.
namespace platform::linux_rpc {

namespace pdu_type {
inline constexpr std::uint8_t request = 0;
inline constexpr std::uint8_t response = 2;
inline constexpr std::uint8_t fault = 3;
inline constexpr std::uint8_t bind = 11;
inline constexpr std::uint8_t bind_ack = 12;
inline constexpr std::uint8_t bind_nak = 13;
inline constexpr std::uint8_t alter_context = 14;
inline constexpr std::uint8_t alter_context_resp = 15;
inline constexpr std::uint8_t auth3 = 16;
inline constexpr std::uint8_t shutdown = 17;
inline constexpr std::uint8_t co_cancel = 18;
inline constexpr std::uint8_t orphaned = 19;
}  // namespace pdu_type

namespace pdu_flag {
inline constexpr std::uint8_t first = 0x01;
inline constexpr std::uint8_t last = 0x02;
inline constexpr std::uint8_t header_sign = 0x04;  ///< on bind, alter_context and their answers; pending cancel elsewhere
inline constexpr std::uint8_t multiplex = 0x10;
inline constexpr std::uint8_t did_not_execute = 0x20;
inline constexpr std::uint8_t maybe = 0x40;
inline constexpr std::uint8_t object_uuid = 0x80;
}  // namespace pdu_flag

namespace fault_status {
inline constexpr std::uint32_t access_denied = 5;
inline constexpr std::uint32_t security_package = 0x721;
inline constexpr std::uint32_t operation_range = 0x1C010002;
inline constexpr std::uint32_t unknown_interface = 0x1C010003;
inline constexpr std::uint32_t protocol_error = 0x1C01000B;
inline constexpr std::uint32_t server_too_busy = 0x1C010014;
inline constexpr std::uint32_t unspecified = 0x1C000012;
inline constexpr std::uint32_t no_memory = 0x1C00001B;
}  // namespace fault_status

namespace nak_reason {
inline constexpr std::uint16_t not_specified = 0;
inline constexpr std::uint16_t temporary_congestion = 1;
inline constexpr std::uint16_t local_limit_exceeded = 2;
inline constexpr std::uint16_t protocol_version = 4;
inline constexpr std::uint16_t authentication_type = 8;
inline constexpr std::uint16_t invalid_checksum = 9;
}  // namespace nak_reason

inline constexpr std::size_t pdu_header_size = 16;
inline constexpr std::size_t request_header_size = 24;
inline constexpr std::size_t object_uuid_size = 16;
inline constexpr std::size_t auth_trailer_size = 8;
/// Stub data of a protected PDU is filled up to a multiple of this (MS-RPCE 2.2.2.11).
inline constexpr std::size_t auth_alignment = 16;

struct pdu_header {
    std::uint8_t version = 5;
    std::uint8_t minor_version = 0;
    std::uint8_t type = 0;
    std::uint8_t flags = 0;
    bool little_endian = true;
    std::uint16_t fragment_length = 0;
    std::uint16_t auth_length = 0;
    std::uint32_t call_id = 0;

    [[nodiscard]] bool has(std::uint8_t flag) const { return (flags & flag) != 0; }
};

/// Decodes the first 16 bytes. Nothing: there are fewer. No field is judged.
[[nodiscard]] std::optional<pdu_header> decode_header(std::span<const std::uint8_t> bytes);
/// Whether the lengths make sense together: a fragment at least as long as the parts that it says it has.
[[nodiscard]] bool plausible(const pdu_header& header);

/// The authentication verifier at the end of a PDU.
struct auth_trailer {
    std::uint8_t type = 0;
    std::uint8_t level = 0;
    std::uint8_t pad_length = 0;
    std::uint32_t context_id = 0;
    std::size_t offset = 0;               ///< of the 8 bytes in front of the token, within the PDU
    std::span<const std::uint8_t> token;  ///< `auth_length` bytes, the last ones of the PDU
};

/// Decodes the verifier of a whole PDU whose header says that there is one. `body_offset` is where stub data or the like
/// begins: neither the verifier nor its padding may reach in front of it. Nothing: they do.
[[nodiscard]] std::optional<auth_trailer> decode_auth_trailer(const pdu_header& header, std::span<const std::uint8_t> pdu,
                                                              std::size_t body_offset);

/// One entry of a presentation context list.
struct context_offer {
    std::uint16_t id = 0;
    syntax_id interface;
    std::vector<syntax_id> transfer_syntaxes;
};

/// Body of bind and alter_context.
struct bind_body {
    std::uint16_t max_transmit = 0;
    std::uint16_t max_receive = 0;
    std::uint32_t association_group = 0;
    std::vector<context_offer> contexts;
};
/// Decodes the body that follows the header, without the verifier.
[[nodiscard]] std::optional<bind_body> decode_bind_body(std::span<const std::uint8_t> body, bool little_endian);

struct context_result {
    std::uint16_t result = 0;
    std::uint16_t reason = 0;
    syntax_id transfer_syntax;
};

namespace negotiation {
inline constexpr std::uint16_t acceptance = 0;
inline constexpr std::uint16_t provider_rejection = 2;
inline constexpr std::uint16_t negotiate_ack = 3;
inline constexpr std::uint16_t reason_not_specified = 0;
inline constexpr std::uint16_t abstract_syntax_not_supported = 1;
inline constexpr std::uint16_t transfer_syntaxes_not_supported = 2;
inline constexpr std::uint16_t local_limit_exceeded = 3;
}  // namespace negotiation

/// Body of bind_ack and alter_context_resp.
struct bind_ack_body {
    std::uint16_t max_transmit = 0;
    std::uint16_t max_receive = 0;
    std::uint32_t association_group = 0;
    std::string secondary_address;
    std::vector<context_result> results;
};
[[nodiscard]] std::optional<bind_ack_body> decode_bind_ack_body(std::span<const std::uint8_t> body, bool little_endian);

/// A verifier to put behind a PDU that sets up security.
struct auth_token {
    std::uint8_t type = 0;
    std::uint8_t level = 0;
    std::uint32_t context_id = 0;
    std::span<const std::uint8_t> token;  ///< empty: no verifier
};

void encode_header(std::span<std::uint8_t> out, const pdu_header& header);
[[nodiscard]] std::vector<std::uint8_t> encode_bind(std::uint8_t type, std::uint8_t flags, std::uint32_t call_id,
                                                    const bind_body& body, const auth_token& auth);
[[nodiscard]] std::vector<std::uint8_t> encode_bind_ack(std::uint8_t type, std::uint8_t flags, std::uint32_t call_id,
                                                        const bind_ack_body& body, const auth_token& auth);
[[nodiscard]] std::vector<std::uint8_t> encode_bind_nak(std::uint32_t call_id, std::uint16_t reason);
[[nodiscard]] std::vector<std::uint8_t> encode_auth3(std::uint32_t call_id, const auth_token& auth);
[[nodiscard]] std::vector<std::uint8_t> encode_fault(std::uint32_t call_id, std::uint16_t context_id, std::uint8_t flags,
                                                     std::uint32_t status);
[[nodiscard]] std::vector<std::uint8_t> encode_shutdown();

/// Writes the 24 bytes in front of the stub data of a request (`operation` its number) or response (`operation` 0).
void encode_call_header(std::span<std::uint8_t> out, const pdu_header& header, std::uint32_t alloc_hint, std::uint16_t context_id,
                        std::uint16_t operation);
/// Writes the 8 bytes in front of a token.
void encode_auth_trailer(std::span<std::uint8_t> out, std::uint8_t type, std::uint8_t level, std::uint8_t pad_length,
                         std::uint32_t context_id);

/// NDR, 8a885d04-1ceb-11c9-9fe8-08002b104860 version 2.
[[nodiscard]] const syntax_id& ndr_transfer_syntax();

}  // namespace platform::linux_rpc
