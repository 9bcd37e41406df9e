#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "platform/linux/rpc/little_endian.h"
#include "platform/linux/rpc/ntlm_provider.h"
#include "rpc/ntlm/ntlm_fixture.h"

namespace {

using namespace platform::linux_rpc;
using ntlm_testing::bytes;
using ntlm_testing::from_hex;
using ntlm_testing::short_negotiate;
using ntlm_testing::usual_flags;
using testing::ElementsAre;
using testing::HasSubstr;
using accept_state = security_context::state;

class NtlmExchange : public testing::Test {
protected:
    NtlmExchange() {
        server.accounts->add("Anna", u"correct horse", true);
        server.accounts->add("Bob", u"battery staple");
        server.accounts->add("Gone", u"was here", true, true);
    }

    /// Client and server up to the AUTHENTICATE, which is returned.
    static bytes authenticate_for(ntlm_acceptor& acceptor, ntlm_initiator& initiator) {
        bytes challenge;
        EXPECT_EQ(accept_state::proceed, acceptor.accept(initiator.next_token({}), challenge));
        return initiator.next_token(challenge);
    }

    accept_state log_on(ntlm_acceptor& acceptor, const std::string& name, const std::string& password) {
        ntlm_initiator initiator(ntlm_credentials::of(name, password));
        return acceptor.accept(authenticate_for(acceptor, initiator), reply);
    }

    /// An acceptor behind its challenge, whose next token is the sample's AUTHENTICATE or one that a test makes of it.
    ntlm_acceptor sample_acceptor(std::uint32_t offered = usual_flags) {
        server.accounts->add("User", u"Password");
        server.environment = ntlm_testing::scripted_environment({from_hex("0123456789abcdef")});
        ntlm_acceptor acceptor = server.acceptor();
        EXPECT_EQ(accept_state::proceed, acceptor.accept(short_negotiate(offered), reply));
        return acceptor;
    }

    static ntlm::authenticate_message sample_message() {
        return *ntlm::decode_authenticate(from_hex(ntlm_testing::sample_authenticate));
    }

    /// The refusal of a changed sample, and the sentence about it.
    std::string refusal_of(const ntlm::authenticate_message& message) {
        ntlm_acceptor acceptor = sample_acceptor();
        EXPECT_EQ(accept_state::refused, acceptor.accept(ntlm::encode_authenticate(message, false), reply));
        EXPECT_TRUE(reply.empty());
        EXPECT_FALSE(acceptor.identity().authenticated);
        return server.reports->empty() ? "" : server.reports->back();
    }

    ntlm_testing::server server;
    bytes reply;
};

TEST_F(NtlmExchange, LetsAnAccountIn) {
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::complete, log_on(acceptor, "CORP\\anna", "correct horse"));
    EXPECT_TRUE(reply.empty());
    EXPECT_TRUE(acceptor.identity().authenticated);
    EXPECT_TRUE(acceptor.identity().administrator);
    EXPECT_FALSE(acceptor.identity().local);
    EXPECT_THAT(*server.reports, ElementsAre());
}

TEST_F(NtlmExchange, NamesTheAccountByTheServerWhateverDomainIsClaimed) {
    for (const std::string claimed : {"CORP\\anna", "anna", "corp.example.com\\ANNA"}) {
        ntlm_acceptor acceptor = server.acceptor();
        EXPECT_EQ(accept_state::complete, log_on(acceptor, claimed, "correct horse"));
        EXPECT_EQ("SERVER\\Anna", acceptor.identity().name);
    }
}

TEST_F(NtlmExchange, AnAccountWithoutTheFlagIsNoAdministrator) {
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::complete, log_on(acceptor, "Bob", "battery staple"));
    EXPECT_TRUE(acceptor.identity().authenticated);
    EXPECT_FALSE(acceptor.identity().administrator);
}

