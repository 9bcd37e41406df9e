#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/rpc/little_endian.h"
#include "platform/linux/rpc/ntlm_initiator.h"
#include "platform/linux/rpc/ntlm_provider.h"
#include "platform/linux/rpc/spnego_initiator.h"
#include "platform/linux/rpc/spnego_provider.h"
#include "rpc/ntlm/ntlm_fixture.h"

namespace {

using namespace platform::linux_rpc;
using ntlm_testing::bytes;
using ntlm_testing::from_hex;
using spnego::neg_state;
using testing::ElementsAre;
using testing::IsEmpty;
using server_state = security_context::state;
using client_state = client_security::state;

/// A mechanism that the server doesn't know, with a first token of its own.
class unknown_mechanism final : public negotiable_initiator {
public:
    std::uint8_t auth_type() const override { return 99; }
    std::vector<std::uint8_t> next_token(std::span<const std::uint8_t>) override { return {1, 2, 3}; }
    state current_state() const override { return state::proceed; }
    std::size_t signature_size() const override { return 0; }
    void protect(auth_level, std::span<std::uint8_t>, std::size_t, std::size_t, std::span<std::uint8_t>) override {}
    bool unprotect(auth_level, std::span<std::uint8_t>, std::size_t, std::size_t, std::span<const std::uint8_t>) override {
        return false;
    }
    bool demands_signed_list() const override { return false; }
    std::vector<std::uint8_t> sign_list(std::span<const std::uint8_t>) override { return {}; }
    bool check_list(std::span<const std::uint8_t>, std::span<const std::uint8_t>) override { return false; }
};

const spnego::mechanism_id unknown_name{0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x02, 0x02, 0x1E};

/// Changes a token on its way. `number` counts the tokens of both sides from 0.
using interference = std::function<void(int number, bytes& token)>;

class SpnegoExchange : public testing::Test {
protected:
    SpnegoExchange() {
        accounts->add("anna", u"anna");
        const auto report = [this](const std::string& sentence) { reports.push_back(sentence); };
        provider = std::make_unique<spnego_provider>(
            spnego_settings{{std::make_shared<ntlm_provider>(ntlm_acceptor_settings{
                                ntlm_host_names::of("server.example.com"), accounts, ntlm_environment::of_system(), report})},
                            report});
    }

    void meet(bool favourite_is_known, auth_level level = auth_level::integrity, const std::string& password = "anna") {
        std::vector<spnego_initiator::candidate> candidates;
        if (!favourite_is_known) {
            candidates.push_back({{unknown_name}, std::make_unique<unknown_mechanism>()});
        }
        candidates.push_back(
            spnego_initiator::ntlm(std::make_unique<ntlm_initiator>(ntlm_credentials::of("CORP\\anna", password))));
        client = std::make_unique<spnego_initiator>(std::move(candidates));
        server = provider->create(level);
        verdict = server_state::proceed;
        tokens.clear();
    }

    /// Carries tokens to and fro until one side has enough.
    void exchange(const interference& changed = {}) {
        bytes from_server;
        for (int number = 0; client->current_state() == client_state::proceed;) {
            bytes token = client->next_token(from_server);
            if (token.empty()) {
                break;
            }
            change(changed, number++, token);
            verdict = server->accept(token, from_server);
            if (verdict == server_state::refused) {
                EXPECT_TRUE(from_server.empty());
                break;
            }
            change(changed, number++, from_server);
        }
    }

    void change(const interference& changed, int number, bytes& token) {
        if (changed) {
            changed(number, token);
        }
        tokens.push_back(token);
    }

    [[nodiscard]] bool both_complete() const {
        return verdict == server_state::complete && client->current_state() == client_state::complete;
    }

