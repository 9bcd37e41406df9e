#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/rpc/request_assembly.h"
#include "platform/linux/rpc/session.h"
#include "rpc/support/raw_pdu.h"
#include "rpc/support/test_server.h"
#include "rpc/support/toy_security.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;
using testing::UnorderedElementsAre;

constexpr unsigned multiplex = 0x10;
constexpr unsigned whole = 3;

bytes request(unsigned operation, const bytes& stub, std::uint32_t call_id, unsigned flags = whole) {
    raw_request made;
    made.operation = operation;
    made.stub = stub;
    made.call_id = call_id;
    made.flags = flags;
    return request_pdu(made);
}

/// A client on a connection where it may multiplex; `level` 0 for none.
class multiplexing_client {
public:
    explicit multiplexing_client(std::uint16_t port, unsigned level = 0) : connection(port), level_(level) {
        raw_auth auth{10, level, 1, 0, text_bytes("hello")};
        raw_bind bind;
        bind.flags = whole | multiplex;
        bind.auth = level == 0 ? nullptr : &auth;
        const bytes ack = connection.exchange(bind_pdu(bind));
        EXPECT_EQ(type_of(ack), 12U);
        EXPECT_EQ(ack[3] & multiplex, multiplex);
        if (level != 0) {
            auth.token = text_bytes("secret");
            connection.send(pdu(16, whole, 1, bytes(4), true, &auth));
        }
    }
    void call(unsigned operation, const bytes& stub, std::uint32_t call_id) {
        if (!signs()) {
            connection.send(request(operation, stub, call_id));
            return;
        }
        raw_auth auth{10, level_, 1, static_cast<unsigned>((16 - stub.size() % 16) % 16), bytes(16)};
        raw_request made;
        made.operation = operation;
        made.stub = stub;
        made.call_id = call_id;
        made.auth = &auth;
        bytes data = request_pdu(made);
        const std::span<std::uint8_t> all(data);
        signer_.protect(static_cast<auth_level>(level_), all.first(data.size() - 16), 24, stub.size() + auth.pad, all.last(16));
        connection.send(data);
    }
    /// The next answer with all its fragments: its call, 0 where a fragment is none of it or has a wrong signature.
    std::pair<std::uint32_t, bytes> answer() {
        std::pair<std::uint32_t, bytes> got;
        for (bool last = false; !last;) {
            bytes data = connection.receive();
            const std::uint32_t id = le32(data, 12);
            if (type_of(data) != 2 || (!got.second.empty() && id != got.first) || !open(data)) {
                return {};
            }
            last = (data[3] & 2) != 0;
            got.first = id;
            got.second.insert(got.second.end(), data.begin() + 24, data.end());
        }
        return got;
    }

    raw_connection connection;

private:
    /// Checks the signature and leaves header and stub data.
    bool open(bytes& data) {
        if (!signs()) {
            return true;
        }
        const std::span<std::uint8_t> all(data);
        const std::size_t trailer = data.size() - 16 - 8;
        const bool right =
            signer_.unprotect(static_cast<auth_level>(level_), all.first(data.size() - 16), 24, trailer - 24, all.last(16));
        data.resize(trailer - data[trailer + 2]);
        return right;
    }

    [[nodiscard]] bool signs() const { return level_ >= 4; }

    unsigned level_;
    toy_signer signer_;
};

TEST(MultiplexTest, IsAgreedToOnlyWhenAskedFor) {
    test_server server;
    raw_connection client(server.port());
    EXPECT_EQ(client.exchange(bind_pdu())[3] & multiplex, 0);
}

TEST(MultiplexTest, AQuickCallOvertakesASlowOne) {
    test_server server;
    multiplexing_client client(server.port());
    client.call(operation::block, {1}, 5);
    server.wait_for_blocked(1);
    client.call(operation::echo, {2}, 6);
    client.call(operation::who, {}, 7);
    EXPECT_THAT((std::vector{client.answer(), client.answer()}),
                UnorderedElementsAre(std::pair(6U, bytes{2}), std::pair(7U, text_bytes("nobody"))));
    server.release();
    EXPECT_EQ(client.answer(), std::pair(5U, bytes{1}));
}

TEST(MultiplexTest, WithoutItCallsTakeTurns) {
    test_server server;
    raw_connection client(server.port());
    (void)client.exchange(bind_pdu());
    client.send(request(operation::block, {1}, 5));
    client.send(request(operation::echo, {2}, 6));
    server.wait_for_blocked(1);
    server.release();
    EXPECT_EQ(le32(client.receive(), 12), 5U);
    EXPECT_EQ(le32(client.receive(), 12), 6U);
}

class SignedMultiplexTest : public testing::TestWithParam<unsigned> {};