TEST_F(NtlmExchange, ProtectsPdusInBothDirectionsAtEachLevel) {
    for (const auth_level level : {auth_level::packet, auth_level::integrity, auth_level::privacy}) {
        ntlm_acceptor acceptor = server.acceptor();
        ntlm_initiator initiator(ntlm_credentials::of("Anna", "correct horse"));
        ASSERT_EQ(accept_state::complete, acceptor.accept(authenticate_for(acceptor, initiator), reply));
        ASSERT_EQ(client_security::state::complete, initiator.current_state());
        const bytes plain = from_hex(
            "05000003100000004000100001000000"
            "1122334455667788"
            "0a05000000000000");
        for (int round = 0; round < 2; ++round) {
            bytes pdu = plain;
            std::array<std::uint8_t, 16> signature{};
            initiator.protect(level, pdu, 16, 8, signature);
            EXPECT_EQ(level == auth_level::privacy, pdu != plain);
            EXPECT_TRUE(acceptor.unprotect(level, pdu, 16, 8, signature));
            EXPECT_EQ(plain, pdu);
            acceptor.protect(level, pdu, 16, 8, signature);
            EXPECT_TRUE(initiator.unprotect(level, pdu, 16, 8, signature));
            EXPECT_EQ(plain, pdu);
        }
    }
}

TEST_F(NtlmExchange, AChangedHeaderShowsAtEachLevel) {
    for (const auth_level level : {auth_level::packet, auth_level::integrity, auth_level::privacy}) {
        ntlm_acceptor acceptor = server.acceptor();
        ntlm_initiator initiator(ntlm_credentials::of("Anna", "correct horse"));
        ASSERT_EQ(accept_state::complete, acceptor.accept(authenticate_for(acceptor, initiator), reply));
        bytes pdu(32);
        std::array<std::uint8_t, 16> signature{};
        initiator.protect(level, pdu, 16, 8, signature);
        pdu[12] ^= 1;
        EXPECT_FALSE(acceptor.unprotect(level, pdu, 16, 8, signature));
    }
}

TEST_F(NtlmExchange, UnprotectsNothingBeforeItIsComplete) {
    ntlm_acceptor acceptor = server.acceptor();
    bytes pdu(32);
    EXPECT_FALSE(acceptor.unprotect(auth_level::integrity, pdu, 16, 8, bytes(16)));
    ntlm_initiator initiator(ntlm_credentials::of("Anna", "correct horse"));
    EXPECT_FALSE(initiator.unprotect(auth_level::integrity, pdu, 16, 8, bytes(16)));
}

TEST_F(NtlmExchange, RefusesAWrongPassword) {
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::refused, log_on(acceptor, "CORP\\Anna", "correct Horse"));
    EXPECT_TRUE(reply.empty());
    EXPECT_FALSE(acceptor.identity().authenticated);
    EXPECT_FALSE(acceptor.identity().administrator);
    EXPECT_THAT(*server.reports, ElementsAre("NTLM authentication of [CORP\\Anna] at [] was refused: the password is wrong."));
}

TEST_F(NtlmExchange, RefusesAnUnknownAccount) {
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::refused, log_on(acceptor, "Carol", ""));
    EXPECT_THAT(*server.reports, ElementsAre("NTLM authentication of [\\Carol] at [] was refused: there is no such account."));
}

TEST_F(NtlmExchange, AnUnknownAccountIsNotLetInByAHashOfZeros) {
    ntlm_credentials nobody = ntlm_credentials::of("Carol", "x");
    nobody.hash = secret_key();
    ntlm_initiator initiator(nobody);
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::refused, acceptor.accept(authenticate_for(acceptor, initiator), reply));
}

TEST_F(NtlmExchange, RefusesADisabledAccount) {
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::refused, log_on(acceptor, "gone", "was here"));
    EXPECT_FALSE(acceptor.identity().administrator);
    EXPECT_THAT(*server.reports, ElementsAre("NTLM authentication of [\\gone] at [] was refused: the account is disabled."));
}

TEST_F(NtlmExchange, ControlCharactersOfANameDoNotReachTheLog) {
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::refused, log_on(acceptor,
                                            "a\nb\x7f"
                                            "c\xE2\x80\xA8"
                                            "d",
                                            "x"));
    EXPECT_THAT(*server.reports, ElementsAre(HasSubstr("[\\a?b?c?d]")));
}