    std::shared_ptr<ntlm_testing::table_source> accounts = std::make_shared<ntlm_testing::table_source>();
    std::vector<std::string> reports;
    std::unique_ptr<spnego_provider> provider;
    std::unique_ptr<spnego_initiator> client;
    std::unique_ptr<security_context> server;
    server_state verdict = server_state::proceed;
    std::vector<bytes> tokens;
};

TEST_F(SpnegoExchange, FavouriteIsChosenAndTheListSigned) {
    meet(true);
    exchange();
    ASSERT_TRUE(both_complete()) << client->reason();
    EXPECT_EQ(server->identity().name, "SERVER\\anna");
    EXPECT_TRUE(server->identity().authenticated);
    ASSERT_EQ(tokens.size(), 4U);
    const auto choice = spnego::decode_response(tokens[1]);
    ASSERT_TRUE(choice);
    EXPECT_EQ(choice->state, neg_state::accept_incomplete);
    EXPECT_EQ(choice->mechanism, spnego::mechanism::ntlm);
    EXPECT_FALSE(choice->token.empty());
    const auto proof = spnego::decode_response(tokens[2]);
    ASSERT_TRUE(proof);
    EXPECT_EQ(proof->list_mic.size(), 16U);
    const auto end = spnego::decode_response(tokens[3]);
    ASSERT_TRUE(end);
    EXPECT_EQ(end->state, neg_state::accept_completed);
    EXPECT_TRUE(end->mechanism.empty());
    EXPECT_TRUE(end->token.empty());
    EXPECT_EQ(end->list_mic.size(), 16U);
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(SpnegoExchange, NextMechanismIsChosenWithoutTheFavouritesToken) {
    meet(false);
    exchange();
    ASSERT_TRUE(both_complete()) << client->reason();
    ASSERT_EQ(tokens.size(), 6U);
    EXPECT_EQ(ntlm_testing::to_hex(tokens[1]), "a1153013a0030a0103a10c060a2b06010401823702020a") << "request-mic, NTLM, no token";
    EXPECT_EQ(server->identity().name, "SERVER\\anna");
}

TEST_F(SpnegoExchange, ABareMechanismIsAnsweredWithoutAFrame) {
    for (const std::string password : {"anna", "wrong"}) {
        meet(true, auth_level::integrity, password);
        ntlm_initiator alone(ntlm_credentials::of("CORP\\anna", password));
        bytes reply;
        EXPECT_EQ(server->accept(alone.next_token({}), reply), server_state::proceed);
        EXPECT_TRUE(ntlm::decode_challenge(reply));
        const bytes proof = alone.next_token(reply);
        if (password == "wrong") {
            EXPECT_EQ(server->accept(proof, reply), server_state::refused);
            EXPECT_FALSE(server->identity().authenticated);
            continue;
        }
        EXPECT_EQ(server->accept(proof, reply), server_state::complete);
        EXPECT_TRUE(reply.empty());
        EXPECT_EQ(server->identity().name, "SERVER\\anna");
        bytes pdu(24 + 32 + 8, 1);
        bytes signature(16);
        alone.protect(auth_level::integrity, pdu, 24, 32, signature);
        EXPECT_TRUE(server->unprotect(auth_level::integrity, pdu, 24, 32, signature));
        EXPECT_EQ(server->accept(proof, reply), server_state::refused) << "a token more";
    }
}

TEST_F(SpnegoExchange, ABareMechanismThatIsNotHereIsRefused) {
    for (const std::string text :
         {"600b06092a864886f712010202", "600b06092a864882f712010202", "4e544c4d53535000", "4e544c4d535350", "60", ""}) {
        meet(true);
        bytes reply;
        EXPECT_EQ(server->accept(from_hex(text), reply), server_state::refused) << text;
        EXPECT_TRUE(reply.empty());
    }
}

TEST_F(SpnegoExchange, PdusAreProtectedBothWaysBehindTheSignaturesOfTheList) {
    for (const auto level : {auth_level::packet, auth_level::integrity, auth_level::privacy}) {
        meet(level != auth_level::packet, level);
        exchange();
        ASSERT_TRUE(both_complete());
        for (std::uint32_t round = 1; round < 4; ++round) {
            const bytes plain(24 + 32 + 8, static_cast<std::uint8_t>(round));
            bytes pdu = plain;
            bytes signature(client->signature_size());
            client->protect(level, pdu, 24, 32, signature);
            EXPECT_EQ(load_le32(signature, 12), round) << "number 0 went to the list";
            EXPECT_TRUE(server->unprotect(level, pdu, 24, 32, signature));
            EXPECT_EQ(pdu, plain);
            signature.assign(server->signature_size(), 0);
            server->protect(level, pdu, 24, 32, signature);
            EXPECT_EQ(load_le32(signature, 12), round);
            EXPECT_TRUE(client->unprotect(level, pdu, 24, 32, signature));
            EXPECT_EQ(pdu, plain);
        }
    }
}

TEST_F(SpnegoExchange, EveryChangedByteOfAPduIsNoticed) {
    for (const auto level : {auth_level::integrity, auth_level::privacy}) {
        for (std::size_t i = 0; i < 24 + 16 + 8 + 16; ++i) {
            meet(true, level);
            exchange();
            bytes pdu(24 + 16 + 8, 0x11);
            bytes signature(16);
            client->protect(level, pdu, 24, 16, signature);
            (i < pdu.size() ? pdu[i] : signature[i - pdu.size()]) ^= 0x04;
            EXPECT_FALSE(server->unprotect(level, pdu, 24, 16, signature)) << i;
        }
    }
}

TEST_F(SpnegoExchange, StrickenFavouriteIsNoticed) {
    meet(false);
    exchange([](int number, bytes& token) {
        if (number == 0) {
            token = spnego::encode_init(spnego::encode_mechanism_list(std::array{spnego::mechanism::ntlm}), {});
        }
    });
    EXPECT_EQ(verdict, server_state::refused);
    EXPECT_FALSE(server->identity().authenticated);
    EXPECT_THAT(reports,
                ElementsAre("Negotiation with [SERVER\\anna] was refused: the list of mechanisms was changed on its way."));
}

TEST_F(SpnegoExchange, StrickenSignatureOfTheClientIsNoticed) {
    for (const bool favourite : {true, false}) {
        meet(favourite);
        exchange([](int, bytes& token) {
            if (auto message = spnego::decode_response(token); message && !message->list_mic.empty()) {
                message->list_mic.clear();
                token = spnego::encode_response(*message);
            }
        });
        EXPECT_EQ(verdict, server_state::refused);
    }
    EXPECT_THAT(reports, ElementsAre("Negotiation with [SERVER\\anna] was refused: it didn't sign the list of mechanisms.",
                                     "Negotiation with [SERVER\\anna] was refused: it didn't sign the list of mechanisms."));
}

TEST_F(SpnegoExchange, ClientInsistsOnTheServersSignature) {
    for (const bool stricken : {true, false}) {
        meet(true);
        exchange([&](int number, bytes& token) {
            if (number == 3) {
                auto message = spnego::decode_response(token);
                message->list_mic.back() ^= 1;
                if (stricken) {
                    message->list_mic.clear();
                }
                token = spnego::encode_response(*message);
            }
        });
        EXPECT_EQ(client->current_state(), client_state::refused);
        EXPECT_EQ(client->reason(),
                  stricken ? "the server didn't sign the list of mechanisms" : "the list of mechanisms was changed on its way");
    }
}

/// Where a text begins or ends in a token; its size when it isn't there.
std::size_t start_of(const bytes& form, const bytes& token) {
    return static_cast<std::size_t>(std::ranges::search(token, form).begin() - token.begin());
}
std::size_t end_of(const bytes& form, const bytes& token) {
    return static_cast<std::size_t>(std::ranges::search(token, form).end() - token.begin());
}

/// What Negotiate doesn't answer for: the state of a response, on which nothing hangs; NTLM's challenge, in which whoever hides the
/// time stamp makes the client one of those that know none; the token of a favourite that isn't chosen.
bool lies_elsewhere(const bytes& token, std::size_t at) {
    return at == end_of({0xA0, 0x03, 0x0A, 0x01}, token) || at >= start_of(from_hex("4e544c4d5353500002000000"), token) ||
           at >= start_of({0xA2, 0x05, 0x04, 0x03, 1, 2, 3}, token);
}

TEST_F(SpnegoExchange, EveryChangedByteOfATokenIsNoticed) {
    for (const bool favourite : {true, false}) {
        meet(favourite);
        exchange();
        const std::vector<bytes> sample = tokens;
        for (int changed = 0; changed < static_cast<int>(sample.size()); ++changed) {
            for (std::size_t i = 0; i < sample[static_cast<std::size_t>(changed)].size(); ++i) {
                meet(favourite);
                bool harmless = false;
                exchange([&](int number, bytes& token) {
                    if (number == changed && i < token.size()) {
                        harmless = lies_elsewhere(token, i);
                        token[i] ^= 0x01;
                    }
                });
                EXPECT_TRUE(harmless || !both_complete()) << changed << ' ' << i;
            }
        }
    }
}

TEST_F(SpnegoExchange, WrongPasswordIsToldByTheMechanismOnly) {
    meet(true, auth_level::privacy, "wrong");
    exchange();
    EXPECT_EQ(verdict, server_state::refused);
    EXPECT_THAT(reports, ElementsAre(testing::HasSubstr("the password is wrong")));
}

TEST_F(SpnegoExchange, ClientOfUnknownMechanismsIsRefused) {
    bytes reply;
    const bytes list = spnego::encode_mechanism_list(std::array{unknown_name});
    EXPECT_EQ(provider->create(auth_level::connect)->accept(spnego::encode_init(list, {}), reply), server_state::refused);
    EXPECT_THAT(reports,
                ElementsAre("Negotiation with a client was refused: it knows none of the mechanisms that are offered here."));
}

TEST_F(SpnegoExchange, TokensOutOfTurnAreRefused) {
    const bytes rejection = spnego::encode_response({neg_state::reject, {}, {}, {}});
    const bytes empty = spnego::encode_response({});
    bytes reply;
    const bytes ntlm_alone = from_hex("4e544c4d535350000100000005820862");
    for (const bytes& token : {bytes{}, bytes{0x60}, empty, rejection, ntlm_alone}) {
        const bool bare = token == ntlm_alone;
        EXPECT_EQ(provider->create(auth_level::connect)->accept(token, reply),
                  bare ? server_state::proceed : server_state::refused);
        meet(true);
        ASSERT_EQ(server->accept(client->next_token({}), reply), server_state::proceed);
        EXPECT_EQ(server->accept(token, reply), server_state::refused);
        EXPECT_EQ(server->accept(token, reply), server_state::refused);
        EXPECT_FALSE(server->identity().authenticated);
        EXPECT_EQ(server->signature_size(), 0U);
    }
    meet(true);
    exchange();
    EXPECT_EQ(server->accept(empty, reply), server_state::refused);
    bytes pdu(40);
    EXPECT_FALSE(server->unprotect(auth_level::integrity, pdu, 24, 8, bytes(16)));
}

TEST_F(SpnegoExchange, ClientRefusesAServerThatEndsOrChoosesAtWill) {
    const auto answer = [this](const spnego::response_message& message) {
        meet(true);
        (void)client->next_token({});
        EXPECT_TRUE(client->next_token(spnego::encode_response(message)).empty());
        EXPECT_EQ(client->current_state(), client_state::refused);
        return client->reason();
    };
    EXPECT_EQ(answer({neg_state::accept_completed, spnego::mechanism::ntlm, {}, {}}),
              "the server ends the exchange before its time");
    EXPECT_EQ(answer({neg_state::reject, {}, {}, {}}), "the server takes none of the mechanisms that are offered");
    EXPECT_EQ(answer({neg_state::accept_incomplete, unknown_name, {}, {}}),
              "the server has chosen a mechanism that wasn't offered");
    EXPECT_EQ(answer({neg_state::accept_incomplete, spnego::mechanism::ntlm, {1}, {}}), "");
    meet(false);
    (void)client->next_token({});
    EXPECT_TRUE(client->next_token(spnego::encode_response({neg_state::request_mic, spnego::mechanism::ntlm, {1}, {}})).empty());
    EXPECT_EQ(client->reason(), "the server answers a mechanism that hasn't begun");
}

TEST_F(SpnegoExchange, ProviderOffersWhatItsMechanismsDo) {
    EXPECT_EQ(provider->auth_type(), 9);
    EXPECT_TRUE(provider->ready());
    EXPECT_TRUE(provider->supports(auth_level::privacy));
    EXPECT_FALSE(provider->supports(auth_level::none));
    const spnego_provider without(spnego_settings{{}, nullptr});
    EXPECT_FALSE(without.ready());
    EXPECT_FALSE(without.supports(auth_level::privacy));
}

}  // namespace
