#include "platform/linux/rpc/ntlm_crypto.h"

#include <gtest/gtest.h>

#include <array>

#include "platform/linux/rpc/ntlm_session.h"
#include "rpc/ntlm/ntlm_fixture.h"

namespace {

using namespace platform::linux_rpc;
using ntlm_testing::bytes;
using ntlm_testing::from_hex;
using ntlm_testing::to_hex;

byte_view text(std::string_view literal) {
    return {reinterpret_cast<const std::uint8_t*>(literal.data()), literal.size()};
}

secret_key key_of(std::string_view digits) {
    const bytes decoded = from_hex(digits);
    return secret_key(std::span<const std::uint8_t, 16>(decoded.data(), 16));
}

TEST(NtlmCrypto, Md4GivesTheDigestsOfItsStandard) {  // RFC 1320
    EXPECT_EQ("31d6cfe0d16ae931b73c59d7e0c089c0", to_hex(md4({text("")}).view()));
    EXPECT_EQ("bde52cb31de33e46245e05fbdbd6fb24", to_hex(md4({text("a")}).view()));
    EXPECT_EQ("a448017aaf21d8525fc10ae87aa6729d", to_hex(md4({text("abc")}).view()));
    EXPECT_EQ("d9130a8164549fe818874806e1c7014b", to_hex(md4({text("message digest")}).view()));
    EXPECT_EQ(
        "e33b4ddc9c38f2199c3e7b164fcc0536",
        to_hex(md4({text("1234567890123456789012345678901234567890"), text("1234567890123456789012345678901234567890")}).view()));
}

TEST(NtlmCrypto, Md5GivesTheDigestsOfItsStandard) {  // RFC 1321
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", to_hex(md5({text("")}).view()));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", to_hex(md5({text("ab"), text("c")}).view()));
    EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", to_hex(md5({text("message digest")}).view()));
}

TEST(NtlmCrypto, HmacMd5GivesTheDigestsOfItsStandard) {  // RFC 2202
    EXPECT_EQ("9294727a3638bb1c13f48ef8158bfc9d", to_hex(hmac_md5(bytes(16, 0x0b), {text("Hi There")}).view()));
    EXPECT_EQ("750c783e6ab0b503eaa86e310a5db738",
              to_hex(hmac_md5(text("Jefe"), {text("what do ya want "), text("for nothing?")}).view()));
    EXPECT_EQ("56be34521d144c88dbb8c733f0e8b3f6", to_hex(hmac_md5(bytes(16, 0xaa), {bytes(50, 0xdd)}).view()));
}

TEST(NtlmCrypto, AKeyedHmacGivesTheSameDigestEachTime) {
    hmac_md5_under_key keyed(bytes(16, 0x0b));
    std::array<std::uint8_t, 16> digest{};
    for (int round = 0; round < 3; ++round) {
        keyed.compute({text("Hi"), text(" There")}, digest);
        EXPECT_EQ("9294727a3638bb1c13f48ef8158bfc9d", to_hex(digest));
        keyed.compute({text("something else")}, digest);
        EXPECT_NE("9294727a3638bb1c13f48ef8158bfc9d", to_hex(digest));
    }
}

TEST(NtlmCrypto, Rc4GivesTheStreamOfItsStandardAcrossCalls) {  // RFC 6229, key of 128 bits
    rc4_stream stream(key_of("0102030405060708090a0b0c0d0e0f10").view());
    bytes zeros(32);
    stream.apply(std::span(zeros).first(5));
    stream.apply({});
    stream.apply(std::span(zeros).subspan(5));
    EXPECT_EQ("9ac7cc9a609d1ef7b2932899cde41b975248c4959014126a6e8a84f11d1a9e1c", to_hex(zeros));
}

