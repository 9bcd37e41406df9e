#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/linux/rpc/ntlm_initiator.h"
#include "platform/linux/rpc/ntlm_provider.h"
#include "platform/linux/rpc/session.h"
#include "rpc/ntlm/ntlm_fixture.h"
#include "rpc/support/raw_pdu.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

constexpr unsigned whole = 3;

/// A connection of a server with real NTLM, PDU by PDU, and the client's side of it.
class RefusalsTest : public testing::Test {
protected:
    RefusalsTest() {
        accounts->add("anna", u"anna", true);
        accounts->add("bob", u"bob");
        accounts->add("gone", u"gone", true, true);
        platform::rpc_interface offered;
        offered.uuid = uuid_from_text(test_interface);
        offered.major_version = 1;
        offered.operations = 3;
        core.interfaces.add({offered, 0xFFFFFFFF, false});
        core.security.add(std::make_shared<ntlm_provider>(
            ntlm_acceptor_settings{ntlm_host_names::of("server.tarno.test"), accounts, ntlm_environment::of_system(), nullptr}));
        core.security.enable(10, "svc/host");
        core.listening = true;
        restart();
    }

    void restart() { tested = std::make_unique<session>(core, connection_peer{"192.0.2.1", {}, 0}); }

    /// What becomes of a PDU: nothing, when it is longer than what is there.
    session_step feed(bytes data) {
        const auto header = decode_header(data);
        if (!header) {
            return {};
        }
        if (auto verdict = tested->judge_header(*header)) {
            return std::move(*verdict);
        }
        if (header->fragment_length > data.size()) {
            return {};
        }
        return tested->take(*header, std::span(data).first(header->fragment_length));
    }

    /// The client's side after all three tokens have been exchanged, by `type` and auth3.
    std::unique_ptr<ntlm_initiator> authenticate(unsigned level, const std::string& user, const std::string& password,
                                                 std::uint32_t context_id = 1, unsigned type = 11) {
        auto client = std::make_unique<ntlm_initiator>(ntlm_credentials::of(user, password));
        raw_auth auth{10, level, context_id, 0, client->next_token({})};
        raw_bind bind;
        bind.type = type;
        bind.auth = &auth;
        const bytes ack = feed(bind_pdu(bind)).answer;
        EXPECT_TRUE(type_of(ack) == 12U || type_of(ack) == 15U);
        const auto trailer = decode_auth_trailer(*decode_header(ack), ack, 16);
        auth.token = client->next_token(trailer->token);
        last_token = auth.token;
        EXPECT_FALSE(feed(pdu(16, whole, 1, bytes(4), true, &auth)).close);
        return client;
    }

    /// A signed request with 40 bytes of stub data.
    static bytes signed_request(ntlm_initiator& client, unsigned level, std::uint32_t call_id, std::uint32_t context_id = 1) {
        raw_auth auth{10, level, context_id, 8, bytes(16)};
        raw_request request;
        request.call_id = call_id;
        request.operation = 1;
        request.stub = bytes(40, 0x5A);
        request.auth = &auth;
        bytes data = request_pdu(request);
        const std::span<std::uint8_t> all(data);
        client.protect(static_cast<auth_level>(level), all.first(data.size() - 16), 24, 48, all.last(16));
        return data;
    }

    static std::string caller_of(const session_step& step) { return step.call ? step.call->identity->name : "refused"; }

    std::shared_ptr<ntlm_testing::table_source> accounts = std::make_shared<ntlm_testing::table_source>();
    server_core core;
    std::unique_ptr<session> tested;
    bytes last_token;
};

TEST_F(RefusalsTest, WhoIsRefusedHearsItAtTheNextRequest) {
    for (const auto& [user, password] : std::vector<std::pair<std::string, std::string>>{
             {"anna", "wrong"}, {"nobody-knows", "anna"}, {"gone", "gone"}, {"bob", ""}}) {
        for (const unsigned level : {2U, 4U, 5U, 6U}) {
            restart();
            const auto client = authenticate(level, user, password);
            const session_step step = feed(level == 2 ? request_pdu() : signed_request(*client, level, 3));
            EXPECT_EQ(fault_of(step.answer), 5U) << user << ' ' << level;
            EXPECT_TRUE(step.close);
            EXPECT_FALSE(step.call);
        }
    }
}

class TamperedRequestTest : public RefusalsTest, public testing::WithParamInterface<unsigned> {};

TEST_P(TamperedRequestTest, EveryChangedBitOfEveryByteIsNoticed) {
    std::size_t size = 1;
    for (std::size_t at = 0; at < size; ++at) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            restart();
            const auto client = authenticate(GetParam(), "anna", "anna");
            bytes data = signed_request(*client, GetParam(), 3);
            size = data.size();
            data[at] = static_cast<std::uint8_t>(data[at] ^ (1U << bit));
            const session_step step = feed(data);
            EXPECT_FALSE(step.call) << "byte " << at << ", bit " << bit;
        }
    }
    EXPECT_EQ(size, 96U);
}

TEST_P(TamperedRequestTest, AnUnchangedOneIsServedOnce) {
    const auto client = authenticate(GetParam(), "anna", "anna");
    const bytes data = signed_request(*client, GetParam(), 3);
    const session_step step = feed(data);
    ASSERT_TRUE(step.call);
    EXPECT_EQ(step.call->stub, bytes(40, 0x5A));
    const session_step again = feed(data);
    EXPECT_EQ(fault_of(again.answer), 0x721U);
    EXPECT_TRUE(again.close);
}

TEST_P(TamperedRequestTest, OneThatOvertookAnotherIsRefused) {
    const auto client = authenticate(GetParam(), "anna", "anna");
    (void)signed_request(*client, GetParam(), 3);
    EXPECT_EQ(fault_of(feed(signed_request(*client, GetParam(), 4)).answer), 0x721U);
}