TEST_F(NtlmExchange, ANameIsCutForTheLog) {
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::refused, log_on(acceptor, std::string(20000, 'x'), "x"));
    EXPECT_THAT(*server.reports, ElementsAre(HasSubstr("[\\" + std::string(64, 'x') + "]")));
}

TEST_F(NtlmExchange, RefusesAnAuthenticateThatAnsweredAnotherChallenge) {
    ntlm_acceptor first = server.acceptor();
    ntlm_initiator initiator(ntlm_credentials::of("Anna", "correct horse"));
    const bytes recorded = authenticate_for(first, initiator);
    ASSERT_EQ(accept_state::complete, first.accept(recorded, reply));

    ntlm_acceptor second = server.acceptor();
    ntlm_initiator other(ntlm_credentials::of("Anna", "correct horse"));
    static_cast<void>(authenticate_for(second, other));
    EXPECT_EQ(accept_state::refused, second.accept(recorded, reply));
    EXPECT_THAT(*server.reports, ElementsAre(HasSubstr("the password is wrong")));
}

TEST_F(NtlmExchange, EveryChangedBitOfTheIntegrityCodeIsRefused) {
    for (std::size_t bit = 0; bit < 128; ++bit) {
        ntlm_acceptor acceptor = server.acceptor();
        ntlm_initiator initiator(ntlm_credentials::of("Anna", "correct horse"));
        bytes token = authenticate_for(acceptor, initiator);
        token[ntlm::mic_offset + bit / 8] = static_cast<std::uint8_t>(token[ntlm::mic_offset + bit / 8] ^ (1U << (bit % 8)));
        EXPECT_EQ(accept_state::refused, acceptor.accept(token, reply));
        EXPECT_THAT(server.reports->back(), HasSubstr("integrity code is wrong"));
    }
}

TEST_F(NtlmExchange, AnAnnouncedIntegrityCodeCoversAllThreeMessages) {
    {
        // The flags of NEGOTIATE, weakened on their way: the client's own message goes into the code.
        ntlm_acceptor acceptor = server.acceptor();
        ntlm_initiator initiator(ntlm_credentials::of("Anna", "correct horse"));
        bytes negotiate = initiator.next_token({});
        store_le32(negotiate, 12, load_le32(negotiate, 12) & ~ntlm::flag::seal);
        bytes challenge;
        ASSERT_EQ(accept_state::proceed, acceptor.accept(negotiate, challenge));
        EXPECT_EQ(accept_state::refused, acceptor.accept(initiator.next_token(challenge), reply));
        EXPECT_THAT(server.reports->back(), HasSubstr("integrity code is wrong"));
    }
    {
        ntlm_acceptor acceptor = server.acceptor();
        ntlm_initiator initiator(ntlm_credentials::of("Anna", "correct horse"));
        bytes challenge;
        ASSERT_EQ(accept_state::proceed, acceptor.accept(initiator.next_token({}), challenge));
        challenge[20] = static_cast<std::uint8_t>(challenge[20] & ~ntlm::flag::sign);
        EXPECT_EQ(accept_state::refused, acceptor.accept(initiator.next_token(challenge), reply));
        EXPECT_THAT(server.reports->back(), HasSubstr("integrity code is wrong"));
    }
    {
        ntlm_acceptor acceptor = server.acceptor();
        ntlm_initiator initiator(ntlm_credentials::of("Anna", "correct horse"));
        bytes token = authenticate_for(acceptor, initiator);
        store_le32(token, 60, load_le32(token, 60) & ~ntlm::flag::seal);
        EXPECT_EQ(accept_state::refused, acceptor.accept(token, reply));
        EXPECT_THAT(server.reports->back(), HasSubstr("integrity code is wrong"));
    }
}

TEST_F(NtlmExchange, AnIntegrityCodeThatIsAnnouncedButHasNoRoomIsRefused) {
    ntlm_acceptor acceptor = server.acceptor();
    ntlm_initiator initiator(ntlm_credentials::of("Anna", "correct horse"));
    const bytes token = authenticate_for(acceptor, initiator);
    const auto message = ntlm::decode_authenticate(token);
    ASSERT_TRUE(message);
    EXPECT_EQ(accept_state::refused, acceptor.accept(ntlm::encode_authenticate(*message, false), reply));
    EXPECT_THAT(server.reports->back(), HasSubstr("integrity code is wrong"));
}

