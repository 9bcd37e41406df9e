// What a peer may send: a stream of PDUs into the protocol of one connection, with an authentication that lets everybody in
// and signatures that are always good, so that the input gets far; calls are served, and their answers made.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "platform/linux/rpc/call.h"
#include "platform/linux/rpc/endpoint_mapper.h"
#include "platform/linux/rpc/management_interface.h"
#include "platform/linux/rpc/pdu.h"
#include "platform/linux/rpc/server_core.h"
#include "platform/linux/rpc/session.h"

namespace {

using namespace platform::linux_rpc;

class gullible_context final : public security_context {
public:
    state accept(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) override {
        reply.assign(token.begin(), token.end());
        identity_.authenticated = true;
        return token.size() % 3 == 0 ? state::refused : token.size() % 3 == 1 ? state::proceed : state::complete;
    }
    const client_identity& identity() const override { return identity_; }
    std::size_t signature_size() const override { return 16; }
    void protect(auth_level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                 std::span<std::uint8_t> signature) override {
        if (offset + size + auth_trailer_size != pdu.size() || signature.size() != 16) {
            std::abort();
        }
    }
    bool unprotect(auth_level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                   std::span<const std::uint8_t> signature) override {
        if (offset + size + auth_trailer_size != pdu.size()) {
            std::abort();
        }
        return signature[0] != 0xFF;
    }

private:
    client_identity identity_;
};

class gullible_provider final : public security_provider {
public:
    std::uint8_t auth_type() const override { return 10; }
    bool supports(auth_level) const override { return true; }
    std::unique_ptr<security_context> create(auth_level) override { return std::make_unique<gullible_context>(); }
};

platform::rpc_interface echo_interface() {
    platform::rpc_interface offered;
    offered.uuid = uuid_from_text("12345678-9abc-def0-1122-334455667788");
    offered.major_version = 1;
    offered.operations = 2;
    offered.dispatch = [](const platform::rpc_request& request, platform::rpc_reply& reply) {
        std::ranges::copy(request.stub, reply.allocate(request.stub.size()).begin());
        return 0U;
    };
    return offered;
}

struct server {
    server() {
        core.limits.request_bytes = 100'000;
        core.security.add(std::make_shared<gullible_provider>());
        (void)core.security.enable(10, "svc/host");
        core.interfaces.add({echo_interface(), 0xFFFFFFFF, false});
        core.interfaces.add({mapper.description(), 0xFFFFFFFF, true});
        core.interfaces.add({management_interface(core), 0xFFFFFFFF, true});
        mapper.enter(id_of(echo_interface()), "echo", {6166});
        core.listening = true;
    }
    server_core core;
    endpoint_mapper mapper;
};

/// Every PDU of an answer has to be whole and as long as it says.
void check(std::span<const std::uint8_t> answer) {
    while (!answer.empty()) {
        const auto header = decode_header(answer);
        if (!header || !plausible(*header) || header->fragment_length > answer.size()) {
            std::abort();
        }
        answer = answer.subspan(header->fragment_length);
    }
}

/// The answers of a client that may multiplex are signed in parts.
void check(outgoing answer) {
    do {
        std::vector<std::uint8_t> flat;
        for (const auto& piece : answer.pieces) {
            flat.insert(flat.end(), piece.begin(), piece.end());
        }
        check(flat);
    } while (answer.sign_more(2));
}

/// What the first byte of an input says.
struct choices {
    explicit choices(std::uint8_t byte)
        : mended((byte & 1) != 0),
          bound((byte & 2) != 0),
          multiplexed((byte & 4) != 0),
          authenticated((byte & 8) != 0),
          level(static_cast<auth_level>(2 + (byte >> 4) % 5)) {}

