#include "platform/linux/rpc/call.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <new>
#include <numeric>

#include "platform/linux/rpc/pdu.h"
#include "rpc/support/raw_pdu.h"
#include "rpc/support/toy_security.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

class CallTest : public testing::Test {
protected:
    /// A call whose dispatch function answers with `answer`, or with a status.
    rpc_call call_of(platform::rpc_dispatch dispatch) {
        auto offered = std::make_shared<offered_interface>();
        offered->description.dispatch = std::move(dispatch);
        rpc_call call;
        call.target = offered;
        call.call_id = 11;
        call.context_id = 4;
        call.identity = &identity;
        call.max_fragment = 1432;
        return call;
    }
    rpc_call call_answering(bytes answer) {
        return call_of([answer](const platform::rpc_request&, platform::rpc_reply& reply) {
            std::ranges::copy(answer, reply.allocate(answer.size()).begin());
            return 0U;
        });
    }
    static bytes flat(const outgoing& out) {
        bytes all;
        for (const auto& piece : out.pieces) {
            all.insert(all.end(), piece.begin(), piece.end());
        }
        return all;
    }
    static std::vector<bytes> split(const bytes& all) {
        std::vector<bytes> pdus;
        for (std::size_t at = 0; at < all.size();) {
            const std::size_t length = le16(std::span(all).subspan(at), 8);
            EXPECT_LE(at + length, all.size());
            pdus.emplace_back(all.begin() + static_cast<std::ptrdiff_t>(at),
                              all.begin() + static_cast<std::ptrdiff_t>(at + length));
            at += length;
        }
        return pdus;
    }
    static bytes counted(std::size_t size) {
        bytes data(size);
        std::iota(data.begin(), data.end(), std::uint8_t{0});
        return data;
    }

    client_identity identity;
};

TEST_F(CallTest, SmallAnswerIsOneFragment) {
    rpc_call call = call_answering({1, 2, 3});
    const bytes expected =
        raw_writer().u8(5).u8(0).u8(2).u8(3).u8(0x10).zeros(3).u16(27).u16(0).u32(11).u32(3).u16(4).u16(0).u8(1).u8(2).u8(3).data;
    EXPECT_EQ(flat(serve(call)), expected);
}

TEST_F(CallTest, AnswerWithoutStubIsAHeader) {
    rpc_call call = call_of([](const platform::rpc_request&, platform::rpc_reply&) { return 0U; });
    EXPECT_EQ(flat(serve(call)).size(), 24U);
}

TEST_F(CallTest, LongAnswerRespectsTheClientsFragmentSize) {
    const bytes answer = counted(5000);
    rpc_call call = call_answering(answer);
    const outgoing out = serve(call);
    const std::vector<bytes> pdus = split(flat(out));
    ASSERT_EQ(pdus.size(), 4U);
    EXPECT_EQ(out.pdus, 4U);
    bytes joined;
    for (std::size_t i = 0; i < pdus.size(); ++i) {
        EXPECT_LE(pdus[i].size(), 1432U);
        EXPECT_EQ(pdus[i][3], (i == 0 ? 1 : 0) | (i == 3 ? 2 : 0));
        EXPECT_EQ(le32(pdus[i], 16), 5000 - joined.size()) << "allocation hint";
        EXPECT_EQ(i == 3 || (pdus[i].size() - 24) % 8 == 0, true);
        joined.insert(joined.end(), pdus[i].begin() + 24, pdus[i].end());
    }
    EXPECT_EQ(joined, answer);
}

TEST_F(CallTest, AnswerThatJustFitsIsOneFragment) {
    rpc_call fits = call_answering(counted(1408));
    EXPECT_EQ(split(flat(serve(fits))).size(), 1U);
    rpc_call doesnt = call_answering(counted(1409));
    EXPECT_EQ(split(flat(serve(doesnt))).size(), 2U);
}