TEST_P(SignedMultiplexTest, SignaturesFollowTheOrderOfTheAnswers) {
    test_server server;
    multiplexing_client client(server.port(), GetParam());
    client.call(operation::block, bytes(33, 1), 5);
    client.call(operation::block, bytes(7, 2), 6);
    server.wait_for_blocked(2);
    client.call(operation::echo, {3}, 7);
    EXPECT_EQ(client.answer(), std::pair(7U, bytes{3}));
    server.release();
    EXPECT_THAT((std::vector{client.answer(), client.answer()}),
                UnorderedElementsAre(std::pair(5U, bytes(33, 1)), std::pair(6U, bytes(7, 2))));
    client.call(operation::who, {}, 8);
    EXPECT_EQ(client.answer(), std::pair(8U, text_bytes("TOY\\user " + std::to_string(GetParam()))));
}

TEST_P(SignedMultiplexTest, LongAnswersAreWholeOneBehindTheOther) {
    constexpr std::uint32_t size = 1'500'000;
    test_server server;
    multiplexing_client client(server.port(), GetParam());
    for (std::uint32_t id = 10; id < 14; ++id) {
        client.call(operation::produce, number(size + id), id);
    }
    std::vector<std::uint32_t> ids;
    for (int i = 0; i < 4; ++i) {
        const auto [id, stub] = client.answer();
        ids.push_back(id);
        EXPECT_TRUE(stub == pattern(size + id)) << id;
    }
    EXPECT_THAT(ids, UnorderedElementsAre(10U, 11U, 12U, 13U));
}

TEST_P(SignedMultiplexTest, AnAnswerWithoutStubDataIsSignedToo) {
    test_server server;
    multiplexing_client client(server.port(), GetParam());
    client.call(operation::echo, {}, 5);
    EXPECT_EQ(client.answer(), std::pair(5U, bytes{}));
    client.call(operation::echo, {1}, 6);
    EXPECT_EQ(client.answer(), std::pair(6U, bytes{1}));
}

INSTANTIATE_TEST_SUITE_P(Levels, SignedMultiplexTest, testing::Values(2U, 4U, 5U, 6U),
                         [](const auto& tested) { return "Level" + std::to_string(tested.param); });

TEST(MultiplexTest, AnAbandonedCallIsNotAnsweredAndTheOthersAre) {
    test_server server;
    multiplexing_client client(server.port(), 5);
    client.call(operation::block, {1}, 5);
    client.call(operation::block, {2}, 6);
    server.wait_for_blocked(2);
    client.connection.send(pdu(18, whole, 6, {}));
    client.connection.send(pdu(19, whole, 5, {}));
    client.call(operation::echo, {3}, 7);
    EXPECT_EQ(client.answer(), std::pair(7U, bytes{3})) << "what came before it has been heard";
    server.release();
    EXPECT_EQ(client.answer(), std::pair(6U, bytes{2})) << "to cancel is a wish";
    client.call(operation::echo, {4}, 8);
    EXPECT_EQ(client.answer(), std::pair(8U, bytes{4}));
}

TEST(MultiplexTest, AboveItsLimitAConnectionIsReadNoFurther) {
    rpc_server_options options = loopback_options();
    options.limits.multiplexed_calls = 2;
    test_server server(options);
    multiplexing_client client(server.port());
    client.call(operation::block, {1}, 5);
    client.call(operation::block, {2}, 6);
    server.wait_for_blocked(2);
    client.call(operation::echo, {3}, 7);
    multiplexing_client other(server.port());
    other.call(operation::echo, {4}, 8);
    EXPECT_EQ(other.answer(), std::pair(8U, bytes{4}));
    server.release();
    std::vector<std::uint32_t> ids;
    for (int i = 0; i < 3; ++i) {
        ids.push_back(client.answer().first);
    }
    EXPECT_THAT(ids, UnorderedElementsAre(5U, 6U, 7U));
}

TEST(MultiplexTest, TheStopWaitsForAllCallsOfAConnection) {
    test_server server;
    multiplexing_client client(server.port(), 5);
    client.call(operation::block, {1}, 5);
    client.call(operation::block, {2}, 6);
    server.wait_for_blocked(2);
    server->stop_listening();
    server.release();
    EXPECT_THAT((std::vector{client.answer().first, client.answer().first}), UnorderedElementsAre(5U, 6U));
    client.connection.end_of_output();
    EXPECT_TRUE(client.connection.ended());
}

