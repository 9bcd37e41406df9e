#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rpc/support/session_fixture.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

/// Who is at the other end, and by what signs its PDUs are taken.
class SessionSecurity : public session_fixture {};

TEST_F(SessionSecurity, VerifierOfACancelCountsInTheSequenceOfSignatures) {
    for (const unsigned kind : {18U, 19U}) {
        restart();
        client = {};
        authenticate(5);
        for (std::uint32_t round = 0; round < 2; ++round) {
            const session_step cancelled = feed(signed_cancel(kind));
            EXPECT_TRUE(cancelled.answer.empty());
            EXPECT_FALSE(cancelled.close);
            EXPECT_TRUE(feed(pdu(kind, 3, 9, {})).answer.empty()) << "it may be left out";
            EXPECT_TRUE(feed(signed_request({.stub = bytes(16, 1)}, 5)).call);
        }
    }
}

TEST_F(SessionSecurity, WrongVerifierOfACancelEndsTheConnection) {
    authenticate(5);
    bytes changed = signed_cancel(18);
    changed.back() ^= 1;
    const session_step refused = feed(changed);
    EXPECT_EQ(fault_of(refused.answer), 0x721U);
    EXPECT_TRUE(refused.close);
    restart();
    bind_plainly();
    const session_step unknown = feed(signed_cancel(19));
    EXPECT_EQ(fault_of(unknown.answer), 5U);
    EXPECT_TRUE(unknown.close);
    EXPECT_THAT(events, testing::Contains("A cancel of RPC client 192.0.2.1 was refused for lack of valid authentication."));
}

TEST_F(SessionSecurity, HeaderSigningIsAgreedToByTheBindWhoeverAuthenticatesLater) {
    for (const bool asked : {false, true}) {
        restart();
        raw_bind bind;
        bind.flags = asked ? 7U : 3U;
        EXPECT_EQ(feed(bind_pdu(bind)).answer.at(3), bind.flags);
        bind.type = 14;
        bind.flags = 7;
        EXPECT_EQ(feed(bind_pdu(bind)).answer.at(3), asked ? 7U : 3U) << "and by nothing that comes later";
    }
}

TEST_F(SessionSecurity, AuthenticationTakesThreeLegs) {
    core.security.enable(10, "svc/host");
    raw_auth auth{10, 5, 7, 0, text_bytes("hello")};
    raw_bind bind;
    bind.flags = 7;
    bind.auth = &auth;
    const bytes ack = feed(bind_pdu(bind)).answer;
    ASSERT_EQ(type_of(ack), 12U);
    EXPECT_EQ(ack[3], 7) << "header signing is agreed";
    EXPECT_EQ(le16(ack, 10), 9U);
    const bytes trailer(ack.end() - 17, ack.end());
    EXPECT_EQ(trailer, raw_writer().u8(10).u8(5).u16(0).u32(7).text("challenge").data);
    EXPECT_FALSE(tested->established()) << "half authenticated still counts against the time to bind";
    auth.token = text_bytes("secret");
    (void)feed(pdu(16, 3, 1, bytes(4), true, &auth));
    EXPECT_TRUE(tested->established());
    raw_request request;
    request.stub = text_bytes("twelve bytes");
    const session_step step = feed(signed_request(request, 5));
    ASSERT_TRUE(step.call);
    EXPECT_EQ(step.call->stub, request.stub);
    EXPECT_EQ(step.call->identity->name, "TOY\\user");
    EXPECT_TRUE(step.call->protection.signs());
}

TEST_F(SessionSecurity, PrivacyIsDecrypted) {
    authenticate(6);
    raw_request request;
    request.stub = text_bytes("secret words");
    const bytes data = signed_request(request, 6);
    EXPECT_EQ(std::search(data.begin(), data.end(), request.stub.begin(), request.stub.end()), data.end());
    const session_step step = feed(data);
    ASSERT_TRUE(step.call);
    EXPECT_EQ(step.call->stub, request.stub);
}

TEST_F(SessionSecurity, AuthenticationMayEndByAlterContext) {
    core.security.enable(10, "svc/host");
    raw_auth auth{10, 2, 7, 0, text_bytes("hello")};
    raw_bind bind;
    bind.auth = &auth;
    (void)feed(bind_pdu(bind));
    auth.token = text_bytes("secret");
    bind.type = 14;
    EXPECT_EQ(type_of(feed(bind_pdu(bind)).answer), 15U);
    const session_step step = feed(request_pdu());
    ASSERT_TRUE(step.call);
    EXPECT_TRUE(step.call->identity->authenticated);
}