TEST_F(CallTest, ProtectedAnswersAreSignedFragmentByFragment) {
    for (const std::size_t size : {0, 1, 16, 1376, 1377, 9000}) {
        for (const auth_level level : {auth_level::integrity, auth_level::privacy}) {
            toy_provider provider;
            const auto context = provider.create(level);
            const bytes answer = counted(size);
            rpc_call call = call_answering(answer);
            call.protection = {10, level, 7, context.get()};
            toy_signer client;
            bytes joined;
            for (bytes& fragment : split(flat(serve(call)))) {
                EXPECT_LE(fragment.size(), 1432U);
                const auto header = decode_header(fragment);
                const auto trailer = decode_auth_trailer(*header, fragment, 24);
                ASSERT_TRUE(trailer);
                EXPECT_EQ((trailer->offset - 24) % 16, 0U) << "padded to a multiple of 16";
                EXPECT_EQ(trailer->context_id, 7U);
                EXPECT_EQ(trailer->level, static_cast<std::uint8_t>(level));
                EXPECT_TRUE(client.unprotect(level, std::span(fragment).first(trailer->offset + 8), 24, trailer->offset - 24,
                                             trailer->token));
                joined.insert(joined.end(), fragment.begin() + 24,
                              fragment.begin() + static_cast<std::ptrdiff_t>(trailer->offset - trailer->pad_length));
            }
            EXPECT_EQ(joined, answer) << size;
        }
    }
}

TEST_F(CallTest, StatusBecomesAFault) {
    rpc_call call = call_of([](const platform::rpc_request&, platform::rpc_reply&) { return 1783U; });
    const bytes expected = raw_writer()
                               .u8(5)
                               .u8(0)
                               .u8(3)
                               .u8(3)
                               .u8(0x10)
                               .zeros(3)
                               .u16(32)
                               .u16(0)
                               .u32(11)
                               .u32(0)
                               .u16(4)
                               .zeros(2)
                               .u32(0x6F7)
                               .zeros(4)
                               .data;
    EXPECT_EQ(flat(serve(call)), expected);
}

TEST_F(CallTest, ExceptionsBecomeFaults) {
    rpc_call no_memory =
        call_of([](const platform::rpc_request&, platform::rpc_reply&) -> std::uint32_t { throw std::bad_alloc(); });
    EXPECT_EQ(fault_of(flat(serve(no_memory))), 0x1C00001BU);
    rpc_call other = call_of([](const platform::rpc_request&, platform::rpc_reply&) -> std::uint32_t { throw 7; });
    EXPECT_EQ(fault_of(flat(serve(other))), 0x1C000012U);
}

TEST_F(CallTest, BuffersAreAligned) {
    rpc_call call = call_of([](const platform::rpc_request& request, platform::rpc_reply& reply) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(request.stub.data()) % 8, 0U);
        const auto out = reply.allocate(100);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(out.data()) % 8, 0U);
        std::ranges::fill(out, std::uint8_t{7});
        return 0U;
    });
    call.stub = {1, 2, 3};
    EXPECT_EQ(flat(serve(call)).size(), 124U);
}

TEST_F(CallTest, TheThreadKnowsItsCaller) {
    identity.name = "TOY\\user";
    identity.authenticated = true;
    rpc_call call = call_of([&](const platform::rpc_request&, platform::rpc_reply&) {
        const call_scene* scene = current_call();
        EXPECT_NE(scene, nullptr);
        EXPECT_EQ(scene->identity, &identity);
        EXPECT_EQ(scene->local_ipv4, 0x7F000001U);
        return 0U;
    });
    call.local_ipv4 = 0x7F000001;
    EXPECT_EQ(current_call(), nullptr);
    (void)serve(call);
    EXPECT_EQ(current_call(), nullptr);
}

TEST_F(CallTest, LocalCallerIsNamedByTheSystem) {
    identity.local = true;
    identity.uid = 0;
    rpc_call call = call_answering({});
    (void)serve(call);
    EXPECT_EQ(identity.name, "root");
    identity.name.clear();
    identity.uid = 4'000'000'001;
    (void)serve(call);
    EXPECT_EQ(identity.name, "4000000001");
}

}  // namespace
