// Tokens of a hostile client to Negotiate's server side, of a hostile server to its client, and to the codec.

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

namespace {

using namespace platform::linux_rpc;
using byte_span = std::span<const std::uint8_t>;
using bytes = std::vector<std::uint8_t>;

class no_accounts : public account_source {
public:
    std::optional<account> find(std::u16string_view /*name*/) override { return std::nullopt; }
};

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

spnego_provider& provider() {
    static spnego_provider shared(spnego_settings{{std::make_shared<ntlm_provider>(ntlm_acceptor_settings{
                                                      ntlm_host_names::of("server.example.com"), std::make_shared<no_accounts>(),
                                                      ntlm_environment::of_system(), [](const std::string&) {}})},
                                                  [](const std::string&) {}});
    return shared;
}

std::unique_ptr<spnego_initiator> initiator() {
    std::vector<spnego_initiator::candidate> candidates;
    candidates.push_back(
        spnego_initiator::ntlm(std::make_unique<ntlm_initiator>(ntlm_credentials::of("DOMAIN\\user", "Password"))));
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
    const auto server = provider().create(auth_level::integrity);
    bytes reply;
    for (const byte_span token : {first, second, second}) {
        const auto verdict = server->accept(token, reply);
        require(verdict != security_context::state::complete && !server->identity().authenticated);
        require(verdict == security_context::state::refused ? reply.empty() : spnego::decode_response(reply).has_value());
    }
}

void attack_client(byte_span first, byte_span second) {
    const auto client = initiator();
    (void)client->next_token({});
    (void)client->next_token(first);
    (void)client->next_token(second);
    require(client->current_state() != client_security::state::complete);
}

}  // namespace

/// A byte that chooses, a byte with the first token's length, the first token, the second.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const byte_span input(data, size);
    if (input.size() < 2) {
        return 0;
    }
    const byte_span tokens = input.subspan(2);
    const byte_span first = tokens.first(std::min<std::size_t>(input[1], tokens.size()));
    const byte_span second = tokens.subspan(first.size());
    switch (input[0] % 3) {
        case 0:
            read_and_write(tokens);
            break;
        case 1:
            attack_server(first, second);
            break;
        default:
            attack_client(first, second);
    }
    return 0;
}
