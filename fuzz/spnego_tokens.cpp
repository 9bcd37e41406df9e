// Tokens of a hostile client to Negotiate's server side, of a hostile server to its client, and to the codec; and somebody between
// two honest sides.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/linux/rpc/ntlm_initiator.h"
#include "platform/linux/rpc/ntlm_provider.h"
#include "platform/linux/rpc/spnego_initiator.h"
#include "platform/linux/rpc/spnego_provider.h"
#include "tampering.h"

namespace {

using namespace platform::linux_rpc;
using byte_span = std::span<const std::uint8_t>;
using byte_room = std::span<std::uint8_t>;
using bytes = std::vector<std::uint8_t>;

/// Accounts of any name, with the password of the honest client; or none.
class account_of_everybody : public account_source {
public:
    explicit account_of_everybody(bool is_there) : is_there_(is_there) {}
    std::optional<account> find(std::u16string_view /*name*/) override {
        static const secret_key hash = nt_hash(u"Password");
        account found;
        found.name = "fuzz";
        found.hash = hash;
        return is_there_ ? std::optional(found) : std::nullopt;
    }

private:
    bool is_there_;
};

ntlm_environment constant_environment() {
    return {[](byte_room bytes) { std::fill(bytes.begin(), bytes.end(), std::uint8_t{0x42}); }, [] { return 0U; }};
}

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

std::unique_ptr<security_context> acceptor(bool with_accounts, auth_level level = auth_level::integrity) {
    const auto ntlm = std::make_shared<ntlm_provider>(ntlm_acceptor_settings{ntlm_host_names::of("server.example.com"),
                                                                             std::make_shared<account_of_everybody>(with_accounts),
                                                                             constant_environment(), [](const std::string&) {}});
    return spnego_provider(spnego_settings{{ntlm}, [](const std::string&) {}}).create(level);
}

/// A mechanism that this server doesn't have.
class unknown_mechanism : public negotiable_initiator {
public:
    std::uint8_t auth_type() const override { return 16; }
    bytes next_token(byte_span /*server_token*/) override { return {1, 2, 3}; }
    state current_state() const override { return state::proceed; }
    std::size_t signature_size() const override { return 0; }
    void protect(auth_level, byte_room, std::size_t, std::size_t, byte_room) override {}
    bool unprotect(auth_level, byte_room, std::size_t, std::size_t, byte_span) override { return false; }
    bool demands_signed_list() const override { return false; }
    bytes sign_list(byte_span /*list*/) override { return {}; }
    bool check_list(byte_span /*list*/, byte_span /*signature*/) override { return false; }
};

/// `ntlm` is set to the mechanism that will be chosen.
std::unique_ptr<spnego_initiator> initiator(bool another_favourite, const ntlm_initiator*& ntlm) {
    std::vector<spnego_initiator::candidate> candidates;
    if (another_favourite) {
        candidates.push_back(spnego_initiator::kerberos(std::make_unique<unknown_mechanism>()));
    }
    auto made = std::make_unique<ntlm_initiator>(ntlm_credentials::of("DOMAIN\\user", "Password"), constant_environment());
    ntlm = made.get();
    candidates.push_back(spnego_initiator::ntlm(std::move(made)));
    return std::make_unique<spnego_initiator>(std::move(candidates));
}

void read_and_write(byte_span token) {
    if (const auto message = spnego::decode_init(token)) {
        require(spnego::encode_mechanism_list(message->mechanisms) == message->mechanism_list);
        const auto again = spnego::decode_init(spnego::encode_init(message->mechanism_list, message->token));
        require(again && again->mechanisms == message->mechanisms && again->token == message->token);
    }
    if (const auto message = spnego::decode_response(token)) {
        const auto again = spnego::decode_response(spnego::encode_response(*message));
        require(again && again->state == message->state && again->mechanism == message->mechanism &&
                again->token == message->token && again->list_mic == message->list_mic);
    }
}

/// Nobody has an account: whatever is sent, nobody is let in.
void attack_server(byte_span first, byte_span second) {
    const auto server = acceptor(false);
    bytes reply;
    for (const byte_span token : {first, second, second}) {
        const auto verdict = server->accept(token, reply);
        require(verdict != security_context::state::complete && !server->identity().authenticated);
        require(verdict == security_context::state::refused ? reply.empty() : spnego::decode_response(reply).has_value());
    }
}

void attack_client(byte_span first, byte_span second) {
    const ntlm_initiator* ntlm = nullptr;
    const auto client = initiator(false, ntlm);
    (void)client->next_token({});
    (void)client->next_token(first);
    (void)client->next_token(second);
    require(client->current_state() != client_security::state::complete);
}

/// The list of mechanisms as the client sent it, and the choice from it, is what both sides end with, or nobody is let in.
void meddle(byte_span records, bool another_favourite, auth_level level) {
    tampering middle(records);
    const ntlm_initiator* ntlm = nullptr;
    const auto client = initiator(another_favourite, ntlm);
    const auto server = acceptor(true, level);
    const bytes offer = client->next_token({});
    const bytes offer_arrived = middle.pass(0, offer);
    bytes reply;
    auto at_server = server->accept(offer_arrived, reply);
    bytes token = client->next_token(middle.pass(1, reply));
    for (int round = 0; round < 2 && at_server == security_context::state::proceed && !token.empty(); ++round) {
        at_server = server->accept(middle.pass(2, token), reply);
        token = client->next_token(middle.pass(3, reply));
    }
    const bool let_in = at_server == security_context::state::complete;
    require(let_in == server->identity().authenticated);
    const bool all_well = let_in && client->current_state() == client_security::state::complete;
    require(all_well || middle.touched());
    const auto before = spnego::decode_init(offer);
    const auto after = spnego::decode_init(offer_arrived);
    if (let_in && ntlm->demands_signed_list() && after) {
        require(before->mechanism_list == after->mechanism_list);
    }
}

}  // namespace

/// A byte that chooses, a byte with the first token's length, the first token, the second; or what is done to honest tokens.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const byte_span input(data, size);
    if (input.size() < 2) {
        return 0;
    }
    const byte_span tokens = input.subspan(2);
    const byte_span first = tokens.first(std::min<std::size_t>(input[1], tokens.size()));
    const byte_span second = tokens.subspan(first.size());
    switch (input[0] % 4) {
        case 0:
            read_and_write(tokens);
            break;
        case 1:
            attack_server(first, second);
            break;
        case 2:
            attack_client(first, second);
            break;
        default:
            meddle(tokens, (input[1] & 1) != 0, (input[1] & 2) != 0 ? auth_level::integrity : auth_level::connect);
    }
    return 0;
}
