// Tokens of a hostile client to the NTLM acceptor, of a hostile server to the initiator, and somebody between two honest ones.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/linux/rpc/ntlm_acceptor.h"
#include "platform/linux/rpc/ntlm_initiator.h"
#include "tampering.h"

namespace {

using namespace platform::linux_rpc;
using byte_span = std::span<const std::uint8_t>;

const secret_key& password_hash() {
    static const secret_key hash = nt_hash(u"Password");
    return hash;
}

/// Any name is an account's.
class open_door : public account_source {
public:
    std::optional<account> find(std::u16string_view /*name*/) override {
        account found;
        found.name = "fuzz";
        found.hash = password_hash();
        return found;
    }
};

ntlm_environment constant_environment() {
    return {[](std::span<std::uint8_t> bytes) { std::fill(bytes.begin(), bytes.end(), std::uint8_t{0x42}); }, [] { return 0U; }};
}

std::shared_ptr<const ntlm_acceptor_settings> settings() {
    static const auto shared = std::make_shared<const ntlm_acceptor_settings>(
        ntlm_acceptor_settings{ntlm_host_names::of("server.example.com"), std::make_shared<open_door>(), constant_environment(),
                               [](const std::string&) {}});
    return shared;
}

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// Gives the second token the proof that the password's owner would give it: what lies behind the proof is reached then.
std::vector<std::uint8_t> with_proof(byte_span token, byte_span challenge_token) {
    std::optional<ntlm::authenticate_message> message = ntlm::decode_authenticate(token);
    const std::optional<ntlm::challenge_message> challenge = ntlm::decode_challenge(challenge_token);
    if (!message || !challenge || message->nt_response.size() < ntlm::proof_size) {
        return {token.begin(), token.end()};
    }
    const secret_key key = ntlm_v2_key(password_hash(), message->user, message->domain);
    const secret_key proof =
        hmac_md5(key.view(), {challenge->challenge, byte_span(message->nt_response).subspan(ntlm::proof_size)});
    std::copy(proof.view().begin(), proof.view().end(), message->nt_response.begin());
    const std::vector<std::uint8_t> encoded =
        ntlm::encode_authenticate(*message, message->payload_offset >= ntlm::payload_offset_with_mic);
    const std::optional<ntlm::authenticate_message> again = ntlm::decode_authenticate(encoded);
    require(again && again->nt_response == message->nt_response && again->user == message->user &&
            again->domain == message->domain);
    return encoded;
}

void attack_acceptor(byte_span first, byte_span second, bool proved) {
    ntlm_acceptor acceptor(settings());
    std::vector<std::uint8_t> reply;
    if (acceptor.accept(first, reply) != security_context::state::proceed) {
        require(reply.empty());
        return;
    }
    require(ntlm::decode_challenge(reply).has_value());
    const std::vector<std::uint8_t> token =
        proved ? with_proof(second, reply) : std::vector<std::uint8_t>(second.begin(), second.end());
    const security_context::state verdict = acceptor.accept(token, reply);
    require(reply.empty());
    require(acceptor.identity().authenticated == (verdict == security_context::state::complete));
    if (verdict == security_context::state::complete) {
        std::vector<std::uint8_t> pdu(first.begin(), first.end());
        require(!acceptor.unprotect(auth_level::privacy, pdu, 0, pdu.size(), std::vector<std::uint8_t>(16)));
    }
}

void attack_initiator(byte_span challenge) {
    ntlm_initiator initiator(ntlm_credentials::of("DOMAIN\\user", "Password"), constant_environment());
    static_cast<void>(initiator.next_token({}));
    const std::vector<std::uint8_t> answer = initiator.next_token(challenge);
    const bool complete = initiator.current_state() == client_security::state::complete;
    require(complete == !answer.empty());
    require(!complete || ntlm::decode_authenticate(answer).has_value());
}

/// Both sides sign the list of mechanisms, then a PDU in each direction that holds `text`.
void agree(ntlm_initiator& client, ntlm_acceptor& server, byte_span text) {
    const std::vector<std::uint8_t> list(5);
    require(server.check_list(list, client.sign_list(list)));
    require(client.check_list(list, server.sign_list(list)));
    client.list_is_signed();
    server.list_is_signed();
    for (const auth_level level : {auth_level::integrity, auth_level::privacy}) {
        std::vector<std::uint8_t> pdu(text.begin(), text.end());
        std::vector<std::uint8_t> signature(client.signature_size());
        const std::size_t offset = pdu.size() / 3;
        client.protect(level, pdu, offset, pdu.size() - offset, signature);
        require(server.unprotect(level, pdu, offset, pdu.size() - offset, signature) && std::ranges::equal(pdu, text));
        server.protect(level, pdu, offset, pdu.size() - offset, signature);
        signature.back() ^= 1;
        require(!client.unprotect(level, pdu, offset, pdu.size() - offset, signature));
    }
}

/// Messages with an integrity code arrive as they were sent, or nobody is let in.
void meddle(byte_span records) {
    tampering middle(records);
    ntlm_initiator client(ntlm_credentials::of("DOMAIN\\user", "Password"), constant_environment());
    ntlm_acceptor server(settings());
    std::vector<std::uint8_t> challenge;
    if (server.accept(middle.pass(0, client.next_token({})), challenge) != security_context::state::proceed) {
        require(middle.touched());
        return;
    }
    const std::vector<std::uint8_t> authenticate = client.next_token(middle.pass(1, challenge));
    if (client.current_state() != client_security::state::complete) {
        require(middle.touched());
        return;
    }
    std::vector<std::uint8_t> nothing;
    const bool let_in = server.accept(middle.pass(2, authenticate), nothing) == security_context::state::complete;
    require(let_in == server.identity().authenticated);
    require(let_in || middle.touched());
    require(!let_in || !middle.touched() || !server.demands_signed_list());
    if (!middle.touched()) {
        agree(client, server, records);
    }
}

}  // namespace

/// A byte that chooses; a byte with the first token's length, the first token, the second; or one token; or what is done to tokens.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const byte_span input(data, size);
    if (input.size() < 2) {
        return 0;
    }
    const std::uint8_t choice = input[0];
    if (choice % 4 == 2) {
        attack_initiator(input.subspan(1));
        return 0;
    }
    if (choice % 4 == 3) {
        meddle(input.subspan(1));
        return 0;
    }
    const byte_span tokens = input.subspan(2);
    const std::size_t first_size = std::min<std::size_t>(input[1], tokens.size());
    attack_acceptor(tokens.first(first_size), tokens.subspan(first_size), choice % 4 == 1);
    return 0;
}
