#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/rpc/session.h"
#include "rpc/support/raw_pdu.h"
#include "rpc/support/toy_security.h"

namespace rpc_test {

/// The protocol of one connection, driven PDU by PDU.
class session_fixture : public testing::Test {
protected:
    session_fixture() {
        platform::rpc_interface offered;
        offered.uuid = platform::linux_rpc::uuid_from_text(test_interface);
        offered.major_version = 1;
        offered.minor_version = 2;
        offered.operations = 3;
        offered.dispatch = [](const platform::rpc_request& request, platform::rpc_reply& reply) {
            const auto out = reply.allocate(request.stub.size());
            std::copy(request.stub.begin(), request.stub.end(), out.begin());
            return 0U;
        };
        core.interfaces.add({offered, 0xFFFFFFFF, false});
        core.security.add(toys);
        core.secondary_address = "6166";
        core.listening = true;
        core.on_event = [this](const std::string& sentence) { events.push_back(sentence); };
        peer.address = "192.0.2.1";
        restart();
    }

    void restart() { tested = std::make_unique<platform::linux_rpc::session>(core, peer); }

    platform::linux_rpc::session_step feed(bytes data) {
        const auto header = platform::linux_rpc::decode_header(data);
        EXPECT_TRUE(header);
        if (auto verdict = tested->judge_header(*header)) {
            return std::move(*verdict);
        }
        return tested->take(*header, data);
    }

    void bind_plainly() { ASSERT_EQ(type_of(feed(bind_pdu()).answer), 12U); }

    /// Binds and authenticates with the toy mechanism.
    void authenticate(unsigned level, const std::string& secret = "secret") {
        core.security.enable(10, "svc/host");
        raw_auth auth{10, level, 7, 0, text_bytes("hello")};
        raw_bind bind;
        bind.auth = &auth;
        ASSERT_EQ(type_of(feed(bind_pdu(bind)).answer), 12U);
        auth.token = text_bytes(secret);
        const platform::linux_rpc::session_step step = feed(pdu(16, 3, 1, bytes(4), true, &auth));
        EXPECT_TRUE(step.answer.empty());
        EXPECT_FALSE(step.close);
    }

    /// A request signed by the client's half of the toy mechanism.
    bytes signed_request(raw_request request, unsigned level, std::uint32_t context_id = 7) {
        raw_auth auth{10, level, context_id, static_cast<unsigned>((16 - request.stub.size() % 16) % 16), bytes(16)};
        request.auth = &auth;
        bytes data = request_pdu(request);
        const std::span<std::uint8_t> all(data);
        client.protect(static_cast<platform::linux_rpc::auth_level>(level), all.first(data.size() - 16), 24,
                       request.stub.size() + auth.pad, all.last(16));
        return data;
    }

    /// A cancel (18) or abandonment (19) with a verifier.
    bytes signed_cancel(unsigned kind) {
        const raw_auth auth{10, 5, 7, 0, bytes(16)};
        bytes data = pdu(kind, 3, 9, {}, true, &auth);
        const std::span<std::uint8_t> all(data);
        client.protect(platform::linux_rpc::auth_level::integrity, all.first(data.size() - 16), 16, 0, all.last(16));
        return data;
    }

    std::shared_ptr<toy_provider> toys = std::make_shared<toy_provider>();
    toy_signer client;
    platform::linux_rpc::server_core core;
    platform::linux_rpc::connection_peer peer;
    std::vector<std::string> events;
    std::unique_ptr<platform::linux_rpc::session> tested;
};

}  // namespace rpc_test