TEST_F(NtlmExchange, ServesTheSampleExchangeToTheByte) {  // MS-NLMP 4.2.4
    ntlm_acceptor acceptor = sample_acceptor();
    ASSERT_EQ(accept_state::complete, acceptor.accept(from_hex(ntlm_testing::sample_authenticate), reply));
    EXPECT_EQ("SERVER\\User", acceptor.identity().name);
    bytes message = from_hex("54e50165bf1936dc996020c1811b0f06fb5f");
    EXPECT_TRUE(acceptor.unprotect(auth_level::privacy, message, 0, message.size(), from_hex("010000007fb38ec5c55d497600000000")));
    EXPECT_EQ(from_hex("50006c00610069006e007400650078007400"), message);
}

TEST_F(NtlmExchange, ItsChallengeNamesTheMachineAndTheTime) {
    server.environment = ntlm_testing::scripted_environment({from_hex("0123456789abcdef")}, 0x01DB0102030405FF);
    ntlm_acceptor acceptor = server.acceptor();
    ASSERT_EQ(accept_state::proceed, acceptor.accept(short_negotiate(usual_flags), reply));
    const auto challenge = ntlm::decode_challenge(reply);
    ASSERT_TRUE(challenge);
    EXPECT_EQ(from_hex("0123456789abcdef"), bytes(challenge->challenge.begin(), challenge->challenge.end()));
    EXPECT_EQ(u"SERVER", challenge->target_name);
    EXPECT_EQ(0xE28A8235U, challenge->flags);
    const auto pairs = ntlm::decode_av_pairs(challenge->target_info);
    ASSERT_TRUE(pairs);
    const auto value = [&](ntlm::av_id id) { return ntlm_testing::to_hex(ntlm::find_pair(*pairs, id)->value); };
    EXPECT_EQ("530045005200560045005200", value(ntlm::av_id::netbios_computer));
    EXPECT_EQ("530045005200560045005200", value(ntlm::av_id::netbios_domain));
    EXPECT_EQ("7300650072007600650072002e006500780061006d0070006c0065002e0063006f006d00", value(ntlm::av_id::dns_computer));
    EXPECT_EQ("6500780061006d0070006c0065002e0063006f006d00", value(ntlm::av_id::dns_domain));
    EXPECT_EQ("ff0504030201db01", value(ntlm::av_id::timestamp));
}

TEST_F(NtlmExchange, OffersNothingThatWasNotAskedFor) {
    ntlm_acceptor acceptor = server.acceptor();
    ASSERT_EQ(accept_state::proceed, acceptor.accept(short_negotiate(0x20080201 | 0x00000080 | 0x08000000), reply));
    const auto challenge = ntlm::decode_challenge(reply);
    ASSERT_TRUE(challenge);
    EXPECT_EQ(0x20880201U, challenge->flags);
    EXPECT_TRUE(challenge->target_name.empty());
}

TEST_F(NtlmExchange, EachChallengeIsAnother) {
    bytes challenges[2];
    for (bytes& challenge : challenges) {
        ntlm_acceptor acceptor = server.acceptor();
        ASSERT_EQ(accept_state::proceed, acceptor.accept(short_negotiate(usual_flags), reply));
        challenge.assign(reply.begin() + 24, reply.begin() + 32);
    }
    EXPECT_NE(challenges[0], challenges[1]);
}

TEST_F(NtlmExchange, RefusesWeakOrConnectionlessNegotiation) {
    const struct {
        std::uint32_t flags;
        const char* reason;
    } rows[] = {{usual_flags & ~ntlm::flag::unicode, "without Unicode"},
                {usual_flags & ~ntlm::flag::ntlm, "without Unicode"},
                {usual_flags & ~ntlm::flag::extended_session_security, "without Unicode"},
                {usual_flags & ~(ntlm::flag::key_128 | ntlm::flag::key_56), "40 bits"},
                {usual_flags | ntlm::flag::datagram, "connectionless"}};
    for (const auto& row : rows) {
        ntlm_acceptor acceptor = server.acceptor();
        EXPECT_EQ(accept_state::refused, acceptor.accept(short_negotiate(row.flags), reply));
        EXPECT_THAT(server.reports->back(), HasSubstr(row.reason));
    }
}

