#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rpc/support/session_fixture.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

class SessionTest : public session_fixture {};

TEST_F(SessionTest, BindIsAcknowledgedByteForByte) {
    raw_bind bind;
    bind.call_id = 0x01020304;
    bind.max_receive = 4280;
    const session_step step = feed(bind_pdu(bind));
    raw_writer expected;
    expected.u8(5).u8(0).u8(12).u8(3).u8(0x10).zeros(3).u16(60).u16(0).u32(0x01020304);
    expected.u16(4280).u16(5840).u32(1);
    expected.u16(5).text("6166").u8(0).zeros(1);
    expected.u8(1).zeros(3).u16(0).u16(0).uuid(ndr_syntax).u32(2);
    EXPECT_EQ(step.answer, expected.data);
    EXPECT_FALSE(step.close);
    EXPECT_TRUE(tested->established());
}

TEST_F(SessionTest, BigEndianBindAndRequestAreUnderstood) {
    raw_bind bind;
    bind.little = false;
    bind.call_id = 9;
    const session_step ack = feed(bind_pdu(bind));
    EXPECT_EQ(type_of(ack.answer), 12U);
    EXPECT_EQ(le32(ack.answer, 12), 9U);
    EXPECT_EQ(le16(ack.answer, 36), 0U);
    raw_request request;
    request.little = false;
    request.operation = 2;
    request.stub = {1, 2, 3};
    const session_step step = feed(request_pdu(request));
    ASSERT_TRUE(step.call);
    EXPECT_FALSE(step.call->little_endian);
    EXPECT_EQ(step.call->operation, 2);
    EXPECT_EQ(step.call->stub, (bytes{1, 2, 3}));
}

TEST_F(SessionTest, ContextsAreJudgedOneByOne) {
    raw_bind bind;
    raw_context unknown_interface;
    unknown_interface.interface = "00000000-1111-2222-3333-444444444444";
    raw_context unknown_syntax;
    unknown_syntax.syntax = "71710533-beba-4937-8319-b5dbef9ccc36";
    raw_context newer_minor;
    newer_minor.minor = 3;
    raw_context older_minor;
    older_minor.id = 4;
    older_minor.minor = 1;
    raw_context features;
    features.syntax = "6cb71c2c-9812-4540-0700-000000000000";
    features.syntax_version = 1;
    bind.contexts = {unknown_interface, unknown_syntax, newer_minor, older_minor, features};
    const bytes ack = feed(bind_pdu(bind)).answer;
    ASSERT_EQ(type_of(ack), 12U);
    std::vector<std::pair<unsigned, unsigned>> results;
    for (std::size_t i = 0; i < 5; ++i) {
        results.emplace_back(le16(ack, 36 + 24 * i), le16(ack, 38 + 24 * i));
    }
    EXPECT_THAT(results, testing::ElementsAre(testing::Pair(2, 1), testing::Pair(2, 2), testing::Pair(2, 1), testing::Pair(0, 0),
                                              testing::Pair(3, 3)));
}

TEST_F(SessionTest, AlterContextAddsAContextAndHasNoSecondaryAddress) {
    bind_plainly();
    raw_bind alter;
    alter.type = 14;
    alter.contexts[0].id = 5;
    const session_step step = feed(bind_pdu(alter));
    ASSERT_EQ(type_of(step.answer), 15U);
    EXPECT_EQ(le16(step.answer, 24), 0U);
    EXPECT_EQ(le16(step.answer, 32), 0U);
    raw_request request;
    request.context = 5;
    EXPECT_TRUE(feed(request_pdu(request)).call);
}

TEST_F(SessionTest, FeaturesAreNotNegotiatedByAlterContext) {
    bind_plainly();
    raw_bind alter;
    alter.type = 14;
    alter.contexts[0].syntax = "6cb71c2c-9812-4540-0300-000000000000";
    alter.contexts[0].syntax_version = 1;
    const bytes answer = feed(bind_pdu(alter)).answer;
    EXPECT_EQ(le16(answer, 32), 2U);
    EXPECT_EQ(le16(answer, 34), 2U);
}

TEST_F(SessionTest, AContextIdKeepsItsMeaning) {
    core.limits.contexts = 1;
    raw_bind bind;
    raw_context again;
    raw_context one_too_many;
    one_too_many.id = 1;
    bind.contexts = {raw_context{}, again, one_too_many};
    const bytes ack = feed(bind_pdu(bind)).answer;
    EXPECT_EQ(le16(ack, 36), 0U);
    EXPECT_EQ(le16(ack, 60), 0U);
    EXPECT_EQ(le16(ack, 84), 2U);
    EXPECT_EQ(le16(ack, 86), 3U);
}

