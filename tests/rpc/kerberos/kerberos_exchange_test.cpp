#include <gmock/gmock.h>
#include <gssapi/gssapi_ext.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/rpc/gss_initiator.h"
#include "platform/linux/rpc/gss_provider.h"
#include "platform/linux/rpc/gss_support.h"
#include "platform/linux/rpc/spnego_der.h"
#include "rpc/kerberos/kerberos_fixture.h"
#include "rpc/support/test_server.h"

namespace {

using namespace platform::linux_rpc;
using namespace rpc_test;
using testing::HasSubstr;
using server_state = security_context::state;
using client_state = client_security::state;

constexpr std::size_t header_size = 24;
constexpr std::size_t trailer_size = 8;

/// A PDU that one side protects and the other side checks: header, body, trailer, and the signature apart.
struct pdu_under_way {
    bytes pdu;
    bytes signature;
    std::size_t body = 0;
};

/// A client of the system's library that asks for what it likes.
class foreign_client {
public:
    explicit foreign_client(OM_uint32 flags) : flags_(flags) {
        std::string name = kerberos_realm::service;
        name.replace(name.find('/'), 1, "@");
        gss_buffer_desc described = gss::describe(name);
        OM_uint32 minor = 0;
        EXPECT_EQ(gss_import_name(&minor, &described, GSS_C_NT_HOSTBASED_SERVICE, target_.place()), GSS_S_COMPLETE);
    }
    bytes next(const bytes& from_server) {
        gss_buffer_desc input = gss::describe(from_server);
        gss::buffer output;
        OM_uint32 minor = 0;
        const OM_uint32 major = gss_init_sec_context(
            &minor, GSS_C_NO_CREDENTIAL, context_.place(), target_.get(), gss::kerberos(), flags_, GSS_C_INDEFINITE,
            GSS_C_NO_CHANNEL_BINDINGS, from_server.empty() ? GSS_C_NO_BUFFER : &input, nullptr, output.place(), nullptr, nullptr);
        EXPECT_FALSE(GSS_ERROR(major)) << gss::failure_text(major, minor);
        return output.bytes();
    }

private:
    OM_uint32 flags_;
    gss::name target_;
    gss::context context_;
};

class KerberosExchange : public kerberos_fixture {
protected:
    void SetUp() override {
        kerberos_fixture::SetUp();
        if (realm) {
            use_keytab(realm->keytab());
        }
    }

    void use_keytab(const std::string& path) {
        provider = std::make_unique<gss_provider>(path, [this](const std::string& sentence) { reports.push_back(sentence); });
        ASSERT_EQ(provider->fault(), "");
    }

    /// Both sides, ready to protect.
    void connect(auth_level level, bool header_signing = true, const std::string& service = kerberos_realm::service) {
        client = std::make_unique<gss_initiator>(service, level);
        server = provider->create(level);
        client->header_signing(header_signing);
        server->header_signing(header_signing);
        bytes reply;
        ASSERT_EQ(server->accept(client->next_token({}), reply), server_state::proceed) << client->reason();
        const bytes confirmation = client->next_token(reply);
        ASSERT_EQ(client->current_state(), client_state::complete) << client->reason();
        ASSERT_EQ(server->accept(confirmation, reply), server_state::complete);
        EXPECT_TRUE(reply.empty());
    }

    static bytes plain_pdu(std::size_t body) { return pattern(header_size + body + trailer_size); }

    pdu_under_way from_client(auth_level level, std::size_t body) {
        pdu_under_way made{plain_pdu(body), bytes(client->signature_size()), body};
        client->protect(level, made.pdu, header_size, body, made.signature);
        return made;
    }
    pdu_under_way from_server(auth_level level, std::size_t body) {
        pdu_under_way made{plain_pdu(body), bytes(server->signature_size()), body};
        server->protect(level, made.pdu, header_size, body, made.signature);
        return made;
    }
    /// Whether the server takes it; then it has to be what was sent.
    bool arrives_at_server(auth_level level, pdu_under_way sent) {
        const bool taken = server->unprotect(level, sent.pdu, header_size, sent.body, sent.signature);
        EXPECT_TRUE(!taken || sent.pdu == plain_pdu(sent.body));
        return taken;
    }
    bool arrives_at_client(auth_level level, pdu_under_way sent) {
        const bool taken = client->unprotect(level, sent.pdu, header_size, sent.body, sent.signature);
        EXPECT_TRUE(!taken || sent.pdu == plain_pdu(sent.body));
        return taken;
    }

