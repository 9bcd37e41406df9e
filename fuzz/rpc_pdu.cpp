// What a peer may send: a stream of PDUs into the protocol of one connection, with an authentication that lets everybody in
// and signatures that are always good, so that the input gets far; calls are served, and their answers made.

#include <algorithm>
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static server shared;
    std::vector<std::uint8_t> input(data, data + size);
    std::span<std::uint8_t> rest(input);
    {
        session tested(shared.core, {});
        while (const auto header = decode_header(rest)) {
            if (const auto verdict = tested.judge_header(*header)) {
                check(verdict->answer);
                break;
            }
            if (rest.size() < header->fragment_length) {
                break;
            }
            const auto pdu = rest.first(header->fragment_length);
            rest = rest.subspan(pdu.size());
            const session_step step = tested.take(*header, pdu);
            check(step.answer);
            if (step.call) {
                check(serve(*step.call));
            }
            if (step.close) {
                break;
            }
        }
        (void)decode_bind_ack_body(std::span<const std::uint8_t>(data, size), true);
        (void)decode_tower({data, size});
    }
    if (shared.core.pending_request_bytes != 0) {
        std::abort();
    }
    return 0;
}
