#include "platform/linux/rpc/ntlm_messages.h"

#include <gtest/gtest.h>

#include "platform/linux/rpc/little_endian.h"
#include "rpc/ntlm/ntlm_fixture.h"

namespace {

using namespace platform::linux_rpc::ntlm;
using ntlm_testing::bytes;
using ntlm_testing::from_hex;
using ntlm_testing::sample_authenticate;
using ntlm_testing::sample_challenge;
using ntlm_testing::short_negotiate;
using ntlm_testing::to_hex;
using platform::linux_rpc::store_le16;
using platform::linux_rpc::store_le32;

TEST(NtlmNegotiate, IsTakenInEachOfItsLengths) {
    const bytes full = encode_negotiate(0xE2088297, {6, 1, 0xb1, 0x1d, 0, 0, 0, 15});
    EXPECT_EQ("4e544c4d5353500001000000978208e2000000000000000000000000000000000601b11d0000000f", to_hex(full));
    for (const std::size_t size : {std::size_t{16}, std::size_t{32}, std::size_t{40}}) {
        const auto decoded = decode_negotiate(std::span(full).first(size));
        ASSERT_TRUE(decoded) << size;
        EXPECT_EQ(0xE2088297U, decoded->flags);
    }
}

TEST(NtlmNegotiate, ShorterThanItsFlagsIsRefused) {
    const bytes full = short_negotiate(0);
    for (std::size_t size = 0; size < 16; ++size) {
        EXPECT_FALSE(decode_negotiate(std::span(full).first(size))) << size;
    }
}

TEST(NtlmNegotiate, OfAnotherSignatureOrTypeIsRefused) {
    bytes message = short_negotiate(0);
    message[6] = 'Q';
    EXPECT_FALSE(decode_negotiate(message));
    message = short_negotiate(0);
    message[8] = 3;
    EXPECT_FALSE(decode_negotiate(message));
}

TEST(NtlmNegotiate, SuppliedNamesHaveToLieInside) {
    const std::uint32_t supplied[] = {flag::domain_supplied, flag::workstation_supplied};
    const std::size_t places[] = {16, 24};
    for (std::size_t i = 0; i < 2; ++i) {
        bytes message = short_negotiate(supplied[i]);
        message.resize(36);
        store_le16(message, places[i], 4);
        store_le32(message, places[i] + 4, 32);
        EXPECT_TRUE(decode_negotiate(message));
        store_le32(message, places[i] + 4, 33);
        EXPECT_FALSE(decode_negotiate(message));
        store_le32(message, places[i] + 4, 31);
        EXPECT_FALSE(decode_negotiate(message));
        store_le32(message, places[i] + 4, 0xFFFFFFFE);
        EXPECT_FALSE(decode_negotiate(message));
        EXPECT_FALSE(decode_negotiate(std::span(message).first(16)));
        store_le32(message, 12, 0);
        EXPECT_TRUE(decode_negotiate(message)) << "names that aren't supplied aren't looked at";
    }
}

TEST(NtlmChallenge, OfTheSampleIsDecodedAndEncodedAgain) {
    const bytes sample = from_hex(sample_challenge);
    const auto decoded = decode_challenge(sample);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(0xE28A8233U, decoded->flags);
    EXPECT_EQ("0123456789abcdef", to_hex(decoded->challenge));
    EXPECT_EQ(u"Server", decoded->target_name);
    EXPECT_EQ("060070170000000f", to_hex(decoded->version));
    const auto pairs = decode_av_pairs(decoded->target_info);
    ASSERT_TRUE(pairs);
    ASSERT_EQ(2U, pairs->size());
    EXPECT_EQ("44006f006d00610069006e00", to_hex(find_pair(*pairs, av_id::netbios_domain)->value));
    EXPECT_EQ("530065007200760065007200", to_hex(find_pair(*pairs, av_id::netbios_computer)->value));
    EXPECT_EQ(nullptr, find_pair(*pairs, av_id::timestamp));
    EXPECT_EQ(to_hex(sample), to_hex(encode_challenge(*decoded)));
}

TEST(NtlmChallenge, CutAnywhereIsRefused) {
    const bytes sample = from_hex(sample_challenge);
    for (std::size_t size = 0; size < sample.size(); ++size) {
        EXPECT_FALSE(decode_challenge(std::span(sample).first(size))) << size;
    }
}

TEST(NtlmAuthenticate, OfTheSampleIsDecodedAndEncodedAgain) {
    const bytes sample = from_hex(sample_authenticate);
    const auto decoded = decode_authenticate(sample);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(0xE2888235U, decoded->flags);
    EXPECT_EQ(u"Domain", decoded->domain);
    EXPECT_EQ(u"User", decoded->user);
    EXPECT_EQ(u"COMPUTER", decoded->workstation);
    EXPECT_EQ("86c35097ac9cec102554764a57cccc19aaaaaaaaaaaaaaaa", to_hex(decoded->lm_response));
    EXPECT_EQ(0x54U, decoded->nt_response.size());
    EXPECT_EQ("c5dad2544fc9799094ce1ce90bc9d03e", to_hex(decoded->encrypted_session_key));
    EXPECT_EQ(72U, decoded->payload_offset);
    EXPECT_EQ(to_hex(sample), to_hex(encode_authenticate(*decoded, false)));
}

TEST(NtlmAuthenticate, KeepsRoomForTheIntegrityCode) {
    auto message = decode_authenticate(from_hex(sample_authenticate));
    ASSERT_TRUE(message);
    const bytes encoded = encode_authenticate(*message, true);
    EXPECT_EQ("00000000000000000000000000000000", to_hex(std::span(encoded).subspan(mic_offset, mic_size)));
    const auto again = decode_authenticate(encoded);
    ASSERT_TRUE(again);
    EXPECT_EQ(payload_offset_with_mic, again->payload_offset);
    EXPECT_EQ(message->nt_response, again->nt_response);
}

TEST(NtlmAuthenticate, CutAnywhereIsRefused) {
    const bytes sample = from_hex(sample_authenticate);
    for (std::size_t size = 0; size < sample.size(); ++size) {
        EXPECT_FALSE(decode_authenticate(std::span(sample).first(size))) << size;
    }
}

TEST(NtlmAuthenticate, EveryFieldHasToLieInsideAndBehindTheFixedPart) {
    for (const std::size_t place : {12, 20, 28, 36, 44, 52}) {
        bytes message = from_hex(sample_authenticate);
        store_le32(message, place + 4, 60);
        EXPECT_FALSE(decode_authenticate(message)) << place;
        store_le32(message, place + 4, static_cast<std::uint32_t>(message.size()));
        EXPECT_FALSE(decode_authenticate(message)) << place;
        store_le32(message, place + 4, 0xFFFFFFFF);
        EXPECT_FALSE(decode_authenticate(message)) << place;
        message = from_hex(sample_authenticate);
        store_le16(message, place, 0xFFFE);
        EXPECT_FALSE(decode_authenticate(message)) << place;
        store_le16(message, place, 0);
        store_le32(message, place + 4, 0xFFFFFFFF);
        EXPECT_TRUE(decode_authenticate(message)) << "an empty field lies nowhere: " << place;
    }
}

TEST(NtlmAuthenticate, NamesHaveToBeWellFormed) {
    for (const std::size_t place : {28, 36, 44}) {
        bytes odd = from_hex(sample_authenticate);
        store_le16(odd, place, 7);
        EXPECT_FALSE(decode_authenticate(odd)) << place;
        for (const std::string_view unit : {"0000", "00d8", "00dc"}) {
            bytes message = from_hex(sample_authenticate);
            const bytes bad = from_hex(unit);
            const std::size_t offset = platform::linux_rpc::load_le32(message, place + 4);
            message[offset] = bad[0];
            message[offset + 1] = bad[1];
            EXPECT_FALSE(decode_authenticate(message)) << place << " " << unit;
        }
    }
}

TEST(NtlmAvPairs, EndWithTheClosingOneAndMayBePadded) {
    const auto pairs = decode_av_pairs(from_hex("06000400 02000000 00000000 00000000"));
    ASSERT_TRUE(pairs);
    ASSERT_EQ(1U, pairs->size());
    EXPECT_EQ("02000000", to_hex(pairs->front().value));
    EXPECT_EQ("060004000200000000000000", to_hex(encode_av_pairs(*pairs)));
    EXPECT_TRUE(decode_av_pairs(from_hex("00000000"))->empty());
}

TEST(NtlmAvPairs, WithoutTheClosingOneOrWithALyingLengthAreRefused) {
    for (const std::string_view wrong : {"", "000000", "06000400", "0600040002000000", "0600050002000000", "06000000", "00000400",
                                         "0600ffff0200000000000000", "060004000200000000000100"}) {
        EXPECT_FALSE(decode_av_pairs(from_hex(wrong))) << wrong;
    }
}

}  // namespace