TEST(MultiplexTest, NonsenseEndsTheConnectionThoughCallsAreInProgress) {
    test_server server;
    multiplexing_client client(server.port());
    client.call(operation::block, {1}, 5);
    server.wait_for_blocked(1);
    client.connection.send(request(operation::echo, {}, 6, 0));
    EXPECT_EQ(fault_of(client.connection.receive()), 0x1C01000BU);
    client.connection.end_of_output();
    EXPECT_TRUE(client.connection.ended());
    server.release();
    multiplexing_client next(server.port());
    next.call(operation::echo, {4}, 8);
    EXPECT_EQ(next.answer(), std::pair(8U, bytes{4}));
}

/// Requests on their way in.
class MultiplexedSessionTest : public testing::Test {
protected:
    MultiplexedSessionTest() {
        platform::rpc_interface offered;
        offered.uuid = uuid_from_text(test_interface);
        offered.major_version = 1;
        offered.operations = 1;
        core.interfaces.add({offered, 0xFFFFFFFF, false});
        core.listening = true;
        raw_bind bind;
        bind.flags = whole | multiplex;
        EXPECT_EQ(type_of(feed(bind_pdu(bind)).answer), 12U);
    }
    session_step feed(bytes data) { return tested->take(*decode_header(data), data); }

    server_core core;
    std::unique_ptr<session> tested = std::make_unique<session>(core, connection_peer{"192.0.2.1", {}, 0});
};

TEST_F(MultiplexedSessionTest, FragmentsOfSeveralRequestsMayComeInTurn) {
    EXPECT_FALSE(feed(request(0, {1}, 5, 1)).call);
    EXPECT_FALSE(feed(request(0, {2}, 6, 1)).call);
    EXPECT_FALSE(feed(request(0, {3}, 5, 0)).call);
    const session_step between = feed(request(0, {9}, 7));
    ASSERT_TRUE(between.call);
    EXPECT_EQ(between.call->stub, bytes{9});
    const session_step second = feed(request(0, {4}, 6, 2));
    ASSERT_TRUE(second.call);
    EXPECT_EQ(second.call->call_id, 6U);
    EXPECT_EQ(second.call->stub, (bytes{2, 4}));
    EXPECT_TRUE(tested->request_incomplete());
    EXPECT_EQ(feed(request(0, {5}, 5, 2)).call->stub, (bytes{1, 3, 5}));
    EXPECT_FALSE(tested->request_incomplete());
    EXPECT_EQ(core.pending_request_bytes, 0U);
}

TEST_F(MultiplexedSessionTest, ACallThatBeginsTwiceIsAProtocolError) {
    (void)feed(request(0, {1}, 5, 1));
    const session_step step = feed(request(0, {2}, 5, 1));
    EXPECT_EQ(fault_of(step.answer), 0x1C01000BU);
    EXPECT_TRUE(step.close);
}

TEST_F(MultiplexedSessionTest, AFragmentOfNoRequestIsAProtocolError) {
    (void)feed(request(0, {1}, 5, 1));
    EXPECT_EQ(fault_of(feed(request(0, {2}, 6, 2)).answer), 0x1C01000BU);
}

TEST_F(MultiplexedSessionTest, IncompleteRequestsAreLimited) {
    core.limits.multiplexed_calls = 2;
    (void)feed(request(0, {1}, 5, 1));
    (void)feed(request(0, {1}, 6, 1));
    const session_step step = feed(request(0, {1}, 7, 1));
    EXPECT_EQ(fault_of(step.answer), 0x1C010014U);
    EXPECT_TRUE(step.close);
}

TEST_F(MultiplexedSessionTest, AllOfThemTogetherHaveTheRoomOfOne) {
    core.limits.unauthenticated_request_bytes = 10;
    (void)feed(request(0, bytes(6), 5, 1));
    EXPECT_FALSE(feed(request(0, bytes(4), 6, 1)).close);
    const session_step step = feed(request(0, {1}, 7, 1));
    EXPECT_EQ(fault_of(step.answer), 5U);
    EXPECT_TRUE(step.close);
}

TEST_F(MultiplexedSessionTest, AnAbandonedOneIsForgottenAlone) {
    (void)feed(request(0, {1}, 5, 1));
    (void)feed(request(0, {2}, 6, 1));
    (void)feed(pdu(19, whole, 5, {}));
    EXPECT_EQ(core.pending_request_bytes, 1U);
    EXPECT_EQ(feed(request(0, {3}, 6, 2)).call->stub, (bytes{2, 3}));
    EXPECT_FALSE(feed(request(0, {4}, 5, 1)).close) << "the number is free again";
}

TEST_F(MultiplexedSessionTest, TheEndGivesAllRoomBack) {
    (void)feed(request(0, bytes(600), 5, 1));
    (void)feed(request(0, bytes(500), 6, 1));
    EXPECT_EQ(core.pending_request_bytes, 1100U);
    tested.reset();
    EXPECT_EQ(core.pending_request_bytes, 0U);
}