TEST_F(NtlmExchange, AClientCantTakeBackWhatIsRequired) {
    ntlm::authenticate_message message = sample_message();
    message.flags &= ~ntlm::flag::extended_session_security;
    EXPECT_THAT(refusal_of(message), HasSubstr("extended session security"));
}

TEST_F(NtlmExchange, AClientCantTakeWhatWasNotOffered) {
    ntlm_acceptor acceptor = sample_acceptor(usual_flags & ~ntlm::flag::key_exchange);
    ASSERT_EQ(accept_state::complete, acceptor.accept(from_hex(ntlm_testing::sample_authenticate), reply));
    bytes message = from_hex("54e50165bf1936dc996020c1811b0f06fb5f");
    EXPECT_FALSE(acceptor.unprotect(auth_level::privacy, message, 0, message.size(), from_hex("010000007fb38ec5c55d497600000000")))
        << "without key exchange the session has another key";
}

TEST_F(NtlmExchange, RefusesVersion1) {
    ntlm::authenticate_message message = sample_message();
    message.nt_response.assign(24, 0x5A);
    EXPECT_EQ("NTLM authentication of [Domain\\User] at [COMPUTER] was refused: it offers NTLM version 1 only.",
              refusal_of(message));
}

TEST_F(NtlmExchange, RefusesAnLmResponseAlone) {
    ntlm::authenticate_message message = sample_message();
    message.nt_response.clear();
    EXPECT_THAT(refusal_of(message), HasSubstr("LM response only"));
}

TEST_F(NtlmExchange, RefusesTheAnonymousClientInEachOfItsForms) {
    ntlm::authenticate_message message = sample_message();
    message.flags |= ntlm::flag::anonymous;
    EXPECT_THAT(refusal_of(message), HasSubstr("it is anonymous"));
    message = sample_message();
    message.user.clear();
    EXPECT_THAT(refusal_of(message), HasSubstr("it is anonymous"));
    message.nt_response.clear();
    message.lm_response.assign(1, 0);
    EXPECT_THAT(refusal_of(message), HasSubstr("it is anonymous"));
}

TEST_F(NtlmExchange, RefusesMalformedResponses) {
    for (const std::size_t size : {1U, 16U, 23U, 25U, 43U, 44U, 47U, 75U}) {
        ntlm::authenticate_message message = sample_message();
        message.nt_response.resize(size);
        EXPECT_THAT(refusal_of(message), HasSubstr("its response is malformed")) << size;
    }
    for (const std::size_t version : {16U, 17U}) {
        ntlm::authenticate_message message = sample_message();
        message.nt_response[version] = 2;
        EXPECT_THAT(refusal_of(message), HasSubstr("its response is malformed")) << version;
    }
}

TEST_F(NtlmExchange, RefusesASessionKeyOfAnotherSize) {
    for (const std::size_t size : {0U, 15U, 17U}) {
        ntlm::authenticate_message message = sample_message();
        message.encrypted_session_key.resize(size);
        EXPECT_THAT(refusal_of(message), HasSubstr("its session key is malformed")) << size;
    }
}

TEST_F(NtlmExchange, RefusesTokensOutOfTurn) {
    {
        ntlm_acceptor acceptor = server.acceptor();
        EXPECT_EQ(accept_state::refused, acceptor.accept(from_hex(ntlm_testing::sample_authenticate), reply));
        EXPECT_EQ(accept_state::refused, acceptor.accept(short_negotiate(usual_flags), reply)) << "dead after a refusal";
        EXPECT_TRUE(reply.empty());
    }
    {
        ntlm_acceptor acceptor = server.acceptor();
        EXPECT_EQ(accept_state::refused, acceptor.accept({}, reply));
    }
    {
        ntlm_acceptor acceptor = server.acceptor();
        ASSERT_EQ(accept_state::complete, log_on(acceptor, "Anna", "correct horse"));
        EXPECT_EQ(accept_state::refused, acceptor.accept(short_negotiate(usual_flags), reply));
        EXPECT_FALSE(acceptor.identity().authenticated);
        bytes pdu(32);
        EXPECT_FALSE(acceptor.unprotect(auth_level::integrity, pdu, 16, 8, bytes(16)));
    }
}