TEST(NtlmCrypto, TheKeysOfTheSampleExchangeComeOut) {  // MS-NLMP 4.2.2.1.2, 4.2.4
    const secret_key hash = nt_hash(u"Password");
    EXPECT_EQ("a4f49c406510bdcab6824ee7c30fd852", to_hex(hash.view()));
    const secret_key key = ntlm_v2_key(hash, u"User", u"Domain");
    EXPECT_EQ("0c868a403bfd7a93a3001ef22ef02e3f", to_hex(key.view()));
    const bytes authenticate = from_hex(ntlm_testing::sample_authenticate);
    const byte_view blob = byte_view(authenticate).subspan(0x84 + 16, 0x54 - 16);
    const secret_key proof = hmac_md5(key.view(), {from_hex("0123456789abcdef"), blob});
    EXPECT_EQ("68cd0ab851e51c96aabc927bebef6a1c", to_hex(proof.view()));
    const secret_key base = hmac_md5(key.view(), {proof.view()});
    EXPECT_EQ("8de40ccadbc14a82f15cb0ad0de95ca3", to_hex(base.view()));
    secret_key exported(std::span<const std::uint8_t, 16>(bytes(16, 0x55).data(), 16));
    rc4_stream(base.view()).apply(exported.writable());
    EXPECT_EQ("c5dad2544fc9799094ce1ce90bc9d03e", to_hex(exported.view()));
}

TEST(NtlmCrypto, TheUsersNameCountsInUpperCaseAndTheDomainAsItStands) {
    const secret_key hash = nt_hash(u"Password");
    EXPECT_EQ(to_hex(ntlm_v2_key(hash, u"user", u"Domain").view()), to_hex(ntlm_v2_key(hash, u"USER", u"Domain").view()));
    EXPECT_NE(to_hex(ntlm_v2_key(hash, u"User", u"domain").view()), to_hex(ntlm_v2_key(hash, u"User", u"Domain").view()));
}

TEST(NtlmCrypto, ComparesWholeBlocks) {
    EXPECT_TRUE(equal_constant_time(from_hex("0102"), from_hex("0102")));
    EXPECT_FALSE(equal_constant_time(from_hex("0102"), from_hex("0103")));
    EXPECT_FALSE(equal_constant_time(from_hex("0102"), from_hex("010200")));
    EXPECT_TRUE(equal_constant_time({}, {}));
}

TEST(NtlmCrypto, WipedTextIsGone) {
    std::string password = "secret and long enough to lie on the heap";
    const char* const place = password.data();
    wipe(password);
    EXPECT_TRUE(password.empty());
    EXPECT_EQ('\0', place[0]);
    EXPECT_EQ('\0', place[7]);
}

TEST(NtlmCrypto, RandomBytesDiffer) {
    bytes first(16);
    bytes second(16);
    random_bytes(first);
    random_bytes(second);
    EXPECT_NE(first, second);
}

class NtlmSession : public testing::Test {
protected:
    static constexpr std::uint32_t strong = 0xE2088235;

    struct sealed {
        bytes message;
        std::array<std::uint8_t, 16> signature{};
    };

    static sealed seal(ntlm_session& session, bytes message) {
        sealed result{std::move(message), {}};
        session.protect(result.message, result.message, result.signature);
        return result;
    }

    static bool open(ntlm_session& session, sealed received, const bytes& expected) {
        const bool sound = session.unprotect(received.message, received.message, received.signature);
        return sound && received.message == expected;
    }

    const secret_key exported = key_of("55555555555555555555555555555555");
    const bytes plain = from_hex("50006c00610069006e007400650078007400");
};

TEST_F(NtlmSession, SealsTheSampleMessage) {  // MS-NLMP 4.2.4.4
    ntlm_session client(ntlm_role::client, strong, exported);
    const sealed result = seal(client, plain);
    EXPECT_EQ("54e50165bf1936dc996020c1811b0f06fb5f", to_hex(result.message));
    EXPECT_EQ("010000007fb38ec5c55d497600000000", to_hex(result.signature));
}

TEST_F(NtlmSession, ServerAndClientUnderstandEachOtherInBothDirections) {
    for (const std::uint32_t flags : {strong, strong & ~0x20000000U, strong & ~0x40000000U}) {
        ntlm_session client(ntlm_role::client, flags, exported);
        ntlm_session server(ntlm_role::server, flags, exported);
        for (int round = 0; round < 3; ++round) {
            EXPECT_TRUE(open(server, seal(client, plain), plain));
            EXPECT_TRUE(open(client, seal(server, plain), plain));
        }
    }
}