TEST_P(TamperedRequestTest, UnsignedOneIsRefused) {
    (void)authenticate(GetParam(), "anna", "anna");
    const session_step step = feed(request_pdu());
    EXPECT_EQ(fault_of(step.answer), 5U);
    EXPECT_TRUE(step.close);
}

TEST_P(TamperedRequestTest, LevelOfTheAssociationIsTheLevelOfItsRequests) {
    for (const unsigned other : {1U, 2U, 4U, 5U, 6U}) {
        if (other != GetParam()) {
            restart();
            const auto client = authenticate(GetParam(), "anna", "anna");
            bytes data = signed_request(*client, other, 3);
            const session_step step = feed(data);
            EXPECT_EQ(fault_of(step.answer), 5U) << other;
            EXPECT_TRUE(step.close);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, TamperedRequestTest, testing::Values(4U, 5U, 6U),
                         [](const auto& tested) { return "Level" + std::to_string(tested.param); });

TEST_F(RefusalsTest, TokensOfAnotherConnectionAreRefused) {
    (void)authenticate(2, "anna", "anna");
    const bytes recorded = last_token;
    restart();
    auto client = ntlm_initiator(ntlm_credentials::of("anna", "anna"));
    raw_auth auth{10, 2, 1, 0, client.next_token({})};
    raw_bind bind;
    bind.auth = &auth;
    EXPECT_EQ(type_of(feed(bind_pdu(bind)).answer), 12U);
    auth.token = recorded;
    (void)feed(pdu(16, whole, 1, bytes(4), true, &auth));
    EXPECT_EQ(fault_of(feed(request_pdu()).answer), 5U);
}

TEST_F(RefusalsTest, SecondBindAsAnotherUserIsRefusedAndEndsTheConnection) {
    (void)authenticate(2, "bob", "bob");
    auto other = ntlm_initiator(ntlm_credentials::of("anna", "anna"));
    for (const std::uint32_t context_id : {1U, 2U}) {
        const raw_auth auth{10, 2, context_id, 0, other.next_token({})};
        raw_bind bind;
        bind.auth = &auth;
        const session_step step = feed(bind_pdu(bind));
        EXPECT_EQ(type_of(step.answer), 13U);
        EXPECT_TRUE(step.close);
        restart();
        (void)authenticate(2, "bob", "bob");
        other = ntlm_initiator(ntlm_credentials::of("anna", "anna"));
    }
}

TEST_F(RefusalsTest, AnAssociationsUserIsNotExchangedUnderItsNumber) {
    const auto client = authenticate(5, "bob", "bob");
    auto other = ntlm_initiator(ntlm_credentials::of("anna", "anna"));
    const raw_auth auth{10, 5, 1, 0, other.next_token({})};
    raw_bind alter;
    alter.type = 14;
    alter.auth = &auth;
    EXPECT_EQ(fault_of(feed(bind_pdu(alter)).answer), 5U);
    EXPECT_EQ(fault_of(feed(signed_request(*client, 5, 3)).answer), 5U) << "nor is the former one's word taken any more";
}

TEST_F(RefusalsTest, EachRequestCountsAsThatOfTheUserUnderWhoseSignatureItComes) {
    const auto bob = authenticate(5, "bob", "bob", 1);
    const auto anna = authenticate(6, "anna", "anna", 2, 14);
    EXPECT_EQ(caller_of(feed(signed_request(*bob, 5, 3, 1))), "SERVER\\bob");
    EXPECT_EQ(caller_of(feed(signed_request(*anna, 6, 4, 2))), "SERVER\\anna");
    EXPECT_EQ(caller_of(feed(signed_request(*bob, 5, 5, 1))), "SERVER\\bob");
    EXPECT_EQ(caller_of(feed(signed_request(*bob, 6, 6, 2))), "refused") << "one's signature under the other's number";
}

TEST_F(RefusalsTest, FragmentsOfOneRequestComeUnderOneSignature) {
    const auto bob = authenticate(5, "bob", "bob", 1);
    const auto anna = authenticate(5, "anna", "anna", 2, 14);
    const auto fragment = [](ntlm_initiator& client, std::uint32_t context_id, unsigned flags) {
        raw_auth auth{10, 5, context_id, 0, bytes(16)};
        raw_request request;
        request.flags = flags;
        request.stub = bytes(16, 1);
        request.auth = &auth;
        bytes data = request_pdu(request);
        const std::span<std::uint8_t> all(data);
        client.protect(auth_level::integrity, all.first(data.size() - 16), 24, 16, all.last(16));
        return data;
    };
    EXPECT_FALSE(feed(fragment(*bob, 1, 1)).close);
    const session_step step = feed(fragment(*anna, 2, 2));
    EXPECT_EQ(fault_of(step.answer), 0x1C01000BU);
    EXPECT_FALSE(step.call);
}

TEST_F(RefusalsTest, RightsThatWereTakenAwayCountFromTheNextCallOn) {
    (void)authenticate(2, "anna", "anna");
    using rank = caller_standing::rank;
    const auto now = [&] { return feed(request_pdu()).call->identity->standing->now(); };
    EXPECT_EQ(now(), rank::administrator);
    accounts->add("anna", u"anna", false);
    EXPECT_EQ(now(), rank::known);
    accounts->add("anna", u"anna", true);
    EXPECT_EQ(now(), rank::administrator);
    accounts->add("anna", u"anna", true, true);
    EXPECT_EQ(now(), rank::shut_out) << "disabled";
    accounts->add("anna", u"anna", false);
    EXPECT_EQ(now(), rank::known);
}

}  // namespace
