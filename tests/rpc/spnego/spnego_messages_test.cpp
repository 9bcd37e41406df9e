#include "platform/linux/rpc/spnego_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/linux/rpc/spnego_der.h"
#include "rpc/ntlm/ntlm_fixture.h"

namespace {

using namespace platform::linux_rpc;
using namespace platform::linux_rpc::spnego;
using ntlm_testing::bytes;
using ntlm_testing::from_hex;
using ntlm_testing::to_hex;
using testing::ElementsAre;

const std::string ntlm_negotiate = "4e544c4d53535000 01000000 05820862 00000000 28000000 00000000 28000000 060100000000000f";
const std::string ntlm_only_list = "300c 060a 2b06010401823702020a";
/// The first token of a client that offers NTLM only, as it came over the wire.
const std::string recorded_init = "6048 0606 2b0601050502 a03e 303c a00e " + ntlm_only_list + " a22a 0428 " + ntlm_negotiate;
/// The second one of a client that was told to go on with NTLM.
const std::string recorded_response = "a12e 302c a22a 0428 " + ntlm_negotiate;

TEST(SpnegoMessages, RecordedInitIsRead) {
    const auto message = decode_init(from_hex(recorded_init));
    ASSERT_TRUE(message);
    EXPECT_THAT(message->mechanisms, ElementsAre(mechanism::ntlm));
    EXPECT_EQ(message->mechanism_list, from_hex(ntlm_only_list));
    EXPECT_EQ(message->token, from_hex(ntlm_negotiate));
}

TEST(SpnegoMessages, RecordedResponseIsRead) {
    const auto message = decode_response(from_hex(recorded_response));
    ASSERT_TRUE(message);
    EXPECT_FALSE(message->state);
    EXPECT_TRUE(message->mechanism.empty());
    EXPECT_EQ(message->token, from_hex(ntlm_negotiate));
    EXPECT_TRUE(message->list_mic.empty());
}

TEST(SpnegoMessages, InitIsWrittenAsOthersWriteIt) {
    const bytes list = encode_mechanism_list(std::array{mechanism::ntlm});
    EXPECT_EQ(to_hex(list), to_hex(from_hex(ntlm_only_list)));
    EXPECT_EQ(to_hex(encode_init(list, from_hex(ntlm_negotiate))), to_hex(from_hex(recorded_init)));
}

TEST(SpnegoMessages, ResponseIsWrittenAsTheStandardHasIt) {
    response_message message;
    EXPECT_EQ(to_hex(encode_response(message)), "a1023000");
    message.state = neg_state::request_mic;
    message.mechanism = mechanism::ntlm;
    EXPECT_EQ(to_hex(encode_response(message)), "a1153013a0030a0103a10c060a2b06010401823702020a");
    message.state = neg_state::accept_completed;
    message.mechanism.clear();
    message.token = {1, 2};
    message.list_mic = {3};
    EXPECT_EQ(to_hex(encode_response(message)), "a1123010a0030a0100a20404020102a303040103");
}

TEST(SpnegoMessages, WhatIsWrittenIsReadAgain) {
    for (const std::size_t size : {1, 127, 128, 255, 256, 65'535, 65'536, 100'000}) {
        const bytes token(size, 0x55);
        const std::vector<mechanism_id> names{mechanism::kerberos_misprinted, mechanism::kerberos, mechanism::ntlm};
        const bytes list = encode_mechanism_list(names);
        const auto init = decode_init(encode_init(list, token));
        ASSERT_TRUE(init) << size;
        EXPECT_EQ(init->mechanisms, names);
        EXPECT_EQ(init->mechanism_list, list);
        EXPECT_EQ(init->token, token);
        response_message message{neg_state::accept_incomplete, mechanism::kerberos, token, bytes(28, 7)};
        const auto response = decode_response(encode_response(message));
        ASSERT_TRUE(response) << size;
        EXPECT_EQ(response->state, message.state);
        EXPECT_EQ(response->mechanism, message.mechanism);
        EXPECT_EQ(response->token, message.token);
        EXPECT_EQ(response->list_mic, message.list_mic);
    }
}

TEST(SpnegoMessages, FlagsAndLaterFieldsArePassedOver) {
    const auto message = decode_init(from_hex("6024 0606 2b0601050502 a01a 3018 a00e " + ntlm_only_list + " a104 03020000 a700"));
    ASSERT_TRUE(message);
    EXPECT_THAT(message->mechanisms, ElementsAre(mechanism::ntlm));
    EXPECT_TRUE(message->token.empty());
    EXPECT_TRUE(decode_response(from_hex("a109 3007 a0030a0101 a400")));
}

TEST(SpnegoMessages, EveryCutIsNoticed) {
    for (const std::string& whole : {recorded_init, recorded_response}) {
        const bytes token = from_hex(whole);
        for (std::size_t size = 0; size < token.size(); ++size) {
            EXPECT_FALSE(decode_init(std::span(token).first(size))) << size;
            EXPECT_FALSE(decode_response(std::span(token).first(size))) << size;
        }
        bytes longer = token;
        longer.push_back(0);
        EXPECT_FALSE(decode_init(longer));
        EXPECT_FALSE(decode_response(longer));
    }
}

TEST(SpnegoMessages, MalformedInitsAreRefused) {
    for (const std::string malformed : {
             "6016 0606 2b0601050502 a00c 300a a004 3002 0600 a2020400",                   // an empty mechanism, an empty token
             "600e 0606 2b0601050502 a004 3002 a000",                                      // no list
             "6010 0606 2b0601050502 a006 3004 a002 3000",                                 // an empty one
             "600a 0606 2b0601050502 a000",                                                // nothing at all
             "601c 0606 2b0601050503 a012 3010 a00e 300c 060a 2b06010401823702020a",       // another mechanism's framing
             "601d 0606 2b0601050502 a013 3011 a00f 300d 060a 2b06010401823702020a 00",    // rubbish in the list
             "60811c 0606 2b0601050502 a012 3010 a00e 300c 060a 2b06010401823702020a",     // a length that could be shorter
             "6080 0606 2b0601050502 a012 3010 a00e 300c 060a 2b06010401823702020a 0000",  // an indefinite one
             "7f60 0606 2b0601050502 a012 3010 a00e 300c 060a 2b06010401823702020a",       // a long tag
             "6085 0000000016 0606",                                                       // a length of too many bytes
         }) {
        EXPECT_FALSE(decode_init(from_hex(malformed))) << malformed;
    }
    EXPECT_TRUE(decode_init(from_hex("601c 0606 2b0601050502 a012 3010 a00e 300c 060a 2b06010401823702020a")));
}

TEST(SpnegoMessages, MalformedResponsesAreRefused) {
    for (const std::string malformed : {
             "a107 3005 a0030a0104",        // no such state
             "a108 3006 a0040a020001",      // a state of two bytes
             "a107 3005 a003020101",        // an integer instead
             "a109 3007 a005 0a0101 0500",  // two things under one tag
             "a106 3004 a2810100",          // a length that could be shorter
             "a104 3002 a201",              // cut
             "a003 3001 00"                 // the other choice
         }) {
        EXPECT_FALSE(decode_response(from_hex(malformed))) << malformed;
    }
}

TEST(SpnegoMessages, TooManyMechanismsAreRefused) {
    const std::vector<mechanism_id> most(most_mechanisms, mechanism::ntlm);
    EXPECT_TRUE(decode_init(encode_init(encode_mechanism_list(most), {})));
    const std::vector<mechanism_id> more(most_mechanisms + 1, mechanism::ntlm);
    EXPECT_FALSE(decode_init(encode_init(encode_mechanism_list(more), {})));
}

}  // namespace