TEST_F(MultiplexedSessionTest, LongOnesCountInSteps) {
    constexpr std::size_t step = 65536;
    core.limits.unauthenticated_request_bytes = 1'000'000;
    const auto more = [this](std::uint32_t call_id, std::size_t size, unsigned flags) {
        while (size > 0) {
            const std::size_t part = std::min<std::size_t>(size, 4096);
            EXPECT_FALSE(feed(request(0, bytes(part), call_id, flags)).close);
            flags = 0;
            size -= part;
        }
    };
    more(5, step, 1);
    EXPECT_EQ(core.pending_request_bytes, step);
    more(5, 1, 0);
    EXPECT_EQ(core.pending_request_bytes, 2 * step);
    more(5, step - 1, 0);
    EXPECT_EQ(core.pending_request_bytes, 2 * step);
    more(6, 10, 1);
    EXPECT_EQ(core.pending_request_bytes, 2 * step + 10);
    more(5, 1, 0);
    EXPECT_EQ(core.pending_request_bytes, 3 * step + 10);
    const session_step whole_one = feed(request(0, bytes(1), 5, 2));
    ASSERT_TRUE(whole_one.call);
    EXPECT_EQ(whole_one.call->stub.size(), 2 * step + 2);
    EXPECT_EQ(core.pending_request_bytes, 10U);
    more(7, step + 1, 1);
    tested.reset();
    EXPECT_EQ(core.pending_request_bytes, 0U);
}

TEST_F(MultiplexedSessionTest, AStepTooManyIsRefused) {
    constexpr std::size_t step = 65536;
    core.limits.unauthenticated_request_bytes = 1'000'000;
    core.limits.pending_request_bytes = 2 * step - 1;
    for (std::size_t sent = 0; sent < step; sent += 4096) {
        EXPECT_FALSE(feed(request(0, bytes(4096), 5, sent == 0 ? 1 : 0)).close);
    }
    const session_step refused = feed(request(0, bytes(1), 5, 0));
    EXPECT_EQ(fault_of(refused.answer), 0x1C00001BU);
    EXPECT_TRUE(refused.close);
}

TEST(StubMemory, AnAnnouncementCountsOnceAPartOfItIsThere) {
    constexpr std::size_t kib = 1024;
    EXPECT_EQ(stub_memory(1, 0), 2U) << "nothing announced";
    EXPECT_EQ(stub_memory(6 * kib, 5 * kib), 12 * kib) << "more came than was announced";
    EXPECT_EQ(stub_memory(5 * kib, 64 * kib), 64 * kib);
    EXPECT_EQ(stub_memory(5 * kib, 2048 * kib), 64 * kib);
    EXPECT_EQ(stub_memory(64 * kib, 2048 * kib), 2048 * kib);
    EXPECT_EQ(stub_memory(65 * kib, 8192 * kib), 256 * kib) << "a part of 32";
    EXPECT_EQ(stub_memory(1, 0xFFFFFFFF), 64 * kib) << "whoever announces all there is";
    EXPECT_EQ(stub_memory(100 * kib, 0xFFFFFFFF), 400 * kib);
}

/// Fragments of a long request come, each time there is no room for one more the memory grows.
TEST(StubMemory, WhatIsMovedStaysBelowATenth) {
    constexpr std::size_t fragment = 5816;
    for (const std::size_t announced : {2'097'200U, 6'000'001U, 20'000'000U, 64'000'000U}) {
        std::size_t room = 0;
        std::size_t moved = 0;
        for (std::size_t here = 0; here < announced; here = std::min(here + fragment, announced)) {
            const std::size_t needed = std::min(here + fragment, announced);
            if (needed > room) {
                moved += here;
                room = stub_memory(needed, announced);
                EXPECT_GE(room, needed);
                EXPECT_LE(room, std::max<std::size_t>(65536, 33 * needed));
            }
        }
        EXPECT_LT(moved, announced / 10) << announced;
        EXPECT_EQ(room, announced);
    }
}

TEST_F(MultiplexedSessionTest, EachCallHasItsOwnWordOnItsCaller) {
    const session_step first = feed(request(0, {1}, 5));
    const session_step second = feed(request(0, {1}, 6));
    EXPECT_NE(first.call->identity, second.call->identity);
}

TEST_F(MultiplexedSessionTest, ContextsMayBeAddedBetweenFragments) {
    (void)feed(request(0, {1}, 5, 1));
    raw_bind alter;
    alter.type = 14;
    alter.contexts[0].id = 4;
    EXPECT_EQ(type_of(feed(bind_pdu(alter)).answer), 15U);
    EXPECT_TRUE(feed(request(0, {2}, 5, 2)).call);
}

}  // namespace