TEST_F(NtlmSession, KeysOf56BitsAreOthers) {
    ntlm_session strong_side(ntlm_role::client, strong, exported);
    ntlm_session weak_side(ntlm_role::client, strong & ~0x20000000U, exported);
    EXPECT_NE(to_hex(seal(strong_side, plain).message), to_hex(seal(weak_side, plain).message));
}

TEST_F(NtlmSession, WithoutKeyExchangeTheChecksumIsPlain) {
    ntlm_session client(ntlm_role::client, strong & ~0x40000000U, exported);
    const sealed result = seal(client, plain);
    const secret_key signing =
        md5({exported.view(), from_hex("73657373696f6e206b657920746f20636c69656e742d746f2d736572766572207369676e696e67"
                                       "206b6579206d6167696320636f6e7374616e7400")});
    EXPECT_EQ("4788dc861b4782f35d43fd98fe1a2d39", to_hex(signing.view()));
    const secret_key digest = hmac_md5(signing.view(), {bytes(4), plain});
    EXPECT_EQ(to_hex(digest.view().first(8)), to_hex(std::span(result.signature).subspan(4, 8)));
}

TEST_F(NtlmSession, ASignatureCoversTheMessageAndLeavesItPlain) {
    ntlm_session client(ntlm_role::client, strong, exported);
    ntlm_session server(ntlm_role::server, strong, exported);
    bytes message = plain;
    std::array<std::uint8_t, 16> signature{};
    client.protect(message, {}, signature);
    EXPECT_EQ(plain, message);
    EXPECT_TRUE(server.unprotect(message, {}, signature));
}

TEST_F(NtlmSession, APartIsEncryptedAndTheWholeSigned) {
    ntlm_session client(ntlm_role::client, strong, exported);
    ntlm_session server(ntlm_role::server, strong, exported);
    bytes message = plain;
    std::array<std::uint8_t, 16> signature{};
    client.protect(message, std::span(message).subspan(4, 8), signature);
    EXPECT_EQ(to_hex(std::span(plain).first(4)), to_hex(std::span(message).first(4)));
    EXPECT_NE(to_hex(std::span(plain).subspan(4, 8)), to_hex(std::span(message).subspan(4, 8)));
    message[0] ^= 1;  // outside the encrypted part
    EXPECT_FALSE(server.unprotect(message, std::span(message).subspan(4, 8), signature));
}

TEST_F(NtlmSession, EveryChangedBitOfASignatureShows) {
    for (std::size_t bit = 0; bit < 128; ++bit) {
        ntlm_session client(ntlm_role::client, strong, exported);
        ntlm_session server(ntlm_role::server, strong, exported);
        sealed message = seal(client, plain);
        message.signature[bit / 8] = static_cast<std::uint8_t>(message.signature[bit / 8] ^ (1U << (bit % 8)));
        EXPECT_FALSE(open(server, message, plain)) << bit;
    }
}

TEST_F(NtlmSession, RefusesAMessageThatComesTwice) {
    ntlm_session client(ntlm_role::client, strong, exported);
    ntlm_session server(ntlm_role::server, strong, exported);
    const sealed message = seal(client, plain);
    EXPECT_TRUE(open(server, message, plain));
    EXPECT_FALSE(open(server, message, plain));
}

TEST_F(NtlmSession, RefusesAMessageThatOvertookAnotherAndAllAfterIt) {
    ntlm_session client(ntlm_role::client, strong, exported);
    ntlm_session server(ntlm_role::server, strong, exported);
    const sealed first = seal(client, plain);
    const sealed second = seal(client, plain);
    EXPECT_FALSE(open(server, second, plain));
    EXPECT_FALSE(open(server, first, plain));
}

TEST_F(NtlmSession, RefusesItsOwnMessages) {
    ntlm_session client(ntlm_role::client, strong, exported);
    EXPECT_FALSE(open(client, seal(client, plain), plain));
}

TEST_F(NtlmSession, RefusesASignatureOfAnotherSize) {
    ntlm_session client(ntlm_role::client, strong, exported);
    ntlm_session server(ntlm_role::server, strong, exported);
    sealed message = seal(client, plain);
    EXPECT_FALSE(server.unprotect(message.message, message.message, std::span(message.signature).first(8)));
}

}  // namespace