TEST_F(SessionTest, ContextIdOfAnotherInterfaceIsRejected) {
    platform::rpc_interface other;
    other.uuid = uuid_from_text("00000000-1111-2222-3333-444444444444");
    other.major_version = 1;
    core.interfaces.add({other, 0xFFFFFFFF, false});
    bind_plainly();
    raw_bind alter;
    alter.type = 14;
    alter.contexts[0].interface = "00000000-1111-2222-3333-444444444444";
    const bytes answer = feed(bind_pdu(alter)).answer;
    EXPECT_EQ(le16(answer, 32), 2U);
    EXPECT_EQ(le16(answer, 34), 0U);
}

struct refused_bind {
    const char* name;
    void (*change)(raw_bind& bind);
    unsigned reason;
};

class RefusedBindTest : public SessionTest, public testing::WithParamInterface<refused_bind> {};

TEST_P(RefusedBindTest, IsAnsweredWithItsReasonAndClosed) {
    raw_bind bind;
    bind.call_id = 3;
    GetParam().change(bind);
    const session_step step = feed(bind_pdu(bind));
    raw_writer expected;
    expected.u8(5).u8(0).u8(13).u8(3).u8(0x10).zeros(3).u16(21).u16(0).u32(3).u16(GetParam().reason).u8(1).u8(5).u8(0);
    EXPECT_EQ(step.answer, expected.data);
    EXPECT_TRUE(step.close);
    EXPECT_FALSE(tested->established());
}

const raw_auth auth_of_unknown_type{99, 2, 1, 0, {1}};
const raw_auth auth_of_unknown_level{10, 7, 1, 0, {1}};
const raw_auth auth_not_offered{10, 2, 1, 0, {1}};

INSTANTIATE_TEST_SUITE_P(
    Binds, RefusedBindTest,
    testing::Values(refused_bind{"NoContext", [](raw_bind& bind) { bind.contexts.clear(); }, 0},
                    refused_bind{"UnknownGroup", [](raw_bind& bind) { bind.group = 77; }, 0},
                    refused_bind{"TinyReceiver", [](raw_bind& bind) { bind.max_receive = 255; }, 2},
                    refused_bind{"UnknownAuthentication", [](raw_bind& bind) { bind.auth = &auth_of_unknown_type; }, 8},
                    refused_bind{"UnknownLevel", [](raw_bind& bind) { bind.auth = &auth_of_unknown_level; }, 8},
                    refused_bind{"NotOffered", [](raw_bind& bind) { bind.auth = &auth_not_offered; }, 8}),
    [](const auto& tested) { return tested.param.name; });

TEST_F(SessionTest, OtherProtocolVersionIsNamedInTheRefusal) {
    bytes data = bind_pdu();
    data[0] = 4;
    const session_step step = feed(data);
    EXPECT_EQ(type_of(step.answer), 13U);
    EXPECT_EQ(le16(step.answer, 16), 4U);
    EXPECT_TRUE(step.close);
    bytes minor = bind_pdu();
    minor[1] = 1;
    restart();
    EXPECT_EQ(type_of(feed(minor).answer), 12U);
}

TEST_F(SessionTest, SecondBindIsRefused) {
    bind_plainly();
    const session_step step = feed(bind_pdu());
    EXPECT_EQ(type_of(step.answer), 13U);
    EXPECT_TRUE(step.close);
}

TEST_F(SessionTest, CutOffBindIsRefused) {
    const bytes whole = bind_pdu();
    for (std::size_t size = 16; size < whole.size(); ++size) {
        restart();
        bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        cut[8] = static_cast<std::uint8_t>(size);
        const session_step step = feed(cut);
        EXPECT_EQ(type_of(step.answer), 13U) << size;
        EXPECT_TRUE(step.close) << size;
    }
}

TEST_F(SessionTest, LyingLengthsCloseTheConnection) {
    for (const auto& [fragment, auth] :
         std::vector<std::pair<unsigned, unsigned>>{{15, 0}, {0, 0}, {5841, 0}, {72, 49}, {72, 65535}}) {
        bytes data = bind_pdu();
        data[8] = static_cast<std::uint8_t>(fragment & 255);
        data[9] = static_cast<std::uint8_t>(fragment >> 8);
        data[10] = static_cast<std::uint8_t>(auth & 255);
        data[11] = static_cast<std::uint8_t>(auth >> 8);
        const auto verdict = tested->judge_header(*decode_header(data));
        ASSERT_TRUE(verdict) << fragment << ' ' << auth;
        EXPECT_TRUE(verdict->close);
        EXPECT_TRUE(verdict->answer.empty());
    }
}

TEST_F(SessionTest, AssociationGroupLivesAsLongAsItsMembers) {
    const std::uint32_t group = le32(feed(bind_pdu()).answer, 20);
    session second(core, peer);
    raw_bind join;
    join.group = group;
    bytes data = bind_pdu(join);
    EXPECT_EQ(le32(second.take(*decode_header(data), data).answer, 20), group);
    restart();
    session third(core, peer);
    data = bind_pdu(join);
    EXPECT_EQ(type_of(third.take(*decode_header(data), data).answer), 12U);
}