    bool mended;         ///< lengths and verifiers that can't be are put right, so that what lies behind them is reached
    bool bound;          ///< the input comes behind a good bind
    bool multiplexed;    ///< which asks for several calls at a time,
    bool authenticated;  ///< and proves who the client is
    auth_level level;
};

std::vector<std::uint8_t> good_bind(server& shared, const choices& chosen) {
    bind_body body{5840, 5840, 0, {}};
    std::uint16_t id = 0;
    for (const syntax_id& offered :
         {id_of(echo_interface()), id_of(shared.mapper.description()), id_of(management_interface(shared.core))}) {
        body.contexts.push_back({id++, offered, {ndr_transfer_syntax()}});
    }
    constexpr std::array<std::uint8_t, 5> complete_at_once{};
    auth_token token;
    if (chosen.authenticated) {
        token = {10, static_cast<std::uint8_t>(chosen.level), 1, complete_at_once};
    }
    return encode_bind(pdu_type::bind, chosen.multiplexed ? pdu_flag::multiplex : std::uint8_t{0}, 1, body, token);
}

/// Makes the beginning of `rest`, of a header's size at least, a PDU of possible lengths.
void mend(std::span<std::uint8_t> rest, const choices& chosen) {
    constexpr std::size_t longest_token = 64;
    pdu_header header = *decode_header(rest);
    const std::size_t longest = std::min<std::size_t>(rest.size(), 5840);
    const std::size_t length =
        header.fragment_length < pdu_header_size ? longest : std::min<std::size_t>(header.fragment_length, longest);
    const std::size_t room = length - pdu_header_size;
    const bool verified = header.auth_length % 4 != 0 && room > auth_trailer_size;
    const std::size_t token = verified ? 1 + header.auth_length % std::min(room - auth_trailer_size, longest_token) : 0;
    const std::array<std::uint8_t, 3> kept{rest[2], rest[3], rest[4]};
    header.version = 5;
    header.minor_version = 0;
    header.fragment_length = static_cast<std::uint16_t>(length);
    header.auth_length = static_cast<std::uint16_t>(token);
    encode_header(rest, header);
    std::ranges::copy(kept, rest.begin() + 2);
    if (header.type == pdu_type::request && length >= request_header_size) {
        // One of the bind's contexts as a rule, and one of the interfaces' operations.
        const auto bind_context = static_cast<std::uint8_t>(rest[20] % 4);
        const auto operation = static_cast<std::uint8_t>(rest[22] % 8);
        rest[20] = header.little_endian ? bind_context : 0;
        rest[21] = header.little_endian ? 0 : bind_context;
        rest[22] = header.little_endian ? operation : 0;
        rest[23] = header.little_endian ? 0 : operation;
    }
    if (!header.little_endian) {
        std::reverse(rest.begin() + 8, rest.begin() + 10);
        std::reverse(rest.begin() + 10, rest.begin() + 12);
    }
    if (verified) {
        const std::span<std::uint8_t> trailer = rest.subspan(length - token - auth_trailer_size, auth_trailer_size);
        encode_auth_trailer(trailer, 10, static_cast<std::uint8_t>(chosen.level), trailer[2] & 0x1F, trailer[4] & 1);
        if (!header.little_endian) {
            std::reverse(trailer.begin() + 4, trailer.end());
        }
    }
}

/// False: the connection ends.
bool take(session& tested, const pdu_header& header, std::span<const std::uint8_t> bytes) {
    // A copy of the exact size, so that a read past its end is seen.
    std::vector<std::uint8_t> pdu(bytes.begin(), bytes.end());
    session_step step = tested.take_lending(header, pdu);
    check(std::move(step.answer));
    if (step.call) {
        if (step.call->may_wait()) {
            step.call->own_stub();
        }
        check(serve(*step.call));
        tested.take_back(std::move(step.call));
    }
    return !step.close;
}

void attack(session& tested, std::span<std::uint8_t> rest, const choices& chosen) {
    while (rest.size() >= pdu_header_size) {
        if (chosen.mended) {
            mend(rest, chosen);
        }
        const pdu_header header = *decode_header(rest);
        if (const auto verdict = tested.judge_header(header)) {
            check(verdict->answer);
            return;
        }
        if (rest.size() < header.fragment_length || !take(tested, header, rest.first(header.fragment_length))) {
            return;
        }
        rest = rest.subspan(header.fragment_length);
    }
}

}  // namespace

/// A byte that chooses, then PDUs.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static server shared;
    if (size == 0) {
        return 0;
    }
    const choices chosen(data[0]);
    std::vector<std::uint8_t> input(data + 1, data + size);
    {
        session tested(shared.core, {});
        if (chosen.bound) {
            const std::vector<std::uint8_t> bind = good_bind(shared, chosen);
            if (!take(tested, *decode_header(bind), bind)) {
                std::abort();
            }
        }
        attack(tested, input, chosen);
    }
    (void)decode_bind_ack_body(std::span<const std::uint8_t>(data, size), true);
    (void)decode_tower({data, size});
    if (shared.core.pending_request_bytes != 0) {
        std::abort();
    }
    return 0;
}