TEST_F(SessionSecurity, WrongProofByAlterContextIsFaultFive) {
    core.security.enable(10, "svc/host");
    raw_auth auth{10, 2, 7, 0, text_bytes("hello")};
    raw_bind bind;
    bind.auth = &auth;
    (void)feed(bind_pdu(bind));
    auth.token = text_bytes("wrong");
    bind.type = 14;
    const session_step step = feed(bind_pdu(bind));
    EXPECT_EQ(fault_of(step.answer), 5U);
    EXPECT_TRUE(step.close);
}

TEST_F(SessionSecurity, WrongFirstTokenIsABindRefusal) {
    core.security.enable(10, "svc/host");
    const raw_auth auth{10, 2, 7, 0, text_bytes("nonsense")};
    raw_bind bind;
    bind.auth = &auth;
    const session_step step = feed(bind_pdu(bind));
    EXPECT_EQ(type_of(step.answer), 13U);
    EXPECT_EQ(le16(step.answer, 16), 9U);
    EXPECT_TRUE(step.close);
    EXPECT_THAT(events, testing::ElementsAre("RPC client 192.0.2.1 failed to authenticate."));
}

TEST_F(SessionSecurity, LevelThatTheMechanismCannotServeIsRefused) {
    core.security.enable(10, "svc/host");
    toys->refused_level = auth_level::privacy;
    const raw_auth auth{10, 6, 7, 0, text_bytes("hello")};
    raw_bind bind;
    bind.auth = &auth;
    const session_step step = feed(bind_pdu(bind));
    EXPECT_EQ(le16(step.answer, 16), 8U);
    EXPECT_THAT(events,
                testing::ElementsAre("RPC client 192.0.2.1 asked for authentication service 10 at level 6, which is not offered."));
}

TEST_F(SessionSecurity, RefusalOfAuth3ShowsAtTheNextRequest) {
    for (const unsigned level : {2U, 5U}) {
        restart();
        authenticate(level, "wrong");
        const session_step step = feed(request_pdu());
        EXPECT_EQ(fault_of(step.answer), 5U);
        EXPECT_TRUE(step.close);
    }
}

TEST_F(SessionSecurity, RequestBeforeTheLastLegIsRefused) {
    core.security.enable(10, "svc/host");
    const raw_auth auth{10, 2, 7, 0, text_bytes("hello")};
    raw_bind bind;
    bind.auth = &auth;
    (void)feed(bind_pdu(bind));
    EXPECT_EQ(fault_of(feed(request_pdu()).answer), 5U);
}

TEST_F(SessionSecurity, UnsignedRequestIsRefusedWhereSignaturesWerePromised) {
    for (const unsigned level : {4U, 5U, 6U}) {
        restart();
        authenticate(level);
        const session_step step = feed(request_pdu());
        EXPECT_EQ(fault_of(step.answer), 5U) << level;
        EXPECT_TRUE(step.close) << level;
    }
}

TEST_F(SessionSecurity, VerifierAtLevelConnectIsToleratedAndCutOff) {
    authenticate(2);
    const raw_auth auth{10, 2, 7, 4, bytes(16)};
    raw_request request;
    request.stub = text_bytes("stub");
    request.auth = &auth;
    const session_step step = feed(request_pdu(request));
    ASSERT_TRUE(step.call);
    EXPECT_EQ(step.call->stub, text_bytes("stub"));
    EXPECT_FALSE(step.call->protection.signs());
}

TEST_F(SessionSecurity, TamperedOrReplayedRequestIsASecurityFault) {
    authenticate(5);
    raw_request request;
    request.stub = text_bytes("pay 1 euro");
    const bytes good = signed_request(request, 5);
    EXPECT_TRUE(feed(good).call);
    EXPECT_EQ(fault_of(feed(good).answer), 0x721U);
    restart();
    authenticate(5);
    client = toy_signer();
    bytes changed = signed_request(request, 5);
    changed[28] = '9';
    const session_step step = feed(changed);
    EXPECT_EQ(fault_of(step.answer), 0x721U);
    EXPECT_TRUE(step.close);
}

TEST_F(SessionSecurity, VerifierOfAnotherKindIsRefused) {
    const raw_request request;
    authenticate(5);
    EXPECT_EQ(fault_of(feed(signed_request(request, 5, 8)).answer), 5U) << "unknown authentication";
    restart();
    authenticate(5);
    EXPECT_EQ(fault_of(feed(signed_request(request, 6)).answer), 5U) << "other level";
    restart();
    authenticate(5);
    const raw_auth short_token{10, 5, 7, 0, bytes(8)};
    raw_request with_short_token;
    with_short_token.auth = &short_token;
    EXPECT_EQ(fault_of(feed(request_pdu(with_short_token)).answer), 0x721U) << "signature of wrong size";
    restart();
    authenticate(5);
    raw_auth long_pad{10, 5, 7, 0, bytes(16)};
    raw_request with_long_pad;
    with_long_pad.auth = &long_pad;
    bytes data = request_pdu(with_long_pad);
    data[26] = 1;  // more padding than there is body
    EXPECT_EQ(fault_of(feed(data).answer), 0x1C01000BU);
}