TEST_F(SessionTest, AssociationGroupEndsWithItsLastMember) {
    raw_bind join;
    join.group = le32(feed(bind_pdu()).answer, 20);
    restart();
    EXPECT_EQ(type_of(feed(bind_pdu(join)).answer), 13U);
}

TEST_F(SessionTest, RequestBeforeBindIsAProtocolError) {
    const session_step step = feed(request_pdu());
    EXPECT_EQ(fault_of(step.answer), 0x1C01000BU);
    EXPECT_TRUE(step.close);
}

TEST_F(SessionTest, UnknownContextAndOperationAreFaultsThatTheConnectionSurvives) {
    bind_plainly();
    raw_request request;
    request.context = 9;
    request.call_id = 4;
    session_step step = feed(request_pdu(request));
    raw_writer expected;
    expected.u8(5).u8(0).u8(3).u8(0x23).u8(0x10).zeros(3).u16(32).u16(0).u32(4).u32(0).u16(9).zeros(2).u32(0x1C010003).zeros(4);
    EXPECT_EQ(step.answer, expected.data);
    EXPECT_FALSE(step.close);
    request.context = 0;
    request.operation = 3;
    step = feed(request_pdu(request));
    EXPECT_EQ(fault_of(step.answer), 0x1C010002U);
    EXPECT_FALSE(step.close);
    request.operation = 2;
    EXPECT_TRUE(feed(request_pdu(request)).call);
}

TEST_F(SessionTest, ObjectUuidStandsInFrontOfTheStub) {
    bind_plainly();
    raw_request request;
    request.flags = 0x83;
    request.stub = raw_writer().uuid(test_interface).text("stub").data;
    const session_step step = feed(request_pdu(request));
    ASSERT_TRUE(step.call);
    EXPECT_EQ(step.call->stub, text_bytes("stub"));
    request.stub.resize(15);
    EXPECT_EQ(fault_of(feed(request_pdu(request)).answer), 0x1C01000BU);
}

/// Stub data with a verification trailer of one command, which tells what the client's header said.
bytes with_trailer(bytes stub, std::uint32_t call_id, unsigned operation) {
    raw_writer out;
    out.raw(stub).raw(bytes{0x8A, 0xE3, 0x13, 0x71, 0x02, 0xF4, 0x36, 0x71});
    out.u16(0x4003).u16(16).u8(0).zeros(3).u8(0x10).zeros(3).u32(call_id).u16(0).u16(operation);
    return out.data;
}

TEST_F(SessionTest, VerificationTrailerThatAgreesIsNoPartOfTheStub) {
    bind_plainly();
    raw_request request;
    request.call_id = 9;
    request.operation = 1;
    request.stub = with_trailer({1, 2, 3, 4}, 9, 1);
    const session_step step = feed(request_pdu(request));
    ASSERT_TRUE(step.call);
    EXPECT_EQ(step.call->stub, (bytes{1, 2, 3, 4}));
    // Over two fragments, the second with the end of the trailer.
    const bytes stub = request.stub;
    request.flags = 1;
    request.stub.assign(stub.begin(), stub.begin() + 20);
    EXPECT_FALSE(feed(request_pdu(request)).call);
    request.flags = 2;
    request.stub.assign(stub.begin() + 20, stub.end());
    const session_step joined = feed(request_pdu(request));
    ASSERT_TRUE(joined.call);
    EXPECT_EQ(joined.call->stub, (bytes{1, 2, 3, 4}));
}

TEST_F(SessionTest, WrongVerificationTrailerIsAccessDenied) {
    bind_plainly();
    raw_request request;
    request.call_id = 9;
    request.operation = 1;
    request.stub = with_trailer({1, 2, 3, 4}, 9, 2);
    const session_step step = feed(request_pdu(request));
    EXPECT_EQ(fault_of(step.answer), 5U);
    EXPECT_TRUE(step.close);
    EXPECT_THAT(events,
                testing::ElementsAre("A request of RPC client 192.0.2.1 was refused: its headers were changed on the way."));
}

TEST_F(SessionTest, FragmentsAreJoined) {
    bind_plainly();
    raw_request request;
    request.flags = 1;
    request.operation = 1;
    request.stub = text_bytes("one ");
    EXPECT_FALSE(feed(request_pdu(request)).call);
    EXPECT_TRUE(tested->request_incomplete());
    EXPECT_EQ(core.pending_request_bytes, 4U);
    request.flags = 0;
    request.stub = text_bytes("two ");
    EXPECT_FALSE(feed(request_pdu(request)).call);
    request.flags = 2;
    request.stub = text_bytes("three");
    const session_step step = feed(request_pdu(request));
    ASSERT_TRUE(step.call);
    EXPECT_EQ(step.call->stub, text_bytes("one two three"));
    EXPECT_FALSE(tested->request_incomplete());
    EXPECT_EQ(core.pending_request_bytes, 0U);
}

