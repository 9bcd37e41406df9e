#include "platform/linux/rpc/pdu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/rpc/wire.h"
#include "rpc/support/raw_pdu.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;

TEST(WireTest, UuidTextGoesBothWays) {
    const std::string text = "01234567-89ab-cdef-0123-456789abcdef";
    EXPECT_EQ(uuid_to_text(uuid_from_text(text)), text);
    EXPECT_EQ(uuid_from_text("01234567-89AB-CDEF-0123-456789ABCDEF"), uuid_from_text(text));
    for (const char* wrong : {"", "01234567-89ab-cdef-0123-456789abcde", "01234567+89ab-cdef-0123-456789abcdef",
                              "0123456g-89ab-cdef-0123-456789abcdef", "01234567-89ab-cdef-0123-456789abcdef0"}) {
        EXPECT_EQ(uuid_from_text(wrong), uuid_bytes{}) << wrong;
    }
}

TEST(WireTest, ReaderKnowsBothByteOrders) {
    for (const bool little : {true, false}) {
        const bytes data = raw_writer(little).u8(1).u8(0).u16(0x0203).u32(0x04050607).uuid(test_interface).u32(0x00020001).data;
        wire_reader reader(data, little);
        EXPECT_EQ(reader.u8(), 1);
        reader.align(2);
        EXPECT_EQ(reader.u16(), 0x0203);
        EXPECT_EQ(reader.u32(), 0x04050607U);
        const syntax_id syntax = reader.syntax();
        EXPECT_EQ(uuid_to_text(syntax.uuid), test_interface);
        EXPECT_EQ(syntax.major, 1);
        EXPECT_EQ(syntax.minor, 2);
        EXPECT_EQ(reader.remaining(), 0U);
        EXPECT_FALSE(reader.failed());
    }
}

TEST(WireTest, ReadBehindTheEndFailsForGood) {
    const bytes data{1, 2, 3};
    wire_reader reader(data, true);
    EXPECT_EQ(reader.u32(), 0U);
    EXPECT_TRUE(reader.failed());
    EXPECT_EQ(reader.u8(), 0);
    EXPECT_TRUE(reader.bytes(1).empty());
    EXPECT_EQ(reader.uuid(), uuid_bytes{});
    wire_reader huge(data, true);
    EXPECT_TRUE(huge.bytes(0xFFFFFFFF).empty());
    EXPECT_TRUE(huge.failed());
}

TEST(PduTest, HeaderIsDecodedInBothByteOrders) {
    for (const bool little : {true, false}) {
        const bytes data = pdu(11, 0x83, 0x01020304, bytes(100), little);
        const auto header = decode_header(data);
        ASSERT_TRUE(header);
        EXPECT_EQ(header->type, 11);
        EXPECT_TRUE(header->has(pdu_flag::object_uuid));
        EXPECT_EQ(header->little_endian, little);
        EXPECT_EQ(header->fragment_length, 116);
        EXPECT_EQ(header->call_id, 0x01020304U);
        EXPECT_FALSE(decode_header(std::span(data).first(15)));
    }
}

TEST(PduTest, BindBodyOfManyContextsIsBoundedByWhatCame) {
    raw_bind bind;
    bind.contexts.assign(255, raw_context{});
    bytes data = bind_pdu(bind);
    const auto body = decode_bind_body(std::span(data).subspan(16), true);
    ASSERT_TRUE(body);
    EXPECT_EQ(body->contexts.size(), 255U);
    EXPECT_FALSE(decode_bind_body(std::span(data).subspan(16, data.size() - 17), true));
    data = bind_pdu();
    data[16 + 12 + 2] = 200;  // transfer syntaxes that aren't there
    EXPECT_FALSE(decode_bind_body(std::span(data).subspan(16), true));
}

TEST(PduTest, VerifierMustLieBehindTheBody) {
    const raw_auth auth{10, 5, 7, 3, bytes(16)};
    raw_request request;
    request.stub = bytes(5);
    request.auth = &auth;
    const bytes data = request_pdu(request);
    const auto header = decode_header(data);
    const auto trailer = decode_auth_trailer(*header, data, 24);
    ASSERT_TRUE(trailer);
    EXPECT_EQ(trailer->offset, 32U);
    EXPECT_EQ(trailer->pad_length, 3);
    EXPECT_EQ(trailer->token.size(), 16U);
    EXPECT_TRUE(decode_auth_trailer(*header, data, 29));
    EXPECT_FALSE(decode_auth_trailer(*header, data, 30)) << "padding reaches into the header";
    EXPECT_FALSE(decode_auth_trailer(*header, data, 40)) << "the verifier does";
}

TEST(PduTest, AckBodyIsDecodedAsEncoded) {
    bind_ack_body body{1432, 5840, 7, "6166", {{0, 0, ndr_transfer_syntax()}, {2, 1, {}}}};
    for (const char* address : {"", "6166", "61666"}) {
        body.secondary_address = address;
        const bytes data = encode_bind_ack(pdu_type::bind_ack, 0, 1, body, {});
        const auto decoded = decode_bind_ack_body(std::span(data).subspan(16), true);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->secondary_address, address);
        EXPECT_EQ(decoded->max_transmit, 1432);
        ASSERT_EQ(decoded->results.size(), 2U);
        EXPECT_EQ(decoded->results[0].transfer_syntax, ndr_transfer_syntax());
        EXPECT_EQ(decoded->results[1].reason, 1);
    }
    const bytes data = encode_bind_ack(pdu_type::bind_ack, 0, 1, body, {});
    for (std::size_t size = 16; size < data.size(); ++size) {
        EXPECT_FALSE(decode_bind_ack_body(std::span(data).subspan(16, size - 16), true)) << size;
    }
}

}  // namespace
