#include "platform/linux/rpc/pdu.h"

#include <algorithm>

namespace platform::linux_rpc {

namespace {

constexpr std::uint8_t whole = pdu_flag::first | pdu_flag::last;

std::vector<std::uint8_t> begin_pdu(std::uint8_t type, std::uint8_t flags, std::uint32_t call_id) {
    std::vector<std::uint8_t> out(pdu_header_size);
    pdu_header header;
    header.type = type;
    header.flags = static_cast<std::uint8_t>(flags | whole);
    header.call_id = call_id;
    encode_header(out, header);
    return out;
}

void end_pdu(std::vector<std::uint8_t>& out, const auth_token& auth) {
    wire_writer writer(out);
    if (!auth.token.empty()) {
        const std::size_t before = out.size();
        writer.align(4);
        const std::size_t trailer = out.size();
        writer.zeros(auth_trailer_size);
        encode_auth_trailer(std::span(out).subspan(trailer), auth.type, auth.level, static_cast<std::uint8_t>(trailer - before),
                            auth.context_id);
        writer.bytes(auth.token);
        writer.patch_u16(10, static_cast<std::uint16_t>(auth.token.size()));
    }
    writer.patch_u16(8, static_cast<std::uint16_t>(out.size()));
}

}  // namespace

std::optional<pdu_header> decode_header(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < pdu_header_size) {
        return std::nullopt;
    }
    pdu_header header;
    header.version = bytes[0];
    header.minor_version = bytes[1];
    header.type = bytes[2];
    header.flags = bytes[3];
    header.little_endian = (bytes[4] & 0xF0) == 0x10;
    wire_reader reader(bytes.subspan(8, 8), header.little_endian);
    header.fragment_length = reader.u16();
    header.auth_length = reader.u16();
    header.call_id = reader.u32();
    return header;
}

bool plausible(const pdu_header& header) {
    const std::size_t verifier = header.auth_length == 0 ? 0 : header.auth_length + auth_trailer_size;
    return header.fragment_length >= pdu_header_size + verifier;
}

std::optional<auth_trailer> decode_auth_trailer(const pdu_header& header, std::span<const std::uint8_t> pdu,
                                                std::size_t body_offset) {
    const std::size_t size = auth_trailer_size + header.auth_length;
    if (header.auth_length == 0 || pdu.size() < body_offset + size) {
        return std::nullopt;
    }
    auth_trailer trailer;
    trailer.offset = pdu.size() - size;
    wire_reader reader(pdu.subspan(trailer.offset), header.little_endian);
    trailer.type = reader.u8();
    trailer.level = reader.u8();
    trailer.pad_length = reader.u8();
    reader.skip(1);
    trailer.context_id = reader.u32();
    trailer.token = reader.bytes(header.auth_length);
    if (trailer.pad_length > trailer.offset - body_offset) {
        return std::nullopt;
    }
    return trailer;
}

std::optional<bind_body> decode_bind_body(std::span<const std::uint8_t> body, bool little_endian) {
    wire_reader reader(body, little_endian);
    bind_body decoded;
    decoded.max_transmit = reader.u16();
    decoded.max_receive = reader.u16();
    decoded.association_group = reader.u32();
    const std::size_t contexts = reader.u8();
    reader.skip(3);
    for (std::size_t i = 0; i < contexts && !reader.failed(); ++i) {
        context_offer offer;
        offer.id = reader.u16();
        const std::size_t syntaxes = reader.u8();
        reader.skip(1);
        offer.interface = reader.syntax();
        for (std::size_t j = 0; j < syntaxes && !reader.failed(); ++j) {
            offer.transfer_syntaxes.push_back(reader.syntax());
        }
        decoded.contexts.push_back(std::move(offer));
    }
    if (reader.failed()) {
        return std::nullopt;
    }
    return decoded;
}

std::optional<bind_ack_body> decode_bind_ack_body(std::span<const std::uint8_t> body, bool little_endian) {
    wire_reader reader(body, little_endian);
    bind_ack_body decoded;
    decoded.max_transmit = reader.u16();
    decoded.max_receive = reader.u16();
    decoded.association_group = reader.u32();
    const auto address = reader.bytes(reader.u16());
    decoded.secondary_address.assign(address.begin(), std::find(address.begin(), address.end(), std::uint8_t{0}));
    reader.align(4);  // the body begins at a multiple of 4 of the PDU
    const std::size_t results = reader.u8();
    reader.skip(3);
    for (std::size_t i = 0; i < results && !reader.failed(); ++i) {
        context_result result;
        result.result = reader.u16();
        result.reason = reader.u16();
        result.transfer_syntax = reader.syntax();
        decoded.results.push_back(result);
    }
    if (reader.failed()) {
        return std::nullopt;
    }
    return decoded;
}