TEST_F(NtlmExchange, AFailingGeneratorRefusesInsteadOfThrowing) {
    server.environment.random = [](std::span<std::uint8_t>) { throw std::runtime_error("no entropy"); };
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::refused, acceptor.accept(short_negotiate(usual_flags), reply));
    EXPECT_THAT(*server.reports, ElementsAre("NTLM authentication of an unnamed client was refused: no entropy."));
}

TEST_F(NtlmExchange, UserNamesBeyondAsciiMatchWithoutCase) {
    server.accounts->add("J\xC3\xBCrgen", u"gr\u00FCn");
    ntlm_acceptor acceptor = server.acceptor();
    EXPECT_EQ(accept_state::complete, log_on(acceptor, "j\xC3\x9CRGEN", "gr\xC3\xBCn"));
    EXPECT_EQ("SERVER\\J\xC3\xBCrgen", acceptor.identity().name);
}

TEST(NtlmHostNames, FollowFromTheDnsName) {
    const ntlm_host_names names = ntlm_host_names::of("a-rather-long-host-name.example.com");
    EXPECT_EQ(u"A-RATHER-LONG-H", names.netbios_computer);
    EXPECT_EQ(u"a-rather-long-host-name.example.com", names.dns_computer);
    EXPECT_EQ(u"example.com", names.dns_domain);
    EXPECT_EQ(u"tapes", ntlm_host_names::of("tapes").dns_domain);
    EXPECT_EQ(u"LOCALHOST", ntlm_host_names::of("").netbios_computer);
}

TEST(NtlmProvider, ServesTheLevelsOfConnectionsAndItsOwnType) {
    ntlm_provider provider(
        {ntlm_host_names::of("server"), std::make_shared<ntlm_testing::table_source>(), ntlm_environment::of_system(), nullptr});
    EXPECT_EQ(10, provider.auth_type());
    const bool expected[] = {false, false, true, false, true, true, true, false};
    for (std::uint8_t level = 0; level < 8; ++level) {
        EXPECT_EQ(expected[level], provider.supports(static_cast<auth_level>(level))) << int{level};
    }
    const auto context = provider.create(auth_level::privacy);
    bytes reply;
    EXPECT_EQ(16U, context->signature_size());
    EXPECT_EQ(accept_state::proceed, context->accept(short_negotiate(usual_flags), reply));
    EXPECT_EQ(accept_state::refused, context->accept({}, reply)) << "also where nobody takes reports";
}

class NtlmInitiator : public testing::Test {
protected:
    /// What the initiator makes of a challenge with these flags and pairs.
    bytes answer(std::uint32_t flags, const bytes& pairs) {
        static_cast<void>(initiator.next_token({}));
        ntlm::challenge_message challenge;
        challenge.flags = flags;
        challenge.challenge = {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};
        challenge.target_info = pairs;
        return initiator.next_token(ntlm::encode_challenge(challenge));
    }

    ntlm_initiator initiator{ntlm_credentials::of("Domain\\User", "Password"),
                             ntlm_testing::scripted_environment({bytes(1, 0xaa), bytes(1, 0x55)}, 0)};
};

TEST_F(NtlmInitiator, WithoutATimeStampAnswersWithItsOwnTimeAndNoIntegrityCode) {
    const auto message =
        ntlm::decode_authenticate(answer(usual_flags | ntlm::flag::target_info,
                                         from_hex("02000c00 44006f006d00610069006e00 01000c00 530065007200760065007200 00000000")));
    ASSERT_TRUE(message);
    EXPECT_EQ(client_security::state::complete, initiator.current_state());
    EXPECT_EQ(72U, message->payload_offset);
    EXPECT_EQ(bytes(24), message->lm_response);
    const bytes sample = from_hex(ntlm_testing::sample_authenticate);
    EXPECT_EQ(ntlm_testing::to_hex(std::span(sample).subspan(0x84, 0x54)), ntlm_testing::to_hex(message->nt_response));
    EXPECT_EQ("c5dad2544fc9799094ce1ce90bc9d03e", ntlm_testing::to_hex(message->encrypted_session_key));
}