    std::vector<std::string> reports;
    std::unique_ptr<gss_provider> provider;
    std::unique_ptr<gss_initiator> client;
    std::unique_ptr<security_context> server;
};

constexpr std::array protecting{auth_level::packet, auth_level::integrity, auth_level::privacy};

TEST_F(KerberosExchange, ClientIsKnownByItsPrincipal) {
    for (const auto level : {auth_level::connect, auth_level::packet, auth_level::integrity, auth_level::privacy}) {
        connect(level);
        EXPECT_TRUE(server->identity().authenticated);
        EXPECT_EQ(server->identity().name, "anna@TARNO.TEST");
        EXPECT_FALSE(server->identity().administrator);
        EXPECT_FALSE(server->identity().local);
        EXPECT_EQ(server->identity().local_account, "") << "looked for when it is needed";
        EXPECT_EQ(server->identity().find_local_account(), "anna");
    }
    EXPECT_THAT(reports, testing::IsEmpty());
}

TEST_F(KerberosExchange, OnlyPlainPrincipalsOfTheOwnRealmStandForLocalAccounts) {
    EXPECT_EQ(local_account_of("bob@TARNO.TEST"), "bob");
    EXPECT_EQ(local_account_of("anna/admin@TARNO.TEST"), "");
    EXPECT_EQ(local_account_of("bob@ELSEWHERE.TEST"), "");
    EXPECT_EQ(local_account_of(""), "");
}

TEST_F(KerberosExchange, ProtectedPdusArriveBothWays) {
    for (const auto level : protecting) {
        for (const bool header_signing : {true, false}) {
            connect(level, header_signing);
            for (const std::size_t body : {0, 16, 32, 5712, 16}) {
                const pdu_under_way sent = from_client(level, body);
                EXPECT_EQ(sent.pdu == plain_pdu(body), level != auth_level::privacy || body == 0);
                EXPECT_TRUE(arrives_at_server(level, sent)) << static_cast<int>(level) << header_signing << body;
                EXPECT_TRUE(arrives_at_client(level, from_server(level, body)))
                    << static_cast<int>(level) << header_signing << body;
            }
        }
    }
}

TEST_F(KerberosExchange, EveryChangedByteIsNoticed) {
    for (const auto level : protecting) {
        connect(level);
        const pdu_under_way sent = from_client(level, 32);
        for (std::size_t i = 0; i < sent.pdu.size() + sent.signature.size(); ++i) {
            pdu_under_way changed = sent;
            (i < sent.pdu.size() ? changed.pdu[i] : changed.signature[i - sent.pdu.size()]) ^= 0x20;
            EXPECT_FALSE(server->unprotect(level, changed.pdu, header_size, 32, changed.signature))
                << static_cast<int>(level) << ' ' << i;
        }
        EXPECT_TRUE(arrives_at_server(level, sent)) << "the unchanged one";
    }
}

TEST_F(KerberosExchange, WithoutHeaderSigningTheHeaderIsNotCovered) {
    for (const auto level : protecting) {
        connect(level, false);
        pdu_under_way sent = from_client(level, 16);
        sent.pdu[3] ^= 1;
        EXPECT_TRUE(server->unprotect(level, sent.pdu, header_size, 16, sent.signature));
        sent = from_client(level, 16);
        sent.pdu[header_size] ^= 1;
        EXPECT_FALSE(server->unprotect(level, sent.pdu, header_size, 16, sent.signature));
    }
}

TEST_F(KerberosExchange, RepeatedMissingAndReorderedPdusAreNoticed) {
    for (const auto level : protecting) {
        connect(level);
        const pdu_under_way first = from_client(level, 16);
        EXPECT_TRUE(arrives_at_server(level, first));
        EXPECT_FALSE(arrives_at_server(level, first)) << "repeated";
        connect(level);
        const pdu_under_way early = from_client(level, 16);
        const pdu_under_way late = from_client(level, 16);
        EXPECT_FALSE(arrives_at_server(level, late)) << "one is missing";
        EXPECT_FALSE(arrives_at_server(level, early)) << "out of order";
    }
}

TEST_F(KerberosExchange, SignaturesOfStrangeSizesAreRefused) {
    for (const auto level : protecting) {
        connect(level);
        const pdu_under_way sent = from_client(level, 16);
        for (std::size_t size = 0; size <= 300; ++size) {
            pdu_under_way changed = sent;
            if (size != sent.signature.size()) {
                changed.signature.resize(size);
                EXPECT_FALSE(server->unprotect(level, changed.pdu, header_size, 16, changed.signature)) << size;
            }
        }
    }
}

TEST_F(KerberosExchange, SignedOnlyIsNotTakenForEncrypted) {
    connect(auth_level::privacy);
    // The token of a message that is wrapped without encryption, where an encrypted one is due.
    client = std::make_unique<gss_initiator>(kerberos_realm::service, auth_level::integrity);
    server = provider->create(auth_level::privacy);
    client->header_signing(true);
    server->header_signing(true);
    bytes reply;
    ASSERT_EQ(server->accept(client->next_token({}), reply), server_state::proceed);
    ASSERT_EQ(server->accept(client->next_token(reply), reply), server_state::complete);
    EXPECT_FALSE(arrives_at_server(auth_level::privacy, from_client(auth_level::integrity, 16)));
}

TEST_F(KerberosExchange, OtherKindsOfKeysServe) {
    for (const std::string type :
         {"aes128-cts-hmac-sha1-96", "aes256-cts-hmac-sha384-192", "camellia256-cts-cmac", "arcfour-hmac"}) {
        const std::string principal = type + "/server.tarno.test";
        realm->add_service(principal, type + ":normal", realm->path(type + ".keytab"));
        use_keytab(realm->path(type + ".keytab"));
        for (const auto level : protecting) {
            connect(level, true, principal);
            for (const std::size_t body : {0, 16, 4096}) {
                EXPECT_TRUE(arrives_at_server(level, from_client(level, body))) << type << static_cast<int>(level) << ' ' << body;
                EXPECT_TRUE(arrives_at_client(level, from_server(level, body))) << type << static_cast<int>(level) << ' ' << body;
            }
        }
    }
}

TEST_F(KerberosExchange, FramedFirstTokenIsTaken) {
    client = std::make_unique<gss_initiator>(kerberos_realm::service, auth_level::connect);
    server = provider->create(auth_level::connect);
    const bytes request = client->next_token({});
    ASSERT_EQ(request[0], 0x6E);
    const bytes framed =
        der::element(0x60, {der::element(0x06, {spnego::mechanism::kerberos}), std::array<std::uint8_t, 2>{1, 0}, request});
    bytes reply;
    EXPECT_EQ(server->accept(framed, reply), server_state::proceed);
    EXPECT_EQ(server->accept(client->next_token(reply), reply), server_state::complete);
}

TEST_F(KerberosExchange, ClientsOfAnotherManner) {
    constexpr OM_uint32 numbered = GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG;
    const struct {
        OM_uint32 flags;
        auth_level level;
        std::string refusal;
    } clients[] = {
        {GSS_C_DCE_STYLE | GSS_C_MUTUAL_FLAG, auth_level::connect, ""},
        {GSS_C_DCE_STYLE | numbered, auth_level::privacy, ""},
        {GSS_C_DCE_STYLE | GSS_C_REPLAY_FLAG, auth_level::packet,
         "Kerberos authentication of [anna@TARNO.TEST] was refused: it does without sequence numbers."},
        {GSS_C_MUTUAL_FLAG | numbered, auth_level::integrity,
         "Kerberos authentication of an unnamed client was refused: Invalid token was supplied."},
        {0, auth_level::connect, "Kerberos authentication of an unnamed client was refused: Invalid token was supplied."},
    };
    for (const auto& tested : clients) {
        reports.clear();
        foreign_client other(tested.flags);
        server = provider->create(tested.level);
        bytes reply;
        server_state verdict = server->accept(other.next({}), reply);
        if (verdict == server_state::proceed) {
            verdict = server->accept(other.next(reply), reply);
        }
        EXPECT_EQ(verdict, tested.refusal.empty() ? server_state::complete : server_state::refused);
        EXPECT_EQ(server->identity().authenticated, tested.refusal.empty());
        EXPECT_EQ(reports, tested.refusal.empty() ? std::vector<std::string>() : std::vector{tested.refusal});
    }
}

TEST_F(KerberosExchange, ReplayedRequestIsRefused) {
    client = std::make_unique<gss_initiator>(kerberos_realm::service, auth_level::connect);
    const bytes request = client->next_token({});
    bytes reply;
    EXPECT_EQ(provider->create(auth_level::connect)->accept(request, reply), server_state::proceed);
    EXPECT_EQ(provider->create(auth_level::connect)->accept(request, reply), server_state::refused);
    EXPECT_TRUE(reply.empty());
    EXPECT_THAT(reports, testing::ElementsAre("Kerberos authentication of an unnamed client was refused: Request is a replay."));
}

TEST_F(KerberosExchange, TokensOutOfTurnAreRefused) {
    const std::vector<bytes> nonsense{{},           {0x6E}, {0x6F, 0}, {0x60}, {0x60, 0}, bytes(300, 0x60), text_bytes("NTLMSSP"),
                                      pattern(1000)};
    bytes reply;
    for (const bytes& token : nonsense) {
        EXPECT_EQ(provider->create(auth_level::connect)->accept(token, reply), server_state::refused);
        EXPECT_TRUE(reply.empty());
    }
    for (const bytes& token : nonsense) {
        client = std::make_unique<gss_initiator>(kerberos_realm::service, auth_level::connect);
        server = provider->create(auth_level::connect);
        ASSERT_EQ(server->accept(client->next_token({}), reply), server_state::proceed);
        EXPECT_EQ(server->accept(token, reply), server_state::refused);
        EXPECT_FALSE(server->identity().authenticated);
        EXPECT_EQ(server->accept(token, reply), server_state::refused) << "dead";
    }
    connect(auth_level::integrity);
    EXPECT_EQ(server->accept(bytes{0x6F}, reply), server_state::refused) << "one too many";
}

TEST_F(KerberosExchange, EveryChangedByteOfATokenIsNoticedOrMeansNothing) {
    // Parts of an AP-REQ are neither encrypted nor of meaning, so that a change may pass; but nobody else can come of it.
    for (std::size_t i = 0;; ++i) {
        client = std::make_unique<gss_initiator>(kerberos_realm::service, auth_level::connect);
        server = provider->create(auth_level::connect);
        bytes request = client->next_token({});
        if (i >= request.size()) {
            break;
        }
        request[i] ^= 0x01;
        bytes reply;
        if (server->accept(request, reply) != server_state::refused) {
            const bytes confirmation = client->next_token(reply);
            if (!confirmation.empty() && server->accept(confirmation, reply) == server_state::complete) {
                EXPECT_EQ(server->identity().name, "anna@TARNO.TEST");
            }
        }
    }
}

TEST_F(KerberosExchange, ChangedConfirmationIsRefused) {
    connect(auth_level::connect);
    client = std::make_unique<gss_initiator>(kerberos_realm::service, auth_level::connect);
    server = provider->create(auth_level::connect);
    bytes reply;
    ASSERT_EQ(server->accept(client->next_token({}), reply), server_state::proceed);
    bytes confirmation = client->next_token(reply);
    confirmation.back() ^= 1;
    EXPECT_EQ(server->accept(confirmation, reply), server_state::refused);
}

TEST_F(KerberosExchange, TicketForAServiceOutsideTheKeytabIsRefused) {
    client = std::make_unique<gss_initiator>("stranger/server.tarno.test", auth_level::connect);
    bytes reply;
    EXPECT_EQ(provider->create(auth_level::connect)->accept(client->next_token({}), reply), server_state::refused);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_THAT(reports[0], HasSubstr("stranger/server.tarno.test@TARNO.TEST"));
}

TEST_F(KerberosExchange, KeytabWithoutKeysIsNotReady) {
    const gss_provider missing(realm->path("missing.keytab"));
    EXPECT_FALSE(missing.ready());
    EXPECT_THAT(missing.fault(), testing::StartsWith("Kerberos can't be offered: "));
    EXPECT_THAT(missing.fault(), HasSubstr("missing.keytab"));
    std::ofstream(realm->path("empty.keytab"));
    EXPECT_FALSE(gss_provider(realm->path("empty.keytab")).ready());
    EXPECT_FALSE(gss_provider("").ready()) << "the default one doesn't exist here";
}

TEST_F(KerberosExchange, ClientWithoutTicketsSaysSo) {
    realm->log_out();
    gss_initiator without(kerberos_realm::service, auth_level::connect);
    EXPECT_TRUE(without.next_token({}).empty());
    EXPECT_EQ(without.current_state(), client_state::refused);
    EXPECT_THAT(without.reason(), HasSubstr("No Kerberos credentials available"));
}

TEST_F(KerberosExchange, ClientRefusesWhatIsNotTheServersAnswer) {
    for (const bytes& answer : std::vector<bytes>{{0x6F}, {0x6F, 3, 1, 2, 3}, pattern(200)}) {
        gss_initiator deceived(kerberos_realm::service, auth_level::connect);
        EXPECT_FALSE(deceived.next_token({}).empty());
        EXPECT_TRUE(deceived.next_token(answer).empty());
        EXPECT_EQ(deceived.current_state(), client_state::refused);
        EXPECT_NE(deceived.reason(), "");
    }
}

}  // namespace