TEST_F(SessionSecurity, CallLevelIsRaisedToPacket) {
    authenticate(3);
    raw_request request;
    const session_step step = feed(signed_request(request, 4));
    ASSERT_TRUE(step.call);
    EXPECT_EQ(step.call->protection.level, auth_level::packet);
}

TEST_F(SessionSecurity, FinishedAuthenticationIsNotTakenUpAgain) {
    authenticate(2);
    const raw_auth auth{10, 2, 7, 0, text_bytes("secret")};
    (void)feed(pdu(16, 3, 1, bytes(4), true, &auth));
    EXPECT_EQ(fault_of(feed(request_pdu()).answer), 5U);
}

TEST_F(SessionSecurity, AlterContextMayRepeatTheLastTokenOfAFinishedAuthentication) {
    authenticate(5);
    const raw_auth auth{10, 5, 7, 0, text_bytes("secret")};
    raw_bind alter;
    alter.type = 14;
    alter.contexts[0].id = 5;
    alter.auth = &auth;
    const session_step step = feed(bind_pdu(alter));
    ASSERT_EQ(type_of(step.answer), 15U);
    EXPECT_FALSE(step.close);
    EXPECT_EQ(le16(step.answer, 10), 0U);  // no token comes back
    EXPECT_TRUE(tested->established());
    // The signatures go on as if nothing had been said.
    raw_request request;
    request.context = 5;
    const session_step served = feed(signed_request(request, 5));
    ASSERT_TRUE(served.call);
    EXPECT_TRUE(served.call->identity->authenticated);
}

TEST_F(SessionSecurity, AlterContextWithAnyOtherTokenOfAFinishedAuthenticationIsRefused) {
    const raw_auth wrong[] = {{10, 5, 7, 0, text_bytes("secreT")},  {10, 5, 7, 0, text_bytes("secre")},
                              {10, 5, 7, 0, text_bytes("secret1")}, {10, 5, 7, 0, text_bytes("hello")},
                              {10, 6, 7, 0, text_bytes("secret")},  {9, 5, 7, 0, text_bytes("secret")}};
    for (const raw_auth& auth : wrong) {
        restart();
        authenticate(5);
        raw_bind alter;
        alter.type = 14;
        alter.auth = &auth;
        const session_step step = feed(bind_pdu(alter));
        EXPECT_EQ(fault_of(step.answer), 5U);
        EXPECT_TRUE(step.close);
    }
}

TEST_F(SessionSecurity, ARefusedTokenIsNotTakenWhenItIsRepeated) {
    authenticate(2, "wrong");
    const raw_auth auth{10, 2, 7, 0, text_bytes("wrong")};
    raw_bind alter;
    alter.type = 14;
    alter.auth = &auth;
    EXPECT_EQ(fault_of(feed(bind_pdu(alter)).answer), 5U);
}

TEST_F(SessionSecurity, AuthenticationsOfAConnectionAreLimited) {
    core.limits.authentications = 2;
    authenticate(2);
    for (const std::uint32_t id : {8U, 9U}) {
        const raw_auth auth{10, 2, id, 0, text_bytes("hello")};
        raw_bind alter;
        alter.type = 14;
        alter.auth = &auth;
        EXPECT_EQ(type_of(feed(bind_pdu(alter)).answer), id == 8 ? 15U : 3U);
    }
}

TEST_F(SessionSecurity, UnauthenticatedCallerIsCalledThat) {
    bind_plainly();
    const session_step step = feed(request_pdu());
    ASSERT_TRUE(step.call);
    EXPECT_FALSE(step.call->identity->authenticated);
    EXPECT_FALSE(step.call->protection.signs());
}

TEST_F(SessionSecurity, NegotiateOpensTheMechanismsThatItChoosesFrom) {
    EXPECT_EQ(core.security.enable(9, "svc/host"), 1747U);
    EXPECT_EQ(core.security.find(10), nullptr);
    core.security.add(std::make_shared<toy_provider>(std::uint8_t{9}));
    EXPECT_EQ(core.security.enable(9, "svc/host"), 0U);
    EXPECT_NE(core.security.find(9), nullptr);
    EXPECT_NE(core.security.find(10), nullptr);
    EXPECT_EQ(core.security.find(16), nullptr);
    EXPECT_EQ(*core.security.principal(9), "svc/host");
    EXPECT_EQ(core.security.principal(10), nullptr);
}

}  // namespace
