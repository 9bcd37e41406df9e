#include "rpc/support/raw_pdu.h"

#include <algorithm>

namespace rpc_test {

raw_writer& raw_writer::u8(unsigned value) {
    data.push_back(static_cast<std::uint8_t>(value));
    return *this;
}

raw_writer& raw_writer::u16(unsigned value) {
    return little_ ? u8(value & 255).u8(value >> 8 & 255) : u8(value >> 8 & 255).u8(value & 255);
}

raw_writer& raw_writer::u32(std::uint32_t value) {
    return little_ ? u16(value & 0xFFFF).u16(value >> 16) : u16(value >> 16).u16(value & 0xFFFF);
}

raw_writer& raw_writer::uuid(const std::string& text) {
    std::string digits = text;
    std::erase(digits, '-');
    const auto number = [&](std::size_t at, std::size_t count) {
        return static_cast<std::uint32_t>(std::stoul(digits.substr(at, count), nullptr, 16));
    };
    u32(number(0, 8)).u16(number(8, 4)).u16(number(12, 4));
    for (std::size_t at = 16; at < 32; at += 2) {
        u8(number(at, 2));
    }
    return *this;
}

raw_writer& raw_writer::raw(std::span<const std::uint8_t> value) {
    data.insert(data.end(), value.begin(), value.end());
    return *this;
}

raw_writer& raw_writer::text(const std::string& value) {
    data.insert(data.end(), value.begin(), value.end());
    return *this;
}

raw_writer& raw_writer::zeros(std::size_t count) {
    data.resize(data.size() + count);
    return *this;
}

bytes pdu(unsigned type, unsigned flags, std::uint32_t call_id, const bytes& body, bool little, const raw_auth* auth) {
    const std::size_t token = auth != nullptr ? auth->token.size() : 0;
    const std::size_t length = 16 + body.size() + (auth != nullptr ? auth->pad + 8 + token : 0);
    raw_writer out(little);
    out.u8(5).u8(0).u8(type).u8(flags).u8(little ? 0x10 : 0).zeros(3);
    out.u16(static_cast<unsigned>(length)).u16(static_cast<unsigned>(token)).u32(call_id).raw(body);
    if (auth != nullptr) {
        out.zeros(auth->pad).u8(auth->type).u8(auth->level).u8(auth->pad).u8(0).u32(auth->context_id).raw(auth->token);
    }
    return out.data;
}

bytes bind_pdu(const raw_bind& bind) {
    raw_writer body(bind.little);
    body.u16(bind.max_transmit).u16(bind.max_receive).u32(bind.group);
    body.u8(static_cast<unsigned>(bind.contexts.size())).zeros(3);
    for (const raw_context& context : bind.contexts) {
        body.u16(context.id).u8(1).u8(0);
        body.uuid(context.interface).u32(context.major | context.minor << 16);
        body.uuid(context.syntax).u32(context.syntax_version);
    }
    return pdu(bind.type, bind.flags, bind.call_id, body.data, bind.little, bind.auth);
}

bytes request_pdu(const raw_request& request) {
    raw_writer body(request.little);
    body.u32(static_cast<std::uint32_t>(request.stub.size())).u16(request.context).u16(request.operation).raw(request.stub);
    return pdu(0, request.flags, request.call_id, body.data, request.little, request.auth);
}

bytes text_bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

unsigned le16(std::span<const std::uint8_t> data, std::size_t at) {
    return at + 2 <= data.size() ? data[at] | static_cast<unsigned>(data[at + 1]) << 8 : 0xFFFFFFFF;
}

std::uint32_t le32(std::span<const std::uint8_t> data, std::size_t at) {
    return le16(data, at) | le16(data, at + 2) << 16;
}

}  // namespace rpc_test