TEST_F(SessionTest, FragmentsOutOfOrderAreProtocolErrors) {
    raw_request first;
    first.flags = 1;
    raw_request middle;
    middle.flags = 0;
    raw_request other_call;
    other_call.flags = 2;
    other_call.call_id = 3;
    raw_request other_order;
    other_order.flags = 2;
    other_order.little = false;
    const std::vector<std::vector<raw_request>> sequences{{middle}, {first, first}, {first, other_call}, {first, other_order}};
    for (const auto& sequence : sequences) {
        restart();
        bind_plainly();
        session_step step;
        for (const raw_request& request : sequence) {
            step = feed(request_pdu(request));
        }
        EXPECT_EQ(fault_of(step.answer), 0x1C01000BU);
        EXPECT_TRUE(step.close);
    }
    EXPECT_EQ(core.groups.join(1), 0U) << "groups of closed sessions are gone";
}

TEST_F(SessionTest, RequestAboveTheLimitIsRefusedWhereItGrowsTooLong) {
    core.limits.unauthenticated_request_bytes = 10;
    bind_plainly();
    raw_request request;
    request.flags = 1;
    request.stub = bytes(10);
    EXPECT_TRUE(feed(request_pdu(request)).answer.empty());
    request.flags = 0;
    request.stub = bytes(1);
    const session_step step = feed(request_pdu(request));
    EXPECT_EQ(fault_of(step.answer), 5U);
    EXPECT_TRUE(step.close);
    EXPECT_THAT(events, testing::ElementsAre("RPC client 192.0.2.1 sent a request above the size limit and was disconnected."));
    restart();
    EXPECT_EQ(core.pending_request_bytes, 0U);
}

TEST_F(SessionTest, LocalCallersCountAsAuthenticatedForTheLimit) {
    core.limits.unauthenticated_request_bytes = 10;
    peer.identity.authenticated = true;
    restart();
    bind_plainly();
    raw_request request;
    request.stub = bytes(11);
    EXPECT_TRUE(feed(request_pdu(request)).call);
}

TEST_F(SessionTest, AllPendingRequestsTogetherHaveALimit) {
    core.limits.pending_request_bytes = 15;
    session second(core, peer);
    bytes data = bind_pdu();
    (void)second.take(*decode_header(data), data);
    raw_request request;
    request.flags = 1;
    request.stub = bytes(10);
    data = request_pdu(request);
    EXPECT_FALSE(second.take(*decode_header(data), data).close);
    bind_plainly();
    const session_step step = feed(request_pdu(request));
    EXPECT_EQ(fault_of(step.answer), 0x1C00001BU);
    EXPECT_TRUE(step.close);
    restart();
    EXPECT_EQ(core.pending_request_bytes, 10U);
}

TEST_F(SessionTest, OrphanedDropsTheRequestInAssemblyOnly) {
    bind_plainly();
    raw_request request;
    request.flags = 1;
    request.stub = bytes(4);
    (void)feed(request_pdu(request));
    (void)feed(pdu(19, 3, 99, {}));
    EXPECT_TRUE(tested->request_incomplete());
    (void)feed(pdu(18, 3, 2, {}));
    EXPECT_TRUE(tested->request_incomplete());
    const session_step step = feed(pdu(19, 3, 2, {}));
    EXPECT_FALSE(step.close);
    EXPECT_FALSE(tested->request_incomplete());
    EXPECT_EQ(core.pending_request_bytes, 0U);
    request.flags = 3;
    EXPECT_TRUE(feed(request_pdu(request)).call);
}

TEST_F(SessionTest, PdusThatAServerNeverGetsCloseTheConnection) {
    for (const unsigned type : {1U, 2U, 3U, 12U, 13U, 15U, 17U, 20U, 255U}) {
        restart();
        bind_plainly();
        const session_step step = feed(pdu(type, 3, 1, bytes(16)));
        EXPECT_TRUE(step.close) << type;
        EXPECT_TRUE(step.answer.empty()) << type;
    }
}

TEST_F(SessionTest, MaybeCallIsNotAnswered) {
    bind_plainly();
    raw_request request;
    request.flags = 0x43;
    session_step step = feed(request_pdu(request));
    ASSERT_TRUE(step.call);
    EXPECT_TRUE(serve(*step.call).pieces.empty());
    request.operation = 8;
    step = feed(request_pdu(request));
    EXPECT_FALSE(step.call);
    EXPECT_TRUE(step.answer.empty());
}

}  // namespace