void encode_header(std::span<std::uint8_t> out, const pdu_header& header) {
    out[0] = header.version;
    out[1] = header.minor_version;
    out[2] = header.type;
    out[3] = header.flags;
    out[4] = 0x10;  // little-endian numbers, ASCII; IEEE floating point in the next byte
    out[5] = 0;
    out[6] = 0;
    out[7] = 0;
    store_le16(out, 8, header.fragment_length);
    store_le16(out, 10, header.auth_length);
    store_le32(out, 12, header.call_id);
}

std::vector<std::uint8_t> encode_bind(std::uint8_t type, std::uint8_t flags, std::uint32_t call_id, const bind_body& body,
                                      const auth_token& auth) {
    std::vector<std::uint8_t> out = begin_pdu(type, flags, call_id);
    wire_writer writer(out);
    writer.u16(body.max_transmit);
    writer.u16(body.max_receive);
    writer.u32(body.association_group);
    writer.u8(static_cast<std::uint8_t>(body.contexts.size()));
    writer.zeros(3);
    for (const context_offer& offer : body.contexts) {
        writer.u16(offer.id);
        writer.u8(static_cast<std::uint8_t>(offer.transfer_syntaxes.size()));
        writer.u8(0);
        writer.syntax(offer.interface);
        for (const syntax_id& syntax : offer.transfer_syntaxes) {
            writer.syntax(syntax);
        }
    }
    end_pdu(out, auth);
    return out;
}

std::vector<std::uint8_t> encode_bind_ack(std::uint8_t type, std::uint8_t flags, std::uint32_t call_id, const bind_ack_body& body,
                                          const auth_token& auth) {
    std::vector<std::uint8_t> out = begin_pdu(type, flags, call_id);
    wire_writer writer(out);
    writer.u16(body.max_transmit);
    writer.u16(body.max_receive);
    writer.u32(body.association_group);
    if (body.secondary_address.empty()) {
        writer.u16(0);
    } else {
        writer.u16(static_cast<std::uint16_t>(body.secondary_address.size() + 1));
        for (const char c : body.secondary_address) {
            writer.u8(static_cast<std::uint8_t>(c));
        }
        writer.u8(0);
    }
    writer.align(4);
    writer.u8(static_cast<std::uint8_t>(body.results.size()));
    writer.zeros(3);
    for (const context_result& result : body.results) {
        writer.u16(result.result);
        writer.u16(result.reason);
        writer.syntax(result.transfer_syntax);
    }
    end_pdu(out, auth);
    return out;
}

std::vector<std::uint8_t> encode_bind_nak(std::uint32_t call_id, std::uint16_t reason) {
    std::vector<std::uint8_t> out = begin_pdu(pdu_type::bind_nak, 0, call_id);
    wire_writer writer(out);
    writer.u16(reason);
    writer.u8(1);  // one version of the protocol is spoken here: 5.0
    writer.u8(5);
    writer.u8(0);
    end_pdu(out, {});
    return out;
}

std::vector<std::uint8_t> encode_auth3(std::uint32_t call_id, const auth_token& auth) {
    std::vector<std::uint8_t> out = begin_pdu(pdu_type::auth3, 0, call_id);
    wire_writer(out).zeros(4);
    end_pdu(out, auth);
    return out;
}

std::vector<std::uint8_t> encode_fault(std::uint32_t call_id, std::uint16_t context_id, std::uint8_t flags, std::uint32_t status) {
    std::vector<std::uint8_t> out = begin_pdu(pdu_type::fault, flags, call_id);
    wire_writer writer(out);
    writer.u32(0);
    writer.u16(context_id);
    writer.zeros(2);
    writer.u32(status);
    writer.zeros(4);
    end_pdu(out, {});
    return out;
}

std::vector<std::uint8_t> encode_shutdown() {
    std::vector<std::uint8_t> out = begin_pdu(pdu_type::shutdown, 0, 0);
    end_pdu(out, {});
    return out;
}

void encode_call_header(std::span<std::uint8_t> out, const pdu_header& header, std::uint32_t alloc_hint, std::uint16_t context_id,
                        std::uint16_t operation) {
    encode_header(out, header);
    store_le32(out, 16, alloc_hint);
    store_le16(out, 20, context_id);
    store_le16(out, 22, operation);
}

void encode_auth_trailer(std::span<std::uint8_t> out, std::uint8_t type, std::uint8_t level, std::uint8_t pad_length,
                         std::uint32_t context_id) {
    out[0] = type;
    out[1] = level;
    out[2] = pad_length;
    out[3] = 0;
    store_le32(out, 4, context_id);
}

const syntax_id& ndr_transfer_syntax() {
    static const syntax_id syntax{uuid_from_text("8a885d04-1ceb-11c9-9fe8-08002b104860"), 2, 0};
    return syntax;
}

}  // namespace platform::linux_rpc