TEST_F(NtlmInitiator, WithATimeStampRepeatsItAndAnnouncesTheIntegrityCodeOnce) {
    const auto message =
        ntlm::decode_authenticate(answer(usual_flags, from_hex("06000400 01000000 07000800 0102030405060708 00000000")));
    ASSERT_TRUE(message);
    EXPECT_EQ(88U, message->payload_offset);
    EXPECT_EQ(
        "0101000000000000"
        "0102030405060708"
        "aaaaaaaaaaaaaaaa"
        "00000000"
        "070008000102030405060708"
        "0600040002000000"
        "00000000"
        "00000000",
        ntlm_testing::to_hex(std::span(message->nt_response).subspan(16)));
}

TEST_F(NtlmInitiator, GoesBelowNoneOfItsDemands) {
    for (const std::uint32_t missing : {ntlm::flag::unicode, ntlm::flag::ntlm, ntlm::flag::extended_session_security,
                                        ntlm::flag::key_128, ntlm::flag::key_exchange}) {
        ntlm_initiator fresh(ntlm_credentials::of("User", "Password"));
        static_cast<void>(fresh.next_token({}));
        ntlm::challenge_message challenge;
        challenge.flags = usual_flags & ~missing;
        challenge.target_info = from_hex("00000000");
        EXPECT_TRUE(fresh.next_token(ntlm::encode_challenge(challenge)).empty()) << missing;
        EXPECT_EQ(client_security::state::refused, fresh.current_state());
    }
}

TEST_F(NtlmInitiator, RefusesMalformedTargetInformation) {
    for (const std::string_view wrong : {"", "0600", "07000400 01020304 00000000"}) {
        ntlm_initiator fresh(ntlm_credentials::of("User", "Password"));
        static_cast<void>(fresh.next_token({}));
        ntlm::challenge_message challenge;
        challenge.flags = usual_flags;
        challenge.target_info = from_hex(wrong);
        EXPECT_TRUE(fresh.next_token(ntlm::encode_challenge(challenge)).empty()) << wrong;
        EXPECT_EQ(client_security::state::refused, fresh.current_state());
    }
}

TEST_F(NtlmInitiator, RefusesMoreTargetInformationThanItsAnswerHasRoomFor) {
    bytes pairs = from_hex("0900 0080");
    pairs.resize(pairs.size() + 0x8000);
    pairs.insert(pairs.end(), 4, 0);
    EXPECT_TRUE(answer(usual_flags, pairs).empty());
    EXPECT_EQ(client_security::state::refused, initiator.current_state());
}

TEST_F(NtlmInitiator, RefusesTokensOutOfTurn) {
    EXPECT_TRUE(initiator.next_token(from_hex("00")).empty());
    EXPECT_EQ(client_security::state::refused, initiator.current_state());
    EXPECT_TRUE(initiator.next_token({}).empty());
    EXPECT_EQ(10, initiator.auth_type());
    EXPECT_FALSE(initiator.ends_by_alter_context());
}

TEST(NtlmCredentials, SplitNamesAndRefuseMalformedText) {
    const ntlm_credentials made = ntlm_credentials::of("CORP\\anna", "x");
    EXPECT_EQ(u"CORP", made.domain);
    EXPECT_EQ(u"anna", made.user);
    EXPECT_EQ(u"", ntlm_credentials::of("anna", "x").domain);
    EXPECT_THROW(static_cast<void>(ntlm_credentials::of("CORP\\", "x")), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(ntlm_credentials::of("\xFF", "x")), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(ntlm_credentials::of("anna", "\xC0\x80")), std::invalid_argument);
}

}  // namespace
